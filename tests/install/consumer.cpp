// A host as small as it can be: it defines the trace facility, is refused a session of RTP version 3, then
// sends one NAL unit from one session to another and compares what comes out. It is built against the
// installed library in each way that a host may find it, and as C++11, the oldest language a host may use.

#include <talrtp/talrtp.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string tracedLine;

class CComparingSink : public talrtp::ITalRTPSessionSink {
public:
    CComparingSink(const unsigned char* expected, int size)
        : m_expected(expected), m_size(size), m_matches(0) {}

    void OnReceivedRTPPacket(talrtp::CTalRtpPacket* packet) override {
        if (packet->get_payload_size() == m_size &&
            std::memcmp(packet->get_payload_ptr(), m_expected, static_cast<std::size_t>(m_size)) == 0) {
            ++m_matches;
        }
    }
    int matches() const { return m_matches; }

private:
    const unsigned char* m_expected;
    int m_size;
    int m_matches;
};

bool traceReachesTheHost() {
    talrtp::ITalRTPSession* session = nullptr;
    TalCreateRTPSession(&session, nullptr, 1, 3);
    const std::string expected =
        "[TAL] WARNING: [TalRtp]: TalCreateRTPSession rtp version isn't support, version = 3"
        "[src/rtp/TalRtpMain.cpp:";
    return session == nullptr && tracedLine.compare(0, expected.size(), expected) == 0;
}

bool oneUnitArrivesWhole() {
    unsigned char unit[] = {0x65, 0x88, 0x84, 0x00, 0x10};
    const unsigned char delivered[] = {0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x00, 0x10};
    CComparingSink sink(delivered, sizeof delivered);
    talrtp::ITalRTPSession* sender = nullptr;
    talrtp::ITalRTPSession* receiver = nullptr;
    TalCreateRTPSession(&sender, nullptr, 0x11223344, 2);
    TalCreateRTPSession(&receiver, &sink, 0x55667788, 2);

    talrtp::CTalRtpPacket packet(1500);
    bool good = sender->CreateSinglePacket(90000, sizeof unit, unit, &packet) == 0;
    good = good && receiver->InputReceivedData(packet.get_buffer(), packet.get_packet_size(), 1000) == 0;

    TalDestroyRTPSession(sender);
    TalDestroyRTPSession(receiver);
    return good && sink.matches() == 1;
}

}  // namespace

extern "C" int get_external_trace_mask(void) {
    return 1;
}

extern "C" void util_adapter_trace(int, const char*, const char* text, unsigned int length) {
    tracedLine.assign(text, length);
}

int main() {
    if (!traceReachesTheHost()) {
        std::fprintf(stderr, "consumer: the trace line did not arrive; the last one was \"%s\"\n",
                     tracedLine.c_str());
        return 1;
    }
    if (!oneUnitArrivesWhole()) {
        std::fprintf(stderr, "consumer: the unit did not arrive whole\n");
        return 1;
    }
    std::puts("consumer: trace line and unit arrived");
    return 0;
}

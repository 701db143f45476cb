// A receiving session under a script. The sink reads all bytes lent to it, and checks what holds for every
// call. SessionModelFuzzer compares the same scripts with a model; this one is faster.

#include "SessionScript.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace talrtp {
namespace fuzz {
namespace {

class ReadingSink : public ITalRTPSessionSink {
public:
    explicit ReadingSink(bool isBase) : m_isBase(isBase) {}

    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        const int size = packet->get_packet_size();
        require(packet->get_payload_size() >= 0, "a hand-over has a payload");
        require(packet->get_header_size() + packet->get_payload_size() == size, "its sizes agree");
        require(size <= packet->get_buffer_size(), "it fits its buffer");
        require(packet->get_packet_type() <= 1, "its kind is 0 or 1");
        readFully(packet->get_buffer(), packet->get_buffer_size());
        const unsigned char* const payload = packet->get_payload_ptr();
        if (!m_isBase && packet->get_payload_size() >= 4) {
            require(payload[0] == 0 && payload[1] == 0 && payload[2] == 0 && payload[3] == 1,
                    "it begins with a start code");
        }
    }

private:
    bool m_isBase;
};

// A session of a derived class is asked for its hooks.
template <typename Session>
class Derived : public Session {
public:
    using Session::Session;
};

template <typename Session>
std::unique_ptr<ITalRTPSession> makeSession(bool isDerived, ITalRTPSessionSink* sink) {
    if (isDerived) {
        return std::unique_ptr<ITalRTPSession>(new Derived<Session>(sink, 1));
    }
    return std::unique_ptr<ITalRTPSession>(new Session(sink, 1));
}

class Run {
public:
    Run(const std::uint8_t* data, std::size_t size) : m_script(data, size), m_sink(m_script.isBase()) {
        ITalRTPSessionSink* const sink = m_script.hasSink() ? &m_sink : nullptr;
        m_session = m_script.isBase() ? makeSession<CMMRTPSessionBase>(m_script.isDerived(), sink)
                                      : makeSession<CMMRTPSession4SVC>(m_script.isDerived(), sink);
    }

    void play() {
        while (const model::Action* const action = m_script.next()) {
            call(*action);
            checkLines();
        }
        m_session.reset();
        checkLines();
    }

private:
    void call(const model::Action& action) {
        switch (action.kind) {
            case model::Action::kInput:
                return input(action);
            case model::Action::kForceHandover:
                m_session->ForceHandover(action.first);
                return;
            case model::Action::kSetPayloadType:
                m_session->SetPayloadType(action.first, action.second);
                return;
            case model::Action::kSetFecType:
                m_session->SetFecType(action.first);
                return;
            case model::Action::kSetMask:
                m_trace.setMask(static_cast<int>(static_cast<long>(action.first)));
                return;
        }
    }

    void input(const model::Action& action) {
        ExactBuffer datagram(action.data);
        const int result = m_session->InputReceivedData(action.isNull ? nullptr : datagram.data(),
                                                        action.length, action.time);
        require((result == -1) == (action.isNull || action.length < 12), "only short data is refused");
    }

    void checkLines() {
        for (const test::TraceLine& line : m_trace.lines()) {
            require(line.length == line.text.size() && line.text.compare(0, 6, "[TAL] ") == 0 &&
                        line.level >= 0 && line.level <= 2,
                    "a line has its length and its prefix");
        }
        m_trace.clear();
    }

    test::TraceCatcher m_trace{-1};
    SessionScript m_script;
    ReadingSink m_sink;
    std::unique_ptr<ITalRTPSession> m_session;
};

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    talrtp::fuzz::Run(data, size).play();
    return 0;
}

// A host that reports by the raw calls of the RTCP stack: it makes an SR with its own clock, an SDES and a
// BYE, sends the three as one datagram, and reads the datagram back through a sink. The "network" is a copy
// of the bytes.

#include <talrtp/ITalRTCPStack.h>
#include <talrtp/TalTime.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using talrtp::_ReportBlock;
using talrtp::_SdesItem;
using talrtp::_SenderInfo;
using talrtp::_time_t;
using talrtp::ITalRTCPStack;
using talrtp::ITalRTCPStackSink;

namespace {

typedef std::vector<unsigned char> Bytes;

constexpr unsigned int kCameraSsrc = 0x11223344;
constexpr unsigned int kViewerSsrc = 0x55667788;
constexpr unsigned int kVideoClock = 90000;  // ticks of the RTP timestamp per second
constexpr unsigned char kSdesCname = 1;      // RFC 3550, 6.5.1
constexpr char kCname[] = "studio-camera@example.net";

// NTP counts from 1 January 1900, the clock of the machine from 1970. RFC 5905, 6.
constexpr unsigned long kSecondsFrom1900To1970 = 2208988800UL;

// GetReportBlock reads a whole block as soon as it begins inside the packet or directly after it.
constexpr std::size_t kRoomAfter = sizeof(_ReportBlock);

_SenderInfo senderInfoAt(const _time_t& now, unsigned int packetCount, unsigned int octetCount) {
    _SenderInfo info;
    info.ntpTimestampMsw = static_cast<unsigned int>(now.getsecond() + kSecondsFrom1900To1970);
    info.ntpTimestampLsw = static_cast<unsigned int>(now.getfraction());
    info.rtpTimestamp =
        static_cast<unsigned int>(now.getsecond() * kVideoClock + now.getusecond() * kVideoClock / 1000000);
    info.packetCount = packetCount;
    info.octetCount = octetCount;
    return info;
}

// The length field counts whole words, but the builders write no padding. So a packet whose length is not a
// multiple of 4 is filled up before it goes into a compound, or the reader would look for the next packet too
// late.
void fillUpToWord(Bytes& packet, int length) {
    packet.resize(static_cast<std::size_t>(length));
    packet.resize((packet.size() + 3) / 4 * 4, 0);
}

// Asks first for the room that is needed, then builds. An empty result means that the call was refused.
template <class Create>
Bytes build(Create create) {
    Bytes packet(1);
    int length = 1;
    create(packet.data(), length);  // refused for lack of room: `length` becomes the size that is needed
    packet.resize(static_cast<std::size_t>(length));
    if (create(packet.data(), length) != 0) {
        return Bytes();
    }
    fillUpToWord(packet, length);
    return packet;
}

Bytes buildReport(ITalRTCPStack& stack, _SenderInfo info) {
    _ReportBlock aboutViewer = {};
    aboutViewer.ssrc = kViewerSsrc;
    aboutViewer.fractionLost = 12;  // 12 of 256
    aboutViewer.cumulativeLost = 345;
    aboutViewer.extendedHighestSeq = 0x0001fffe;
    return build([&](unsigned char* buf, int& len) {
        return stack.CreateSenderReportPacket(kCameraSsrc, &info, &aboutViewer, 1, buf, len);
    });
}

Bytes buildDescription(ITalRTCPStack& stack) {
    _SdesItem cname;
    cname.ssrc = kCameraSsrc;
    cname.type = kSdesCname;
    cname.length = static_cast<unsigned char>(std::strlen(kCname));
    std::memcpy(cname.data, kCname, cname.length);
    return build([&](unsigned char* buf, int& len) { return stack.CreateSdesPacket(&cname, 1, buf, len); });
}

Bytes buildGoodbye(ITalRTCPStack& stack) {
    unsigned int leaving[] = {kCameraSsrc};
    return build([&](unsigned char* buf, int& len) { return stack.CreateByePacket(leaving, 1, buf, len); });
}

Bytes join(ITalRTCPStack& stack, std::vector<Bytes> packets) {
    std::vector<unsigned char*> starts;
    std::vector<int> lengths;
    for (Bytes& packet : packets) {
        starts.push_back(packet.data());
        lengths.push_back(static_cast<int>(packet.size()));
    }
    return build([&](unsigned char* buf, int& len) {
        return stack.CreateCompoundPacket(starts.data(), lengths.data(), static_cast<int>(starts.size()), buf,
                                          len);
    });
}

// Prints each packet and stores its contents. Whoever reads from a network asks IsValidRtcpPacket first: the
// stack hands over everything that has a length.
class ReportReader : public ITalRTCPStackSink {
public:
    explicit ReportReader(ITalRTCPStack& stack) : m_stack(stack) {}

    void OnRtcpPacket(unsigned char* packet, int length) override {
        if (!m_stack.IsValidRtcpPacket(packet, length)) {
            std::printf("not an RTCP packet of ours, %d bytes\n", length);
            return;
        }
        switch (m_stack.GetRtcpPacketType(packet, length)) {
            case 200:
                readReport(packet, length);
                break;
            case 202:
                readDescription(packet, length);
                break;
            case 203:
                readGoodbye(packet, length);
                break;
            default:
                break;
        }
    }

    _SenderInfo info = {};
    _ReportBlock block = {};
    std::string cname;
    unsigned int left = 0;

private:
    void readReport(unsigned char* packet, int length) {
        int count = 1;
        m_stack.GetReportSenderInfo(packet, length, &info);
        m_stack.GetReportBlock(packet, length, &block, count);
        std::printf("SR    %3d bytes from %08x: %u packets, %u bytes; %u of 256 lost from %08x\n", length,
                    m_stack.GetRtcpPacketSsrc(packet, length), info.packetCount, info.octetCount,
                    static_cast<unsigned int>(block.fractionLost), block.ssrc);
    }

    // The header's item count tells how many to ask for; padding follows the last one.
    void readDescription(unsigned char* packet, int length) {
        std::vector<_SdesItem> items(m_stack.GetSdesItemCount(packet, length));
        int count = static_cast<int>(items.size());
        m_stack.GetSdesItem(packet, length, items.data(), count);
        for (int i = 0; i < count; ++i) {
            const _SdesItem& item = items[static_cast<std::size_t>(i)];
            const std::string text(item.data, item.data + item.length);
            std::printf("SDES  %3d bytes: item %u of %08x is \"%s\"\n", length,
                        static_cast<unsigned int>(item.type), item.ssrc, text.c_str());
            if (item.type == kSdesCname) {
                cname = text;
            }
        }
    }

    void readGoodbye(unsigned char* packet, int length) {
        int count = 1;
        m_stack.GetByeSsrc(packet, length, &left, count);
        std::printf("BYE   %3d bytes: %08x leaves\n", length, left);
    }

    ITalRTCPStack& m_stack;
};

bool check(bool holds, const char* what) {
    if (!holds) {
        std::printf("%s came back changed\n", what);
    }
    return holds;
}

bool run(ITalRTCPStack& stack) {
    const _SenderInfo sent = senderInfoAt(_time_t::now(), 1500, 1800000);
    const Bytes datagram =
        join(stack, {buildReport(stack, sent), buildDescription(stack), buildGoodbye(stack)});

    Bytes received = datagram;
    received.resize(datagram.size() + kRoomAfter);
    ReportReader reader(stack);
    const std::int64_t result =
        stack.InputReceivedRtcpData(&reader, received.data(), static_cast<int>(datagram.size()));

    return check(result == 0, "the datagram") &&
           check(std::memcmp(&reader.info, &sent, sizeof(sent)) == 0, "the sender info") &&
           check(reader.block.ssrc == kViewerSsrc && reader.block.cumulativeLost == 345,
                 "the report block") &&
           check(reader.cname == kCname, "the CNAME") && check(reader.left == kCameraSsrc, "the goodbye");
}

}  // namespace

int main() {
    ITalRTCPStack* stack = nullptr;
    TalCreateRTCPStack(&stack);
    const bool isRight = run(*stack);
    TalDestroyRTCPStack(stack);
    return isRight ? 0 : 1;
}

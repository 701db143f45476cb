// Datagrams as they come from the network, cut into packets for a sink that calls every getter on each and
// reads all that it is lent. The same getters also see the input as one packet, whole and one byte short.

#include "FuzzSupport.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtcpStack.h>

#include <cstdint>
#include <cstring>

namespace talrtp {
namespace fuzz {
namespace {

constexpr int kOffered = 40;  // more than a header can count
constexpr int kBlockSize = 24;

void checkStretch(const unsigned char* packet, int length, const unsigned char* stretch, int stretchLength) {
    require(stretch >= packet, "what is lent lies in the packet");
    require(stretch - packet + stretchLength == length, "what is lent ends with the packet");
    readFully(stretch, stretchLength);
}

void readReport(CTalRTCPStack& stack, unsigned char* packet, int length) {
    require(stack.GetReportBlockCount(packet, length) <= 31, "the report count has five bits");
    _SenderInfo info;
    const std::int64_t result = stack.GetReportSenderInfo(packet, length, &info);
    require(result == 0 || result == -1, "sender info is read or refused");
    unsigned char* stretch = nullptr;
    int stretchLength = 0;
    if (stack.GetReportExtension(packet, length, stretch, stretchLength) == 0) {
        require(stretchLength > 0, "an extension is not empty");
        checkStretch(packet, length, stretch, stretchLength);
    }
    // The getter that reads past the end: its host provides one block of room.
    Bytes roomy(packet, packet + length);
    roomy.resize(roomy.size() + kBlockSize, 0xa5);
    ExactBuffer copy(roomy);
    _ReportBlock blocks[kOffered];
    int count = kOffered;
    if (stack.GetReportBlock(copy.data(), length, blocks, count) == 0) {
        require(count >= 0 && count <= kOffered, "no more blocks are read than were offered");
        require(count <= length / kBlockSize + 1, "every block begins within the packet");
        readFully(reinterpret_cast<unsigned char*>(blocks), count * kBlockSize);
    } else {
        require(count == kOffered, "a refused call leaves the count alone");
    }
}

void readItemsAndSources(CTalRTCPStack& stack, unsigned char* packet, int length) {
    require(stack.GetSdesItemCount(packet, length) <= 31, "the item count has five bits");
    require(stack.GetByeSsrcCount(packet, length) <= 31, "the source count has five bits");
    static _SdesItem items[kOffered];
    int count = kOffered;
    if (stack.GetSdesItem(packet, length, items, count) == 0) {
        require(count >= 0 && count <= kOffered, "no more items are read than were offered");
        for (int i = 0; i < count; ++i) {
            readFully(items[i].data, items[i].length);
        }
    } else {
        require(count == kOffered, "a refused call leaves the count alone");
    }
    unsigned int ssrcs[kOffered];
    count = kOffered;
    if (stack.GetByeSsrc(packet, length, ssrcs, count) == 0) {
        require(count >= 0 && count <= kOffered, "no more sources are read than were offered");
        readFully(reinterpret_cast<unsigned char*>(ssrcs), count * static_cast<int>(sizeof(ssrcs[0])));
    } else {
        require(count == kOffered, "a refused call leaves the count alone");
    }
}

void readAppAndFeedback(CTalRTCPStack& stack, unsigned char* packet, int length) {
    unsigned char name[4];
    if (stack.GetAppName(packet, length, name) == 0) {
        readFully(name, 4);
    }
    unsigned char* stretch = nullptr;
    int stretchLength = 0;
    if (stack.GetAppData(packet, length, stretch, stretchLength) == 0) {
        checkStretch(packet, length, stretch, stretchLength);
    }
    if (stack.GetFBFCIData(packet, length, stretch, stretchLength) == 0) {
        checkStretch(packet, length, stretch, stretchLength);
    }
    unsigned int sender = 0, media = 0;
    const bool isFeedback = stack.GetFBSsrc(packet, length, sender, media) == 0;
    require(!isFeedback || sender == stack.GetRtcpPacketSsrc(packet, length), "one SSRC, two getters");
    require(stack.GetAppSubType(packet, length) <= 31, "the subtype has five bits");
    require(stack.GetRTPFBSubType(packet, length) <= 31, "the feedback type has five bits");
    require(stack.GetPSFBSubType(packet, length) <= 31, "the feedback type has five bits");
}

void readEverything(CTalRTCPStack& stack, unsigned char* packet, int length) {
    const bool isValid = stack.IsValidRtcpPacket(packet, length);
    const unsigned int type = stack.GetRtcpPacketType(packet, length);
    require(isValid == (type >= 200 && type <= 206), "a valid packet has a type, another has none");
    require(isValid || stack.GetRtcpPacketSsrc(packet, length) == 0, "an invalid packet has no SSRC");
    readReport(stack, packet, length);
    readItemsAndSources(stack, packet, length);
    readAppAndFeedback(stack, packet, length);
}

class EveryGetterSink : public ITalRTCPStackSink {
public:
    void OnRtcpPacket(unsigned char* packet, int length) override {
        require(length > 0 && length % 4 == 0, "a packet has whole words");
        readFully(packet, length);
        readEverything(m_stack, packet, length);
        m_total += length;
    }
    std::int64_t total() const { return m_total; }

private:
    CTalRTCPStack m_stack;
    std::int64_t m_total = 0;
};

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp::fuzz;
    const int length = static_cast<int>(size);
    talrtp::CTalRTCPStack stack;
    ExactBuffer datagram(data, length);
    EveryGetterSink sink;
    const std::int64_t result = stack.InputReceivedRtcpData(&sink, datagram.data(), length);
    require(result != 0 || sink.total() >= length, "the packets cover the datagram");
    require(result != -2 || sink.total() < length, "a packet without a length ends the cut early");
    require((result == -1) == (length == 0), "only an empty datagram is refused");
    require(datagram.bytes() == Bytes(data, data + size), "the datagram stays as it came");

    readEverything(stack, datagram.data(), length);
    if (length > 0) {
        ExactBuffer cut(data, length - 1);
        readEverything(stack, cut.data(), length - 1);
    }
    return 0;
}

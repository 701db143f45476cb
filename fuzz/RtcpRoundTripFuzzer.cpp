// Packets built from any values into buffers of any capacity: a refusal writes nothing, and what one side
// writes the other side reads. The packets that came about then travel as one compound.

#include "FuzzSupport.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtcpStack.h>

#include <cstdint>
#include <cstring>

namespace talrtp {
namespace fuzz {
namespace {

constexpr unsigned char kUntouched = 0xa5;
constexpr int kWordSize = 4;

// A packet to be built: its arguments, the size that it needs, the size that it will have, and its reading.
class Packet {
public:
    virtual ~Packet() = default;
    virtual std::int64_t needed() const = 0;
    virtual int size() const = 0;
    virtual std::int64_t build(CTalRTCPStack& stack, unsigned char* buf, int& len) = 0;
    virtual void readBack(CTalRTCPStack& stack, unsigned char* buf, int len) = 0;
};

// Bytes that are never at address null, also when there are none.
Bytes takeBytes(InputReader& input, int count) {
    Bytes bytes = input.bytes(static_cast<std::size_t>(count));
    bytes.resize(static_cast<std::size_t>(count), 0x3c);
    bytes.reserve(1);
    return bytes;
}

bool equal(const _ReportBlock& a, const _ReportBlock& b) {
    return a.ssrc == b.ssrc && a.fractionLost == b.fractionLost && a.cumulativeLost == b.cumulativeLost &&
           a.extendedHighestSeq == b.extendedHighestSeq && a.jitter == b.jitter && a.lastSR == b.lastSR &&
           a.delaySinceLastSR == b.delaySinceLastSR;
}

class Report : public Packet {
public:
    explicit Report(InputReader& input)
        : m_isSender(input.flag()), m_ssrc(input.any<unsigned int>()), m_info() {
        for (unsigned int* field : {&m_info.ntpTimestampMsw, &m_info.ntpTimestampLsw, &m_info.rtpTimestamp,
                                    &m_info.packetCount, &m_info.octetCount}) {
            *field = input.any<unsigned int>();
        }
        m_blocks.resize(input.within<std::size_t>(0, 31));
        for (_ReportBlock& block : m_blocks) {
            block.ssrc = input.any<unsigned int>();
            block.fractionLost = input.any<unsigned char>();
            block.cumulativeLost = input.within<unsigned int>(0, 0xffffff);
            block.extendedHighestSeq = input.any<unsigned int>();
            block.jitter = input.any<unsigned int>();
            block.lastSR = input.any<unsigned int>();
            block.delaySinceLastSR = input.any<unsigned int>();
        }
        m_blocks.reserve(1);
    }
    std::int64_t needed() const override { return (m_isSender ? 28 : 8) + 24 * count(); }
    int size() const override { return static_cast<int>(needed()); }
    std::int64_t build(CTalRTCPStack& stack, unsigned char* buf, int& len) override {
        return stack.CreateSenderReportPacket(m_ssrc, m_isSender ? &m_info : nullptr, m_blocks.data(),
                                              count(), buf, len);
    }
    void readBack(CTalRTCPStack& stack, unsigned char* buf, int len) override {
        require(stack.GetRtcpPacketType(buf, len) == (m_isSender ? 200U : 201U), "type of a report");
        require(stack.GetRtcpPacketSsrc(buf, len) == m_ssrc, "SSRC of a report");
        require(stack.GetReportBlockCount(buf, len) == m_blocks.size(), "count of a report");
        _SenderInfo info;
        require(stack.GetReportSenderInfo(buf, len, &info) == (m_isSender ? 0 : -1), "sender info is there");
        require(!m_isSender || std::memcmp(&info, &m_info, sizeof(info)) == 0, "sender info");
        std::vector<_ReportBlock> blocks(m_blocks.size() + 1);
        int read = count();
        require(stack.GetReportBlock(buf, len, blocks.data(), read) == 0 && read == count(),
                "blocks are read");
        for (std::size_t i = 0; i < m_blocks.size(); ++i) {
            require(equal(m_blocks[i], blocks[i]), "report block");
        }
        unsigned char* extension = nullptr;
        int length = 0;
        require(stack.GetReportExtension(buf, len, extension, length) == -1, "nothing behind the blocks");
    }

private:
    int count() const { return static_cast<int>(m_blocks.size()); }

    bool m_isSender;
    unsigned int m_ssrc;
    _SenderInfo m_info;
    std::vector<_ReportBlock> m_blocks;
};

// Items that end on a word, the last one perhaps not: the only ones that both sides see alike.
class Description : public Packet {
public:
    explicit Description(InputReader& input) {
        const std::size_t count = input.within<std::size_t>(1, 31);
        for (std::size_t i = 0; i < count; ++i) {
            _SdesItem item;
            item.ssrc = input.any<unsigned int>();
            item.type = input.any<unsigned char>();
            item.length = input.any<unsigned char>();
            if (i + 1 < count) {
                item.length = static_cast<unsigned char>((item.length & 0xfc) | 2);
            }
            const Bytes text = takeBytes(input, item.length);
            std::memset(item.data, kUntouched, sizeof(item.data));
            std::copy(text.begin(), text.end(), item.data);
            m_items.push_back(item);
        }
    }
    std::int64_t needed() const override { return 4 + 264 * static_cast<std::int64_t>(m_items.size()); }
    int size() const override {
        int size = 4;
        for (const _SdesItem& item : m_items) {
            size += 6 + item.length;
        }
        return size;
    }
    std::int64_t build(CTalRTCPStack& stack, unsigned char* buf, int& len) override {
        return stack.CreateSdesPacket(m_items.data(), static_cast<int>(m_items.size()), buf, len);
    }
    void readBack(CTalRTCPStack& stack, unsigned char* buf, int len) override {
        require(stack.GetRtcpPacketType(buf, len) == 202, "type of an SDES");
        require(stack.GetSdesItemCount(buf, len) == m_items.size(), "count of an SDES");
        std::vector<_SdesItem> items(m_items.size() + 1);
        int read = static_cast<int>(items.size());
        require(stack.GetSdesItem(buf, len, items.data(), read) == 0, "items are read");
        require(read == static_cast<int>(m_items.size()), "no item too many, none too few");
        for (std::size_t i = 0; i < m_items.size(); ++i) {
            require(items[i].ssrc == m_items[i].ssrc && items[i].type == m_items[i].type &&
                        items[i].length == m_items[i].length &&
                        std::memcmp(items[i].data, m_items[i].data, m_items[i].length) == 0,
                    "item");
        }
    }

private:
    std::vector<_SdesItem> m_items;
};

class Goodbye : public Packet {
public:
    explicit Goodbye(InputReader& input) : m_ssrcs(input.within<std::size_t>(0, 31)) {
        for (unsigned int& ssrc : m_ssrcs) {
            ssrc = input.any<unsigned int>();
        }
        m_ssrcs.reserve(1);
    }
    std::int64_t needed() const override { return 4 + 4 * static_cast<std::int64_t>(m_ssrcs.size()); }
    int size() const override { return static_cast<int>(needed()); }
    std::int64_t build(CTalRTCPStack& stack, unsigned char* buf, int& len) override {
        return stack.CreateByePacket(m_ssrcs.data(), static_cast<int>(m_ssrcs.size()), buf, len);
    }
    void readBack(CTalRTCPStack& stack, unsigned char* buf, int len) override {
        require(stack.GetByeSsrcCount(buf, len) == m_ssrcs.size(), "count of a BYE");
        std::vector<unsigned int> ssrcs(m_ssrcs.size() + 1);
        int read = static_cast<int>(ssrcs.size());
        require(stack.GetByeSsrc(buf, len, ssrcs.data(), read) == 0, "sources are read");
        ssrcs.resize(static_cast<std::size_t>(read));
        require(ssrcs == m_ssrcs, "sources");
    }

private:
    std::vector<unsigned int> m_ssrcs;
};

// APP, RTPFB and PSFB: two words and data.
class WithData : public Packet {
public:
    explicit WithData(InputReader& input)
        : m_type(input.within<unsigned int>(204, 206)),
          m_subtype(input.any<unsigned char>()),
          m_ssrc(input.any<unsigned int>()),
          m_media(input.any<unsigned int>()),
          m_name(takeBytes(input, 4)),
          m_data(takeBytes(input, input.within<int>(0, 300))) {}
    std::int64_t needed() const override { return 12 + static_cast<std::int64_t>(m_data.size()); }
    int size() const override { return static_cast<int>(needed()); }
    std::int64_t build(CTalRTCPStack& stack, unsigned char* buf, int& len) override {
        const int dataLen = static_cast<int>(m_data.size());
        if (m_type == 204) {
            return stack.CreateAppPacket(m_ssrc, m_subtype, m_name.data(), m_data.data(), dataLen, buf, len);
        }
        return m_type == 205
                   ? stack.CreateRTPFBPacket(m_ssrc, m_media, m_subtype, m_data.data(), dataLen, buf, len)
                   : stack.CreatePSFBPacket(m_ssrc, m_media, m_subtype, m_data.data(), dataLen, buf, len);
    }
    void readBack(CTalRTCPStack& stack, unsigned char* buf, int len) override {
        require(stack.GetRtcpPacketType(buf, len) == m_type, "type");
        require(stack.GetRtcpPacketSsrc(buf, len) == m_ssrc, "SSRC");
        require(stack.GetSubType(buf) == m_subtype % 32, "subtype");
        unsigned char* data = nullptr;
        int dataLen = 0;
        if (m_type == 204) {
            unsigned char name[4];
            require(stack.GetAppName(buf, len, name) == 0 && std::equal(name, name + 4, m_name.begin()),
                    "name");
            require(stack.GetAppData(buf, len, data, dataLen) == 0, "data is there");
        } else {
            unsigned int sender = 0, media = 0;
            require(stack.GetFBSsrc(buf, len, sender, media) == 0 && sender == m_ssrc && media == m_media,
                    "sources of a feedback packet");
            require(stack.GetFBFCIData(buf, len, data, dataLen) == 0, "FCI is there");
        }
        require(dataLen >= static_cast<int>(m_data.size()) && dataLen < static_cast<int>(m_data.size()) + 4,
                "data ends with the packet");
        require(std::equal(m_data.begin(), m_data.end(), data), "data");
    }

private:
    unsigned int m_type;
    unsigned char m_subtype;
    unsigned int m_ssrc;
    unsigned int m_media;
    Bytes m_name;
    Bytes m_data;
};

std::unique_ptr<Packet> takePacket(InputReader& input) {
    switch (input.within<int>(0, 3)) {
        case 0:
            return std::make_unique<Report>(input);
        case 1:
            return std::make_unique<Description>(input);
        case 2:
            return std::make_unique<Goodbye>(input);
        default:
            return std::make_unique<WithData>(input);
    }
}

bool isUntouched(const Bytes& bytes, int from) {
    return std::all_of(bytes.begin() + from, bytes.end(),
                       [](unsigned char byte) { return byte == kUntouched; });
}

// Builds `packet` where it may not fit, then where it just fits. Returns it filled up to a word.
Bytes buildAndReadBack(CTalRTCPStack& stack, Packet& packet, int capacity) {
    ExactBuffer offered(Bytes(static_cast<std::size_t>(capacity), kUntouched));
    int len = capacity;
    if (packet.build(stack, offered.data(), len) != 0) {
        require(capacity < packet.needed(), "only a lack of room is refused");
        require(isUntouched(offered.bytes(), 0), "a refused call writes nothing");
        require(capacity < 1 ? len == capacity : len == packet.needed(), "the need is left in len");
    } else {
        require(capacity >= packet.needed(), "a lack of room is refused");
        require(len == packet.size(), "len is what was written");
        require(isUntouched(offered.bytes(), len), "nothing is written behind");
    }
    ExactBuffer exact(Bytes(static_cast<std::size_t>(packet.needed()), kUntouched));
    len = exact.size();
    require(packet.build(stack, exact.data(), len) == 0 && len == packet.size(), "what fits is built");
    Bytes built = exact.bytes();
    built.resize(static_cast<std::size_t>(len));
    built.resize((built.size() + kWordSize - 1) / kWordSize * kWordSize, 0);

    // One block of room behind, for GetReportBlock.
    Bytes roomy = built;
    roomy.resize(roomy.size() + 24, kUntouched);
    require(stack.IsValidRtcpPacket(roomy.data(), static_cast<int>(built.size())), "what is built is valid");
    packet.readBack(stack, roomy.data(), static_cast<int>(built.size()));
    return built;
}

class ExpectingSink : public ITalRTCPStackSink {
public:
    explicit ExpectingSink(const std::vector<Bytes>& packets) : m_packets(packets) {}
    void OnRtcpPacket(unsigned char* packet, int length) override {
        require(m_next < m_packets.size(), "no packet too many");
        require(Bytes(packet, packet + length) == m_packets[m_next], "packet of a compound");
        ++m_next;
    }
    bool isDone() const { return m_next == m_packets.size(); }

private:
    const std::vector<Bytes>& m_packets;
    std::size_t m_next = 0;
};

void sendAsCompound(CTalRTCPStack& stack, std::vector<Bytes>& packets) {
    std::vector<unsigned char*> starts;
    std::vector<int> lengths;
    int size = 0;
    for (Bytes& packet : packets) {
        starts.push_back(packet.data());
        lengths.push_back(static_cast<int>(packet.size()));
        size += lengths.back();
    }
    const int count = static_cast<int>(packets.size());
    ExactBuffer compound(Bytes(static_cast<std::size_t>(size), kUntouched));
    int len = size - 1;
    require(stack.CreateCompoundPacket(starts.data(), lengths.data(), count, compound.data(), len) == -1 &&
                len == size && isUntouched(compound.bytes(), 0),
            "a compound does not fit one byte less");
    len = size;
    require(stack.CreateCompoundPacket(starts.data(), lengths.data(), count, compound.data(), len) == 0 &&
                len == size,
            "a compound fits its size");
    ExpectingSink sink(packets);
    require(stack.InputReceivedRtcpData(&sink, compound.data(), len) == 0 && sink.isDone(),
            "compound is cut");
}

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp::fuzz;
    InputReader input(data, size);
    talrtp::CTalRTCPStack stack;
    std::vector<Bytes> packets;
    do {
        const int capacity = input.within<int>(0, 10000);
        packets.push_back(buildAndReadBack(stack, *takePacket(input), capacity));
    } while (input.size() > 0 && packets.size() < 8);
    sendAsCompound(stack, packets);
    return 0;
}

// Builds RTCP packets and compounds of them, in either wire form.
//
//   kit::RtcpWriter writer(kit::Form::kRfc3550);
//   writer.add(report);                       // a kit::SenderReport or kit::ReceiverReport comes first
//   writer.addCname(ssrc, "camera@example");  // RFC 3550 wants a CNAME in every compound
//   socket.send(writer.bytes());
//   writer.clear();
//
// Packets are appended in the order of the calls; together they are one datagram. Each is filled up to a
// whole word, so all packets can be joined in both forms. A packet that cannot be told on the wire is
// refused: nothing is appended, the call returns false, and error() says which value was wrong. No call
// throws but for memory.

#ifndef TALRTP_KIT_RTCPWRITER_H
#define TALRTP_KIT_RTCPWRITER_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/RtcpPackets.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talrtp::kit {

// Collects the packets of one datagram.
class RtcpWriter {
public:
    // Starts an empty datagram of `form`.
    explicit RtcpWriter(Form form) : m_form(form) {}

    // Append one packet. Return true, or false when the packet was refused.
    //
    // Refused are: more than 31 report blocks, chunks or sources; a cumulative loss beyond 24 bits; a text of
    // more than 255 bytes; an item of type 0, which ends a chunk; a chunk without items in the native form; a
    // subtype or format above 31; a Nack or Fir without entries; a Feedback of another packet type than 205
    // and 206; a packet beyond the 65535 bytes of a datagram.
    bool add(const SenderReport& packet);       // RFC 3550, 6.4.1
    bool add(const ReceiverReport& packet);     // RFC 3550, 6.4.2
    bool add(const SourceDescription& packet);  // RFC 3550, 6.5
    // RFC 3550, 6.6. The native form has no place for the reason and is written without it.
    bool add(const Bye& packet);
    bool add(const App& packet);       // RFC 3550, 6.7
    bool add(const Nack& packet);      // RFC 4585, 6.2.1
    bool add(const Pli& packet);       // RFC 4585, 6.3.1
    bool add(const Fir& packet);       // RFC 5104, 4.3.1
    bool add(const Feedback& packet);  // RFC 4585, 6.1

    // Appends a source description of the source `ssrc` with the CNAME `cname`.
    bool addCname(std::uint32_t ssrc, std::string_view cname) {
        return add(SourceDescription{{SdesChunk{ssrc, {SdesItem{kSdesCname, std::string(cname)}}}}});
    }

    // Appends a goodbye of one source. An empty `reason` is not written.
    bool addBye(std::uint32_t ssrc, std::string_view reason = {}) {
        Bye bye{{ssrc}, std::nullopt};
        if (!reason.empty()) {
            bye.reason = std::string(reason);
        }
        return add(bye);
    }

    // **Lends** the datagram until the next call that changes the writer. Empty when nothing was appended.
    BytesView bytes() const { return BytesView(m_bytes.data(), m_bytes.size()); }

    // Returns the reason of the first refusal since the last clear(), or an empty text.
    const std::string& error() const { return m_error; }

    // Returns the wire form.
    Form form() const { return m_form; }

    // Starts a new datagram. Keeps the memory.
    void clear() {
        m_bytes.clear();
        m_error.clear();
    }

private:
    static constexpr std::size_t kHeaderSize = 4;
    static constexpr std::size_t kWordSize = 4;
    static constexpr std::size_t kMaxDatagram = 65535;
    static constexpr std::uint8_t kVersion2 = 0x80;
    static constexpr std::uint8_t kMaxCount = 31;
    static constexpr unsigned int kNackSpan = 16;  // numbers that the bit mask of a NACK reaches
    static constexpr std::int32_t kMaxLoss = 0x7fffff;
    static constexpr std::int32_t kMinLoss = -0x800000;

    bool refuse(const std::string& reason);
    bool checkCount(const char* packet, const char* entries, std::size_t count);
    bool checkBits(const char* packet, const char* field, std::uint8_t value);
    bool checkBlocks(const char* packet, const std::vector<ReportBlock>& blocks);
    bool checkItems(const SdesChunk& chunk);

    std::size_t begin(std::size_t count, std::uint8_t type);
    bool end(std::size_t start);

    void put8(std::uint8_t value) { m_bytes.push_back(value); }
    void put16(std::uint32_t value) {
        put8(static_cast<std::uint8_t>((value >> 8) & 0xff));
        put8(static_cast<std::uint8_t>(value & 0xff));
    }
    void put32(std::uint32_t value) {
        put16(value >> 16);
        put16(value & 0xffff);
    }
    void putBytes(const std::vector<std::uint8_t>& bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    }
    void putText(const std::string& text);
    void putBlocks(const std::vector<ReportBlock>& blocks);
    void putItem(const SdesItem& item);
    void putChunk(const SdesChunk& chunk);
    void putNativeItems(const SdesChunk& chunk);
    void putLost(const std::vector<std::uint16_t>& lost);
    void padToWord(std::size_t start);

    Form m_form;
    std::vector<std::uint8_t> m_bytes;
    std::string m_error;
};

// ---- refusals

inline bool RtcpWriter::refuse(const std::string& reason) {
    if (m_error.empty()) {
        m_error = reason;
    }
    return false;
}

inline bool RtcpWriter::checkCount(const char* packet, const char* entries, std::size_t count) {
    return count <= kMaxRtcpCount || refuse(std::string(packet) + ": " + std::to_string(count) + " " +
                                            entries + ", at most 31 fit a packet");
}

inline bool RtcpWriter::checkBits(const char* packet, const char* field, std::uint8_t value) {
    return value <= kMaxCount ||
           refuse(std::string(packet) + ": " + field + " " + std::to_string(value) + " is above 31");
}

inline bool RtcpWriter::checkBlocks(const char* packet, const std::vector<ReportBlock>& blocks) {
    for (const ReportBlock& block : blocks) {
        if (block.cumulativeLost > kMaxLoss || block.cumulativeLost < kMinLoss) {
            return refuse(std::string(packet) + ": cumulative loss " + std::to_string(block.cumulativeLost) +
                          " does not fit 24 bits");
        }
    }
    return checkCount(packet, "report blocks", blocks.size());
}

inline bool RtcpWriter::checkItems(const SdesChunk& chunk) {
    if (m_form == Form::kNative && chunk.items.empty()) {
        return refuse("source description: a source without items has no native form");
    }
    for (const SdesItem& item : chunk.items) {
        if (item.type == 0) {
            return refuse("source description: an item of type 0 would end its chunk");
        }
        if (item.text.size() > kMaxRtcpText) {
            return refuse("source description: a text of " + std::to_string(item.text.size()) +
                          " bytes, at most 255 fit an item");
        }
    }
    return true;
}

// ---- header and end of a packet. RFC 3550, 6.4.1
//
//    0                   1                   2                   3
//    0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//   |V=2|P|  count  |  packet type  |            length             |

// Appends the header and returns where the packet begins. The end of the packet sets the length.
inline std::size_t RtcpWriter::begin(std::size_t count, std::uint8_t type) {
    const std::size_t start = m_bytes.size();
    put8(static_cast<std::uint8_t>(kVersion2 | count));
    put8(type);
    put16(0);
    return start;
}

inline void RtcpWriter::padToWord(std::size_t start) {
    while ((m_bytes.size() - start) % kWordSize != 0) {
        put8(0);
    }
}

inline bool RtcpWriter::end(std::size_t start) {
    padToWord(start);
    if (m_bytes.size() > kMaxDatagram) {
        const std::size_t size = m_bytes.size();
        m_bytes.resize(start);
        return refuse("a compound of " + std::to_string(size) + " bytes does not fit a datagram");
    }
    const std::size_t words = (m_bytes.size() - start) / kWordSize;
    const std::size_t length = m_form == Form::kNative ? words : words - 1;
    m_bytes[start + 2] = static_cast<std::uint8_t>(length >> 8);
    m_bytes[start + 3] = static_cast<std::uint8_t>(length & 0xff);
    return true;
}

// ---- reports

inline void RtcpWriter::putBlocks(const std::vector<ReportBlock>& blocks) {
    for (const ReportBlock& block : blocks) {
        put32(block.ssrc);
        put32((std::uint32_t{block.fractionLost} << 24) |
              (static_cast<std::uint32_t>(block.cumulativeLost) & 0xffffff));
        put32(block.extendedHighest);
        put32(block.jitter);
        put32(block.lastSenderReport);
        put32(block.delaySinceSenderReport);
    }
}

inline bool RtcpWriter::add(const SenderReport& packet) {
    if (!checkBlocks("sender report", packet.blocks)) {
        return false;
    }
    const std::size_t start = begin(packet.blocks.size(), kRtcpSenderReport);
    put32(packet.ssrc);
    put32(static_cast<std::uint32_t>(packet.ntp >> 32));
    put32(static_cast<std::uint32_t>(packet.ntp & 0xffffffff));
    put32(packet.rtpTimestamp);
    put32(packet.packetCount);
    put32(packet.octetCount);
    putBlocks(packet.blocks);
    putBytes(packet.extension);
    return end(start);
}

inline bool RtcpWriter::add(const ReceiverReport& packet) {
    if (!checkBlocks("receiver report", packet.blocks)) {
        return false;
    }
    const std::size_t start = begin(packet.blocks.size(), kRtcpReceiverReport);
    put32(packet.ssrc);
    putBlocks(packet.blocks);
    putBytes(packet.extension);
    return end(start);
}

// ---- source description

inline void RtcpWriter::putText(const std::string& text) {
    put8(static_cast<std::uint8_t>(text.size()));
    for (const char letter : text) {
        put8(static_cast<std::uint8_t>(letter));
    }
}

inline void RtcpWriter::putItem(const SdesItem& item) {
    put8(item.type);
    putText(item.text);
}

// One to four null bytes end the list of items, up to the next word.
inline void RtcpWriter::putChunk(const SdesChunk& chunk) {
    const std::size_t start = m_bytes.size();
    put32(chunk.ssrc);
    for (const SdesItem& item : chunk.items) {
        putItem(item);
    }
    put8(0);
    padToWord(start);
}

// The native reader steps from item to item in whole words, so each item is filled up to one.
inline void RtcpWriter::putNativeItems(const SdesChunk& chunk) {
    for (const SdesItem& item : chunk.items) {
        const std::size_t start = m_bytes.size();
        put32(chunk.ssrc);
        putItem(item);
        padToWord(start);
    }
}

inline bool RtcpWriter::add(const SourceDescription& packet) {
    std::size_t entries = 0;
    for (const SdesChunk& chunk : packet.chunks) {
        if (!checkItems(chunk)) {
            return false;
        }
        entries += m_form == Form::kNative ? chunk.items.size() : 1;
    }
    const char* const what = m_form == Form::kNative ? "items" : "chunks";
    if (!checkCount("source description", what, entries)) {
        return false;
    }
    const std::size_t start = begin(entries, kRtcpSourceDescription);
    for (const SdesChunk& chunk : packet.chunks) {
        m_form == Form::kNative ? putNativeItems(chunk) : putChunk(chunk);
    }
    return end(start);
}

// ---- goodbye and application packet

inline bool RtcpWriter::add(const Bye& packet) {
    if (!checkCount("goodbye", "sources", packet.ssrcs.size())) {
        return false;
    }
    if (packet.reason && packet.reason->size() > kMaxRtcpText) {
        return refuse("goodbye: a reason of " + std::to_string(packet.reason->size()) +
                      " bytes, at most 255 fit");
    }
    const std::size_t start = begin(packet.ssrcs.size(), kRtcpBye);
    for (const std::uint32_t ssrc : packet.ssrcs) {
        put32(ssrc);
    }
    if (packet.reason && m_form == Form::kRfc3550) {
        putText(*packet.reason);
    }
    return end(start);
}

inline bool RtcpWriter::add(const App& packet) {
    if (!checkBits("application packet", "subtype", packet.subtype)) {
        return false;
    }
    const std::size_t start = begin(packet.subtype, kRtcpApp);
    put32(packet.ssrc);
    for (const char letter : packet.name) {
        put8(static_cast<std::uint8_t>(letter));
    }
    putBytes(packet.data);
    return end(start);
}

// ---- feedback. RFC 4585, 6.1

// A packet identifier and a mask of the 16 numbers that follow it, the lowest bit being the next number. A
// number joins an entry only when it lies beyond those that are in it, so the reader sees the same order.
inline void RtcpWriter::putLost(const std::vector<std::uint16_t>& lost) {
    std::size_t next = 0;
    while (next < lost.size()) {
        const std::uint16_t first = lost[next++];
        std::uint32_t mask = 0;
        for (unsigned int last = 0; next < lost.size(); ++next) {
            const unsigned int distance = static_cast<std::uint16_t>(lost[next] - first);
            if (distance <= last || distance > kNackSpan) {
                break;
            }
            mask |= 1U << (distance - 1);
            last = distance;
        }
        put16(first);
        put16(mask);
    }
}

inline bool RtcpWriter::add(const Nack& packet) {
    if (packet.lost.empty()) {
        return refuse("NACK: no sequence number is asked for");
    }
    const std::size_t start = begin(kFeedbackNack, kRtcpTransportFeedback);
    put32(packet.senderSsrc);
    put32(packet.mediaSsrc);
    putLost(packet.lost);
    return end(start);
}

inline bool RtcpWriter::add(const Pli& packet) {
    const std::size_t start = begin(kFeedbackPli, kRtcpPayloadFeedback);
    put32(packet.senderSsrc);
    put32(packet.mediaSsrc);
    return end(start);
}

inline bool RtcpWriter::add(const Fir& packet) {
    if (packet.entries.empty()) {
        return refuse("FIR: no source is asked");
    }
    const std::size_t start = begin(kFeedbackFir, kRtcpPayloadFeedback);
    put32(packet.senderSsrc);
    put32(packet.mediaSsrc);
    for (const FirEntry& entry : packet.entries) {
        put32(entry.ssrc);
        put32(std::uint32_t{entry.sequence} << 24);
    }
    return end(start);
}

inline bool RtcpWriter::add(const Feedback& packet) {
    if (packet.packetType != kRtcpTransportFeedback && packet.packetType != kRtcpPayloadFeedback) {
        return refuse("feedback: packet type " + std::to_string(packet.packetType) +
                      " is neither 205 nor 206");
    }
    if (!checkBits("feedback", "format", packet.format)) {
        return false;
    }
    const std::size_t start = begin(packet.format, packet.packetType);
    put32(packet.senderSsrc);
    put32(packet.mediaSsrc);
    putBytes(packet.control);
    return end(start);
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RTCPWRITER_H

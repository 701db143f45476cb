// Reads a received RTCP datagram, in either wire form, and hands each packet to a visitor as its record.
//
//   const kit::RtcpReader reader(kit::Form::kRfc3550);
//   const kit::RtcpReadResult result = reader.read(datagram, kit::RtcpVisitor{
//       [&](const kit::SenderReport& report) { reception.onSenderReport(report.ntp, now); },
//       [&](const kit::Pli&) { encoder.forceIntraPicture(); },
//   });
//   if (!result) { log(result.error); }
//
// The visitor is any object that can be called with `const Record&` for some of the records of RtcpPackets.h;
// packets that it takes no record of are read, checked and counted without a call. Any bytes are safe to
// read.
//
// A datagram is held against RFC 3550, A.2, before the first call: version 2 in every packet, lengths that
// add up to the datagram, padding in the last packet only. Every packet type is one of those that are set
// aside for RTCP. A datagram that fails there yields no packet at all, which is the usual end of a datagram
// that is read in the wrong form. A first packet that is no report is accepted and reported (reduced-size
// RTCP, RFC 5506).

#ifndef TALRTP_KIT_RTCPREADER_H
#define TALRTP_KIT_RTCPREADER_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/RtcpPackets.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace talrtp::kit {

// Makes one visitor of several lambdas.
template <typename... Functions>
struct RtcpVisitor : Functions... {
    using Functions::operator()...;
};
// Deduces the types of the functions.
template <typename... Functions>
RtcpVisitor(Functions...) -> RtcpVisitor<Functions...>;

// The outcome of a read.
struct RtcpReadResult {
    std::size_t packets = 0;     // packets that were read, unknown ones included
    std::size_t unknown = 0;     // those of them that have no record and were skipped
    bool isReducedSize = false;  // the first packet is neither a sender nor a receiver report
    std::string error;           // empty, or which packet is malformed and why

    // True when the whole datagram was read.
    explicit operator bool() const { return error.empty(); }
};

// Reads the datagrams of one wire form.
class RtcpReader {
public:
    // Reads datagrams of the wire form `form`.
    explicit RtcpReader(Form form) : m_form(form) {}

    // Reads `datagram` and calls `visitor` for its packets, in order. **Lends** each record for the call; a
    // visitor may copy or keep it. A malformed packet ends the read: those before it were handed over.
    //
    // In the native form, a last packet of type 202 or 204 to 206 may end up to 3 bytes before the length
    // that it declares, because the library's own builders fill up to no whole word. Padding exists in the
    // form of RFC 3550 only; its bytes belong to no record.
    template <typename Visitor>
    RtcpReadResult read(BytesView datagram, Visitor&& visitor) const;

    // Returns the wire form.
    Form form() const { return m_form; }

private:
    // One packet of a datagram. `body` begins after the first word and ends before any padding.
    struct Cut {
        std::uint8_t type = 0;
        std::uint8_t count = 0;
        std::size_t size = 0;  // the step to the next packet
        BytesView body;
        std::string error;
    };

    // Reads a packet's body from front to back. A read beyond its end returns 0 and marks the cursor.
    class Cursor {
    public:
        explicit Cursor(BytesView bytes) : m_bytes(bytes) {}

        std::uint8_t take8() {
            if (m_position >= m_bytes.size()) {
                m_isShort = true;
                return 0;
            }
            return m_bytes[m_position++];
        }
        std::uint32_t take16() {
            const std::uint32_t high = take8();
            return (high << 8) | take8();
        }
        std::uint32_t take32() {
            const std::uint32_t high = take16();
            return (high << 16) | take16();
        }
        std::string takeText() {
            const std::size_t size = take8();
            m_isShort = m_isShort || size > left();
            const BytesView text = m_bytes.subview(m_position, size);
            m_position += text.size();
            return std::string(text.begin(), text.end());
        }
        std::vector<std::uint8_t> takeRest() {
            const BytesView rest = m_bytes.subview(m_position);
            m_position = m_bytes.size();
            return std::vector<std::uint8_t>(rest.begin(), rest.end());
        }
        void skipToWord() {
            while (m_position % kWordSize != 0 && left() > 0) {
                ++m_position;
            }
        }
        std::size_t left() const { return m_bytes.size() - m_position; }
        bool isShort() const { return m_isShort; }

    private:
        BytesView m_bytes;
        std::size_t m_position = 0;
        bool m_isShort = false;
    };

    static constexpr std::size_t kHeaderSize = 4;
    static constexpr std::size_t kWordSize = 4;
    static constexpr unsigned int kVersion = 2;
    static constexpr std::uint8_t kPaddingMask = 0x20;
    static constexpr std::uint8_t kCountMask = 0x1f;
    // Packet types are assigned from 192 to 223, so that RTP and RTCP can share a port. RFC 5761, 4.
    static constexpr std::uint8_t kFirstType = 192;
    static constexpr std::uint8_t kLastType = 223;
    static constexpr std::size_t kReportBlockSize = 24;
    static constexpr std::size_t kFirEntrySize = 8;
    static constexpr unsigned int kNackSpan = 16;

    static std::string place(std::size_t number, std::size_t offset) {
        return "packet " + std::to_string(number) + " at byte " + std::to_string(offset) + ": ";
    }

    std::size_t declaredSize(BytesView rest) const;
    static bool mayEndEarly(std::uint8_t type);
    std::string checkSize(const Cut& cut, std::size_t available) const;
    std::string cutPadding(Cut& cut, std::size_t available) const;
    Cut cut(BytesView rest) const;
    std::string checkDatagram(BytesView datagram) const;

    static std::vector<ReportBlock> takeBlocks(Cursor& cursor, std::size_t count);
    SourceDescription takeDescription(Cursor& cursor, std::size_t count) const;
    static SdesChunk takeChunk(Cursor& cursor);
    static SourceDescription takeNativeItems(Cursor& cursor, std::size_t count);
    static std::vector<std::uint16_t> takeLost(Cursor& cursor);

    template <typename Record, typename Visitor>
    static std::string handOver(const Record& record, const Cursor& cursor, Visitor& visitor);
    template <typename Visitor>
    std::string visit(const Cut& cut, Visitor& visitor) const;
    template <typename Visitor>
    static std::string visitSenderReport(const Cut& cut, Visitor& visitor);
    template <typename Visitor>
    static std::string visitReceiverReport(const Cut& cut, Visitor& visitor);
    template <typename Visitor>
    std::string visitBye(const Cut& cut, Visitor& visitor) const;
    template <typename Visitor>
    static std::string visitApp(const Cut& cut, Visitor& visitor);
    template <typename Visitor>
    static std::string visitFeedback(const Cut& cut, Visitor& visitor);
    template <typename Visitor>
    static std::string visitNack(const Feedback& head, Cursor& cursor, Visitor& visitor);
    template <typename Visitor>
    static std::string visitPli(const Feedback& head, Cursor& cursor, Visitor& visitor);
    template <typename Visitor>
    static std::string visitFir(const Feedback& head, Cursor& cursor, Visitor& visitor);

    static bool isKnown(std::uint8_t type) {
        return type >= kRtcpSenderReport && type <= kRtcpPayloadFeedback;
    }

    Form m_form;
};

// ---- a datagram, cut into packets. RFC 3550, A.2

// `rest` holds a whole header.
inline std::size_t RtcpReader::declaredSize(BytesView rest) const {
    const std::size_t length = (static_cast<std::size_t>(rest[2]) << 8) | rest[3];
    return (m_form == Form::kNative ? length : length + 1) * kWordSize;
}

inline bool RtcpReader::mayEndEarly(std::uint8_t type) {
    return type == kRtcpSourceDescription || (type >= kRtcpApp && type <= kRtcpPayloadFeedback);
}

inline std::string RtcpReader::checkSize(const Cut& cut, std::size_t available) const {
    if (cut.size == 0) {
        return "its length field is 0";
    }
    if (cut.size <= available) {
        return {};
    }
    const bool isUnfilled =
        m_form == Form::kNative && mayEndEarly(cut.type) && cut.size - available < kWordSize;
    return isUnfilled ? std::string()
                      : "it declares " + std::to_string(cut.size) + " bytes and " +
                            std::to_string(available) + " are left";
}

inline std::string RtcpReader::cutPadding(Cut& cut, std::size_t available) const {
    if (cut.size != available) {
        return "it has padding and is not the last packet";
    }
    const std::size_t padding = cut.body.empty() ? 0 : cut.body[cut.body.size() - 1];
    if (padding == 0 || padding % kWordSize != 0 || padding > cut.body.size()) {
        return std::to_string(padding) + " bytes of padding in " + std::to_string(cut.size) + " bytes";
    }
    cut.body = cut.body.subview(0, cut.body.size() - padding);
    return {};
}

inline RtcpReader::Cut RtcpReader::cut(BytesView rest) const {
    Cut cut;
    if (rest.size() < kHeaderSize) {
        cut.error = std::to_string(rest.size()) + " bytes hold no header";
        return cut;
    }
    const unsigned int version = rest[0] >> 6;
    if (version != kVersion) {
        cut.error = "its version is " + std::to_string(version) + ", not 2";
        return cut;
    }
    cut.count = rest[0] & kCountMask;
    cut.type = rest[1];
    cut.size = declaredSize(rest);
    cut.error = checkSize(cut, rest.size());
    if (!cut.error.empty()) {
        return cut;
    }
    cut.body = rest.subview(0, cut.size).subview(kHeaderSize);
    if (m_form == Form::kRfc3550 && (rest[0] & kPaddingMask) != 0) {
        cut.error = cutPadding(cut, rest.size());
    }
    return cut;
}

inline std::string RtcpReader::checkDatagram(BytesView datagram) const {
    if (datagram.empty()) {
        return "the datagram is empty";
    }
    std::size_t offset = 0;
    for (std::size_t number = 1; offset < datagram.size(); ++number) {
        const Cut packet = cut(datagram.subview(offset));
        if (!packet.error.empty()) {
            return place(number, offset) + packet.error;
        }
        if (packet.type < kFirstType || packet.type > kLastType) {
            return place(number, offset) + "type " + std::to_string(packet.type) + " is not one of RTCP";
        }
        offset += packet.size;
    }
    return {};
}

// ---- lists of entries

inline std::vector<ReportBlock> RtcpReader::takeBlocks(Cursor& cursor, std::size_t count) {
    std::vector<ReportBlock> blocks;
    for (std::size_t i = 0; i < count && !cursor.isShort(); ++i) {
        ReportBlock block;
        block.ssrc = cursor.take32();
        const std::uint32_t loss = cursor.take32();
        block.fractionLost = static_cast<std::uint8_t>(loss >> 24);
        // The sign is bit 23.
        const std::int32_t lost = static_cast<std::int32_t>(loss & 0xffffff);
        block.cumulativeLost = lost >= 0x800000 ? lost - 0x1000000 : lost;
        block.extendedHighest = cursor.take32();
        block.jitter = cursor.take32();
        block.lastSenderReport = cursor.take32();
        block.delaySinceSenderReport = cursor.take32();
        blocks.push_back(block);
    }
    return blocks;
}

inline SdesChunk RtcpReader::takeChunk(Cursor& cursor) {
    SdesChunk chunk;
    chunk.ssrc = cursor.take32();
    for (std::uint8_t type = cursor.take8(); type != 0; type = cursor.take8()) {
        chunk.items.push_back(SdesItem{type, cursor.takeText()});
    }
    cursor.skipToWord();
    return chunk;
}

inline SourceDescription RtcpReader::takeNativeItems(Cursor& cursor, std::size_t count) {
    SourceDescription description;
    for (std::size_t i = 0; i < count && !cursor.isShort(); ++i) {
        const std::uint32_t ssrc = cursor.take32();
        const std::uint8_t type = cursor.take8();
        SdesItem item{type, cursor.takeText()};
        cursor.skipToWord();
        if (description.chunks.empty() || description.chunks.back().ssrc != ssrc) {
            description.chunks.push_back(SdesChunk{ssrc, {}});
        }
        description.chunks.back().items.push_back(std::move(item));
    }
    return description;
}

inline SourceDescription RtcpReader::takeDescription(Cursor& cursor, std::size_t count) const {
    if (m_form == Form::kNative) {
        return takeNativeItems(cursor, count);
    }
    SourceDescription description;
    for (std::size_t i = 0; i < count && !cursor.isShort(); ++i) {
        description.chunks.push_back(takeChunk(cursor));
    }
    return description;
}

inline std::vector<std::uint16_t> RtcpReader::takeLost(Cursor& cursor) {
    std::vector<std::uint16_t> lost;
    while (cursor.left() > 0 && !cursor.isShort()) {
        const std::uint32_t first = cursor.take16();
        const std::uint32_t mask = cursor.take16();
        lost.push_back(static_cast<std::uint16_t>(first));
        for (unsigned int i = 0; i < kNackSpan; ++i) {
            if ((mask >> i & 1U) != 0) {
                lost.push_back(static_cast<std::uint16_t>(first + 1 + i));
            }
        }
    }
    return lost;
}

// ---- packets, one function each. They return an empty text, or what is wrong with the packet.

template <typename Record, typename Visitor>
std::string RtcpReader::handOver(const Record& record, const Cursor& cursor,
                                 [[maybe_unused]] Visitor& visitor) {
    if (cursor.isShort()) {
        return "it ends before its last field";
    }
    if constexpr (std::is_invocable_v<Visitor&, const Record&>) {
        visitor(record);
    }
    return {};
}

template <typename Visitor>
std::string RtcpReader::visitSenderReport(const Cut& cut, Visitor& visitor) {
    Cursor cursor(cut.body);
    SenderReport report;
    report.ssrc = cursor.take32();
    const std::uint64_t seconds = cursor.take32();
    report.ntp = (seconds << 32) | cursor.take32();
    report.rtpTimestamp = cursor.take32();
    report.packetCount = cursor.take32();
    report.octetCount = cursor.take32();
    report.blocks = takeBlocks(cursor, cut.count);
    report.extension = cursor.takeRest();
    return handOver(report, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitReceiverReport(const Cut& cut, Visitor& visitor) {
    Cursor cursor(cut.body);
    ReceiverReport report;
    report.ssrc = cursor.take32();
    report.blocks = takeBlocks(cursor, cut.count);
    report.extension = cursor.takeRest();
    return handOver(report, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitBye(const Cut& cut, Visitor& visitor) const {
    Cursor cursor(cut.body);
    Bye bye;
    for (std::size_t i = 0; i < cut.count && !cursor.isShort(); ++i) {
        bye.ssrcs.push_back(cursor.take32());
    }
    if (m_form == Form::kRfc3550 && cursor.left() > 0) {
        bye.reason = cursor.takeText();
    }
    return handOver(bye, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitApp(const Cut& cut, Visitor& visitor) {
    Cursor cursor(cut.body);
    App app;
    app.subtype = cut.count;
    app.ssrc = cursor.take32();
    for (char& letter : app.name) {
        letter = static_cast<char>(cursor.take8());
    }
    app.data = cursor.takeRest();
    return handOver(app, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitNack(const Feedback& head, Cursor& cursor, Visitor& visitor) {
    if (cursor.left() == 0) {
        return "a NACK without an entry";
    }
    const Nack nack{head.senderSsrc, head.mediaSsrc, takeLost(cursor)};
    return handOver(nack, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitPli(const Feedback& head, Cursor& cursor, Visitor& visitor) {
    if (cursor.left() != 0) {
        return "a PLI with " + std::to_string(cursor.left()) + " bytes of control information";
    }
    return handOver(Pli{head.senderSsrc, head.mediaSsrc}, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitFir(const Feedback& head, Cursor& cursor, Visitor& visitor) {
    if (cursor.left() == 0 || cursor.left() % kFirEntrySize != 0) {
        return "a FIR with " + std::to_string(cursor.left()) + " bytes of entries";
    }
    Fir fir{head.senderSsrc, head.mediaSsrc, {}};
    while (cursor.left() > 0) {
        const std::uint32_t ssrc = cursor.take32();
        // Three reserved bytes follow the sequence number.
        fir.entries.push_back(FirEntry{ssrc, static_cast<std::uint8_t>(cursor.take32() >> 24)});
    }
    return handOver(fir, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visitFeedback(const Cut& cut, Visitor& visitor) {
    Cursor cursor(cut.body);
    Feedback feedback;
    feedback.packetType = cut.type;
    feedback.format = cut.count;
    feedback.senderSsrc = cursor.take32();
    feedback.mediaSsrc = cursor.take32();
    if (cursor.isShort()) {
        return handOver(feedback, cursor, visitor);
    }
    if (cut.type == kRtcpTransportFeedback && cut.count == kFeedbackNack) {
        return visitNack(feedback, cursor, visitor);
    }
    if (cut.type == kRtcpPayloadFeedback && cut.count == kFeedbackPli) {
        return visitPli(feedback, cursor, visitor);
    }
    if (cut.type == kRtcpPayloadFeedback && cut.count == kFeedbackFir) {
        return visitFir(feedback, cursor, visitor);
    }
    feedback.control = cursor.takeRest();
    return handOver(feedback, cursor, visitor);
}

template <typename Visitor>
std::string RtcpReader::visit(const Cut& cut, Visitor& visitor) const {
    Cursor cursor(cut.body);
    switch (cut.type) {
        case kRtcpSenderReport:
            return visitSenderReport(cut, visitor);
        case kRtcpReceiverReport:
            return visitReceiverReport(cut, visitor);
        case kRtcpSourceDescription: {
            const SourceDescription description = takeDescription(cursor, cut.count);
            return handOver(description, cursor, visitor);
        }
        case kRtcpBye:
            return visitBye(cut, visitor);
        case kRtcpApp:
            return visitApp(cut, visitor);
        case kRtcpTransportFeedback:
        case kRtcpPayloadFeedback:
            return visitFeedback(cut, visitor);
        default: {
            const UnknownPacket unknown{cut.type, cut.count, cursor.takeRest()};
            return handOver(unknown, cursor, visitor);
        }
    }
}

template <typename Visitor>
RtcpReadResult RtcpReader::read(BytesView datagram, Visitor&& visitor) const {
    RtcpReadResult result;
    result.error = checkDatagram(datagram);
    std::size_t offset = 0;
    while (result.error.empty() && offset < datagram.size()) {
        const Cut packet = cut(datagram.subview(offset));
        const std::string error = visit(packet, visitor);
        if (!error.empty()) {
            result.error =
                place(result.packets + 1, offset) + "type " + std::to_string(packet.type) + ", " + error;
            break;
        }
        result.isReducedSize = result.isReducedSize || (offset == 0 && packet.type != kRtcpSenderReport &&
                                                        packet.type != kRtcpReceiverReport);
        result.unknown += isKnown(packet.type) ? 0U : 1U;
        ++result.packets;
        offset += packet.size;
    }
    return result;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RTCPREADER_H

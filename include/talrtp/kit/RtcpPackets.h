// The RTCP packets as a host sees them: one record per packet type, all numbers in host order.
//
// RtcpWriter turns records into bytes and RtcpReader turns bytes into records. Both take the same records, so
// a packet that was written and read compares equal to its source. Every record owns its texts and lists, so
// a host may keep it.

#ifndef TALRTP_KIT_RTCPPACKETS_H
#define TALRTP_KIT_RTCPPACKETS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::kit {

// The two wire forms of RTCP. The caller names the form; nothing in the kit guesses it, because a packet of
// one form can pass for a valid packet of the other.
enum class Form {
    // The form of this library's own RTCP stack (ITalRTCPStack.h). The length field counts all words of a
    // packet, every item of a source description carries its own source, and a goodbye has no reason.
    kNative,
    // The form of RFC 3550, which all other implementations read and write. The length field counts all words
    // but one, and the items of a source share a chunk that ends with a null item.
    kRfc3550,
};

// Packet types. RFC 3550, 12.1; RFC 4585, 6.1.
inline constexpr std::uint8_t kRtcpSenderReport = 200;
inline constexpr std::uint8_t kRtcpReceiverReport = 201;
inline constexpr std::uint8_t kRtcpSourceDescription = 202;
inline constexpr std::uint8_t kRtcpBye = 203;
inline constexpr std::uint8_t kRtcpApp = 204;
inline constexpr std::uint8_t kRtcpTransportFeedback = 205;
inline constexpr std::uint8_t kRtcpPayloadFeedback = 206;

// Feedback message types. RFC 4585, 6.2.1 and 6.3.1; RFC 5104, 4.3.1.
inline constexpr std::uint8_t kFeedbackNack = 1;  // of kRtcpTransportFeedback
inline constexpr std::uint8_t kFeedbackPli = 1;   // of kRtcpPayloadFeedback
inline constexpr std::uint8_t kFeedbackFir = 4;   // of kRtcpPayloadFeedback

// Types of the items of a source description. RFC 3550, 6.5.
inline constexpr std::uint8_t kSdesCname = 1;
inline constexpr std::uint8_t kSdesName = 2;
inline constexpr std::uint8_t kSdesEmail = 3;
inline constexpr std::uint8_t kSdesPhone = 4;
inline constexpr std::uint8_t kSdesLocation = 5;
inline constexpr std::uint8_t kSdesTool = 6;
inline constexpr std::uint8_t kSdesNote = 7;
inline constexpr std::uint8_t kSdesPrivate = 8;

// The most entries that the count of a packet header can tell: report blocks, chunks, sources of a goodbye.
inline constexpr std::size_t kMaxRtcpCount = 31;
// The longest text of an item or of a reason, in bytes.
inline constexpr std::size_t kMaxRtcpText = 255;

// The report of one receiver about one source. RFC 3550, 6.4.1.
struct ReportBlock {
    std::uint32_t ssrc = 0;                    // the source that the block is about
    std::uint8_t fractionLost = 0;             // lost since the last report, in units of 1/256
    std::int32_t cumulativeLost = 0;           // lost since the start, -8388608 .. 8388607
    std::uint32_t extendedHighest = 0;         // cycles of the sequence number, then the highest number
    std::uint32_t jitter = 0;                  // interarrival jitter, in units of the media clock
    std::uint32_t lastSenderReport = 0;        // middle 32 bits of the NTP time of the last SR; 0 for none
    std::uint32_t delaySinceSenderReport = 0;  // time since that SR arrived, in units of 1/65536 s
};

// RFC 3550, 6.4.1. At most kMaxRtcpCount blocks.
struct SenderReport {
    std::uint32_t ssrc = 0;
    std::uint64_t ntp = 0;           // seconds since 1900 in the upper half, their fraction in the lower
    std::uint32_t rtpTimestamp = 0;  // the same instant on the media clock
    std::uint32_t packetCount = 0;   // packets sent since the start
    std::uint32_t octetCount = 0;    // payload bytes sent since the start
    std::vector<ReportBlock> blocks;
    std::vector<std::uint8_t> extension;  // profile-specific, whole words
};

// RFC 3550, 6.4.2. At most kMaxRtcpCount blocks.
struct ReceiverReport {
    std::uint32_t ssrc = 0;
    std::vector<ReportBlock> blocks;
    std::vector<std::uint8_t> extension;  // profile-specific, whole words
};

// One item of a source description. The text is UTF-8 without a terminator, at most kMaxRtcpText bytes.
struct SdesItem {
    std::uint8_t type = kSdesCname;
    std::string text;
};

// A source and its items.
struct SdesChunk {
    std::uint32_t ssrc = 0;
    std::vector<SdesItem> items;
};

// RFC 3550, 6.5. The native form has no chunks and repeats the source in front of every item. There the
// reader joins neighbouring items of one source into a chunk, and the writer refuses a chunk without items.
struct SourceDescription {
    std::vector<SdesChunk> chunks;
};

// RFC 3550, 6.6. The native form has no reason.
struct Bye {
    std::vector<std::uint32_t> ssrcs;
    std::optional<std::string> reason;  // at most kMaxRtcpText bytes
};

// RFC 3550, 6.7. The wire carries whole words: data of another length is filled up with zeros, and they
// belong to the data that arrives. Data with a length of its own therefore tells it.
struct App {
    std::uint8_t subtype = 0;  // 0..31
    std::uint32_t ssrc = 0;
    std::array<char, 4> name{{' ', ' ', ' ', ' '}};
    std::vector<std::uint8_t> data;
};

// Asks for packets that did not arrive. RFC 4585, 6.2.1.
struct Nack {
    std::uint32_t senderSsrc = 0;
    std::uint32_t mediaSsrc = 0;
    // The missing sequence numbers, in any order. The writer joins numbers that rise within 17 into one entry
    // of the wire, so give them in rising order for the fewest entries. The reader returns them in the order
    // of the wire.
    std::vector<std::uint16_t> lost;
};

// Asks for a picture that needs no earlier one. RFC 4585, 6.3.1.
struct Pli {
    std::uint32_t senderSsrc = 0;
    std::uint32_t mediaSsrc = 0;
};

// One source that is asked for a decoder refresh point. `sequence` grows by one with every new request and
// stays the same when a request is repeated.
struct FirEntry {
    std::uint32_t ssrc = 0;
    std::uint8_t sequence = 0;
};

// Asks for a decoder refresh point. RFC 5104, 4.3.1. `mediaSsrc` is not used by that message and stays 0.
struct Fir {
    std::uint32_t senderSsrc = 0;
    std::uint32_t mediaSsrc = 0;
    std::vector<FirEntry> entries;
};

// Any other feedback message, of type kRtcpTransportFeedback or kRtcpPayloadFeedback. RFC 4585, 6.1.
// `control` is filled up with zeros to a whole word on the wire.
struct Feedback {
    std::uint8_t packetType = kRtcpPayloadFeedback;
    std::uint8_t format = 0;  // 0..31
    std::uint32_t senderSsrc = 0;
    std::uint32_t mediaSsrc = 0;
    std::vector<std::uint8_t> control;
};

// A packet of a type that has no record here. It is skipped.
struct UnknownPacket {
    std::uint8_t type = 0;
    std::uint8_t count = 0;             // the low 5 bits of the first byte
    std::vector<std::uint8_t> content;  // all bytes after the first word
};

inline bool operator==(const ReportBlock& a, const ReportBlock& b) {
    return a.ssrc == b.ssrc && a.fractionLost == b.fractionLost && a.cumulativeLost == b.cumulativeLost &&
           a.extendedHighest == b.extendedHighest && a.jitter == b.jitter &&
           a.lastSenderReport == b.lastSenderReport && a.delaySinceSenderReport == b.delaySinceSenderReport;
}
inline bool operator==(const SenderReport& a, const SenderReport& b) {
    return a.ssrc == b.ssrc && a.ntp == b.ntp && a.rtpTimestamp == b.rtpTimestamp &&
           a.packetCount == b.packetCount && a.octetCount == b.octetCount && a.blocks == b.blocks &&
           a.extension == b.extension;
}
inline bool operator==(const ReceiverReport& a, const ReceiverReport& b) {
    return a.ssrc == b.ssrc && a.blocks == b.blocks && a.extension == b.extension;
}
inline bool operator==(const SdesItem& a, const SdesItem& b) {
    return a.type == b.type && a.text == b.text;
}
inline bool operator==(const SdesChunk& a, const SdesChunk& b) {
    return a.ssrc == b.ssrc && a.items == b.items;
}
inline bool operator==(const SourceDescription& a, const SourceDescription& b) {
    return a.chunks == b.chunks;
}
inline bool operator==(const Bye& a, const Bye& b) {
    return a.ssrcs == b.ssrcs && a.reason == b.reason;
}
inline bool operator==(const App& a, const App& b) {
    return a.subtype == b.subtype && a.ssrc == b.ssrc && a.name == b.name && a.data == b.data;
}
inline bool operator==(const Nack& a, const Nack& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc && a.lost == b.lost;
}
inline bool operator==(const Pli& a, const Pli& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc;
}
inline bool operator==(const FirEntry& a, const FirEntry& b) {
    return a.ssrc == b.ssrc && a.sequence == b.sequence;
}
inline bool operator==(const Fir& a, const Fir& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc && a.entries == b.entries;
}
inline bool operator==(const Feedback& a, const Feedback& b) {
    return a.packetType == b.packetType && a.format == b.format && a.senderSsrc == b.senderSsrc &&
           a.mediaSsrc == b.mediaSsrc && a.control == b.control;
}
inline bool operator==(const UnknownPacket& a, const UnknownPacket& b) {
    return a.type == b.type && a.count == b.count && a.content == b.content;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RTCPPACKETS_H

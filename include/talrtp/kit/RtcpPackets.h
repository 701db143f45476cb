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
inline constexpr std::uint8_t kRtcpReceiverReport = 201;     // RR
inline constexpr std::uint8_t kRtcpSourceDescription = 202;  // SDES
inline constexpr std::uint8_t kRtcpBye = 203;                // BYE
inline constexpr std::uint8_t kRtcpApp = 204;                // APP
inline constexpr std::uint8_t kRtcpTransportFeedback = 205;  // RTPFB (RFC 4585)
inline constexpr std::uint8_t kRtcpPayloadFeedback = 206;    // PSFB (RFC 4585)

// Feedback message types. RFC 4585, 6.2.1 and 6.3.1; RFC 5104, 4.3.1.
inline constexpr std::uint8_t kFeedbackNack = 1;  // of kRtcpTransportFeedback
inline constexpr std::uint8_t kFeedbackPli = 1;   // of kRtcpPayloadFeedback
inline constexpr std::uint8_t kFeedbackFir = 4;   // of kRtcpPayloadFeedback

// Types of the items of a source description. RFC 3550, 6.5.
inline constexpr std::uint8_t kSdesCname = 1;
inline constexpr std::uint8_t kSdesName = 2;      // the name of a person
inline constexpr std::uint8_t kSdesEmail = 3;     // an address
inline constexpr std::uint8_t kSdesPhone = 4;     // a number
inline constexpr std::uint8_t kSdesLocation = 5;  // a place
inline constexpr std::uint8_t kSdesTool = 6;      // the program
inline constexpr std::uint8_t kSdesNote = 7;      // a passing remark
inline constexpr std::uint8_t kSdesPrivate = 8;   // an extension of one program

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

// A sender report. RFC 3550, 6.4.1. At most kMaxRtcpCount blocks.
struct SenderReport {
    std::uint32_t ssrc = 0;               // of the sender
    std::uint64_t ntp = 0;                // seconds since 1900 in the upper half, their fraction in the lower
    std::uint32_t rtpTimestamp = 0;       // the same instant on the media clock
    std::uint32_t packetCount = 0;        // packets sent since the start
    std::uint32_t octetCount = 0;         // payload bytes sent since the start
    std::vector<ReportBlock> blocks;      // one per source that is heard
    std::vector<std::uint8_t> extension;  // profile-specific, whole words
};

// A receiver report. RFC 3550, 6.4.2. At most kMaxRtcpCount blocks.
struct ReceiverReport {
    std::uint32_t ssrc = 0;               // of the receiver that reports
    std::vector<ReportBlock> blocks;      // one per source that is heard
    std::vector<std::uint8_t> extension;  // profile-specific, whole words
};

// One item of a source description. The text is UTF-8 without a terminator, at most kMaxRtcpText bytes.
struct SdesItem {
    std::uint8_t type = kSdesCname;  // one of the numbers above
    std::string text;                // UTF-8
};

// A source and its items.
struct SdesChunk {
    std::uint32_t ssrc = 0;       // the source that the items describe
    std::vector<SdesItem> items;  // in the order of the packet
};

// A source description. RFC 3550, 6.5. The native form has no chunks and repeats the source in front of every
// item. There the reader joins neighbouring items of one source into a chunk, and the writer refuses a chunk
// without items.
struct SourceDescription {
    std::vector<SdesChunk> chunks;  // one per source
};

// A goodbye. RFC 3550, 6.6. The native form has no reason.
struct Bye {
    std::vector<std::uint32_t> ssrcs;   // the sources that leave
    std::optional<std::string> reason;  // at most kMaxRtcpText bytes
};

// An application-defined packet. RFC 3550, 6.7. The wire carries whole words: data of another length is
// filled up with zeros, and they belong to the data that arrives. Data with a length of its own therefore
// tells it.
struct App {
    std::uint8_t subtype = 0;                        // 0..31
    std::uint32_t ssrc = 0;                          // of the sender
    std::array<char, 4> name{{' ', ' ', ' ', ' '}};  // chosen by the application
    std::vector<std::uint8_t> data;                  // what the application defines
};

// Asks for packets that did not arrive. RFC 4585, 6.2.1.
struct Nack {
    std::uint32_t senderSsrc = 0;  // who asks
    std::uint32_t mediaSsrc = 0;   // whose packets are missing
    // The missing sequence numbers, in any order. The writer joins numbers that rise within 17 into one entry
    // of the wire, so give them in rising order for the fewest entries. The reader returns them in the order
    // of the wire.
    std::vector<std::uint16_t> lost;
};

// Asks for a picture that needs no earlier one. RFC 4585, 6.3.1.
struct Pli {
    std::uint32_t senderSsrc = 0;  // who asks
    std::uint32_t mediaSsrc = 0;   // who is to send an intra picture
};

// One source that is asked for a decoder refresh point. `sequence` grows by one with every new request and
// stays the same when a request is repeated.
struct FirEntry {
    std::uint32_t ssrc = 0;     // who is to send an intra picture
    std::uint8_t sequence = 0;  // one more with each new request
};

// Asks for a decoder refresh point. RFC 5104, 4.3.1. `mediaSsrc` is not used by that message and stays 0.
struct Fir {
    std::uint32_t senderSsrc = 0;   // who asks
    std::uint32_t mediaSsrc = 0;    // 0: the entries name the senders
    std::vector<FirEntry> entries;  // one per sender
};

// Any other feedback message, of type kRtcpTransportFeedback or kRtcpPayloadFeedback. RFC 4585, 6.1.
// `control` is filled up with zeros to a whole word on the wire.
struct Feedback {
    std::uint8_t packetType = kRtcpPayloadFeedback;  // kRtcpTransportFeedback or kRtcpPayloadFeedback
    std::uint8_t format = 0;                         // 0..31
    std::uint32_t senderSsrc = 0;                    // who reports
    std::uint32_t mediaSsrc = 0;                     // about whose stream
    std::vector<std::uint8_t> control;               // whole words
};

// A packet of a type that has no record here. It is skipped.
struct UnknownPacket {
    std::uint8_t type = 0;              // packet type of the header
    std::uint8_t count = 0;             // the low 5 bits of the first byte
    std::vector<std::uint8_t> content;  // all bytes after the first word
};

// Records are equal when all of their fields are.
inline bool operator==(const ReportBlock& a, const ReportBlock& b) {
    return a.ssrc == b.ssrc && a.fractionLost == b.fractionLost && a.cumulativeLost == b.cumulativeLost &&
           a.extendedHighest == b.extendedHighest && a.jitter == b.jitter &&
           a.lastSenderReport == b.lastSenderReport && a.delaySinceSenderReport == b.delaySinceSenderReport;
}
// Likewise.
inline bool operator==(const SenderReport& a, const SenderReport& b) {
    return a.ssrc == b.ssrc && a.ntp == b.ntp && a.rtpTimestamp == b.rtpTimestamp &&
           a.packetCount == b.packetCount && a.octetCount == b.octetCount && a.blocks == b.blocks &&
           a.extension == b.extension;
}
// Likewise.
inline bool operator==(const ReceiverReport& a, const ReceiverReport& b) {
    return a.ssrc == b.ssrc && a.blocks == b.blocks && a.extension == b.extension;
}
// Likewise.
inline bool operator==(const SdesItem& a, const SdesItem& b) {
    return a.type == b.type && a.text == b.text;
}
// Likewise.
inline bool operator==(const SdesChunk& a, const SdesChunk& b) {
    return a.ssrc == b.ssrc && a.items == b.items;
}
// Likewise.
inline bool operator==(const SourceDescription& a, const SourceDescription& b) {
    return a.chunks == b.chunks;
}
// Likewise.
inline bool operator==(const Bye& a, const Bye& b) {
    return a.ssrcs == b.ssrcs && a.reason == b.reason;
}
// Likewise.
inline bool operator==(const App& a, const App& b) {
    return a.subtype == b.subtype && a.ssrc == b.ssrc && a.name == b.name && a.data == b.data;
}
// Likewise.
inline bool operator==(const Nack& a, const Nack& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc && a.lost == b.lost;
}
// Likewise.
inline bool operator==(const Pli& a, const Pli& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc;
}
// Likewise.
inline bool operator==(const FirEntry& a, const FirEntry& b) {
    return a.ssrc == b.ssrc && a.sequence == b.sequence;
}
// Likewise.
inline bool operator==(const Fir& a, const Fir& b) {
    return a.senderSsrc == b.senderSsrc && a.mediaSsrc == b.mediaSsrc && a.entries == b.entries;
}
// Likewise.
inline bool operator==(const Feedback& a, const Feedback& b) {
    return a.packetType == b.packetType && a.format == b.format && a.senderSsrc == b.senderSsrc &&
           a.mediaSsrc == b.mediaSsrc && a.control == b.control;
}
// Likewise.
inline bool operator==(const UnknownPacket& a, const UnknownPacket& b) {
    return a.type == b.type && a.count == b.count && a.content == b.content;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RTCPPACKETS_H

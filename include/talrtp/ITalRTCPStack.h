// The RTCP stack as a host sees it: the records that carry RTCP contents in host order, the interface that
// builds and reads packets, and the sink that receives the packets of a compound datagram.
//
// The stack keeps nothing between calls. The host makes one with TalCreateRTCPStack, builds packets into its
// own buffers with the Create operations and sends them. It passes every received datagram to
// InputReceivedRtcpData and reads each packet inside its sink with the Get operations. The host decides when
// to report and which numbers. An RTP session and an RTCP stack know nothing of each other.
//
// Packets are laid out as in RFC 3550, 6, and RFC 4585, 6.1, with one exception that both sides share: the
// length field counts all 32-bit words of the packet, its header included, not all but one. The packets are
// therefore understood by this library's reader and not by an RFC 3550 parser; see docs/rtcp.md.

#ifndef TALRTP_ITALRTCPSTACK_H
#define TALRTP_ITALRTCPSTACK_H

#include <talrtp/TalRtpDefs.h>

#include <cstdint>

// The pure interfaces have no function to anchor a virtual table to; their tables are weak on purpose. The
// names of the records are the documented ones, though an underscore and a capital letter are the compiler's.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wweak-vtables"
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif

namespace talrtp {

// The sender's part of a sender report, in host order. RFC 3550, 6.4.1.
struct _SenderInfo {
    unsigned int ntpTimestampMsw;  // wall clock, whole seconds since 1 January 1900
    unsigned int ntpTimestampLsw;  // wall clock, fraction of a second in units of 2^-32 s
    unsigned int rtpTimestamp;     // the same instant on the media clock
    unsigned int packetCount;      // packets sent since the start
    unsigned int octetCount;       // payload bytes sent since the start
};
static_assert(sizeof(_SenderInfo) == 20, "_SenderInfo is binary interface");

// A receiver's report about one source, in host order. RFC 3550, 6.4.1.
struct _ReportBlock {
    unsigned int ssrc;                 // the source that the block is about
    unsigned int fractionLost : 8;     // lost since the last report, in units of 1/256
    unsigned int cumulativeLost : 24;  // lost since the start; RFC 3550 reads it as two's complement
    unsigned int extendedHighestSeq;   // cycles of the sequence number, then the highest number received
    unsigned int jitter;               // interarrival jitter, in units of the media clock
    unsigned int lastSR;               // middle 32 bits of the NTP time of the last SR from the source
    unsigned int delaySinceLastSR;     // time since then, in units of 1/65536 s
};
static_assert(sizeof(_ReportBlock) == 24, "_ReportBlock is binary interface");

// One source description item together with the source it describes. RFC 3550, 6.5.
struct _SdesItem {
    unsigned int ssrc;        // the source, in host order
    unsigned char type;       // item type, 1 is CNAME
    unsigned char length;     // bytes of text in `data`
    unsigned char data[256];  // the text, without a terminator; only the first `length` bytes mean anything
};
static_assert(sizeof(_SdesItem) == 264, "_SdesItem is binary interface");

// Receives each packet of a received datagram. The host implements it.
//
// The virtual order is binary interface: never reorder. The stack calls the third entry of the table,
// OnRtcpPacket, and never the destructors before it.
class TALRTP_API ITalRTCPStackSink {
public:
    virtual ~ITalRTCPStackSink() {}

    // Receives one packet, on the host's thread, inside InputReceivedRtcpData. `length` is the length that
    // the packet declares, in bytes; that many bytes can be read. Neither version nor type is checked yet:
    // ask IsValidRtcpPacket first. Calling the stack from here is allowed.
    // **Lends** `packet` until the call returns.
    virtual void OnRtcpPacket(unsigned char* packet, int length) = 0;
};

// Builds and reads RTCP packets.
//
// The virtual order is binary interface: never reorder, add at the end only.
//
// All Create operations share these rules. They **borrow** every pointer for the call. `len` holds the
// capacity of `buf` in bytes on entry and the number of bytes written on success. They return 0 for success
// and -1 for a refused call; a refused call writes nothing to `buf`. When the only fault is that the capacity
// is too small, `len` becomes the capacity that is needed. For every other refusal (a null pointer, a
// capacity below 1, a negative count or length, a size beyond a signed 32-bit integer) `len` is untouched.
// All `count` entries are written, but the header holds `count` modulo 32: keep it within 0..31. Nothing is
// padded: the bytes between the returned length and the next 32-bit boundary keep their old values.
//
// All Get operations share these rules. `buf` is the first byte of one packet, `len` the number of bytes
// there; `buf` is **borrowed** for the call. Each operation first asks the virtual IsValidRtcpPacket and
// fails when that returns false. A failing call leaves its output arguments untouched. A byte that would be
// read beyond `len` counts as 0; only GetReportBlock reads further.
class TALRTP_API ITalRTCPStack {
public:
    virtual ~ITalRTCPStack() {}

    // Builds a sender report (type 200) of `count` report blocks. `ssrc` is the reporter. When `senderInfo`
    // is null, calls CreateReceiverReportPacket with all other arguments: a report without sender info is a
    // receiver report. `blocks` is not null, even when `count` is 0.
    // Needs 28 + 24 * count bytes. RFC 3550, 6.4.1.
    virtual std::int64_t CreateSenderReportPacket(unsigned int ssrc, _SenderInfo* senderInfo,
                                                  _ReportBlock* blocks, int count, unsigned char* buf,
                                                  int& len) = 0;
    // Builds a receiver report (type 201) of `count` report blocks. `ssrc` is the reporter. `blocks` is not
    // null, even when `count` is 0. Needs 8 + 24 * count bytes. RFC 3550, 6.4.2.
    virtual std::int64_t CreateReceiverReportPacket(unsigned int ssrc, _ReportBlock* blocks, int count,
                                                    unsigned char* buf, int& len) = 0;
    // Builds a source description (type 202) of `count` items, each 6 bytes and its text, back to back.
    // `items` is not null. Needs a capacity of 4 + 264 * count bytes, however short the texts are; `len`
    // becomes the number of bytes written. The reader steps over items by multiples of 4 bytes, so it finds
    // the second item only when the text of the first has 2, 6, 10 ... bytes. RFC 3550, 6.5, without its
    // chunks.
    virtual std::int64_t CreateSdesPacket(_SdesItem* items, int count, unsigned char* buf, int& len) = 0;
    // Builds a goodbye (type 203) for `count` sources in host order, without a reason. `ssrcs` is not null.
    // Needs 4 + 4 * count bytes. RFC 3550, 6.6.
    virtual std::int64_t CreateByePacket(unsigned int* ssrcs, int count, unsigned char* buf, int& len) = 0;
    // Builds an application-defined packet (type 204) of the sender `ssrc`. The low 5 bits of `subtype` are
    // written. `name` has 4 bytes, `data` `dataLen` bytes; neither is null. Needs 12 + dataLen bytes. RFC
    // 3550, 6.7.
    virtual std::int64_t CreateAppPacket(unsigned int ssrc, unsigned char subtype, unsigned char* name,
                                         unsigned char* data, int dataLen, unsigned char* buf, int& len) = 0;
    // Builds a transport-layer feedback packet (type 205) of `senderSsrc` about `mediaSsrc`. The low 5 bits
    // of `fmt`, the feedback message type, are written. `fci` has `fciLen` bytes; when it is null, their room
    // keeps its old bytes. Needs 12 + fciLen bytes. RFC 4585, 6.2.
    virtual std::int64_t CreateRTPFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc, unsigned char fmt,
                                           unsigned char* fci, int fciLen, unsigned char* buf, int& len) = 0;
    // The same as a payload-specific feedback packet (type 206): `fmt`, `fci` and `fciLen`, `senderSsrc` and
    // `mediaSsrc` as above. RFC 4585, 6.3.
    virtual std::int64_t CreatePSFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc, unsigned char fmt,
                                          unsigned char* fci, int fciLen, unsigned char* buf, int& len) = 0;
    // Copies `count` packets of `lengths[i]` bytes back to back into `buf`. They are neither checked nor
    // padded. The reader steps by the length fields, in whole words, so the length of every packet but the
    // last must be a multiple of 4. A `count` below 1 is no error: `len` becomes 0.
    virtual std::int64_t CreateCompoundPacket(unsigned char** packets, int* lengths, int count,
                                              unsigned char* buf, int& len) = 0;

    // Cuts a received datagram of `len` bytes into packets by their length fields and hands each to `sink`,
    // in order, on the stack of this call. Bytes of the last packet that were not received are 0. Returns 0
    // at the end of the datagram; -1 when `sink` or `buf` is null, `len` is below 1, or there is no memory
    // for a last packet that declares more than was received; -2 at a packet whose length field is 0, after
    // the packets before it were handed over. Keeps no pointer.
    virtual std::int64_t InputReceivedRtcpData(ITalRTCPStackSink* sink, unsigned char* buf, int len) = 0;

    // Returns whether a packet begins at `buf` that has version 2, a type from 200 to 206, and declares no
    // more than `len` bytes. Returns false when `buf` is null or `len` is below 1. A length field of 0
    // passes, and the count is not compared with the length.
    virtual bool IsValidRtcpPacket(unsigned char* buf, int len) = 0;
    // Returns the packet type, 200 to 206, or 0 for an invalid packet.
    virtual unsigned int GetRtcpPacketType(unsigned char* buf, int len) = 0;
    // Returns the SSRC of the packet's sender; 0 for an invalid packet and for SDES and BYE, which have none.
    virtual unsigned int GetRtcpPacketSsrc(unsigned char* buf, int len) = 0;

    // Returns the report count (0..31) in the header of an SR or RR, else 0.
    virtual unsigned int GetReportBlockCount(unsigned char* buf, int len) = 0;
    // Reads report blocks of an SR or RR into `blocks`, an array of `count` elements, and sets `count` to the
    // number read. Reads every block that begins within `len`, the first byte after `len` included; the
    // header's count is not used. When no block begins there, or `count` is not positive, `count` becomes 0.
    // **The last block is read in full even when it runs past `len`: provide 24 readable bytes after it.**
    // Returns 0, or -1 for an invalid packet, another type, or null `blocks`.
    virtual std::int64_t GetReportBlock(unsigned char* buf, int len, _ReportBlock* blocks, int& count) = 0;
    // Reads the sender info of an SR of at least 28 bytes. Returns 0; -1 for an invalid or shorter packet,
    // another type, or null `info`; -2 when nothing was read.
    virtual std::int64_t GetReportSenderInfo(unsigned char* buf, int len, _SenderInfo* info) = 0;
    // Finds the bytes of an SR or RR after the report blocks that its header counts. **Lends** the bytes from
    // `extension` on, `extensionLen` of them, inside `buf`.
    // Returns 0, or -1 for an invalid packet, another type, or when nothing follows the blocks.
    virtual std::int64_t GetReportExtension(unsigned char* buf, int len, unsigned char*& extension,
                                            int& extensionLen) = 0;

    // Returns the source count (0..31) in the header of an SDES, else 0.
    virtual unsigned int GetSdesItemCount(unsigned char* buf, int len) = 0;
    // Reads items of an SDES into `items`, an array of `count` elements, and sets `count` to the number read.
    // Reads each item as SSRC, type, length and text, padded to a multiple of 4 bytes; the header's count is
    // not used. Sets `count` to 0 when `len` is below 5 or `count` is not positive. Only the text of each
    // `data` is written. Returns 0, or -1 for an invalid packet, another type, or null `items` when there is
    // an item to read.
    virtual std::int64_t GetSdesItem(unsigned char* buf, int len, _SdesItem* items, int& count) = 0;

    // Returns the source count (0..31) in the header of a BYE, else 0.
    virtual unsigned int GetByeSsrcCount(unsigned char* buf, int len) = 0;
    // Reads the sources of a BYE, in host order, into `ssrcs`, an array of `count` elements, and sets `count`
    // to the number read. Reads all words up to `len`; the header's count is not used. Sets `count` to 0 when
    // `len` is below 5 or `count` is not positive. Returns 0, or -1 for an invalid packet, another type, or
    // null `ssrcs` when there is a source to read.
    virtual std::int64_t GetByeSsrc(unsigned char* buf, int len, unsigned int* ssrcs, int& count) = 0;

    // Returns the subtype (0..31) of an APP, else 0.
    virtual unsigned int GetAppSubType(unsigned char* buf, int len) = 0;
    // Copies the 4 bytes of the name of an APP to `name`.
    // Returns 0, or -1 for an invalid packet, another type, or null `name`.
    virtual std::int64_t GetAppName(unsigned char* buf, int len, unsigned char* name) = 0;
    // **Lends** the data of an APP, inside `buf`. `dataLen` is len - 12, so it is negative when `len` is
    // below 12. Returns 0, or -1 for an invalid packet or another type.
    virtual std::int64_t GetAppData(unsigned char* buf, int len, unsigned char*& data, int& dataLen) = 0;

    // Returns the feedback message type (0..31) of a packet of type 205, else 0.
    virtual unsigned int GetRTPFBSubType(unsigned char* buf, int len) = 0;
    // Returns the feedback message type (0..31) of a packet of type 206, else 0.
    virtual unsigned int GetPSFBSubType(unsigned char* buf, int len) = 0;
    // Reads the sources of a feedback packet, of type 205 or 206, in host order: `senderSsrc` sends it, and
    // it is about `mediaSsrc`. Returns 0, or -1 for an invalid packet or another type.
    virtual std::int64_t GetFBSsrc(unsigned char* buf, int len, unsigned int& senderSsrc,
                                   unsigned int& mediaSsrc) = 0;
    // **Lends** the feedback control information of a feedback packet, inside `buf`, in `fci`. `fciLen` is
    // len - 12, so it is negative when `len` is below 12. Returns 0, or -1 for an invalid packet or another
    // type.
    virtual std::int64_t GetFBFCIData(unsigned char* buf, int len, unsigned char*& fci, int& fciLen) = 0;
};

}  // namespace talrtp

extern "C" {

// Makes an RTCP stack and stores it in `*stack`; `stack` is not null. **Returns owned**: destroy it with
// TalDestroyRTCPStack.
TALRTP_API void TalCreateRTCPStack(talrtp::ITalRTCPStack** stack);

// Destroys an RTCP stack. **Takes** `stack`; null is allowed and does nothing.
TALRTP_API void TalDestroyRTCPStack(talrtp::ITalRTCPStack* stack);
}

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif  // TALRTP_ITALRTCPSTACK_H

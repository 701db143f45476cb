// The class of the RTCP stack that TalCreateRTCPStack makes, for hosts that use it directly. Besides the
// operations of ITalRTCPStack it reads and writes the single fields of a packet.
//
// The class has no data members; one object may serve any number of threads as long as they write to
// different buffers. The field operations check no length: the caller provides the room to write to and the
// bytes to read.

#ifndef TALRTP_TALRTCPSTACK_H
#define TALRTP_TALRTCPSTACK_H

#include <talrtp/ITalRTCPStack.h>
#include <talrtp/TalRtpDefs.h>

#include <cstdint>

namespace talrtp {

// Builds and reads RTCP packets, whole or field by field.
//
// The virtual order is that of ITalRTCPStack, and binary interface: never reorder, add at the end only.
class TALRTP_API CTalRTCPStack : public ITalRTCPStack {
public:
    // The operations of ITalRTCPStack, which documents arguments, ownership and every result. Here each
    // builder names the layout that it writes, and each getter the packet types that it accepts; for any
    // other type the getter fails.

    // SR, type 200: header, SSRC, sender info from byte 8, report blocks from byte 28.
    std::int64_t CreateSenderReportPacket(unsigned int ssrc, _SenderInfo* senderInfo, _ReportBlock* blocks,
                                          int count, unsigned char* buf, int& len) override;
    // RR, type 201: header, SSRC, report blocks from byte 8.
    std::int64_t CreateReceiverReportPacket(unsigned int ssrc, _ReportBlock* blocks, int count,
                                            unsigned char* buf, int& len) override;
    // SDES, type 202: header, items from byte 4, back to back.
    std::int64_t CreateSdesPacket(_SdesItem* items, int count, unsigned char* buf, int& len) override;
    // BYE, type 203: header, sources from byte 4.
    std::int64_t CreateByePacket(unsigned int* ssrcs, int count, unsigned char* buf, int& len) override;
    // APP, type 204: header, SSRC, name at byte 8, data from byte 12.
    std::int64_t CreateAppPacket(unsigned int ssrc, unsigned char subtype, unsigned char* name,
                                 unsigned char* data, int dataLen, unsigned char* buf, int& len) override;
    // RTPFB, type 205: header, two SSRCs, control information from byte 12.
    std::int64_t CreateRTPFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc, unsigned char fmt,
                                   unsigned char* fci, int fciLen, unsigned char* buf, int& len) override;
    // PSFB, type 206, laid out as RTPFB.
    std::int64_t CreatePSFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc, unsigned char fmt,
                                  unsigned char* fci, int fciLen, unsigned char* buf, int& len) override;
    // Packets back to back, as they are.
    std::int64_t CreateCompoundPacket(unsigned char** packets, int* lengths, int count, unsigned char* buf,
                                      int& len) override;

    // Cuts a datagram by the length fields. A last packet that declares more than arrived is handed over as a
    // copy, with zeros after the bytes that arrived.
    std::int64_t InputReceivedRtcpData(ITalRTCPStackSink* sink, unsigned char* buf, int len) override;

    // Decides whether a packet is valid. All getters below ask it through the virtual table, so that an
    // override counts.
    bool IsValidRtcpPacket(unsigned char* buf, int len) override;
    // Any type.
    unsigned int GetRtcpPacketType(unsigned char* buf, int len) override;
    // SR, RR, APP, RTPFB and PSFB.
    unsigned int GetRtcpPacketSsrc(unsigned char* buf, int len) override;
    // SR and RR.
    unsigned int GetReportBlockCount(unsigned char* buf, int len) override;
    // SR and RR. **Reads a block that begins within the packet in full: provide 24 readable bytes after it.**
    std::int64_t GetReportBlock(unsigned char* buf, int len, _ReportBlock* blocks, int& count) override;
    // SR.
    std::int64_t GetReportSenderInfo(unsigned char* buf, int len, _SenderInfo* info) override;
    // SR and RR.
    std::int64_t GetReportExtension(unsigned char* buf, int len, unsigned char*& extension,
                                    int& extensionLen) override;
    // SDES.
    unsigned int GetSdesItemCount(unsigned char* buf, int len) override;
    // SDES. Steps by 6 bytes and the text, rounded up to a multiple of 4.
    std::int64_t GetSdesItem(unsigned char* buf, int len, _SdesItem* items, int& count) override;
    // BYE.
    unsigned int GetByeSsrcCount(unsigned char* buf, int len) override;
    // BYE. Reads every word up to the end.
    std::int64_t GetByeSsrc(unsigned char* buf, int len, unsigned int* ssrcs, int& count) override;
    // APP.
    unsigned int GetAppSubType(unsigned char* buf, int len) override;
    // APP.
    std::int64_t GetAppName(unsigned char* buf, int len, unsigned char* name) override;
    // APP. The length is negative below 12 bytes.
    std::int64_t GetAppData(unsigned char* buf, int len, unsigned char*& data, int& dataLen) override;
    // RTPFB.
    unsigned int GetRTPFBSubType(unsigned char* buf, int len) override;
    // PSFB.
    unsigned int GetPSFBSubType(unsigned char* buf, int len) override;
    // RTPFB and PSFB.
    std::int64_t GetFBSsrc(unsigned char* buf, int len, unsigned int& senderSsrc,
                           unsigned int& mediaSsrc) override;
    // RTPFB and PSFB. The length is negative below 12 bytes.
    std::int64_t GetFBFCIData(unsigned char* buf, int len, unsigned char*& fci, int& fciLen) override;

    // Field writers. `buf` is the first byte of the packet, `place` the first byte of the field itself. They
    // **borrow** their pointers. With a null pointer they write nothing, and those that count bytes return 0.

    // Sets the version, bits 7 and 6 of byte 0, to the low 2 bits of `version`.
    void SetVersion(unsigned char version, unsigned char* buf);
    // Sets or clears the padding flag, bit 5 of byte 0 of `buf`.
    void SetPaddingFlag(bool padding, unsigned char* buf);
    // Sets the count, bits 4 to 0 of byte 0 of `buf`, to the low 5 bits of `count`.
    void SetPayloadCount(unsigned char count, unsigned char* buf);
    // Sets the subtype or feedback message type in `buf`, where the count lies.
    void SetSubType(unsigned char subtype, unsigned char* buf);
    // Sets the packet type, byte 1 of `buf`.
    void SetPayloadType(unsigned char type, unsigned char* buf);
    // Writes `ssrc`, in host order, to the 4 bytes at `place`.
    void SetSyncSource(unsigned int ssrc, unsigned char* place);
    // Sets the length field of `buf` to the number of 32-bit words that `length` bytes fill, rounded up. The
    // header counts too. `length` has 16 bits: a packet of 65536 bytes or more declares only the remainder.
    void SetPacketLength(unsigned short length, unsigned char* buf);
    // Writes the 20 bytes of a sender info to `place`. Returns 20.
    int SetSenderInfo(_SenderInfo* info, unsigned char* place);
    // Writes the 24 bytes of a report block to `place`. Returns 24.
    int SetReportBlock(_ReportBlock* block, unsigned char* place);
    // Writes an item to `place`: 6 bytes and its text, no padding. Returns their number, 6 to 261.
    int SetSdesItem(_SdesItem* item, unsigned char* place);

    // Field readers, the same in reverse. With a null pointer they return 0 and leave the record untouched.

    // Returns the version in `buf`, 0..3.
    unsigned char GetVersion(unsigned char* buf);
    // Returns the padding flag in `buf`, 0 or 1.
    unsigned char GetPaddingFlag(unsigned char* buf);
    // Returns the count in `buf`, 0..31.
    unsigned char GetPayloadCount(unsigned char* buf);
    // Returns the subtype or feedback message type in `buf`, 0..31.
    unsigned char GetSubType(unsigned char* buf);
    // Returns the packet type in `buf`.
    unsigned char GetPayloadType(unsigned char* buf);
    // Returns the SSRC in the 4 bytes at `place`, in host order.
    unsigned int GetSyncSource(unsigned char* place);
    // Returns the length field of `buf` as it is: 32-bit words of the whole packet.
    unsigned short GetPacketLength(unsigned char* buf);
    // Reads the 20 bytes of a sender info at `place`. Returns 20.
    int GetSenderInfo(unsigned char* place, _SenderInfo* info);
    // Reads the 24 bytes of a report block at `place`. Returns 24.
    int GetReportBlock(unsigned char* place, _ReportBlock* block);
    // Reads an item at `place`: 6 bytes and its text. Only the text of `item->data` is written. Returns the
    // number of bytes rounded up to a multiple of 4, the distance to the next item.
    int GetSdesItem(unsigned char* place, _SdesItem* item);
};
static_assert(sizeof(CTalRTCPStack) == sizeof(void*), "the stack keeps nothing");

}  // namespace talrtp

#endif  // TALRTP_TALRTCPSTACK_H

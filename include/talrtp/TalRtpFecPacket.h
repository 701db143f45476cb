// The two FEC packets: RTP packets whose payload starts with an FEC header.
//
// `CRTPFECPacket` carries XOR parity over up to 24 media packets, after the 12-byte header of RFC 2733.
// `CRTPRSPacket` carries one Reed-Solomon parity block, after an 8-byte header. A sending session fills them,
// a receiving session reads them. A host needs the accessors only to look into such packets.
//
// Both own their buffer as the base class does. The FEC accessors read and write the payload in place and
// trust that it holds the FEC header: `get_packet_size() - get_header_size()` is at least 12, or 8 for
// Reed-Solomon. In a shorter packet that was made from bytes, the missing bytes read as zero.

#ifndef TALRTP_TALRTPFECPACKET_H
#define TALRTP_TALRTPFECPACKET_H

#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpPacket.h>

namespace talrtp {

// The XOR parity packet. The CC field and the P, X and M bits of its RTP header describe the protected
// packets, not this one: no CSRC list and no extension follow its fixed header, whatever these fields say.
//
// The order of the virtual functions is that of `CTalRtpPacket`, and binary interface.
class TALRTP_API CRTPFECPacket : public CTalRtpPacket {
public:
    // Makes an empty packet of `capacity` bytes, as `CTalRtpPacket(int)` does.
    CRTPFECPacket(int capacity);
    // Makes a packet from the `length` (at least 12) bytes at `buffer`, as the base class does, with a
    // payload size of `length` minus 12. Borrows `buffer`. Asserts
    // len>=(_int32_t)sizeof(_rtp_packet_header_t).
    CRTPFECPacket(unsigned char* buffer, int length);
    // Copies the packet bytes of `other`, as the base class does. The payload size is its packet size minus
    // 12. Borrows `other`. Asserts len>=(_int32_t)sizeof(_rtp_packet_header_t).
    CRTPFECPacket(CRTPFECPacket& other);
    // Copies the whole buffer, as `CTalRtpPacket::operator=` does.
    CRTPFECPacket& operator=(const CRTPFECPacket& other) = default;
    // Frees the buffer.
    ~CRTPFECPacket() override;

    // Returns 0 for every index.
    unsigned int get_contrib_source(int index) const override;
    // Does nothing, whatever `index` is.
    void set_contrib_source(int index, unsigned int csrc) override;
    // Returns 12, always.
    int get_header_size() const override;
    // Returns false for every `id` and writes nothing.
    bool get_extension(unsigned short id, unsigned char* data, int* length) const override;
    // Does nothing, whatever `id` is.
    void set_extension(unsigned short id, unsigned char* data, int length) override;
    // Checks the packet as `CTalRtpPacket::validate` does, with a header of 12 bytes.
    bool validate() const override;

    // The FEC header in wire order, RFC 2733, 3.3. Values are in host order.

    // Returns the lowest sequence number among the protected packets.
    unsigned short get_fec_sequence_number_base() const;
    // Sets the lowest sequence number among the protected packets.
    void set_fec_sequence_number_base(unsigned short base);

    // Returns the XOR of (packet size - 12) over the protected packets.
    unsigned short get_fec_recover_length() const;
    // Sets `length`, the XOR of (packet size - 12) over the protected packets.
    void set_fec_recover_length(unsigned short length);

    // Returns E, the extension flag of the FEC header.
    bool get_fec_extension_flag() const;
    // Sets or clears E by `flag` and nothing else.
    void set_fec_extension_flag(bool flag);

    // Returns the XOR of the payload types, 0..127.
    unsigned char get_fec_recover_payload_type() const;
    // Sets the XOR of the payload types (0..127). The whole byte is ORed beside E, so bit 7 of `type` sets E.
    void set_fec_recover_payload_type(unsigned char type);

    // Returns the 24-bit mask: bit (23 - d) stands for sequence number base + d.
    unsigned int get_fec_mask() const;
    // Sets the 24-bit mask on a zeroed header. Set it before E and the payload-type recovery: the merge
    // covers the whole 32-bit word, so bits 31-24 of `mask` replace both; bits 7-0 are ORed to the old ones.
    // Asserts mask < 0xff000000.
    void set_fec_mask(unsigned int mask);

    // Returns the XOR of the timestamps.
    unsigned int get_fec_recover_timestamp() const;
    // Sets `timestamp`, the XOR of the timestamps.
    void set_fec_recover_timestamp(unsigned int timestamp);

    // The recovery values in the packet's own RTP header. The base class's setters write them.

    // Returns the XOR of the P bits: the packet's own P.
    bool get_fec_recover_pad_flag() const;
    // Returns the XOR of the X bits: the packet's own X.
    bool get_fec_recover_extension_flag() const;
    // Returns the XOR of the CSRC counts, 0..15: the packet's own CC.
    int get_fec_recover_contrib_src_count() const;
    // Returns the XOR of the M bits: the packet's own M.
    bool get_fec_recover_marker_flag() const;
};

// The Reed-Solomon parity packet. Its RTP header describes this packet, so every packet operation is that of
// the base class.
//
// The order of the virtual functions is that of `CTalRtpPacket`, and binary interface.
class TALRTP_API CRTPRSPacket : public CTalRtpPacket {
public:
    // Makes an empty packet of `capacity` bytes, as `CTalRtpPacket(int)` does.
    CRTPRSPacket(int capacity);
    // Makes a packet from the `length` (at least 12) bytes at `buffer`, as the base class does. Borrows
    // `buffer`. Asserts len>=(_int32_t)sizeof(_rtp_packet_header_t).
    CRTPRSPacket(unsigned char* buffer, int length);
    // Copies the packet bytes of `other`, as the base class does. Borrows `other`.
    // Asserts len>=(_int32_t)sizeof(_rtp_packet_header_t).
    CRTPRSPacket(CRTPRSPacket& other);
    // Copies the whole buffer, as `CTalRtpPacket::operator=` does.
    CRTPRSPacket& operator=(const CRTPRSPacket& other) = default;
    // Frees the buffer.
    ~CRTPRSPacket() override;

    // The FEC header in wire order. Values are in host order. Payload byte 7 is reserved; no call touches it.

    // Returns the lowest sequence number of the protected media packets, which are consecutive.
    unsigned short get_rs_sequence_number_base() const;
    // Sets the lowest sequence number of the protected media packets.
    void set_rs_sequence_number_base(unsigned short base);

    // Returns the Reed-Solomon parity of the protected packets' sizes.
    unsigned short get_rs_recover_length() const;
    // Sets `length`, the Reed-Solomon parity of the protected packets' sizes.
    void set_rs_recover_length(unsigned short length);

    // Returns the position of this block among the group's parity blocks, 0 .. count - 1.
    unsigned char get_rs_index() const;
    // Sets `index`, the position of this block among the group's parity blocks.
    void set_rs_index(unsigned char index);

    // Returns the number of parity packets of the group.
    unsigned char get_rs_count() const;
    // Sets `count`, the number of parity packets of the group.
    void set_rs_count(unsigned char count);

    // Returns the number of protected media packets: a count, despite the field's name.
    unsigned char get_rs_mask() const;
    // Sets `mask`, the number of protected media packets.
    void set_rs_mask(unsigned char mask);
};

}  // namespace talrtp

#endif  // TALRTP_TALRTPFECPACKET_H

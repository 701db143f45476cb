// The RTP packet: one heap buffer that holds a packet exactly as it goes on the wire, with accessors that
// read and write its fields in place (RFC 3550, 5.1).
//
// A sender makes a packet with room for its bytes and fills it, by a session or by the accessors. It sends
// `get_packet_size()` bytes from `get_buffer()`. A receiver makes a packet from the bytes of a datagram and
// asks `validate` before it trusts a field. The FEC packets of TalRtpFecPacket.h derive from this class.
//
// All values are in host order; only the buffer is in network order. Nothing here throws or locks, and failed
// allocations are not checked. Each buffer has 88 spare bytes after its capacity that read as zero, and so do
// the bytes directly after a received packet: a header that claims more than was received reads zeros there.
//
// Fill in this order: contributing sources, extension, payload and its size.

#ifndef TALRTP_TALRTPPACKET_H
#define TALRTP_TALRTPPACKET_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

class CPacketAccess;

// The kind mark of a packet object. It never goes on the wire as such, but the XOR FEC covers it.
typedef unsigned int _packet_type_t;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-const-variable"
TALRTP_CONSTANT _packet_type_t PACKET_TYPE_PLAIN = 1;  // as made, reset or received
TALRTP_CONSTANT _packet_type_t PACKET_TYPE_UNITS = 0;  // handed to the sink: whole units in byte-stream form
#pragma GCC diagnostic pop

// The fixed header as it lies on the wire, multi-byte fields in network order. It documents the layout and
// its size; use the accessors below to reach the fields.
struct _rtp_packet_header_t {
    unsigned char versionPaddingExtensionCount;  // V: bits 7-6, P: bit 5, X: bit 4, CC: bits 3-0
    unsigned char markerPayloadType;             // M: bit 7, PT: bits 6-0
    unsigned short sequenceNumber;               // grows by one for each packet
    unsigned int timestamp;                      // in units of the payload's clock
    unsigned int syncSource;                     // SSRC
};

static_assert(sizeof(_rtp_packet_header_t) == 12, "the RTP fixed header has 12 bytes");

// An RTP packet in a buffer of its own.
//
// The order of the virtual functions and of the data members is binary interface: never reorder.
class TALRTP_API CTalRtpPacket {
public:
    // Makes a packet of `bufferSize` (at least 12) zero bytes of capacity, version 2, packet type 1, with a
    // packet and payload size of 0.
    CTalRtpPacket(int bufferSize);

    // Makes a packet from the `length` (at least 12) bytes at `data`, not null, as `from_buffer` does. The
    // capacity is the larger of `length` and 1300; the packet type is 1. Borrows `data`.
    // Asserts len>=(_int32_t)sizeof(_rtp_packet_header_t).
    CTalRtpPacket(unsigned char* data, int length);

    // Makes a packet from the packet bytes of `other`, as `from_buffer` does, with its packet type. The
    // capacity is the larger of the other's packet size and 1300. Borrows `other`. Asserts
    // len>=(_int32_t)sizeof(_rtp_packet_header_t): a packet whose size is still 0 cannot be copied.
    CTalRtpPacket(CTalRtpPacket& other);

    // Copies the other's whole buffer (its capacity, not just its packet), sizes and packet type. Allocates
    // only when this capacity is smaller than the other's. Borrows `other`, which may be this packet. Returns
    // this. `get_buffer_size` then returns the other's capacity, even when this buffer is larger.
    CTalRtpPacket& operator=(const CTalRtpPacket& other);

    // Frees the buffer.
    virtual ~CTalRtpPacket();

    // Returns CSRC number `idx` (0..14) in host order. RFC 3550, 5.1. Asserts idx < get_contrib_src_count().
    virtual unsigned int get_contrib_source(int idx) const;

    // Sets CSRC number `idx` (0..14). When `idx` is past the list, grows the list to idx + 1 entries and
    // moves the payload up by 4 bytes per new entry; new entries below `idx` keep the bytes that lay there.
    // `csrc` is in host order. RFC 3550, 5.1. The packet size is not updated and an extension does not move:
    // set CSRCs first. Asserts idx <= 15; 15 itself then fails count <= 0xf. The caller provides the room.
    virtual void set_contrib_source(int idx, unsigned int csrc);

    // Returns the bytes before the payload: 12 + 4 per CSRC, plus, when X is set, the extension with its
    // 4-byte header. The extension's part is computed modulo 65536: 16383 words add 0.
    // Everything in this class that needs the header size asks this function.
    virtual int get_header_size() const;

    // Copies extension data out. RFC 3550, 5.3.1. `profile` is in host order. `data` has room for `*length`
    // bytes, and `*length` receives the number copied: the smaller of `*length` and the extension's length.
    // Bytes that the extension claims beyond the packet's end are copied as zeros; a negative `*length`
    // copies nothing and stays as it is. Borrows both pointers. Returns false, with `data` and `*length`
    // untouched, when either is null, when X is clear, or when the extension has another profile; otherwise
    // true.
    virtual bool get_extension(unsigned short profile, unsigned char* data, int* length) const;

    // Writes an extension of (`length` mod 65536) bytes, rounded up to whole 32-bit words. Moves the payload
    // up to make room, sets X and updates the packet size. RFC 3550, 5.3.1. `profile` is in host order.
    // Borrows `data`, which is read up to the rounded length. Does nothing when `data` is null, `length` is
    // not positive, or X is already set: an extension is set once. The caller provides the room.
    virtual void set_extension(unsigned short profile, unsigned char* data, int length);

    // Checks that the bytes of this packet are a usable RTP packet (RFC 3550, A.1): version 2; a payload type
    // outside 72..76, which is how an RTCP packet of type 200..204 reads; no shorter than its header; with P
    // set, a padding count from 1 to all bytes after the header. Changes nothing: the payload size still
    // counts the padding. Returns true, or false with a WARNING line that names the reason.
    virtual bool validate() const;

    // Replaces the packet by a copy of the `len` (at least 12) bytes at `data`, which may overlap the buffer.
    // Borrows `data`. Allocates exactly `len` bytes when the capacity is smaller. The packet size becomes
    // `len`, the payload size `len` minus the header size. The payload size is negative when the header
    // claims more than `len`; `validate` refuses such a packet.
    // Asserts len>=(_int32_t)sizeof(_rtp_packet_header_t).
    void from_buffer(unsigned char* data, int len);

    // Zeroes the whole capacity and restores the state of a new packet: version 2, sizes 0, packet type 1.
    void reset();

    // Lends the packet's bytes until the packet is destroyed, assigned to, or grows.
    unsigned char* get_buffer() const;
    // Lends the same bytes.
    operator char*() const;
    // Lends the same bytes.
    operator const char*() const;

    // Returns the bytes of the whole packet on the wire.
    int get_packet_size() const;
    // Returns the recorded capacity in bytes, without the spare bytes after it.
    int get_buffer_size() const;
    // Returns the bytes of payload, padding included.
    int get_payload_size() const;
    // Sets the payload size in bytes; the packet size becomes the header size plus `size`.
    void set_payload_size(int size);
    // Lends the first byte after the header. Trust it only after `validate`: a received header may claim
    // more bytes than there are.
    unsigned char* get_payload_ptr() const;

    // Returns the kind mark.
    _packet_type_t get_packet_type() const;
    // Sets the kind mark to `type`, any value.
    void set_packet_type(_packet_type_t type);

    // The fixed header in wire order, RFC 3550, 5.1.

    // Returns the version, 0..3.
    unsigned int get_version() const;
    // Sets the version to the low two bits of `v`.
    void set_version(unsigned int v);

    // Returns P.
    bool get_pad_flag() const;
    // Sets or clears P by `flag` and nothing else; the padding itself is the caller's.
    void set_pad_flag(bool flag);

    // Returns X.
    bool get_extension_flag() const;
    // Sets or clears X by `flag` and nothing else.
    void set_extension_flag(bool flag);

    // Returns the number of CSRCs, 0..15.
    int get_contrib_src_count() const;
    // Sets the number of CSRCs (0..15) and moves nothing. Asserts count <= 0xf.
    void set_contrib_src_count(int count);

    // Returns M.
    bool get_marker_flag() const;
    // Sets or clears M by `flag` and nothing else.
    void set_marker_flag(bool flag);

    // Returns the payload type, 0..127.
    unsigned int get_payload_type() const;
    // Sets the payload type and keeps M. Asserts t <= 0x7f.
    void set_payload_type(unsigned int t);

    // Returns the sequence number in host order.
    unsigned short get_sequence_number() const;
    // Sets `sequenceNumber`, given in host order.
    void set_sequence_number(unsigned short sequenceNumber);

    // Returns the timestamp in host order, in units of the payload's clock.
    unsigned int get_timestamp() const;
    // Sets the timestamp, given in host order.
    void set_timestamp(unsigned int timestamp);

    // Returns the SSRC in host order.
    unsigned int get_sync_source() const;
    // Sets `ssrc`, given in host order.
    void set_sync_source(unsigned int ssrc);

    // The same fields in the bytes of a packet, without an object. All borrow `buffer`. A call without a
    // length trusts the caller that the bytes are there.

    // Returns the timestamp at bytes 4-7. `buffer` is not null.
    static unsigned int get_timestamp(unsigned char* buffer);
    // Sets the timestamp at bytes 4-7. `buffer` is not null.
    static void set_timestamp(unsigned char* buffer, unsigned int timestamp);
    // Returns the sequence number at bytes 2-3. `buffer` is not null.
    static unsigned short get_sequence_number(unsigned char* buffer);
    // Sets `sequenceNumber` at bytes 2-3. `buffer` is not null.
    static void set_sequence_number(unsigned char* buffer, unsigned short sequenceNumber);
    // Returns the payload type in byte 1. `buffer` is not null.
    static unsigned int get_payload_type(unsigned char* buffer);
    // Returns the SSRC at bytes 8-11. `buffer` is not null.
    static unsigned int get_ssrc(unsigned char* buffer);
    // Returns the header size as the member does, 0 for a null `buffer`. Reads the header it measures.
    static int get_header_size(unsigned char* buffer);
    // Returns the first byte after the header, null for a null `buffer`.
    static unsigned char* get_payload_ptr(unsigned char* buffer);
    // Returns the first byte of extension data in a packet of `length` bytes, or null when `buffer` is null,
    // X is clear, or the extension's header ends beyond `length`. The extension's own length is not checked,
    // and `profile` is not compared: hosts pass any value there.
    static unsigned char* get_extension(unsigned short profile, unsigned char* buffer, int length);

    // One-byte header-extension elements (RFC 5285, 4.2): an extension of profile 0xBEDE whose data is a run
    // of elements, each one header byte (id in bits 7-4, number of data bytes minus one in bits 3-0) and its
    // 1 to 16 data bytes. Zero bytes between elements are padding. Ids 0 and 15 mean nothing special here.

    // Finds the first element with `id` (0..15) in a packet of `length` bytes. `element` then points at its
    // header byte inside `buffer`, and `elementLength` is its size in bytes with that byte. Borrows `buffer`,
    // null allowed. Returns false, with both outputs untouched, when there is no such element that lies
    // wholly inside the packet.
    static bool get_onebyte_extension_element(unsigned char* buffer, int length, unsigned char id,
                                              unsigned char*& element, int& elementLength);
    // Finds the first element with `id` in this packet, as above. `element` is lent as `get_buffer` is.
    bool get_onebyte_extension_element(unsigned char id, unsigned char*& element, int& elementLength) const;

    // Appends one element in its complete encoding: header byte and data, `elementLength` (1 to 17) bytes.
    // Borrows it. Returns as the plural form does. `id` is not used: the id travels inside the element.
    bool add_onebyte_extension_element(unsigned char id, unsigned char* element, int elementLength);

    // Appends `count` elements in order, `elements[i]` of `lengths[i]` bytes, and updates the packet size.
    // Makes the extension when there is none, also for a `count` of 0 or less; otherwise drops the padding
    // between the elements already there. The payload moves with the extension's size. Borrows all pointers.
    // `ignored` is not used. When the result exceeds the capacity, the buffer grows, and the capacity becomes
    // the new packet size. Returns true; or false with nothing changed when an element is null or not 1 to 17
    // bytes long, when the packet has an extension of another profile or one that runs past its end, or when
    // all elements together exceed 65535 bytes.
    bool add_onebyte_extension_elements(unsigned char* ignored, unsigned char** elements, int* lengths,
                                        int count);

protected:
    unsigned char* m_buffer;      // owned; from malloc, with the spare bytes after `m_bufferSize`
    _int32_t m_payloadSize;       // from the end of the header to the end of the packet, padding included
    _int32_t m_packetSize;        // the whole packet on the wire
    _int32_t m_bufferSize;        // the recorded capacity of `m_buffer`
    _packet_type_t m_packetType;  // 1 when made or reset

private:
    friend class CPacketAccess;

    // **Takes** a buffer from malloc, of `capacity` and the spare bytes. Writes nothing to it.
    TALRTP_LOCAL CTalRtpPacket(unsigned char* buffer, int capacity, const CPacketAccess& access);
};

}  // namespace talrtp

#endif  // TALRTP_TALRTPPACKET_H

// The names that every other header of the library uses: the export macro, the fixed-width integer names, the
// limits and codes that several classes share, and the byte-order helpers.
//
// All multi-byte fields of RTP, FEC and RTCP headers are big-endian ("network order"). The packet classes
// convert in place, so a host needs these helpers only for fields that it reads or writes itself.

#ifndef TALRTP_TALRTPDEFS_H
#define TALRTP_TALRTPDEFS_H

#include <cstdint>

// Marks what the shared library exports; everything else is hidden.
#define TALRTP_API __attribute__((visibility("default")))
// Marks the private helpers of an exported class: no part of the binary interface, so not exported.
#define TALRTP_LOCAL __attribute__((visibility("hidden")))
// Begins a constant of a header.
#define TALRTP_CONSTANT constexpr

// A source may use all of the constants below or none. An attribute that says so would make clang++'s
// -Wused-but-marked-unused complain about their use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-const-variable"

namespace talrtp {

// Integers of a fixed width, under the names that the public records and members use. The fields of headers
// have these widths on the wire.
typedef std::int8_t _int8_t;      // signed, 8 bits
typedef std::uint8_t _uint8_t;    // unsigned, 8 bits
typedef std::int16_t _int16_t;    // signed, 16 bits
typedef std::uint16_t _uint16_t;  // unsigned, 16 bits
typedef std::int32_t _int32_t;    // signed, 32 bits
typedef std::uint32_t _uint32_t;  // unsigned, 32 bits
typedef std::int64_t _int64_t;    // signed, 64 bits
typedef std::uint64_t _uint64_t;  // unsigned, 64 bits

// The FEC type of a session, argument of `ITalRTPSession::SetFecType`.
TALRTP_CONSTANT unsigned int RTP_FEC_XOR = 0;  // one XOR parity packet over up to 24 media packets (RFC 2733)
TALRTP_CONSTANT unsigned int RTP_FEC_RS = 1;   // Reed-Solomon parity, up to 255 packets in all; the default

// The largest block, in bytes, that the Reed-Solomon codec encodes or decodes. A block is a whole media
// packet, RTP header included. Above this size the parity of a group is all zeros.
TALRTP_CONSTANT int MAX_PACKET_SIZE = 1600;

#pragma GCC diagnostic pop

// Reverses the order of the `size` bytes at `data`, in place. The middle byte of an odd size stays.
// Borrows `data`, which is not null. Asserts size > 0.
TALRTP_API void tal_swap(void* data, int size);

// The four conversions below change nothing on a big-endian machine and reverse the bytes on a little-endian
// one.

// Returns a network-order 32-bit value in host order.
TALRTP_API unsigned int tal_net_to_host_long(unsigned int value);
// Returns a network-order 16-bit value in host order.
TALRTP_API unsigned short tal_net_to_host_short(unsigned short value);
// Returns a host-order 32-bit value in network order.
TALRTP_API unsigned int tal_host_to_net_long(unsigned int value);
// Returns a host-order 16-bit value in network order.
TALRTP_API unsigned short tal_host_to_net_short(unsigned short value);

// Returns the next value of the C library's `rand` that is not 0. The first call seeds the generator with
// `srand` from the wall clock: the seconds ORed with the NTP fraction. Good enough for initial sequence
// numbers (RFC 3550, 5.1). Not a source of secrets: whoever knows the time can guess the values.
TALRTP_API unsigned int random32();

}  // namespace talrtp

#endif  // TALRTP_TALRTPDEFS_H

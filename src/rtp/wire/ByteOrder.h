// Byte order inside the library: what the exported helpers of TalRtpDefs.h do, inline, and loads and stores
// of big-endian fields at any address. The host's byte order is decided when the library is built.

#ifndef TALRTP_SRC_WIRE_BYTEORDER_H
#define TALRTP_SRC_WIRE_BYTEORDER_H

#include <cstdint>
#include <cstring>

namespace talrtp {

constexpr bool kHostIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
static_assert(kHostIsLittleEndian || __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__,
              "mixed byte orders are not known");

// Between host and network order, which is the same operation in both directions.
constexpr std::uint16_t convert16(std::uint16_t value) {
    return kHostIsLittleEndian ? __builtin_bswap16(value) : value;
}
constexpr std::uint32_t convert32(std::uint32_t value) {
    return kHostIsLittleEndian ? __builtin_bswap32(value) : value;
}

inline std::uint16_t loadBig16(const unsigned char* field) {
    std::uint16_t value;
    std::memcpy(&value, field, sizeof(value));
    return convert16(value);
}
inline void storeBig16(unsigned char* field, std::uint16_t value) {
    value = convert16(value);
    std::memcpy(field, &value, sizeof(value));
}

inline std::uint32_t loadBig32(const unsigned char* field) {
    std::uint32_t value;
    std::memcpy(&value, field, sizeof(value));
    return convert32(value);
}
inline void storeBig32(unsigned char* field, std::uint32_t value) {
    value = convert32(value);
    std::memcpy(field, &value, sizeof(value));
}

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_BYTEORDER_H

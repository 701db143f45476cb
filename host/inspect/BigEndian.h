// Numbers of more than one byte, as networks send them.

#ifndef TALRTP_HOST_INSPECT_BIGENDIAN_H
#define TALRTP_HOST_INSPECT_BIGENDIAN_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::host::inspect {

// The bytes from `position` on; the caller has checked that they are there.
inline std::uint16_t read16(kit::BytesView bytes, std::size_t position) {
    return static_cast<std::uint16_t>(bytes[position] << 8 | bytes[position + 1]);
}
inline std::uint32_t read32(kit::BytesView bytes, std::size_t position) {
    return static_cast<std::uint32_t>(read16(bytes, position)) << 16 | read16(bytes, position + 2);
}

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_BIGENDIAN_H

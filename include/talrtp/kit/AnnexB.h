// Byte streams of NAL units (ITU-T H.264, Annex B): where units begin and end.
//
// A unit begins after a start code 00 00 01. Zero bytes before a start code and at the end of the stream
// belong to no unit, so the four-byte start code 00 00 00 01 is no special case.

#ifndef TALRTP_KIT_ANNEXB_H
#define TALRTP_KIT_ANNEXB_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace talrtp::kit {

// The start code in front of every unit that the kit writes.
inline constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

// Returns the position of the first 01 at or after `from` that ends a start code 00 00 01 within `bytes`, or
// the size when there is none. The zeros may stand before `from`.
inline std::size_t findStartCode(BytesView bytes, std::size_t from) {
    constexpr int kLast = 1;
    while (from < bytes.size()) {
        // Compressed video has a byte 01 every few hundred bytes.
        const void* const found = std::memchr(bytes.data() + from, kLast, bytes.size() - from);
        if (found == nullptr) {
            break;
        }
        const auto at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - bytes.data());
        if (at >= 2 && bytes[at - 1] == 0 && bytes[at - 2] == 0) {
            return at;
        }
        from = at + 1;
    }
    return bytes.size();
}

// Returns the bytes without the zeros at their end.
inline BytesView trimZeros(BytesView bytes) {
    std::size_t size = bytes.size();
    while (size > 0 && bytes[size - 1] == 0) {
        --size;
    }
    return bytes.subview(0, size);
}

// Calls `take(BytesView unit)` for each unit of the byte string `annexB`, in order, without allocation. Units
// are never empty. Bytes before the first start code are passed over. Returns false when there is no start
// code.
template <typename Take>
bool forEachUnit(BytesView annexB, Take&& take) {
    std::size_t code = findStartCode(annexB, 0);
    const bool hasStartCode = code < annexB.size();
    while (code < annexB.size()) {
        const std::size_t begin = code + 1;
        code = findStartCode(annexB, begin + 2);
        const std::size_t end = code < annexB.size() ? code - 2 : annexB.size();
        const BytesView unit = trimZeros(annexB.subview(begin, end - begin));
        if (!unit.empty()) {
            take(unit);
        }
    }
    return hasStartCode;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_ANNEXB_H

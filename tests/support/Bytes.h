// Sequences of bytes, and what tests put them together with.

#ifndef TALRTP_TESTS_BYTES_H
#define TALRTP_TESTS_BYTES_H

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace talrtp {
namespace test {

typedef std::vector<unsigned char> Bytes;

inline Bytes join(std::initializer_list<Bytes> parts) {
    Bytes result;
    for (const Bytes& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

inline Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end = std::string::npos) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(std::min(end, bytes.size())));
}

// `size` bytes that differ from place to place and from one `seed` to the next.
inline Bytes pattern(std::size_t size, unsigned int seed) {
    Bytes result(size);
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<unsigned char>(seed * 31 + i * 7 + i / 256 + 1);
    }
    return result;
}

inline Bytes word16(unsigned int value) {
    return {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

inline Bytes word32(unsigned int value) {
    return join({word16(value >> 16), word16(value & 0xffff)});
}

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_BYTES_H

// The field of the Reed-Solomon code, GF(2^8) with the polynomial 0x11d, in plain arithmetic that shares no
// table with the library.

#ifndef TALRTP_TESTS_PLAINFIELD_H
#define TALRTP_TESTS_PLAINFIELD_H

#include <array>
#include <cstddef>

namespace talrtp {
namespace test {

// The product, bit by bit.
inline unsigned char times(int a, int b) {
    int product = 0;
    for (; b != 0; b >>= 1) {
        product ^= (b & 1) != 0 ? a : 0;
        a <<= 1;
        a ^= (a & 0x100) != 0 ? 0x11d : 0;
    }
    return static_cast<unsigned char>(product);
}

// The inverse, by trial; `a` is not 0.
inline unsigned char inverseOf(int a) {
    int inverse = 1;
    while (times(a, inverse) != 1) {
        ++inverse;
    }
    return static_cast<unsigned char>(inverse);
}

// The point of the block at `position`, 0 to 255: 0, 1, alpha, alpha^2, ...
inline unsigned char plainPoint(std::size_t position) {
    static const auto points = [] {
        std::array<unsigned char, 256> powers{0, 1};
        for (std::size_t i = 2; i < powers.size(); ++i) {
            powers[i] = times(powers[i - 1], 2);
        }
        return powers;
    }();
    return points.at(position);
}

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_PLAINFIELD_H

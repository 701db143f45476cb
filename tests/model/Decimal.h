// Numbers as text. Header only, where MemorySanitizer sees every byte written; the C++ library's own function
// is compiled without it.

#ifndef TALRTP_TESTS_MODEL_DECIMAL_H
#define TALRTP_TESTS_MODEL_DECIMAL_H

#include <cstdint>
#include <string>

namespace talrtp {
namespace model {

inline std::string decimalOf(bool isNegative, std::uint64_t magnitude) {
    char digits[21];
    char* const end = digits + sizeof digits;
    char* first = end;
    do {
        *--first = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (isNegative) {
        *--first = '-';
    }
    return std::string(first, end);
}

template <typename Number>
std::string decimal(Number value) {
    const std::uint64_t bits = static_cast<std::uint64_t>(value);
    return value < Number(0) ? decimalOf(true, 0 - bits) : decimalOf(false, bits);
}

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_DECIMAL_H

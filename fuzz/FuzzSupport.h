// What the fuzzers share: a claim that ends the program when it does not hold, so that the fuzzer keeps the
// input, and a buffer of just the size that is given, so that a sanitizer sees every byte beyond.

#ifndef TALRTP_FUZZ_FUZZSUPPORT_H
#define TALRTP_FUZZ_FUZZSUPPORT_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace talrtp {
namespace fuzz {

typedef std::vector<unsigned char> Bytes;

inline void require(bool holds, const char* claim) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", claim);
        std::abort();
    }
}

class ExactBuffer {
public:
    ExactBuffer(const unsigned char* bytes, int size)
        : m_data(new unsigned char[static_cast<std::size_t>(size)]), m_size(size) {
        std::copy(bytes, bytes + size, m_data.get());
    }
    explicit ExactBuffer(const Bytes& bytes) : ExactBuffer(bytes.data(), static_cast<int>(bytes.size())) {}
    unsigned char* data() { return m_data.get(); }
    int size() const { return m_size; }
    Bytes bytes() const { return Bytes(m_data.get(), m_data.get() + m_size); }

private:
    std::unique_ptr<unsigned char[]> m_data;
    int m_size;
};

// Reads each of the `count` bytes, none when `count` is negative. The copy is what a sanitizer watches.
inline void readFully(const unsigned char* bytes, int count) {
    static Bytes copy;
    static volatile unsigned char last;
    if (count > 0) {
        copy.assign(bytes, bytes + count);
        last = copy.back();
        static_cast<void>(last);
    }
}

}  // namespace fuzz
}  // namespace talrtp

#endif  // TALRTP_FUZZ_FUZZSUPPORT_H

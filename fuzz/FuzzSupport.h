// The fuzzers share a claim that ends the program when it does not hold, so that the fuzzer keeps the
// input, a buffer of just the size that is given, so that a sanitizer sees every byte beyond, and a reader
// that takes values from an input.

#ifndef TALRTP_FUZZ_FUZZSUPPORT_H
#define TALRTP_FUZZ_FUZZSUPPORT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
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
    const unsigned char* data() const { return m_data.get(); }
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

// Takes values from an input: numbers from its end and bytes from its front, so that a change of one number
// leaves the others where they are. An input that is used up yields the least number of a range and no bytes.
class InputReader {
public:
    InputReader(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    // The bytes that are left.
    std::size_t size() const { return m_size; }

    // A number from `least` to `most`, from as many bytes as that range needs.
    template <typename T>
    T within(T least, T most) {
        const std::uint64_t range = static_cast<std::uint64_t>(most) - static_cast<std::uint64_t>(least);
        std::uint64_t value = 0;
        for (unsigned bits = 0; bits < 8 * sizeof(T) && range >> bits != 0 && m_size > 0; bits += 8) {
            value = value << 8 | m_data[--m_size];
        }
        if (range != std::numeric_limits<std::uint64_t>::max()) {
            value %= range + 1;
        }
        return static_cast<T>(static_cast<std::uint64_t>(least) + value);
    }

    template <typename T>
    T any() {
        return within(std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }

    bool flag() { return within(0, 1) == 1; }

    // `count` bytes, fewer when the input ends before.
    Bytes bytes(std::size_t count) {
        count = std::min(count, m_size);
        Bytes result(m_data, m_data + count);
        m_data += count;
        m_size -= count;
        return result;
    }

    Bytes rest() { return bytes(m_size); }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

}  // namespace fuzz
}  // namespace talrtp

#endif  // TALRTP_FUZZ_FUZZSUPPORT_H

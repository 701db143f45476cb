// Reads the bits of a NAL unit: fixed and Exp-Golomb codes (ITU-T H.264, 7.2 and 9.1), past the emulation
// prevention bytes (7.4.1), safe on any bytes.

#ifndef TALRTP_KIT_RBSPREADER_H
#define TALRTP_KIT_RBSPREADER_H

#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

// A cursor over the bits of one unit.
class RbspReader {
public:
    // `payload`: the bytes of a unit after its header; **borrowed** for the life of the reader.
    explicit RbspReader(BytesView payload) : m_bytes(payload) {}

    // Returns the next `count` bits, 0 to 32, highest first. Bits past the end are 0.
    std::uint32_t bits(int count) {
        std::uint32_t value = 0;
        for (; count > 0; --count) {
            value = value << 1 | bit();
        }
        return value;
    }
    // Reads one bit.
    bool flag() { return bit() != 0; }

    // Returns an unsigned Exp-Golomb number. One that does not fit 32 bits makes the reader fail.
    std::uint32_t ue() {
        constexpr int kMaxZeros = 31;
        int zeros = 0;
        while (isGood() && bit() == 0) {
            ++zeros;
        }
        if (zeros > kMaxZeros) {
            m_isGood = false;
        }
        return isGood() ? (std::uint32_t{1} << zeros) - 1 + bits(zeros) : 0;
    }

    // Returns a signed Exp-Golomb number.
    std::int32_t se() {
        const std::int64_t code = ue();
        return static_cast<std::int32_t>(code % 2 == 0 ? -(code / 2) : (code + 1) / 2);
    }

    // Nothing was read past the end, and every number fit.
    bool isGood() const { return m_isGood; }

private:
    std::uint32_t bit() {
        if (m_left == 0 && !nextByte()) {
            m_isGood = false;
            return 0;
        }
        --m_left;
        return static_cast<std::uint32_t>(m_byte) >> m_left & 1U;
    }

    // Takes the next byte. A 03 after two zeros is not part of the payload.
    bool nextByte() {
        constexpr std::uint8_t kEmulationPrevention = 3;
        if (m_zeros >= 2 && m_next < m_bytes.size() && m_bytes[m_next] == kEmulationPrevention) {
            ++m_next;
            m_zeros = 0;
        }
        if (m_next >= m_bytes.size()) {
            return false;
        }
        m_byte = m_bytes[m_next++];
        m_zeros = m_byte == 0 ? m_zeros + 1 : 0;
        m_left = 8;
        return true;
    }

    BytesView m_bytes;
    std::size_t m_next = 0;
    std::size_t m_zeros = 0;  // zero bytes just before m_next
    std::uint8_t m_byte = 0;
    unsigned int m_left = 0;  // bits of m_byte that were not read
    bool m_isGood = true;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RBSPREADER_H

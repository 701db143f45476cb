// Random input: the same on every machine for the same seed.
//
//   SeededRandom random(4711);
//   SCOPED_TRACE(random.describe());   // prints the seed when the test fails

#ifndef TALRTP_TESTS_SEEDEDRANDOM_H
#define TALRTP_TESTS_SEEDEDRANDOM_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace talrtp::test {

class SeededRandom {
public:
    explicit SeededRandom(std::uint32_t seed) : m_seed(seed), m_engine(seed) {}

    std::string describe() const { return "seed " + std::to_string(m_seed); }

    // A number from `least` to `most`, both included.
    std::uint32_t between(std::uint32_t least, std::uint32_t most) {
        return least + static_cast<std::uint32_t>(m_engine() % (std::uint64_t{most} - least + 1));
    }

    bool oneIn(std::uint32_t n) { return between(1, n) == 1; }

    std::vector<std::uint8_t> bytes(std::size_t count) {
        std::vector<std::uint8_t> result(count);
        for (std::uint8_t& byte : result) {
            byte = static_cast<std::uint8_t>(m_engine());
        }
        return result;
    }

    // A unit as an encoder makes it: no 00 00 00, 00 00 01 or 00 00 02 inside, no zero at the end.
    std::vector<std::uint8_t> nalUnit(std::uint8_t header, std::size_t size) {
        std::vector<std::uint8_t> unit{header};
        while (unit.size() < size) {
            const bool isAfterZeros = unit.size() >= 2 && unit.back() == 0 && unit[unit.size() - 2] == 0;
            const bool isLast = unit.size() + 1 == size;
            const std::uint8_t least = isAfterZeros ? 3 : isLast ? 1 : 0;
            unit.push_back(static_cast<std::uint8_t>(oneIn(3) ? least : between(least, 255)));
        }
        return unit;
    }

private:
    std::uint32_t m_seed;
    std::mt19937 m_engine;
};

}  // namespace talrtp::test

#endif  // TALRTP_TESTS_SEEDEDRANDOM_H

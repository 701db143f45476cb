// A small generator of random numbers (SplitMix64) whose sequence depends on the seed alone, on every machine
// and with every standard library.

#ifndef TALRTP_HOST_LOOPBACK_RANDOM_H
#define TALRTP_HOST_LOOPBACK_RANDOM_H

#include <cstdint>

namespace talrtp::host {

class CRandom {
public:
    explicit CRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next() {
        m_state += 0x9e3779b97f4a7c15u;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9u;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
        return mixed ^ (mixed >> 31);
    }

    // True with the given probability.
    bool chance(double probability) {
        constexpr double kSteps = 9007199254740992.0;  // 2^53: what a double tells apart below 1
        return static_cast<double>(next() >> 11) / kSteps < probability;
    }

    // A number from 0 to `most`.
    std::uint64_t upTo(std::uint64_t most) { return next() % (most + 1); }

private:
    std::uint64_t m_state;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_RANDOM_H

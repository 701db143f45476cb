#include "kernels/XorTile.h"

#include <cstdint>
#include <cstring>

namespace talrtp {

namespace {

// 8 bytes per step.
struct stWordXor {
    using Vector = std::uint64_t;
    static constexpr int kBytes = 8;
    static constexpr int kPieces = 2;

    static Vector load(const unsigned char* bytes) {
        Vector word;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }
    static void store(unsigned char* bytes, Vector word) { std::memcpy(bytes, &word, sizeof word); }
    static Vector add(Vector a, Vector b) { return a ^ b; }
};

}  // namespace

const stXorKernel kXorKernelPortable = {combineWithTiles<stWordXor>};

}  // namespace talrtp

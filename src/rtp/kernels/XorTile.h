// The loop that the XOR kernels share, over a description `V` of one instruction set: V::Vector, V::kBytes,
// V::load, V::store, V::add, and V::kPieces, how many times kXorBytes the registers hold at a time.
// Everything has internal linkage, so each kernel gets its own copy.

#ifndef TALRTP_SRC_KERNELS_XORTILE_H
#define TALRTP_SRC_KERNELS_XORTILE_H

#include "kernels/Unroll.h"
#include "kernels/XorKernel.h"

namespace talrtp {
namespace {

// Where the pieces of a tile begin: one at `first`, the others from `second` on but the last one at `last`.
// Each has kXorBytes; they may overlap.
struct stTilePlace {
    std::size_t first;
    std::size_t second;
    std::size_t last;
};

// XORs kPieces pieces of all sources. The sums stay in registers while the sources pass by, and nothing is
// stored before everything was read, so that `dst` may be a source.
template <class V, int kPieces>
inline void combineTile(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                        stTilePlace place) {
    constexpr int kVectors = static_cast<int>(kXorBytes) / V::kBytes;  // of one piece
    constexpr int kAll = kPieces * kVectors;
    const auto at = [place](int v) {
        const int piece = v / kVectors;
        const std::size_t begin = piece == kPieces - 1 ? place.last
                                  : piece == 0         ? place.first
                                                       : place.second + (piece - 1) * kXorBytes;
        return begin + v % kVectors * V::kBytes;
    };
    typename V::Vector sums[kAll];
    TALRTP_UNROLL
    for (int v = 0; v < kAll; ++v) {
        sums[v] = V::load(sources[0] + at(v));
    }
    for (std::size_t j = 1; j < count; ++j) {
        TALRTP_UNROLL
        for (int v = 0; v < kAll; ++v) {
            sums[v] = V::add(sums[v], V::load(sources[j] + at(v)));
        }
    }
    TALRTP_UNROLL
    for (int v = 0; v < kAll; ++v) {
        V::store(dst + at(v), sums[v]);
    }
}

// XORs `pieces` pieces, 1..kPieces, the last of which is at `last`.
template <class V, int kPieces>
inline void combineRest(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                        std::size_t pieces, stTilePlace place) {
    if (pieces == kPieces) {
        combineTile<V, kPieces>(dst, sources, count, place);
    } else if constexpr (kPieces > 1) {
        combineRest<V, kPieces - 1>(dst, sources, count, pieces, place);
    }
}

// Whole tiles as long as a piece remains after them, then one tile for the rest. Its last piece ends where
// the sources do, and so overlaps the one before. Likewise the second piece of the first tile begins
// where a cache line of the first source does, and of all that lie whole lines apart from it: a load from two
// lines takes twice as long.
template <class V>
void combineWithTiles(unsigned char* dst, const unsigned char* const* sources, std::size_t count,
                      std::size_t offset, std::size_t size) {
    constexpr std::size_t kTileBytes = V::kPieces * kXorBytes;
    const std::size_t last = offset + size - kXorBytes;
    if (offset + kTileBytes <= last) {
        const std::size_t intoLine = reinterpret_cast<std::size_t>(sources[0] + offset) % kXorBytes;
        const std::size_t line = offset + kXorBytes - intoLine;
        const std::size_t end = line + kTileBytes - kXorBytes;
        combineTile<V, V::kPieces>(dst, sources, count, {offset, line, end - kXorBytes});
        offset = end;
    }
    for (; offset + kTileBytes <= last; offset += kTileBytes) {
        combineTile<V, V::kPieces>(dst, sources, count,
                                   {offset, offset + kXorBytes, offset + kTileBytes - kXorBytes});
    }
    const std::size_t pieces = (last - offset + kXorBytes - 1) / kXorBytes + 1;
    combineRest<V, V::kPieces + 1>(dst, sources, count, pieces, {offset, offset + kXorBytes, last});
}

}  // namespace
}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_XORTILE_H

// The loops that the vector kernels share, over a description `V` of one instruction set:
//
//   V::Vector, V::kBytes       a vector register and its size
//   V::Source, V::loadSource   a vector of a source block, prepared for V::multiply
//   V::Factor, V::makeFactor   a coefficient, prepared likewise
//   V::multiply                source times factor
//   V::add                     the sum of two or three vectors
//   V::zero, V::load, V::store
//   V::kStep                   sources that are added to the sums at once, 1 or 2
//   V::kShapes                 the shapes of tiles, as an array of stTileShape, the ones of few rows first
//
// Everything has internal linkage: each kernel gets its own copy, compiled for its instruction set.

#ifndef TALRTP_SRC_KERNELS_GFTILE_H
#define TALRTP_SRC_KERNELS_GFTILE_H

#include "kernels/GfKernel.h"
#include "kernels/Unroll.h"

#define TALRTP_INLINED __attribute__((always_inline)) inline

namespace talrtp {

constexpr std::size_t kCacheLineBytes = 64;

namespace {

// A tile is the part of the result whose sums are held in registers at a time.
struct stTileShape {
    int maxRows;
    int maxVectors;
};

// Adds the products of kStep sources to the sums of a tile. `coefficients` is the first row's for the first
// of the sources. Inlined in any case: a call would move the sums to memory and back.
template <class V, int kRows, int kVectors, int kStep>
TALRTP_INLINED void addSources(typename V::Vector (&sums)[kRows][kVectors],
                               const unsigned char* const* sources, std::size_t offset,
                               const unsigned char* coefficients, std::size_t stride) {
    typename V::Source source[kStep][kVectors];
    TALRTP_UNROLL
    for (int s = 0; s < kStep; ++s) {
        const unsigned char* bytes = sources[s] + offset;
        // The sum is final: otherwise the compiler keeps a register for each vector's offset, and runs out.
        asm("" : "+r"(bytes));
        TALRTP_UNROLL
        for (int v = 0; v < kVectors; ++v) {
            source[s][v] = V::loadSource(bytes + v * V::kBytes);
        }
    }
    TALRTP_UNROLL
    for (int r = 0; r < kRows; ++r) {
        const unsigned char* const row = coefficients + static_cast<std::size_t>(r) * stride;
        const typename V::Factor first = V::makeFactor(row[0]);
        const typename V::Factor last = V::makeFactor(row[kStep - 1]);
        TALRTP_UNROLL
        for (int v = 0; v < kVectors; ++v) {
            const typename V::Vector product = V::multiply(source[0][v], first);
            sums[r][v] = kStep == 1 ? V::add(sums[r][v], product)
                                    : V::add(sums[r][v], product, V::multiply(source[kStep - 1][v], last));
        }
    }
}

// Computes kRows rows of the result over kVectors vectors. The sums stay in registers while all sources pass
// by, so that each byte of the result is written once. Inlined into the loop over the strips, where a call
// counts in a tile of few sources.
template <class V, int kRows, int kVectors>
TALRTP_INLINED void multiplyTile(const stGfProduct& product, int firstRow, std::size_t offset) {
    const std::size_t stride = static_cast<std::size_t>(product.stride);
    const unsigned char* const coefficients =
        product.coefficients + static_cast<std::size_t>(firstRow) * stride;
    const unsigned char* const* const sources = product.sources;
    const std::size_t count = static_cast<std::size_t>(product.count);

    typename V::Vector sums[kRows][kVectors];
    TALRTP_UNROLL
    for (int r = 0; r < kRows; ++r) {
        TALRTP_UNROLL
        for (int v = 0; v < kVectors; ++v) {
            sums[r][v] = V::zero();
        }
    }
    std::size_t j = 0;
    for (; j + V::kStep <= count; j += V::kStep) {
        addSources<V, kRows, kVectors, V::kStep>(sums, sources + j, offset, coefficients + j, stride);
    }
    for (; j < count; ++j) {
        addSources<V, kRows, kVectors, 1>(sums, sources + j, offset, coefficients + j, stride);
    }
    TALRTP_UNROLL
    for (int r = 0; r < kRows; ++r) {
        unsigned char* const dst = product.dst[firstRow + r] + offset;
        TALRTP_UNROLL
        for (int v = 0; v < kVectors; ++v) {
            V::store(dst + v * V::kBytes, sums[r][v]);
        }
    }
}

// Computes kRows rows over `vectors` vectors, 1..kVectors.
template <class V, int kRows, int kVectors>
inline void multiplyVectors(const stGfProduct& product, int firstRow, std::size_t vectors,
                            std::size_t offset) {
    if (vectors == kVectors) {
        multiplyTile<V, kRows, kVectors>(product, firstRow, offset);
    } else if constexpr (kVectors > 1) {
        multiplyVectors<V, kRows, kVectors - 1>(product, firstRow, vectors, offset);
    }
}

// Returns the distance from the start of the sources to the first boundary of a cache line, or 0 when the
// sources are aligned differently. Buffers of one kind mostly agree, so the check looks at two of them.
inline std::size_t getHead(const stGfProduct& product) {
    const std::size_t middle = reinterpret_cast<std::size_t>(product.sources[product.count / 2]);
    const std::size_t last = reinterpret_cast<std::size_t>(product.sources[product.count - 1]);
    return (middle - last) % kCacheLineBytes == 0 ? (0 - last) % kCacheLineBytes : 0;
}

// Computes the bytes from `offset` to `end`, which is a vector or more, of kRows rows in strips of kVectors
// vectors. The rest is a narrower strip that ends there: it may compute bytes of the strip before it
// again, to the same values.
template <class V, int kRows, int kVectors>
void multiplyStrips(const stGfProduct& product, int firstRow, std::size_t offset, std::size_t end) {
    constexpr std::size_t kStripBytes = static_cast<std::size_t>(kVectors) * V::kBytes;
    // A vector as long as a cache line touches two lines at each load of a misaligned source. In a single row
    // the loads take the time, so its strips begin at a boundary, after one vector.
    if constexpr (kRows == 1 && V::kBytes == kCacheLineBytes) {
        const std::size_t head = end - offset >= kStripBytes ? getHead(product) : 0;
        if (head > 0) {
            multiplyTile<V, 1, 1>(product, firstRow, offset);
            offset += head;
        }
    }
    for (; offset + kStripBytes <= end; offset += kStripBytes) {
        multiplyTile<V, kRows, kVectors>(product, firstRow, offset);
    }
    while (offset < end) {
        std::size_t vectors = (end - offset + V::kBytes - 1) / V::kBytes;
        if (vectors * V::kBytes <= end) {
            offset = end - vectors * V::kBytes;
        } else {
            --vectors;
        }
        multiplyVectors<V, kRows, kVectors>(product, firstRow, vectors, offset);
        offset += vectors * V::kBytes;
    }
}

// Computes the bytes from `offset` to `end` of `rows` rows, kMinRows..kRows.
template <class V, int kMinRows, int kRows, int kVectors>
inline void multiplyRows(const stGfProduct& product, int firstRow, int rows, std::size_t offset,
                         std::size_t end) {
    if (rows == kRows) {
        multiplyStrips<V, kRows, kVectors>(product, firstRow, offset, end);
    } else if constexpr (kRows > kMinRows) {
        multiplyRows<V, kMinRows, kRows - 1, kVectors>(product, firstRow, rows, offset, end);
    }
}

// Computes more rows than a tile holds, in groups of nearly equal size, panel by panel: the bytes of the
// sources that one group reads are in the first-level cache for the next, or most of them: those of 200
// sources are a little more than there is room for, and still cheaper than narrower tiles.
template <class V, int kMaxRows, int kVectors>
void multiplyPanels(const stGfProduct& product, std::size_t size) {
    constexpr std::size_t kPanelBytes = 4 * kCacheLineBytes;
    constexpr int kMinRows = (kMaxRows + 1) / 2;  // the least that two groups or more get
    const int groups = (product.rows + kMaxRows - 1) / kMaxRows;
    const int rows = product.rows / groups;
    const int largerGroups = product.rows % groups;
    for (std::size_t offset = 0; offset < size; offset += kPanelBytes) {
        const std::size_t end = offset + kPanelBytes < size ? offset + kPanelBytes : size;
        int row = 0;
        for (int group = 0; group < groups; ++group) {
            const int count = rows + (group < largerGroups ? 1 : 0);
            multiplyRows<V, kMinRows, kMaxRows, kVectors>(product, row, count, offset, end);
            row += count;
        }
    }
}

// Computes everything with the first shape of tile that holds all rows at once, or else the last one.
template <class V, int kShape = 0, int kMinRows = 1>
void multiplyWithTiles(const stGfProduct& product, std::size_t size) {
    constexpr stTileShape shape = V::kShapes[kShape];
    constexpr int kLastShape = static_cast<int>(sizeof V::kShapes / sizeof shape) - 1;
    if (product.rows <= shape.maxRows) {
        multiplyRows<V, kMinRows, shape.maxRows, shape.maxVectors>(product, 0, product.rows, 0, size);
    } else if constexpr (kShape < kLastShape) {
        multiplyWithTiles<V, kShape + 1, shape.maxRows + 1>(product, size);
    } else {
        multiplyPanels<V, shape.maxRows, shape.maxVectors>(product, size);
    }
}

// Adds c times `src` to `dst` over whole vectors; returns the bytes done.
template <class V>
inline std::size_t addProductWithVectors(unsigned char* dst, const unsigned char* src, unsigned char c,
                                         std::size_t size) {
    const typename V::Factor factor = V::makeFactor(c);
    std::size_t i = 0;
    for (; i + V::kBytes <= size; i += V::kBytes) {
        V::store(dst + i, V::add(V::load(dst + i), V::multiply(V::loadSource(src + i), factor)));
    }
    return i;
}

}  // namespace
}  // namespace talrtp

#endif  // TALRTP_SRC_KERNELS_GFTILE_H

#include "kernels/XorKernel.h"

#include "kernels/Kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace talrtp {

namespace {

using Word = std::uint64_t;

Word loadWord(const unsigned char* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// XORs `size` bytes, fewer than kXorBytes: whole words, then single bytes.
void xorRest(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    std::size_t i = 0;
    for (; i + sizeof(Word) <= size; i += sizeof(Word)) {
        const Word word = loadWord(a + i) ^ loadWord(b + i);
        std::memcpy(dst + i, &word, sizeof word);
    }
    for (; i < size; ++i) {
        dst[i] = static_cast<unsigned char>(a[i] ^ b[i]);
    }
}

std::size_t toSize(int size) {
    return static_cast<std::size_t>(std::max(size, 0));
}

// Returns what the shortest source has of `length` bytes; 0 when that is less than a kernel takes.
std::size_t sharedSize(const int* sizes, int count, int length) {
    int shortest = count > 0 ? length : 0;
    for (int j = 0; j < count && shortest >= static_cast<int>(kXorBytes); ++j) {
        shortest = std::min(shortest, sizes[j]);
    }
    return shortest >= static_cast<int>(kXorBytes) ? static_cast<std::size_t>(shortest) : 0;
}

// Returns the word at `begin` of a source of `size` bytes; the bytes beyond its end are zero.
Word paddedWord(const unsigned char* source, std::size_t size, std::size_t begin) {
    if (begin + sizeof(Word) <= size) {
        return loadWord(source + begin);
    }
    if (size <= begin) {
        return 0;
    }
    if (size < sizeof(Word)) {
        Word word = 0;
        std::memcpy(&word, source + begin, size - begin);
        return word;
    }
    // The last word of the source, moved to where its bytes count.
    const std::size_t behind = 8 * (begin + sizeof(Word) - size);
    const Word word = loadWord(source + size - sizeof(Word));
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? word >> behind : word << behind;
}

// Writes the XOR of the bytes from `begin` to `end`, word by word over all sources. The last word ends at
// `end` and so may write bytes before `begin` for the second time.
void xorWords(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
              std::size_t begin, std::size_t end) {
    for (; begin < end; begin += sizeof(Word)) {
        const std::size_t wordBegin = end < sizeof(Word) ? 0 : std::min(begin, end - sizeof(Word));
        Word sum = 0;
        for (int j = 0; j < count; ++j) {
            sum ^= paddedWord(sources[j], toSize(sizes[j]), wordBegin);
        }
        const Word word = sum;  // the sum itself stays in a register
        if (end < sizeof(Word)) {
            std::memcpy(dst, &word, end);
        } else {
            std::memcpy(dst + wordBegin, &word, sizeof word);
        }
    }
}

// Where the first of the sources ends that are longer than `begin`; 0 when none is.
std::size_t nextEnd(const int* sizes, int count, std::size_t begin, std::size_t length) {
    std::size_t end = 0;
    for (int j = 0; j < count; ++j) {
        const std::size_t size = std::min(toSize(sizes[j]), length);
        if (size > begin && (end == 0 || size < end)) {
            end = size;
        }
    }
    return end;
}

// Writes the XOR of the bytes from `begin` to `end`, kXorBytes or more, of the sources that are longer than
// `begin`, at least one, each of which reaches to `end`.
void combineLonger(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
                   std::size_t begin, std::size_t end) {
    constexpr std::size_t kMaxSources = 256;  // in one pass
    const stXorKernel& kernel = *getKernels().exclusiveOr;
    const unsigned char* longer[kMaxSources];
    std::size_t longerCount = 0;
    for (int j = 0; j < count; ++j) {
        if (toSize(sizes[j]) <= begin) {
            continue;
        }
        if (longerCount == kMaxSources) {
            kernel.combine(dst, longer, longerCount, begin, end - begin);
            longer[0] = dst;
            longerCount = 1;
        }
        longer[longerCount++] = sources[j];
    }
    kernel.combine(dst, longer, longerCount, begin, end - begin);
}

}  // namespace

void xorBlocks(unsigned char* dst, const unsigned char* a, const unsigned char* b, std::size_t size) {
    if (size >= kXorBytes) {
        const unsigned char* const sources[] = {a, b};
        getKernels().exclusiveOr->combine(dst, sources, 2, 0, size);
    } else {
        xorRest(dst, a, b, size);
    }
}

void xorMany(unsigned char* dst, const unsigned char* const* sources, const int* sizes, int count,
             int length) {
    const std::size_t size = toSize(length);
    std::size_t begin = 0;
    // Fragments of one unit, which most sources are, differ by some bytes.
    const std::size_t shared = sharedSize(sizes, count, length);
    if (shared > 0) {
        getKernels().exclusiveOr->combine(dst, sources, static_cast<std::size_t>(count), 0, shared);
        begin = shared;
    }
    // One pass per distinct size: over the bytes that all but the shortest sources have, and so on.
    while (begin + kXorBytes <= size) {
        std::size_t end = nextEnd(sizes, count, begin, size);
        if (end == 0) {
            std::memset(dst + begin, 0, size - begin);
            return;
        }
        if (end - begin >= kXorBytes) {
            combineLonger(dst, sources, sizes, count, begin, end);
        } else {
            end = begin + kXorBytes;
            xorWords(dst, sources, sizes, count, begin, end);
        }
        begin = end;
    }
    xorWords(dst, sources, sizes, count, begin, size);
}

}  // namespace talrtp

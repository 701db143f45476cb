// The codec against ISA-L, memcpy and the XOR of the same blocks.
//
// A name reads WHAT/WHO/k/m: `encode/talrtp/10/4` makes 4 parity blocks of 10 blocks of 1200 bytes each. WHO
// is `talrtp` at the best level of this processor, `talrtp-avx2` with that level forced, `isal` at its best
// and `isal-avx2` with its own forced, `one-pass` for the XOR of the k blocks at the widest vectors, written
// apart from the library's kernels, `memcpy` for copying as much as the k blocks hold, and `stepwise` for the
// construction of a model by inverting a Vandermonde matrix.
//
// A decode row includes everything from the list of received positions to the rebuilt blocks: the matrix, its
// inversion and, for ISA-L, its tables.

#include "kernels/Kernels.h"

#include <talrtp/RsFec.h>

#include <benchmark/benchmark.h>
#include <isa-l/erasure_code.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ReferenceXor.h"

namespace talrtp {
namespace {

using Bytes = std::vector<unsigned char>;
using IsalEncoder = void (*)(int, int, int, unsigned char*, unsigned char**, unsigned char**);

constexpr int kBlockBytes = 1200;

struct Shape {
    int k;
    int m;
};
constexpr Shape kShapes[] = {{4, 2}, {10, 4}, {20, 5}, {50, 10}, {100, 20}, {200, 55}};

// Blocks that lie as malloc mostly lays them out: whole cache lines apart, but not on the border of one. A
// layout that fell out otherwise for each row would be measured more than the code.
class Blocks {
public:
    explicit Blocks(int count) : m_memory(static_cast<std::size_t>(count * kDistance + kLine)) {
        void* begin = m_memory.data();
        std::size_t room = m_memory.size();
        unsigned char* const line = static_cast<unsigned char*>(
            std::align(kLine, static_cast<std::size_t>(count * kDistance), begin, room));
        for (int i = 0; i < count; ++i) {
            pointers.push_back(line + i * kDistance + kOffset);
        }
    }

    std::vector<unsigned char*> pointers;

private:
    static constexpr int kLine = 64;
    static constexpr int kDistance = 19 * kLine;
    static constexpr int kOffset = 16;
    static_assert(kOffset + kBlockBytes <= kDistance, "blocks do not overlap");

    Bytes m_memory;
};

// A group of blocks with its parity, of which the first `losses` source blocks are lost and as many of the
// parity blocks received.
struct Group {
    Group(Shape shape, int losses)
        : k(shape.k),
          m(shape.m),
          model(GetRsModel(k, k + m)),
          blocks(k + m + losses),
          all(blocks.pointers.begin(), blocks.pointers.begin() + k + m),
          out(blocks.pointers.begin() + k + m, blocks.pointers.end()) {
        std::mt19937 random(1);
        for (int j = 0; j < k; ++j) {
            std::generate_n(all[static_cast<std::size_t>(j)], kBlockBytes,
                            [&random] { return static_cast<unsigned char>(random()); });
        }
        CRsFec::Encode(model, all.data(), kBlockBytes, all.data() + k);
        for (int j = 0; j < k; ++j) {
            index.push_back(j + losses);
            received.push_back(all[static_cast<std::size_t>(j + losses)]);
        }
        for (int r = 0; r < losses; ++r) {
            lost.push_back(r);
        }
    }

    int k;
    int m;
    rs_param_* model;
    Blocks blocks;
    std::vector<unsigned char*> all;
    std::vector<unsigned char*> out;
    std::vector<unsigned char*> received;
    std::vector<int> index;
    std::vector<int> lost;
};

void countBytes(benchmark::State& state, const Group& group) {
    state.SetBytesProcessed(state.iterations() * group.k * kBlockBytes);
}

void encode(benchmark::State& state, Shape shape, EKernelLevel level) {
    Group group(shape, 0);
    forceKernelLevel(level);
    for (auto _ : state) {
        CRsFec::Encode(group.model, group.all.data(), kBlockBytes, group.all.data() + group.k);
        benchmark::ClobberMemory();
    }
    forceKernelLevel(getHighestKernelLevel());
    countBytes(state, group);
}

// The tables are made once, as the model is.
void encodeByIsal(benchmark::State& state, Shape shape, IsalEncoder encoder) {
    Group group(shape, 0);
    Bytes tables(static_cast<std::size_t>(32 * group.k * group.m));
    ec_init_tables(group.k, group.m, group.model->enc_matrix + group.k * group.k, tables.data());
    for (auto _ : state) {
        encoder(kBlockBytes, group.k, group.m, tables.data(), group.all.data(), group.all.data() + group.k);
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void decode(benchmark::State& state, Shape shape, int losses) {
    Group group(shape, losses);
    for (auto _ : state) {
        CRsFec::Decode(group.model, group.received.data(), kBlockBytes, group.index.data(), group.out.data(),
                       group.lost.data(), losses);
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void decodeByIsal(benchmark::State& state, Shape shape, int losses) {
    Group group(shape, losses);
    const std::size_t width = static_cast<std::size_t>(group.k);
    Bytes matrix(width * width);
    Bytes inverse(width * width);
    Bytes tables(32 * width * static_cast<std::size_t>(losses));
    for (auto _ : state) {
        for (std::size_t j = 0; j < width; ++j) {
            std::memcpy(&matrix[j * width], group.model->enc_matrix + group.index[j] * group.k, width);
        }
        gf_invert_matrix(matrix.data(), inverse.data(), group.k);
        ec_init_tables(group.k, losses, inverse.data(), tables.data());
        ec_encode_data(kBlockBytes, group.k, losses, tables.data(), group.received.data(), group.out.data());
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void exclusiveOr(benchmark::State& state, Shape shape) {
    Group group(shape, 1);
    const std::vector<int> sizes(static_cast<std::size_t>(group.k), kBlockBytes);
    for (auto _ : state) {
        xorMany(group.out[0], group.received.data(), sizes.data(), group.k, kBlockBytes);
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void exclusiveOrOnePass(benchmark::State& state, Shape shape) {
    Group group(shape, 1);
    for (auto _ : state) {
        bench::xorOnePass(group.out[0], group.received.data(), group.k, kBlockBytes);
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void copyBlocks(benchmark::State& state, Shape shape) {
    Group group(shape, 0);
    Bytes copies(static_cast<std::size_t>(group.k * kBlockBytes));
    for (auto _ : state) {
        for (int j = 0; j < group.k; ++j) {
            std::memcpy(copies.data() + j * kBlockBytes, group.all[static_cast<std::size_t>(j)], kBlockBytes);
        }
        benchmark::ClobberMemory();
    }
    countBytes(state, group);
}

void makeModel(benchmark::State& state, Shape shape) {
    for (auto _ : state) {
        rs_param_* const model = CRsFec::CreateRsModel(shape.k, shape.k + shape.m);
        benchmark::DoNotOptimize(model->enc_matrix);
        CRsFec::DeleteRsModel(model);
    }
}

// The inverse of the k x k Vandermonde matrix of points[0..k-1], in O(k^2): column r is the quotient of the
// product of all x - points[i] by x - points[r], divided by its own value at points[r].
void invertVandermonde(const unsigned char* points, int k, unsigned char* inverse) {
    Bytes c(static_cast<std::size_t>(k), 0);
    Bytes b(static_cast<std::size_t>(k), 0);
    const std::size_t last = static_cast<std::size_t>(k - 1);
    c[last] = points[0];
    for (int i = 1; i < k; ++i) {
        for (std::size_t j = last - static_cast<std::size_t>(i - 1); j < last; ++j) {
            c[j] ^= gf_mul_table[points[i]][c[j + 1]];
        }
        c[last] ^= points[i];
    }
    for (int r = 0; r < k; ++r) {
        unsigned char t = 1;
        b[last] = 1;
        for (std::size_t i = last; i-- > 0;) {
            b[i] = static_cast<unsigned char>(c[i + 1] ^ gf_mul_table[points[r]][b[i + 1]]);
            t = static_cast<unsigned char>(gf_mul_table[points[r]][t] ^ b[i]);
        }
        for (int col = 0; col < k; ++col) {
            inverse[col * k + r] = gf_mul_table[gf_div_table[1][t]][b[static_cast<std::size_t>(col)]];
        }
    }
}

void makeModelStepwise(benchmark::State& state, Shape shape) {
    const int k = shape.k;
    const int n = shape.k + shape.m;
    for (auto _ : state) {
        Bytes vandermonde(static_cast<std::size_t>(n * k), 0);
        Bytes points(static_cast<std::size_t>(k), 0);
        Bytes inverse(static_cast<std::size_t>(k * k));
        Bytes matrix(static_cast<std::size_t>(n * k), 0);
        for (int r = 1; r < n; ++r) {
            for (int c = 0; c < k; ++c) {
                vandermonde[static_cast<std::size_t>(r * k + c)] = gf_exp[((r - 1) * c) % 255];
            }
        }
        for (int r = 0; r < k; ++r) {
            points[static_cast<std::size_t>(r)] = vandermonde[static_cast<std::size_t>(r * k + 1)];
            matrix[static_cast<std::size_t>(r * k + r)] = 1;
        }
        invertVandermonde(points.data(), k, inverse.data());
        for (int r = k; r < n; ++r) {
            for (int j = 0; j < k; ++j) {
                unsigned char sum = 0;
                for (int c = 0; c < k; ++c) {
                    sum ^= gf_mul_table[vandermonde[static_cast<std::size_t>(r * k + c)]]
                                       [inverse[static_cast<std::size_t>(c * k + j)]];
                }
                matrix[static_cast<std::size_t>(r * k + j)] = sum;
            }
        }
        benchmark::DoNotOptimize(matrix.data());
    }
}

template <typename Function, typename... Arguments>
void addRow(const std::string& what, Shape shape, Function function, Arguments... arguments) {
    const std::string name = what + "/" + std::to_string(shape.k) + "/" + std::to_string(shape.m);
    benchmark::RegisterBenchmark(name.c_str(), function, shape, arguments...);
}

bool addRows() {
    for (const Shape shape : kShapes) {
        addRow("encode/talrtp", shape, encode, getHighestKernelLevel());
        addRow("encode/isal", shape, encodeByIsal, ec_encode_data);
#ifdef TALRTP_SIMD_X86
        if (getHighestKernelLevel() >= KERNEL_AVX2) {
            addRow("encode/talrtp-avx2", shape, encode, KERNEL_AVX2);
            addRow("encode/isal-avx2", shape, encodeByIsal, ec_encode_data_avx2);
        }
        if (getHighestKernelLevel() >= KERNEL_AVX2_GFNI) {
            addRow("encode/talrtp-avx2-gfni", shape, encode, KERNEL_AVX2_GFNI);
        }
        if (getHighestKernelLevel() >= KERNEL_SSSE3) {
            addRow("encode/talrtp-ssse3", shape, encode, KERNEL_SSSE3);
            addRow("encode/isal-sse", shape, encodeByIsal, ec_encode_data_sse);
        }
#endif
        addRow("encode/talrtp-portable", shape, encode, KERNEL_PORTABLE);
        addRow("decode-m-losses/talrtp", shape, decode, shape.m);
        addRow("decode-m-losses/isal", shape, decodeByIsal, shape.m);
        addRow("decode-1-loss/talrtp", shape, decode, 1);
        addRow("decode-1-loss/isal", shape, decodeByIsal, 1);
        addRow("xor/talrtp", shape, exclusiveOr);
        addRow("xor/one-pass", shape, exclusiveOrOnePass);
        addRow("copy/memcpy", shape, copyBlocks);
        addRow("model/talrtp", shape, makeModel);
        addRow("model/stepwise", shape, makeModelStepwise);
    }
    return true;
}

[[maybe_unused]] const bool kRowsAdded = addRows();

}  // namespace
}  // namespace talrtp

#include "kernels/GfTables.h"

namespace talrtp {

namespace {

constexpr int kPolynomial = 0x11D;

// Returns alpha times `a`.
constexpr int timesAlpha(int a) {
    return (a << 1) ^ ((a & 0x80) != 0 ? kPolynomial : 0);
}

// The eight products of c and a single bit, from which all others follow.
struct stBitProducts {
    int of[8];
};

constexpr stBitProducts makeBitProducts(int c) {
    stBitProducts products{};
    for (int& product : products.of) {
        product = c;
        c = timesAlpha(c);
    }
    return products;
}

constexpr stNibbleTable makeNibbleTable() {
    stNibbleTable table{};
    for (int c = 0; c < 256; ++c) {
        const stBitProducts products = makeBitProducts(c);
        for (int x = 0; x < 16; ++x) {
            int low = 0;
            int high = 0;
            for (int bit = 0; bit < 4; ++bit) {
                low ^= (x >> bit & 1) != 0 ? products.of[bit] : 0;
                high ^= (x >> bit & 1) != 0 ? products.of[bit + 4] : 0;
            }
            table.of[c].low[x] = static_cast<unsigned char>(low);
            table.of[c].high[x] = static_cast<unsigned char>(high);
        }
    }
    return table;
}

constexpr stAffineTable makeAffineTable() {
    stAffineTable table{};
    for (int c = 0; c < 256; ++c) {
        const stBitProducts products = makeBitProducts(c);
        for (int i = 0; i < 8; ++i) {
            std::uint64_t row = 0;
            for (int bit = 0; bit < 8; ++bit) {
                row |= static_cast<std::uint64_t>(products.of[bit] >> i & 1) << bit;
            }
            table.of[c] |= row << (8 * (7 - i));
        }
    }
    return table;
}

}  // namespace

constexpr stNibbleTable kNibbleTable = makeNibbleTable();
constexpr stAffineTable kAffineTable = makeAffineTable();

}  // namespace talrtp

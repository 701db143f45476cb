#include "fec/GaloisField.h"

namespace talrtp {

namespace {

constexpr unsigned char product(int a, int b) {
    return (a == 0 || b == 0) ? 0 : kPowers.exp[kPowers.log[a] + kPowers.log[b]];
}

constexpr unsigned char quotient(int a, int b) {
    return (a == 0 || b == 0) ? 0 : kPowers.exp[kPowers.log[a] + kGroupOrder - kPowers.log[b]];
}

}  // namespace

// An array takes no initializer from a function, so each element is spelled out: GF_EACH(f, a) is the list
// f(a, 0x00), ..., f(a, 0xFF). A macro does not expand within itself, hence the second pair for the rows.
// clang-format off
#define GF_SIXTEEN(f, a, d)                                                                               \
    f(a, d##0), f(a, d##1), f(a, d##2), f(a, d##3), f(a, d##4), f(a, d##5), f(a, d##6), f(a, d##7),       \
    f(a, d##8), f(a, d##9), f(a, d##A), f(a, d##B), f(a, d##C), f(a, d##D), f(a, d##E), f(a, d##F)
#define GF_EACH(f, a)                                                                                     \
    GF_SIXTEEN(f, a, 0x0), GF_SIXTEEN(f, a, 0x1), GF_SIXTEEN(f, a, 0x2), GF_SIXTEEN(f, a, 0x3),           \
    GF_SIXTEEN(f, a, 0x4), GF_SIXTEEN(f, a, 0x5), GF_SIXTEEN(f, a, 0x6), GF_SIXTEEN(f, a, 0x7),           \
    GF_SIXTEEN(f, a, 0x8), GF_SIXTEEN(f, a, 0x9), GF_SIXTEEN(f, a, 0xA), GF_SIXTEEN(f, a, 0xB),           \
    GF_SIXTEEN(f, a, 0xC), GF_SIXTEEN(f, a, 0xD), GF_SIXTEEN(f, a, 0xE), GF_SIXTEEN(f, a, 0xF)
#define GF_SIXTEEN_ROWS(f, d)                                                                             \
    {GF_EACH(f, d##0)}, {GF_EACH(f, d##1)}, {GF_EACH(f, d##2)}, {GF_EACH(f, d##3)},                       \
    {GF_EACH(f, d##4)}, {GF_EACH(f, d##5)}, {GF_EACH(f, d##6)}, {GF_EACH(f, d##7)},                       \
    {GF_EACH(f, d##8)}, {GF_EACH(f, d##9)}, {GF_EACH(f, d##A)}, {GF_EACH(f, d##B)},                       \
    {GF_EACH(f, d##C)}, {GF_EACH(f, d##D)}, {GF_EACH(f, d##E)}, {GF_EACH(f, d##F)}
#define GF_EACH_ROW(f)                                                                                    \
    GF_SIXTEEN_ROWS(f, 0x0), GF_SIXTEEN_ROWS(f, 0x1), GF_SIXTEEN_ROWS(f, 0x2), GF_SIXTEEN_ROWS(f, 0x3),   \
    GF_SIXTEEN_ROWS(f, 0x4), GF_SIXTEEN_ROWS(f, 0x5), GF_SIXTEEN_ROWS(f, 0x6), GF_SIXTEEN_ROWS(f, 0x7),   \
    GF_SIXTEEN_ROWS(f, 0x8), GF_SIXTEEN_ROWS(f, 0x9), GF_SIXTEEN_ROWS(f, 0xA), GF_SIXTEEN_ROWS(f, 0xB),   \
    GF_SIXTEEN_ROWS(f, 0xC), GF_SIXTEEN_ROWS(f, 0xD), GF_SIXTEEN_ROWS(f, 0xE), GF_SIXTEEN_ROWS(f, 0xF)
#define GF_POWER(unused, i) kPowers.exp[i]
#define GF_LOGARITHM(unused, i) kPowers.log[i]

const unsigned char gf_exp[510] = {
    GF_EACH(GF_POWER, ),
    GF_SIXTEEN(GF_POWER, , 0x10), GF_SIXTEEN(GF_POWER, , 0x11), GF_SIXTEEN(GF_POWER, , 0x12),
    GF_SIXTEEN(GF_POWER, , 0x13), GF_SIXTEEN(GF_POWER, , 0x14), GF_SIXTEEN(GF_POWER, , 0x15),
    GF_SIXTEEN(GF_POWER, , 0x16), GF_SIXTEEN(GF_POWER, , 0x17), GF_SIXTEEN(GF_POWER, , 0x18),
    GF_SIXTEEN(GF_POWER, , 0x19), GF_SIXTEEN(GF_POWER, , 0x1A), GF_SIXTEEN(GF_POWER, , 0x1B),
    GF_SIXTEEN(GF_POWER, , 0x1C), GF_SIXTEEN(GF_POWER, , 0x1D), GF_SIXTEEN(GF_POWER, , 0x1E),
    kPowers.exp[496], kPowers.exp[497], kPowers.exp[498], kPowers.exp[499], kPowers.exp[500],
    kPowers.exp[501], kPowers.exp[502], kPowers.exp[503], kPowers.exp[504], kPowers.exp[505],
    kPowers.exp[506], kPowers.exp[507], kPowers.exp[508], kPowers.exp[509],
};
const int gf_log[256] = {GF_EACH(GF_LOGARITHM, )};
const unsigned char gf_mul_table[256][256] = {GF_EACH_ROW(product)};
const unsigned char gf_div_table[256][256] = {GF_EACH_ROW(quotient)};
// clang-format on

#undef GF_LOGARITHM
#undef GF_POWER
#undef GF_EACH_ROW
#undef GF_SIXTEEN_ROWS
#undef GF_EACH
#undef GF_SIXTEEN

}  // namespace talrtp

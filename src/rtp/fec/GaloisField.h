// GF(2^8) with the polynomial x^8 + x^4 + x^3 + x^2 + 1 (0x11D) and alpha = 2: what the compiler computes of
// it.
//
// The tables of products and quotients are declared in <talrtp/RsFec.h>, since hosts read them too.

#ifndef TALRTP_SRC_FEC_GALOISFIELD_H
#define TALRTP_SRC_FEC_GALOISFIELD_H

#include <talrtp/RsFec.h>

namespace talrtp {

constexpr int kFieldSize = 256;   // elements, zero included
constexpr int kGroupOrder = 255;  // alpha^255 = 1
constexpr int kReduction = 0x1D;  // x^8 = x^4 + x^3 + x^2 + 1

struct stPowers {
    unsigned char exp[2 * kGroupOrder];
    int log[kFieldSize];
};

constexpr stPowers makePowers() {
    stPowers powers{};
    int power = 1;
    for (int i = 0; i < kGroupOrder; ++i) {
        powers.exp[i] = static_cast<unsigned char>(power);
        powers.exp[i + kGroupOrder] = static_cast<unsigned char>(power);
        powers.log[power] = i;
        power <<= 1;
        if (power >= kFieldSize) {
            power ^= kFieldSize | kReduction;
        }
    }
    powers.log[0] = kGroupOrder;
    return powers;
}

constexpr stPowers kPowers = makePowers();

// The point at which the polynomials of the code take their values for block `position`: 0, 1, alpha, ...
inline unsigned char pointOf(int position) {
    return position == 0 ? 0 : gf_exp[position - 1];
}

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_GALOISFIELD_H

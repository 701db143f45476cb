// Decides which datagrams a network loses.

#ifndef TALRTP_HOST_NET_LOSSMODEL_H
#define TALRTP_HOST_NET_LOSSMODEL_H

#include "loopback/Random.h"

namespace talrtp::host {

// Tells whether such bursts can have such a share of losses: with every run of deliveries at its shortest,
// one datagram, burst out of burst + 1 are lost.
inline bool isPossibleBurst(double loss, double burst) {
    return burst == 0 || (burst >= 1 && loss < 1 && loss <= burst / (burst + 1));
}

class CLossModel {
public:
    // `loss`: share of the datagrams that is lost, 0 to 1. `burst`: mean length of a run of losses, 1 or
    // more; 0 for losses that do not hang together.
    CLossModel(double loss, double burst, const CRandom& random)
        : m_loss(loss), m_burst(burst), m_random(random) {}

    // Tells whether the next datagram is lost: each by itself, or by the model of Gilbert and Elliott, in
    // which the network is in one of two states, loses all in one and nothing in the other. A burst ends with
    // the probability 1 / length; it begins with the one for which the share of losses comes out right.
    bool isNextLost() {
        if (m_burst == 0) {
            return m_random.chance(m_loss);
        }
        const double end = 1 / m_burst;
        const double begin = end * m_loss / (1 - m_loss);
        m_isInBurst = m_isInBurst ? !m_random.chance(end) : m_random.chance(begin);
        return m_isInBurst;
    }

private:
    double m_loss;
    double m_burst;
    CRandom m_random;
    bool m_isInBurst = false;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_LOSSMODEL_H

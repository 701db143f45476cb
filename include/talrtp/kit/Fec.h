// The choice of forward error correction: which scheme, over how many media packets, with how many FEC
// packets.

#ifndef TALRTP_KIT_FEC_H
#define TALRTP_KIT_FEC_H

#include <string>

namespace talrtp::kit {

// The code that makes the FEC packets.
enum class FecScheme {
    kNone,         // no FEC packets
    kXor,          // one parity packet per group, which rebuilds one lost packet (header of RFC 2733)
    kReedSolomon,  // m parity packets per group, which rebuild any m lost packets
};

constexpr int kMaxXorGroup = 24;             // sequence numbers that the mask of an XOR FEC packet spans
constexpr int kMaxReedSolomonPackets = 255;  // media and FEC packets of one group

// A scheme with its group size. The functions below make valid ones.
struct Fec {
    FecScheme scheme = FecScheme::kNone;  // of all groups
    int maxMedia = 0;                     // most media packets in a group
    int parity = 0;                       // FEC packets for each group

    // Returns the choice to send no FEC packets.
    static Fec none() { return {}; }

    // One parity packet for at most `maxMedia` media packets, 1 to 24. Groups have an odd number of packets,
    // so that a rebuilt packet gets its payload type back; an even limit therefore acts as the odd one below
    // it.
    static Fec xorParity(int maxMedia) { return {FecScheme::kXor, maxMedia, 1}; }

    // `parity` FEC packets for at most `maxMedia` media packets: each at least 1, at most 255 together.
    static Fec reedSolomon(int maxMedia, int parity) { return {FecScheme::kReedSolomon, maxMedia, parity}; }

    // A receiver needs the scheme only: group sizes are on the wire.
    operator FecScheme() const { return scheme; }  // NOLINT(google-explicit-constructor)

    // Returns an empty string, or the value that is out of range with its range.
    std::string check() const {
        switch (scheme) {
            case FecScheme::kXor:
                return checkXor();
            case FecScheme::kReedSolomon:
                return checkReedSolomon();
            case FecScheme::kNone:
                break;
        }
        return {};
    }

private:
    std::string checkXor() const {
        if (maxMedia < 1 || maxMedia > kMaxXorGroup) {
            return "XOR FEC takes 1 to 24 media packets in a group, not " + std::to_string(maxMedia);
        }
        if (parity != 1) {
            return "XOR FEC makes 1 FEC packet for each group, not " + std::to_string(parity);
        }
        return {};
    }

    std::string checkReedSolomon() const {
        if (maxMedia < 1 || parity < 1) {
            return "Reed-Solomon FEC takes at least 1 media packet and 1 FEC packet in a group, not " +
                   shape();
        }
        if (maxMedia > kMaxReedSolomonPackets || parity > kMaxReedSolomonPackets ||
            maxMedia + parity > kMaxReedSolomonPackets) {
            return "Reed-Solomon FEC takes at most 255 packets in a group, media and FEC, not " + shape();
        }
        return {};
    }

    std::string shape() const { return std::to_string(maxMedia) + " and " + std::to_string(parity); }
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_FEC_H

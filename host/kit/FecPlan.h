// Chooses the groups of media packets that are protected together.
//
// Groups follow pictures: a group holds packets of one picture alone, unless a picture has fewer than
// `kMinGroup` packets; such a picture is joined with the next, since FEC over one or two packets is not much
// else than sending them twice. A long run is cut into as few groups as the limits allow, of nearly equal
// size.
//
// XOR groups have an odd number of packets. The FEC packet holds the XOR of the payload types, which is the
// payload type for an odd number of equal ones; the receiver takes 1 out of it for each packet that it has,
// which is nothing for an even number of them. Over an even group a packet would be rebuilt with the payload
// type 1.

#ifndef TALRTP_HOST_KIT_FECPLAN_H
#define TALRTP_HOST_KIT_FECPLAN_H

#include "kit/PackingPlan.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace talrtp::kit {

constexpr int kMaxXorGroup = 24;             // what the mask of an XOR FEC packet spans
constexpr int kMaxReedSolomonPackets = 255;  // media and FEC packets of a group

struct FecShape {
    FecScheme scheme = FecScheme::kNone;
    int group = 0;   // most media packets in a group
    int parity = 0;  // FEC packets for each group; 1 for XOR
};

class CFecPlanner {
public:
    static constexpr int kMinGroup = 3;

    explicit CFecPlanner(const FecShape& shape) : m_shape(shape) {}

    // Tells whether the shape is within the limits of its scheme.
    static bool isValid(const FecShape& shape) {
        switch (shape.scheme) {
            case FecScheme::kXor:
                return shape.group >= 1 && shape.group <= kMaxXorGroup && shape.parity == 1;
            case FecScheme::kReedSolomon:
                return shape.group >= 1 && shape.parity >= 1 &&
                       shape.group + shape.parity <= kMaxReedSolomonPackets;
            case FecScheme::kNone:
                break;
        }
        return true;
    }

    // The most packets that a group really gets.
    int limit() const {
        const bool isEvenXor = m_shape.scheme == FecScheme::kXor && m_shape.group % 2 == 0;
        return isEvenXor ? m_shape.group - 1 : m_shape.group;
    }

    // Tells whether a run of `count` packets is to wait for the next picture before it is cut into groups.
    bool isTooFew(std::size_t count) const {
        return m_shape.scheme != FecScheme::kNone &&
               count < static_cast<std::size_t>(std::min(kMinGroup, limit()));
    }

    // Cuts a run of `count` packets: returns the sizes of its groups, in order. None without FEC.
    std::vector<int> cut(std::size_t count) const {
        std::vector<int> sizes;
        if (m_shape.scheme == FecScheme::kNone || count == 0) {
            return sizes;
        }
        const std::size_t most = static_cast<std::size_t>(limit());
        std::size_t groups = (count + most - 1) / most;
        // Odd sizes: as many groups as make the sum come out even or odd as the run is.
        const bool isXor = m_shape.scheme == FecScheme::kXor;
        if (isXor && groups % 2 != count % 2) {
            ++groups;
        }
        return isXor ? cutOdd(count, groups) : cutEvenly(count, groups);
    }

private:
    static std::vector<int> cutEvenly(std::size_t count, std::size_t groups) {
        std::vector<int> sizes;
        for (; groups > 0; --groups) {
            const std::size_t size = (count + groups - 1) / groups;
            sizes.push_back(static_cast<int>(size));
            count -= size;
        }
        return sizes;
    }

    // Every group has one packet and a number of pairs; the pairs are what is shared out.
    static std::vector<int> cutOdd(std::size_t count, std::size_t groups) {
        std::vector<int> sizes = cutEvenly((count - groups) / 2, groups);
        for (int& size : sizes) {
            size = 2 * size + 1;
        }
        return sizes;
    }

    FecShape m_shape;
};

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_FECPLAN_H

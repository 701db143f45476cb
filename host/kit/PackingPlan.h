// Decides how the units of one picture become packets of at most an MTU (RFC 6184, 5.4 to 5.8): small units
// that follow each other share a STAP-A, a unit too long for a packet is cut into FU-A fragments, any other
// one goes alone.

#ifndef TALRTP_HOST_KIT_PACKINGPLAN_H
#define TALRTP_HOST_KIT_PACKINGPLAN_H

#include "kit/NalUnit.h"
#include "kit/PictureGrouper.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::kit {

enum class FecScheme { kNone, kXor, kReedSolomon };

constexpr int kRtpHeaderSize = 12;
constexpr int kFuHeaderSize = 2;     // FU indicator and FU header
constexpr int kStapHeaderSize = 1;   // followed, for each unit, by
constexpr int kStapLengthSize = 2;   // its length
constexpr int kMaxStapUnit = 65535;  // what that length can say

// An XOR FEC packet repeats all of a media packet but its RTP header behind two headers of its own.
constexpr int kXorFecExcess = 12;
// A Reed-Solomon FEC packet holds a whole media packet behind its RTP header and an 8-byte header.
constexpr int kReedSolomonFecExcess = 20;
// The codec takes no longer block, and a block is a whole media packet.
constexpr int kMaxReedSolomonBlock = 1600;

// The smallest media packet size for which a plan can be made: fragments then carry two bytes of the unit,
// except the first, from which the unit's header byte is left out.
constexpr int kMinMediaPacket = kRtpHeaderSize + kFuHeaderSize + 2;

// Returns the largest media packet for which neither it nor a FEC packet over it exceeds `mtu`, the largest
// RTP packet in bytes. The result may be below `kMinMediaPacket`, for which no plan is made.
inline int maxMediaPacket(int mtu, FecScheme scheme) {
    switch (scheme) {
        case FecScheme::kXor:
            return mtu - kXorFecExcess;
        case FecScheme::kReedSolomon:
            return mtu - kReedSolomonFecExcess < kMaxReedSolomonBlock ? mtu - kReedSolomonFecExcess
                                                                      : kMaxReedSolomonBlock;
        case FecScheme::kNone:
            break;
    }
    return mtu;
}

// One call of a packet-making operation of the session.
struct PackStep {
    enum Kind { kSingle, kAggregate, kFragments };

    Kind kind;
    std::size_t firstUnit;  // position in the picture
    std::size_t unitCount;  // above 1 for kAggregate alone
    int packetCount;        // above 1 for kFragments alone
};

// Returns the number of FU-A packets for a unit of `unitSize` bytes. A session cuts the unit into pieces of
// equal size, rounded up, and the last one holds the rest. With count = ceil(size / room), size is more than
// (count - 1) * room and so more than all pieces but the last: none is empty.
inline int fragmentCount(std::size_t unitSize, int maxPacket) {
    const std::size_t room = static_cast<std::size_t>(maxPacket - kRtpHeaderSize - kFuHeaderSize);
    return static_cast<int>((unitSize + room - 1) / room);
}

// Plans packets of at most `maxPacket` bytes, not below `kMinMediaPacket`. Steps are in the order of the
// units and cover each one once. Units that RTP cannot carry are for the caller to leave out first.
class CPackingPlanner {
public:
    CPackingPlanner(int maxPacket, bool isAggregating)
        : m_maxPacket(maxPacket), m_isAggregating(isAggregating) {}

    std::vector<PackStep> plan(const Picture& picture) const {
        std::vector<PackStep> steps;
        std::size_t next = 0;
        while (next < picture.size()) {
            steps.push_back(planFrom(picture, next));
            next += steps.back().unitCount;
        }
        return steps;
    }

private:
    PackStep planFrom(const Picture& picture, std::size_t first) const {
        const std::size_t size = picture[first].size();
        if (size > room()) {
            return {PackStep::kFragments, first, 1, fragmentCount(size, m_maxPacket)};
        }
        const std::size_t count = m_isAggregating ? countAggregated(picture, first) : 1;
        return {count > 1 ? PackStep::kAggregate : PackStep::kSingle, first, count, 1};
    }

    // How many units from `first` on fit into one STAP-A.
    std::size_t countAggregated(const Picture& picture, std::size_t first) const {
        std::size_t size = kStapHeaderSize;
        std::size_t last = first;
        while (last < picture.size() && picture[last].size() <= kMaxStapUnit) {
            size += kStapLengthSize + picture[last].size();
            if (size > room()) {
                break;
            }
            ++last;
        }
        return last > first ? last - first : 1;
    }

    std::size_t room() const { return static_cast<std::size_t>(m_maxPacket - kRtpHeaderSize); }

    int m_maxPacket;
    bool m_isAggregating;
};

// Returns how many packets a plan makes.
inline std::size_t countPackets(const std::vector<PackStep>& steps) {
    std::size_t count = 0;
    for (const PackStep& step : steps) {
        count += static_cast<std::size_t>(step.packetCount);
    }
    return count;
}

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_PACKINGPLAN_H

// Decides how the units of one picture become packets of at most a given size (RFC 6184, 5.6 to 5.8): small
// units that follow each other share a STAP-A, a unit too long for a packet is cut into FU-A fragments, any
// other one goes alone.

#ifndef TALRTP_KIT_PACKINGPLAN_H
#define TALRTP_KIT_PACKINGPLAN_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/SenderOptions.h>

#include <cstddef>
#include <vector>

namespace talrtp::kit {

constexpr std::size_t kStapHeaderSize = 1;   // followed, for each unit, by
constexpr std::size_t kStapLengthSize = 2;   // its length
constexpr std::size_t kMaxStapUnit = 65535;  // the most that the length field holds

// How a step sends its units: one packet for one unit, one for several, or several for one.
enum class PackKind { kSingle, kAggregate, kFragments };

// One call of a packet-making operation of the session.
struct PackStep {
    PackKind kind;            // how the units become packets
    std::size_t firstUnit;    // position in the picture
    std::size_t unitCount;    // above 1 for kAggregate only
    std::size_t packetCount;  // above 1 for kFragments only
};

// Returns the number of FU-A packets for a unit of `unitSize` bytes, at least 1, in packets of at most
// `maxPacket` bytes. A session cuts the unit into pieces of equal size, rounded up, and the last one holds
// the rest. With count = ceil(size / room), size is more than (count - 1) * room and so more than all pieces
// but the last: none is empty.
constexpr std::size_t fragmentCount(std::size_t unitSize, int maxPacket) {
    const std::size_t room = static_cast<std::size_t>(maxPacket - kRtpHeaderSize - kFuHeaderSize);
    return (unitSize - 1) / room + 1;
}

// Plans the packets of one picture after the other, in memory that is used again.
class PackingPlanner {
public:
    // `maxPacket`: bytes of the largest packet, at least `kMinMediaPacket`. `isAggregating`: small units
    // share a STAP-A.
    PackingPlanner(int maxPacket, bool isAggregating)
        : m_maxPacket(maxPacket), m_isAggregating(isAggregating) {}

    // Plans the packets of a picture whose units RTP can carry. Returns the steps in the order of the units;
    // they cover each unit once.
    std::vector<PackStep> plan(const std::vector<BytesView>& units) const {
        std::vector<PackStep> steps;
        plan(units, steps);
        return steps;
    }

    // The same into `steps`, which is overwritten and keeps its memory.
    void plan(const std::vector<BytesView>& units, std::vector<PackStep>& steps) const {
        steps.clear();
        std::size_t next = 0;
        while (next < units.size()) {
            steps.push_back(planFrom(units, next));
            next += steps.back().unitCount;
        }
    }

private:
    PackStep planFrom(const std::vector<BytesView>& units, std::size_t first) const {
        const std::size_t size = units[first].size();
        if (size > room()) {
            return {PackKind::kFragments, first, 1, fragmentCount(size, m_maxPacket)};
        }
        const std::size_t count = m_isAggregating ? countAggregated(units, first) : 1;
        return {count > 1 ? PackKind::kAggregate : PackKind::kSingle, first, count, 1};
    }

    // Returns how many units from `first` on fit into one STAP-A, at least 1.
    std::size_t countAggregated(const std::vector<BytesView>& units, std::size_t first) const {
        std::size_t left = room() - kStapHeaderSize;
        std::size_t next = first;
        while (next < units.size() && units[next].size() <= kMaxStapUnit &&
               units[next].size() + kStapLengthSize <= left) {
            left -= units[next].size() + kStapLengthSize;
            ++next;
        }
        return next > first ? next - first : 1;
    }

    std::size_t room() const { return static_cast<std::size_t>(m_maxPacket - kRtpHeaderSize); }

    int m_maxPacket;
    bool m_isAggregating;
};

// Returns how many packets the plan `steps` makes.
inline std::size_t countPackets(const std::vector<PackStep>& steps) {
    std::size_t count = 0;
    for (const PackStep& step : steps) {
        count += step.packetCount;
    }
    return count;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PACKINGPLAN_H

// The FEC packets of one stream, joined to groups and held against the media packets that arrived.

#ifndef TALRTP_HOST_INSPECT_FECGROUPS_H
#define TALRTP_HOST_INSPECT_FECGROUPS_H

#include "inspect/RtpView.h"
#include "inspect/SequenceTracker.h"
#include "inspect/Timeline.h"

#include <talrtp/kit/Fec.h>

#include <bitset>
#include <chrono>
#include <deque>
#include <optional>

namespace talrtp::host::inspect {

// The facts about its group in an FEC packet.
struct FecHeader {
    std::uint16_t base = 0;  // lowest sequence number of the group's media packets
    std::uint32_t mask = 0;  // XOR: bit 23 - d stands for packet base + d
    std::uint8_t media = 0;  // Reed-Solomon: number of media packets, which are consecutive
    std::uint8_t count = 1;  // FEC packets that the sender made for the group
    std::uint8_t index = 0;  // which of them this is
};

// Reads the header of `scheme`, or returns nothing when the packet cannot be one of it.
std::optional<FecHeader> readFecHeader(kit::FecScheme scheme, const RtpView& packet);

class CFecGroups {
public:
    struct Counts {
        std::uint64_t complete = 0;     // every media packet arrived
        std::uint64_t repairable = 0;   // as many FEC packets as media packets are missing, or more
        std::uint64_t lost = 0;         // more are missing
        std::uint64_t rebuildable = 0;  // media packets missing in repairable groups
        std::uint64_t missing = 0;      // media packets missing in lost groups
    };

    // Files an FEC packet; `sequence` is its own. Settles groups whose media packets have long passed.
    void add(const FecHeader& header, std::uint16_t sequence, std::chrono::nanoseconds time,
             const CSequenceTracker* media);

    // Settles every group. Without the media stream each group counts as lost.
    void finish(const CSequenceTracker* media);

    const Counts& counts() const { return m_counts; }

    // The packets that FEC can rebuild, at the time when the last FEC packet of their group arrived.
    const CTimeline& repairs() const { return m_repairs; }

private:
    struct Group {
        FecHeader header;
        std::uint16_t first;  // sequence number of the group's first FEC packet
        std::bitset<256> indexes;
        std::chrono::nanoseconds time;
    };

    bool isSame(const Group& group, const FecHeader& header, std::uint16_t first) const;
    bool isPast(const Group& group, const CSequenceTracker& media) const;
    void settle(const Group& group, const CSequenceTracker* media);
    std::uint64_t countMissing(const Group& group, const CSequenceTracker& media) const;

    std::deque<Group> m_open;  // in order of arrival
    Counts m_counts;
    CTimeline m_repairs;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_FECGROUPS_H

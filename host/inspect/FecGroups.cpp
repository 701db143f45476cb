#include "inspect/FecGroups.h"

#include <algorithm>

namespace talrtp::host::inspect {

namespace {

constexpr int kMaskBits = kit::kMaxXorGroup;

// RFC 2733, 3.3. The mask names the base itself, which is the lowest number of the group; E is 0.
std::optional<FecHeader> readXorHeader(const RtpView& packet) {
    constexpr std::size_t kSize = 12;
    const kit::BytesView bytes = packet.afterHeader;
    if (bytes.size() < kSize || (bytes[4] & 0x80) != 0 || (bytes[5] & 0x80) == 0) {
        return std::nullopt;
    }
    FecHeader header;
    header.base = kit::readBig16(bytes, 0);
    header.mask = kit::readBig32(bytes, 4) & 0xffffff;
    return header;
}

std::optional<FecHeader> readRsHeader(const RtpView& packet) {
    constexpr std::size_t kSize = 8;
    const kit::BytesView bytes = packet.afterHeader;
    if (bytes.size() < kSize) {
        return std::nullopt;
    }
    FecHeader header;
    header.base = kit::readBig16(bytes, 0);
    header.index = bytes[4];
    header.count = bytes[5];
    header.media = bytes[6];
    const bool isGroup = header.index < header.count && header.media > 0 &&
                         header.media + header.count <= kit::kMaxReedSolomonPackets;
    return isGroup && bytes[7] == 0 ? std::optional(header) : std::nullopt;
}

// Calls `visit(distance)` for each media packet of the group, counted from the base.
template <typename Visit>
void forEachMember(const FecHeader& header, Visit visit) {
    for (int distance = 0; distance < header.media; ++distance) {
        visit(distance);
    }
    for (int distance = 0; header.mask != 0 && distance < kMaskBits; ++distance) {
        if ((header.mask >> (kMaskBits - 1 - distance) & 1) != 0) {
            visit(distance);
        }
    }
}

}  // namespace

std::optional<FecHeader> readFecHeader(kit::FecScheme scheme, const RtpView& packet) {
    switch (scheme) {
        case kit::FecScheme::kXor:
            return readXorHeader(packet);
        case kit::FecScheme::kReedSolomon:
            return readRsHeader(packet);
        case kit::FecScheme::kNone:
            break;
    }
    return std::nullopt;
}

void CFecGroups::add(const FecHeader& header, std::uint16_t sequence, std::chrono::nanoseconds time,
                     const CSequenceTracker* media) {
    constexpr std::size_t kMaxOpen = 256;
    const auto first = static_cast<std::uint16_t>(sequence - header.index);
    const auto found = std::find_if(m_open.rbegin(), m_open.rend(),
                                    [&](const Group& group) { return isSame(group, header, first); });
    if (found != m_open.rend()) {
        found->indexes.set(header.index);
        found->time = time;
        return;
    }
    m_open.push_back({header, first, {}, time});
    m_open.back().indexes.set(header.index);
    // The group itself may be past already.
    const auto isDue = [&] {
        return m_open.size() > kMaxOpen || (media != nullptr && isPast(m_open.front(), *media));
    };
    while (!m_open.empty() && isDue()) {
        settle(m_open.front(), media);
        m_open.pop_front();
    }
}

void CFecGroups::finish(const CSequenceTracker* media) {
    for (const Group& group : m_open) {
        settle(group, media);
    }
    m_open.clear();
}

bool CFecGroups::isSame(const Group& group, const FecHeader& header, std::uint16_t first) const {
    return group.header.base == header.base && group.header.mask == header.mask &&
           group.header.media == header.media && group.header.count == header.count && group.first == first;
}

// A group waits for packets that arrive late, and is settled while the tracker still remembers its numbers.
bool CFecGroups::isPast(const Group& group, const CSequenceTracker& media) const {
    constexpr std::int64_t kPatience = CSequenceTracker::kWindow / 2;
    return media.highest() - media.extend(group.header.base) > kPatience;
}

std::uint64_t CFecGroups::countMissing(const Group& group, const CSequenceTracker& media) const {
    const std::int64_t base = media.extend(group.header.base);
    std::uint64_t missing = 0;
    forEachMember(group.header, [&](int distance) { missing += media.has(base + distance) ? 0 : 1; });
    return missing;
}

void CFecGroups::settle(const Group& group, const CSequenceTracker* media) {
    if (media == nullptr) {
        ++m_counts.lost;
        return;
    }
    const std::uint64_t missing = countMissing(group, *media);
    if (missing == 0) {
        ++m_counts.complete;
    } else if (missing <= group.indexes.count()) {
        ++m_counts.repairable;
        m_counts.rebuildable += missing;
        m_repairs.at(group.time).rebuildable += missing;
    } else {
        ++m_counts.lost;
        m_counts.missing += missing;
    }
}

}  // namespace talrtp::host::inspect

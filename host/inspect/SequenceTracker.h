// Sequence numbers of one stream: extended beyond 16 bits, and told new, reordered or doubled.

#ifndef TALRTP_HOST_INSPECT_SEQUENCETRACKER_H
#define TALRTP_HOST_INSPECT_SEQUENCETRACKER_H

#include <bitset>
#include <cstddef>
#include <cstdint>

namespace talrtp::host::inspect {

class CSequenceTracker {
public:
    enum class Order {
        kNew,        // beyond the highest number
        kReordered,  // below it, and not seen before
        kDoubled,
        kStray,  // far off; the next number after it would make it a restart
    };

    struct Place {
        Order order;
        std::int64_t number;  // of no meaning for kStray
    };

    // How far back numbers are remembered.
    static constexpr std::int64_t kWindow = 16384;

    Place place(std::uint16_t sequence) {
        if (!m_hasPackets) {
            m_hasPackets = true;
            m_highest = m_base = sequence;
            return markNew(m_highest);
        }
        const std::int64_t number = extend(sequence);
        if (number > m_highest) {
            return number - m_highest < kMaxDropout ? advance(number) : jump(sequence);
        }
        return m_highest - number < kMaxMisorder ? placeBelow(number) : jump(sequence);
    }

    // The extended number nearest to the highest one.
    std::int64_t extend(std::uint16_t sequence) const {
        const auto distance = static_cast<std::int16_t>(
            static_cast<std::uint16_t>(sequence - static_cast<std::uint64_t>(m_highest)));
        return m_highest + distance;
    }

    // Tells whether packet `number` arrived; one that is no longer remembered did not.
    bool has(std::int64_t number) const {
        return m_hasPackets && number <= m_highest && number > m_highest - kWindow && m_seen[slot(number)];
    }

    std::int64_t highest() const { return m_highest; }
    std::uint64_t arrived() const { return m_arrived; }  // neither doubled nor stray ones
    std::uint64_t stray() const { return m_stray; }
    std::uint64_t doubled() const { return m_doubled; }
    std::uint64_t reordered() const { return m_reordered; }
    std::uint64_t restarts() const { return m_restarts; }
    std::uint64_t lost() const {
        const auto span = m_hasPackets ? static_cast<std::uint64_t>(m_highest - m_base) + 1 : 0;
        return m_expectedBefore + span - m_arrived;
    }

private:
    // RFC 3550, A.1. A packet that is late by more than the library's own patience is rare enough to be one
    // of another stream.
    static constexpr std::int64_t kMaxDropout = 3000;
    static constexpr std::int64_t kMaxMisorder = 3000;
    static constexpr std::int64_t kGapOfRestart = 2 * kWindow;

    static std::size_t slot(std::int64_t number) {
        return static_cast<std::size_t>(static_cast<std::uint64_t>(number) % kWindow);
    }

    Place markNew(std::int64_t number) {
        m_seen[slot(number)] = true;
        ++m_arrived;
        return {Order::kNew, number};
    }

    Place advance(std::int64_t number) {
        for (std::int64_t skipped = m_highest + 1; skipped < number; ++skipped) {
            m_seen[slot(skipped)] = false;
        }
        m_highest = number;
        return markNew(number);
    }

    Place placeBelow(std::int64_t number) {
        if (has(number)) {
            ++m_doubled;
            return {Order::kDoubled, number};
        }
        m_base = number < m_base ? number : m_base;
        markNew(number);
        ++m_reordered;
        return {Order::kReordered, number};
    }

    Place jump(std::uint16_t sequence) {
        const bool isConfirmed = m_hasJumped && sequence == m_afterJump;
        m_hasJumped = !isConfirmed;
        m_afterJump = static_cast<std::uint16_t>(sequence + 1);
        if (!isConfirmed) {
            ++m_stray;
            return {Order::kStray, 0};
        }
        return restart(sequence);
    }

    // Numbers go on far above the old ones, so that nothing old is taken for new; the packet that announced
    // the restart was counted as a stray one.
    Place restart(std::uint16_t sequence) {
        m_expectedBefore += static_cast<std::uint64_t>(m_highest - m_base) + 1;
        ++m_restarts;
        const std::int64_t turns = (m_highest + kGapOfRestart) / 0x10000 + 1;
        m_highest = m_base = turns * 0x10000 + sequence;
        m_seen.reset();
        return markNew(m_highest);
    }

    bool m_hasPackets = false;
    bool m_hasJumped = false;
    std::uint16_t m_afterJump = 0;
    std::int64_t m_base = 0;
    std::int64_t m_highest = 0;
    std::uint64_t m_expectedBefore = 0;  // of the numberings that ended in a restart
    std::uint64_t m_arrived = 0;
    std::uint64_t m_doubled = 0;
    std::uint64_t m_reordered = 0;
    std::uint64_t m_restarts = 0;
    std::uint64_t m_stray = 0;
    std::bitset<static_cast<std::size_t>(kWindow)> m_seen;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_SEQUENCETRACKER_H

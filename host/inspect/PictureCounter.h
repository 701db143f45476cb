// Pictures of one stream, complete and cut, as the arrived packets tell them without FEC.
//
// Packets are looked at in the order of their numbers: they wait in a short queue until their predecessors
// arrived or too many packets wait. A picture ends with the marker or with the next timestamp. It is complete
// when no number is missing from the end of the picture before it to its own end.

#ifndef TALRTP_HOST_INSPECT_PICTURECOUNTER_H
#define TALRTP_HOST_INSPECT_PICTURECOUNTER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

namespace talrtp::host::inspect {

class CPictureCounter {
public:
    struct Packet {
        std::uint32_t timestamp = 0;
        bool hasMarker = false;
        bool continuesUnit = false;  // a fragment other than the first
        std::chrono::nanoseconds time{};
    };

    // Called for a gap: when the packet after it arrived, and how many numbers are missing.
    using OnGap = std::function<void(std::chrono::nanoseconds, std::uint64_t)>;

    // Takes a packet that arrived for the first time.
    void add(std::int64_t number, const Packet& packet, const OnGap& onGap) {
        if (!m_hasPackets) {
            m_hasPackets = true;
            m_next = number;
        }
        if (number < m_next) {
            return;  // its gap was counted
        }
        m_waiting.emplace(number, packet);
        while (!m_waiting.empty() && (m_waiting.begin()->first == m_next || m_waiting.size() > kMaxWaiting)) {
            takeFirst(onGap);
        }
    }

    // The capture ends, or the sender begins anew: whatever waits is looked at. The last picture counts,
    // complete only with its marker.
    void finish(const OnGap& onGap) {
        while (!m_waiting.empty()) {
            takeFirst(onGap);
        }
        if (m_isOpen) {
            m_isWhole = false;
            close();
        }
        m_hasPackets = false;
    }

    std::uint64_t complete() const { return m_complete; }
    std::uint64_t cut() const { return m_cut; }

private:
    static constexpr std::size_t kMaxWaiting = 256;

    void takeFirst(const OnGap& onGap) {
        const auto [number, packet] = *m_waiting.begin();
        m_waiting.erase(m_waiting.begin());
        const bool isAfterGap = number != m_next;
        if (isAfterGap) {
            onGap(packet.time, static_cast<std::uint64_t>(number - m_next));
        }
        take(packet, isAfterGap);
        m_next = number + 1;
    }

    void take(const Packet& packet, bool isAfterGap) {
        if (m_isOpen && packet.timestamp != m_timestamp) {
            m_isWhole = m_isWhole && !isAfterGap;
            close();
        }
        if (!m_isOpen) {
            m_isOpen = true;
            m_isWhole = !packet.continuesUnit;
            m_timestamp = packet.timestamp;
        }
        m_isWhole = m_isWhole && !isAfterGap;
        if (packet.hasMarker) {
            close();
        }
    }

    void close() {
        ++(m_isWhole ? m_complete : m_cut);
        m_isOpen = false;
    }

    std::map<std::int64_t, Packet> m_waiting;
    bool m_hasPackets = false;
    std::int64_t m_next = 0;
    bool m_isOpen = false;
    bool m_isWhole = false;
    std::uint32_t m_timestamp = 0;
    std::uint64_t m_complete = 0;
    std::uint64_t m_cut = 0;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_PICTURECOUNTER_H

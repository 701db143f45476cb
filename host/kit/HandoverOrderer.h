// Puts hand-overs, which come in the order in which units were completed, back into decoding order: by
// picture (RTP timestamp), and within a picture by sequence number. Both may wrap around.
//
// A picture's time has come `waitMs` after its last packet; then the host forces it out of the session, takes
// it from here and plays it:
//
//   orderer.note(timestamp, now);                  // for each media packet, before the session gets it
//   session->InputReceivedData(...);               // the sink calls orderer.push(...)
//   while (orderer.findDue(now, timestamp)) {
//       session->ForceHandover(timestamp);         // the sink calls orderer.push(...)
//       play(orderer.takeFirst());
//   }
//
// What comes for a picture that was taken, or behind one, is refused. The wait is bounded: by the clock, and
// by the number of pictures held, so that forged timestamps cannot fill the memory.

#ifndef TALRTP_HOST_KIT_HANDOVERORDERER_H
#define TALRTP_HOST_KIT_HANDOVERORDERER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace talrtp::kit {

// A hand-over in the host's own memory.
struct Handover {
    std::uint32_t timestamp;
    std::uint16_t sequence;           // of the unit's first packet
    int index;                        // position in an aggregation packet, from 0
    bool isWhole;                     // false when the unit was cut short
    std::vector<std::uint8_t> bytes;  // with start codes
};

class CHandoverOrderer {
public:
    // What is further behind than this, in ticks of the 90 kHz clock, is no straggler but a sender that began
    // anew: 10 seconds.
    static constexpr std::int64_t kRestartDistance = 900000;

    explicit CHandoverOrderer(std::uint64_t waitMs, std::size_t maxPictures = 4096)
        : m_waitMs(waitMs), m_maxPictures(maxPictures) {}

    // Notes that a media packet of the picture came at `nowMs`.
    void note(std::uint32_t timestamp, std::uint64_t nowMs) {
        const std::int64_t key = unwrapTimestamp(timestamp);
        if (!isLate(key)) {
            setLast(key, nowMs);
        }
    }

    // Takes a hand-over that came at `nowMs`. Returns false, and drops it, when its picture was taken already
    // or when the same unit came before.
    bool push(Handover handover, std::uint64_t nowMs) {
        const std::int64_t key = unwrapTimestamp(handover.timestamp);
        if (isLate(key)) {
            return false;
        }
        setLast(key, nowMs);
        HeldPicture& picture = m_pictures[key];
        if (picture.units.empty()) {
            picture.firstSequence = handover.sequence;
        }
        const std::int16_t distance = static_cast<std::int16_t>(handover.sequence - picture.firstSequence);
        return picture.units.emplace(UnitKey(distance, handover.index), std::move(handover)).second;
    }

    // Finds the first picture in decoding order if its time has come or that of any picture behind it.
    bool findDue(std::uint64_t nowMs, std::uint32_t& timestamp) const {
        const bool isFull = m_pictures.size() > m_maxPictures;
        const bool isDue = !m_byLastPacket.empty() && nowMs >= m_byLastPacket.begin()->first + m_waitMs;
        return (isDue || isFull) && findFirst(timestamp);
    }

    // Finds the first picture in decoding order, for the end of a stream.
    bool findFirst(std::uint32_t& timestamp) const {
        if (m_pictures.empty()) {
            return false;
        }
        timestamp = static_cast<std::uint32_t>(m_pictures.begin()->first);
        return true;
    }

    // Returns the hand-overs of the first picture in decoding order and closes the picture.
    std::vector<Handover> takeFirst() {
        std::vector<Handover> taken;
        if (m_pictures.empty()) {
            return taken;
        }
        const auto first = m_pictures.begin();
        for (auto& unit : first->second.units) {
            taken.push_back(std::move(unit.second));
        }
        m_byLastPacket.erase({first->second.lastMs, first->first});
        m_hasTaken = true;
        m_lastTaken = first->first;
        m_pictures.erase(first);
        return taken;
    }

    std::size_t pictureCount() const { return m_pictures.size(); }

private:
    using UnitKey = std::pair<int, int>;  // distance from the sequence number that came first, index

    struct HeldPicture {
        std::uint64_t lastMs = 0;
        std::uint16_t firstSequence = 0;
        std::map<UnitKey, Handover> units;
    };

    void setLast(std::int64_t key, std::uint64_t nowMs) {
        HeldPicture& picture = m_pictures[key];
        m_byLastPacket.erase({picture.lastMs, key});
        picture.lastMs = nowMs;
        m_byLastPacket.emplace(nowMs, key);
    }

    // Returns the timestamp on a line that does not wrap, next to the latest one seen.
    std::int64_t unwrapTimestamp(std::uint32_t timestamp) {
        if (!m_hasReference) {
            m_hasReference = true;
            m_reference = timestamp + (std::int64_t{1} << 32);
        }
        const std::uint32_t distance = timestamp - static_cast<std::uint32_t>(m_reference);
        const std::int64_t unwrapped = m_reference + static_cast<std::int32_t>(distance);
        m_reference = unwrapped;
        return unwrapped;
    }

    bool isLate(std::int64_t key) const {
        return m_hasTaken && key <= m_lastTaken && m_lastTaken - key < kRestartDistance;
    }

    std::uint64_t m_waitMs;
    std::size_t m_maxPictures;
    std::map<std::int64_t, HeldPicture> m_pictures;                   // by unwrapped timestamp
    std::set<std::pair<std::uint64_t, std::int64_t>> m_byLastPacket;  // time of the last packet, key
    bool m_hasReference = false;
    std::int64_t m_reference = 0;  // the latest timestamp seen, unwrapped
    bool m_hasTaken = false;
    std::int64_t m_lastTaken = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_HANDOVERORDERER_H

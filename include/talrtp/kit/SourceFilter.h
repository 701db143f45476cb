// Holds a receiver to one source.

#ifndef TALRTP_KIT_SOURCEFILTER_H
#define TALRTP_KIT_SOURCEFILTER_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Demux.h>
#include <talrtp/kit/Time.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace talrtp::kit {

// A datagram put aside until the next one shows what it was.
class KeptDatagram {
public:
    // Copies the datagram and its sequence number.
    void keep(BytesView datagram, std::uint16_t sequence) {
        m_bytes.assign(datagram.begin(), datagram.end());
        m_next = static_cast<std::uint16_t>(sequence + 1);
        m_isKept = true;
    }
    // Forgets the datagram.
    void drop() { m_isKept = false; }

    // Tells whether one is kept that has the number before `sequence`.
    bool isContinuedBy(std::uint16_t sequence) const { return m_isKept && m_next == sequence; }

    // Returns the datagram and keeps it no more.
    std::vector<std::uint8_t> release() {
        m_isKept = false;
        return std::move(m_bytes);
    }

private:
    bool m_isKept = false;
    std::uint16_t m_next = 0;
    std::vector<std::uint8_t> m_bytes;
};

// Decides whose packets are taken. Unless the source was given, the first one is taken at once, and confirmed
// by its second packet. Until then, and after a silence of the source, another source with two packets in
// sequence takes its place (RFC 3550, A.1: a source is valid after two packets in sequence).
class SourceFilter {
public:
    // The decision about one packet.
    enum class Verdict {
        kTake,      // a packet of the source
        kOther,     // a packet of another source
        kTakeOver,  // a new source: begin anew, with the datagram that was kept and then with this one
    };

    // `given`: the source to hold to, if it is known. `timeout`: the silence after which another may take its
    // place.
    SourceFilter(std::optional<std::uint32_t> given, std::chrono::milliseconds timeout)
        : m_ssrc(given), m_isGiven(given.has_value()), m_timeout(timeout) {}

    // Returns the source, once there is one.
    std::optional<std::uint32_t> ssrc() const { return m_ssrc; }

    // `datagram`: a valid RTP packet. `isFec`: its payload type is that of FEC packets, which never make a
    // new source. `now` never steps back.
    Verdict judge(BytesView datagram, bool isFec, TimePoint now) {
        const std::uint32_t ssrc = readBig32(datagram, 8);
        if (!m_ssrc) {
            m_ssrc = ssrc;
            return Verdict::kTake;
        }
        if (*m_ssrc == ssrc) {
            m_isConfirmed = true;
            m_lastHeard = now;
            return Verdict::kTake;
        }
        const bool isOpen = !m_isGiven && (!m_isConfirmed || now - m_lastHeard >= m_timeout);
        return isOpen && !isFec ? judgeOther(datagram, ssrc, now) : Verdict::kOther;
    }

    // After kTakeOver: returns the first datagram of the new source.
    std::vector<std::uint8_t> releaseFirst() { return m_candidate.release(); }

private:
    // Another source could take over.
    Verdict judgeOther(BytesView datagram, std::uint32_t ssrc, TimePoint now) {
        const std::uint16_t sequence = readBig16(datagram, 2);
        if (m_candidateSsrc != ssrc || !m_candidate.isContinuedBy(sequence)) {
            m_candidateSsrc = ssrc;
            m_candidate.keep(datagram, sequence);
            return Verdict::kOther;
        }
        m_ssrc = ssrc;
        m_isConfirmed = true;
        m_lastHeard = now;
        return Verdict::kTakeOver;
    }

    std::optional<std::uint32_t> m_ssrc;
    bool m_isGiven;
    bool m_isConfirmed = false;
    std::chrono::milliseconds m_timeout;
    TimePoint m_lastHeard{};  // of a confirmed source
    std::uint32_t m_candidateSsrc = 0;
    KeptDatagram m_candidate;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SOURCEFILTER_H

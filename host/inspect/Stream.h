// One RTP stream of a capture: the packets of one source and payload type from one endpoint to another.

#ifndef TALRTP_HOST_INSPECT_STREAM_H
#define TALRTP_HOST_INSPECT_STREAM_H

#include "inspect/FecGroups.h"
#include "inspect/H264Payload.h"
#include "inspect/PictureCounter.h"
#include "inspect/Timeline.h"

#include <talrtp/kit/ReceptionReport.h>

#include <array>
#include <tuple>

namespace talrtp::host::inspect {

enum class StreamKind { kOther, kH264, kXorFec, kReedSolomonFec };

struct StreamKey {
    Endpoint from;
    Endpoint to;
    std::uint32_t ssrc = 0;
    std::uint8_t payloadType = 0;

    friend bool operator<(const StreamKey& a, const StreamKey& b) {
        return std::tie(a.from, a.to, a.ssrc, a.payloadType) < std::tie(b.from, b.to, b.ssrc, b.payloadType);
    }
};

class CStream {
public:
    CStream(const StreamKey& key, std::uint32_t clockRate) : m_key(key), m_reception(key.ssrc, clockRate) {}

    // Counts a packet of the stream. `time` is since the start of the capture; `media` is the stream of the
    // same source that FEC packets would protect, or null.
    void add(const Datagram& datagram, const RtpView& packet, std::chrono::nanoseconds time,
             const CStream* media);

    // The capture ended.
    void finish(const CStream* media);

    const StreamKey& key() const { return m_key; }
    const CSequenceTracker& sequences() const { return m_sequences; }
    const CPictureCounter& pictures() const { return m_pictures; }
    const CFecGroups& groups(kit::FecScheme scheme) const {
        return scheme == kit::FecScheme::kXor ? m_xorGroups : m_rsGroups;
    }
    const CTimeline& timeline() const { return m_timeline; }

    std::uint64_t packets() const { return m_packets; }
    std::uint64_t bytes() const { return m_bytes; }
    std::uint64_t cutPackets() const { return m_cutPackets; }  // of which the capture holds only a part
    std::uint32_t jitter() const { return m_reception.jitter(); }
    double bitsPerSecond() const;
    std::chrono::nanoseconds first() const { return m_first; }
    std::chrono::nanoseconds last() const { return m_last; }
    // Units by type, each fragmented one at its first fragment.
    const std::array<std::uint64_t, 32>& units() const { return m_units; }
    std::uint64_t single() const { return m_single; }
    std::uint64_t aggregates() const { return m_aggregates; }
    std::uint64_t fragments() const { return m_fragments; }

    // The kind by the form of the payloads.
    StreamKind guess() const;
    // A stream is one when its numbers follow each other.
    bool isLikely() const { return m_sequences.arrived() >= 3 && m_sequences.stray() * 4 <= m_packets; }
    bool looksLikeH264() const;

private:
    CFecGroups& groups(kit::FecScheme scheme) {
        return scheme == kit::FecScheme::kXor ? m_xorGroups : m_rsGroups;
    }

    void addH264(const Datagram& datagram, const RtpView& packet, std::int64_t number,
                 std::chrono::nanoseconds time);
    void countUnits(const H264Payload& payload, const RtpView& packet, bool isCut);
    void addFec(kit::FecScheme scheme, const RtpView& packet, std::chrono::nanoseconds time,
                const CStream* media);

    StreamKey m_key;
    CSequenceTracker m_sequences;
    CPictureCounter m_pictures;
    CFecGroups m_xorGroups;
    CFecGroups m_rsGroups;
    CTimeline m_timeline;
    kit::ReceptionReport m_reception;
    std::uint64_t m_packets = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_cutPackets = 0;
    std::uint64_t m_h264 = 0;  // packets whose payload could be H.264
    std::uint64_t m_xor = 0;   // and FEC of either kind
    std::uint64_t m_rs = 0;
    std::uint64_t m_looked = 0;  // packets whose payload was looked at
    std::array<std::uint64_t, 32> m_units{};
    std::uint64_t m_single = 0;
    std::uint64_t m_aggregates = 0;
    std::uint64_t m_fragments = 0;
    std::chrono::nanoseconds m_first{};
    std::chrono::nanoseconds m_last{};
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_STREAM_H

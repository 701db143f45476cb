// Sorts the frames of a capture into RTP streams and RTCP, and counts the rest. Memory stays bounded however
// long the capture is and whatever it holds.

#ifndef TALRTP_HOST_INSPECT_INSPECTOR_H
#define TALRTP_HOST_INSPECT_INSPECTOR_H

#include "inspect/Frame.h"
#include "inspect/RtcpSources.h"
#include "inspect/Stream.h"

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace talrtp::host::inspect {

struct InspectorOptions {
    // The facts about the capture from the user or an SDP. The inspector finds the rest in the payloads.
    std::optional<unsigned int> payloadType;
    std::optional<unsigned int> fecPayloadType;
    std::optional<kit::FecScheme> fec;
    std::optional<kit::Form> rtcp = kit::Form::kRfc3550;  // none: RTCP is not read
    std::uint32_t clockRate = 90000;
    std::optional<std::uint32_t> ssrc;  // of the main stream; the largest unless given
};

class CInspector {
public:
    struct Counts {
        std::uint64_t frames = 0;
        std::uint64_t datagrams = 0;
        std::uint64_t cutDatagrams = 0;  // captured in part
        std::uint64_t fragments = 0;     // of IP packets; left out
        std::uint64_t malformed = 0;
        std::uint64_t otherFrames = 0;
        std::uint64_t rtcp = 0;            // RTCP datagrams
        std::uint64_t otherDatagrams = 0;  // neither RTP nor RTCP
        std::uint64_t untracked = 0;       // RTP by its first bytes, of more streams than are kept
    };

    explicit CInspector(const InspectorOptions& options);

    // Takes a frame that was captured `time` after 1970.
    void add(LinkLayer link, kit::BytesView bytes, std::chrono::nanoseconds time);

    // The capture ended: settles what waits, and drops streams of a packet or two.
    void finish();

    const Counts& counts() const { return m_counts; }
    std::chrono::nanoseconds duration() const { return m_duration; }
    const std::optional<CRtcpSources>& rtcp() const { return m_rtcp; }

    // The streams, the larger ones first.
    std::vector<const CStream*> streams() const;
    StreamKind kindOf(const CStream& stream) const;

    // The H.264 stream to plot and replay, or null; and the FEC stream of the same source, or null.
    const CStream* mainStream() const;
    const CStream* fecStreamOf(const CStream& media) const;

private:
    void addDatagram(const Datagram& datagram, std::chrono::nanoseconds time);
    void addRtp(const Datagram& datagram, const RtpView& packet, std::chrono::nanoseconds time);
    bool isTakenForMedia(const CStream& stream) const;
    CStream* streamAt(const StreamKey& key);
    bool makeRoom();
    const CStream* mediaOf(const StreamKey& key) const;

    InspectorOptions m_options;
    Counts m_counts;
    std::map<StreamKey, std::unique_ptr<CStream>> m_streams;
    std::optional<CRtcpSources> m_rtcp;
    std::optional<std::chrono::nanoseconds> m_start;
    std::chrono::nanoseconds m_duration{};
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_INSPECTOR_H

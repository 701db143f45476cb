// How a `Receiver` reads a stream and when it plays.

#ifndef TALRTP_KIT_RECEIVEROPTIONS_H
#define TALRTP_KIT_RECEIVEROPTIONS_H

#include <talrtp/kit/Fec.h>
#include <talrtp/kit/SenderOptions.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::kit {

// The options of a `Receiver`, each with a default that suits most streams.
struct ReceiverOptions {
    FecScheme fec = FecScheme::kReedSolomon;  // how FEC packets are read, if any arrive
    unsigned int payloadType = 98;            // of media packets
    unsigned int fecPayloadType = 111;        // of FEC packets

    // The source to hold to; unless set, the first that stays.
    std::optional<std::uint32_t> ssrc;
    // The sequence number of the first media packet, if the signalling names it (RTP-Info of RTSP, RFC 2326,
    // 12.33). Then what is lost or late before the first packet that arrives is a gap like any other. Unless
    // set, and after the sender began anew or another source took over, the stream begins where it is joined.
    std::optional<std::uint16_t> firstSequence;
    // After this silence of the source, another SSRC can take its place, unless `ssrc` is set.
    std::chrono::milliseconds sourceTimeout{2000};

    // How long a gap holds up the pictures from it on, counted from its first sign. FEC and late packets fill
    // a gap in that time. A complete picture whose predecessors were played never waits.
    std::chrono::milliseconds wait{200};

    // Parameter sets (NAL units without start code) that arrived outside of the stream, such as in an SDP.
    // They are played before the first picture that does not bring its own.
    std::vector<std::vector<std::uint8_t>> parameterSets;

    // Returns an empty string, or what is wrong with which value.
    std::string check() const {
        std::string problem = SenderOptions::checkPayloadTypes(payloadType, fecPayloadType);
        if (problem.empty()) {
            problem = checkTimes();
        }
        return problem.empty() ? checkParameterSets() : problem;
    }

private:
    // A session keeps packets for 5 seconds; a wait must leave room for the group that fills the gap.
    static constexpr std::chrono::milliseconds kMaxWait{4000};

    std::string checkTimes() const {
        if (wait.count() < 0 || wait > kMaxWait) {
            return "a wait is 0 to 4000 ms, not " + std::to_string(wait.count());
        }
        if (sourceTimeout.count() < 1) {
            return "a source timeout is at least 1 ms, not " + std::to_string(sourceTimeout.count());
        }
        return {};
    }

    std::string checkParameterSets() const {
        for (const std::vector<std::uint8_t>& unit : parameterSets) {
            if (unit.empty()) {
                return "a parameter set is empty";
            }
        }
        return {};
    }
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RECEIVEROPTIONS_H

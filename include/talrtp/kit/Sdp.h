// The session description of one H.264 stream: where it is sent, how its payload is packed, its parameter
// sets, and its FEC flow.
//
//   kit::Sdp sdp = kit::Sdp::fromParameterSets(spsAndPps);
//   sdp.address = "127.0.0.1";
//   sdp.port = 5004;
//   file << sdp.write();
//
//   const kit::SdpResult result = kit::Sdp::read(text);
//   if (!result.sdp) { log(result.error); }
//   receiverOptions.parameterSets = result.sdp->parameterSets;
//
// ffmpeg and GStreamer read what write() returns: they play the video and leave the FEC flow alone. read()
// takes the descriptions of others. RFC 8866; RFC 6184, 8.2.

#ifndef TALRTP_KIT_SDP_H
#define TALRTP_KIT_SDP_H

#include <talrtp/kit/Base64.h>
#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Fec.h>
#include <talrtp/kit/NalUnit.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace talrtp::kit {

struct SdpResult;

// A session description as a record.
struct Sdp {
    std::string sessionName;          // may be empty
    std::string address;              // IPv4, IPv6 or host name to which the stream is sent
    int port = 0;                     // of the media; 0 in descriptions that leave it to a later setup
    unsigned int payloadType = 98;    // 0..127
    std::uint32_t clockRate = 90000;  // of the RTP timestamps, in Hz
    std::string profileLevelId;       // 6 hexadecimal digits, or empty
    int packetizationMode = 1;        // 0: single NAL units only; 1: STAP-A and FU-A too
    std::vector<std::vector<std::uint8_t>> parameterSets;  // SPS, PPS, without start codes
    std::optional<int> rtcpPort;                           // none: the port after the media's
    FecScheme fec = FecScheme::kNone;                      // how FEC packets are made, if the stream has any
    int fecPort = 0;                                       // with a scheme only; another one than `port`
    unsigned int fecPayloadType = 111;                     // of the FEC flow
    std::optional<double> frameRate;                       // pictures per second, kept to six decimals
    std::optional<std::uint32_t> ssrc;                     // of the media packets
    int ttl = 1;  // 0..255; means something for an IPv4 multicast address only

    // Returns a description that holds `sets`, any range of NAL units that convert to BytesView, and the
    // profile and level of the first SPS among them. Address and port are left to the caller.
    template <typename Units>
    static Sdp fromParameterSets(const Units& sets);

    // Returns an empty text, or which value no description can carry and why.
    std::string check() const;

    // Returns the description with CRLF at every line's end, or an empty text when check() finds a fault.
    //
    // The FEC flow is a medium of its own: `m=application`, with the encoding name x-talrtp-rs-fec or
    // x-talrtp-xor-fec, grouped with the video by FEC-FR (RFC 5956).
    std::string write() const;

    // Reads a description: lines that end with LF or CRLF, several media, addresses of the session or of the
    // medium. Takes the first medium that is H.264 video over RTP/AVP or RTP/AVPF. Lines that it does not
    // know are skipped; lines that it needs and cannot read end it with an error that names the line and the
    // value. Any bytes are safe to read.
    static SdpResult read(std::string_view text);
};

// The outcome of a read: a description, or an error.
struct SdpResult {
    std::optional<Sdp> sdp;  // the description, if the text holds one
    std::string error;       // empty when there is a description
};

// Descriptions are equal when all of their fields are.
inline bool operator==(const Sdp& a, const Sdp& b) {
    return a.sessionName == b.sessionName && a.address == b.address && a.port == b.port &&
           a.payloadType == b.payloadType && a.clockRate == b.clockRate &&
           a.profileLevelId == b.profileLevelId && a.packetizationMode == b.packetizationMode &&
           a.parameterSets == b.parameterSets && a.rtcpPort == b.rtcpPort && a.fec == b.fec &&
           a.fecPort == b.fecPort && a.fecPayloadType == b.fecPayloadType &&
           a.frameRate.has_value() == b.frameRate.has_value() && a.ssrc == b.ssrc && a.ttl == b.ttl &&
           !(a.frameRate.value_or(0) < b.frameRate.value_or(0)) &&
           !(b.frameRate.value_or(0) < a.frameRate.value_or(0));
}

template <typename Units>
Sdp Sdp::fromParameterSets(const Units& sets) {
    constexpr std::size_t kProfileAndLevel = 4;  // the unit's header, profile, constraints, level
    constexpr std::string_view kDigits = "0123456789abcdef";
    Sdp sdp;
    for (const auto& set : sets) {
        const BytesView unit = set;
        sdp.parameterSets.emplace_back(unit.begin(), unit.end());
        const bool isSps = unit.size() >= kProfileAndLevel && nalType(unit) == kNalSps;
        for (std::size_t i = 1; isSps && sdp.profileLevelId.size() < 6; ++i) {
            sdp.profileLevelId += kDigits[unit[i] >> 4];
            sdp.profileLevelId += kDigits[unit[i] & 0xf];
        }
    }
    return sdp;
}

}  // namespace talrtp::kit

#include <talrtp/kit/SdpReader.h>
#include <talrtp/kit/SdpWriter.h>

#endif  // TALRTP_KIT_SDP_H

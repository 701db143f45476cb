// The receiving host: guards the session, collects what it hands over, and gives out picture by picture, in
// decoding order, when each one's time has come.

#ifndef TALRTP_HOST_LOOPBACK_RECEIVER_H
#define TALRTP_HOST_LOOPBACK_RECEIVER_H

#include "kit/HandoverOrderer.h"
#include "loopback/Session.h"

#include <talrtp/kit/StapUnitCutter.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace talrtp::host {

class CReceiver : private ITalRTPSessionSink {
public:
    // Takes the units of one picture, in decoding order.
    using Play = std::function<void(std::uint32_t timestamp, const std::vector<kit::Handover>& units)>;

    // `waitMs`: how long after a picture's last packet its time has come.
    CReceiver(kit::FecScheme scheme, std::uint64_t waitMs, Play play);

    // Takes a datagram that came at `nowMs`.
    void receive(const std::vector<std::uint8_t>& datagram, std::uint64_t nowMs);

    // Plays the pictures whose time has come at `nowMs`.
    void advance(std::uint64_t nowMs);

    // Plays what is left and ends the session.
    void finish();

    // Hand-overs for a picture that was played already, or of a unit that came before.
    std::uint64_t refusedCount() const { return m_refusedCount; }

    // Packets that the session rebuilt from FEC, by its own count; known after `finish`.
    std::uint64_t rebuiltCount() const { return m_rebuiltCount; }

private:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override;
    void play(std::uint32_t timestamp);

    CSession m_session;
    Play m_play;
    kit::StapUnitCutter m_cutter;
    kit::CHandoverOrderer m_orderer;
    std::uint64_t m_nowMs = 0;
    std::uint64_t m_refusedCount = 0;
    std::uint64_t m_rebuiltCount = 0;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_RECEIVER_H

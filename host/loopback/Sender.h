// The sending host: packs pictures into RTP packets and protects them with FEC.

#ifndef TALRTP_HOST_LOOPBACK_SENDER_H
#define TALRTP_HOST_LOOPBACK_SENDER_H

#include "kit/FecPlan.h"
#include "kit/PacketArray.h"
#include "kit/PackingPlan.h"
#include "kit/PictureGrouper.h"
#include "loopback/Session.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::host {

struct SenderOptions {
    int mtu = 1200;  // the largest RTP packet, FEC packets included
    bool isAggregating = true;
    kit::FecShape fec;
};

// What a sender makes, in the order in which it is to be sent.
class ISenderOutput {
public:
    virtual ~ISenderOutput() = default;

    // A picture begins; `packets` are its media packets and `steps` how its units lie in them. All borrowed.
    virtual void onPicture(std::uint32_t timestamp, const kit::Picture& picture,
                           const std::vector<kit::PackStep>& steps, CTalRtpPacket* packets) = 0;
    // The next media packet of the picture.
    virtual void onMediaPacket(CTalRtpPacket& packet) = 0;
    // The last `mediaCount` media packets but `sentSince` are a group; its FEC packets follow.
    virtual void onFecGroup(int mediaCount, std::size_t sentSince) = 0;
    virtual void onFecPacket(CTalRtpPacket& packet) = 0;
};

class CSender {
public:
    // More packets for one picture would come too close to where sequence numbers repeat.
    static constexpr std::size_t kMaxPicturePackets = 8192;

    // Borrows `output` for its own life.
    CSender(const SenderOptions& options, ISenderOutput& output);

    // Sends one picture, whose units RTP can carry. Throws CHostError when it needs too many packets.
    void send(std::uint32_t timestamp, const kit::Picture& picture);

    // Protects what is left.
    void finish();

private:
    using PacketArray = kit::CPacketArray<CTalRtpPacket>;

    void beginRun(std::size_t newPackets);
    void makePackets(std::uint32_t timestamp, const kit::Picture& picture,
                     const std::vector<kit::PackStep>& steps, CTalRtpPacket* packets);
    void aggregate(std::uint32_t timestamp, const kit::Picture& picture, const kit::PackStep& step,
                   CTalRtpPacket* packet);
    void sendRun(std::size_t alreadySent, bool isLast);
    void protect(CTalRtpPacket* packets, int count, std::size_t sentSince);
    void protectWithXor(CTalRtpPacket* packets, int count);
    void protectWithReedSolomon(CTalRtpPacket* packets, int count);

    SenderOptions m_options;
    ISenderOutput& m_output;
    int m_maxMediaPacket;
    kit::CPackingPlanner m_packing;
    kit::CFecPlanner m_grouping;
    CSession m_session;
    PacketArray m_run;  // media packets that wait for their FEC; sent already, except within `send`
    std::size_t m_unprotected = 0;  // how many of m_run count: all, or none when it was protected
    PacketArray m_parity;           // Reed-Solomon FEC packets of one group
    CRTPFECPacket m_xorPacket;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_SENDER_H

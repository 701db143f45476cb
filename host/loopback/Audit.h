// Keeps account of what was sent until it is known what became of it, and compares what was delivered with
// it, bit for bit. It decides for itself, from the losses alone, what could arrive: a unit could when each of
// its packets came or is one that FEC can rebuild.

#ifndef TALRTP_HOST_LOOPBACK_AUDIT_H
#define TALRTP_HOST_LOOPBACK_AUDIT_H

#include "kit/FecPlan.h"
#include "kit/HandoverOrderer.h"
#include "kit/PackingPlan.h"
#include "kit/PictureGrouper.h"

#include <talrtp/TalRtpPacket.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace talrtp::host {

struct AuditCounts {
    std::uint64_t units = 0;        // = whole + cut + missing
    std::uint64_t whole = 0;        // delivered, bit for bit
    std::uint64_t cut = 0;          // delivered as far as they go without a gap
    std::uint64_t missing = 0;      // not delivered
    std::uint64_t couldArrive = 0;  // of which every packet came or could be rebuilt
    std::uint64_t lostPackets = 0;  // media packets; = rebuildable + notRebuildable
    std::uint64_t rebuildable = 0;  // by the FEC packets that came
    std::uint64_t notRebuildable = 0;
    std::uint64_t wrong = 0;  // hand-overs that are no unit sent, or differ from it, or out of order
    std::uint64_t arrivedButUndelivered = 0;  // units that could arrive and were not delivered whole

    // Every unit that could arrive did, and nothing else was delivered as if it were whole.
    bool isGood() const { return wrong == 0 && arrivedButUndelivered == 0 && whole == couldArrive; }
};

class CAudit {
public:
    explicit CAudit(kit::FecScheme scheme) : m_scheme(scheme) {}

    // Notes a picture, its units and its media packets before they are sent. All borrowed.
    void addPicture(std::uint32_t timestamp, const kit::Picture& picture,
                    const std::vector<kit::PackStep>& steps, const CTalRtpPacket* packets);
    // Notes what becomes of the next media packet, in the order of the pictures.
    void addMediaPacket(bool comes);
    // The last `mediaCount` media packets but `sentSince` are a group.
    void addGroup(int mediaCount, std::size_t sentSince);
    // Notes what becomes of the next FEC packet of the last group.
    void addFecPacket(bool comes);

    // Compares what was delivered of a picture, in the order of delivery. Pictures before it that were not
    // delivered count as missing.
    void close(std::uint32_t timestamp, const std::vector<kit::Handover>& delivered);
    // Counts what was never delivered as missing.
    void finish();

    const AuditCounts& counts() const { return m_counts; }

private:
    struct Group {
        int lostMedia = 0;
        int fecThatCame = 0;
    };

    struct Packet {
        bool isSent = false;
        bool comes = false;
        std::shared_ptr<Group> group;  // none without FEC
    };

    struct Unit {
        kit::NalUnit bytes;
        std::uint16_t sequence;   // of its first packet
        int index;                // in its aggregation packet
        std::size_t firstPacket;  // position in the picture
        std::size_t packetCount;
    };

    struct SentPicture {
        std::uint32_t timestamp;
        std::vector<Unit> units;
        std::size_t packetCount;
    };

    void closeFront(const std::vector<kit::Handover>& delivered);
    void countPackets(std::size_t count);
    bool couldCome(const Packet& packet) const;
    bool couldArrive(const Unit& unit) const;
    void compare(const Unit& unit, const kit::Handover* delivered);

    kit::FecScheme m_scheme;
    std::deque<SentPicture> m_pictures;  // open ones, in sending order
    std::deque<Packet> m_packets;        // of the open pictures
    std::size_t m_sentPackets = 0;       // of m_packets
    std::shared_ptr<Group> m_lastGroup;
    AuditCounts m_counts;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_AUDIT_H

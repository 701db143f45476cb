// Keeps account of what was sent until it is known what became of it, and compares what was delivered with
// it, bit for bit. It decides for itself, from the losses alone, what could arrive: a unit could when each of
// its packets arrived or is one that FEC can rebuild. How units lie in packets, and packets in FEC groups, it
// reads off the datagrams.

#ifndef TALRTP_HOST_LOOPBACK_AUDIT_H
#define TALRTP_HOST_LOOPBACK_AUDIT_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Datagram.h>
#include <talrtp/kit/Fec.h>
#include <talrtp/kit/Picture.h>

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
    std::uint64_t couldArrive = 0;  // of which every packet arrived or could be rebuilt
    std::uint64_t lostPackets = 0;  // media packets; = rebuildable + notRebuildable
    std::uint64_t rebuildable = 0;  // by the FEC packets that arrived
    std::uint64_t notRebuildable = 0;
    std::uint64_t wrong = 0;                  // units played that were not sent, differ, or are out of order
    std::uint64_t arrivedButUndelivered = 0;  // units that could arrive and were not delivered whole

    // Every unit that could arrive did, and nothing else was delivered as if it were whole.
    bool isGood() const { return wrong == 0 && arrivedButUndelivered == 0 && whole == couldArrive; }
};

class CAudit {
public:
    explicit CAudit(kit::FecScheme scheme) : m_scheme(scheme) {}

    // Notes the units of a picture before its packets are sent. Borrowed.
    void addPicture(std::uint32_t timestamp, const std::vector<kit::BytesView>& units);
    // Notes the next media packet of that picture, and whether it arrives. Borrowed.
    void addMediaPacket(const kit::Datagram& datagram, bool arrives);
    // Notes an FEC packet, and whether it arrives, after the media packets that it protects. Borrowed.
    // Packets of closed pictures count as arrived: a picture is closed before its FEC only when it was
    // complete.
    void addFecPacket(const kit::Datagram& datagram, bool arrives);

    // Compares a picture that was played with the one sent. It is found by its timestamp; each unit must
    // equal a unit sent with a sequence number of the picture played, in order, or be the beginning of one
    // when it is cut. Pictures before it that were not played count as missing.
    void close(const kit::Picture& played);
    // Counts what was never delivered as missing.
    void finish();

    const AuditCounts& counts() const { return m_counts; }

private:
    struct Group {
        std::uint16_t firstSequence = 0;
        int lostMedia = 0;
        int fecThatArrived = 0;
    };

    struct Packet {
        std::uint16_t sequence;
        bool arrives;
        std::shared_ptr<Group> group;  // none without FEC
    };

    struct Unit {
        std::vector<std::uint8_t> bytes;
        std::uint16_t sequence = 0;   // of its first packet
        std::size_t firstPacket = 0;  // position in the picture
        std::size_t packetCount = 0;
    };

    struct SentPicture {
        std::uint32_t timestamp;
        std::vector<Unit> units;
        std::size_t begunUnits = 0;  // of which a packet was noted
        std::size_t packetCount = 0;
    };

    void beginUnits(SentPicture& picture, std::uint16_t sequence, int count);
    void beginGroup(const std::vector<std::uint16_t>& sequences);
    std::vector<std::uint16_t> protectedBy(kit::BytesView fecPacket) const;
    void closeFront(const kit::Picture* played);
    std::vector<std::size_t> match(const SentPicture& sent, const kit::Picture& played) const;
    bool isMatch(const Unit& sent, const kit::Picture& played, std::size_t i) const;
    bool canBecome(const Unit& unit, bool isWhole) const;
    void countPackets(std::size_t count);
    bool couldCome(const Packet& packet) const;
    bool couldArrive(const Unit& unit) const;
    void countUnit(const Unit& unit, bool isPlayed, bool isWhole);

    kit::FecScheme m_scheme;
    std::deque<SentPicture> m_pictures;  // open ones, in sending order
    std::deque<Packet> m_packets;        // of the open pictures, with consecutive numbers
    std::shared_ptr<Group> m_lastGroup;
    AuditCounts m_counts;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_AUDIT_H

// A session of the library, owned, with read access to its documented members.

#ifndef TALRTP_KIT_SESSIONHANDLE_H
#define TALRTP_KIT_SESSIONHANDLE_H

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpSession.h>
#include <talrtp/kit/Statistics.h>

#include <cstdint>

namespace talrtp::kit {

// Reaches the documented members of a session.
//
// These are protected, for derived classes. A derived class may form pointers to them, which then
// reach into any session: the session itself stays one of the library's class, which is the faster
// one.
class SessionMembers : public CMMRTPSession4SVC {
public:
    // Returns the member that lists the media packets.
    static auto mediaPacketList() { return &SessionMembers::m_mediaPacketList; }
    // Returns the member that counts the rebuilt media packets.
    static auto recoveredMediaPacketNumber() { return &SessionMembers::m_recoveredMediaPacketNumber; }
    // Returns the member that holds the next media sequence number.
    static auto sequenceNumber() { return &SessionMembers::m_sequenceNumber; }
    // Returns the member that holds the next FEC sequence number.
    static auto fecSequenceNumber() { return &SessionMembers::m_fecSequenceNumber; }

    // Adds the counters of the session `from` to `sum`.
    static void addCounters(const CMMRTPSessionBase& from, Statistics& sum) {
        sum.createdMediaPacketNumber += from.*(&SessionMembers::m_createdMediaPacketNumber);
        sum.createdFECPacketNumber += from.*(&SessionMembers::m_createdFECPacketNumber);
        sum.receivedPacketNumber += from.*(&SessionMembers::m_receivedPacketNumber);
        sum.receivedPacketBytes += from.*(&SessionMembers::m_receivedPacketBytes);
        sum.receivedMediaPacketNumber += from.*(&SessionMembers::m_receivedMediaPacketNumber);
        sum.receivedValidMediaPacketNumber += from.*(&SessionMembers::m_receivedValidMediaPacketNumber);
        sum.receivedValidMediaPacketBytes += from.*(&SessionMembers::m_receivedValidMediaPacketBytes);
        sum.receivedFECPacketNumber += from.*(&SessionMembers::m_receivedFECPacketNumber);
        sum.receivedValidFECPacketNumber += from.*(&SessionMembers::m_receivedValidFECPacketNumber);
        sum.receivedValidFECPacketBytes += from.*(&SessionMembers::m_receivedValidFECPacketBytes);
        sum.recoveredMediaPacketNumber += from.*(&SessionMembers::m_recoveredMediaPacketNumber);
        sum.recoveredMediaPacketBytes += from.*(&SessionMembers::m_recoveredMediaPacketBytes);
        sum.deliveredDataBytes += from.*(&SessionMembers::m_deliveredDataBytes);
    }
};

// Owns a session of the library's class, made by `TalCreateRTPSession`.
class SessionHandle {
public:
    // Borrows `sink`, which may be null, for its own life. `ssrc`: of the packets that it makes.
    SessionHandle(ITalRTPSessionSink* sink, std::uint32_t ssrc) {
        constexpr unsigned int kRtpVersion = 2;
        TalCreateRTPSession(&m_session, sink, ssrc, kRtpVersion);
    }
    ~SessionHandle() { TalDestroyRTPSession(m_session); }
    SessionHandle(const SessionHandle&) = delete;
    SessionHandle& operator=(const SessionHandle&) = delete;

    // Returns the session, which the handle owns.
    ITalRTPSession* operator->() const { return m_session; }

    // **Lends** the stored media packet with that sequence number, or null.
    CTalRtpPacket* findMediaPacket(std::uint16_t sequence) const {
        const CMMRTPSessionBase::PacketMap& list = documented().*Members::mediaPacketList();
        const auto found = list.find(sequence);
        return found == list.end() ? nullptr : found->second;
    }

    // The first sequence number of the stored media packets, of which there is one at least. They span less
    // than half of the numbers, so after a wrap-around the first ones are in the upper half.
    std::uint16_t firstMediaSequence() const {
        constexpr std::uint16_t kHalf = 0x8000;
        const CMMRTPSessionBase::PacketMap& list = documented().*Members::mediaPacketList();
        const bool isWrapped = list.rbegin()->first - list.begin()->first >= kHalf;
        return (isWrapped ? list.lower_bound(kHalf) : list.begin())->first;
    }

    // Returns the number of media packets that FEC rebuilt.
    std::uint64_t recoveredCount() const { return documented().*Members::recoveredMediaPacketNumber(); }

    // The sequence numbers of the next packets made.
    // Sets `media`, the number of the next media packet.
    void setNextSequence(std::uint16_t media) { documented().*Members::sequenceNumber() = media; }
    // Sets `fec`, the number of the next FEC packet.
    void setNextFecSequence(std::uint16_t fec) { documented().*Members::fecSequenceNumber() = fec; }

    // Adds the thirteen counters of the session to `sum`.
    void addCountersTo(Statistics& sum) const { Members::addCounters(documented(), sum); }

private:
    using Members = SessionMembers;

    // `TalCreateRTPSession` makes a CMMRTPSession4SVC, whose virtual table and documented members are binary
    // interface.
    CMMRTPSessionBase& documented() const { return static_cast<CMMRTPSessionBase&>(*m_session); }

    ITalRTPSession* m_session = nullptr;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SESSIONHANDLE_H

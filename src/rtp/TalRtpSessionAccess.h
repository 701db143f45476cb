// The steps of a session that its public header does not show, in the order in which a packet meets them.

#ifndef TALRTP_SRC_TALRTPSESSIONACCESS_H
#define TALRTP_SRC_TALRTPSESSIONACCESS_H

#include <talrtp/TalRtpSession.h>

#include <memory>

namespace talrtp {

// The one friend of both session classes: reaches their members and hooks for the library's sources.
class CSessionAccess {
public:
    // **Lends** the stores of a session as they are.
    static CReceiveIndex& index(const CMMRTPSessionBase& session) { return *session.m_index; }

    // --- The receive lists, which a derived class may change: TalRtpSessionLists.h ---

    // **Lends** the stores of a session, rebuilt if somebody else changed a list. Throws std::bad_alloc when
    // memory is short for that, as all of these.
    static CReceiveIndex& lists(const CMMRTPSessionBase& session);
    // The same after an entry was read, rebuilt unless it held what the stores know.
    static CReceiveIndex& listsIf(const CMMRTPSessionBase& session, bool isTrue);
    // The same for a question about a timestamp.
    static CReceiveIndex& listsFor(const CMMRTPSessionBase& session, _uint32_t timestamp);
    // The same for a question about the media packets of `count` numbers.
    static CReceiveIndex& listsAround(const CMMRTPSessionBase& session, _uint16_t first, unsigned int count);
    // The same for a question about all FEC packets.
    static CReceiveIndex& listsForFec(const CMMRTPSessionBase& session);
    // **Lends** the media packet stored under `seq`, or null.
    static CTalRtpPacket* mediaPacket(const CMMRTPSessionBase& session, _uint16_t seq);
    // Looks whether a list was changed by somebody else, and rebuilds the stores then.
    static void refreshLists(const CMMRTPSessionBase& session);
    static void rebuildLists(const CMMRTPSessionBase& session);
    // Asks the hooks which packets start and end a unit.
    static void askUnitBounds(CMMRTPSessionBase& session);

    // --- The rules: TalRtpSessionRules.h ---

    struct stStockRules;
    struct stHostRules;

    // Records a stored packet under its timestamp and in its unit. **Lends** the unit's record; null when its
    // start is not known.
    template <typename Rules>
    static stTalRtpDataInfo* record(const Rules& rules, _uint32_t timestamp, _uint16_t seq);

    // --- Sending: TalRtpSessionSend.cpp ---

    // Writes the header of the next media packet.
    static void writeHeader(CMMRTPSessionBase& session, unsigned long timestamp, CTalRtpPacket& packet);

    // --- Receiving: TalRtpSession.cpp ---

    // Counts a datagram, valid or not. Its time is that of everything that it causes.
    static void countDatagram(CMMRTPSessionBase& session, int size, unsigned long receivedTimeMs);
    // **Returns owned** a valid packet over a copy of `data`, of the class that payload type and FEC type
    // require. Null, with an ERROR line, for anything else.
    static std::unique_ptr<CTalRtpPacket> parseDatagram(const CMMRTPSessionBase& session, unsigned char* data,
                                                        int size);
    // **Takes** a valid packet to the path of its payload type. Returns what `InputReceivedData` does.
    static int routePacket(CMMRTPSessionBase& session, std::unique_ptr<CTalRtpPacket> packet);

    // **Takes** a media packet that is new: stores it, counts it, records it, deals it. When it cannot be
    // stored and recorded, since memory is short or a host's hook throws, `owned` keeps it, nothing is
    // counted, and the exception passes.
    static void takeMediaPacket(CMMRTPSessionBase& session, std::unique_ptr<CTalRtpPacket>& owned,
                                _uint64_t& counter, _uint64_t& byteCounter);
    // Hands over the units of a timestamp that were not. Returns what `ForceHandover` does.
    static int handOverUnits(CMMRTPSessionBase& session, _uint32_t timestamp);

    // --- The FEC cycle: TalRtpSessionFec.cpp ---

    // Tries every stored FEC packet that may have something new to rebuild, in ascending order.
    static void retryFecPackets(CMMRTPSessionBase& session);
    // Tries one stored FEC packet and drops it once it is spent.
    static void retryFecPacket(CMMRTPSessionBase& session, _uint16_t seq);
    // Feeds the rebuilt packets into the media path. Returns whether one of them was new. An exception of the
    // host leaves those that were not dealt yet for the next time.
    static bool dealRecoveredPackets(CMMRTPSessionBase& session);
    // **Takes** one rebuilt packet, unless memory is short. Returns whether it was new.
    static bool dealRecoveredPacket(CMMRTPSessionBase& session, CTalRtpPacket* packet, bool& isRefused);
    // Takes the rebuilt packets below `end` out of their list.
    static void forgetRecovered(CMMRTPSessionBase& session, unsigned int end);
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPSESSIONACCESS_H

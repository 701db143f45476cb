// What a session keeps beside its documented lists so that the work for one datagram does not grow with what
// was received before it:
//
//   sequence number -> media packet, its list node and the record of the unit that it starts
//   sequence number -> nearest start packet before it, nearest end packet behind it (unit runs)
//   FEC sequence number -> FEC packet, its list nodes, the group that it waits for
//   the unit whose packets arrive in order now
//   timestamps by the time of their last packet
//
// The documented lists stay the owners of everything; the index holds pointers and iterators into them.

#ifndef TALRTP_SRC_TALRTPRECEIVEINDEX_H
#define TALRTP_SRC_TALRTPRECEIVEINDEX_H

#include <talrtp/TalRtpSession.h>

#include <iterator>

#include "TalRtpFecWaiting.h"
#include "TalRtpHandover.h"
#include "TalRtpSequenceSet.h"

namespace talrtp {

// Fetches into the caches what will be read or written soon. Any address is allowed.
inline void prefetch(const void* address) {
    __builtin_prefetch(address, 1);
}

// A timestamp's record with its place in the list of timestamps and in the order of ageing.
struct stTalRtpTSRecord : stTalRtpTSInfo {
    stTalRtpTSRecord(_uint32_t rtpTimestamp, _uint64_t receivedTime, CNodePool* pool)
        : stTalRtpTSInfo(receivedTime, pool), timestamp(rtpTimestamp), older(nullptr), newer(nullptr) {}

    const _uint32_t timestamp;
    CMMRTPSessionBase::TSInfoMap::iterator entry;
    stTalRtpTSRecord* older;
    stTalRtpTSRecord* newer;
};

// All timestamps, ordered by the time of their last packet.
class CAgeOrder {
public:
    explicit CAgeOrder(_uint64_t& steps) : m_steps(steps) {}

    stTalRtpTSRecord* oldest() const { return m_oldest; }
    stTalRtpTSRecord* newest() const { return m_newest; }

    // Files `record` by its update time. The search begins at the record filed last, so it takes no step
    // while the host's clock runs forward, and few when it stepped back.
    void insert(stTalRtpTSRecord* record);
    void remove(stTalRtpTSRecord* record);
    // Files a record anew under `time`.
    void touch(stTalRtpTSRecord* record, _uint64_t time) {
        if (record == m_newest && record->updateTime <= time) {  // nearly always
            record->updateTime = time;
            m_lastFiled = record;
        } else if (record->updateTime != time) {
            remove(record);
            record->updateTime = time;
            insert(record);
        }
    }

private:
    _uint64_t& m_steps;
    stTalRtpTSRecord* m_oldest = nullptr;
    stTalRtpTSRecord* m_newest = nullptr;
    stTalRtpTSRecord* m_lastFiled = nullptr;
};

struct stMediaSlot {
    CTalRtpPacket* packet;  // null: nothing is stored under this number
    CMMRTPSessionBase::PacketMap::iterator entry;
    // The record of the unit that starts here, and the timestamp that it is kept under. Several timestamps
    // can have one, since a unit is found across timestamps; this is the one used last.
    stTalRtpDataInfo* unit;
    const stTalRtpTSRecord* unitOwner;
};

// The unit whose packets arrive in order now.
struct stOpenUnit {
    stTalRtpDataInfo* unit;
    const stTalRtpTSRecord* owner;  // null: none
    _uint16_t next;                 // the number behind the packets that it has, all of them stored
};

struct stFecSlot {
    CTalRtpPacket* packet;  // null: nothing is stored under this number
    CMMRTPSessionBase::PacketMap::iterator entry;
    stTalRtpTSRecord* owner;  // whose list of FEC numbers notes the packet; null while none does
    stTalRtpTSInfo::SeqList::iterator note;
};

class CReceiveIndex {
public:
    CReceiveIndex();

    // Steps taken over lists, the index and FEC groups so far; tests bound their growth for each datagram.
    _uint64_t steps = 0;
    // Bytes multiplied to rebuild packets so far.
    _uint64_t products = 0;
    // Counts a search in an ordered map of `size` entries.
    void countSearch(std::size_t size) { steps += 64 - static_cast<unsigned int>(__builtin_clzll(size | 1)); }

    // Memory was refused since the host's call began, so that call fails.
    bool isShort = false;
    // The sink is being called: an exception is the host's own.
    bool isInSink = false;

    // --- Media packets and their runs ---

    // Notes a packet just stored; `starts` and `ends` say whether it starts and ends a unit.
    void addMedia(_uint16_t seq, CTalRtpPacket* packet, CMMRTPSessionBase::PacketMap::iterator entry);
    void setUnitBounds(_uint16_t seq, bool starts, bool ends);
    void removeMedia(_uint16_t seq);
    // Notes that a media packet is at hand, stored or rebuilt, or is not any more.
    void know(_uint16_t seq);
    void forget(_uint16_t seq);
    // Fetches what a walk over a run, now at `seq`, will read: the packet, and packet objects some numbers
    // behind it.
    void prefetchRun(_uint16_t seq) const;
    // Fetches what ageing will touch of the packets some numbers behind `seq`, which has not been in the
    // caches for seconds.
    void prefetchBehind(_uint16_t seq) const;

    // The start packet nearest to `seq`, at it or before it, in a run without gap.
    bool findStart(_uint16_t seq, _uint16_t& start) const;
    // The end packet nearest to `start`, at it or behind it, in a run without gap; else `end` is the last of
    // the run.
    bool findEnd(_uint16_t start, _uint16_t& end) const;

    // Where an entry for `seq` belongs in the list whose numbers `stored` holds: the entry behind it.
    template <typename Table>
    static CMMRTPSessionBase::PacketMap::iterator placeFor(_uint16_t seq, CMMRTPSessionBase::PacketMap& list,
                                                           const CSequenceSet& stored, const Table& slots) {
        if (list.empty() || list.rbegin()->first < seq) {
            return list.end();
        }
        _uint16_t behind;
        return stored.findUpward(seq, behind) ? slots.peek(behind).entry : list.end();
    }

    CSlotTable<stMediaSlot> media;
    CSequenceSet mediaNumbers;  // stored media packets
    CSequenceSet knownNumbers;  // stored media packets, and rebuilt ones that are not dealt yet
    stOpenUnit openUnit = stOpenUnit();

    // --- FEC packets ---

    void removeFec(_uint16_t seq);
    // Fetches what a try will read, and its end will touch, of the FEC packets some numbers after `seq`.
    void prefetchFecAfter(_uint16_t seq) const;

    CSlotTable<stFecSlot> fec;
    CSequenceSet fecNumbers;                // stored FEC packets
    CFecWaiting waiting;                    // which of them may have something new to give
    _uint32_t fecTypeAtStore = RTP_FEC_RS;  // of the FEC packet stored last
    bool retryEveryFec = false;             // FEC packets of both kinds may be stored

    // Tells whether FEC packets are worth a try, now that the session's FEC type is `fecType`.
    bool hasFecWork(_uint32_t fecType) const {
        return waiting.hasReady() || retryEveryFec || fecTypeAtStore != fecType;
    }

    // --- Timestamps ---

    CAgeOrder ageOrder;
    stTalRtpTSRecord* lastRecord = nullptr;  // the one used last

    // --- Hand-over ---

    CHandoverBuffer handover;

private:
    CSequenceSet m_startStops;  // numbers at which a search for a start ends: starts, and numbers not stored
    CSequenceSet m_endStops;    // numbers at which a search for an end ends: ends, and numbers not stored
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPRECEIVEINDEX_H

// The FEC packets of a session that may still help, and which of them are worth another try. The session's
// list owns the packets; the store finds them and their notes in constant time.

#ifndef TALRTP_SRC_RECEIVE_FECSTORE_H
#define TALRTP_SRC_RECEIVE_FECSTORE_H

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpRecords.h>

#include "AgeOrder.h"
#include "FecWaiting.h"
#include "NumberTable.h"
#include "StepMeter.h"

namespace talrtp {

class CFecStore {
public:
    typedef CTalRtpPacketMap List;

    // Borrows all for its life. `list` is empty; `media` holds the numbers of the available media packets.
    CFecStore(List& list, CNumberSet media, stStepMeter& meter)
        : m_list(list), m_meter(meter), m_waiting(media, numbers(), meter.steps) {}

    // Forgets everything and learns the packets of the list and the notes in `records`; every packet is due.
    // Throws std::bad_alloc when memory is short, with part of them learned.
    void rebuild(const CTalRtpTSInfoMap& records);
    // Returns whether the entry of `seq` holds the packet that the store knows there.
    bool isTrue(_uint16_t seq) const {
        const Slot& slot = m_slots.peek(seq);
        return slot.packet == nullptr || slot.entry->second == slot.packet;
    }
    // Returns the same for the first `kReach` entries of the list, those that hold null included.
    __attribute__((noinline)) bool isTrue() const;
    static constexpr unsigned int kReach = 1024;

    // **Lends** the packet stored under `seq`, or null.
    CTalRtpPacket* find(_uint16_t seq) const { return m_slots.peek(seq).packet; }
    // The numbers of stored packets.
    CNumberSet numbers() const { return {m_slots, kStored}; }

    // **Takes** a packet under a number that has none, while the session's FEC type is `fecType`. Throws
    // std::bad_alloc when memory is short: the packet is either destroyed or stored without a group.
    void add(_uint16_t seq, CTalRtpPacket* packet, _uint32_t fecType);
    // Destroys the packet stored under `seq`, if there is one.
    void remove(_uint16_t seq);
    // Destroys all packets. The records that note them may be gone.
    void clear();

    // Notes `seq` in the list of FEC numbers of `record`. Throws std::bad_alloc when memory is short.
    void note(stTalRtpTSInfo* record, _uint16_t seq);
    // Forgets the first note of `seq` in that list, if there is one.
    void forgetNote(stTalRtpTSInfo* record, _uint16_t seq);

    // A media packet became available, or is not available any more.
    void mediaArrived(_uint16_t seq) { m_waiting.mediaArrived(seq); }
    void mediaLeft(_uint16_t seq) { m_waiting.mediaLeft(seq); }

    // Returns whether packets are worth a try, now that the session's FEC type is `fecType`.
    bool hasWork(_uint32_t fecType) const {
        return m_waiting.hasReady() || m_isEveryDue || m_typeAtAdd != fecType;
    }
    // Returns whether each packet will be due in the next round.
    bool isEveryDue() const { return m_isEveryDue; }
    // Begins a round of tries in ascending order. It passes over packets that wait for more than has arrived,
    // since a try would change nothing, unless the FEC type changed: packets of the other kind are spent.
    // Returns whether every packet is due.
    bool beginRound(_uint32_t fecType);
    // Finds the next packet of such a round, from `seq` on. False when there is none.
    bool findNextTry(bool isEveryDue, _uint16_t& seq) const;
    // Lets a packet wait again whose try failed.
    void waitAgain(_uint16_t seq) { m_waiting.waitAgain(seq); }
    // Fetches what a try will read, and its end will touch, of the packets some numbers after `seq`.
    void prefetchAfter(_uint16_t seq) const;

private:
    enum : unsigned int { kStored };

    struct Slot {
        CTalRtpPacket* packet;  // null: nothing is stored under this number
        List::iterator entry;
        stTalRtpTSInfo* owner;  // whose list of FEC numbers notes the packet; null while none does
        stTalRtpTSInfo::SeqList::iterator note;
    };

    void fileGroup(_uint16_t seq, const CTalRtpPacket& packet);
    void learnNotes(stTalRtpTSInfo* record);
    void eraseNote(stTalRtpTSInfo::SeqList& notes, stTalRtpTSInfo::SeqList::iterator note);
    void erase(_uint16_t seq);

    List& m_list;
    stStepMeter& m_meter;
    CNumberTable<Slot> m_slots;  // claimed while a packet is stored
    CFecWaiting m_waiting;
    _uint32_t m_typeAtAdd = RTP_FEC_RS;  // of the packet added last
    bool m_isEveryDue = false;           // packets of both kinds may be stored
    bool m_isOdd = false;  // a packet is stored under another number than its own: only tries find out more
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_FECSTORE_H

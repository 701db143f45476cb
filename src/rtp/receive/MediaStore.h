// The media packets of a session and the runs that they form. The session's list owns the packets; the store
// finds them, and the ends of their runs, in constant time:
//
//   number        7    8    9   10   11   12   13        F fragment, S its start, E its end,
//   stored        S    F    F         S    E    U        U whole unit, 10 is missing
//   findStart     7    7    7    -   11   11   13
//   findEnd       9!   9!   9!   -   12   12   13        ! no end: the last of the run
//
// A search for a start walks down to the first *start stop*: a start, or a number without packet. A search
// for an end walks up to the first *end stop*. Rebuilt packets that are not dealt yet are known but not
// stored.

#ifndef TALRTP_SRC_RECEIVE_MEDIASTORE_H
#define TALRTP_SRC_RECEIVE_MEDIASTORE_H

#include <talrtp/TalRtpRecords.h>

#include "AgeOrder.h"
#include "NumberTable.h"
#include "OwnNodes.h"
#include "StepMeter.h"

namespace talrtp {

class CMediaStore {
public:
    typedef CTalRtpPacketMap List;

    // Borrows all for its life. `list` is empty.
    CMediaStore(List& list, stStepMeter& meter) : m_list(list), m_meter(meter) {}

    // Forgets everything and learns the packets of the list, each a whole unit; with `keepsBounds` those that
    // were known already keep their bounds. Throws std::bad_alloc when memory is short, with part of them
    // learned.
    void rebuild(bool keepsBounds);
    // Returns whether the entry of `seq` holds the packet that the store knows there.
    bool isTrue(_uint16_t seq) const {
        const Slot& slot = m_slots.peek(seq);
        return slot.packet == nullptr || slot.entry->second == slot.packet;
    }
    // Returns the same for the packets that a search for the start of a unit at `from` passes, the nearest
    // `kReach` of them.
    bool isTrueDownwards(_uint16_t from) const;
    // Returns the same for a search for the end of a unit from `start` on.
    bool isTrueUpwards(_uint16_t start) const;
    static constexpr unsigned int kReach = 1024;

    // **Lends** the packet stored under `seq`, or null.
    CTalRtpPacket* find(_uint16_t seq) const { return m_slots.peek(seq).packet; }
    bool contains(_uint16_t seq) const { return m_slots.contains(kStored, seq); }
    // Returns whether every number has a packet.
    bool isFull() const { return m_list.size() == CNumberSets::kNumbers; }

    // **Takes** a packet, which may start and end a unit, under a number that has none. Returns whether the
    // number was unknown before. Throws std::bad_alloc when memory is short; the packet stays the caller's.
    bool add(_uint16_t seq, CTalRtpPacket* packet, bool starts, bool ends);
    // Tells anew whether a packet starts and ends a unit. Does nothing unless `seq` is stored.
    void setUnitBounds(_uint16_t seq, bool starts, bool ends);
    // Gives up `packet`, that of the entry of `seq`, which the caller **owns** then; the number is not known
    // any more. Returns false when nothing was stored.
    bool release(_uint16_t seq, CTalRtpPacket*& packet);
    // Destroys the packet stored under `seq`; the number is not known any more. Returns false when there was
    // none.
    bool remove(_uint16_t seq) {
        CTalRtpPacket* packet;
        if (!release(seq, packet)) {
            return false;
        }
        delete packet;
        return true;
    }
    // Destroys all packets.
    void clear();
    // Finds the lowest stored number from `seq` on, without wrap-around; false when there is none.
    bool findStored(_uint16_t seq, _uint16_t& found) const { return m_slots.findUpward(kStored, seq, found); }
    // Notes that the packet of a number was rebuilt. Returns whether the number was unknown before. Throws
    // std::bad_alloc when memory is short.
    bool know(_uint16_t seq);
    // Notes that a rebuilt packet is gone. Returns false, and does nothing, unless the number was known and
    // is not stored.
    bool forget(_uint16_t seq);
    // The numbers of stored and of rebuilt packets.
    CNumberSet known() const { return {m_slots, kKnown}; }

    // Finds the start packet nearest to `seq`, at it or before it, in a run without gap. False, with `start`
    // unchanged, when there is none.
    bool findStart(_uint16_t seq, _uint16_t& start) const;
    // Finds the end packet nearest to `start`, at it or after it, in a run without gap. When there is none,
    // `end` is the last of the run. False then, and when `start` is not stored, with `end` unchanged.
    bool findEnd(_uint16_t start, _uint16_t& end) const;

    // **Lends** the record of the unit that starts at `seq`, if it is the one that was set last and is kept
    // under `owner`; else null.
    stTalRtpDataInfo* unitOf(_uint16_t seq, const stTalRtpTSInfo* owner) const {
        const Slot& slot = m_slots.peek(seq);
        return slot.unitOwner == owner ? slot.unit : nullptr;
    }
    // Borrows the record of the unit that starts at `seq` until `forgetUnit`. Several timestamps can have
    // one, since a unit is found across timestamps; the one set last is kept. Does nothing unless `seq` is
    // stored.
    void setUnit(_uint16_t seq, stTalRtpDataInfo* unit, const stTalRtpTSInfo* owner);
    // Forgets the record of the unit that starts at `seq` if it is kept under `owner`.
    void forgetUnit(_uint16_t seq, const stTalRtpTSInfo* owner);

    // Fetches what a walk over a run, now at `seq`, will read: the packet, and packet objects some numbers
    // after it.
    void prefetchRun(_uint16_t seq) const;
    // Fetches what ageing will touch of the packets some numbers after `seq`, which nobody touched for
    // seconds.
    void prefetchAgeing(_uint16_t seq) const;

private:
    enum : unsigned int { kStored, kKnown, kStartStops, kEndStops };
    static unsigned int setsOfStored(bool starts, bool ends) {
        return 1u << kStored | 1u << kKnown | unsigned(starts) << kStartStops | unsigned(ends) << kEndStops;
    }

    struct Slot {
        CTalRtpPacket* packet;  // null: nothing is stored under this number
        List::iterator entry;
        stTalRtpDataInfo* unit;
        const stTalRtpTSInfo* unitOwner;
    };

    List& m_list;
    stStepMeter& m_meter;
    CNumberTable<Slot> m_slots;  // claimed while the number is known
};

// Here, so that ageing, which releases packet after packet, has it without a call.
inline bool CMediaStore::release(_uint16_t seq, CTalRtpPacket*& packet) {
    const Slot& slot = m_slots.peek(seq);
    if (slot.packet == nullptr) {
        return false;
    }
    packet = slot.entry->second;
    const COwnNodes own(m_list.get_allocator().pool());
    m_list.extract(slot.entry);  // as erase, without the search for the next one
    m_slots.release(seq);
    return true;
}

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_MEDIASTORE_H

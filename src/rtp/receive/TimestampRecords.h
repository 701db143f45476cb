// The records of a session's timestamps and of their units. The session's list owns them; the store finds
// them, keeps them in the order in which they age out, and knows the unit whose packets arrive in order now.

#ifndef TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H
#define TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H

#include <talrtp/TalRtpRecords.h>

#include "AgeOrder.h"
#include "MediaStore.h"
#include "StepMeter.h"

namespace talrtp {

class CTimestampRecords {
public:
    typedef CTalRtpTSInfoMap List;

    // Borrows all for its life. `list` is empty; `pool` holds the records and the nodes of their lists.
    CTimestampRecords(List& list, CMediaStore& media, CNodePool* pool, stStepMeter& meter)
        : m_list(list), m_media(media), m_pool(pool), m_meter(meter), m_order(meter) {}

    // --- Timestamps ---

    // **Lends** the record of `timestamp`, or null.
    stTalRtpTSRecord* find(_uint32_t timestamp) const;
    // The same, made now if there is none; null when the list holds a null record. Throws std::bad_alloc when
    // memory is short.
    stTalRtpTSRecord* findOrMake(_uint32_t timestamp, _uint64_t now);
    // Sets the time of the last packet.
    void touch(stTalRtpTSRecord* record, _uint64_t now) { m_order.touch(record, now); }
    // Notes a media packet under its timestamp. **Lends** the record as `findOrMake` does.
    stTalRtpTSRecord* noteMedia(_uint32_t timestamp, _uint16_t seq, _uint64_t now);
    // Forgets the media packet that was noted last, if it is `seq`.
    void forgetLastMedia(_uint32_t timestamp, _uint16_t seq);
    // Frees a record with the records of its units. Nobody looks at its FEC notes any more.
    void remove(stTalRtpTSRecord* record);
    // Frees all records.
    void clear();

    const CAgeOrder& order() const { return m_order; }

    // --- Units ---

    // **Lends** the record of the unit that starts at `startSeq`, or null.
    stTalRtpDataInfo* findUnit(const stTalRtpTSRecord* record, _uint16_t startSeq) const;
    // The same, made now if there is none; null when the map holds a null record. Throws std::bad_alloc when
    // memory is short.
    stTalRtpDataInfo* findOrMakeUnit(stTalRtpTSRecord* record, _uint16_t startSeq);
    // Extends a unit to `endSeq`, unless it reaches further already.
    static void grow(stTalRtpDataInfo& unit, _uint16_t endSeq, bool isComplete);
    // Records a packet just stored in its unit, whose start and end `rules` finds. **Lends** the unit's
    // record; null when its start is not known, or for a null record. Throws std::bad_alloc when memory is
    // short. Rules that ask no hooks find the ends of the media store's runs, so a packet that arrives in
    // order extends its unit without a search.
    template <typename Rules>
    stTalRtpDataInfo* growUnitOf(stTalRtpTSRecord* record, _uint16_t seq, const Rules& rules);
    // A stored packet is gone, so no unit grows in order any more.
    void closeUnit() { m_open = OpenUnit(); }

private:
    // The unit whose packets arrive in order now.
    struct OpenUnit {
        stTalRtpDataInfo* unit;
        const stTalRtpTSRecord* owner;  // null: none
        _uint16_t next;                 // the number after its packets, all of them stored
    };

    void freeRecord(stTalRtpTSRecord* record);

    List& m_list;
    CMediaStore& m_media;
    CNodePool* const m_pool;
    stStepMeter& m_meter;
    CAgeOrder m_order;
    stTalRtpTSRecord* m_last = nullptr;  // the one used last
    OpenUnit m_open = OpenUnit();
};

template <typename Rules>
stTalRtpDataInfo* CTimestampRecords::growUnitOf(stTalRtpTSRecord* record, _uint16_t seq, const Rules& rules) {
    if (record == nullptr) {
        return nullptr;
    }
    const _uint16_t next = static_cast<_uint16_t>(seq + 1);
    if (!Rules::kAsksHooks && m_open.owner == record && m_open.next == seq && !rules.starts(seq) &&
        !m_media.contains(next)) {
        stTalRtpDataInfo* const unit = m_open.unit;
        const bool ends = rules.ends(seq);
        grow(*unit, seq, ends);
        m_open = ends ? OpenUnit() : OpenUnit{unit, record, next};
        return unit;
    }
    _uint16_t start = 0;
    if (!rules.findStart(seq, start)) {
        return nullptr;
    }
    stTalRtpDataInfo* const unit = findOrMakeUnit(record, start);
    if (unit == nullptr || unit->complete) {
        return unit;
    }
    _uint16_t end = 0;
    const bool isComplete = rules.findEnd(start, end);
    grow(*unit, end, isComplete);
    if (!Rules::kAsksHooks && end == seq && !isComplete) {
        m_open = OpenUnit{unit, record, next};
    }
    return unit;
}

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H

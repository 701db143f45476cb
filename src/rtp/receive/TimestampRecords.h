// The records of a session's timestamps and of their units. The session's list owns them; the store finds
// them, keeps them in the order in which they age out, and knows the unit whose packets arrive in order now.

#ifndef TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H
#define TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H

#include <talrtp/TalRtpRecords.h>

#include "AgeOrder.h"
#include "MediaStore.h"
#include "OwnNodes.h"
#include "StepMeter.h"

namespace talrtp {

class CTimestampRecords {
public:
    typedef CTalRtpTSInfoMap List;

    // Borrows all for its life. `list` is empty; `pool` holds the nodes of the records' lists.
    CTimestampRecords(List& list, CMediaStore& media, CNodePool* pool, stStepMeter& meter)
        : m_list(list), m_media(media), m_pool(pool), m_meter(meter), m_order(meter) {}
    ~CTimestampRecords() { unfileAll(); }
    CTimestampRecords(const CTimestampRecords&) = delete;
    CTimestampRecords& operator=(const CTimestampRecords&) = delete;

    // Forgets everything and learns the records of the list. Throws std::bad_alloc, with nothing changed,
    // when memory is short.
    void rebuild();
    // Lets records of units and of timestamps be remembered, since nobody exchanges them in their places.
    // Until then they are searched in the lists each time.
    void remember() { m_isSearching = false; }
    // Returns whether the entry of a record in the list holds it, under the timestamp that the store knows.
    bool isTrue(const stTalRtpTSInfo* record) const {
        return record->m_keeper == this && record->m_entry->second == record;
    }
    // Returns the same for the record of `timestamp`, and true when there is none.
    bool isTrueAt(_uint32_t timestamp) const;
    // Returns whether a record was destroyed by somebody else since the last `rebuild`.
    bool isBereft() const { return m_isBereft; }
    static _uint32_t timestampOf(const stTalRtpTSInfo* record) { return record->m_timestamp; }

    // --- Timestamps ---

    // **Lends** the record of `timestamp`, or null.
    stTalRtpTSInfo* find(_uint32_t timestamp) const;
    // The same, made now if there is none; null when the list holds a null record. Throws std::bad_alloc when
    // memory is short.
    stTalRtpTSInfo* findOrMake(_uint32_t timestamp, _uint64_t now);
    // Sets the time of the last packet.
    void touch(stTalRtpTSInfo* record, _uint64_t now) { m_order.touch(record, now); }
    // Notes a media packet under its timestamp. **Lends** the record as `findOrMake` does.
    stTalRtpTSInfo* noteMedia(_uint32_t timestamp, _uint16_t seq, _uint64_t now);
    // Forgets the media packet that was noted last, if it is `seq`.
    void forgetLastMedia(_uint32_t timestamp, _uint16_t seq);
    // Frees a record with the records of its units. Nobody looks at its FEC notes any more.
    void remove(stTalRtpTSInfo* record);
    // Frees all records.
    void clear();

    const CAgeOrder& order() const { return m_order; }

    // --- Units ---

    // **Lends** the record of the unit that starts at `startSeq`, or null.
    stTalRtpDataInfo* findUnit(const stTalRtpTSInfo* record, _uint16_t startSeq) const;
    // The same, made now if there is none; null when the map holds a null record. Throws std::bad_alloc when
    // memory is short.
    stTalRtpDataInfo* findOrMakeUnit(stTalRtpTSInfo* record, _uint16_t startSeq);
    // Extends a unit to `endSeq`, unless it reaches further already.
    static void grow(stTalRtpDataInfo& unit, _uint16_t endSeq, bool isComplete);
    // Records a packet just stored in its unit, whose start and end `rules` finds. **Lends** the unit's
    // record; null when its start is not known, or for a null record. Throws std::bad_alloc when memory is
    // short. Rules that ask no hooks find the ends of the media store's runs, so a packet that arrives in
    // order extends its unit without a search. After a hook, which may have changed the lists, `rules` looks
    // the records up again.
    template <typename Rules>
    stTalRtpDataInfo* growUnitOf(stTalRtpTSInfo* record, _uint16_t seq, const Rules& rules);
    // A stored packet is gone, so no unit grows in order any more.
    void closeUnit() { m_open = OpenUnit(); }

private:
    // The unit whose packets arrive in order now.
    struct OpenUnit {
        stTalRtpDataInfo* unit;
        const stTalRtpTSInfo* owner;  // null: none
        _uint16_t next;               // the number after its packets, all of them stored
    };

    friend struct stTalRtpTSInfo;

    // Returns whether the record of `timestamp` is the one that was used last.
    bool isLast(_uint32_t timestamp) const {
        return !m_isSearching && m_last != nullptr && m_last->m_timestamp == timestamp;
    }

    void file(stTalRtpTSInfo* record, List::iterator entry);
    void unfile(stTalRtpTSInfo* record);
    void unfileAll();
    void freeRecord(stTalRtpTSInfo* record);

    List& m_list;
    CMediaStore& m_media;
    CNodePool* const m_pool;
    stStepMeter& m_meter;
    CAgeOrder m_order;
    stTalRtpTSInfo* m_last = nullptr;  // the one used last
    OpenUnit m_open = OpenUnit();
    bool m_isSearching = true;
    bool m_isBereft = false;
};

// Here, so that the path of each packet has it without a call.
inline stTalRtpTSInfo* CTimestampRecords::noteMedia(_uint32_t timestamp, _uint16_t seq, _uint64_t now) {
    stTalRtpTSInfo* const record = isLast(timestamp) ? m_last : findOrMake(timestamp, now);
    if (record != nullptr) {
        const COwnNodes own(m_pool);
        record->mediaSeqList.push_back(seq);
        m_order.touch(record, now);
    }
    return record;
}

template <typename Rules>
stTalRtpDataInfo* CTimestampRecords::growUnitOf(stTalRtpTSInfo* record, _uint16_t seq, const Rules& rules) {
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
    const _uint32_t timestamp = record->m_timestamp;
    _uint16_t start = 0;
    if (!rules.findStart(seq, start)) {
        return nullptr;
    }
    if constexpr (Rules::kAsksHooks) {
        record = rules.recordOf(timestamp);
    }
    stTalRtpDataInfo* unit = record != nullptr ? findOrMakeUnit(record, start) : nullptr;
    if (unit == nullptr || unit->complete) {
        return unit;
    }
    _uint16_t end = 0;
    const bool isComplete = rules.findEnd(start, end);
    if constexpr (Rules::kAsksHooks) {
        record = rules.recordOf(timestamp);
        unit = record != nullptr ? findUnit(record, start) : nullptr;
        if (unit == nullptr || unit->complete) {
            return unit;
        }
    }
    grow(*unit, end, isComplete);
    if (!Rules::kAsksHooks && end == seq && !isComplete) {
        m_open = OpenUnit{unit, record, next};
    }
    return unit;
}

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_TIMESTAMPRECORDS_H

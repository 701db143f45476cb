#include "TimestampRecords.h"

#include <memory>
#include <new>
#include <utility>

#include "memory/NodePool.h"

namespace talrtp {

namespace {

// Destroys an object in a node of a pool.
template <typename Object>
struct stPoolDelete {
    CNodePool* pool;

    void operator()(Object* object) const {
        object->~Object();
        pool->give(object, sizeof(Object));
    }
};

template <typename Object>
using PoolPtr = std::unique_ptr<Object, stPoolDelete<Object>>;

// **Returns** an object in a node of `pool`. Throws std::bad_alloc when memory is short.
template <typename Object, typename... Arguments>
PoolPtr<Object> makeIn(CNodePool* pool, Arguments&&... arguments) {
    void* const node = pool->take(sizeof(Object));
    return PoolPtr<Object>(new (node) Object{std::forward<Arguments>(arguments)...}, {pool});
}

}  // namespace

// --- Timestamps ---

stTalRtpTSRecord* CTimestampRecords::find(_uint32_t timestamp) const {
    if (m_last != nullptr && m_last->timestamp == timestamp) {
        return m_last;
    }
    m_meter.countSearch(m_list.size());
    const auto entry = m_list.find(timestamp);
    return entry != m_list.end() ? static_cast<stTalRtpTSRecord*>(entry->second) : nullptr;
}

stTalRtpTSRecord* CTimestampRecords::findOrMake(_uint32_t timestamp, _uint64_t now) {
    if (m_last != nullptr && m_last->timestamp == timestamp) {
        return m_last;
    }
    m_meter.countSearch(m_list.size());
    const bool isNewest = m_list.empty() || m_list.rbegin()->first < timestamp;
    const auto place = isNewest ? m_list.end() : m_list.lower_bound(timestamp);
    if (!isNewest && place->first == timestamp) {
        m_last = static_cast<stTalRtpTSRecord*>(place->second);
        return m_last;
    }
    auto record = makeIn<stTalRtpTSRecord>(m_pool, timestamp, now, m_pool);
    record->entry = m_list.emplace_hint(place, timestamp, record.get());
    m_order.insert(record.get());
    m_last = record.release();
    return m_last;
}

stTalRtpTSRecord* CTimestampRecords::noteMedia(_uint32_t timestamp, _uint16_t seq, _uint64_t now) {
    stTalRtpTSRecord* const record = findOrMake(timestamp, now);
    if (record != nullptr) {
        record->mediaSeqList.push_back(seq);
        m_order.touch(record, now);
    }
    return record;
}

void CTimestampRecords::forgetLastMedia(_uint32_t timestamp, _uint16_t seq) {
    stTalRtpTSRecord* const record = find(timestamp);
    if (record != nullptr && !record->mediaSeqList.empty() && record->mediaSeqList.back() == seq) {
        record->mediaSeqList.pop_back();
    }
}

void CTimestampRecords::remove(stTalRtpTSRecord* record) {
    m_list.extract(record->entry);  // as erase, without the search for the next one
    freeRecord(record);
}

void CTimestampRecords::clear() {
    while (m_order.oldest() != nullptr) {
        freeRecord(m_order.oldest());
    }
    m_list.clear();
}

// **Takes** a record that is no more in the list, or leaves it with all others.
void CTimestampRecords::freeRecord(stTalRtpTSRecord* record) {
    const PoolPtr<stTalRtpTSRecord> owned(record, {m_pool});
    for (const auto& entry : record->dataInfoMap) {
        ++m_meter.steps;
        m_media.forgetUnit(entry.first, record);
        static_cast<void>(PoolPtr<stTalRtpDataInfo>(entry.second, {m_pool}));
    }
    m_order.remove(record);
    closeUnit();
    if (m_last == record) {
        m_last = nullptr;
    }
}

// --- Units ---

stTalRtpDataInfo* CTimestampRecords::findUnit(const stTalRtpTSRecord* record, _uint16_t startSeq) const {
    if (stTalRtpDataInfo* const unit = m_media.unitOf(startSeq, record)) {
        return unit;
    }
    m_meter.countSearch(record->dataInfoMap.size());
    const auto entry = record->dataInfoMap.find(startSeq);
    return entry != record->dataInfoMap.end() ? entry->second : nullptr;
}

stTalRtpDataInfo* CTimestampRecords::findOrMakeUnit(stTalRtpTSRecord* record, _uint16_t startSeq) {
    if (stTalRtpDataInfo* const unit = m_media.unitOf(startSeq, record)) {
        return unit;
    }
    auto& units = record->dataInfoMap;
    m_meter.countSearch(units.size());
    const bool isLast = units.empty() || units.rbegin()->first < startSeq;
    const auto place = isLast ? units.end() : units.lower_bound(startSeq);
    stTalRtpDataInfo* unit;
    if (!isLast && place->first == startSeq) {
        unit = place->second;
    } else {
        auto made = makeIn<stTalRtpDataInfo>(m_pool, startSeq, 1, false, false);
        units.emplace_hint(place, startSeq, made.get());
        unit = made.release();
    }
    m_media.setUnit(startSeq, unit, record);
    return unit;
}

void CTimestampRecords::grow(stTalRtpDataInfo& unit, _uint16_t endSeq, bool isComplete) {
    const int span = static_cast<_uint16_t>(endSeq - unit.startSeq) + 1;
    if (span >= unit.packetCount) {
        unit.packetCount = span;
        unit.complete = isComplete;
    }
}

}  // namespace talrtp

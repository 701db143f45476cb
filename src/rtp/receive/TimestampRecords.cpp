#include "TimestampRecords.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace talrtp {

// A record that a host deletes is unfiled, and the session looks again at all it knows.
stTalRtpTSInfo::~stTalRtpTSInfo() {
    if (m_keeper != nullptr) {
        m_keeper->m_isBereft = true;
        static_cast<CPagedNodePool*>(m_keeper->m_pool)->doubt();
        m_keeper->unfile(this);
    }
}

// --- Timestamps ---

stTalRtpTSInfo* CTimestampRecords::find(_uint32_t timestamp) const {
    if (isLast(timestamp)) {
        return m_last;
    }
    m_meter.countSearch(m_list.size());
    const auto entry = m_list.find(timestamp);
    return entry != m_list.end() ? entry->second : nullptr;
}

stTalRtpTSInfo* CTimestampRecords::findOrMake(_uint32_t timestamp, _uint64_t now) {
    if (isLast(timestamp)) {
        return m_last;
    }
    m_meter.countSearch(m_list.size());
    const bool isNewest = m_list.empty() || m_list.rbegin()->first < timestamp;
    const auto place = isNewest ? m_list.end() : m_list.lower_bound(timestamp);
    if (!isNewest && place->first == timestamp) {
        m_last = place->second;
        return m_last;
    }
    const COwnNodes own(m_pool);
    auto record = std::make_unique<stTalRtpTSInfo>(now, m_pool);
    file(record.get(), m_list.emplace_hint(place, timestamp, record.get()));
    m_last = record.release();
    return m_last;
}

void CTimestampRecords::forgetLastMedia(_uint32_t timestamp, _uint16_t seq) {
    stTalRtpTSInfo* const record = find(timestamp);
    if (record != nullptr && !record->mediaSeqList.empty() && record->mediaSeqList.back() == seq) {
        const COwnNodes own(m_pool);
        record->mediaSeqList.pop_back();
    }
}

void CTimestampRecords::remove(stTalRtpTSInfo* record) {
    const COwnNodes own(m_pool);
    m_list.extract(record->m_entry);  // as erase, without the search for the next one
    unfile(record);
    freeRecord(record);
}

void CTimestampRecords::clear() {
    const COwnNodes own(m_pool);
    unfileAll();
    for (const auto& entry : m_list) {
        if (entry.second != nullptr) {
            freeRecord(entry.second);
        }
    }
    m_list.clear();
}

// **Takes** a record that is not filed any more.
void CTimestampRecords::freeRecord(stTalRtpTSInfo* record) {
    const std::unique_ptr<stTalRtpTSInfo> owned(record);
    for (const auto& entry : record->dataInfoMap) {
        ++m_meter.steps;
        m_media.forgetUnit(entry.first, record);
        delete entry.second;
    }
}

// --- Filing ---

// Learns a record that is in the list.
void CTimestampRecords::file(stTalRtpTSInfo* record, List::iterator entry) {
    record->m_keeper = this;
    record->m_timestamp = entry->first;
    record->m_entry = entry;
    record->m_strayFecNotes = 0;
    m_order.insert(record);
}

void CTimestampRecords::unfile(stTalRtpTSInfo* record) {
    m_order.remove(record);
    record->m_keeper = nullptr;
    closeUnit();
    if (m_last == record) {
        m_last = nullptr;
    }
}

void CTimestampRecords::unfileAll() {
    while (m_order.oldest() != nullptr) {
        unfile(m_order.oldest());
    }
    m_isBereft = false;
}

void CTimestampRecords::rebuild() {
    std::vector<List::iterator> entries;
    entries.reserve(m_list.size());
    for (auto entry = m_list.begin(); entry != m_list.end(); ++entry) {
        ++m_meter.steps;
        if (entry->second != nullptr) {
            entries.push_back(entry);
        }
    }
    const auto isOlder = [](const List::iterator& a, const List::iterator& b) {
        return a->second->updateTime < b->second->updateTime;
    };
    std::sort(entries.begin(), entries.end(), isOlder);
    unfileAll();
    for (const List::iterator& entry : entries) {
        if (entry->second->m_keeper == nullptr) {
            file(entry->second, entry);
        }
    }
}

bool CTimestampRecords::isTrueAt(_uint32_t timestamp) const {
    const auto entry = m_list.find(timestamp);
    return entry == m_list.end() || entry->second == nullptr ||
           (entry->second->m_keeper == this && entry->second->m_entry == entry);
}

// --- Units ---

stTalRtpDataInfo* CTimestampRecords::findUnit(const stTalRtpTSInfo* record, _uint16_t startSeq) const {
    if (stTalRtpDataInfo* const unit = m_isSearching ? nullptr : m_media.unitOf(startSeq, record)) {
        return unit;
    }
    m_meter.countSearch(record->dataInfoMap.size());
    const auto entry = record->dataInfoMap.find(startSeq);
    return entry != record->dataInfoMap.end() ? entry->second : nullptr;
}

stTalRtpDataInfo* CTimestampRecords::findOrMakeUnit(stTalRtpTSInfo* record, _uint16_t startSeq) {
    if (stTalRtpDataInfo* const unit = m_isSearching ? nullptr : m_media.unitOf(startSeq, record)) {
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
        const COwnNodes own(m_pool);
        auto made = std::make_unique<stTalRtpDataInfo>();
        made->startSeq = startSeq;
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

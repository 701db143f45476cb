#include "MediaStore.h"

#include <vector>

#include "ListPlace.h"
#include "Prefetch.h"
#include "wire/PacketLayout.h"

namespace talrtp {

void CMediaStore::rebuild(bool keepsBounds) {
    struct Known {
        _uint16_t seq;
        const CTalRtpPacket* packet;
        bool starts;
        bool ends;
    };
    std::vector<Known> before;
    unsigned int next = 0;
    _uint16_t seq;
    while (keepsBounds && next < CNumberSets::kNumbers && findStored(static_cast<_uint16_t>(next), seq)) {
        before.push_back(
            {seq, find(seq), m_slots.contains(kStartStops, seq), m_slots.contains(kEndStops, seq)});
        next = seq + 1u;
    }
    m_slots.clear();
    for (auto entry = m_list.begin(); entry != m_list.end(); ++entry) {
        ++m_meter.steps;
        if (entry->second != nullptr) {
            m_slots.reserve(entry->first);
            m_slots.claim(entry->first);
            m_slots[entry->first] = Slot{entry->second, entry, nullptr, nullptr};
            m_slots.assign(entry->first, setsOfStored(true, true));
        }
    }
    for (const Known& known : before) {
        if (find(known.seq) == known.packet) {
            setUnitBounds(known.seq, known.starts, known.ends);
        }
    }
}

bool CMediaStore::isTrueDownwards(_uint16_t from) const {
    for (unsigned int i = 0; i < kReach; ++i) {
        const _uint16_t seq = static_cast<_uint16_t>(from - i);
        if (!contains(seq)) {
            return true;
        }
        ++m_meter.steps;
        if (!isTrue(seq)) {
            return false;
        }
        if (m_slots.contains(kStartStops, seq)) {
            return true;
        }
    }
    return true;
}

bool CMediaStore::isTrueUpwards(_uint16_t start) const {
    for (unsigned int i = 0; i < kReach; ++i) {
        const _uint16_t seq = static_cast<_uint16_t>(start + i);
        if (!contains(seq)) {
            return true;
        }
        ++m_meter.steps;
        if (!isTrue(seq)) {
            return false;
        }
        if (m_slots.contains(kEndStops, seq)) {
            return true;
        }
    }
    return true;
}

void CMediaStore::clear() {
    const COwnNodes own(m_list.get_allocator().pool());
    for (const auto& entry : m_list) {
        delete entry.second;
    }
    m_list.clear();
    m_slots.clear();
}

bool CMediaStore::add(_uint16_t seq, CTalRtpPacket* packet, bool starts, bool ends) {
    ++m_meter.steps;
    m_slots.reserve(seq);
    const COwnNodes own(m_list.get_allocator().pool());
    const auto entry = m_list.emplace_hint(placeFor(seq, m_list, m_slots, kStored), seq, packet);
    entry->second = packet;  // an entry that held null is filled
    const bool isNew = !m_slots.contains(kKnown, seq);
    if (isNew) {
        m_slots.claim(seq);
    }
    m_slots[seq] = Slot{packet, entry, nullptr, nullptr};
    m_slots.assign(seq, setsOfStored(starts, ends));
    return isNew;
}

void CMediaStore::setUnitBounds(_uint16_t seq, bool starts, bool ends) {
    if (contains(seq)) {
        m_slots.assign(seq, setsOfStored(starts, ends));
    }
}

bool CMediaStore::know(_uint16_t seq) {
    if (m_slots.contains(kKnown, seq)) {
        return false;
    }
    m_slots.reserve(seq);
    m_slots.claim(seq);
    m_slots.assign(seq, CNumberSets::kFull | 1u << kKnown);
    return true;
}

bool CMediaStore::forget(_uint16_t seq) {
    if (!m_slots.contains(kKnown, seq) || contains(seq)) {
        return false;
    }
    m_slots.release(seq);
    return true;
}

bool CMediaStore::findStart(_uint16_t seq, _uint16_t& start) const {
    _uint16_t stop;
    if (!m_slots.findPrevious(kStartStops, seq, stop) || !contains(stop)) {
        return false;
    }
    start = stop;
    return true;
}

bool CMediaStore::findEnd(_uint16_t start, _uint16_t& end) const {
    if (!contains(start)) {
        return false;
    }
    _uint16_t stop;
    if (!m_slots.findNext(kEndStops, start, stop)) {  // every number is stored and none is an end
        end = static_cast<_uint16_t>(start - 1);
        return false;
    }
    const bool isEnd = contains(stop);
    end = isEnd ? stop : static_cast<_uint16_t>(stop - 1);
    return isEnd;
}

void CMediaStore::setUnit(_uint16_t seq, stTalRtpDataInfo* unit, const stTalRtpTSInfo* owner) {
    if (contains(seq)) {
        Slot& slot = m_slots[seq];
        slot.unit = unit;
        slot.unitOwner = owner;
    }
}

void CMediaStore::forgetUnit(_uint16_t seq, const stTalRtpTSInfo* owner) {
    if (m_slots.peek(seq).unitOwner == owner) {
        setUnit(seq, nullptr, nullptr);
    }
}

void CMediaStore::prefetchRun(_uint16_t seq) const {
    constexpr int kFar = 8;
    prefetch(find(static_cast<_uint16_t>(seq + kFar)));
    const CTalRtpPacket* const packet = find(seq);
    if (packet != nullptr) {
        prefetch(packet->get_buffer());
    }
}

void CMediaStore::prefetchAgeing(_uint16_t seq) const {
    constexpr int kFar = 8;   // its slot is in the caches, as slots lie in a row
    constexpr int kNear = 4;  // the objects that its slot points to have been fetched since
    const Slot& far = m_slots.peek(static_cast<_uint16_t>(seq + kFar));
    if (far.packet != nullptr) {
        prefetch(far.packet);
        prefetch(&*far.entry);
    }
    if (far.unitOwner != nullptr) {
        prefetch(far.unit);
        prefetch(far.unitOwner);
        prefetch(reinterpret_cast<const unsigned char*>(far.unitOwner) + kCacheLine);
        prefetch(reinterpret_cast<const unsigned char*>(far.unitOwner) + 2 * kCacheLine);
    }
    const Slot& near = m_slots.peek(static_cast<_uint16_t>(seq + kNear));
    if (near.packet != nullptr) {
        // The fields that allocators keep beside the bytes.
        const unsigned char* const bytes = near.packet->get_buffer();
        prefetch(bytes);
        prefetch(bytes + near.packet->get_buffer_size() + kSpareSize);
    }
    if (near.unitOwner != nullptr) {
        prefetch(&*near.unitOwner->m_entry);
        prefetch(&*near.unitOwner->mediaSeqList.begin());
        prefetch(&*near.unitOwner->dataInfoMap.begin());
    }
}

}  // namespace talrtp

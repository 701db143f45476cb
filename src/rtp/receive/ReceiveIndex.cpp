#include "ReceiveIndex.h"

#include <algorithm>

namespace talrtp {

template <typename List>
void CReceiveIndex::noteNulls(const List& list) {
    for (const auto& entry : list) {
        if (entry.second == nullptr) {
            m_nulls.push_back(&entry.second);
        }
    }
}

bool CReceiveIndex::isTrue() const {
    if (m_mustRebuild || records.isBereft() || m_pool.isChangedForSure()) {
        return false;
    }
    return std::all_of(m_nulls.begin(), m_nulls.end(), [](const auto* packet) { return *packet == nullptr; });
}

void CReceiveIndex::rebuild(bool keepsBounds) {
    invalidate();
    noteNulls(m_mediaList);
    noteNulls(m_fecList);
    noteNulls(m_rebuiltList);
    media.rebuild(keepsBounds);
    for (const auto& entry : m_rebuiltList) {
        if (entry.second != nullptr) {
            media.know(entry.first);
        }
    }
    records.rebuild();
    fec.rebuild(m_recordList);
    believe();
}

void CReceiveIndex::believe() {
    m_mustRebuild = false;
    m_pool.believe();
    if (!m_nulls.empty()) {
        m_pool.doubt();
    }
}

void CReceiveIndex::invalidate() {
    m_nulls.clear();
    m_mustRebuild = true;
    m_pool.doubt();
}

void CReceiveIndex::clear() {
    invalidate();
    records.clear();
    media.clear();
    fec.clear();
    for (const auto& entry : m_rebuiltList) {
        delete entry.second;
    }
    m_rebuiltList.clear();
    believe();
}

bool CReceiveIndex::takeBack(_uint16_t seq, const CTalRtpPacket* packet, _uint32_t timestamp) {
    const auto entry = m_mediaList.find(seq);
    if (entry == m_mediaList.end() || entry->second != packet) {
        return false;
    }
    if (isTrue() && media.find(seq) == packet) {
        releaseMedia(seq);
    } else {
        const COwnNodes own(m_mediaList.get_allocator().pool());
        m_mediaList.erase(entry);
        invalidate();
    }
    records.forgetLastMedia(timestamp, seq);
    return true;
}

// Without a change since, its page is still there or the spare one, so that no memory is needed.
void CReceiveIndex::knowAgain(_uint16_t seq) {
    if (isTrue()) {
        know(seq);
    }
}

bool CReceiveIndex::isTrueFrom(_uint16_t first, unsigned int count) const {
    for (unsigned int i = 0; i < count; ++i) {
        const _uint16_t seq = static_cast<_uint16_t>(first + i);
        if (!media.isTrue(seq)) {
            return false;
        }
        if (media.known().contains(seq) && !media.contains(seq)) {
            const auto rebuilt = m_rebuiltList.find(seq);
            if (rebuilt == m_rebuiltList.end() || rebuilt->second == nullptr) {
                return false;
            }
        }
    }
    return true;
}

void CReceiveIndex::eraseNull(CTalRtpPacketMap& list, _uint16_t seq) {
    const COwnNodes own(list.get_allocator().pool());
    if (list.erase(seq) != 0) {
        invalidate();
    }
}

}  // namespace talrtp

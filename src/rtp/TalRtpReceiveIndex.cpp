#include "TalRtpReceiveIndex.h"

#include "TalRtpPacketLayout.h"

namespace talrtp {

namespace {

constexpr int kCacheLine = 64;

}  // namespace

void CAgeOrder::insert(stTalRtpTSRecord* record) {
    stTalRtpTSRecord* before = m_lastFiled != nullptr ? m_lastFiled : m_newest;
    ++m_steps;
    while (before != nullptr && before->updateTime > record->updateTime) {
        ++m_steps;
        before = before->older;
    }
    while (before != nullptr && before->newer != nullptr && before->newer->updateTime <= record->updateTime) {
        ++m_steps;
        before = before->newer;
    }
    record->older = before;
    record->newer = before != nullptr ? before->newer : m_oldest;
    (record->older != nullptr ? record->older->newer : m_oldest) = record;
    (record->newer != nullptr ? record->newer->older : m_newest) = record;
    m_lastFiled = record;
}

void CAgeOrder::remove(stTalRtpTSRecord* record) {
    (record->older != nullptr ? record->older->newer : m_oldest) = record->newer;
    (record->newer != nullptr ? record->newer->older : m_newest) = record->older;
    if (m_lastFiled == record) {
        m_lastFiled = record->older != nullptr ? record->older : record->newer;
    }
}

CReceiveIndex::CReceiveIndex()
    : mediaNumbers(false),
      knownNumbers(false),
      fecNumbers(false),
      waiting(knownNumbers, fecNumbers, steps),
      ageOrder(steps),
      m_startStops(true),
      m_endStops(true) {}

void CReceiveIndex::addMedia(_uint16_t seq, CTalRtpPacket* packet,
                             CMMRTPSessionBase::PacketMap::iterator entry) {
    media.claim(seq) = stMediaSlot{packet, entry, nullptr, nullptr};
    mediaNumbers.insert(seq);
}

void CReceiveIndex::setUnitBounds(_uint16_t seq, bool starts, bool ends) {
    m_startStops.set(seq, starts);
    m_endStops.set(seq, ends);
}

void CReceiveIndex::removeMedia(_uint16_t seq) {
    media.release(seq);
    openUnit = stOpenUnit();
    mediaNumbers.erase(seq);
    forget(seq);
    m_startStops.insert(seq);
    m_endStops.insert(seq);
}

void CReceiveIndex::know(_uint16_t seq) {
    if (knownNumbers.insert(seq)) {
        waiting.mediaArrived(seq);
    }
}

void CReceiveIndex::forget(_uint16_t seq) {
    knownNumbers.erase(seq);
    waiting.mediaLeft(seq);
}

void CReceiveIndex::prefetchRun(_uint16_t seq) const {
    constexpr int kFar = 8;
    prefetch(media.peek(static_cast<_uint16_t>(seq + kFar)).packet);
    const CTalRtpPacket* const packet = media.peek(seq).packet;
    if (packet != nullptr) {
        prefetch(packet->get_buffer());
    }
}

void CReceiveIndex::prefetchBehind(_uint16_t seq) const {
    constexpr int kFar = 8;   // its slot is at hand, as slots lie in a row
    constexpr int kNear = 4;  // what its slot points to has been fetched since
    const stMediaSlot& far = media.peek(static_cast<_uint16_t>(seq + kFar));
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
    const stMediaSlot& near = media.peek(static_cast<_uint16_t>(seq + kNear));
    if (near.packet != nullptr) {
        // What allocators keep beside the bytes.
        const unsigned char* const bytes = near.packet->get_buffer();
        prefetch(bytes);
        prefetch(bytes + near.packet->get_buffer_size() + kSpareSize);
    }
    if (near.unitOwner != nullptr) {
        prefetch(&*near.unitOwner->entry);
        prefetch(&*near.unitOwner->mediaSeqList.begin());
        prefetch(&*near.unitOwner->dataInfoMap.begin());
    }
}

bool CReceiveIndex::findStart(_uint16_t seq, _uint16_t& start) const {
    _uint16_t stop;
    if (!m_startStops.findPrevious(seq, stop) || !mediaNumbers.contains(stop)) {
        return false;
    }
    start = stop;
    return true;
}

bool CReceiveIndex::findEnd(_uint16_t start, _uint16_t& end) const {
    if (!mediaNumbers.contains(start)) {
        return false;
    }
    _uint16_t stop;
    if (!m_endStops.findNext(start, stop)) {  // every number is stored and none is an end
        end = static_cast<_uint16_t>(start - 1);
        return false;
    }
    const bool isEnd = mediaNumbers.contains(stop);
    end = isEnd ? stop : static_cast<_uint16_t>(stop - 1);
    return isEnd;
}

void CReceiveIndex::prefetchFecAfter(_uint16_t seq) const {
    constexpr int kFar = 16;
    constexpr int kNear = 8;
    const stFecSlot& far = fec.peek(static_cast<_uint16_t>(seq + kFar));
    if (far.packet != nullptr) {
        prefetch(far.packet);
        prefetch(&*far.entry);
        waiting.prefetchGroup(static_cast<_uint16_t>(seq + kFar));
    }
    if (far.owner != nullptr) {
        prefetch(&*far.note);
    }
    const stFecSlot& near = fec.peek(static_cast<_uint16_t>(seq + kNear));
    if (near.packet != nullptr) {
        // The bytes, and what allocators keep beside them.
        const unsigned char* const bytes = near.packet->get_buffer();
        prefetch(bytes);
        prefetch(bytes + near.packet->get_buffer_size() + kSpareSize);
    }
}

void CReceiveIndex::removeFec(_uint16_t seq) {
    fec.release(seq);
    fecNumbers.erase(seq);
    waiting.remove(seq);
}

}  // namespace talrtp

#include "FecStore.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "ListPlace.h"
#include "Prefetch.h"
#include "wire/PacketLayout.h"

namespace talrtp {

void CFecStore::add(_uint16_t seq, CTalRtpPacket* packet, _uint32_t fecType) {
    std::unique_ptr<CTalRtpPacket> owned(packet);
    ++m_meter.steps;
    m_slots.reserve(seq);
    const auto entry = m_list.emplace_hint(placeFor(seq, m_list, m_slots, kStored), seq, packet);
    entry->second = owned.release();  // an entry that held null is filled
    if (m_typeAtAdd != fecType) {
        m_isEveryDue |= !m_slots.isEmpty(kStored);
        m_typeAtAdd = fecType;
    }
    m_slots.claim(seq);
    m_slots[seq] = Slot{packet, entry, nullptr, stTalRtpTSInfo::SeqList::iterator()};
    m_slots.assign(seq, CNumberSets::kFull | 1u << kStored);
    m_waiting.fecArrived(seq);
    fileGroup(seq, *packet);
}

// Files a packet for the group that it protects.
void CFecStore::fileGroup(_uint16_t seq, const CTalRtpPacket& packet) {
    if (const auto* const xorPacket = dynamic_cast<const CRTPFECPacket*>(&packet)) {
        m_waiting.addXor(seq, xorPacket->get_fec_sequence_number_base(), xorPacket->get_fec_mask());
    } else if (const auto* const rsPacket = dynamic_cast<const CRTPRSPacket*>(&packet)) {
        const _uint16_t fecBase = static_cast<_uint16_t>(seq - rsPacket->get_rs_index());
        m_waiting.addRs(seq, rsPacket->get_rs_sequence_number_base(), rsPacket->get_rs_mask(), fecBase,
                        rsPacket->get_rs_count());
    }
}

void CFecStore::remove(_uint16_t seq) {
    const Slot& slot = m_slots.peek(seq);
    if (slot.packet == nullptr) {
        return;
    }
    if (slot.owner != nullptr) {
        ++slot.owner->strayFecNotes;
    }
    delete slot.packet;
    m_list.extract(slot.entry);  // as erase, without the search for the next one
    erase(seq);
}

void CFecStore::clear() {
    for (const auto& entry : m_list) {
        delete entry.second;
        if (find(entry.first) != nullptr) {
            erase(entry.first);
        }
    }
    m_list.clear();
}

// Forgets a packet that left the list.
void CFecStore::erase(_uint16_t seq) {
    m_slots.release(seq);
    m_waiting.remove(seq);
}

void CFecStore::note(stTalRtpTSRecord* record, _uint16_t seq) {
    record->fecSeqList.push_back(seq);
    const Slot& known = m_slots.peek(seq);
    if (known.packet == nullptr || known.owner != nullptr) {
        ++record->strayFecNotes;
        return;
    }
    Slot& slot = m_slots[seq];
    slot.owner = record;
    slot.note = std::prev(record->fecSeqList.end());
}

void CFecStore::forgetNote(stTalRtpTSRecord* record, _uint16_t seq) {
    stTalRtpTSInfo::SeqList& notes = record->fecSeqList;
    const Slot& known = m_slots.peek(seq);
    const bool isKnown = known.owner == record;
    auto first = isKnown ? known.note : notes.end();
    if (record->strayFecNotes != 0) {  // only a host's class can have noted a number without its packet
        m_meter.steps += notes.size();
        first = std::find(notes.begin(), notes.end(), seq);
    }
    if (first == notes.end()) {
        return;
    }
    if (isKnown && first == known.note) {
        m_slots[seq].owner = nullptr;
    } else {
        --record->strayFecNotes;
    }
    notes.erase(first);
}

bool CFecStore::beginRound(_uint32_t fecType) {
    const bool isEveryDue = m_isEveryDue || m_typeAtAdd != fecType;
    m_isEveryDue = false;
    m_typeAtAdd = fecType;
    return isEveryDue;
}

bool CFecStore::findNextTry(bool isEveryDue, _uint16_t& seq) const {
    return isEveryDue ? m_slots.findUpward(kStored, seq, seq) : m_waiting.findReady(seq, seq);
}

void CFecStore::prefetchAfter(_uint16_t seq) const {
    constexpr int kFar = 16;
    constexpr int kNear = 8;
    const Slot& far = m_slots.peek(static_cast<_uint16_t>(seq + kFar));
    if (far.packet != nullptr) {
        prefetch(far.packet);
        prefetch(&*far.entry);
        m_waiting.prefetchGroup(static_cast<_uint16_t>(seq + kFar));
    }
    if (far.owner != nullptr) {
        prefetch(&*far.note);
    }
    const Slot& near = m_slots.peek(static_cast<_uint16_t>(seq + kNear));
    if (near.packet != nullptr) {
        // The bytes, and the fields that allocators keep beside them.
        const unsigned char* const bytes = near.packet->get_buffer();
        prefetch(bytes);
        prefetch(bytes + near.packet->get_buffer_size() + kSpareSize);
    }
}

}  // namespace talrtp

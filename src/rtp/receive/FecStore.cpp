#include "FecStore.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "ListPlace.h"
#include "OwnNodes.h"
#include "Prefetch.h"
#include "wire/PacketLayout.h"

namespace talrtp {

namespace {

constexpr unsigned int kMaxBlocks = 256;  // of a Reed-Solomon group

// Tells whether the nodes of a record's lists are counted by a pool: a host made those of any other.
bool isCounted(const stTalRtpTSInfo& record) {
    return record.fecSeqList.get_allocator().pool() != nullptr;
}

}  // namespace

void CFecStore::rebuild(const CTalRtpTSInfoMap& records) {
    m_slots.clear();
    m_waiting.clear();
    m_isOdd = false;
    for (auto entry = m_list.begin(); entry != m_list.end(); ++entry) {
        ++m_meter.steps;
        CTalRtpPacket* const packet = entry->second;
        if (packet != nullptr) {
            m_slots.reserve(entry->first);
            m_slots.claim(entry->first);
            m_slots[entry->first] = Slot{packet, entry, nullptr, stTalRtpTSInfo::SeqList::iterator()};
            m_slots.assign(entry->first, CNumberSets::kFull | 1u << kStored);
            m_isOdd |= packet->get_sequence_number() != entry->first;
        }
    }
    for (const auto& entry : m_list) {
        if (entry.second != nullptr) {
            fileGroup(entry.first, *entry.second);
        }
    }
    for (const auto& entry : records) {
        if (entry.second != nullptr) {
            learnNotes(entry.second);
        }
    }
    m_isEveryDue = !m_slots.isEmpty(kStored);
}

void CFecStore::learnNotes(stTalRtpTSInfo* record) {
    record->m_strayFecNotes = 0;
    if (!isCounted(*record)) {
        return;
    }
    for (auto note = record->fecSeqList.begin(); note != record->fecSeqList.end(); ++note) {
        ++m_meter.steps;
        const Slot& slot = m_slots.peek(*note);
        if (slot.packet != nullptr && slot.owner == nullptr) {
            m_slots[*note].owner = record;
            m_slots[*note].note = note;
        } else {
            ++record->m_strayFecNotes;
        }
    }
}

bool CFecStore::isTrue() const {
    unsigned int looked = 0;
    for (auto entry = m_list.begin(); entry != m_list.end() && looked < kReach; ++entry, ++looked) {
        ++m_meter.steps;
        if (m_slots.peek(entry->first).packet != entry->second) {
            return false;
        }
    }
    return true;
}

void CFecStore::add(_uint16_t seq, CTalRtpPacket* packet, _uint32_t fecType) {
    std::unique_ptr<CTalRtpPacket> owned(packet);
    ++m_meter.steps;
    m_slots.reserve(seq);
    const COwnNodes own(m_list.get_allocator().pool());
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
        if (rsPacket->get_rs_mask() == 0 || rsPacket->get_rs_mask() + rsPacket->get_rs_count() > kMaxBlocks) {
            return;  // put there by a host; its try will tell
        }
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
        ++slot.owner->m_strayFecNotes;
    }
    delete slot.entry->second;
    const COwnNodes own(m_list.get_allocator().pool());
    m_list.extract(slot.entry);  // as erase, without the search for the next one
    erase(seq);
}

void CFecStore::clear() {
    const COwnNodes own(m_list.get_allocator().pool());
    for (const auto& entry : m_list) {
        delete entry.second;
    }
    m_list.clear();
    m_slots.clear();
    m_waiting.clear();
    m_isOdd = false;
}

// Forgets a packet that left the list.
void CFecStore::erase(_uint16_t seq) {
    m_slots.release(seq);
    m_waiting.remove(seq);
}

void CFecStore::note(stTalRtpTSInfo* record, _uint16_t seq) {
    const COwnNodes own(m_list.get_allocator().pool());
    record->fecSeqList.push_back(seq);
    if (!isCounted(*record)) {
        return;
    }
    const Slot& known = m_slots.peek(seq);
    if (known.packet == nullptr || known.owner != nullptr) {
        ++record->m_strayFecNotes;
        return;
    }
    Slot& slot = m_slots[seq];
    slot.owner = record;
    slot.note = std::prev(record->fecSeqList.end());
}

void CFecStore::forgetNote(stTalRtpTSInfo* record, _uint16_t seq) {
    stTalRtpTSInfo::SeqList& notes = record->fecSeqList;
    const Slot& known = m_slots.peek(seq);
    const bool isKnown = known.owner == record;
    auto first = isKnown ? known.note : notes.end();
    // Only a host's class can have noted a number without its packet, or changed a note in its place.
    if (!isKnown || record->m_strayFecNotes != 0 || *first != seq) {
        m_meter.steps += notes.size();
        first = std::find(notes.begin(), notes.end(), seq);
    }
    if (first == notes.end()) {
        return;
    }
    if (isKnown && first == known.note) {
        m_slots[seq].owner = nullptr;
        eraseNote(notes, first);
        return;
    }
    for (const auto& entry : m_list) {
        ++m_meter.steps;
        if (m_slots.peek(entry.first).owner == record) {
            m_slots[entry.first].owner = nullptr;
        }
    }
    eraseNote(notes, first);
    learnNotes(record);
}

void CFecStore::eraseNote(stTalRtpTSInfo::SeqList& notes, stTalRtpTSInfo::SeqList::iterator note) {
    const COwnNodes own(m_list.get_allocator().pool());
    notes.erase(note);
}

bool CFecStore::beginRound(_uint32_t fecType) {
    const bool isEveryDue = m_isEveryDue || m_typeAtAdd != fecType;
    m_isEveryDue = m_isOdd;
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

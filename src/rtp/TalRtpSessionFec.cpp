// Forward error correction on receive.
//
//   FEC packet from the network ---> try to rebuild --keep--> m_fecPacketList
//                                        |
//                                        v
//                               m_recoverPacketList <------------------+
//                                        |                             |
//                                        v                             |
//                      media list, records, delivery hooks   try the stored FEC packets again
//                                        |                             ^
//                                        +---- something was new ------+
//
// Every round that goes on has added a media packet that was missing, so the cycle ends. It runs as a loop: a
// chain in which each rebuilt packet completes the next group takes no stack.

#include <talrtp/RsFec.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "TalRtpPacketAccess.h"
#include "TalRtpPacketLayout.h"
#include "TalRtpPacketView.h"
#include "TalRtpReceiveIndex.h"
#include "TalRtpTraceLine.h"
#include "fec/RsInterpolation.h"
#include "fec/XorRecovery.h"
#include "kernels/GfKernel.h"
#include "kernels/XorKernel.h"

namespace talrtp {

namespace {

constexpr _uint16_t kLastNumber = 0xffff;  // the next one is 0

}  // namespace

void deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2, int length) {
    if (length > 0) {
        xorBlocks(dst, src1, src2, static_cast<std::size_t>(length));
    }
}

void CMMRTPSessionBase::deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2,
                                         int length) {
    talrtp::deployXorProcess(dst, src1, src2, length);
}

// --- FEC packets: intake and storage ---

int CMMRTPSessionBase::inputReceivedFECPacket(CTalRtpPacket* fecPacket) {
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::inputReceivedFECPacket invalid parameter: fecPacket = " << fecPacket);
        return -1;
    }
    const _uint16_t seq = fecPacket->get_sequence_number();
    if (getFECPacketBySeq(seq) != nullptr) {
        delete fecPacket;
        return 0;
    }
    const _uint64_t size = static_cast<_uint64_t>(fecPacket->get_buffer_size());
    ++m_receivedValidFECPacketNumber;
    m_receivedValidFECPacketBytes += size;
    bool keep = false;
    std::unique_ptr<CTalRtpPacket> owned(fecPacket);  // a host's hook may throw
    recoverPacketWithFEC(fecPacket, keep);
    if (keep && !keepFecPacket(owned.release())) {
        --m_receivedValidFECPacketNumber;
        m_receivedValidFECPacketBytes -= size;
        m_index->isShort = true;
    }
    owned.reset();
    dealRecoverPacketList();
    return 0;
}

// **Takes** `fecPacket`: stores it and notes it under its timestamp. False when memory is short for that: it
// is destroyed then.
bool CMMRTPSessionBase::keepFecPacket(CTalRtpPacket* fecPacket) {
    const _uint16_t seq = fecPacket->get_sequence_number();
    try {
        storeFecPacket(fecPacket);
        updateFECListInfo(fecPacket->get_timestamp(), seq);
        return true;
    } catch (const std::bad_alloc&) {
        eraseFecPacket(seq);
        return false;
    }
}

// **Takes** `fecPacket` into the FEC list, the index and the groups that wait. When memory is short,
// std::bad_alloc passes, and the packet is either destroyed or stored without a group.
void CMMRTPSessionBase::storeFecPacket(CTalRtpPacket* fecPacket) {
    std::unique_ptr<CTalRtpPacket> owned(fecPacket);
    const _uint16_t seq = fecPacket->get_sequence_number();
    ++m_index->steps;
    m_index->fec.reserve(seq);
    const auto place = CReceiveIndex::placeFor(seq, m_fecPacketList, m_index->fecNumbers, m_index->fec);
    const auto entry = m_fecPacketList.emplace_hint(place, seq, fecPacket);
    entry->second = owned.release();  // an entry that held null is filled
    if (m_index->fecTypeAtStore != m_fecType) {
        m_index->retryEveryFec |= !m_index->fecNumbers.isEmpty();
        m_index->fecTypeAtStore = m_fecType;
    }
    m_index->fec.claim(seq) = stFecSlot{fecPacket, entry, nullptr, stTalRtpTSInfo::SeqList::iterator()};
    m_index->fecNumbers.insert(seq);
    m_index->waiting.fecArrived(seq);
    if (const auto* const xorPacket = dynamic_cast<const CRTPFECPacket*>(fecPacket)) {
        m_index->waiting.addXor(seq, xorPacket->get_fec_sequence_number_base(), xorPacket->get_fec_mask());
    } else if (const auto* const rsPacket = dynamic_cast<const CRTPRSPacket*>(fecPacket)) {
        const _uint16_t fecBase = static_cast<_uint16_t>(seq - rsPacket->get_rs_index());
        m_index->waiting.addRs(seq, rsPacket->get_rs_sequence_number_base(), rsPacket->get_rs_mask(), fecBase,
                               rsPacket->get_rs_count());
    }
}

// Destroys the FEC packet stored under `seq`, if there is one, and takes it out of the FEC list and the
// index.
void CMMRTPSessionBase::eraseFecPacket(unsigned short seq) {
    const stFecSlot& slot = m_index->fec.peek(seq);
    if (slot.packet == nullptr) {
        return;
    }
    delete slot.packet;
    m_fecPacketList.extract(slot.entry);
    m_index->removeFec(seq);
}

CTalRtpPacket* CMMRTPSessionBase::getFECPacketBySeq(unsigned short seq) const {
    return m_index->fec.peek(seq).packet;
}

void CMMRTPSessionBase::updateFECListInfo(unsigned int timestamp, unsigned short seq) {
    stTalRtpTSRecord* const record = findOrMakeTSRecord(timestamp);
    if (record == nullptr) {
        return;
    }
    record->fecSeqList.push_back(seq);
    m_index->ageOrder.touch(record, m_lastReceivedTime);
    const stFecSlot& known = m_index->fec.peek(seq);
    // Of several equal notes the slot knows the first.
    if (known.packet != nullptr && known.owner != record) {
        stFecSlot& slot = m_index->fec[seq];
        slot.owner = record;
        slot.note = std::prev(record->fecSeqList.end());
    }
}

void CMMRTPSessionBase::removeFECInfoFromList(unsigned int timestamp, unsigned short seq) {
    stTalRtpTSRecord* const record = findTSRecord(timestamp);
    if (record == nullptr) {
        return;
    }
    stTalRtpTSInfo::SeqList& notes = record->fecSeqList;
    const stFecSlot& slot = m_index->fec.peek(seq);
    if (slot.owner == record) {
        notes.erase(slot.note);
        m_index->fec[seq].owner = nullptr;
        return;
    }
    // Only a derived class can have noted a number that the slot does not know.
    m_index->steps += notes.size();
    const auto note = std::find(notes.begin(), notes.end(), seq);
    if (note != notes.end()) {
        notes.erase(note);
    }
}

// --- The cycle ---

void CMMRTPSessionBase::recoverPacketWithFEC() {
    if (m_index->hasFecWork(m_fecType)) {
        retryFecPackets();
    }
    if (!m_recoverPacketList.empty()) {
        dealRecoverPacketList();
    }
}

// Tries the stored FEC packets in ascending order. Those that wait for more than has come would change
// nothing and are passed over, unless the FEC type changed: packets of the other kind have nothing more to
// give.
void CMMRTPSessionBase::retryFecPackets() {
    const bool isEvery = m_index->retryEveryFec || m_index->fecTypeAtStore != m_fecType;
    m_index->retryEveryFec = false;
    m_index->fecTypeAtStore = m_fecType;
    _uint16_t seq = 0;
    const CSequenceSet& worthTrying = isEvery ? m_index->fecNumbers : m_index->waiting.ready();
    while (worthTrying.findUpward(seq, seq)) {
        ++m_index->steps;
        m_index->prefetchFecAfter(seq);
        retryFecPacket(seq);
        if (seq == kLastNumber) {
            return;
        }
        ++seq;
    }
}

void CMMRTPSessionBase::retryFecPacket(unsigned short seq) {
    CTalRtpPacket* const fecPacket = getFECPacketBySeq(seq);
    bool keep = false;
    recoverPacketWithFEC(fecPacket, keep);
    if (keep) {
        m_index->waiting.waitAgain(seq);
        return;
    }
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): only numbers of stored packets are worth trying
    removeFECInfoFromList(fecPacket->get_timestamp(), seq);
    eraseFecPacket(seq);
}

void CMMRTPSessionBase::recoverPacketWithFEC(CTalRtpPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    try {
        tryFecPacket(fecPacket, keep);
    } catch (const std::bad_alloc&) {
        keep = true;  // as if nothing had been rebuilt
        m_index->isShort = true;
    }
}

void CMMRTPSessionBase::tryFecPacket(CTalRtpPacket* fecPacket, bool& keep) {
    // A packet of the other kind, stored before the FEC type was changed, has nothing more to give.
    if (m_fecType == RTP_FEC_RS) {
        if (auto* const rsPacket = dynamic_cast<CRTPRSPacket*>(fecPacket)) {
            recoverPacketWithRSFEC(rsPacket, keep);
        }
    } else if (m_fecType == RTP_FEC_XOR) {
        if (auto* const xorPacket = dynamic_cast<CRTPFECPacket*>(fecPacket)) {
            recoverPacketWithXORFEC(xorPacket, keep);
        }
    }
}

void CMMRTPSessionBase::dealRecoverPacketList() {
    bool isAnyDealt = false;
    while (dealRecoveredPackets()) {
        isAnyDealt = true;
        retryFecPackets();
    }
    if (isAnyDealt) {
        checkAllLists();
    }
}

// Feeds the rebuilt packets into the media path; true when one of them was new. An exception of the host
// leaves those that were not dealt yet for the next time.
bool CMMRTPSessionBase::dealRecoveredPackets() {
    bool isAnyDealt = false;
    auto entry = m_recoverPacketList.begin();
    try {
        while (entry != m_recoverPacketList.end()) {
            CTalRtpPacket* const packet = entry->second;
            ++entry;
            isAnyDealt |= packet != nullptr && dealRecoveredPacket(packet);
        }
    } catch (...) {
        m_recoverPacketList.erase(m_recoverPacketList.begin(), entry);
        throw;
    }
    m_recoverPacketList.clear();
    return isAnyDealt;
}

// **Takes** one of them. False when it is not new, or there is no memory for it.
bool CMMRTPSessionBase::dealRecoveredPacket(CTalRtpPacket* packet) {
    const _uint16_t seq = packet->get_sequence_number();
    if (getMediaPacketBySeq(seq) != nullptr) {
        TAL_TRACE(WARNING, "CMMRTPSessionBase::dealRecoverPacketList recover repeat packet: seq = "
                               << seq << ", ts = " << packet->get_timestamp());
        delete packet;
        return false;
    }
    try {
        takeMediaPacket(packet, m_recoveredMediaPacketNumber, m_recoveredMediaPacketBytes);
        return true;
    } catch (const std::bad_alloc&) {
        if (getMediaPacketBySeq(seq) != nullptr) {
            throw;  // stored and recorded: what failed was the host's
        }
        m_index->forget(seq);
        m_index->isShort = true;
        return false;
    }
}

CTalRtpPacket* CMMRTPSessionBase::getRecoverPacketBySeq(unsigned short seq) const {
    const auto entry = m_recoverPacketList.find(seq);
    return entry != m_recoverPacketList.end() ? entry->second : nullptr;
}

// **Lends** the media packet with that number that is at hand, stored or just rebuilt; null when it is
// missing.
CTalRtpPacket* CMMRTPSessionBase::getKnownMediaPacket(unsigned short seq) const {
    CTalRtpPacket* const stored = getMediaPacketBySeq(seq);
    return stored != nullptr ? stored : getRecoverPacketBySeq(seq);
}

// **Takes** a rebuilt packet into the list of those to be dealt. When memory is short, the packet is
// destroyed and std::bad_alloc passes.
void CMMRTPSessionBase::storeRecoveredPacket(unsigned short seq, CTalRtpPacket* packet) {
    std::unique_ptr<CTalRtpPacket> owned(packet);
    m_recoverPacketList[seq] = packet;
    static_cast<void>(owned.release());
    m_index->know(seq);
}

// --- XOR recovery (RFC 2733, 7) ---

void CMMRTPSessionBase::recoverPacketWithXORFEC(CRTPFECPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithXORFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    const _uint16_t base = fecPacket->get_fec_sequence_number_base();
    const _uint64_t missing =
        xorMaskWindow(fecPacket->get_fec_mask()) & ~m_index->knownNumbers.window(base, kFecMaskBits);
    if (missing == 0) {
        return;
    }
    if ((missing & (missing - 1)) != 0) {
        keep = true;  // two or more
        return;
    }
    const _uint16_t missingSeq = static_cast<_uint16_t>(base + __builtin_ctzll(missing));
    CTalRtpPacket* const packet = recoverPacket(missingSeq, fecPacket);
    if (packet == nullptr) {
        return;
    }
    const _uint16_t seq = packet->get_sequence_number();
    if (seq != missingSeq) {
        // Compatibility: such a packet, which only an override can make, is left alone: not stored and not
        // destroyed.
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithXORFEC recover seq number is differ with request"
                      << ", recoveredSeq = " << seq << ", requestSeq = " << missingSeq);
        return;
    }
    TAL_TRACE(INFO, "CMMRTPSessionBase::recoverPacketWithXORFEC recoveredSeq = "
                        << seq << ", recoveredTS = " << packet->get_timestamp()
                        << ", sourceID = " << m_sourceId);
    storeRecoveredPacket(seq, packet);
}

namespace {

void reportIfCut(EXorBody body, _uint16_t seq, int capacity, int size) {
    if (body == EXorBody::kCut) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacket recovered packet size is too small, recoveredSeq = "
                      << seq << ", recoveredLen = " << capacity << ", recoverLen = " << size);
    }
}

// **Returns owned** the rebuilt packet, which is plausible.
CTalRtpPacket* makeRecovered(const CXorRecovery& recovery, int bodyCapacity, _uint16_t seq, _uint32_t ssrc) {
    std::unique_ptr<CTalRtpPacket> packet(new CTalRtpPacket(kFixedHeaderSize + bodyCapacity));
    recovery.writeTo(packet->get_buffer(), seq, ssrc);
    packet->set_payload_type(recovery.payloadType());
    packet->set_payload_size(recovery.payloadSize());
    return packet.release();
}

}  // namespace

CTalRtpPacket* CMMRTPSessionBase::recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) {
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::recoverPacket invalid parameter: fecPacket = " << fecPacket);
        return nullptr;
    }
    const int bodyCapacity = fecPacket->get_packet_size() - kFixedHeaderSize - kFecHeaderSize;
    if (bodyCapacity < 0) {
        return nullptr;
    }
    m_index->steps += kFecMaskBits;
    const _uint16_t base = fecPacket->get_fec_sequence_number_base();
    const CTalRtpPacket* packets[kFecMaskBits];
    int count = 0;
    int length = fecPacket->get_fec_recover_length();
    _uint64_t present =
        xorMaskWindow(fecPacket->get_fec_mask()) & m_index->knownNumbers.window(base, kFecMaskBits);
    for (; present != 0; present &= present - 1) {
        const int i = __builtin_ctzll(present);
        packets[count] = getKnownMediaPacket(static_cast<_uint16_t>(base + i));
        length ^= CPacketAccess::packetSize(*packets[count++]) - kFixedHeaderSize;
    }
    // Forged parity mostly fails here, before a byte of a packet is read, unless somebody reads the lines
    // about packets that are too long.
    if (static_cast<_uint16_t>(length) > bodyCapacity && !isTraced(TRACE_WARNING)) {
        return nullptr;
    }
    CXorRecovery recovery(CPacketAccess::buffer(*fecPacket), bodyCapacity);
    const stByteView parity = {fecPacket->get_payload_ptr() + kFecHeaderSize,
                               fecPacket->get_payload_size() - kFecHeaderSize};
    reportIfCut(recovery.addParity(parity), seq, bodyCapacity, parity.size);
    for (int i = 0; i < count; ++i) {
        const stByteView packet = viewOf(*packets[i]);
        // Compatibility: the packet kind, not the payload type that the sender XORed; receivers in the field
        // rebuild the payload type so.
        const EXorBody body = recovery.addMediaPacket(packet, packets[i]->get_packet_type());
        reportIfCut(body, seq, bodyCapacity, packet.bodySize());
    }
    return recovery.isPlausible() ? makeRecovered(recovery, bodyCapacity, seq, fecPacket->get_sync_source())
                                  : nullptr;
}

// --- Reed-Solomon recovery ---

namespace {

constexpr int kMaxShards = CRsInterpolation::kMaxPositions;

// The parity block of a Reed-Solomon FEC packet, behind its FEC header; 0 bytes when the header is cut short.
int parityBlockSize(const CTalRtpPacket& fecPacket) {
    return std::max(fecPacket.get_payload_size() - kRsHeaderSize, 0);
}

}  // namespace

// One attempt at a Reed-Solomon group. Shards 0 .. k-1 are the media packets, k .. k+m-1 the parity packets.
//
// Parity can be forged, so the length and the first bytes of every missing packet are decoded first, and a
// packet only where these are right: garbage costs little. All bookkeeping is in arrays on the stack; the
// heap lends what grows with the number of missing packets.
class CRsRecovery {
public:
    CRsRecovery(CMMRTPSessionBase& session, CRTPRSPacket& fecPacket)
        : m_session(session),
          m_fecPacket(fecPacket),
          m_mediaCount(fecPacket.get_rs_mask()),
          m_fecCount(fecPacket.get_rs_count()),
          m_mediaBase(fecPacket.get_rs_sequence_number_base()),
          m_fecSeq(fecPacket.get_sequence_number()),
          m_fecBase(static_cast<_uint16_t>(m_fecSeq - fecPacket.get_rs_index())) {}

    bool isTooLarge() const { return m_mediaCount + m_fecCount > kMaxShards; }

    // All media packets are at hand.
    bool isComplete() const {
        return m_session.m_index->knownNumbers.count(m_mediaBase, static_cast<unsigned int>(m_mediaCount)) ==
               static_cast<unsigned int>(m_mediaCount);
    }

    // Lists the shards that are at hand, as many as a decode takes, and the media packets that are missing.
    // False when there are too few.
    bool takeStock() {
        if (mostAtHand() < m_mediaCount) {
            return false;
        }
        m_session.m_index->steps += static_cast<unsigned int>(m_mediaCount + m_fecCount);
        for (int i = 0; i < m_mediaCount; ++i) {
            if (m_session.m_index->knownNumbers.contains(mediaSeq(i))) {
                m_present[m_presentCount++] = static_cast<unsigned char>(i);
            } else {
                m_missing[m_missingCount++] = static_cast<unsigned char>(i);
            }
        }
        m_presentMediaCount = m_presentCount;
        for (int j = 0; j < m_fecCount && m_presentCount < m_mediaCount; ++j) {
            if (parityPacket(j) != nullptr) {
                m_present[m_presentCount++] = static_cast<unsigned char>(m_mediaCount + j);
            }
        }
        return m_presentCount == m_mediaCount;
    }

    // Gathers the blocks of the shards at hand. False, with a WARNING line, when the parity blocks differ in
    // size or are shorter than a media packet.
    bool gather() {
        int maxPacketLen = 0;
        for (int shard = 0; shard < m_presentMediaCount; ++shard) {
            CTalRtpPacket* const packet = m_session.getKnownMediaPacket(mediaSeq(m_present[shard]));
            setShard(shard, packet->get_buffer(), packet->get_packet_size(), packet->get_packet_size());
            maxPacketLen = std::max(maxPacketLen, packet->get_packet_size());
        }
        for (int shard = m_presentMediaCount; shard < m_presentCount; ++shard) {
            CTalRtpPacket* const packet = parityPacket(m_present[shard] - m_mediaCount);
            unsigned char* const payload = packet->get_payload_ptr();
            const int size = parityBlockSize(*packet);
            setShard(shard, payload + kRsHeaderSize, size, loadBig16(payload + kRsLengthOffset));
            m_blockSize = std::max(m_blockSize, size);
            m_lastParitySeq = packet->get_sequence_number();
        }
        const int fecPayloadSize = parityBlockSize(m_fecPacket);
        if (fecPayloadSize < maxPacketLen || m_blockSize != fecPayloadSize) {
            TAL_TRACE(
                WARNING,
                "CMMRTPSessionBase::recoverPacketWithRSFEC fec payoad size is dubitable, fecPayloadSize = "
                    << fecPayloadSize << ", maxPacketLen = " << maxPacketLen
                    << ", maxFecPayloadLen = " << m_blockSize);
            return false;
        }
        return true;
    }

    // Decodes and takes the rebuilt packets into the session. False, with an ERROR line, when there is no
    // memory for it.
    bool rebuild() {
        if (m_blockSize > MAX_PACKET_SIZE) {
            refuseSize();
            return true;
        }
        const CRsInterpolation code(m_present, m_presentCount);
        if (!probe(code) || !decode(code)) {
            // Compatibility: the text names the sending operation, and a model that was not made.
            TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets get rs model failed"
                                 << ", k = " << m_mediaCount << ", n = " << m_mediaCount + m_fecCount);
            m_session.m_index->isShort = true;
            return false;
        }
        storePackets();
        return true;
    }

private:
    typedef std::unique_ptr<unsigned char[]> Bytes;

    // A bound of the shards at hand that costs no look at any of them.
    int mostAtHand() const {
        const CReceiveIndex& index = *m_session.m_index;
        const unsigned int media =
            index.knownNumbers.count(m_mediaBase, static_cast<unsigned int>(m_mediaCount));
        const unsigned int fec = index.fecNumbers.count(m_fecBase, static_cast<unsigned int>(m_fecCount));
        return static_cast<int>(media + fec) + 1;  // this packet may not be stored yet
    }

    _uint16_t mediaSeq(int i) const { return static_cast<_uint16_t>(m_mediaBase + i); }

    // **Lends** parity packet `j` of the group, or null. The number alone decides: an XOR packet, stored
    // before the FEC type was changed, counts too, so what is returned is read as bytes.
    CTalRtpPacket* parityPacket(int j) const {
        const _uint16_t seq = static_cast<_uint16_t>(m_fecBase + j);
        return seq == m_fecSeq ? &m_fecPacket : m_session.getFECPacketBySeq(seq);
    }

    void setShard(int shard, unsigned char* block, int size, int length) {
        m_blocks[shard] = block;
        m_sizes[shard] = size;
        m_lengths[shard] = static_cast<_uint16_t>(length);
    }

    // The codec's own refusal, with its line, which it gives before it looks at any matrix or output.
    void refuseSize() {
        rs_param_ shape = {m_mediaCount, m_mediaCount + m_fecCount, nullptr};
        CRsFec::Decode(&shape, m_blocks, m_sizes, nullptr, nullptr, nullptr, 0);
    }

    // Decodes the length and the first bytes of each missing packet. False when memory is short.
    bool probe(const CRsInterpolation& code) {
        const std::size_t scratchSize = code.scratchSize(m_missingCount);
        const Bytes scratch = allocate(scratchSize);
        if (scratch == nullptr) {
            return false;
        }
        unsigned char values[kProbeColumns][kMaxShards];
        for (int shard = 0; shard < m_presentCount; ++shard) {
            values[kLengthLow][shard] = static_cast<unsigned char>(m_lengths[shard]);
            values[kLengthHigh][shard] = static_cast<unsigned char>(m_lengths[shard] >> 8);
            values[kFlags][shard] = blockByte(shard, kFlagsOffset);
            values[kSeqHigh][shard] = blockByte(shard, kSequenceNumberOffset);
            values[kSeqLow][shard] = blockByte(shard, kSequenceNumberOffset + 1);
        }
        code.probe(m_missing, m_missingCount, values[0], kProbeColumns, scratch.get(), m_probed[0]);
        countProducts(scratchSize * kProbeColumns);
        return true;
    }

    unsigned char blockByte(int shard, int offset) const {
        return offset < m_sizes[shard] ? m_blocks[shard][offset] : 0;
    }
    int probedLength(int i) const { return m_probed[kLengthHigh][i] << 8 | m_probed[kLengthLow][i]; }
    _uint16_t probedSeq(int i) const {
        return static_cast<_uint16_t>(m_probed[kSeqHigh][i] << 8 | m_probed[kSeqLow][i]);
    }

    // Tells whether missing packet `i` has a length that its block can have, with room for its header as far
    // as the first byte tells.
    bool isLengthRight(int i) const {
        const unsigned char* const flags = &m_probed[kFlags][i];
        const int length = probedLength(i);
        return length >= kFixedHeaderSize && length <= m_blockSize &&
               (readExtensionFlag(flags) || length >= extensionOffset(flags));
    }

    // Packets with the right number are decoded whole. So are those with another number whose line depends on
    // the length of an extension, if somebody reads the lines.
    bool isWholeNeeded(int i) const {
        return isLengthRight(i) && (probedSeq(i) == mediaSeq(m_missing[i]) ||
                                    (readExtensionFlag(&m_probed[kFlags][i]) && isTraced(TRACE_WARNING)));
    }

    // Decodes the packets that are needed whole. False when memory is short.
    bool decode(const CRsInterpolation& code) {
        unsigned char wanted[kMaxShards];
        int count = 0;
        for (int i = 0; i < m_missingCount; ++i) {
            m_isWhole[i] = isWholeNeeded(i);
            if (m_isWhole[i]) {
                wanted[count++] = m_missing[i];
            }
        }
        if (count == 0) {
            return true;
        }
        const std::size_t width = static_cast<std::size_t>(m_presentCount);
        const std::size_t blockSize = static_cast<std::size_t>(m_blockSize);
        const std::size_t rowBytes = static_cast<std::size_t>(count) * width;
        m_output = allocate(rowBytes + static_cast<std::size_t>(count) * blockSize);
        if (m_output == nullptr) {
            return false;
        }
        unsigned char* blocks[kMaxShards];
        for (int r = 0; r < count; ++r) {
            code.fillRow(wanted[r], m_output.get() + static_cast<std::size_t>(r) * width);
            blocks[r] = m_output.get() + rowBytes + static_cast<std::size_t>(r) * blockSize;
        }
        multiplyBlocks({blocks, count, m_output.get(), m_presentCount, m_blocks, m_presentCount}, m_sizes,
                       m_blockSize);
        countProducts(rowBytes * blockSize);
        m_firstBlock = blocks[0];
        return true;
    }

    static Bytes allocate(std::size_t size) { return Bytes(new (std::nothrow) unsigned char[size]); }
    void countProducts(std::size_t bytes) { m_session.m_index->products += bytes; }

    void storePackets() {
        bool isAnyWrong = false;
        unsigned char* block = m_firstBlock;
        for (int i = 0; i < m_missingCount; ++i) {
            isAnyWrong |= !storePacket(i, block);
            block += m_isWhole[i] ? m_blockSize : 0;
        }
        if (isAnyWrong) {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request"
                          << ", fecSeq = " << m_fecSeq
                          << ", fecIndex = " << static_cast<unsigned int>(m_fecPacket.get_rs_index())
                          << ", fecBaseSeq = " << m_fecBase << ", fecNum = " << m_fecCount
                          << ", packetBaseSeq = " << m_mediaBase << ", packetNum = " << m_mediaCount);
        }
    }

    // Takes missing packet `i`, decoded to `block` if it was needed whole, into the session; false when it is
    // not the packet that was asked for.
    bool storePacket(int i, unsigned char* block) {
        const _uint16_t expectedSeq = mediaSeq(m_missing[i]);
        if (!isLengthRight(i)) {
            return false;
        }
        if (!m_isWhole[i]) {
            return reportOtherNumber(probedSeq(i), expectedSeq);
        }
        std::unique_ptr<CTalRtpPacket> packet(new CTalRtpPacket(block, probedLength(i)));
        if (packet->get_payload_size() < 0) {
            return false;
        }
        const _uint16_t seq = packet->get_sequence_number();
        if (seq != expectedSeq) {
            return reportOtherNumber(seq, expectedSeq);
        }
        TAL_TRACE(INFO, "CMMRTPSessionBase::recoverPacketWithRSFEC recoveredSeq = "
                            << seq << ", recoveredTS = " << packet->get_timestamp()
                            << ", sourceID = " << m_session.m_sourceId);
        if (m_session.getRecoverPacketBySeq(seq) != nullptr) {
            // Compatibility: the line carries the number of the last parity packet, not that of the repeated
            // packet.
            TAL_TRACE(WARNING, "CMMRTPSessionBase::recoverPacketWithRSFEC recover repeat packet: seq = "
                                   << m_lastParitySeq << ", ts = " << packet->get_timestamp());
            return true;
        }
        m_session.storeRecoveredPacket(seq, packet.release());
        return true;
    }

    // Returns false.
    static bool reportOtherNumber(_uint16_t seq, _uint16_t expectedSeq) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request"
                      << ", recoveredSeq = " << seq << ", requestSeq = " << expectedSeq);
        return false;
    }

    // What is decoded first: the rows of `m_probed`.
    enum EProbe { kLengthLow, kLengthHigh, kFlags, kSeqHigh, kSeqLow, kProbeColumns };

    CMMRTPSessionBase& m_session;
    CRTPRSPacket& m_fecPacket;
    const int m_mediaCount;  // k
    const int m_fecCount;    // m
    const _uint16_t m_mediaBase;
    const _uint16_t m_fecSeq;
    const _uint16_t m_fecBase;

    unsigned char m_present[kMaxShards];  // shard numbers at hand: media first, then parity
    int m_presentCount = 0;
    int m_presentMediaCount = 0;
    unsigned char m_missing[kMaxShards];  // media shards to rebuild
    int m_missingCount = 0;

    unsigned char* m_blocks[kMaxShards];
    int m_sizes[kMaxShards];
    _uint16_t m_lengths[kMaxShards];  // length words, of which the upper two bytes are always 0

    int m_blockSize = 0;  // of the largest parity block
    _uint16_t m_lastParitySeq = 0;
    unsigned char m_probed[kProbeColumns][kMaxShards];
    bool m_isWhole[kMaxShards];
    Bytes m_output;  // coefficients, then the blocks of the packets that are needed whole
    unsigned char* m_firstBlock = nullptr;
};

void CMMRTPSessionBase::recoverPacketWithRSFEC(CRTPRSPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    CRsRecovery recovery(*this, *fecPacket);
    if (recovery.isTooLarge()) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC total number of packet and fec is over 256.");
        return;
    }
    if (recovery.isComplete()) {
        return;
    }
    if (!recovery.takeStock()) {
        keep = true;  // waits for more shards
        return;
    }
    if (recovery.gather() && !recovery.rebuild()) {
        keep = true;
    }
}

}  // namespace talrtp

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

#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <typeinfo>

#include "RsFecLines.h"
#include "TalRtpPacketView.h"
#include "TalRtpSessionRules.h"
#include "TalRtpTraceLine.h"
#include "fec/RsGroup.h"
#include "fec/XorRecovery.h"
#include "kernels/XorKernel.h"
#include "receive/ReceiveIndex.h"
#include "wire/PacketAccess.h"
#include "wire/PacketLayout.h"

namespace talrtp {

namespace {

// **Lends** `packet` as one of that class or of a class derived from it; null when it is another kind. The
// session makes no derived packets, so the search through the base classes is left to those of a host.
template <typename Packet>
Packet* packetAs(CTalRtpPacket* packet) {
    return typeid(*packet) == typeid(Packet) ? static_cast<Packet*>(packet) : dynamic_cast<Packet*>(packet);
}

// **Lends** the rebuilt packet with that number that is not dealt yet, or null.
CTalRtpPacket* findRebuilt(const CMMRTPSessionBase::PacketMap& rebuilt, _uint16_t seq) {
    const auto entry = rebuilt.find(seq);
    return entry != rebuilt.end() ? entry->second : nullptr;
}

// **Lends** the media packet of a known number: stored, or rebuilt and not dealt yet.
const CTalRtpPacket& knownPacket(_uint16_t seq, const CReceiveIndex& index,
                                 const CMMRTPSessionBase::PacketMap& rebuilt) {
    const CTalRtpPacket* const stored = index.media.find(seq);
    return stored != nullptr ? *stored : *rebuilt.find(seq)->second;
}

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

namespace {

// Records a stored FEC packet under its timestamp.
void noteFecPacket(const CMMRTPSessionBase& session, _uint32_t timestamp, _uint16_t seq, _uint64_t now) {
    CReceiveIndex& index = CSessionAccess::listsFor(session, timestamp);
    stTalRtpTSInfo* const record = index.records.findOrMake(timestamp, now);
    if (record != nullptr) {
        index.fec.note(record, seq);
        index.records.touch(record, now);
    }
}

// **Takes** `packet`: stores it and notes it. False when memory is short for that: it is destroyed then.
bool keepFecPacket(const CMMRTPSessionBase& session, CTalRtpPacket* packet, _uint32_t fecType,
                   _uint64_t now) {
    const _uint16_t seq = packet->get_sequence_number();
    try {
        std::unique_ptr<CTalRtpPacket> owned(packet);
        CReceiveIndex& index = CSessionAccess::lists(session);
        index.removeFec(seq);  // a hook may have stored one since it was looked for
        index.fec.add(seq, owned.release(), fecType);
        noteFecPacket(session, packet->get_timestamp(), seq, now);
        return true;
    } catch (const std::bad_alloc&) {
        CSessionAccess::index(session).fec.remove(seq);
        return false;
    }
}

}  // namespace

int CMMRTPSessionBase::inputReceivedFECPacket(CTalRtpPacket* fecPacket) {
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::inputReceivedFECPacket invalid parameter: fecPacket = " << fecPacket);
        return -1;
    }
    std::unique_ptr<CTalRtpPacket> owned(fecPacket);  // a host's hook may throw
    if (getFECPacketBySeq(fecPacket->get_sequence_number()) != nullptr) {
        return 0;
    }
    const _uint64_t size = static_cast<_uint64_t>(fecPacket->get_buffer_size());
    ++m_receivedValidFECPacketNumber;
    m_receivedValidFECPacketBytes += size;
    bool keep = false;
    recoverPacketWithFEC(fecPacket, keep);
    if (keep && !keepFecPacket(*this, owned.release(), m_fecType, m_lastReceivedTime)) {
        --m_receivedValidFECPacketNumber;
        m_receivedValidFECPacketBytes -= size;
        m_index->isShort = true;
    }
    owned.reset();
    dealRecoverPacketList();
    return 0;
}

CTalRtpPacket* CMMRTPSessionBase::getFECPacketBySeq(unsigned short seq) const {
    const CReceiveIndex& index = CSessionAccess::lists(*this);
    return CSessionAccess::listsIf(*this, !index.isHost || index.fec.isTrue(seq)).fec.find(seq);
}

void CMMRTPSessionBase::updateFECListInfo(unsigned int timestamp, unsigned short seq) {
    noteFecPacket(*this, timestamp, seq, m_lastReceivedTime);
}

void CMMRTPSessionBase::removeFECInfoFromList(unsigned int timestamp, unsigned short seq) {
    stTalRtpTSInfo* const record = CSessionAccess::listsFor(*this, timestamp).records.find(timestamp);
    if (record != nullptr) {
        m_index->fec.forgetNote(record, seq);
    }
}

// --- The cycle ---

void CMMRTPSessionBase::recoverPacketWithFEC() {
    if (CSessionAccess::listsForFec(*this).fec.hasWork(m_fecType)) {
        CSessionAccess::retryFecPackets(*this);
    }
    if (!m_recoverPacketList.empty()) {
        dealRecoverPacketList();
    }
}

namespace {

// While one exists, tries keep the sizes of media packets for the next ones.
class CRoundOfTries {
public:
    // A host's hooks may change packets, so its sessions keep none.
    explicit CRoundOfTries(CReceiveIndex& index) : m_index(index) {
        m_index.windowSizes.forget();
        m_index.isInRound = !index.isHost;
    }
    ~CRoundOfTries() { m_index.isInRound = false; }
    CRoundOfTries(const CRoundOfTries&) = delete;
    CRoundOfTries& operator=(const CRoundOfTries&) = delete;

private:
    CReceiveIndex& m_index;
};

}  // namespace

void CSessionAccess::retryFecPackets(CMMRTPSessionBase& session) {
    CReceiveIndex& index = listsForFec(session);
    const CRoundOfTries round(index);
    bool isEveryDue = index.fec.beginRound(session.m_fecType);
    _uint16_t seq = 0;
    while (lists(session).fec.findNextTry(isEveryDue, seq)) {
        ++index.meter.steps;
        if (!index.isHost) {  // a host may have destroyed what the store would fetch
            index.fec.prefetchAfter(seq);
        }
        retryFecPacket(session, seq);
        if (seq == kLastNumber) {
            return;
        }
        ++seq;
        isEveryDue |= lists(session).fec.isEveryDue();  // after a hook changed the lists
    }
}

void CSessionAccess::retryFecPacket(CMMRTPSessionBase& session, _uint16_t seq) {
    CTalRtpPacket* const fecPacket = session.getFECPacketBySeq(seq);
    if (fecPacket == nullptr) {
        return;  // a host took it out
    }
    bool keep = false;
    session.recoverPacketWithFEC(fecPacket, keep);
    if (session.getFECPacketBySeq(seq) != fecPacket) {
        return;  // or its hook did
    }
    if (keep) {
        session.m_index->fec.waitAgain(seq);
        return;
    }
    session.removeFECInfoFromList(fecPacket->get_timestamp(), fecPacket->get_sequence_number());
    session.m_index->fec.remove(seq);
}

void CMMRTPSessionBase::recoverPacketWithFEC(CTalRtpPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    try {
        // A packet of the other kind, stored before the FEC type was changed, has nothing more to give.
        if (m_fecType == RTP_FEC_RS) {
            if (auto* const rsPacket = packetAs<CRTPRSPacket>(fecPacket)) {
                recoverPacketWithRSFEC(rsPacket, keep);
            }
        } else if (m_fecType == RTP_FEC_XOR) {
            if (auto* const xorPacket = packetAs<CRTPFECPacket>(fecPacket)) {
                recoverPacketWithXORFEC(xorPacket, keep);
            }
        }
    } catch (const std::bad_alloc&) {
        keep = true;  // as if nothing had been rebuilt
        m_index->isShort = true;
    }
}

void CMMRTPSessionBase::dealRecoverPacketList() {
    bool isAnyDealt = false;
    while (CSessionAccess::dealRecoveredPackets(*this)) {
        isAnyDealt = true;
        CSessionAccess::retryFecPackets(*this);
    }
    if (isAnyDealt) {
        checkAllLists();
    }
}

// A hook may change the list, so the next entry is found by its number. A packet that finds no memory waits
// with those after it.
bool CSessionAccess::dealRecoveredPackets(CMMRTPSessionBase& session) {
    const CMMRTPSessionBase::PacketMap& rebuilt = session.m_recoverPacketList;
    bool isAnyDealt = false;
    bool isRefused = false;
    unsigned int next = 0;
    try {
        while (next <= kLastNumber) {
            const auto entry = rebuilt.lower_bound(static_cast<_uint16_t>(next));
            if (entry == rebuilt.end()) {
                break;
            }
            const _uint16_t key = entry->first;
            next = key + 1u;
            isAnyDealt |= entry->second != nullptr && dealRecoveredPacket(session, entry->second, isRefused);
            if (isRefused) {
                forgetRecovered(session, key);
                return isAnyDealt;
            }
        }
    } catch (...) {
        forgetRecovered(session, next);
        throw;
    }
    forgetRecovered(session, kLastNumber + 1u);
    return isAnyDealt;
}

void CSessionAccess::forgetRecovered(CMMRTPSessionBase& session, unsigned int end) {
    CMMRTPSessionBase::PacketMap& rebuilt = session.m_recoverPacketList;
    CReceiveIndex& index = *session.m_index;
    const COwnNodes own(session.m_pool);
    while (!rebuilt.empty() && rebuilt.begin()->first < end) {
        index.forget(rebuilt.begin()->first);  // a hook may have taken the packet out of the media list
        rebuilt.erase(rebuilt.begin());
    }
    index.dropNulls();
}

bool CSessionAccess::dealRecoveredPacket(CMMRTPSessionBase& session, CTalRtpPacket* packet, bool& isRefused) {
    std::unique_ptr<CTalRtpPacket> owned(packet);
    const _uint16_t seq = packet->get_sequence_number();
    try {
        if (session.getMediaPacketBySeq(seq) != nullptr) {
            TAL_TRACE(WARNING, "CMMRTPSessionBase::dealRecoverPacketList recover repeat packet: seq = "
                                   << seq << ", ts = " << packet->get_timestamp());
            return false;
        }
        takeMediaPacket(session, owned, session.m_recoveredMediaPacketNumber,
                        session.m_recoveredMediaPacketBytes);
        return true;
    } catch (const std::bad_alloc&) {
        if (owned == nullptr) {
            throw;  // stored and recorded: what failed was the host's
        }
    }
    static_cast<void>(owned.release());
    session.m_index->knowAgain(seq);
    session.m_index->isShort = true;
    isRefused = true;
    return false;
}

CTalRtpPacket* CMMRTPSessionBase::getRecoverPacketBySeq(unsigned short seq) const {
    return findRebuilt(m_recoverPacketList, seq);
}

namespace {

// **Takes** a rebuilt packet into the list of those to be dealt. When memory is short, the packet is
// destroyed and std::bad_alloc passes.
void storeRecoveredPacket(CReceiveIndex& index, CMMRTPSessionBase::PacketMap& rebuilt, _uint16_t seq,
                          CTalRtpPacket* packet) {
    std::unique_ptr<CTalRtpPacket> owned(packet);
    const COwnNodes own(rebuilt.get_allocator().pool());
    const auto place = rebuilt.emplace(seq, nullptr);
    try {
        index.know(seq);
    } catch (...) {
        if (place.second) {
            rebuilt.erase(place.first);
        }
        throw;
    }
    if (place.first->second != packet) {
        delete place.first->second;  // of a hook
    }
    place.first->second = owned.release();
}

}  // namespace

// --- XOR recovery (RFC 2733, 7) ---

void CMMRTPSessionBase::recoverPacketWithXORFEC(CRTPFECPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithXORFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    const _uint16_t base = fecPacket->get_fec_sequence_number_base();
    const CNumberSet known = CSessionAccess::listsAround(*this, base, kFecMaskBits).media.known();
    const _uint64_t missing = xorMaskWindow(fecPacket->get_fec_mask()) & ~known.window(base, kFecMaskBits);
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
    std::unique_ptr<CTalRtpPacket> owned(packet);
    CReceiveIndex& index = CSessionAccess::lists(*this);  // the hook may have changed them
    storeRecoveredPacket(index, m_recoverPacketList, seq, owned.release());
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
    m_index->meter.steps += kFecMaskBits;
    const _uint16_t base = fecPacket->get_fec_sequence_number_base();
    const CNumberSet known = CSessionAccess::listsAround(*this, base, kFecMaskBits).media.known();
    _uint32_t present =
        xorMaskWindow(fecPacket->get_fec_mask()) & static_cast<_uint32_t>(known.window(base, kFecMaskBits));
    const auto packetAt = [this, base](unsigned int i) -> const CTalRtpPacket& {
        return knownPacket(static_cast<_uint16_t>(base + i), *m_index, m_recoverPacketList);
    };
    const auto sizeOf = [packetAt](unsigned int i) {
        return CPacketAccess::packetSize(packetAt(i)) - kFixedHeaderSize;
    };
    const int length =
        fecPacket->get_fec_recover_length() ^ m_index->sizesForTry().sum(base, present, sizeOf);
    // Forged parity mostly fails here, before a byte of a packet is read, unless somebody reads the lines
    // about packets that are too long.
    if (length > bodyCapacity && !isTraced(TRACE_WARNING)) {
        return nullptr;
    }
    CXorRecovery recovery(CPacketAccess::buffer(*fecPacket), bodyCapacity);
    const stByteView parity = {fecPacket->get_payload_ptr() + kFecHeaderSize,
                               fecPacket->get_payload_size() - kFecHeaderSize};
    // All are found before the first line is logged, in which a derived class may change the lists.
    const CTalRtpPacket* packets[kFecMaskBits];
    int count = 0;
    for (; present != 0; present &= present - 1) {
        packets[count++] = &packetAt(static_cast<unsigned int>(__builtin_ctz(present)));
    }
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

// The parity block of a Reed-Solomon FEC packet, after its FEC header; 0 bytes when the header is cut short.
int parityBlockSize(const CTalRtpPacket& fecPacket) {
    return std::max(fecPacket.get_payload_size() - kRsHeaderSize, 0);
}

// The packets of the group that a Reed-Solomon FEC packet belongs to, as far as they are available. Blocks
// 0 .. k-1 are the media packets, k .. k+m-1 the parity packets.
class CRsShards {
public:
    CRsShards(CReceiveIndex& index, const CMMRTPSessionBase::PacketMap& rebuilt, CRTPRSPacket& fecPacket)
        : packetCount(fecPacket.get_rs_mask()),
          fecCount(fecPacket.get_rs_count()),
          firstSeq(fecPacket.get_rs_sequence_number_base()),
          fecSeq(fecPacket.get_sequence_number()),
          fecIndex(fecPacket.get_rs_index()),
          firstFecSeq(static_cast<_uint16_t>(fecSeq - fecIndex)),
          m_index(index),
          m_rebuilt(rebuilt),
          m_fecPacket(fecPacket) {}

    const int packetCount;  // k
    const int fecCount;     // m
    const _uint16_t firstSeq;
    const _uint16_t fecSeq;
    const unsigned int fecIndex;
    const _uint16_t firstFecSeq;

    // Returns whether the lists hold the packets of the group that the stores know.
    bool isTrue() const {
        bool isTrue = isTooLarge() || m_index.isTrueFrom(firstSeq, static_cast<unsigned int>(packetCount));
        for (int j = 0; j < fecCount && isTrue; ++j) {
            isTrue = m_index.fec.isTrue(static_cast<_uint16_t>(firstFecSeq + j));
        }
        return isTrue;
    }
    bool isTooLarge() const { return packetCount + fecCount > kMaxRsBlocks; }
    bool isComplete() const { return availableMedia() == packetCount; }

    // Lists the positions of the available blocks, as many as a rebuild takes, and of the missing packets.
    // False when there are too few.
    bool list(CRsGroup& group) const {
        if (availableMedia() + mostParity() < packetCount) {
            return false;
        }
        m_index.meter.steps += static_cast<unsigned int>(packetCount + fecCount);
        for (int i = 0; i < packetCount; ++i) {
            if (m_index.media.known().contains(mediaSeq(i))) {
                group.listAvailable(i);
            } else {
                group.listMissing(i);
            }
        }
        for (int j = 0; j < fecCount && !group.hasEnough(); ++j) {
            if (parityPacket(j) != nullptr) {
                group.listAvailable(packetCount + j);
            }
        }
        return group.hasEnough();
    }

    // Lends the listed blocks to the group. Returns the number of the last parity packet.
    _uint16_t gather(CRsGroup& group) const {
        _uint16_t lastParitySeq = 0;
        for (int i = 0; i < group.availableCount(); ++i) {
            const int position = group.availablePosition(i);
            if (position < packetCount) {
                const stByteView packet = viewOf(knownPacket(mediaSeq(position), m_index, m_rebuilt));
                group.setBlock(i, packet, static_cast<_uint16_t>(packet.size));
                continue;
            }
            const CTalRtpPacket& packet = *parityPacket(position - packetCount);
            const unsigned char* const payload = packet.get_payload_ptr();
            group.setBlock(i, {payload + kRsHeaderSize, parityBlockSize(packet)},
                           loadBig16(payload + kRsLengthOffset));
            lastParitySeq = packet.get_sequence_number();
        }
        return lastParitySeq;
    }

private:
    _uint16_t mediaSeq(int i) const { return static_cast<_uint16_t>(firstSeq + i); }
    int availableMedia() const {
        return static_cast<int>(
            m_index.media.known().count(firstSeq, static_cast<unsigned int>(packetCount)));
    }
    // A bound that costs no look at any packet.
    int mostParity() const {
        const unsigned int stored =
            m_index.fec.numbers().count(firstFecSeq, static_cast<unsigned int>(fecCount));
        return static_cast<int>(stored) + 1;  // this packet may not be stored yet
    }

    // **Lends** parity packet `j` of the group, or null. The number alone decides: an XOR packet, stored
    // before the FEC type was changed, counts too, so what is returned is read as bytes.
    const CTalRtpPacket* parityPacket(int j) const {
        const _uint16_t seq = static_cast<_uint16_t>(firstFecSeq + j);
        return seq == fecSeq ? &m_fecPacket : m_index.fec.find(seq);
    }

    CReceiveIndex& m_index;
    const CMMRTPSessionBase::PacketMap& m_rebuilt;
    const CRTPRSPacket& m_fecPacket;
};

// Tells whether the parity blocks have one size and no media packet is longer. Logs a WARNING line otherwise.
bool isPlausible(const CRsGroup& group, const CRTPRSPacket& fecPacket) {
    const int fecPayloadSize = parityBlockSize(fecPacket);
    if (fecPayloadSize < group.largestPacket() || group.largestParity() != fecPayloadSize) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC fec payoad size is dubitable, fecPayloadSize = "
                      << fecPayloadSize << ", maxPacketLen = " << group.largestPacket()
                      << ", maxFecPayloadLen = " << group.largestParity());
        return false;
    }
    return true;
}

void reportNoMemory(const CRsShards& shards) {
    // Compatibility: the text names the sending operation, and a model that was not made.
    TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets get rs model failed"
                         << ", k = " << shards.packetCount
                         << ", n = " << shards.packetCount + shards.fecCount);
}

void reportWrongPackets(const CRsShards& shards) {
    TAL_TRACE(WARNING, "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request"
                           << ", fecSeq = " << shards.fecSeq << ", fecIndex = " << shards.fecIndex
                           << ", fecBaseSeq = " << shards.firstFecSeq << ", fecNum = " << shards.fecCount
                           << ", packetBaseSeq = " << shards.firstSeq
                           << ", packetNum = " << shards.packetCount);
}

// **Returns owned** a missing packet. Null, with a line if it has another number, when it is not the one that
// was asked for.
std::unique_ptr<CTalRtpPacket> makeRebuilt(const stRsRebuilt& rebuilt) {
    std::unique_ptr<CTalRtpPacket> packet;
    if (rebuilt.kind == ERsPacket::kWrongLength) {
        return packet;
    }
    if (rebuilt.kind == ERsPacket::kWhole) {
        packet = std::make_unique<CTalRtpPacket>(rebuilt.data, rebuilt.size);
        if (packet->get_payload_size() < 0) {
            packet.reset();
            return packet;
        }
    }
    if (rebuilt.seq != rebuilt.expectedSeq) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request"
                      << ", recoveredSeq = " << rebuilt.seq << ", requestSeq = " << rebuilt.expectedSeq);
        packet.reset();
    }
    return packet;
}

// Takes over the rebuilt packets of a group. False when one of them is not the one that was asked for.
bool takeRebuiltPackets(CReceiveIndex& index, CMMRTPSessionBase::PacketMap& rebuilt, const CRsGroup& group,
                        _uint16_t lastParitySeq, _uint32_t sourceId) {
    bool isEachRight = true;
    for (int i = 0; i < group.missingCount(); ++i) {
        std::unique_ptr<CTalRtpPacket> packet = makeRebuilt(group.rebuilt(i));
        if (packet == nullptr) {
            isEachRight = false;
            continue;
        }
        const _uint16_t seq = packet->get_sequence_number();
        TAL_TRACE(INFO, "CMMRTPSessionBase::recoverPacketWithRSFEC recoveredSeq = "
                            << seq << ", recoveredTS = " << packet->get_timestamp()
                            << ", sourceID = " << sourceId);
        if (findRebuilt(rebuilt, seq) != nullptr) {
            // Compatibility: the line carries the number of the last parity packet, not that of the repeated
            // packet.
            TAL_TRACE(WARNING, "CMMRTPSessionBase::recoverPacketWithRSFEC recover repeat packet: seq = "
                                   << lastParitySeq << ", ts = " << packet->get_timestamp());
            continue;
        }
        storeRecoveredPacket(index, rebuilt, seq, packet.release());
    }
    return isEachRight;
}

}  // namespace

void CMMRTPSessionBase::recoverPacketWithRSFEC(CRTPRSPacket* fecPacket, bool& keep) {
    keep = false;
    if (fecPacket == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC invalid parameter: fecPacket = " << fecPacket);
        return;
    }
    const CRsShards shards(CSessionAccess::lists(*this), m_recoverPacketList, *fecPacket);
    CSessionAccess::listsIf(*this, !m_index->isHost || shards.isTrue());
    if (shards.isTooLarge()) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::recoverPacketWithRSFEC total number of packet and fec is over 256.");
        return;
    }
    if (shards.isComplete()) {
        return;
    }
    CRsGroup group(shards.packetCount, shards.firstSeq);
    if (!shards.list(group)) {
        keep = true;  // waits for more shards
        return;
    }
    const _uint16_t lastParitySeq = shards.gather(group);
    if (!isPlausible(group, *fecPacket)) {
        return;
    }
    const ERsRebuilding outcome = group.rebuild(isTraced(TRACE_WARNING));
    m_index->meter.products += group.products();
    if (outcome == ERsRebuilding::kTooLong) {
        reportTooLongToDecode(group.largestParity());
    } else if (outcome == ERsRebuilding::kShortOfMemory) {
        reportNoMemory(shards);
        m_index->isShort = true;
        keep = true;
    } else if (!takeRebuiltPackets(*m_index, m_recoverPacketList, group, lastParitySeq, m_sourceId)) {
        reportWrongPackets(shards);
    }
}

}  // namespace talrtp

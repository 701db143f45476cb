// The session: construction, configuration, and the receive pipeline from a datagram to the delivery hooks.
// Sending is in TalRtpSessionSend.cpp, forward error correction on receive in TalRtpSessionFec.cpp, the H.264
// session's depacketization in TalRtpSessionSvc.cpp.

#include <talrtp/RsFec.h>
#include <talrtp/TalRtpSession.h>

#include <atomic>
#include <memory>
#include <new>
#include <typeinfo>
#include <utility>

#include "TalRtpRandom.h"
#include "TalRtpSessionRules.h"
#include "TalRtpTraceLine.h"
#include "memory/NodePool.h"
#include "receive/Prefetch.h"
#include "wire/PacketLayout.h"

namespace talrtp {

namespace {

constexpr _uint32_t kDefaultPayloadType = 98;
constexpr _uint32_t kDefaultFecPayloadType = 111;

// A timestamp ages out when this many milliseconds have passed since its last packet: more than 5000.
constexpr _uint64_t kMaxAgeMs = 5000;

bool isStale(const stTalRtpTSInfo& info, _uint64_t now) {
    // Compatibility: unsigned, so that a host clock that steps back ages everything out at once.
    return now - info.updateTime > kMaxAgeMs;
}

}  // namespace

// --- Life cycle and configuration ---

ITalRTPSession::~ITalRTPSession() = default;

// The pool is made with the first list that needs it, since it is declared after the lists: the order of the
// members is binary interface. Nothing throws before the body, which owns it until it is complete.
CMMRTPSessionBase::CMMRTPSessionBase(ITalRTPSessionSink* pSink, unsigned int sourceId)
    : m_pSink(pSink),
      m_sourceId(sourceId),
      m_payloadType(kDefaultPayloadType),
      m_fecPayloadType(kDefaultFecPayloadType),
      m_fecType(RTP_FEC_RS),
      m_sequenceNumber(static_cast<_uint16_t>(random32())),
      m_fecSequenceNumber(static_cast<_uint16_t>(random32())),
      m_mediaPacketList(std::less<_uint16_t>(), PacketMap::allocator_type(new CPagedNodePool)),
      m_fecPacketList(std::less<_uint16_t>(), m_mediaPacketList.get_allocator()),
      m_recoverPacketList(std::less<_uint16_t>(), m_mediaPacketList.get_allocator()),
      m_tsInfoList(std::less<_uint32_t>(), m_mediaPacketList.get_allocator()),
      m_receivedTS(0),
      m_firstReceivedTime(0),
      m_lastReceivedTime(0),
      m_isFirstReceived(true),
      m_createdMediaPacketNumber(0),
      m_createdFECPacketNumber(0),
      m_receivedPacketNumber(0),
      m_receivedPacketBytes(0),
      m_receivedMediaPacketNumber(0),
      m_receivedValidMediaPacketNumber(0),
      m_receivedValidMediaPacketBytes(0),
      m_receivedFECPacketNumber(0),
      m_receivedValidFECPacketNumber(0),
      m_receivedValidFECPacketBytes(0),
      m_recoveredMediaPacketNumber(0),
      m_recoveredMediaPacketBytes(0),
      m_deliveredDataBytes(0),
      m_pool(m_mediaPacketList.get_allocator().pool()),
      m_index(nullptr) {
    std::unique_ptr<CPagedNodePool> owned(static_cast<CPagedNodePool*>(m_pool));  // until there is an index
    m_index =
        new CReceiveIndex(m_pool, m_mediaPacketList, m_fecPacketList, m_recoverPacketList, m_tsInfoList);
    static_cast<void>(owned.release());
    RsMapRetain();
}

CMMRTPSessionBase::~CMMRTPSessionBase() {
    displayStatisticInfo();
    m_pSink = nullptr;  // nothing in the clean-up can reach the host
    clearAllList();
    RsMapRelease();
    // The lists, destroyed after this, are empty: no node of the pool is in use.
    delete m_index;
    delete static_cast<CPagedNodePool*>(m_pool);
}

int CMMRTPSessionBase::SetPayloadType(unsigned long payloadType, unsigned long fecPayloadType) {
    if (payloadType == fecPayloadType) {
        TAL_TRACE(
            WARNING,
            "CMMRTPSessionBase::SetPayloadType invalid parameter: payloadType is same as fecPayloadType, "
            "payloadType = "
                << payloadType);
        return -1;
    }
    // Compatibility: no check of the range here. A packet's own setter asserts on a value above 127 later.
    m_payloadType = static_cast<_uint32_t>(payloadType);
    m_fecPayloadType = static_cast<_uint32_t>(fecPayloadType);
    return 0;
}

int CMMRTPSessionBase::SetFecType(unsigned long fecType) {
    if (fecType > RTP_FEC_RS) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::SetFecType invalid parameter: unknown fecType, fecType = " << fecType);
        return -1;
    }
    m_fecType = static_cast<_uint32_t>(fecType);
    return 0;
}

unsigned int CMMRTPSessionBase::random32() {
    static std::atomic<bool> isSeeded{false};
    return drawRandom32(isSeeded);
}

int CMMRTPSessionBase::compareSeq(unsigned short a, unsigned short b) {
    constexpr unsigned short kMaxAhead = 32768;
    if (a == b) {
        return 0;
    }
    return static_cast<unsigned short>(a - b) <= kMaxAhead ? 1 : -1;
}

int CMMRTPSessionBase::compareTS(unsigned int a, unsigned int b) {
    constexpr unsigned int kMaxAhead = 0x80000000u;
    if (a == b) {
        return 0;
    }
    return a - b <= kMaxAhead ? 1 : -1;
}

// A class derived from the library's is a host even if it overrides nothing: the compiler tells the
// classes of two objects, not which functions they override.
CMMRTPSession4SVC* stockSession(CMMRTPSessionBase& session) {
    return typeid(session) == typeid(CMMRTPSession4SVC) ? static_cast<CMMRTPSession4SVC*>(&session) : nullptr;
}

// --- The receive lists, which a derived class may change at any time ---

// A hook that is asked for a bound may look at the lists, and change them: the rebuild in it asks no hooks,
// so that these call each other twice at most. NOLINTBEGIN(misc-no-recursion)

void CSessionAccess::refreshLists(const CMMRTPSessionBase& session) {
    if (!session.m_index->isTrue()) {
        rebuildLists(session);
    }
}

// A hook that is being asked about one packet may change the lists again. The bounds that are known then are
// kept, and all are asked once more.
void CSessionAccess::rebuildLists(const CMMRTPSessionBase& session) {
    CReceiveIndex& index = *session.m_index;
    index.rebuild(index.isAsking);
    if (index.isAsking) {
        index.mustAskAgain = true;
        return;
    }
    index.isAsking = true;
    try {
        askUnitBounds(const_cast<CMMRTPSessionBase&>(session));
    } catch (...) {
        index.isAsking = false;
        index.invalidate();
        throw;
    }
    index.isAsking = false;
}

// Hooks that change the lists whenever they are asked are asked three times.
void CSessionAccess::askUnitBounds(CMMRTPSessionBase& session) {
    constexpr int kRounds = 3;
    for (int round = 0; round < kRounds; ++round) {
        session.m_index->mustAskAgain = false;
        unsigned int next = 0;
        _uint16_t seq;
        while (next <= kLastNumber && lists(session).media.findStored(static_cast<_uint16_t>(next), seq)) {
            const bool ends = session.isEndSeq(seq);  // in the order in which a new packet is asked about
            const bool starts = session.isStartSeq(seq);
            lists(session).media.setUnitBounds(seq, starts, ends);
            next = seq + 1u;
        }
        if (!session.m_index->mustAskAgain) {
            return;
        }
    }
}
// NOLINTEND(misc-no-recursion)

// --- Receive entry ---

namespace {

// Makes a call of the host, which fails when memory was refused to it. An exception of the sink passes.
template <typename Call>
int failIfShort(CMMRTPSessionBase& session, Call call) {
    CReceiveIndex& index = CSessionAccess::index(session);
    index.isShort = false;
    index.isInSink = false;
    if (index.isHost && stockSession(session) != nullptr) {
        index.setStock();
    }
    try {
        const int result = call();
        return index.isShort ? -1 : result;
    } catch (const std::bad_alloc&) {
        if (index.isInSink) {
            throw;
        }
        return -1;
    }
}

// **Returns owned** a packet over a copy of `data`.
CTalRtpPacket* makeReceivedPacket(unsigned char* data, int size, unsigned int fecPayloadType,
                                  unsigned int fecType) {
    if (readPayloadType(data) != fecPayloadType) {
        return new CTalRtpPacket(data, size);
    }
    if (fecType == RTP_FEC_XOR) {
        return new CRTPFECPacket(data, size);
    }
    return new CRTPRSPacket(data, size);
}

}  // namespace

int CMMRTPSessionBase::InputReceivedData(unsigned char* data, int dataLen, unsigned long receivedTime) {
    return failIfShort(*this, [&] {
        CSessionAccess::countDatagram(*this, dataLen, receivedTime);
        std::unique_ptr<CTalRtpPacket> packet = CSessionAccess::parseDatagram(*this, data, dataLen);
        return packet != nullptr ? CSessionAccess::routePacket(*this, std::move(packet)) : -1;
    });
}

void CSessionAccess::countDatagram(CMMRTPSessionBase& session, int size, unsigned long receivedTimeMs) {
    if (session.m_isFirstReceived) {
        session.m_firstReceivedTime = receivedTimeMs;
        session.m_isFirstReceived = false;
    }
    session.m_lastReceivedTime = receivedTimeMs;
    ++session.m_receivedPacketNumber;
    session.m_receivedPacketBytes += static_cast<_uint64_t>(static_cast<_int64_t>(size));
}

std::unique_ptr<CTalRtpPacket> CSessionAccess::parseDatagram(const CMMRTPSessionBase& session,
                                                             unsigned char* data, int size) {
    std::unique_ptr<CTalRtpPacket> packet;
    if (data == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::InputReceivedData load data failed"
                             << ", data = " << data << ", dataLen = " << size);
        return packet;
    }
    if (size >= kFixedHeaderSize) {
        packet.reset(makeReceivedPacket(data, size, session.m_fecPayloadType, session.m_fecType));
    }
    if (packet == nullptr || !packet->validate()) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::InputReceivedData check data validate failed"
                             << ", data = " << data << ", dataLen = " << size);
        // Compatibility: a refused packet stays allocated. Hosts that count allocations expect the block.
        static_cast<void>(packet.release());
    }
    return packet;
}

int CSessionAccess::routePacket(CMMRTPSessionBase& session, std::unique_ptr<CTalRtpPacket> packet) {
    const unsigned int payloadType = packet->get_payload_type();
    const unsigned int fecPayloadType = session.m_fecPayloadType;
    if (payloadType == fecPayloadType) {
        ++session.m_receivedFECPacketNumber;
        const int result = session.inputReceivedFECPacket(packet.release());
        // Compatibility: logged for every FEC packet; hosts filter on this line.
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::InputReceivedData payload type is FEC, but memomy alligned according "
                  "to DATA. "
                  "pHeader->ph_pt = "
                      << payloadType << ",  m_fecPayloadType  = " << fecPayloadType);
        return result;
    }
    if (payloadType == session.m_payloadType) {
        ++session.m_receivedMediaPacketNumber;
        return session.inputReceivedMediaPacket(packet.release());
    }
    TAL_TRACE(INFO, "CMMRTPSessionBase::InputReceivedData payload type is unknown"
                        << ", type  = " << payloadType);
    return 1;
}

bool CMMRTPSessionBase::isFECPacket(unsigned int payloadType) const {
    return payloadType == m_fecPayloadType;
}

// --- Media packets: store, record ---

int CMMRTPSessionBase::inputReceivedMediaPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR,
                  "CMMRTPSessionBase::inputReceivedMediaPacket invalid parameter: packet = " << packet);
        return -1;
    }
    std::unique_ptr<CTalRtpPacket> owned(packet);  // a hook that is asked about changed lists may throw
    if (CSessionAccess::lists(*this).media.isFull()) {
        checkAllLists();  // every packet is a duplicate now, and nothing else would ever age out again
    }
    const _uint16_t seq = packet->get_sequence_number();
    if (getMediaPacketBySeq(seq) != nullptr) {
        return 0;
    }
    CSessionAccess::takeMediaPacket(*this, owned, m_receivedValidMediaPacketNumber,
                                    m_receivedValidMediaPacketBytes);
    recoverPacketWithFEC();
    checkAllLists();
    return 0;
}

namespace {

// The path of a new media packet, for either set of rules:
//
//   store      the list and its store; after a failure the packet is the caller's
//   count      the packet and its capacity; a failure below takes both back
//   record     its bounds, its timestamp, its unit; after a failure the packet is the caller's
//   deliver    what the packet made whole; what fails now is the host's, and the packet stays
template <typename Rules>
void recordAndDeliver(const Rules& rules, std::unique_ptr<CTalRtpPacket>& owned, _uint64_t& counter,
                      _uint64_t& byteCounter) {
    CReceiveIndex& index = rules.lists();
    CTalRtpPacket* const packet = owned.get();
    const _uint32_t timestamp = packet->get_timestamp();
    const _uint16_t seq = packet->get_sequence_number();
    const _uint64_t size = static_cast<_uint64_t>(packet->get_buffer_size());
    // A host's hooks look at stored packets. Until they were asked, the packet is a unit by itself.
    index.addMedia(seq, packet, Rules::kAsksHooks || rules.starts(seq), Rules::kAsksHooks || rules.ends(seq));
    ++counter;
    byteCounter += size;
    const stTalRtpDataInfo* unit = nullptr;
    try {
        if (Rules::kAsksHooks) {
            const bool ends = rules.ends(seq);  // hosts rely on the order
            const bool starts = rules.starts(seq);
            rules.lists().media.setUnitBounds(seq, starts, ends);
        }
        unit = CSessionAccess::record(rules, timestamp, seq);
    } catch (...) {
        --counter;
        byteCounter -= size;
        if (!CSessionAccess::index(rules.session).takeBack(seq, packet, timestamp)) {
            static_cast<void>(owned.release());  // a hook took it out
        }
        throw;
    }
    static_cast<void>(owned.release());
    if (!Rules::kAsksHooks || CSessionAccess::mediaPacket(rules.session, seq) == packet) {
        rules.deal(packet, unit);
    }
}

// A function of its own, so that the path of the library's class has the registers to itself.
__attribute__((noinline)) void takeForHost(CMMRTPSessionBase& session, std::unique_ptr<CTalRtpPacket>& owned,
                                           _uint64_t& counter, _uint64_t& byteCounter) {
    recordAndDeliver(stHostRules{session}, owned, counter, byteCounter);
}

}  // namespace

void CSessionAccess::takeMediaPacket(CMMRTPSessionBase& session, std::unique_ptr<CTalRtpPacket>& owned,
                                     _uint64_t& counter, _uint64_t& byteCounter) {
    if (CMMRTPSession4SVC* const stock = stockSession(session)) {
        recordAndDeliver(stStockRules(*stock, *owned), owned, counter, byteCounter);
    } else {
        takeForHost(session, owned, counter, byteCounter);
    }
}

CTalRtpPacket* CMMRTPSessionBase::getMediaPacketBySeq(unsigned short seq) const {
    return CSessionAccess::mediaPacket(*this, seq);
}

void CMMRTPSessionBase::updateMediaDataInfo(unsigned int timestamp, unsigned short seq) {
    CSessionAccess::record(stHostRules{*this}, timestamp, seq);
}

stTalRtpDataInfo* CMMRTPSessionBase::getMediaDataInfo(unsigned int timestamp, unsigned short seq) {
    unsigned short startSeq = 0;
    if (!findStartSeq(seq, startSeq)) {
        return nullptr;
    }
    const CTimestampRecords& records = CSessionAccess::listsFor(*this, timestamp).records;
    const stTalRtpTSInfo* const record = records.find(timestamp);
    return record != nullptr ? records.findUnit(record, startSeq) : nullptr;
}

// --- Delivery ---

void CMMRTPSessionBase::dealPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::dealPacket invalid parameter: packet = " << packet);
        return;
    }
    packet->set_packet_type(PACKET_TYPE_UNITS);
    deliverPacket(packet);
}

void CMMRTPSessionBase::forceHandoverPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::forceHandoverPacket invalid parameter: packet = " << packet);
        return;
    }
    packet->set_packet_type(PACKET_TYPE_UNITS);
    deliverPacket(packet);
}

// The unit is looked up by the numbers in the packet, not lent by the caller: a host may deliver packets of
// its own, and the unit of a run can be kept under another timestamp than that of its last fragment.
void CMMRTPSessionBase::deliverPacket(CTalRtpPacket* packet) {
    if (packet == nullptr || m_pSink == nullptr) {
        return;
    }
    m_deliveredDataBytes += static_cast<_uint64_t>(static_cast<_int64_t>(packet->get_payload_size()));
    if (stTalRtpDataInfo* const unit =
            getMediaDataInfo(packet->get_timestamp(), packet->get_sequence_number())) {
        unit->delivered = true;
    }
    m_index->isInSink = true;
    m_pSink->OnReceivedRTPPacket(packet);
    m_index->isInSink = false;
}

int CMMRTPSessionBase::ForceHandover(unsigned long timestamp) {
    return failIfShort(
        *this, [&] { return CSessionAccess::handOverUnits(*this, static_cast<_uint32_t>(timestamp)); });
}

// A hook or the sink may change the map that is walked, so the next unit is found by its number.
int CSessionAccess::handOverUnits(CMMRTPSessionBase& session, _uint32_t timestamp) {
    bool isHandedOver = false;
    unsigned int next = 0;
    while (const stTalRtpTSInfo* const record = listsFor(session, timestamp).records.find(timestamp)) {
        auto entry = record->dataInfoMap.lower_bound(static_cast<_uint16_t>(next));
        while (entry != record->dataInfoMap.end() && (entry->second == nullptr || entry->second->delivered)) {
            ++entry;
        }
        if (entry == record->dataInfoMap.end()) {
            break;
        }
        const _uint16_t seq = entry->first;
        session.forceHandoverPacket(mediaPacket(session, seq));
        isHandedOver = true;
        if (seq == kLastNumber) {
            break;
        }
        next = seq + 1u;
    }
    return isHandedOver ? 0 : 1;
}

bool CMMRTPSessionBase::findStartSeq(unsigned short seq, unsigned short& startSeq) {
    startSeq = seq;
    return true;
}

bool CMMRTPSessionBase::findEndSeq(unsigned short startSeq, unsigned short& endSeq) {
    endSeq = startSeq;
    return true;
}

bool CMMRTPSessionBase::isStartSeq(unsigned short /*seq*/) {
    return true;
}

bool CMMRTPSessionBase::isEndSeq(unsigned short /*seq*/) {
    return true;
}

// --- Ageing and clean-up ---

namespace {

// Frees a timestamp with its packets.
void ageOut(CReceiveIndex& index, stTalRtpTSInfo* record) {
    prefetch(CAgeOrder::newer(record));  // ages out next
    index.meter.steps += record->mediaSeqList.size() + record->fecSeqList.size();
    for (const _uint16_t seq : record->mediaSeqList) {
        if (!index.isHost) {  // a host may have destroyed what the store would fetch
            index.media.prefetchAgeing(seq);
        }
        index.removeMedia(seq);
    }
    for (const _uint16_t seq : record->fecSeqList) {
        index.removeFec(seq);
    }
    index.records.remove(record);
}

}  // namespace

void CMMRTPSessionBase::checkAllLists() {
    m_index->handover.age(m_lastReceivedTime, kMaxAgeMs);
    const CTimestampRecords& records = CSessionAccess::lists(*this).records;
    const CAgeOrder& order = records.order();
    while (order.oldest() != nullptr && isStale(*order.oldest(), m_lastReceivedTime)) {
        if (!records.isTrue(order.oldest())) {
            CSessionAccess::rebuildLists(*this);
            continue;
        }
        ageOut(*m_index, order.oldest());
    }
    // After the clock stepped back, records newer than now count as stale too.
    stTalRtpTSInfo* record = order.newest();
    while (record != nullptr && record->updateTime > m_lastReceivedTime) {
        ++m_index->meter.steps;
        stTalRtpTSInfo* older = CAgeOrder::older(record);
        if (!records.isTrue(record)) {
            CSessionAccess::rebuildLists(*this);
            older = order.newest();
        } else if (isStale(*record, m_lastReceivedTime)) {
            ageOut(*m_index, record);
        }
        record = older;
    }
}

void CMMRTPSessionBase::clearAllList() {
    m_index->clear();
}

// --- Statistics ---

bool CMMRTPSessionBase::updateReceivedTS(unsigned int timestamp) {
    constexpr unsigned int kMaxAhead = 0x80000000u;
    if (timestamp == m_receivedTS || timestamp - m_receivedTS > kMaxAhead) {
        return false;
    }
    m_receivedTS = timestamp;
    return true;
}

void CMMRTPSessionBase::displayStatisticInfo() const {
    if (m_createdMediaPacketNumber != 0) {
        TAL_TRACE_WITHOUT_POSITION(INFO, "CMMRTPSessionBase::displayStatisticInfo SourceID = "
                                             << m_sourceId
                                             << ", CreatedMediaPacketNumber = " << m_createdMediaPacketNumber
                                             << ", CreatedFECPacketNumber = " << m_createdFECPacketNumber);
    }
    if (m_receivedPacketNumber != 0) {
        TAL_TRACE_WITHOUT_POSITION(
            INFO,
            "CMMRTPSessionBase::displayStatisticInfo SourceID = "
                << m_sourceId << ", ReceivedTime = " << m_lastReceivedTime - m_firstReceivedTime << " ms"
                << ", ReceivedPacketNumber = " << m_receivedPacketNumber << ", ReceivedPacketBytes = "
                << m_receivedPacketBytes << ", ReceivedMediaPacketNumber = " << m_receivedMediaPacketNumber
                << ", ReceivedValidMediaPacketNumber = " << m_receivedValidMediaPacketNumber
                << ", ReceivedFECPacketNumber = " << m_receivedFECPacketNumber
                << ", ReceivedValidFECPacketNumber = " << m_receivedValidFECPacketNumber
                << ", RecoveredMediaPacketNumber = " << m_recoveredMediaPacketNumber
                << ", DeliveredDataBytes = " << m_deliveredDataBytes);
    }
}

}  // namespace talrtp

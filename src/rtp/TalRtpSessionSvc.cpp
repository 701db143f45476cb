// The H.264 session: payload writers and depacketization (RFC 6184, 5.6 to 5.8).
//
//   single NAL unit packet    STAP-A                             FU-A
//   +--------------------+    +--------------+                   +--------------+ 0
//   | NAL unit           |    | F NRI    24  | 0                 | F NRI    28  |
//   +--------------------+    +--------------+                   +--------------+ 1
//                             | unit size    | 1, 2  } for each  | S E R  type  |
//                             | unit         | 3 ... } unit      +--------------+ 2
//                             +--------------+                   | piece        |

#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "TalRtpSessionLists.h"
#include "TalRtpTraceLine.h"
#include "wire/H264Payload.h"
#include "wire/PacketAccess.h"

namespace talrtp {

namespace {

constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
constexpr int kStartCodeSize = static_cast<int>(sizeof(kStartCode));

// The most bytes of a hand-over's buffer. A test builds this file with fewer, so that units reach them.
#ifndef TALRTP_LARGEST_HANDOVER
#define TALRTP_LARGEST_HANDOVER INT_MAX
#endif
constexpr int kLargestHandover = TALRTP_LARGEST_HANDOVER;

// A payload byte; 0 beyond the end of the payload.
unsigned char payloadByte(const CTalRtpPacket& packet, int offset) {
    return offset < packet.get_payload_size() ? packet.get_payload_ptr()[offset] : 0;
}

// Bytes of a fragment after its two headers.
int fragmentDataSize(const CTalRtpPacket& packet) {
    return std::max(packet.get_payload_size() - kFuHeadersSize, 0);
}

}  // namespace

CMMRTPSession4SVC::CMMRTPSession4SVC(ITalRTPSessionSink* pSink, unsigned int sourceId)
    : CMMRTPSessionBase(pSink, sourceId) {}

CMMRTPSession4SVC::~CMMRTPSession4SVC() = default;

// --- Payload writers ---

int CMMRTPSession4SVC::setPacketPayload(int index, int count, int size, unsigned char* data,
                                        CTalRtpPacket* packet) {
    if (count == 1) {
        return setSinglePayload(size, data, packet);
    }
    if (count == 0) {
        return setAUPayload(index, size, data, packet);
    }
    if (count < 0) {
        TAL_TRACE(WARNING,
                  "CMMRTPSession4SVC::setPacketPayload payload count is samller zero, count = " << count);
        return -1;
    }
    return setFUPayload(index, count, size, data, packet);
}

int CMMRTPSession4SVC::setSinglePayload(int size, unsigned char* data, CTalRtpPacket* packet) {
    if (data == nullptr || packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::setSinglePayload invalid parameter: packet = "
                             << packet << ", data = " << data);
        return -1;
    }
    m_nalHeader = data[0];
    packet->set_payload_size(size);
    appendBytes(CPacketAccess::payload(*packet), data, size);
    return 0;
}

// Each call appends one unit and rewrites the header, whose NRI is the highest of the units so far:
//
//   call 1   [24 | NRI 1] size unit
//   call 2   [24 | NRI 3] size unit size unit
//   call 3   [24 | NRI 3] size unit size unit size unit
int CMMRTPSession4SVC::setAUPayload(int index, int size, unsigned char* data, CTalRtpPacket* packet) {
    if (data == nullptr || packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::setAUPayload invalid parameter: packet = "
                             << packet << ", data = " << data);
        return -1;
    }
    const bool isFirst = index == 1;
    const unsigned char header = data[0];
    if (isFirst || (header & kNriMask) > (m_nalHeader & kNriMask)) {
        m_nalHeader = static_cast<_uint8_t>((header & kForbiddenAndNriMask) + kStapAType);
    }
    const int offset = packet->get_payload_size() + (isFirst ? kStapAHeaderSize : 0);
    unsigned char* const payload = packet->get_payload_ptr();
    payload[0] = m_nalHeader;
    storeBig16(payload + offset, static_cast<_uint16_t>(size));
    appendBytes(payload + offset + kUnitSizeSize, data, size);
    packet->set_payload_size(size + offset + kUnitSizeSize);
    return 0;
}

int CMMRTPSession4SVC::setFUPayload(int index, int count, int size, unsigned char* data,
                                    CTalRtpPacket* packet) {
    if (data == nullptr || packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::setFUPayload invalid parameter: packet = "
                             << packet << ", data = " << data);
        return -1;
    }
    packet->set_payload_size(fragmentPayloadSize(index, size));
    writeFragment(CPacketAccess::payload(*packet), index, count, size, data, m_nalHeader);
    return 0;
}

// --- Dispatch ---

void CMMRTPSession4SVC::dealPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::dealPacket invalid parameter: packet = " << packet);
        return;
    }
    const stPayloadHead head(*packet);
    switch (head.kind()) {
        case PayloadKind::kUnit:
            return deliveSinglePacket(packet);
        case PayloadKind::kFragment:
            return combineFUPacket(packet);
        case PayloadKind::kAggregate:
            return splitAUPacketEx(packet);
        case PayloadKind::kUnknown:
            TAL_TRACE(WARNING, "CMMRTPSession4SVC::dealPacket payload type is unknown, type = " << head.type);
    }
}

void CMMRTPSession4SVC::forceHandoverPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::forceHandoverPacket invalid parameter: packet = " << packet);
        return;
    }
    const stPayloadHead head(*packet);
    switch (head.kind()) {
        case PayloadKind::kUnit:
            return deliveSinglePacket(packet);
        case PayloadKind::kFragment:
            return forceHandoverFUPacket(packet);
        case PayloadKind::kAggregate:
            return splitAUPacket(packet);
        case PayloadKind::kUnknown:
            TAL_TRACE(WARNING,
                      "CMMRTPSession4SVC::forceHandoverPacket payload type is unknown, type = " << head.type);
    }
}

// --- Single NAL unit packets ---

void CMMRTPSession4SVC::deliveSinglePacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::deliveSinglePacket invalid parameter: packet = " << packet);
        return;
    }
    const int size = packet->get_payload_size() + kStartCodeSize;
    CHandover handover(CSessionAccess::index(*this).handover, *packet,
                       packet->get_packet_size() + kStartCodeSize, size);
    if (!handover.isReady()) {
        CSessionAccess::index(*this).isShort = true;
        return;
    }
    CTalRtpPacket& unit = handover.packet();
    unit.set_payload_size(size);
    unsigned char* const end = appendBytes(unit.get_payload_ptr(), kStartCode, kStartCodeSize);
    appendBytes(end, packet->get_payload_ptr(), packet->get_payload_size());
    handover.zeroBehind(size);
    unit.set_packet_type(PACKET_TYPE_UNITS);
    deliverPacket(&unit);
}

// --- Aggregation packets ---

namespace {

// The warnings of a walk over an aggregation packet, which differ in the name of the operation.
struct stWalkTexts {
    const char* noRoom;
    const char* cutUnit;
};

constexpr stWalkTexts kSplitExTexts = {
    "CMMRTPSession4SVC::splitAUPacketEx payload size is smaller than unit min bytes",
    "CMMRTPSession4SVC::splitAUPacketEx payload size is smaller than unit size",
};
constexpr stWalkTexts kSplitTexts = {
    "CMMRTPSession4SVC::splitAUPacket payload size is smaller than unit min bytes",
    "CMMRTPSession4SVC::splitAUPacket payload size is smaller than unit size",
};

// Walks over the units of an aggregation packet. With texts, it warns of what does not fit.
class CAggregateWalk {
public:
    CAggregateWalk(const CTalRtpPacket& packet, const stWalkTexts* texts)
        : m_texts(texts),
          m_seq(packet.get_sequence_number()),
          m_next(packet.get_payload_ptr() + kStapAHeaderSize),
          m_rest(packet.get_payload_size() - kStapAHeaderSize) {}

    // Moves to the next unit; false at the end.
    bool advance() {
        if (m_rest < 1 && m_unitCount > 0) {
            return false;
        }
        ++m_unitCount;
        if (m_rest < kMinAggregatedUnit) {
            if (m_texts != nullptr) {
                TAL_TRACE(WARNING, m_texts->noRoom << ", Seq = " << m_seq << ", unitCount = " << m_unitCount
                                                   << ", payloadSize = " << m_rest);
            }
            return false;
        }
        m_size = loadBig16(m_next);
        m_rest -= kUnitSizeSize;
        m_isCut = m_rest < m_size;
        if (m_isCut) {
            if (m_texts != nullptr) {
                TAL_TRACE(WARNING, m_texts->cutUnit << ", Seq = " << m_seq << ", unitCount = " << m_unitCount
                                                    << ", unitSize = " << m_size
                                                    << ", payloadSize = " << m_rest);
            }
            m_size = m_rest;
        }
        m_unit = m_next + kUnitSizeSize;
        m_next = m_unit + m_size;
        m_rest -= m_size;
        return true;
    }

    const unsigned char* unit() const { return m_unit; }
    int size() const { return m_size; }
    bool isCut() const { return m_isCut; }

private:
    const stWalkTexts* m_texts;
    _uint16_t m_seq;
    const unsigned char* m_next;
    int m_rest;
    int m_unitCount = 0;
    const unsigned char* m_unit = nullptr;
    int m_size = 0;
    bool m_isCut = false;
};

// The bytes of all units in byte-stream form.
int byteStreamSize(const CTalRtpPacket& packet) {
    int size = 0;
    CAggregateWalk walk(packet, nullptr);
    while (walk.advance()) {
        size += walk.size() + kStartCodeSize;
    }
    return size;
}

// A temporary packet reports this capacity: room for the worst case, in which every unit has one byte.
int aggregateCapacity(const CTalRtpPacket& packet) {
    const int rest = packet.get_payload_size() - kStapAHeaderSize;
    return rest + packet.get_header_size() + 2 * (rest / kMinAggregatedUnit);
}

unsigned char* appendUnit(unsigned char* target, const CAggregateWalk& walk) {
    return appendBytes(appendBytes(target, kStartCode, kStartCodeSize), walk.unit(), walk.size());
}

}  // namespace

void CMMRTPSession4SVC::splitAUPacketEx(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::splitAUPacketEx invalid parameter: packet = " << packet);
        return;
    }
    if (packet->get_payload_size() <= kStapAHeaderSize) {
        return;
    }
    CHandover handover(CSessionAccess::index(*this).handover, *packet, aggregateCapacity(*packet),
                       byteStreamSize(*packet));
    if (!handover.isReady()) {
        CSessionAccess::index(*this).isShort = true;
        return;
    }
    CTalRtpPacket& unit = handover.packet();
    handover.zeroBehind(0);
    int declaredSize = 0;
    CAggregateWalk walk(*packet, &kSplitExTexts);
    while (walk.advance()) {
        // Compatibility: every unit is written at the start while the declared size grows, so what follows a
        // later unit is stale. Hosts cut the hand-over by the growth.
        appendUnit(unit.get_payload_ptr(), walk);
        declaredSize += walk.size() + kStartCodeSize;
        unit.set_payload_size(declaredSize);
        if (!walk.isCut()) {
            unit.set_packet_type(PACKET_TYPE_UNITS);
        }
        deliverPacket(&unit);
    }
}

void CMMRTPSession4SVC::splitAUPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::splitAUPacket invalid parameter: packet = " << packet);
        return;
    }
    const bool isEmpty = packet->get_payload_size() <= kStapAHeaderSize;
    const int size = isEmpty ? 0 : byteStreamSize(*packet);
    CHandover handover(CSessionAccess::index(*this).handover, *packet, aggregateCapacity(*packet), size);
    if (!handover.isReady()) {
        CSessionAccess::index(*this).isShort = true;
        return;
    }
    CTalRtpPacket& units = handover.packet();
    bool isAnyCut = false;
    if (!isEmpty) {
        CAggregateWalk walk(*packet, &kSplitTexts);
        unsigned char* end = units.get_payload_ptr();
        while (walk.advance()) {
            end = appendUnit(end, walk);
            isAnyCut |= walk.isCut();
        }
    }
    units.set_payload_size(size);
    handover.zeroBehind(size);
    if (!isAnyCut) {
        units.set_packet_type(PACKET_TYPE_UNITS);
    }
    deliverPacket(&units);
}

// --- Fragmentation units ---

bool CMMRTPSession4SVC::isStartSeq(unsigned short seq) {
    const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
    return packet != nullptr && stPayloadHead(*packet).starts();
}

bool CMMRTPSession4SVC::isEndSeq(unsigned short seq) {
    const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
    return packet != nullptr && stPayloadHead(*packet).ends();
}

bool CMMRTPSession4SVC::findStartSeq(unsigned short seq, unsigned short& startSeq) {
    const CReceiveIndex& index = CSessionAccess::lists(*this);
    return CSessionAccess::listsIf(*this, !index.isHost || index.media.isTrueDownwards(seq))
        .media.findStart(seq, startSeq);
}

bool CMMRTPSession4SVC::findEndSeq(unsigned short startSeq, unsigned short& endSeq) {
    const CReceiveIndex& index = CSessionAccess::lists(*this);
    return CSessionAccess::listsIf(*this, !index.isHost || index.media.isTrueUpwards(startSeq))
        .media.findEnd(startSeq, endSeq);
}

void CMMRTPSession4SVC::combineFUPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::combineFUPacket invalid parameter: packet = " << packet);
        return;
    }
    bool complete;
    unsigned short start;
    unsigned short end;
    if (getFUPacketsInfoBySeq(packet->get_sequence_number(), complete, start, end) == 0 && complete) {
        deliveFUPacket(start, end, true);
    }
}

void CMMRTPSession4SVC::forceHandoverFUPacket(CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSession4SVC::forceHandoverFUPacket invalid parameter: packet = " << packet);
        return;
    }
    bool complete;
    unsigned short start;
    unsigned short end;
    if (getFUPacketsInfoBySeq(packet->get_sequence_number(), complete, start, end) == 0) {
        deliveFUPacket(start, end, complete);
    }
}

int CMMRTPSession4SVC::getFUPacketsInfoBySeq(unsigned short seq, bool& complete, unsigned short& start,
                                             unsigned short& end) {
    complete = false;
    start = 0;
    end = 0;
    const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
    if (packet == nullptr) {
        TAL_TRACE(WARNING, "CMMRTPSession4SVC::getFUPacketsInfoBySeq can't find packet, seq = " << seq);
        return 1;
    }
    const stTalRtpDataInfo* const unit = getMediaDataInfo(packet->get_timestamp(), seq);
    if (unit == nullptr) {
        return 1;
    }
    start = unit->startSeq;
    end = static_cast<unsigned short>(unit->startSeq + unit->packetCount - 1);
    complete = unit->complete;
    return 0;
}

namespace {

// The bytes of fragment data in a run, up to the first gap.
_uint64_t fragmentRunSize(const CMMRTPSessionBase& session, _uint16_t start, _uint16_t end) {
    _uint64_t size = 0;
    const int last = static_cast<unsigned short>(end - start);
    CReceiveIndex& index = CSessionAccess::listsAround(session, start, static_cast<unsigned int>(last) + 1);
    for (int i = 0; i <= last; ++i) {
        ++index.meter.steps;
        const unsigned short seq = static_cast<unsigned short>(start + i);
        index.media.prefetchRun(seq);
        const CTalRtpPacket* const packet = index.media.find(seq);
        if (packet == nullptr) {
            TAL_TRACE(WARNING, "CMMRTPSession4SVC::getFUPacketsPayloadSize can't find packet, seq = " << seq);
            break;
        }
        size += static_cast<unsigned int>(fragmentDataSize(*packet));
    }
    return size;
}

}  // namespace

unsigned int CMMRTPSession4SVC::getFUPacketsPayloadSize(unsigned short start, unsigned short end) const {
    return static_cast<unsigned int>(fragmentRunSize(*this, start, end));
}

// Puts the unit together:  00 00 00 01 | NAL header | piece | piece | ... up to the first gap. The header has
// its NRI from the FU indicator and its type from the FU header of the first fragment.
void CMMRTPSession4SVC::deliveFUPacket(unsigned short start, unsigned short end, bool complete) {
    const CTalRtpPacket* const first = getMediaPacketBySeq(start);
    if (first == nullptr) {
        TAL_TRACE(WARNING,
                  "CMMRTPSession4SVC::deliveFUPacket can't find start packet, start seq = " << start);
        return;
    }
    constexpr int kUnitHeaderSize = 1;
    const _uint64_t unitSize = fragmentRunSize(*this, start, end) + kStartCodeSize + kUnitHeaderSize;
    const int headerSize = first->get_header_size();
    if (unitSize >
        static_cast<_uint64_t>(kLargestHandover - headerSize - kSpareSize - kExtensionHeaderSize)) {
        return;
    }
    const int size = static_cast<int>(unitSize);
    CHandover handover(CSessionAccess::index(*this).handover, *first, size + headerSize, size);
    if (!handover.isReady()) {
        CSessionAccess::index(*this).isShort = true;
        return;
    }
    CTalRtpPacket& unit = handover.packet();
    unit.set_payload_size(size);
    unsigned char* target = appendBytes(unit.get_payload_ptr(), kStartCode, kStartCodeSize);
    *target++ = static_cast<unsigned char>((payloadByte(*first, 0) & kForbiddenAndNriMask) |
                                           (payloadByte(*first, kFuHeaderOffset) & kUnitTypeMask));
    target = appendBytes(target, first->get_payload_ptr() + kFuHeadersSize, fragmentDataSize(*first));
    const int last = static_cast<unsigned short>(end - start);
    for (int i = 1; i <= last; ++i) {
        CReceiveIndex& index = CSessionAccess::index(*this);  // looked at by `fragmentRunSize`
        ++index.meter.steps;
        const unsigned short seq = static_cast<unsigned short>(start + i);
        const CTalRtpPacket* const packet = index.media.find(seq);
        if (packet == nullptr) {
            TAL_TRACE(WARNING, "CMMRTPSession4SVC::deliveFUPacket can't find packet, seq = " << seq);
            break;
        }
        target = appendBytes(target, packet->get_payload_ptr() + kFuHeadersSize, fragmentDataSize(*packet));
    }
    handover.zeroBehind(size);
    if (complete) {
        unit.set_packet_type(PACKET_TYPE_UNITS);
    }
    deliverPacket(&unit);
}

}  // namespace talrtp

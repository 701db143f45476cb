#include "model/ReceiveModel.h"

#include "model/Decimal.h"

#include <algorithm>
#include <utility>

namespace talrtp {
namespace model {

namespace {

constexpr int kError = 0;
constexpr int kWarning = 1;
constexpr int kInfo = 2;

constexpr std::uint64_t kStaleAfter = 5001;  // milliseconds without a packet of the timestamp
constexpr std::size_t kAllNumbers = 65536;
constexpr std::size_t kUsualMessage = 160;
const Bytes kStartCode = {0, 0, 0, 1};

void appendText(std::string& out, const char* text) {
    out += text;
}
template <typename Number>
void appendText(std::string& out, Number value) {
    out += decimal(value);
}

// A message out of its pieces, numbers in decimal.
template <typename... Pieces>
std::string join(Pieces... pieces) {
    std::string message;
    message.reserve(kUsualMessage);
    (appendText(message, pieces), ...);
    return message;
}

std::uint16_t wrapped(int seq) {
    return static_cast<std::uint16_t>(seq);
}

unsigned int nalType(const PlainPacket& packet) {
    return packet.payloadByte(0) & 0x1f;
}

// The temporary packet of a hand-over, with the received packet's RTP header. It grows as it is written.
PlainPacket withHeaderOf(const PlainPacket& packet, int usualBufferSize) {
    PlainPacket temporary;
    temporary.bytes = packet.head(packet.headerSize());
    temporary.bufferSize = usualBufferSize;
    return temporary;
}

// The buffer has room for whatever will be declared in it.
void growToDeclare(PlainPacket& temporary, int payloadSize) {
    temporary.bufferSize = std::max(temporary.bufferSize, temporary.headerSize() + payloadSize);
}

Bytes fragmentData(const PlainPacket& packet) {
    return packet.payload(2, packet.payloadSize - 2);
}

int fragmentDataSize(const PlainPacket& packet) {
    return std::max(packet.payloadSize - 2, 0);
}

}  // namespace

void ReceiveModel::say(int level, std::string message) {
    if (mask >= level) {
        lines.push_back({level, std::move(message)});
    }
}

// ------------------------------------------------------------------------------------------ Configuration

int ReceiveModel::setPayloadType(unsigned long newPayloadType, unsigned long newFecPayloadType) {
    if (newPayloadType == newFecPayloadType) {
        say(kWarning, join("CMMRTPSessionBase::SetPayloadType invalid parameter: payloadType is same as "
                           "fecPayloadType, payloadType = ",
                           newPayloadType));
        return -1;
    }
    payloadType = static_cast<std::uint32_t>(newPayloadType);
    fecPayloadType = static_cast<std::uint32_t>(newFecPayloadType);
    return 0;
}

int ReceiveModel::setFecType(unsigned long newFecType) {
    if (newFecType >= 2) {
        say(kWarning,
            join("CMMRTPSessionBase::SetFecType invalid parameter: unknown fecType, fecType = ", newFecType));
        return -1;
    }
    fecType = static_cast<std::uint32_t>(newFecType);
    return 0;
}

void ReceiveModel::close() {
    if (counters.receivedPackets == 0) {
        return;
    }
    say(kInfo, join("CMMRTPSessionBase::displayStatisticInfo SourceID = ", m_sourceId,
                    ", ReceivedTime = ", lastReceivedTime - firstReceivedTime, " ms",
                    ", ReceivedPacketNumber = ", counters.receivedPackets, ", ReceivedPacketBytes = ",
                    counters.receivedBytes, ", ReceivedMediaPacketNumber = ", counters.receivedMedia,
                    ", ReceivedValidMediaPacketNumber = ", counters.validMedia,
                    ", ReceivedFECPacketNumber = ", counters.receivedFec, ", ReceivedValidFECPacketNumber = ",
                    counters.validFec, ", RecoveredMediaPacketNumber = ", counters.recovered,
                    ", DeliveredDataBytes = ", counters.deliveredBytes));
}

// ------------------------------------------------------------------------------- Entry and bookkeeping

int ReceiveModel::inputReceivedData(const unsigned char* data, int dataLen, std::uint64_t receivedTime) {
    if (isFirstReceived) {
        firstReceivedTime = receivedTime;
        isFirstReceived = false;
    }
    lastReceivedTime = receivedTime;
    counters.receivedPackets += 1;
    counters.receivedBytes += static_cast<std::uint64_t>(static_cast<std::int64_t>(dataLen));
    if (data == nullptr) {
        say(kError,
            join("CMMRTPSessionBase::InputReceivedData load data failed, data = 0xP, dataLen = ", dataLen));
        return -1;
    }
    PacketKind kind = PacketKind::kMedia;
    if (dataLen >= 12 && (data[1] & 0x7fU) == fecPayloadType) {
        kind = fecType == 0 ? PacketKind::kXorFec : PacketKind::kRsFec;
    }
    PlainPacket packet;
    if (dataLen >= 12) {
        packet = PlainPacket::fromBytes(data, dataLen, kind);
    }
    if (dataLen < 12 || !validate(packet)) {
        say(kError, join("CMMRTPSessionBase::InputReceivedData check data validate failed, data = 0xP, "
                         "dataLen = ",
                         dataLen));
        return -1;
    }
    const unsigned int type = packet.payloadType();
    if (type == fecPayloadType) {
        counters.receivedFec += 1;
        const int result = inputReceivedFecPacket(packet);
        say(kError, join("CMMRTPSessionBase::InputReceivedData payload type is FEC, but memomy alligned "
                         "according to DATA. pHeader->ph_pt = ",
                         type, ",  m_fecPayloadType  = ", fecPayloadType));
        return result;
    }
    if (type == payloadType) {
        counters.receivedMedia += 1;
        return inputReceivedMediaPacket(packet);
    }
    say(kInfo, join("CMMRTPSessionBase::InputReceivedData payload type is unknown, type  = ", type));
    return 1;
}

bool ReceiveModel::validate(const PlainPacket& packet) {
    switch (packet.refusal()) {
        case Refusal::kNone:
            return true;
        case Refusal::kVersion:
            say(kWarning,
                join("CTalRtpPacket::validate, version isn't supported, version = ", packet.version()));
            return false;
        case Refusal::kReservedType:
            say(kWarning, join("CTalRtpPacket::validate, payload type is reserved, payload-type = ",
                               packet.payloadType(), ", seq ", packet.sequence(),
                               ", marker-flag = ", packet.markerFlag() ? 1 : 0));
            if (packet.markerFlag()) {
                say(kWarning, "CTalRtpPacket::validate, RTCP packet is on RTP port?");
            }
            return false;
        case Refusal::kShorterThanHeader:
            say(kWarning, "CTalRtpPacket::validate, packet length is smaller than the header size");
            return false;
        case Refusal::kPaddingTooLong:
            say(kWarning, "CTalRtpPacket::validate, padding is greater than payload length");
            return false;
        case Refusal::kPaddingZero:
            say(kWarning, "CTalRtpPacket::validate, padding is zero");
            return false;
    }
    return false;
}

int ReceiveModel::inputReceivedMediaPacket(const PlainPacket& packet) {
    if (mediaPackets.size() == kAllNumbers) {
        checkAllLists();  // every number is taken: without this nothing could ever age out again
    }
    const std::uint16_t seq = packet.sequence();
    if (mediaPackets.count(seq) != 0) {
        return 0;
    }
    counters.validMedia += 1;
    counters.validMediaBytes += packet.bufferSize;
    mediaPackets[seq] = packet;
    updateMediaDataInfo(packet.timestamp(), seq);
    dealPacket(seq);
    retryStoredFecPackets();
    dealRecoveredPackets();
    checkAllLists();
    return 0;
}

TimestampInfo& ReceiveModel::timestampInfo(std::uint32_t timestamp) {
    const auto found = timestamps.find(timestamp);
    if (found != timestamps.end()) {
        return found->second;
    }
    TimestampInfo& made = timestamps[timestamp];
    made.createTime = lastReceivedTime;
    made.updateTime = lastReceivedTime;
    return made;
}

void ReceiveModel::updateMediaDataInfo(std::uint32_t timestamp, std::uint16_t seq) {
    TimestampInfo& info = timestampInfo(timestamp);
    info.updateTime = lastReceivedTime;
    info.mediaSeqList.push_back(seq);
    std::uint16_t start = 0;
    if (!findStartSeq(seq, start)) {
        return;
    }
    DataInfo& unit = info.dataInfoMap.insert({start, DataInfo{start, 1, false, false}}).first->second;
    if (unit.complete) {
        return;
    }
    std::uint16_t end = 0;
    const bool ended = findEndSeq(start, end);
    const int span = wrapped(end - start) + 1;
    if (span >= unit.packetCount) {
        unit.packetCount = span;
        unit.complete = ended;
    }
}

DataInfo* ReceiveModel::getMediaDataInfo(std::uint32_t timestamp, std::uint16_t seq) {
    std::uint16_t start = 0;
    if (!findStartSeq(seq, start)) {
        return nullptr;
    }
    const auto info = timestamps.find(timestamp);
    if (info == timestamps.end()) {
        return nullptr;
    }
    const auto unit = info->second.dataInfoMap.find(start);
    return unit == info->second.dataInfoMap.end() ? nullptr : &unit->second;
}

// -------------------------------------------------------------------------------- Ordering and delivery

void ReceiveModel::dealPacket(std::uint16_t seq) {
    PlainPacket& packet = mediaPackets.at(seq);
    if (m_kind == SessionKind::kBase) {
        packet.packetType = 0;
        deliverPacket(packet);
    } else {
        dealSvcPacket(packet);
    }
}

void ReceiveModel::deliverPacket(const PlainPacket& packet) {
    if (!m_hasSink) {
        return;
    }
    counters.deliveredBytes += static_cast<std::uint64_t>(static_cast<std::int64_t>(packet.payloadSize));
    DataInfo* const unit = getMediaDataInfo(packet.timestamp(), packet.sequence());
    if (unit != nullptr) {
        unit->delivered = true;
    }
    handOvers.push_back({packet.head(packet.headerSize()), packet.payload(0, packet.payloadSize),
                         packet.packetType, packet.packetSize, packet.payloadSize, packet.bufferSize});
}

int ReceiveModel::forceHandover(unsigned long timestamp) {
    const auto info = timestamps.find(static_cast<std::uint32_t>(timestamp));
    if (info == timestamps.end()) {
        return 1;
    }
    bool anything = false;
    for (auto& entry : info->second.dataInfoMap) {
        if (!entry.second.delivered) {
            forceHandoverPacket(entry.first);
            anything = true;
        }
    }
    return anything ? 0 : 1;
}

void ReceiveModel::forceHandoverPacket(std::uint16_t seq) {
    const auto found = mediaPackets.find(seq);
    const bool isBase = m_kind == SessionKind::kBase;
    if (found == mediaPackets.end()) {
        say(kError, join(isBase ? "CMMRTPSessionBase" : "CMMRTPSession4SVC",
                         "::forceHandoverPacket invalid parameter: packet = 0xP"));
    } else if (isBase) {
        found->second.packetType = 0;
        deliverPacket(found->second);
    } else {
        forceHandoverSvcPacket(found->second);
    }
}

void ReceiveModel::checkAllLists() {
    for (auto entry = timestamps.begin(); entry != timestamps.end();) {
        const auto current = entry++;
        const TimestampInfo& info = current->second;
        if (lastReceivedTime - info.updateTime < kStaleAfter) {
            continue;
        }
        for (std::uint16_t seq : info.mediaSeqList) {
            mediaPackets.erase(seq);
        }
        for (std::uint16_t seq : info.fecSeqList) {
            fecPackets.erase(seq);
        }
        timestamps.erase(current);
    }
}

bool ReceiveModel::startsUnit(const PlainPacket& packet) const {
    const unsigned int type = nalType(packet);
    return (type >= 1 && type <= 24) || (type == 28 && (packet.payloadByte(1) & 0x80) != 0);
}

bool ReceiveModel::endsUnit(const PlainPacket& packet) const {
    const unsigned int type = nalType(packet);
    return (type >= 1 && type <= 24) || (type == 28 && (packet.payloadByte(1) & 0x40) != 0);
}

bool ReceiveModel::findStartSeq(std::uint16_t seq, std::uint16_t& start) const {
    if (m_kind == SessionKind::kBase) {
        start = seq;
        return true;
    }
    for (std::size_t steps = 0; steps < kAllNumbers; ++steps, --seq) {
        const auto found = mediaPackets.find(seq);
        if (found == mediaPackets.end()) {
            return false;
        }
        if (startsUnit(found->second)) {
            start = seq;
            return true;
        }
    }
    return false;
}

bool ReceiveModel::findEndSeq(std::uint16_t start, std::uint16_t& end) const {
    if (m_kind == SessionKind::kBase) {
        end = start;
        return true;
    }
    std::uint16_t seq = start;
    for (std::size_t steps = 0; steps < kAllNumbers; ++steps, ++seq) {
        const auto found = mediaPackets.find(seq);
        if (found == mediaPackets.end()) {
            return false;
        }
        end = seq;
        if (endsUnit(found->second)) {
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------- H.264: single units and aggregation

void ReceiveModel::dealSvcPacket(const PlainPacket& packet) {
    const unsigned int type = nalType(packet);
    if (type >= 1 && type <= 23) {
        deliverSinglePacket(packet);
    } else if (type == 28) {
        combineFragments(packet);
    } else if (type == 24) {
        splitOnArrival(packet);
    } else {
        say(kWarning, join("CMMRTPSession4SVC::dealPacket payload type is unknown, type = ", type));
    }
}

void ReceiveModel::forceHandoverSvcPacket(const PlainPacket& packet) {
    const unsigned int type = nalType(packet);
    if (type >= 1 && type <= 23) {
        deliverSinglePacket(packet);
    } else if (type == 28) {
        forceHandoverFragments(packet);
    } else if (type == 24) {
        splitWhenForced(packet);
    } else {
        say(kWarning, join("CMMRTPSession4SVC::forceHandoverPacket payload type is unknown, type = ", type));
    }
}

void ReceiveModel::deliverSinglePacket(const PlainPacket& packet) {
    PlainPacket temporary = withHeaderOf(packet, packet.packetSize + 4);
    growToDeclare(temporary, packet.payloadSize + 4);
    temporary.setPayloadSize(packet.payloadSize + 4);
    temporary.putPayload(0, kStartCode);
    temporary.putPayload(4, packet.payload(0, packet.payloadSize));
    temporary.packetType = 0;
    deliverPacket(temporary);
}

// Reads the unit whose size field lies at `offset`, and moves past it. False when there is no room for
// a size field and one byte.
bool ReceiveModel::nextAggregatedUnit(const PlainPacket& packet, int& offset, AggregatedUnit& unit) const {
    if (packet.payloadSize - offset < 3) {
        return false;
    }
    unit.declared = packet.payloadShort(offset);
    unit.offset = offset + 2;
    unit.left = packet.payloadSize - unit.offset;
    unit.size = std::min<unsigned int>(unit.declared, unit.left);
    offset = unit.offset + static_cast<int>(unit.size);
    return true;
}

int ReceiveModel::aggregationDeclares(const PlainPacket& packet) const {
    int declared = 0;
    int offset = 1;
    AggregatedUnit unit;
    while (nextAggregatedUnit(packet, offset, unit)) {
        declared += static_cast<int>(unit.size) + 4;
    }
    return declared;
}

void ReceiveModel::warnOfUnitMinimum(const char* operation, const PlainPacket& packet, int unitCount,
                                     int left) {
    say(kWarning, join("CMMRTPSession4SVC::", operation,
                       " payload size is smaller than unit min bytes, Seq = ", packet.sequence(),
                       ", unitCount = ", unitCount, ", payloadSize = ", left));
}

void ReceiveModel::warnOfUnitSize(const char* operation, const PlainPacket& packet, int unitCount,
                                  const AggregatedUnit& unit) {
    say(kWarning, join("CMMRTPSession4SVC::", operation, " payload size is smaller than unit size, Seq = ",
                       packet.sequence(), ", unitCount = ", unitCount, ", unitSize = ", unit.declared,
                       ", payloadSize = ", unit.left));
}

void ReceiveModel::splitOnArrival(const PlainPacket& packet) {
    const int size = packet.payloadSize;
    PlainPacket temporary = withHeaderOf(packet, size + packet.headerSize() - 1 + 2 * ((size - 1) / 3));
    growToDeclare(temporary, aggregationDeclares(packet));
    int offset = 1;
    int declared = 0;
    for (int unitCount = 1; size >= 2; ++unitCount) {
        const int left = size - offset;
        AggregatedUnit unit;
        if (!nextAggregatedUnit(packet, offset, unit)) {
            warnOfUnitMinimum("splitAUPacketEx", packet, unitCount, left);
            return;
        }
        const bool isWhole = unit.size == unit.declared;
        if (!isWhole) {
            warnOfUnitSize("splitAUPacketEx", packet, unitCount, unit);
        }
        temporary.putPayload(0, kStartCode);
        temporary.putPayload(4, packet.payload(unit.offset, static_cast<int>(unit.size)));
        declared += static_cast<int>(unit.size) + 4;
        temporary.setPayloadSize(declared);  // grows, although every unit is written at the start
        if (isWhole) {
            temporary.packetType = 0;
        }
        deliverPacket(temporary);
        if (size - offset < 1) {
            return;
        }
    }
}

void ReceiveModel::splitWhenForced(const PlainPacket& packet) {
    const int size = packet.payloadSize;
    PlainPacket temporary = withHeaderOf(packet, size + packet.headerSize() - 1 + 2 * ((size - 1) / 3));
    growToDeclare(temporary, aggregationDeclares(packet));
    int offset = 1;
    int written = 0;
    bool anyCut = false;
    for (int unitCount = 1; size >= 2; ++unitCount) {
        const int left = size - offset;
        AggregatedUnit unit;
        if (!nextAggregatedUnit(packet, offset, unit)) {
            warnOfUnitMinimum("splitAUPacket", packet, unitCount, left);
            break;
        }
        if (unit.size != unit.declared) {
            warnOfUnitSize("splitAUPacket", packet, unitCount, unit);
            anyCut = true;
        }
        temporary.putPayload(written, kStartCode);
        temporary.putPayload(written + 4, packet.payload(unit.offset, static_cast<int>(unit.size)));
        written += static_cast<int>(unit.size) + 4;
        if (size - offset < 1) {
            break;
        }
    }
    temporary.setPayloadSize(written);
    temporary.packetType = anyCut ? 1 : 0;
    deliverPacket(temporary);
}

// ------------------------------------------------------------------------------------ H.264: fragments

DataInfo* ReceiveModel::fragmentRun(const PlainPacket& packet) {
    return getMediaDataInfo(packet.timestamp(), packet.sequence());
}

void ReceiveModel::combineFragments(const PlainPacket& packet) {
    const DataInfo* const run = fragmentRun(packet);
    if (run != nullptr && run->complete) {
        deliverFragments(*run);
    }
}

void ReceiveModel::forceHandoverFragments(const PlainPacket& packet) {
    const DataInfo* const run = fragmentRun(packet);
    if (run != nullptr) {
        deliverFragments(*run);
    }
}

int ReceiveModel::fragmentRunSize(std::uint16_t start, std::uint16_t end) {
    int size = 0;
    for (int i = 0; i <= wrapped(end - start); ++i) {
        const auto found = mediaPackets.find(wrapped(start + i));
        if (found == mediaPackets.end()) {
            say(kWarning, join("CMMRTPSession4SVC::getFUPacketsPayloadSize can't find packet, seq = ",
                               wrapped(start + i)));
            break;
        }
        size += fragmentDataSize(found->second);
    }
    return size;
}

void ReceiveModel::deliverFragments(const DataInfo& run) {
    const std::uint16_t start = run.startSeq;
    const std::uint16_t end = wrapped(start + run.packetCount - 1);
    const bool complete = run.complete;
    const auto first = mediaPackets.find(start);
    if (first == mediaPackets.end()) {
        say(kWarning, join("CMMRTPSession4SVC::deliveFUPacket can't find start packet, start seq = ", start));
        return;
    }
    const PlainPacket& startPacket = first->second;
    const int size = fragmentRunSize(start, end) + 5;
    PlainPacket temporary = withHeaderOf(startPacket, startPacket.headerSize() + size);
    growToDeclare(temporary, size);
    temporary.setPayloadSize(size);
    Bytes payload = kStartCode;
    payload.push_back(static_cast<unsigned char>((startPacket.payloadByte(0) & 0xe0) |
                                                 (startPacket.payloadByte(1) & 0x1f)));
    for (int i = 0; i <= wrapped(end - start); ++i) {
        const auto found = mediaPackets.find(wrapped(start + i));
        if (found == mediaPackets.end()) {
            say(kWarning,
                join("CMMRTPSession4SVC::deliveFUPacket can't find packet, seq = ", wrapped(start + i)));
            break;
        }
        const Bytes data = fragmentData(found->second);
        payload.insert(payload.end(), data.begin(), data.end());
    }
    temporary.putPayload(0, payload);
    temporary.packetType = complete ? 0 : 1;
    deliverPacket(temporary);
}

}  // namespace model
}  // namespace talrtp

// The sending half of the session: RTP headers, the three H.264 packet kinds of the base class's operations,
// and the making of FEC packets. The H.264 payload writers are in TalRtpSessionSvc.cpp.

#include <talrtp/RsFec.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cstring>

#include "RsFecLines.h"
#include "TalRtpPacketView.h"
#include "TalRtpSessionRules.h"
#include "TalRtpTraceLine.h"
#include "fec/GroupSpan.h"
#include "fec/RsGroup.h"
#include "fec/XorParity.h"
#include "wire/PacketAccess.h"

namespace talrtp {

namespace {

// Returns the number of the packet to make and counts on; 65535 is followed by 0.
inline _uint16_t nextNumber(_uint16_t& number) {
    const _uint16_t result = number;
    number = static_cast<_uint16_t>(number + 1);
    return result;
}

}  // namespace

// --- Headers and payloads ---

int CMMRTPSessionBase::setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) {
    if (packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::setPacketHeader invalid parameter, packet = " << packet);
        return -1;
    }
    packet->reset();
    CSessionAccess::writeHeader(*this, timestamp, *packet);
    return 0;
}

void CSessionAccess::writeHeader(CMMRTPSessionBase& session, unsigned long timestamp, CTalRtpPacket& packet) {
    ++session.m_createdMediaPacketNumber;
    CPacketAccess::writeHeader(packet, kMarkerMask, session.m_payloadType,
                               nextNumber(session.m_sequenceNumber), static_cast<_uint32_t>(timestamp),
                               session.m_sourceId);
}

int CMMRTPSessionBase::setPacketPayload(int index, int count, int size, unsigned char* data,
                                        CTalRtpPacket* packet) {
    if (data == nullptr || packet == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::setPacketPayload invalid parameter"
                             << ", packet = " << packet << ", data = " << data);
        return -1;
    }
    if (index != 1 || count != 1) {
        TAL_TRACE(WARNING, "CMMRTPSessionBase::setPacketPayload support only single packet.");
        return -1;
    }
    packet->set_payload_size(size);
    std::memcpy(packet->get_payload_ptr(), data, static_cast<std::size_t>(size));
    return 0;
}

namespace {

// Makes a packet of one whole unit.
template <typename Rules>
int makeSinglePacket(const Rules& rules, unsigned long timestamp, int size, unsigned char* data,
                     CTalRtpPacket* packet) {
    rules.writeHeader(timestamp, packet);
    return rules.writePayload(1, 1, size, data, packet);
}

// Makes fragments of `pieceSize` bytes; the last has the rest.
template <typename Rules>
int makeFragments(const Rules& rules, unsigned long timestamp, int size, unsigned char* data, int pieceSize,
                  int packetCount, CTalRtpPacket* packets) {
    for (int k = 1; k <= packetCount; ++k, ++packets) {
        const int piece = std::min(size, pieceSize);
        rules.writeHeader(timestamp, packets);
        const int result = rules.writePayload(k, packetCount, piece, data, packets);
        if (result != 0) {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::CreateFuaPackets ret = " << result << ", packet_index = " << k);
            return result;
        }
        packets->set_marker_flag(k == packetCount);
        data += piece;
        size -= pieceSize;
    }
    return 0;
}

}  // namespace

int CMMRTPSessionBase::CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                          CTalRtpPacket* pRtpPacket) {
    if (nal_buf == nullptr || pRtpPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateSinglePacket invalid parameter: nal_buf = "
                             << nal_buf << ", pRtpPacket = " << pRtpPacket);
        return -1;
    }
    CMMRTPSession4SVC* const stock = stockSession(*this);
    if (stock != nullptr && nalSize > 0) {
        return makeSinglePacket(stStockRules(*stock), timestamp, nalSize, nal_buf, pRtpPacket);
    }
    return makeSinglePacket(stHostRules{*this}, timestamp, nalSize, nal_buf, pRtpPacket);
}

int CMMRTPSessionBase::CreateStapaPacket(unsigned long timestamp, int nalCount, int* nal_len,
                                         unsigned char** nal_buf, CTalRtpPacket* pRtpPacket) {
    if (nal_len == nullptr || nal_buf == nullptr || pRtpPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateStapaPacket invalid parameter: nal_buf = "
                             << nal_buf << ", nal_len = " << nal_len << ", pRtpPacket = " << pRtpPacket);
        return -1;
    }
    const int result = setPacketHeader(timestamp, pRtpPacket);
    for (int i = 0; i < nalCount; ++i) {
        const int ret = setPacketPayload(i + 1, 0, nal_len[i], nal_buf[i], pRtpPacket);
        if (ret != 0) {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::CreateStapaPacket ret = " << ret << ", nal_index = " << i + 1);
            return ret;
        }
    }
    return nalCount > 0 ? 0 : result;
}

int CMMRTPSessionBase::CreateFuaPackets(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                        int packetCount, CTalRtpPacket* pRtpPacket) {
    if (nal_buf == nullptr || pRtpPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateFuaPackets invalid parameter: nal_buf = "
                             << nal_buf << ", pRtpPacket = " << pRtpPacket);
        return -1;
    }
    const int pieceSize = (nalSize + packetCount - 1) / packetCount;
    CMMRTPSession4SVC* const stock = stockSession(*this);
    if (stock != nullptr && packetCount > 1 && nalSize > pieceSize * (packetCount - 1)) {
        return makeFragments(stStockRules(*stock), timestamp, nalSize, nal_buf, pieceSize, packetCount,
                             pRtpPacket);
    }
    // A unit too short for its packets has pieces of 0 or less bytes, which the hooks take as they are.
    return makeFragments(stHostRules{*this}, timestamp, nalSize, nal_buf, pieceSize, packetCount, pRtpPacket);
}

// --- XOR FEC (RFC 2733) ---

namespace {

constexpr unsigned int kSelectionBits = 32;  // of the host's choice of packets, which repeats

// The packets of an array that the host's mask selects.
class CSelectedPackets {
public:
    CSelectedPackets(const CTalRtpPacket* packets, int count, unsigned int mask)
        : m_packets(packets), m_count(count), m_mask(mask) {}

    int end() const { return m_count; }
    bool contains(int i) const {
        return (m_mask >> (static_cast<unsigned int>(i) % kSelectionBits) & 1) != 0;
    }
    stByteView at(int i) const { return viewOf(m_packets[i]); }

private:
    const CTalRtpPacket* m_packets;
    int m_count;
    unsigned int m_mask;
};

stGroupSpan spanOf(CSelectedPackets group) {
    stGroupSpan span;
    for (int i = 0; i < group.end(); ++i) {
        if (group.contains(i)) {
            span.add(group.at(i));
        }
    }
    return span;
}

// Makes the parity of a group whose lowest number is `baseSeq`, with a WARNING line for each packet that is
// too far from it, or longer than it was.
void addPackets(CXorParity& parity, CSelectedPackets group, unsigned int mask, _uint16_t baseSeq) {
    int i = 0;
    for (EXorStop stop; (stop = parity.add(group, i)) != EXorStop::kEnd; ++i) {
        if (stop == EXorStop::kTooFar) {
            TAL_TRACE(WARNING, "CMMRTPSessionBase::CreateXorFecPackets sequence number slop over"
                                   << ", baseSeq = " << baseSeq
                                   << ", packetSeq = " << readSequenceNumber(group.at(i).data));
        } else {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::CreateXorFecPackets packet length is bigger than fec max length"
                          << ", packet_index = " << i + 1 << ", mask = " << mask);
        }
    }
}

}  // namespace

int CMMRTPSessionBase::CreateXorFecPackets(CTalRtpPacket* pPacket, int count, unsigned int mask,
                                           CRTPFECPacket* pFecPacket) {
    if (pPacket == nullptr || pFecPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateXorFecPackets invalid parameter: pPacket = "
                             << pPacket << ", pFecPacket = " << pFecPacket);
        return -1;
    }
    if (m_fecType != RTP_FEC_XOR) {
        TAL_TRACE(WARNING,
                  "CMMRTPSessionBase::CreateXorFecPackets FEC type is not RTP_FEC_XOR type: fecType = "
                      << m_fecType);
        return -2;
    }
    const CSelectedPackets group(pPacket, count, mask);
    const stGroupSpan span = spanOf(group);
    if (span.count == 0) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateXorFecPackets invalid mask count"
                             << ", mask = " << mask << ", count = 0");
        return -1;
    }

    ++m_createdFECPacketNumber;
    CPacketAccess::clear(*pFecPacket);
    CPacketAccess::writeHeader(*pFecPacket, 0, m_fecPayloadType, nextNumber(m_fecSequenceNumber),
                               span.latestTimestamp, m_sourceId);
    const int paritySize = span.largestSize - kFixedHeaderSize;
    unsigned char* const payload =
        CPacketAccess::beginPayload(*pFecPacket, paritySize + kFecHeaderSize, kFecHeaderSize);

    CXorParity parity(span.lowestSeq, paritySize, payload + kFecHeaderSize);
    addPackets(parity, group, mask, span.lowestSeq);
    parity.finish(pFecPacket->get_buffer());
    return 0;
}

// --- Reed-Solomon FEC ---

namespace {

stGroupSpan spanOf(const CTalRtpPacket* packets, int count) {
    stGroupSpan span;
    for (int i = 0; i < count; ++i) {
        span.add(viewOf(packets[i]));
    }
    return span;
}

// Makes the parity of a group in the payloads of its FEC packets.
void makeParity(CRsParity& parity, const CTalRtpPacket* packets, int count, CTalRtpPacket* fecPackets,
                int fecCount, const rs_param_& model) {
    for (int i = 0; i < count; ++i) {
        parity.addPacket(packets[i].get_buffer(), packets[i].get_packet_size());
    }
    for (int j = 0; j < fecCount; ++j) {
        parity.addBlock(fecPackets[j].get_payload_ptr() + kRsHeaderSize);
    }
    if (parity.make(model) == ERsMaking::kTooLong) {
        reportTooLongToEncode(parity.largestSize());  // the group stays numbered, with parity of zeros
    }
}

// The fields that the RTP headers of a group's FEC packets share.
struct stFecHeader {
    unsigned int payloadType;
    _uint32_t timestamp;
    _uint32_t ssrc;
};

// Makes FEC packets ready for parity of `blockSize` bytes each, which is zero if nothing will write it.
void beginRsPackets(CTalRtpPacket* packets, int count, const stFecHeader& header, int blockSize,
                    bool isWritten) {
    for (int j = 0; j < count; ++j) {
        CPacketAccess::clear(packets[j]);
        CPacketAccess::writeHeader(packets[j], 0, header.payloadType, 0, header.timestamp, header.ssrc);
        CPacketAccess::beginPayload(packets[j], blockSize + kRsHeaderSize,
                                    isWritten ? kRsHeaderSize : CPacketAccess::kWholePayload);
    }
}

void writeRsHeader(unsigned char* header, const stGroupSpan& span, int index, int fecCount,
                   _uint16_t recoverLength) {
    storeBig16(header + kRsBaseOffset, span.lowestSeq);
    storeBig16(header + kRsLengthOffset, recoverLength);
    header[kRsIndexOffset] = static_cast<unsigned char>(index);
    header[kRsCountOffset] = static_cast<unsigned char>(fecCount);
    header[kRsMaskOffset] = static_cast<unsigned char>(span.count);
}

}  // namespace

int CMMRTPSessionBase::CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                                          int fecCount) {
    if (pPacket == nullptr || pFecPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets invalid parameter: pPacket = "
                             << pPacket << ", pFecPacket = " << pFecPacket);
        return -1;
    }
    if (static_cast<_int64_t>(count) + fecCount >= kMaxRsBlocks) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets total number of packet and fec is over 256.");
        return -1;
    }
    if (m_fecType != RTP_FEC_RS) {
        TAL_TRACE(WARNING, "CMMRTPSessionBase::CreateRsFecPackets FEC type is not RTP_FEC_RS type: fecType = "
                               << m_fecType);
        return -2;
    }
    const stGroupSpan span = spanOf(pPacket, count);
    if (!span.isConsecutive()) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets packet seq numbers are discontinuous.");
        return -1;
    }

    rs_param_* const model = GetRsModel(count, count + fecCount);
    const bool isMade = model != nullptr && span.largestSize <= MAX_PACKET_SIZE;
    beginRsPackets(pFecPacket, fecCount, {m_fecPayloadType, span.latestTimestamp, m_sourceId},
                   span.largestSize, isMade);
    if (model == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets get rs model failed"
                             << ", k = " << count << ", n = " << count + fecCount);
        return 1;
    }

    CRsParity parity;
    makeParity(parity, pPacket, count, pFecPacket, fecCount, *model);
    for (int j = 0; j < fecCount; ++j) {
        ++m_createdFECPacketNumber;
        pFecPacket[j].set_sequence_number(nextNumber(m_fecSequenceNumber));
        writeRsHeader(pFecPacket[j].get_payload_ptr(), span, j, fecCount, parity.recoverLength(j));
    }
    return 0;
}

}  // namespace talrtp

// The sending half of the session: RTP headers, the three H.264 packet kinds of the base class's operations,
// and the making of FEC packets. The H.264 payload writers are in TalRtpSessionSvc.cpp.

#include <talrtp/RsFec.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cstring>
#include <typeinfo>

#include "TalRtpPacketAccess.h"
#include "TalRtpTraceLine.h"
#include "fec/RsLength.h"
#include "kernels/XorKernel.h"

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
    writePacketHeader(static_cast<_uint32_t>(timestamp), *packet);
    return 0;
}

// Writes the header of the next media packet.
void CMMRTPSessionBase::writePacketHeader(_uint32_t timestamp, CTalRtpPacket& packet) {
    ++m_createdMediaPacketNumber;
    CPacketAccess::writeHeader(packet, kMarkerMask, m_payloadType, nextNumber(m_sequenceNumber), timestamp,
                               m_sourceId);
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

// This session as an object of the library's own class; null when its class is a derived one.
CMMRTPSession4SVC* CMMRTPSessionBase::ownClass() {
    return typeid(*this) == typeid(CMMRTPSession4SVC) ? static_cast<CMMRTPSession4SVC*>(this) : nullptr;
}

int CMMRTPSessionBase::CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                          CTalRtpPacket* pRtpPacket) {
    if (nal_buf == nullptr || pRtpPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateSinglePacket invalid parameter: nal_buf = "
                             << nal_buf << ", pRtpPacket = " << pRtpPacket);
        return -1;
    }
    CMMRTPSession4SVC* const own = ownClass();
    if (own != nullptr && nalSize > 0) {
        own->makeOwnSinglePacket(static_cast<_uint32_t>(timestamp), nalSize, nal_buf, *pRtpPacket);
        return 0;
    }
    setPacketHeader(timestamp, pRtpPacket);
    return setPacketPayload(1, 1, nalSize, nal_buf, pRtpPacket);
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
    CMMRTPSession4SVC* const own = ownClass();
    if (own != nullptr && packetCount > 1 && nalSize > pieceSize * (packetCount - 1)) {
        own->makeOwnFuaPackets(static_cast<_uint32_t>(timestamp), nalSize, nal_buf, pieceSize, packetCount,
                               pRtpPacket);
        return 0;
    }
    // A unit too short for its packets has pieces of 0 or less bytes, which the writers take as they are.
    int remaining = nalSize;
    unsigned char* piece = nal_buf;
    for (int k = 1; k <= packetCount; ++k) {
        CTalRtpPacket* const packet = pRtpPacket + (k - 1);
        const int size = std::min(remaining, pieceSize);
        remaining -= pieceSize;
        setPacketHeader(timestamp, packet);
        const int ret = setPacketPayload(k, packetCount, size, piece, packet);
        if (ret != 0) {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::CreateFuaPackets ret = " << ret << ", packet_index = " << k);
            return ret;
        }
        packet->set_marker_flag(k == packetCount);
        piece += size;
    }
    return 0;
}

// --- XOR FEC (RFC 2733) ---

namespace {

constexpr unsigned int kMaskBits = 32;               // of the host's choice of packets, which repeats
constexpr unsigned int kFirstPacketMask = 0x800000;  // of the mask on the wire
constexpr int kMaxXorDistance = 24;                  // covered by the mask on the wire
constexpr int kXorBatch = 32;                        // packets XORed in one pass

// The bytes after the fixed header, which the parity covers.
int bodySize(const CTalRtpPacket& packet) {
    return CPacketAccess::packetSize(packet) - kFixedHeaderSize;
}

bool isSelected(unsigned int mask, int i) {
    return (mask >> (static_cast<unsigned int>(i) % kMaskBits) & 1) != 0;
}

// The results of one walk over the selected packets: lowest number, latest timestamp, longest body.
struct stXorSelection {
    int count = 0;
    _uint16_t baseSeq = 0;
    _uint32_t timestamp = 0;
    int maxLen = 0;

    stXorSelection(const CTalRtpPacket* packets, int packetCount, unsigned int mask) {
        // A local accumulates in registers; `*this` escapes, so the compiler would store every step.
        stXorSelection walked;
        for (int i = 0; i < packetCount; ++i) {
            if (isSelected(mask, i)) {
                walked.add(packets[i]);
            }
        }
        *this = walked;
    }

private:
    stXorSelection() = default;

    void add(const CTalRtpPacket& packet) {
        const unsigned char* const bytes = CPacketAccess::buffer(packet);
        const _uint16_t seq = readSequenceNumber(bytes);
        const _uint32_t ts = readTimestamp(bytes);
        const int len = bodySize(packet);
        const bool isFirst = count++ == 0;
        if (isFirst || CMMRTPSessionBase::compareSeq(seq, baseSeq) < 0) {
            baseSeq = seq;
        }
        if (isFirst || CMMRTPSessionBase::compareTS(ts, timestamp) > 0) {
            timestamp = ts;
        }
        maxLen = isFirst ? len : std::max(maxLen, len);
    }
};

// The recovery fields of an XOR FEC packet, each the XOR over the protected packets. Those of the RTP header
// accumulate in a copy of its first eight bytes; the sequence numbers among them mean nothing.
class CXorRecoveryFields {
public:
    void add(const CTalRtpPacket& packet, int distance) {
        std::uint64_t bytes;
        std::memcpy(&bytes, CPacketAccess::buffer(packet), sizeof bytes);
        m_header ^= bytes;
        m_length ^= bodySize(packet);
        m_mask |= kFirstPacketMask >> distance;
    }

    // Flags and CSRC count go into the RTP header, the rest after it.
    void writeTo(unsigned char* packet, _uint16_t baseSeq) const {
        unsigned char header[sizeof m_header];
        std::memcpy(header, &m_header, sizeof m_header);
        constexpr unsigned char kFlags = kPaddingMask | kExtensionMask | kContribCountMask;
        packet[kFlagsOffset] |= header[kFlagsOffset] & kFlags;
        packet[kMarkerAndTypeOffset] |= header[kMarkerAndTypeOffset] & kMarkerMask;
        unsigned char* const fecHeader = packet + kFixedHeaderSize;
        storeBig16(fecHeader + kFecBaseOffset, baseSeq);
        storeBig16(fecHeader + kFecLengthOffset, static_cast<_uint16_t>(m_length));
        storeBig32(fecHeader + kFecMaskWordOffset, readPayloadType(header) << 24 | m_mask);
        storeBig32(fecHeader + kFecTimestampOffset, readTimestamp(header));
    }

private:
    std::uint64_t m_header = 0;
    int m_length = 0;
    unsigned int m_mask = 0;
};

// The contents of an XOR FEC packet. Packets are collected and XORed many at a time, so that the parity of
// most groups is written once.
class CXorParity {
public:
    CXorParity(const stXorSelection& selection, unsigned int mask)
        : m_baseSeq(selection.baseSeq), m_maxLen(selection.maxLen), m_selectionMask(mask) {}

    // Collects selected packets from `i` on and stops at the first that needs a trace line or a flush.
    // Returns its position, or `count`.
    int take(const CTalRtpPacket* packets, int i, int count) {
        CXorRecoveryFields fields = m_fields;  // a copy stays in registers
        int taken = m_count;
        for (; i < count; ++i) {
            if (!isSelected(m_selectionMask, i)) {
                continue;
            }
            const CTalRtpPacket& packet = packets[i];
            if (taken == kXorBatch || distanceOf(packet) >= kMaxXorDistance || isTooLong(packet)) {
                break;
            }
            put(packet, taken++, fields);
        }
        m_fields = fields;
        m_count = taken;
        return i;
    }
    // Collects one packet that is not too far away.
    void add(const CTalRtpPacket& packet) { put(packet, m_count++, m_fields); }

    int distanceOf(const CTalRtpPacket& packet) const {
        return static_cast<_uint16_t>(readSequenceNumber(CPacketAccess::buffer(packet)) - m_baseSeq);
    }
    bool isTooLong(const CTalRtpPacket& packet) const { return bodySize(packet) > m_maxLen; }
    bool isFull() const { return m_count == kXorBatch; }

    // XORs what was collected into the parity at `area`.
    void flush(unsigned char* area) {
        if (!m_isBegun) {
            xorMany(area, m_bodies, m_sizes, m_count, m_maxLen);
            m_isBegun = true;
        } else {
            for (int i = 0; i < m_count; ++i) {
                if (m_sizes[i] > 0) {
                    xorBlocks(area, area, m_bodies[i], static_cast<std::size_t>(m_sizes[i]));
                }
            }
        }
        m_count = 0;
    }

    const CXorRecoveryFields& fields() const { return m_fields; }

private:
    void put(const CTalRtpPacket& packet, int place, CXorRecoveryFields& fields) {
        fields.add(packet, distanceOf(packet));
        m_bodies[place] = CPacketAccess::buffer(packet) + kFixedHeaderSize;
        m_sizes[place] = bodySize(packet);
    }

    const _uint16_t m_baseSeq;
    const int m_maxLen;
    const unsigned int m_selectionMask;
    CXorRecoveryFields m_fields;
    bool m_isBegun = false;
    int m_count = 0;
    const unsigned char* m_bodies[kXorBatch];
    int m_sizes[kXorBatch];
};

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
    const stXorSelection selection(pPacket, count, mask);
    if (selection.count == 0) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateXorFecPackets invalid mask count"
                             << ", mask = " << mask << ", count = " << selection.count);
        return -1;
    }

    ++m_createdFECPacketNumber;
    CPacketAccess::clear(*pFecPacket);
    CPacketAccess::writeHeader(*pFecPacket, 0, m_fecPayloadType, nextNumber(m_fecSequenceNumber),
                               selection.timestamp, m_sourceId);
    unsigned char* const payload =
        CPacketAccess::beginPayload(*pFecPacket, selection.maxLen + kFecHeaderSize, kFecHeaderSize);
    unsigned char* const area = payload + kFecHeaderSize;

    CXorParity parity(selection, mask);
    for (int i = parity.take(pPacket, 0, count); i < count; i = parity.take(pPacket, i, count)) {
        const CTalRtpPacket& packet = pPacket[i];
        if (parity.distanceOf(packet) >= kMaxXorDistance) {
            TAL_TRACE(WARNING, "CMMRTPSessionBase::CreateXorFecPackets sequence number slop over"
                                   << ", baseSeq = " << selection.baseSeq
                                   << ", packetSeq = " << readSequenceNumber(CPacketAccess::buffer(packet)));
            ++i;
            continue;
        }
        if (parity.isFull()) {
            parity.flush(area);
        }
        if (parity.isTooLong(packet)) {
            TAL_TRACE(WARNING,
                      "CMMRTPSessionBase::CreateXorFecPackets packet length is bigger than fec max length"
                          << ", packet_index = " << i + 1 << ", mask = " << mask);
            parity.add(packet);
            ++i;
        }
    }
    parity.flush(area);
    parity.fields().writeTo(pFecPacket->get_buffer(), selection.baseSeq);
    return 0;
}

// --- Reed-Solomon FEC ---

namespace {

constexpr int kMaxGroup = 256;  // packets and parity packets together stay below

// The results of one walk over the media packets of a group.
struct stRsGroupSpan {
    _uint16_t minSeq = 0;
    _uint16_t maxSeq = 0;
    _uint32_t timestamp = 0;
    int maxSize = 0;

    stRsGroupSpan(const CTalRtpPacket* packets, int count) {
        for (int i = 0; i < count; ++i) {
            add(packets[i], i == 0);
        }
    }

    bool isConsecutive(int count) const { return static_cast<_uint16_t>(maxSeq - minSeq) + 1 == count; }

private:
    void add(const CTalRtpPacket& packet, bool isFirst) {
        const _uint16_t seq = packet.get_sequence_number();
        const _uint32_t ts = packet.get_timestamp();
        if (isFirst || CMMRTPSessionBase::compareSeq(seq, minSeq) < 0) {
            minSeq = seq;
        }
        if (isFirst || CMMRTPSessionBase::compareSeq(seq, maxSeq) > 0) {
            maxSeq = seq;
        }
        if (isFirst || CMMRTPSessionBase::compareTS(ts, timestamp) > 0) {
            timestamp = ts;
        }
        maxSize = isFirst ? packet.get_packet_size() : std::max(maxSize, packet.get_packet_size());
    }
};

// The blocks of one group for the codec: those that it reads and those that it writes.
class CRsEncoding {
public:
    CRsEncoding(const CTalRtpPacket* packets, int count, CTalRtpPacket* fecPackets, int fecCount) {
        for (int i = 0; i < count; ++i) {
            m_blocks[i] = packets[i].get_buffer();
            m_sizes[i] = packets[i].get_packet_size();
            m_lengths[i].set(static_cast<_uint32_t>(m_sizes[i]));
            m_lengthBlocks[i] = m_lengths[i].bytes;
        }
        for (int j = 0; j < fecCount; ++j) {
            m_parityBlocks[j] = fecPackets[j].get_payload_ptr() + kRsHeaderSize;
            m_parityLengths[j].set(0);
            m_parityLengthBlocks[j] = m_parityLengths[j].bytes;
        }
    }

    // The results are not examined: a packet that the codec refuses, with a line of its own, leaves the
    // parity zero.
    void encode(rs_param_* model) {
        CRsFec::Encode(model, m_blocks, m_sizes, m_parityBlocks);
        CRsFec::Encode(model, m_lengthBlocks, static_cast<int>(sizeof(stLengthWord)), m_parityLengthBlocks);
    }

    _uint16_t recoverLength(int j) const { return static_cast<_uint16_t>(m_parityLengths[j].get()); }

private:
    unsigned char* m_blocks[kMaxGroup];
    int m_sizes[kMaxGroup];
    stLengthWord m_lengths[kMaxGroup];
    unsigned char* m_lengthBlocks[kMaxGroup];
    unsigned char* m_parityBlocks[kMaxGroup];
    stLengthWord m_parityLengths[kMaxGroup];
    unsigned char* m_parityLengthBlocks[kMaxGroup];
};

void writeRsHeader(unsigned char* header, _uint16_t baseSeq, int count, int index, int fecCount,
                   _uint16_t recoverLength) {
    storeBig16(header + kRsBaseOffset, baseSeq);
    storeBig16(header + kRsLengthOffset, recoverLength);
    header[kRsIndexOffset] = static_cast<unsigned char>(index);
    header[kRsCountOffset] = static_cast<unsigned char>(fecCount);
    header[kRsMaskOffset] = static_cast<unsigned char>(count);
}

}  // namespace

int CMMRTPSessionBase::CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                                          int fecCount) {
    if (pPacket == nullptr || pFecPacket == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets invalid parameter: pPacket = "
                             << pPacket << ", pFecPacket = " << pFecPacket);
        return -1;
    }
    if (static_cast<_int64_t>(count) + fecCount >= kMaxGroup) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets total number of packet and fec is over 256.");
        return -1;
    }
    if (m_fecType != RTP_FEC_RS) {
        TAL_TRACE(WARNING, "CMMRTPSessionBase::CreateRsFecPackets FEC type is not RTP_FEC_RS type: fecType = "
                               << m_fecType);
        return -2;
    }
    const stRsGroupSpan span(pPacket, count);
    if (!span.isConsecutive(count)) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets packet seq numbers are discontinuous.");
        return -1;
    }

    rs_param_* const model = GetRsModel(count, count + fecCount);
    const bool isEncoded = model != nullptr && span.maxSize <= MAX_PACKET_SIZE;
    for (int j = 0; j < fecCount; ++j) {
        CTalRtpPacket& fecPacket = pFecPacket[j];
        CPacketAccess::clear(fecPacket);
        CPacketAccess::writeHeader(fecPacket, 0, m_fecPayloadType, 0, span.timestamp, m_sourceId);
        CPacketAccess::beginPayload(fecPacket, span.maxSize + kRsHeaderSize,
                                    isEncoded ? kRsHeaderSize : CPacketAccess::kWholePayload);
    }
    if (model == nullptr) {
        TAL_TRACE(ERROR, "CMMRTPSessionBase::CreateRsFecPackets get rs model failed"
                             << ", k = " << count << ", n = " << count + fecCount);
        return 1;
    }

    CRsEncoding encoding(pPacket, count, pFecPacket, fecCount);
    encoding.encode(model);
    for (int j = 0; j < fecCount; ++j) {
        CTalRtpPacket& fecPacket = pFecPacket[j];
        ++m_createdFECPacketNumber;
        fecPacket.set_sequence_number(nextNumber(m_fecSequenceNumber));
        writeRsHeader(fecPacket.get_payload_ptr(), span.minSeq, count, j, fecCount,
                      encoding.recoverLength(j));
    }
    return 0;
}

}  // namespace talrtp

#include <talrtp/TalRtcpStack.h>

#include "wire/ByteOrder.h"
#include "wire/RtcpLayout.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace talrtp {

namespace {

constexpr std::int64_t kDone = 0;
constexpr std::int64_t kRefused = -1;
constexpr std::int64_t kNothingRead = -2;
constexpr std::int64_t kNoLength = -2;

// ---- writing

// Asks for `size` bytes when `len` bytes are there. Puts the size into `len` and returns whether it fits. A
// size that no length can hold is refused with `len` untouched.
bool claimRoom(std::int64_t size, int& len) {
    if (size > INT_MAX) {
        return false;
    }
    const int capacity = len;
    len = static_cast<int>(size);
    return capacity >= len;
}

// The same for `fixed` bytes and `count` entries of `entrySize` bytes. Refuses a negative count.
bool claimRoom(int fixed, int entrySize, int count, int& len) {
    return count >= 0 && claimRoom(fixed + static_cast<std::int64_t>(entrySize) * count, len);
}

// Compatibility: a count above 31 loses its upper bits here, while its entries are all written.
void writeFlagsAndType(unsigned char* buf, int count, unsigned int type) {
    buf[kRtcpFlagsOffset] = static_cast<unsigned char>(kVersion2 | (count & kCountMask));
    buf[kTypeOffset] = static_cast<unsigned char>(type);
}

// The two places may overlap, and nothing needs to be there when `size` is 0.
void copyBytes(unsigned char* to, const unsigned char* from, int size) {
    if (size > 0) {
        std::memmove(to, from, static_cast<std::size_t>(size));
    }
}

// RTPFB and PSFB differ only in their type.
std::int64_t createFeedbackPacket(CTalRTCPStack& stack, unsigned int type, unsigned int senderSsrc,
                                  unsigned int mediaSsrc, unsigned char fmt, const unsigned char* fci,
                                  int fciLen, unsigned char* buf, int& len) {
    if (buf == nullptr || len <= 0 || !claimRoom(kFciOffset, 1, fciLen, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, fmt, type);
    stack.SetPacketLength(static_cast<unsigned short>(len), buf);
    stack.SetSyncSource(senderSsrc, buf + kSsrcOffset);
    stack.SetSyncSource(mediaSsrc, buf + kMediaSsrcOffset);
    if (fci != nullptr) {
        copyBytes(buf + kFciOffset, fci, fciLen);
    }
    return kDone;
}

// ---- reading

// Copies `size` bytes from `offset` on out of a packet of `length` bytes. Bytes past its end count as 0.
void copyWithin(const unsigned char* packet, int length, std::ptrdiff_t offset, unsigned char* out,
                int size) {
    const std::ptrdiff_t inside = std::clamp<std::ptrdiff_t>(length - offset, 0, size);
    if (inside > 0) {
        std::memcpy(out, packet + offset, static_cast<std::size_t>(inside));
    }
    std::memset(out + inside, 0, static_cast<std::size_t>(size - inside));
}

unsigned char byteWithin(const unsigned char* packet, int length, int offset) {
    return offset < length ? packet[offset] : 0;
}

unsigned int wordWithin(const unsigned char* packet, int length, std::ptrdiff_t offset) {
    unsigned char word[kRtcpWordSize];
    copyWithin(packet, length, offset, word, kRtcpWordSize);
    return loadBig32(word);
}

// The size in bytes that the packet claims to have.
int declaredSize(const unsigned char* packet, int length) {
    unsigned char words[kLengthSize];
    copyWithin(packet, length, kLengthOffset, words, kLengthSize);
    return loadBig16(words) * kRtcpWordSize;
}

unsigned int countWithin(const unsigned char* packet, int length) {
    return byteWithin(packet, length, kRtcpFlagsOffset) & kCountMask;
}

int roundUpToWord(int size) {
    return (size + kRtcpWordSize - 1) / kRtcpWordSize * kRtcpWordSize;
}

bool isReport(unsigned int type) {
    return type == kTypeSenderReport || type == kTypeReceiverReport;
}

bool isFeedback(unsigned int type) {
    return type == kTypeRtpFeedback || type == kTypePayloadFeedback;
}

int reportBlocksOffset(unsigned int type) {
    return type == kTypeSenderReport ? kSenderReportBlocksOffset : kReceiverReportBlocksOffset;
}

// Hands over a packet of which only the first `received` of its `declared` bytes arrived. The sink may read
// all of them, so it receives a copy with zeros after them; GetReportBlock may read one block further.
std::int64_t handOverCutPacket(ITalRTCPStackSink* sink, const unsigned char* packet, int received,
                               int declared) {
    const std::size_t size = static_cast<std::size_t>(declared) + kReportBlockSize;
    std::unique_ptr<unsigned char, void (*)(void*)> copy(
        static_cast<unsigned char*>(std::calloc(size, sizeof(unsigned char))), std::free);
    if (copy == nullptr) {
        return kRefused;
    }
    std::memcpy(copy.get(), packet, static_cast<std::size_t>(received));
    sink->OnRtcpPacket(copy.get(), declared);
    return kDone;
}

}  // namespace

// ---- packets, built

std::int64_t CTalRTCPStack::CreateSenderReportPacket(unsigned int ssrc, _SenderInfo* senderInfo,
                                                     _ReportBlock* blocks, int count, unsigned char* buf,
                                                     int& len) {
    if (senderInfo == nullptr) {
        return CreateReceiverReportPacket(ssrc, blocks, count, buf, len);
    }
    if (blocks == nullptr || buf == nullptr || len <= 0) {
        return kRefused;
    }
    if (!claimRoom(kSenderReportBlocksOffset, kReportBlockSize, count, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, count, kTypeSenderReport);
    SetPacketLength(static_cast<unsigned short>(len), buf);
    SetSyncSource(ssrc, buf + kSsrcOffset);
    SetSenderInfo(senderInfo, buf + kSenderInfoOffset);
    unsigned char* place = buf + kSenderReportBlocksOffset;
    for (int i = 0; i < count; ++i) {
        place += SetReportBlock(&blocks[i], place);
    }
    return kDone;
}

std::int64_t CTalRTCPStack::CreateReceiverReportPacket(unsigned int ssrc, _ReportBlock* blocks, int count,
                                                       unsigned char* buf, int& len) {
    if (blocks == nullptr || buf == nullptr || len <= 0) {
        return kRefused;
    }
    if (!claimRoom(kReceiverReportBlocksOffset, kReportBlockSize, count, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, count, kTypeReceiverReport);
    SetPacketLength(static_cast<unsigned short>(len), buf);
    SetSyncSource(ssrc, buf + kSsrcOffset);
    unsigned char* place = buf + kReceiverReportBlocksOffset;
    for (int i = 0; i < count; ++i) {
        place += SetReportBlock(&blocks[i], place);
    }
    return kDone;
}

std::int64_t CTalRTCPStack::CreateSdesPacket(_SdesItem* items, int count, unsigned char* buf, int& len) {
    if (items == nullptr || buf == nullptr || len <= 0) {
        return kRefused;
    }
    // Compatibility: room for the longest texts is required, so a host can size its buffer by the count.
    if (!claimRoom(kRtcpHeaderSize, kItemRoom, count, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, count, kTypeSdes);
    unsigned char* place = buf + kRtcpHeaderSize;
    for (int i = 0; i < count; ++i) {
        place += SetSdesItem(&items[i], place);
    }
    len = static_cast<int>(place - buf);
    SetPacketLength(static_cast<unsigned short>(len), buf);
    return kDone;
}

std::int64_t CTalRTCPStack::CreateByePacket(unsigned int* ssrcs, int count, unsigned char* buf, int& len) {
    if (ssrcs == nullptr || buf == nullptr || len <= 0) {
        return kRefused;
    }
    if (!claimRoom(kRtcpHeaderSize, kSsrcSize, count, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, count, kTypeBye);
    SetPacketLength(static_cast<unsigned short>(len), buf);
    unsigned char* place = buf + kRtcpHeaderSize;
    for (int i = 0; i < count; ++i) {
        SetSyncSource(ssrcs[i], place);
        place += kSsrcSize;
    }
    return kDone;
}

std::int64_t CTalRTCPStack::CreateAppPacket(unsigned int ssrc, unsigned char subtype, unsigned char* name,
                                            unsigned char* data, int dataLen, unsigned char* buf, int& len) {
    if (name == nullptr || data == nullptr || buf == nullptr || len <= 0) {
        return kRefused;
    }
    if (!claimRoom(kAppDataOffset, 1, dataLen, len)) {
        return kRefused;
    }
    writeFlagsAndType(buf, subtype, kTypeApp);
    SetPacketLength(static_cast<unsigned short>(len), buf);
    SetSyncSource(ssrc, buf + kSsrcOffset);
    copyBytes(buf + kAppNameOffset, name, kAppNameSize);
    copyBytes(buf + kAppDataOffset, data, dataLen);
    return kDone;
}

std::int64_t CTalRTCPStack::CreateRTPFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc,
                                              unsigned char fmt, unsigned char* fci, int fciLen,
                                              unsigned char* buf, int& len) {
    return createFeedbackPacket(*this, kTypeRtpFeedback, senderSsrc, mediaSsrc, fmt, fci, fciLen, buf, len);
}

std::int64_t CTalRTCPStack::CreatePSFBPacket(unsigned int senderSsrc, unsigned int mediaSsrc,
                                             unsigned char fmt, unsigned char* fci, int fciLen,
                                             unsigned char* buf, int& len) {
    return createFeedbackPacket(*this, kTypePayloadFeedback, senderSsrc, mediaSsrc, fmt, fci, fciLen, buf,
                                len);
}

std::int64_t CTalRTCPStack::CreateCompoundPacket(unsigned char** packets, int* lengths, int count,
                                                 unsigned char* buf, int& len) {
    if (buf == nullptr || len <= 0) {
        return kRefused;
    }
    if (count > 0 && (packets == nullptr || lengths == nullptr)) {
        return kRefused;
    }
    std::int64_t size = 0;
    for (int i = 0; i < count; ++i) {
        if (lengths[i] < 0 || (packets[i] == nullptr && lengths[i] > 0)) {
            return kRefused;
        }
        size += lengths[i];
    }
    if (!claimRoom(size, len)) {
        return kRefused;
    }
    unsigned char* place = buf;
    for (int i = 0; i < count; ++i) {
        copyBytes(place, packets[i], lengths[i]);
        place += lengths[i];
    }
    return kDone;
}

// ---- datagrams, cut into packets

std::int64_t CTalRTCPStack::InputReceivedRtcpData(ITalRTCPStackSink* sink, unsigned char* buf, int len) {
    if (sink == nullptr || buf == nullptr || len < 1) {
        return kRefused;
    }
    int offset = 0;
    while (offset < len) {
        unsigned char* const packet = buf + offset;
        const int left = len - offset;
        const int declared = declaredSize(packet, left);
        if (declared == 0) {
            return kNoLength;
        }
        if (declared > left) {
            return handOverCutPacket(sink, packet, left, declared);
        }
        // Compatibility: neither version nor type is looked at; to refuse a packet is the sink's business.
        sink->OnRtcpPacket(packet, declared);
        offset += declared;
    }
    return kDone;
}

// ---- packets, read

bool CTalRTCPStack::IsValidRtcpPacket(unsigned char* buf, int len) {
    if (buf == nullptr || len < 1) {
        return false;
    }
    if ((buf[kRtcpFlagsOffset] & kRtcpVersionMask) != kVersion2) {
        return false;
    }
    const unsigned int type = byteWithin(buf, len, kTypeOffset);
    if (type < kTypeSenderReport || type > kTypePayloadFeedback) {
        return false;
    }
    return declaredSize(buf, len) <= len;
}

// The other getters call this operation of this very class, which asks the virtual IsValidRtcpPacket once.
unsigned int CTalRTCPStack::GetRtcpPacketType(unsigned char* buf, int len) {
    return IsValidRtcpPacket(buf, len) ? byteWithin(buf, len, kTypeOffset) : kTypeNone;
}

unsigned int CTalRTCPStack::GetRtcpPacketSsrc(unsigned char* buf, int len) {
    const unsigned int type = CTalRTCPStack::GetRtcpPacketType(buf, len);
    if (!isReport(type) && type != kTypeApp && !isFeedback(type)) {
        return 0;
    }
    return wordWithin(buf, len, kSsrcOffset);
}

unsigned int CTalRTCPStack::GetReportBlockCount(unsigned char* buf, int len) {
    return isReport(CTalRTCPStack::GetRtcpPacketType(buf, len)) ? countWithin(buf, len) : 0;
}

std::int64_t CTalRTCPStack::GetReportBlock(unsigned char* buf, int len, _ReportBlock* blocks, int& count) {
    const unsigned int type = CTalRTCPStack::GetRtcpPacketType(buf, len);
    if (!isReport(type) || blocks == nullptr) {
        return kRefused;
    }
    const int room = count;
    std::ptrdiff_t offset = reportBlocksOffset(type);
    // Compatibility: only the start of a block is compared with `len`, and the first byte after the packet is
    // a start like any other. Hosts pass buffers with one block of room after the packet and rely on the
    // blocks that they receive.
    for (count = 0; count < room && offset <= len; ++count) {
        offset += GetReportBlock(buf + offset, &blocks[count]);
    }
    return kDone;
}

std::int64_t CTalRTCPStack::GetReportSenderInfo(unsigned char* buf, int len, _SenderInfo* info) {
    const unsigned int type = CTalRTCPStack::GetRtcpPacketType(buf, len);
    if (type != kTypeSenderReport || len < kSenderReportBlocksOffset || info == nullptr) {
        return kRefused;
    }
    return GetSenderInfo(buf + kSenderInfoOffset, info) == kSenderInfoSize ? kDone : kNothingRead;
}

std::int64_t CTalRTCPStack::GetReportExtension(unsigned char* buf, int len, unsigned char*& extension,
                                               int& extensionLen) {
    const unsigned int type = CTalRTCPStack::GetRtcpPacketType(buf, len);
    if (!isReport(type)) {
        return kRefused;
    }
    const int blockCount = static_cast<int>(countWithin(buf, len));
    const int offset = reportBlocksOffset(type) + kReportBlockSize * blockCount;
    if (offset >= len) {
        return kRefused;
    }
    extension = buf + offset;
    extensionLen = len - offset;
    return kDone;
}

unsigned int CTalRTCPStack::GetSdesItemCount(unsigned char* buf, int len) {
    return CTalRTCPStack::GetRtcpPacketType(buf, len) == kTypeSdes ? countWithin(buf, len) : 0;
}

std::int64_t CTalRTCPStack::GetSdesItem(unsigned char* buf, int len, _SdesItem* items, int& count) {
    if (CTalRTCPStack::GetRtcpPacketType(buf, len) != kTypeSdes) {
        return kRefused;
    }
    if (len <= kRtcpHeaderSize || count <= 0) {
        count = 0;
        return kDone;
    }
    if (items == nullptr) {
        return kRefused;
    }
    const int room = count;
    std::ptrdiff_t offset = kRtcpHeaderSize;
    // Compatibility: the step is rounded up to whole words, although CreateSdesPacket does not pad its items.
    for (count = 0; count < room && offset < len; ++count) {
        unsigned char item[kItemMaxSize];
        copyWithin(buf, len, offset, item, kItemMaxSize);
        offset += GetSdesItem(item, &items[count]);
    }
    return kDone;
}

unsigned int CTalRTCPStack::GetByeSsrcCount(unsigned char* buf, int len) {
    return CTalRTCPStack::GetRtcpPacketType(buf, len) == kTypeBye ? countWithin(buf, len) : 0;
}

std::int64_t CTalRTCPStack::GetByeSsrc(unsigned char* buf, int len, unsigned int* ssrcs, int& count) {
    if (CTalRTCPStack::GetRtcpPacketType(buf, len) != kTypeBye) {
        return kRefused;
    }
    if (len <= kRtcpHeaderSize || count <= 0) {
        count = 0;
        return kDone;
    }
    if (ssrcs == nullptr) {
        return kRefused;
    }
    const int room = count;
    std::ptrdiff_t offset = kRtcpHeaderSize;
    for (count = 0; count < room && offset < len; ++count) {
        ssrcs[count] = wordWithin(buf, len, offset);
        offset += kSsrcSize;
    }
    return kDone;
}

unsigned int CTalRTCPStack::GetAppSubType(unsigned char* buf, int len) {
    return CTalRTCPStack::GetRtcpPacketType(buf, len) == kTypeApp ? countWithin(buf, len) : 0;
}

std::int64_t CTalRTCPStack::GetAppName(unsigned char* buf, int len, unsigned char* name) {
    if (CTalRTCPStack::GetRtcpPacketType(buf, len) != kTypeApp || name == nullptr) {
        return kRefused;
    }
    copyWithin(buf, len, kAppNameOffset, name, kAppNameSize);
    return kDone;
}

// Compatibility: a packet shorter than 12 bytes yields a negative data length, here and in GetFBFCIData.
std::int64_t CTalRTCPStack::GetAppData(unsigned char* buf, int len, unsigned char*& data, int& dataLen) {
    if (CTalRTCPStack::GetRtcpPacketType(buf, len) != kTypeApp) {
        return kRefused;
    }
    data = buf + kAppDataOffset;
    dataLen = len - kAppDataOffset;
    return kDone;
}

unsigned int CTalRTCPStack::GetRTPFBSubType(unsigned char* buf, int len) {
    return CTalRTCPStack::GetRtcpPacketType(buf, len) == kTypeRtpFeedback ? countWithin(buf, len) : 0;
}

unsigned int CTalRTCPStack::GetPSFBSubType(unsigned char* buf, int len) {
    return CTalRTCPStack::GetRtcpPacketType(buf, len) == kTypePayloadFeedback ? countWithin(buf, len) : 0;
}

std::int64_t CTalRTCPStack::GetFBSsrc(unsigned char* buf, int len, unsigned int& senderSsrc,
                                      unsigned int& mediaSsrc) {
    if (!isFeedback(CTalRTCPStack::GetRtcpPacketType(buf, len))) {
        return kRefused;
    }
    senderSsrc = wordWithin(buf, len, kSsrcOffset);
    mediaSsrc = wordWithin(buf, len, kMediaSsrcOffset);
    return kDone;
}

std::int64_t CTalRTCPStack::GetFBFCIData(unsigned char* buf, int len, unsigned char*& fci, int& fciLen) {
    if (!isFeedback(CTalRTCPStack::GetRtcpPacketType(buf, len))) {
        return kRefused;
    }
    fci = buf + kFciOffset;
    fciLen = len - kFciOffset;
    return kDone;
}

// ---- fields, writer beside reader, in wire order

void CTalRTCPStack::SetVersion(unsigned char version, unsigned char* buf) {
    if (buf != nullptr) {
        buf[kRtcpFlagsOffset] = static_cast<unsigned char>((version << kRtcpVersionShift) |
                                                           (buf[kRtcpFlagsOffset] & ~kRtcpVersionMask));
    }
}

unsigned char CTalRTCPStack::GetVersion(unsigned char* buf) {
    return buf != nullptr ? static_cast<unsigned char>(buf[kRtcpFlagsOffset] >> kRtcpVersionShift) : 0;
}

void CTalRTCPStack::SetPaddingFlag(bool padding, unsigned char* buf) {
    if (buf != nullptr) {
        const int others = buf[kRtcpFlagsOffset] & ~kRtcpPaddingMask;
        buf[kRtcpFlagsOffset] = static_cast<unsigned char>(padding ? others | kRtcpPaddingMask : others);
    }
}

unsigned char CTalRTCPStack::GetPaddingFlag(unsigned char* buf) {
    return buf != nullptr
               ? static_cast<unsigned char>((buf[kRtcpFlagsOffset] & kRtcpPaddingMask) >> kPaddingShift)
               : 0;
}

void CTalRTCPStack::SetPayloadCount(unsigned char count, unsigned char* buf) {
    if (buf != nullptr) {
        buf[kRtcpFlagsOffset] =
            static_cast<unsigned char>((count & kCountMask) | (buf[kRtcpFlagsOffset] & ~kCountMask));
    }
}

unsigned char CTalRTCPStack::GetPayloadCount(unsigned char* buf) {
    return buf != nullptr ? buf[kRtcpFlagsOffset] & kCountMask : 0;
}

void CTalRTCPStack::SetSubType(unsigned char subtype, unsigned char* buf) {
    SetPayloadCount(subtype, buf);
}

unsigned char CTalRTCPStack::GetSubType(unsigned char* buf) {
    return GetPayloadCount(buf);
}

void CTalRTCPStack::SetPayloadType(unsigned char type, unsigned char* buf) {
    if (buf != nullptr) {
        buf[kTypeOffset] = type;
    }
}

unsigned char CTalRTCPStack::GetPayloadType(unsigned char* buf) {
    return buf != nullptr ? buf[kTypeOffset] : 0;
}

// Compatibility: the byte length has 16 bits, so beyond 65535 bytes only the remainder is declared.
void CTalRTCPStack::SetPacketLength(unsigned short length, unsigned char* buf) {
    if (buf != nullptr) {
        const int words = (length + kRtcpWordSize - 1) >> kWordShift;
        storeBig16(buf + kLengthOffset, static_cast<unsigned short>(words));
    }
}

unsigned short CTalRTCPStack::GetPacketLength(unsigned char* buf) {
    return buf != nullptr ? loadBig16(buf + kLengthOffset) : 0;
}

void CTalRTCPStack::SetSyncSource(unsigned int ssrc, unsigned char* place) {
    if (place != nullptr) {
        storeBig32(place, ssrc);
    }
}

unsigned int CTalRTCPStack::GetSyncSource(unsigned char* place) {
    return place != nullptr ? loadBig32(place) : 0;
}

int CTalRTCPStack::SetSenderInfo(_SenderInfo* info, unsigned char* place) {
    if (info == nullptr || place == nullptr) {
        return 0;
    }
    storeBig32(place + kNtpMswOffset, info->ntpTimestampMsw);
    storeBig32(place + kNtpLswOffset, info->ntpTimestampLsw);
    storeBig32(place + kRtpTimestampOffset, info->rtpTimestamp);
    storeBig32(place + kPacketCountOffset, info->packetCount);
    storeBig32(place + kOctetCountOffset, info->octetCount);
    return kSenderInfoSize;
}

int CTalRTCPStack::GetSenderInfo(unsigned char* place, _SenderInfo* info) {
    if (place == nullptr || info == nullptr) {
        return 0;
    }
    info->ntpTimestampMsw = loadBig32(place + kNtpMswOffset);
    info->ntpTimestampLsw = loadBig32(place + kNtpLswOffset);
    info->rtpTimestamp = loadBig32(place + kRtpTimestampOffset);
    info->packetCount = loadBig32(place + kPacketCountOffset);
    info->octetCount = loadBig32(place + kOctetCountOffset);
    return kSenderInfoSize;
}

int CTalRTCPStack::SetReportBlock(_ReportBlock* block, unsigned char* place) {
    if (block == nullptr || place == nullptr) {
        return 0;
    }
    const unsigned int fractionLost = block->fractionLost;
    storeBig32(place + kBlockSsrcOffset, block->ssrc);
    storeBig32(place + kLossOffset, (fractionLost << kFractionLostShift) | block->cumulativeLost);
    storeBig32(place + kHighestSeqOffset, block->extendedHighestSeq);
    storeBig32(place + kJitterOffset, block->jitter);
    storeBig32(place + kLastSrOffset, block->lastSR);
    storeBig32(place + kDelayOffset, block->delaySinceLastSR);
    return kReportBlockSize;
}

int CTalRTCPStack::GetReportBlock(unsigned char* place, _ReportBlock* block) {
    if (place == nullptr || block == nullptr) {
        return 0;
    }
    const unsigned int loss = loadBig32(place + kLossOffset);
    block->ssrc = loadBig32(place + kBlockSsrcOffset);
    block->fractionLost = (loss >> kFractionLostShift) & 0xffU;
    block->cumulativeLost = loss & kCumulativeLostMask;
    block->extendedHighestSeq = loadBig32(place + kHighestSeqOffset);
    block->jitter = loadBig32(place + kJitterOffset);
    block->lastSR = loadBig32(place + kLastSrOffset);
    block->delaySinceLastSR = loadBig32(place + kDelayOffset);
    return kReportBlockSize;
}

// Compatibility: neither padding nor an end of the chunk is written after the text.
int CTalRTCPStack::SetSdesItem(_SdesItem* item, unsigned char* place) {
    if (item == nullptr || place == nullptr) {
        return 0;
    }
    storeBig32(place + kItemSsrcOffset, item->ssrc);
    place[kItemTypeOffset] = item->type;
    place[kItemLengthOffset] = item->length;
    copyBytes(place + kItemTextOffset, item->data, item->length);
    return kItemTextOffset + item->length;
}

int CTalRTCPStack::GetSdesItem(unsigned char* place, _SdesItem* item) {
    if (place == nullptr || item == nullptr) {
        return 0;
    }
    item->ssrc = loadBig32(place + kItemSsrcOffset);
    item->type = place[kItemTypeOffset];
    item->length = place[kItemLengthOffset];
    copyBytes(item->data, place + kItemTextOffset, item->length);
    return roundUpToWord(kItemTextOffset + item->length);
}

}  // namespace talrtp

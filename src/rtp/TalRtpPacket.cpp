#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "TalRtpTraceLine.h"
#include "memory/Assert.h"
#include "wire/PacketAccess.h"
#include "wire/PacketLayout.h"

namespace talrtp {

namespace {

// RTCP types 200..204 lie here when their second byte is read as marker and payload type.
constexpr unsigned int kFirstReservedPayloadType = 72;
constexpr unsigned int kLastReservedPayloadType = 76;

constexpr int kExtensionLengthMask = 0xffff;

// One-byte elements, RFC 5285, 4.2:
//
//   byte 0: id in bits 7-4, number of data bytes minus one in bits 3-0; then 1 to 16 data bytes
constexpr std::uint16_t kOneByteProfile = 0xbede;
constexpr int kElementIdShift = 4;
constexpr unsigned char kElementLengthMask = 0x0f;
constexpr int kElementOverhead = 2;  // the header byte, and the length field counts one less
constexpr int kMaxElementSize = 17;
constexpr unsigned char kElementPadding = 0;

// The count that `CPacketAccess::replacedBuffers` returns.
thread_local unsigned int s_replacedBuffers = 0;

std::size_t allocationSize(int capacity) {
    return static_cast<std::size_t>(capacity) + kSpareSize;
}

// Throws std::bad_alloc for the null of an allocation that was refused.
unsigned char* checked(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<unsigned char*>(memory);
}

// A buffer for `capacity` bytes and the spare ones after them, none of them zeroed.
unsigned char* allocateBuffer(int capacity) {
    return checked(std::malloc(allocationSize(capacity)));
}

// The same, in the place of the buffer that a packet has.
unsigned char* allocateOther(int capacity) {
    ++s_replacedBuffers;
    return allocateBuffer(capacity);
}

// Zeroes the spare bytes from byte `end` on.
void zeroSpare(unsigned char* buffer, int end) {
    std::memset(buffer + end, 0, kSpareSize);
}

// Gives the buffer room for `needed` bytes; what it gains reads as zero.
void grow(unsigned char*& buffer, int& capacity, int needed) {
    if (needed <= capacity) {
        return;
    }
    ++s_replacedBuffers;
    buffer = checked(std::realloc(buffer, allocationSize(needed)));
    std::memset(buffer + allocationSize(capacity), 0, static_cast<std::size_t>(needed - capacity));
    capacity = needed;
}

// Moves `size` bytes within the buffer, which may overlap. A packet whose header claims more than the packet
// holds has a negative payload size: nothing moves.
void moveBytes(unsigned char* buffer, int from, int to, int size) {
    if (size > 0) {
        std::memmove(buffer + to, buffer + from, static_cast<std::size_t>(size));
    }
}

// The number of whole words that hold `size` bytes.
int wordsFor(int size) {
    return (size + kWordSize - 1) / kWordSize;
}

int elementSize(unsigned char elementHeader) {
    return (elementHeader & kElementLengthMask) + kElementOverhead;
}

// Appends the elements from `area` to `areaEnd` to `elements`, without the padding between them. Where the
// last one claims bytes beyond `packetEnd` it gets zeros.
void appendWithoutPadding(std::vector<unsigned char>& elements, const unsigned char* area,
                          const unsigned char* areaEnd, const unsigned char* packetEnd) {
    while (area < areaEnd) {
        if (*area == kElementPadding) {
            ++area;
            continue;
        }
        const std::ptrdiff_t size = elementSize(*area);
        const std::ptrdiff_t inside = std::min(size, packetEnd - area);
        elements.insert(elements.end(), area, area + inside);
        elements.insert(elements.end(), static_cast<std::size_t>(size - inside), 0);
        area += size;
    }
}

// Appends the host's elements to `area` and fills the last word with zeros. Returns false when all together
// exceed the 16 bits in which their length is counted.
bool appendElements(std::vector<unsigned char>& area, unsigned char** elements, const int* lengths,
                    int count) {
    constexpr std::size_t kMaxAreaSize = std::numeric_limits<std::uint16_t>::max();
    for (int i = 0; i < count && area.size() <= kMaxAreaSize; ++i) {
        area.insert(area.end(), elements[i], elements[i] + lengths[i]);
    }
    if (area.size() > kMaxAreaSize) {
        return false;
    }
    area.resize(static_cast<std::size_t>(kWordSize * wordsFor(static_cast<int>(area.size()))));
    return true;
}

}  // namespace

unsigned int CPacketAccess::replacedBuffers() {
    return s_replacedBuffers;
}

CTalRtpPacket::CTalRtpPacket(int bufferSize)
    : m_buffer(checked(std::calloc(allocationSize(bufferSize), 1))),
      m_payloadSize(0),
      m_packetSize(0),
      m_bufferSize(bufferSize),
      m_packetType(PACKET_TYPE_PLAIN) {
    set_version(kVersion);
}

CTalRtpPacket::CTalRtpPacket(unsigned char* data, int length)
    : m_buffer(nullptr),
      m_payloadSize(0),
      m_packetSize(0),
      m_bufferSize(std::max(length, kMinCopyCapacity)),
      m_packetType(PACKET_TYPE_PLAIN) {
    m_buffer = allocateBuffer(m_bufferSize);
    from_buffer(data, length);
    zeroSpare(m_buffer, m_bufferSize);  // last, in the order in which memory is fetched ahead
}

CTalRtpPacket::CTalRtpPacket(CTalRtpPacket& other)
    : m_buffer(nullptr),
      m_payloadSize(0),
      m_packetSize(0),
      m_bufferSize(std::max(other.m_packetSize, kMinCopyCapacity)),
      m_packetType(other.m_packetType) {
    m_buffer = allocateBuffer(m_bufferSize);
    from_buffer(other.m_buffer, other.m_packetSize);
    zeroSpare(m_buffer, m_bufferSize);
}

CTalRtpPacket::CTalRtpPacket(unsigned char* buffer, int capacity, const CPacketAccess& /*access*/)
    : m_buffer(buffer),
      m_payloadSize(0),
      m_packetSize(0),
      m_bufferSize(capacity),
      m_packetType(PACKET_TYPE_PLAIN) {}

CTalRtpPacket& CTalRtpPacket::operator=(const CTalRtpPacket& other) {
    if (m_bufferSize < other.m_bufferSize) {
        unsigned char* const buffer = allocateOther(other.m_bufferSize);
        std::free(m_buffer);
        m_buffer = buffer;
    }
    // With the spare bytes, so that they read as zero after the smaller capacity too.
    std::memmove(m_buffer, other.m_buffer, allocationSize(other.m_bufferSize));
    m_payloadSize = other.m_payloadSize;
    m_packetSize = other.m_packetSize;
    // Compatibility: the other's capacity is recorded even when this buffer is larger; hosts read it back.
    m_bufferSize = other.m_bufferSize;
    m_packetType = other.m_packetType;
    return *this;
}

CTalRtpPacket::~CTalRtpPacket() {
    std::free(m_buffer);
    m_buffer = nullptr;
}

unsigned int CTalRtpPacket::get_contrib_source(int idx) const {
    assert(idx < get_contrib_src_count());
    return loadBig32(m_buffer + kFixedHeaderSize + kContribSourceSize * idx);
}

void CTalRtpPacket::set_contrib_source(int idx, unsigned int csrc) {
    assert(idx <= 15);
    if (idx >= readContribCount(m_buffer)) {
        const int oldHeaderSize = get_header_size();
        set_contrib_src_count(idx + 1);
        // Compatibility: the packet size stays, the entries in between hold what lay there, and an extension
        // does not move with the list: hosts set CSRCs first. When one is there after all, its length is now
        // read from other bytes, so the move is cut at the capacity.
        const int headerSize = get_header_size();
        const int moved =
            get_extension_flag() ? std::min(m_payloadSize, m_bufferSize - headerSize) : m_payloadSize;
        moveBytes(m_buffer, oldHeaderSize, headerSize, moved);
    }
    storeBig32(m_buffer + kFixedHeaderSize + kContribSourceSize * idx, csrc);
}

int CTalRtpPacket::get_header_size() const {
    return readHeaderSize(m_buffer);
}

bool CTalRtpPacket::get_extension(unsigned short profile, unsigned char* data, int* length) const {
    if (data == nullptr || length == nullptr || !get_extension_flag() ||
        readExtensionProfile(m_buffer) != profile) {
        return false;
    }
    *length = std::min(readExtensionSize(m_buffer), *length);
    const int wanted = std::max(*length, 0);
    const int dataOffset = extensionOffset(m_buffer) + kExtensionHeaderSize;
    const int inside = std::min(wanted, std::max(m_packetSize - dataOffset, 0));
    std::memcpy(data, m_buffer + dataOffset, static_cast<std::size_t>(inside));
    std::memset(data + inside, 0, static_cast<std::size_t>(wanted - inside));
    return true;
}

void CTalRtpPacket::set_extension(unsigned short profile, unsigned char* data, int length) {
    if (data == nullptr || length <= 0 || get_extension_flag()) {
        return;
    }
    const int headerSize = get_header_size();
    const int words = wordsFor(length & kExtensionLengthMask);
    const int size = kWordSize * words;
    moveBytes(m_buffer, headerSize, headerSize + kExtensionHeaderSize + size, m_payloadSize);
    unsigned char* const extension = m_buffer + headerSize;
    storeBig16(extension + kExtensionProfileOffset, profile);
    storeBig16(extension + kExtensionLengthOffset, static_cast<std::uint16_t>(words));
    // Compatibility: whole words are read from `data`, also beyond `length`; hosts pass padded buffers.
    std::memmove(extension + kExtensionHeaderSize, data, static_cast<std::size_t>(size));
    set_extension_flag(true);
    m_packetSize = m_payloadSize + get_header_size();
}

bool CTalRtpPacket::validate() const {
    if (readVersion(m_buffer) != kVersion) {
        TAL_TRACE(WARNING,
                  "CTalRtpPacket::validate, version isn't supported, version = " << readVersion(m_buffer));
        return false;
    }
    const unsigned int type = readPayloadType(m_buffer);
    if (type >= kFirstReservedPayloadType && type <= kLastReservedPayloadType) {
        TAL_TRACE(WARNING, "CTalRtpPacket::validate, payload type is reserved, payload-type = "
                               << type << ", seq " << readSequenceNumber(m_buffer)
                               << ", marker-flag = " << readMarkerFlag(m_buffer));
        if (readMarkerFlag(m_buffer)) {
            TAL_TRACE(WARNING, "CTalRtpPacket::validate, RTCP packet is on RTP port?");
        }
        return false;
    }
    const int headerSize = get_header_size();
    if (m_packetSize < headerSize) {
        TAL_TRACE(WARNING, "CTalRtpPacket::validate, packet length is smaller than the header size");
        return false;
    }
    if (!readPadFlag(m_buffer)) {
        return true;
    }
    const int paddingCount = m_buffer[headerSize + m_payloadSize - 1];
    if (paddingCount > m_packetSize - headerSize) {
        TAL_TRACE(WARNING, "CTalRtpPacket::validate, padding is greater than payload length");
        return false;
    }
    if (paddingCount == 0) {
        TAL_TRACE(WARNING, "CTalRtpPacket::validate, padding is zero");
        return false;
    }
    return true;
}

void CTalRtpPacket::from_buffer(unsigned char* data, int len) {
    // clang-format off
    assert(len>=(_int32_t)sizeof(_rtp_packet_header_t));
    // clang-format on
    unsigned char* outgrown = nullptr;
    if (m_bufferSize < len) {
        unsigned char* const buffer = allocateOther(len);
        outgrown = m_buffer;
        m_buffer = buffer;
        m_bufferSize = len;
    }
    std::memmove(m_buffer, data, static_cast<std::size_t>(len));
    zeroSpare(m_buffer, len);
    std::free(outgrown);
    m_packetSize = len;
    m_payloadSize = len - get_header_size();
}

void CTalRtpPacket::reset() {
    std::memset(m_buffer, 0, static_cast<std::size_t>(m_bufferSize));
    m_payloadSize = 0;
    m_packetSize = 0;
    m_packetType = PACKET_TYPE_PLAIN;
    set_version(kVersion);
}

unsigned char* CTalRtpPacket::get_buffer() const {
    return m_buffer;
}

CTalRtpPacket::operator char*() const {
    return reinterpret_cast<char*>(m_buffer);
}

CTalRtpPacket::operator const char*() const {
    return reinterpret_cast<const char*>(m_buffer);
}

int CTalRtpPacket::get_packet_size() const {
    return m_packetSize;
}

int CTalRtpPacket::get_buffer_size() const {
    return m_bufferSize;
}

int CTalRtpPacket::get_payload_size() const {
    return m_payloadSize;
}

void CTalRtpPacket::set_payload_size(int size) {
    m_payloadSize = size;
    m_packetSize = get_header_size() + size;
}

unsigned char* CTalRtpPacket::get_payload_ptr() const {
    return m_buffer + get_header_size();
}

_packet_type_t CTalRtpPacket::get_packet_type() const {
    return m_packetType;
}

void CTalRtpPacket::set_packet_type(_packet_type_t type) {
    m_packetType = type;
}

// The fixed header, in wire order.

unsigned int CTalRtpPacket::get_version() const {
    return readVersion(m_buffer);
}

void CTalRtpPacket::set_version(unsigned int v) {
    unsigned char* const flags = m_buffer + kFlagsOffset;
    *flags = static_cast<unsigned char>((*flags & ~(kVersionMask << kVersionShift)) |
                                        ((v & kVersionMask) << kVersionShift));
}

bool CTalRtpPacket::get_pad_flag() const {
    return readPadFlag(m_buffer);
}

void CTalRtpPacket::set_pad_flag(bool flag) {
    writeFlag(m_buffer + kFlagsOffset, kPaddingMask, flag);
}

bool CTalRtpPacket::get_extension_flag() const {
    return readExtensionFlag(m_buffer);
}

void CTalRtpPacket::set_extension_flag(bool flag) {
    writeFlag(m_buffer + kFlagsOffset, kExtensionMask, flag);
}

int CTalRtpPacket::get_contrib_src_count() const {
    return readContribCount(m_buffer);
}

void CTalRtpPacket::set_contrib_src_count(int count) {
    assert(count <= 0xf);
    unsigned char* const flags = m_buffer + kFlagsOffset;
    *flags = static_cast<unsigned char>((*flags & ~kContribCountMask) | (count & kContribCountMask));
}

bool CTalRtpPacket::get_marker_flag() const {
    return readMarkerFlag(m_buffer);
}

void CTalRtpPacket::set_marker_flag(bool flag) {
    writeFlag(m_buffer + kMarkerAndTypeOffset, kMarkerMask, flag);
}

unsigned int CTalRtpPacket::get_payload_type() const {
    return readPayloadType(m_buffer);
}

void CTalRtpPacket::set_payload_type(unsigned int t) {
    assert(t <= 0x7f);
    unsigned char* const field = m_buffer + kMarkerAndTypeOffset;
    *field = static_cast<unsigned char>((*field & kMarkerMask) | t);
}

unsigned short CTalRtpPacket::get_sequence_number() const {
    return readSequenceNumber(m_buffer);
}

void CTalRtpPacket::set_sequence_number(unsigned short sequenceNumber) {
    storeBig16(m_buffer + kSequenceNumberOffset, sequenceNumber);
}

unsigned int CTalRtpPacket::get_timestamp() const {
    return readTimestamp(m_buffer);
}

void CTalRtpPacket::set_timestamp(unsigned int timestamp) {
    storeBig32(m_buffer + kTimestampOffset, timestamp);
}

unsigned int CTalRtpPacket::get_sync_source() const {
    return readSyncSource(m_buffer);
}

void CTalRtpPacket::set_sync_source(unsigned int ssrc) {
    storeBig32(m_buffer + kSyncSourceOffset, ssrc);
}

// The same on raw bytes.

unsigned int CTalRtpPacket::get_timestamp(unsigned char* buffer) {
    return readTimestamp(buffer);
}

void CTalRtpPacket::set_timestamp(unsigned char* buffer, unsigned int timestamp) {
    storeBig32(buffer + kTimestampOffset, timestamp);
}

unsigned short CTalRtpPacket::get_sequence_number(unsigned char* buffer) {
    return readSequenceNumber(buffer);
}

void CTalRtpPacket::set_sequence_number(unsigned char* buffer, unsigned short sequenceNumber) {
    storeBig16(buffer + kSequenceNumberOffset, sequenceNumber);
}

unsigned int CTalRtpPacket::get_payload_type(unsigned char* buffer) {
    return readPayloadType(buffer);
}

unsigned int CTalRtpPacket::get_ssrc(unsigned char* buffer) {
    return readSyncSource(buffer);
}

int CTalRtpPacket::get_header_size(unsigned char* buffer) {
    return buffer == nullptr ? 0 : readHeaderSize(buffer);
}

unsigned char* CTalRtpPacket::get_payload_ptr(unsigned char* buffer) {
    return buffer == nullptr ? nullptr : buffer + readHeaderSize(buffer);
}

// Compatibility: the profile is not compared in this form; hosts pass any value.
unsigned char* CTalRtpPacket::get_extension(unsigned short /*profile*/, unsigned char* buffer, int length) {
    if (buffer == nullptr || length < kFixedHeaderSize + kExtensionHeaderSize || !readExtensionFlag(buffer)) {
        return nullptr;
    }
    const int dataOffset = extensionOffset(buffer) + kExtensionHeaderSize;
    return dataOffset <= length ? buffer + dataOffset : nullptr;
}

// One-byte elements.

bool CTalRtpPacket::get_onebyte_extension_element(unsigned char* buffer, int length, unsigned char id,
                                                  unsigned char*& element, int& elementLength) {
    unsigned char* const area = get_extension(kOneByteProfile, buffer, length);
    if (area == nullptr || readExtensionProfile(buffer) != kOneByteProfile ||
        readHeaderSize(buffer) > length) {
        return false;
    }
    // The area ends at the latest with the packet: the header size checked above has 16 bits only.
    const int inside = length - static_cast<int>(area - buffer);
    const int areaSize = std::min(readExtensionSize(buffer), inside);
    int offset = 0;
    while (offset < areaSize) {
        const unsigned char header = area[offset];
        if (header == kElementPadding) {
            ++offset;
            continue;
        }
        const int size = elementSize(header);
        if (size > inside - offset) {
            return false;
        }
        if (header >> kElementIdShift == id) {
            element = area + offset;
            elementLength = size;
            return true;
        }
        offset += size;
    }
    return false;
}

bool CTalRtpPacket::get_onebyte_extension_element(unsigned char id, unsigned char*& element,
                                                  int& elementLength) const {
    return get_extension_flag() &&
           get_onebyte_extension_element(m_buffer, m_packetSize, id, element, elementLength);
}

// Compatibility: the id travels inside the element, so the argument is not used.
bool CTalRtpPacket::add_onebyte_extension_element(unsigned char /*id*/, unsigned char* element,
                                                  int elementLength) {
    return add_onebyte_extension_elements(nullptr, &element, &elementLength, 1);
}

bool CTalRtpPacket::add_onebyte_extension_elements(unsigned char* /*ignored*/, unsigned char** elements,
                                                   int* lengths, int count) try {
    if (count > 0 && (elements == nullptr || lengths == nullptr)) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        if (elements[i] == nullptr || lengths[i] < 1 || lengths[i] > kMaxElementSize) {
            return false;
        }
    }

    // The new area is put together aside: what it is made of may lie in the bytes that move.
    std::vector<unsigned char> area;
    int begin = get_header_size();
    int end = begin;
    if (get_extension_flag()) {
        begin = extensionOffset(m_buffer);
        end = begin + kExtensionHeaderSize + readExtensionSize(m_buffer);
        if (readExtensionProfile(m_buffer) != kOneByteProfile || end > m_packetSize) {
            return false;
        }
        appendWithoutPadding(area, m_buffer + begin + kExtensionHeaderSize, m_buffer + end,
                             m_buffer + m_packetSize);
    }
    if (!appendElements(area, elements, lengths, count)) {
        return false;
    }
    const int areaSize = static_cast<int>(area.size());

    const int newEnd = begin + kExtensionHeaderSize + areaSize;
    const int payloadEnd = get_header_size() + m_payloadSize;
    const int behind = std::max(payloadEnd - end, 0);
    grow(m_buffer, m_bufferSize, newEnd + behind);
    moveBytes(m_buffer, end, newEnd, behind);
    unsigned char* const extension = m_buffer + begin;
    storeBig16(extension + kExtensionProfileOffset, kOneByteProfile);
    storeBig16(extension + kExtensionLengthOffset, static_cast<std::uint16_t>(areaSize / kWordSize));
    std::copy(area.begin(), area.end(), extension + kExtensionHeaderSize);
    set_extension_flag(true);
    m_packetSize = m_payloadSize + get_header_size();
    // Differs from the bytes written only where the 16 bits of the header size do not suffice.
    grow(m_buffer, m_bufferSize, m_packetSize);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace talrtp

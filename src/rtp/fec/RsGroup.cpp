#include "fec/RsGroup.h"

#include <talrtp/TalRtpDefs.h>

#include <algorithm>
#include <new>

#include "fec/CodeMatrix.h"
#include "kernels/GfKernel.h"

namespace talrtp {

// --- Making ---

void CRsParity::addPacket(unsigned char* packet, int size) {
    m_packets[m_packetCount] = packet;
    m_sizes[m_packetCount] = size;
    m_lengths[m_packetCount].set(static_cast<std::uint32_t>(size));
    m_lengthBlocks[m_packetCount] = m_lengths[m_packetCount].bytes;
    m_largestSize = m_packetCount == 0 ? size : std::max(m_largestSize, size);
    ++m_packetCount;
}

void CRsParity::addBlock(unsigned char* block) {
    m_blocks[m_blockCount] = block;
    m_parityLengths[m_blockCount].set(0);
    m_parityLengthBlocks[m_blockCount] = m_parityLengths[m_blockCount].bytes;
    ++m_blockCount;
}

ERsMaking CRsParity::make(const rs_param_& model) {
    const bool isTooLong = m_largestSize > MAX_PACKET_SIZE;
    if (!isTooLong) {
        encodeBlocks(model, m_packets, m_sizes, m_largestSize, m_blocks);
    }
    // After the blocks: words that were just written byte by byte would hold up the kernel.
    encodeBlocks(model, m_lengthBlocks, nullptr, static_cast<int>(sizeof(stLengthWord)),
                 m_parityLengthBlocks);
    return isTooLong ? ERsMaking::kTooLong : ERsMaking::kMade;
}

// --- Rebuilding ---

void CRsGroup::setBlock(int i, const stByteView& block, std::uint16_t length) {
    m_blocks[i] = block.data;
    m_sizes[i] = block.size;
    m_lengths[i] = length;
    int& largest = m_available[i] < m_packetCount ? m_largestPacket : m_largestParity;
    largest = std::max(largest, block.size);
}

ERsRebuilding CRsGroup::rebuild(bool isEveryHeaderNeeded) {
    if (m_largestParity > MAX_PACKET_SIZE) {
        return ERsRebuilding::kTooLong;
    }
    const CRsInterpolation code(m_available, m_availableCount);
    return probe(code) && decode(code, isEveryHeaderNeeded) ? ERsRebuilding::kDone
                                                            : ERsRebuilding::kShortOfMemory;
}

// Rebuilds the length and the first bytes of each missing packet. False when memory is short.
bool CRsGroup::probe(const CRsInterpolation& code) {
    const std::size_t scratchSize = code.scratchSize(m_missingCount);
    const Bytes scratch(new (std::nothrow) unsigned char[scratchSize]);
    if (scratch == nullptr) {
        return false;
    }
    unsigned char values[kProbeColumns][kMaxRsBlocks];
    for (int i = 0; i < m_availableCount; ++i) {
        values[kLengthLow][i] = static_cast<unsigned char>(m_lengths[i]);
        values[kLengthHigh][i] = static_cast<unsigned char>(m_lengths[i] >> 8);
        values[kFlags][i] = blockByte(i, kFlagsOffset);
        values[kSeqHigh][i] = blockByte(i, kSequenceNumberOffset);
        values[kSeqLow][i] = blockByte(i, kSequenceNumberOffset + 1);
    }
    code.probe(m_missing, m_missingCount, values[0], kProbeColumns, scratch.get(), m_probed[0]);
    m_products += scratchSize * kProbeColumns;
    return true;
}

// Tells whether missing packet `i` has a length that its block can have, with room for its header as far as
// the first byte tells.
bool CRsGroup::isLengthRight(int i) const {
    const unsigned char* const flags = &m_probed[kFlags][i];
    const int length = probedLength(i);
    return length >= kFixedHeaderSize && length <= m_largestParity &&
           (readExtensionFlag(flags) || length >= extensionOffset(flags));
}

// Rebuilds the packets that are needed whole. False when memory is short.
bool CRsGroup::decode(const CRsInterpolation& code, bool isEveryHeaderNeeded) {
    int wanted[kMaxRsBlocks];
    int count = 0;
    for (int i = 0; i < m_missingCount; ++i) {
        m_whole[i] = nullptr;
        const bool isNeeded = probedSeq(i) == expectedSeq(i) ||
                              (isEveryHeaderNeeded && readExtensionFlag(&m_probed[kFlags][i]));
        if (isNeeded && isLengthRight(i)) {
            wanted[count++] = i;
        }
    }
    if (count == 0) {
        return true;
    }
    const std::size_t width = static_cast<std::size_t>(m_availableCount);
    const std::size_t blockSize = static_cast<std::size_t>(m_largestParity);
    const std::size_t rowBytes = static_cast<std::size_t>(count) * width;
    m_output.reset(new (std::nothrow) unsigned char[rowBytes + static_cast<std::size_t>(count) * blockSize]);
    if (m_output == nullptr) {
        return false;
    }
    unsigned char* blocks[kMaxRsBlocks];
    for (int r = 0; r < count; ++r) {
        code.fillRow(m_missing[wanted[r]], m_output.get() + static_cast<std::size_t>(r) * width);
        blocks[r] = m_output.get() + rowBytes + static_cast<std::size_t>(r) * blockSize;
        m_whole[wanted[r]] = blocks[r];
    }
    multiplyBlocks({blocks, count, m_output.get(), m_availableCount, m_blocks, m_availableCount}, m_sizes,
                   m_largestParity);
    m_products += rowBytes * blockSize;
    return true;
}

stRsRebuilt CRsGroup::rebuilt(int i) const {
    const ERsPacket kind = !isLengthRight(i)       ? ERsPacket::kWrongLength
                           : m_whole[i] == nullptr ? ERsPacket::kWrongNumber
                                                   : ERsPacket::kWhole;
    return {kind, expectedSeq(i), probedSeq(i), m_whole[i], probedLength(i)};
}

}  // namespace talrtp

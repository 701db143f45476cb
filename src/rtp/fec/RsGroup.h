// A group of packets under the Reed-Solomon code: its parity made, and its missing packets rebuilt.
//
// Whole packets, RTP header included, are blocks 0 .. k-1 of the code, parity blocks the others. Shorter
// blocks count as zero after their end, so the lengths are coded by themselves.

#ifndef TALRTP_SRC_FEC_RSGROUP_H
#define TALRTP_SRC_FEC_RSGROUP_H

#include <talrtp/RsFec.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "fec/ByteView.h"
#include "fec/RsInterpolation.h"
#include "fec/RsLength.h"

namespace talrtp {

constexpr int kMaxRsBlocks = 256;  // in a group, parity included

// --- Making ---

enum class ERsMaking {
    kMade,
    kTooLong,  // a packet is longer than the code takes: only the lengths have parity
};

// The parity of a group. Everything is **borrowed** until `make`.
class CRsParity {
public:
    // Adds a media packet. The order is that of the code.
    void addPacket(unsigned char* packet, int size);
    // Adds a block to write, as long as the longest packet.
    void addBlock(unsigned char* block);
    // `model`: of as many packets and blocks.
    ERsMaking make(const rs_param_& model);

    int largestSize() const { return m_largestSize; }
    std::uint16_t recoverLength(int block) const {
        return static_cast<std::uint16_t>(m_parityLengths[block].get());
    }

private:
    int m_packetCount = 0;
    int m_blockCount = 0;
    int m_largestSize = 0;
    unsigned char* m_packets[kMaxRsBlocks];
    int m_sizes[kMaxRsBlocks];
    stLengthWord m_lengths[kMaxRsBlocks];
    unsigned char* m_lengthBlocks[kMaxRsBlocks];
    unsigned char* m_blocks[kMaxRsBlocks];
    stLengthWord m_parityLengths[kMaxRsBlocks];
    unsigned char* m_parityLengthBlocks[kMaxRsBlocks];
};

// --- Rebuilding ---

enum class ERsRebuilding {
    kDone,
    kTooLong,        // the parity blocks are longer than the code takes
    kShortOfMemory,  // nothing was rebuilt
};

enum class ERsPacket {
    kWhole,
    kWrongLength,  // one that its block, or its header, cannot have
    kWrongNumber,
};

// A missing packet after a rebuild.
struct stRsRebuilt {
    ERsPacket kind;
    std::uint16_t expectedSeq;
    std::uint16_t seq;    // as rebuilt
    unsigned char* data;  // of a whole packet: **borrowed** from the group
    int size;
};

// The missing packets of a group, from as many blocks as it has packets.
//
// Parity can be forged, so the length and the first bytes of every missing packet are rebuilt first, and a
// packet only where these are right: garbage costs little. All bookkeeping is in arrays on the stack; the
// heap lends what grows with the number of missing packets.
class CRsGroup {
public:
    // `packetCount` is k, and `firstSeq` the number of the first packet.
    CRsGroup(int packetCount, std::uint16_t firstSeq) : m_packetCount(packetCount), m_firstSeq(firstSeq) {}

    // First the positions: those of available blocks, packets before parity, and those of missing packets.
    // At most k blocks are taken.
    void listAvailable(int position) {
        m_available[m_availableCount++] = static_cast<unsigned char>(position);
    }
    void listMissing(int position) { m_missing[m_missingCount++] = static_cast<unsigned char>(position); }
    bool hasEnough() const { return m_availableCount == m_packetCount; }
    int availableCount() const { return m_availableCount; }
    int missingCount() const { return m_missingCount; }
    int availablePosition(int i) const { return m_available[i]; }

    // Then, once there are enough, available block `i` with the length that was coded for it. **Borrowed** as
    // long as this lives.
    void setBlock(int i, const stByteView& block, std::uint16_t length);
    int largestPacket() const { return m_largestPacket; }
    int largestParity() const { return m_largestParity; }

    // Rebuilds the missing packets, no packet longer than the parity. With `isEveryHeaderNeeded`, packets
    // with a wrong number are rebuilt too, if only the whole of them tells whether they hold their header.
    ERsRebuilding rebuild(bool isEveryHeaderNeeded);
    stRsRebuilt rebuilt(int i) const;

    // The bytes multiplied so far.
    std::uint64_t products() const { return m_products; }

private:
    typedef std::unique_ptr<unsigned char[]> Bytes;
    // The bytes that are rebuilt first: the rows of `m_probed`.
    enum EProbe { kLengthLow, kLengthHigh, kFlags, kSeqHigh, kSeqLow, kProbeColumns };

    bool probe(const CRsInterpolation& code);
    bool decode(const CRsInterpolation& code, bool isEveryHeaderNeeded);
    unsigned char blockByte(int i, int offset) const { return offset < m_sizes[i] ? m_blocks[i][offset] : 0; }

    int probedLength(int i) const { return m_probed[kLengthHigh][i] << 8 | m_probed[kLengthLow][i]; }
    std::uint16_t probedSeq(int i) const {
        return static_cast<std::uint16_t>(m_probed[kSeqHigh][i] << 8 | m_probed[kSeqLow][i]);
    }
    std::uint16_t expectedSeq(int i) const { return static_cast<std::uint16_t>(m_firstSeq + m_missing[i]); }
    bool isLengthRight(int i) const;

    const int m_packetCount;
    const std::uint16_t m_firstSeq;
    int m_availableCount = 0;
    int m_missingCount = 0;
    int m_largestPacket = 0;
    int m_largestParity = 0;
    std::uint64_t m_products = 0;
    unsigned char m_available[kMaxRsBlocks];
    unsigned char m_missing[kMaxRsBlocks];
    const unsigned char* m_blocks[kMaxRsBlocks];
    int m_sizes[kMaxRsBlocks];
    std::uint16_t m_lengths[kMaxRsBlocks];  // length words, of which the upper two bytes are always 0
    unsigned char m_probed[kProbeColumns][kMaxRsBlocks];
    unsigned char* m_whole[kMaxRsBlocks];  // by missing packet; null for those that were not rebuilt
    Bytes m_output;                        // coefficients, then the packets
};

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_RSGROUP_H

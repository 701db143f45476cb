// The contents of an XOR FEC packet (RFC 2733): the recovery fields and the parity of the bodies.
//
//   protected packets   | header | body        |
//                       | header | body   |        each body counts as zero after its end
//                           |        |
//                          XOR      XOR
//                           v        v
//   FEC packet    RTP header, FEC header | parity, as long as the longest body

#ifndef TALRTP_SRC_FEC_XORPARITY_H
#define TALRTP_SRC_FEC_XORPARITY_H

#include <cstdint>
#include <cstring>

#include "fec/ByteView.h"

namespace talrtp {

enum class EXorStop {
    kEnd,      // of the group
    kTooFar,   // left a packet out: the mask does not reach its number
    kTooLong,  // added a packet whose body is longer than the parity was said to be
};

class CXorParity {
public:
    // `baseSeq`: the lowest number of the group. `area`: where the parity goes, `areaSize` bytes for the
    // longest body; what is there does not matter. **Borrowed** until `finish`.
    CXorParity(std::uint16_t baseSeq, int areaSize, unsigned char* area)
        : m_baseSeq(baseSeq), m_areaSize(areaSize), m_area(area) {}

    // Adds the packets of `group` from place `i` on, up to the first that is too far or too long. Sets `i` to
    // the place of that packet, or to the end. A group tells its end by `end()`, whether a place counts by
    // `contains(i)`, and the view of a packet, **borrowed** until `finish`, by `at(i)`.
    template <typename Group>
    EXorStop add(Group group, int& i);

    // Completes the parity and writes the recovery fields to `packet`, the FEC packet: flags and CSRC count
    // into its RTP header, where they are 0 so far, the rest after it.
    void finish(unsigned char* packet);

private:
    // Many packets are XORed at a time, so that the parity of most groups is written once.
    static constexpr int kBatch = 32;

    // The recovery fields, each the XOR over the packets.
    struct stFields {
        std::uint64_t header;  // the first eight bytes; the sequence numbers among them mean nothing
        int length;
        unsigned int mask;

        void add(const stByteView& packet, unsigned int distance) {
            std::uint64_t bytes;
            std::memcpy(&bytes, packet.data, sizeof bytes);
            header ^= bytes;
            length ^= packet.bodySize();
            mask |= kFecFirstPacketMask >> distance;
        }
    };

    // Out of line: the kernels, inlined into the loop of `add`, would take its registers.
    __attribute__((noinline)) void flush(int count);

    const std::uint16_t m_baseSeq;
    const int m_areaSize;
    unsigned char* const m_area;
    stFields m_fields = {0, 0, 0};
    bool m_isBegun = false;
    int m_count = 0;  // bodies that are not XORed yet
    const unsigned char* m_bodies[kBatch];
    int m_sizes[kBatch];
};

template <typename Group>
EXorStop CXorParity::add(Group group, int& i) {
    // Copies stay in registers.
    stFields fields = m_fields;
    const std::uint16_t baseSeq = m_baseSeq;
    const int areaSize = m_areaSize;
    int count = m_count;
    int place = i;
    EXorStop stop = EXorStop::kEnd;
    for (; place < group.end(); ++place) {
        if (!group.contains(place)) {
            continue;
        }
        const stByteView packet = group.at(place);
        const unsigned int distance = static_cast<std::uint16_t>(readSequenceNumber(packet.data) - baseSeq);
        if (distance >= kFecMaskBits) {
            stop = EXorStop::kTooFar;
            break;
        }
        if (count == kBatch) {
            flush(count);
            count = 0;
        }
        fields.add(packet, distance);
        m_bodies[count] = packet.data + kFixedHeaderSize;
        m_sizes[count++] = packet.bodySize();
        if (packet.bodySize() > areaSize) {
            stop = EXorStop::kTooLong;
            break;
        }
    }
    m_fields = fields;
    m_count = count;
    i = place;
    return stop;
}

}  // namespace talrtp

#endif  // TALRTP_SRC_FEC_XORPARITY_H

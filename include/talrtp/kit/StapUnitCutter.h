// Cuts the hand-overs of an aggregation packet to the unit that each is about.
//
// When a STAP-A arrives (RFC 6184, 5.7.1), the session hands its units over one by one, in packets with the
// same RTP header. Each begins with its own start code and unit, but its declared payload size is the sum of
// all so far; stale bytes of earlier units follow the unit:
//
//   hand-over 1:  00 00 00 01 AAAA          declared  8   growth 8
//   hand-over 2:  00 00 00 01 BB AA         declared 14   growth 6: the start code and BB
//   hand-over 3:  00 00 00 01 CCC ...       declared 21   growth 7: the start code and CCC
//
// So the growth is the length of the new unit. Every other hand-over is whole as it is.

#ifndef TALRTP_KIT_STAPUNITCUTTER_H
#define TALRTP_KIT_STAPUNITCUTTER_H

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {

// Knows the hand-overs of one packet so far.
class StapUnitCutter {
public:
    // One hand-over, cut.
    struct Cut {
        std::size_t size;   // bytes of the hand-over that belong to it, start code included
        std::size_t index;  // position of the unit in its aggregation packet, from 0; 0 for other packets
    };

    // Call it before each call of the session that may hand something over. Within one such call, a sequence
    // number that is repeated means the same aggregation packet.
    void beginCall() { m_isFirst = true; }

    // Takes RTP timestamp, sequence number and declared payload size of the next hand-over.
    Cut cut(std::uint32_t timestamp, std::uint16_t sequence, std::size_t declared) {
        const bool isSamePacket = !m_isFirst && timestamp == m_timestamp && sequence == m_sequence;
        const bool isNextUnit = isSamePacket && declared > m_declared;
        const std::size_t before = isNextUnit ? m_declared : 0;
        m_index = isNextUnit ? m_index + 1 : 0;
        m_isFirst = false;
        m_timestamp = timestamp;
        m_sequence = sequence;
        m_declared = declared;
        return {declared - before, m_index};
    }

private:
    bool m_isFirst = true;
    std::uint32_t m_timestamp = 0;
    std::uint16_t m_sequence = 0;
    std::size_t m_declared = 0;
    std::size_t m_index = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_STAPUNITCUTTER_H

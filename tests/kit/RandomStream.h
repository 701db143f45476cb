// Random streams with their truth, random networks, and what a receiver has to make of both.

#ifndef TALRTP_TESTS_KIT_RANDOMSTREAM_H
#define TALRTP_TESTS_KIT_RANDOMSTREAM_H

#include "RtpPackets.h"
#include "SeededRandom.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/kit/Fec.h>
#include <talrtp/kit/SessionHandle.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace talrtp::test {

// A packet of a stream, and the part of a picture that it carries.
struct StreamPacket {
    Bytes bytes;
    std::size_t picture = 0;
    std::vector<std::size_t> units;  // of the picture, those that begin in this packet
    std::size_t unit = 0;            // of the picture, the one that a fragment belongs to
    bool isFragment = false;
    bool hasMarker = false;
    Bytes piece;  // a fragment's own bytes; the first has the unit's header in front
};

struct StreamPicture {
    std::uint32_t timestamp = 0;
    std::vector<Bytes> units;
    std::size_t firstPacket = 0;
    std::size_t lastPacket = 0;
};

struct StreamFec {
    Bytes bytes;
    std::size_t first = 0;  // media packets that it protects
    std::size_t count = 0;
};

// Packet objects one after the other, as the FEC calls take them.
template <typename Packet>
class PacketRow {
public:
    explicit PacketRow(std::size_t room) : m_packets(std::allocator<Packet>().allocate(room)), m_room(room) {}
    ~PacketRow() {
        for (std::size_t i = 0; i < m_count; ++i) {
            m_packets[i].~Packet();
        }
        std::allocator<Packet>().deallocate(m_packets, m_room);
    }
    PacketRow(const PacketRow&) = delete;
    PacketRow& operator=(const PacketRow&) = delete;

    template <typename... Arguments>
    void add(Arguments... arguments) {
        new (m_packets + m_count++) Packet(arguments...);
    }
    Packet* data() { return m_packets; }
    Packet& operator[](std::size_t i) { return m_packets[i]; }

private:
    Packet* m_packets;
    std::size_t m_room;
    std::size_t m_count = 0;
};

class RandomStream {
public:
    // `pictureCount` pictures, from those numbers on, with FEC in groups of `group` packets.
    RandomStream(SeededRandom& random, std::size_t pictureCount, std::uint16_t firstSequence,
                 std::uint32_t firstTimestamp, kit::FecScheme scheme, std::size_t group, std::size_t parity)
        : m_random(random), m_sequence(firstSequence) {
        for (std::size_t i = 0; i < pictureCount; ++i) {
            addPicture(firstTimestamp + 3000 * presentationOf(i));
        }
        for (std::size_t first = 0; scheme != kit::FecScheme::kNone && first < packets.size();
             first += group) {
            const std::size_t count = std::min(group, packets.size() - first);
            scheme == kit::FecScheme::kXor ? addXor(first, count) : addReedSolomon(first, count, parity);
        }
    }

    std::vector<StreamPicture> pictures;
    std::vector<StreamPacket> packets;
    std::vector<StreamFec> fec;

private:
    // Place in presentation of the picture at that place in decoding order: I or P, then three B pictures
    // that are shown before it, the middle one first.
    static std::uint32_t presentationOf(std::size_t decoding) {
        constexpr std::uint32_t kOrder[] = {3, 1, 0, 2};
        return static_cast<std::uint32_t>(decoding / 4 * 4) + kOrder[decoding % 4];
    }

    void addPicture(std::uint32_t timestamp) {
        StreamPicture picture;
        picture.timestamp = timestamp;
        const bool isIdr = pictures.empty() || m_random.oneIn(6);
        if (isIdr) {
            picture.units.push_back(m_random.nalUnit(0x67, m_random.between(2, 20)));
            picture.units.push_back(m_random.nalUnit(0x68, m_random.between(2, 6)));
        }
        const std::uint32_t slices = m_random.between(1, 5);
        const bool isSvc = m_random.oneIn(3);
        for (std::uint32_t i = 0; i < slices; ++i) {
            if (isSvc) {
                picture.units.push_back(m_random.nalUnit(0x6e, 4));
            }
            picture.units.push_back(slice(isIdr ? 0x65 : 0x41, i == 0));
        }
        picture.firstPacket = packets.size();
        for (std::size_t unit = 0; unit < picture.units.size();) {
            unit += addPackets(picture, unit);
        }
        packets.back().bytes[1] |= 0x80;
        packets.back().hasMarker = true;
        picture.lastPacket = packets.size() - 1;
        pictures.push_back(picture);
    }

    // A slice; the first of a picture begins at macroblock 0, whose number is one set bit.
    Bytes slice(std::uint8_t header, bool isFirst) {
        const std::uint32_t size = m_random.oneIn(2) ? m_random.between(2, 40) : m_random.between(40, 700);
        Bytes unit = m_random.nalUnit(header, size);
        unit[1] = static_cast<std::uint8_t>(isFirst ? unit[1] | 0x80U : (unit[1] & 0x7fU) | 0x01U);
        return unit;
    }

    // Returns how many units went into the packets.
    std::size_t addPackets(const StreamPicture& picture, std::size_t unit) {
        const Bytes& bytes = picture.units[unit];
        const std::size_t left = picture.units.size() - unit;
        if (bytes.size() > 30 && !m_random.oneIn(4)) {
            addFragments(picture, unit);
            return 1;
        }
        if (left > 1 && m_random.oneIn(2)) {
            // A packet of more than 1600 bytes could not be protected.
            constexpr std::size_t kMaxSize = 1400;
            const std::size_t most = m_random.between(1, static_cast<std::uint32_t>(left));
            std::size_t count = 1;
            std::size_t size = bytes.size();
            for (; count < most && size + picture.units[unit + count].size() < kMaxSize; ++count) {
                size += picture.units[unit + count].size();
            }
            addPacket(picture,
                      stapA(std::vector<Bytes>(picture.units.begin() + static_cast<int>(unit),
                                               picture.units.begin() + static_cast<int>(unit + count))));
            for (std::size_t i = 0; i < count; ++i) {
                packets.back().units.push_back(unit + i);
            }
            return count;
        }
        addPacket(picture, bytes);
        packets.back().units.push_back(unit);
        return 1;
    }

    void addFragments(const StreamPicture& picture, std::size_t unit) {
        const std::vector<Bytes> pieces = fragments(picture.units[unit], m_random.between(2, 7));
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            addPacket(picture, pieces[i]);
            StreamPacket& packet = packets.back();
            packet.isFragment = true;
            packet.unit = unit;
            packet.piece.assign(pieces[i].begin() + 2, pieces[i].end());
            if (i == 0) {
                packet.units.push_back(unit);
                packet.piece.insert(packet.piece.begin(), picture.units[unit][0]);
            }
        }
    }

    void addPacket(const StreamPicture& picture, const Bytes& payload) {
        StreamPacket packet;
        packet.bytes = rtp({m_sequence++, picture.timestamp}, payload);
        packet.picture = pictures.size();
        packets.push_back(packet);
    }

    kit::SessionHandle& session(unsigned long fecType) {
        if (!m_session) {
            m_session = std::make_unique<kit::SessionHandle>(nullptr, kSource);
            (*m_session)->SetPayloadType(kMediaType, kFecType);
            (*m_session)->SetFecType(fecType);
        }
        return *m_session;
    }

    void fillRow(PacketRow<CTalRtpPacket>& row, std::size_t first, std::size_t count) {
        for (std::size_t i = first; i < first + count; ++i) {
            row.add(packets[i].bytes.data(), static_cast<int>(packets[i].bytes.size()));
        }
    }

    // An odd number of packets, since an even one cannot bring the payload type back; the last packet of an
    // even group goes without.
    void addXor(std::size_t first, std::size_t count) {
        count -= count % 2 == 0 ? 1 : 0;
        PacketRow<CTalRtpPacket> media(count);
        fillRow(media, first, count);
        CRTPFECPacket parity(2000);
        session(RTP_FEC_XOR)->CreateXorFecPackets(media.data(), static_cast<int>(count), 0xffffff, &parity);
        keepFec(parity, first, count);
    }

    void addReedSolomon(std::size_t first, std::size_t count, std::size_t parityCount) {
        PacketRow<CTalRtpPacket> media(count);
        fillRow(media, first, count);
        PacketRow<CTalRtpPacket> parity(parityCount);
        for (std::size_t i = 0; i < parityCount; ++i) {
            parity.add(2000);
        }
        session(RTP_FEC_RS)
            ->CreateRsFecPackets(media.data(), static_cast<int>(count), parity.data(),
                                 static_cast<int>(parityCount));
        for (std::size_t i = 0; i < parityCount; ++i) {
            keepFec(parity[i], first, count);
        }
    }

    void keepFec(const CTalRtpPacket& packet, std::size_t first, std::size_t count) {
        const unsigned char* const bytes = packet.get_buffer();
        fec.push_back({Bytes(bytes, bytes + packet.get_packet_size()), first, count});
    }

    SeededRandom& m_random;
    std::uint16_t m_sequence;
    std::unique_ptr<kit::SessionHandle> m_session;
};

// One picture that a receiver has to play when the packets in `present` (by place in the stream) arrive or
// are rebuilt.
struct ExpectedPicture {
    std::size_t picture = 0;
    std::vector<Bytes> units;
    std::vector<bool> areWhole;
    bool isComplete = false;
};

class Oracle {
public:
    Oracle(const RandomStream& stream, std::vector<bool> present)
        : m_stream(stream), m_present(std::move(present)) {}

    std::vector<ExpectedPicture> expect() const {
        std::vector<ExpectedPicture> all;
        for (std::size_t i = 0; i < m_stream.pictures.size(); ++i) {
            const ExpectedPicture picture = expectOne(i);
            if (!picture.units.empty()) {
                all.push_back(picture);
            }
        }
        return all;
    }

private:
    ExpectedPicture expectOne(std::size_t index) const {
        const StreamPicture& truth = m_stream.pictures[index];
        ExpectedPicture expected;
        expected.picture = index;
        expected.isComplete = isHoleBeforeExplained(truth.firstPacket);
        for (std::size_t i = truth.firstPacket; i <= truth.lastPacket; ++i) {
            const StreamPacket& packet = m_stream.packets[i];
            expected.isComplete = expected.isComplete && m_present[i];
            if (!m_present[i]) {
                continue;
            }
            for (const std::size_t unit : packet.units) {
                expected.units.push_back(packet.isFragment ? assemble(i) : truth.units[unit]);
                expected.areWhole.push_back(expected.units.back().size() == truth.units[unit].size());
            }
        }
        return expected;
    }

    // The unit whose first fragment is at `first`, up to the first fragment that is missing.
    Bytes assemble(std::size_t first) const {
        const StreamPacket& start = m_stream.packets[first];
        Bytes unit = start.piece;
        for (std::size_t i = first + 1; i < m_stream.packets.size() && m_present[i]; ++i) {
            const StreamPacket& next = m_stream.packets[i];
            const bool isSameUnit = next.isFragment && next.picture == start.picture &&
                                    next.unit == start.unit && next.units.empty();
            if (!isSameUnit) {
                break;
            }
            unit.insert(unit.end(), next.piece.begin(), next.piece.end());
        }
        return unit;
    }

    // Numbers missing right before a picture could be its own, unless there is one only and it is the last
    // packet that the picture before must have had.
    bool isHoleBeforeExplained(std::size_t first) const {
        std::size_t hole = 0;
        while (hole < first && !m_present[first - 1 - hole]) {
            ++hole;
        }
        return hole == 0 || (hole == 1 && first >= 2 && !m_stream.packets[first - 2].hasMarker);
    }

    const RandomStream& m_stream;
    std::vector<bool> m_present;
};

}  // namespace talrtp::test

#endif  // TALRTP_TESTS_KIT_RANDOMSTREAM_H

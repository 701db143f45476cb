// A sending session on NAL units of any content: single packets, aggregation packets, fragments, and parity
// over them. Every buffer has the room that the interface asks for and no more. A reader after RFC 6184 has
// to find the units in the packets, and so has a receiving session, even when as many packets are lost as the
// parity can rebuild.

#include "FuzzSupport.h"
#include "TraceCatcher.h"

#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace talrtp {
namespace fuzz {
namespace {

constexpr int kHeader = 12;
constexpr unsigned int kSource = 7;
constexpr unsigned char kStapA = 24;
constexpr unsigned char kFuA = 28;
constexpr std::size_t kMostPackets = 48;
constexpr std::size_t kMostUnits = 24;

// Packet objects in a row, each with its own capacity.
template <typename Packet>
class Packets {
public:
    explicit Packets(const std::vector<int>& capacities)
        : m_count(capacities.size()), m_packets(std::allocator<Packet>().allocate(m_count)) {
        for (std::size_t i = 0; i < m_count; ++i) {
            new (m_packets + i) Packet(capacities[i]);
        }
    }
    ~Packets() {
        for (std::size_t i = 0; i < m_count; ++i) {
            m_packets[i].~Packet();
        }
        std::allocator<Packet>().deallocate(m_packets, m_count);
    }
    Packets(const Packets&) = delete;
    Packets& operator=(const Packets&) = delete;

    Packet* first() { return m_packets; }
    std::vector<Bytes> bytes() const {
        std::vector<Bytes> result;
        for (std::size_t i = 0; i < m_count; ++i) {
            const CTalRtpPacket& packet = m_packets[i];
            require(packet.get_packet_size() <= packet.get_buffer_size(), "a packet fits its buffer");
            result.emplace_back(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
        }
        return result;
    }

private:
    std::size_t m_count;
    Packet* m_packets;
};

// Reads payloads as a receiver does (RFC 6184, 5.6 to 5.8).
class Reading {
public:
    void add(const Bytes& packet) {
        require(packet.size() > kHeader && packet[0] == 0x80, "a packet has a plain header and a payload");
        const unsigned char* const payload = packet.data() + kHeader;
        const std::size_t size = packet.size() - kHeader;
        const unsigned char type = payload[0] & 0x1f;
        if (type == kStapA) {
            return addAggregate(payload, size);
        }
        if (type == kFuA) {
            return addFragment(payload, size);
        }
        require(!m_isOpen, "no unit begins within another one");
        units.emplace_back(payload, payload + size);
    }

    std::vector<Bytes> units;

private:
    void addAggregate(const unsigned char* payload, std::size_t size) {
        require(!m_isOpen, "no aggregation within a unit");
        unsigned char highest = 0;
        for (std::size_t at = 1; at < size;) {
            require(at + 2 < size, "a unit has a size and a byte");
            const std::size_t unitSize = static_cast<std::size_t>(payload[at] << 8 | payload[at + 1]);
            at += 2;
            require(unitSize > 0 && unitSize <= size - at, "and lies within its packet");
            units.emplace_back(payload + at, payload + at + unitSize);
            highest = std::max<unsigned char>(highest, payload[at] & 0x60);
            at += unitSize;
        }
        require((payload[0] & 0x60) == highest, "NRI is the highest of the units");
    }

    void addFragment(const unsigned char* payload, std::size_t size) {
        require(size > 2, "a fragment is not empty");
        const bool isStart = (payload[1] & 0x80) != 0;
        const bool isEnd = (payload[1] & 0x40) != 0;
        require(!(isStart && isEnd), "a unit has more than one fragment");
        require(isStart != m_isOpen, "fragments begin with a start");
        const unsigned char header = (payload[0] & 0xe0) | (payload[1] & 0x1f);
        if (isStart) {
            units.push_back(Bytes(1, header));
        }
        require(units.back()[0] == header, "all fragments tell the unit's header");
        units.back().insert(units.back().end(), payload + 2, payload + size);
        m_isOpen = !isEnd;
    }

    bool m_isOpen = false;
};

// Collects units out of hand-overs. One of an aggregation packet declares all units so far; it has grown by
// its own.
class UnitSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        require(packet->get_packet_type() == 0, "nothing is cut");
        const unsigned int number = packet->get_sequence_number();
        const int declared = packet->get_payload_size();
        const int before = number == m_number ? m_declared : 0;
        m_number = number;
        m_declared = declared;
        const unsigned char* const payload = packet->get_payload_ptr();
        require(declared - before > 4, "a hand-over has a unit");
        require(payload[0] == 0 && payload[1] == 0 && payload[2] == 0 && payload[3] == 1, "and a start code");
        units.emplace_back(payload + 4, payload + declared - before);
    }

    std::vector<Bytes> units;

private:
    unsigned int m_number = 65536;
    int m_declared = 0;
};

// Reaches what a host sees in a derived class only. A session of the library's class asks no hooks.
class Sender : public CMMRTPSession4SVC {
public:
    Sender() : CMMRTPSession4SVC(nullptr, kSource) {}

    static void startAt(CMMRTPSession4SVC& session, std::uint16_t sequence, std::uint16_t fecSequence) {
        session.*(&Sender::m_sequenceNumber) = sequence;
        session.*(&Sender::m_fecSequenceNumber) = fecSequence;
    }
};

std::unique_ptr<CMMRTPSession4SVC> makeSender(bool isDerived) {
    if (isDerived) {
        return std::make_unique<Sender>();
    }
    return std::make_unique<CMMRTPSession4SVC>(nullptr, kSource);
}

class Run {
public:
    explicit Run(InputReader& input)
        : m_input(input),
          m_mtu(input.within(40, 1500)),
          m_fecType(input.flag() ? RTP_FEC_RS : RTP_FEC_XOR),
          m_sequence(static_cast<std::uint16_t>(input.any<std::uint8_t>() - 128)),
          m_sender(makeSender(input.flag())) {
        Sender::startAt(*m_sender, m_sequence, static_cast<std::uint16_t>(input.any<std::uint8_t>() - 128));
        m_sender->SetFecType(m_fecType);
    }

    void play() {
        while (m_input.size() > 0 && m_media.size() < kMostPackets && m_units.size() < kMostUnits) {
            makePackets();
        }
        checkHeaders();
        Reading reading;
        for (const Bytes& packet : m_media) {
            reading.add(packet);
        }
        require(reading.units == m_units, "the packets carry the units");
        checkDelivery(protect());
    }

private:
    // A unit of up to three packets, or a few small ones in an aggregation packet.
    void makePackets() {
        m_timestamp += m_input.within(0U, 3000U);
        const int shape = m_input.within(0, 3);
        if (shape == 0) {
            return makeAggregate(1 + m_input.within<std::size_t>(0, 5));
        }
        Bytes unit = nextUnit(shape == 1 ? 60 : 3 * m_mtu);
        const int size = static_cast<int>(unit.size());
        const int room = m_mtu - kHeader;
        if (size <= room && !m_input.flag()) {
            Packets<CTalRtpPacket> packet({kHeader + size});
            require(m_sender->CreateSinglePacket(m_timestamp, size, unit.data(), packet.first()) == 0,
                    "a unit is packed");
            return take(packet.bytes(), {unit});
        }
        makeFragments(unit, size, room - 2);
    }

    // As many packets as are needed, or some more of which none is empty.
    void makeFragments(Bytes& unit, int size, int room) {
        int count = std::max(2, (size + room - 1) / room) + m_input.within(0, 3);
        while (count > 1 && size <= (size + count - 1) / count * (count - 1)) {
            --count;
        }
        const int piece = (size + count - 1) / count;
        // The unit's header byte goes into the fragments' own two.
        if (count > 1 && piece < 2) {
            count = 1;
        }
        const int capacity = count == 1 ? kHeader + size : kHeader + 2 + piece;
        Packets<CTalRtpPacket> packets(std::vector<int>(static_cast<std::size_t>(count), capacity));
        require(m_sender->CreateFuaPackets(m_timestamp, size, unit.data(), count, packets.first()) == 0,
                "a unit is cut");
        take(packets.bytes(), {unit});
    }

    void makeAggregate(std::size_t count) {
        std::vector<Bytes> units;
        std::vector<int> sizes;
        std::vector<unsigned char*> pointers;
        int capacity = kHeader + 1;
        for (std::size_t i = 0; i < count; ++i) {
            units.push_back(nextUnit(200));
            capacity += 2 + static_cast<int>(units.back().size());
        }
        for (Bytes& unit : units) {
            sizes.push_back(static_cast<int>(unit.size()));
            pointers.push_back(unit.data());
        }
        Packets<CTalRtpPacket> packet({capacity});
        require(m_sender->CreateStapaPacket(m_timestamp, static_cast<int>(count), sizes.data(),
                                            pointers.data(), packet.first()) == 0,
                "units are packed together");
        take(packet.bytes(), units);
    }

    // A unit in a block of its own size. Its type is one that a single packet can have.
    Bytes nextUnit(int longest) {
        const std::size_t size = m_input.within<std::size_t>(1, static_cast<std::size_t>(longest));
        Bytes bytes = m_input.bytes(std::min<std::size_t>(size, 24));
        bytes.resize(size, static_cast<unsigned char>(0x30 + m_units.size()));
        const unsigned char type = bytes[0] & 0x1f;
        if (type == 0 || type > 23) {
            bytes[0] = static_cast<unsigned char>((bytes[0] & 0xe0) | 1);
        }
        return Bytes(bytes);
    }

    void take(const std::vector<Bytes>& packets, const std::vector<Bytes>& units) {
        m_markers.insert(m_markers.end(), packets.size() - 1, false);
        m_markers.push_back(true);
        m_timestamps.insert(m_timestamps.end(), packets.size(), m_timestamp);
        m_media.insert(m_media.end(), packets.begin(), packets.end());
        m_units.insert(m_units.end(), units.begin(), units.end());
    }

    void checkHeaders() {
        for (std::size_t i = 0; i < m_media.size(); ++i) {
            CTalRtpPacket packet(m_media[i].data(), static_cast<int>(m_media[i].size()));
            require(packet.validate(), "a packet is valid");
            require(packet.get_sequence_number() == static_cast<std::uint16_t>(m_sequence + i),
                    "numbers follow each other");
            require(packet.get_timestamp() == m_timestamps[i], "a packet has its timestamp");
            require(packet.get_marker_flag() == m_markers[i], "the last packet of a unit is marked");
            require(packet.get_payload_type() == 98 && packet.get_sync_source() == kSource,
                    "it tells its origin");
        }
    }

    // Returns the packets that arrive: of each group the media packets that were not lost, then the parity.
    std::vector<Bytes> protect() {
        std::vector<Bytes> arriving;
        for (std::size_t begin = 0; begin < m_media.size();) {
            const std::size_t count =
                std::min<std::size_t>(1 + m_input.within<std::size_t>(0, 15), m_media.size() - begin);
            const std::vector<Bytes> group(m_media.begin() + static_cast<std::ptrdiff_t>(begin),
                                           m_media.begin() + static_cast<std::ptrdiff_t>(begin + count));
            const std::vector<Bytes> parity = parityOf(group);
            lose(group, parity.size(), arriving);
            arriving.insert(arriving.end(), parity.begin(), parity.end());
            begin += count;
        }
        return arriving;
    }

    std::vector<Bytes> parityOf(const std::vector<Bytes>& group) {
        std::vector<int> capacities;
        std::size_t longest = 0;
        for (const Bytes& packet : group) {
            capacities.push_back(static_cast<int>(packet.size()));
            longest = std::max(longest, packet.size());
        }
        Packets<CTalRtpPacket> media(capacities);
        for (std::size_t i = 0; i < group.size(); ++i) {
            Bytes bytes = group[i];
            CTalRtpPacket received(bytes.data(), static_cast<int>(bytes.size()));
            media.first()[i] = received;
        }
        const int count = static_cast<int>(group.size());
        const int room = static_cast<int>(longest);
        if (m_fecType == RTP_FEC_XOR) {
            Packets<CRTPFECPacket> parity({room + 12});
            require(m_sender->CreateXorFecPackets(media.first(), count, 0xffffffff, parity.first()) == 0,
                    "a group is protected");
            return parity.bytes();
        }
        const std::size_t fecCount = 1 + m_input.within<std::size_t>(0, 3);
        Packets<CTalRtpPacket> parity(std::vector<int>(fecCount, room + 20));
        require(m_sender->CreateRsFecPackets(media.first(), count, parity.first(),
                                             static_cast<int>(fecCount)) == 0,
                "a group is protected");
        return parity.bytes();
    }

    // Leaves out as many packets of the group as the parity can make up for, or less.
    void lose(const std::vector<Bytes>& group, std::size_t most, std::vector<Bytes>& arriving) {
        std::vector<bool> isLost(group.size(), false);
        for (std::size_t i = m_input.within<std::size_t>(0, most); i > 0; --i) {
            isLost[m_input.within<std::size_t>(0, group.size() - 1)] = true;
        }
        for (std::size_t i = 0; i < group.size(); ++i) {
            if (!isLost[i]) {
                arriving.push_back(group[i]);
            } else {
                ++m_lost;
            }
        }
    }

    void checkDelivery(const std::vector<Bytes>& arriving) {
        UnitSink sink;
        CMMRTPSession4SVC receiver(&sink, 8);
        receiver.SetFecType(m_fecType);
        for (const Bytes& packet : arriving) {
            ExactBuffer datagram(packet);
            require(receiver.InputReceivedData(datagram.data(), datagram.size(), 1000) == 0,
                    "a packet is taken in");
        }
        std::vector<Bytes> delivered = sink.units;
        std::vector<Bytes> sent = m_units;
        if (m_lost > 0) {  // those of lost packets come later
            std::sort(delivered.begin(), delivered.end());
            std::sort(sent.begin(), sent.end());
        }
        require(delivered == sent, "a receiver gets the units");
    }

    InputReader& m_input;
    int m_mtu;
    unsigned long m_fecType;
    std::uint16_t m_sequence;
    std::unique_ptr<CMMRTPSession4SVC> m_sender;
    std::uint32_t m_timestamp = 0xffffff00;
    std::vector<Bytes> m_units;
    std::vector<Bytes> m_media;
    std::vector<bool> m_markers;
    std::vector<std::uint32_t> m_timestamps;
    std::size_t m_lost = 0;
};

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const talrtp::test::TraceCatcher silence(-1);
    talrtp::fuzz::InputReader input(data, size);
    talrtp::fuzz::Run(input).play();
    return 0;
}

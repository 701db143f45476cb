#include "loopback/Audit.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/SenderOptions.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace talrtp::host {

namespace {

// Payload types within H.264 packets (RFC 6184, 5.2).
constexpr int kStapA = 24;
constexpr int kFuA = 28;
constexpr unsigned int kFuStartBit = 0x80;

// Tells whether a hand-over is a start code and the unit, or the beginning of both when `isWhole` is false.
bool matches(const kit::Handover& delivered, const std::vector<std::uint8_t>& unit) {
    constexpr std::size_t kStart = sizeof kit::kStartCode;
    const std::size_t size = delivered.bytes.size();
    const std::size_t whole = kStart + unit.size();
    if (delivered.isWhole ? size != whole : size >= whole || size < kStart) {
        return false;
    }
    return std::equal(std::begin(kit::kStartCode), std::end(kit::kStartCode), delivered.bytes.begin()) &&
           std::equal(delivered.bytes.begin() + kStart, delivered.bytes.end(), unit.begin());
}

// Returns how many units a STAP-A holds: a header byte, then each unit after its length in 16 bits.
int countAggregated(kit::BytesView payload) {
    int count = 0;
    for (std::size_t at = 1; at + 1 < payload.size(); ++count) {
        at += 2 + (static_cast<std::size_t>(payload[at]) << 8 | payload[at + 1]);
    }
    return count;
}

// Returns how many units begin in the payload of a packet.
int countBegun(kit::BytesView payload) {
    switch (kit::nalType(payload)) {
        case kStapA:
            return countAggregated(payload);
        case kFuA:
            return (payload[1] & kFuStartBit) != 0 ? 1 : 0;
        default:
            return 1;
    }
}

}  // namespace

void CAudit::addPicture(std::uint32_t timestamp, const std::vector<kit::BytesView>& units) {
    SentPicture picture{timestamp, {}};
    for (const kit::BytesView unit : units) {
        picture.units.emplace_back();
        picture.units.back().bytes.assign(unit.begin(), unit.end());
    }
    m_counts.units += units.size();
    m_pictures.push_back(std::move(picture));
}

void CAudit::addMediaPacket(const kit::Datagram& datagram, bool arrives) {
    SentPicture& picture = m_pictures.back();
    const int begun = countBegun(datagram.bytes.subview(kit::kRtpHeaderSize));
    beginUnits(picture, datagram.sequence, begun);
    if (begun == 0 && picture.begunUnits > 0) {
        ++picture.units[picture.begunUnits - 1].packetCount;
    }
    ++picture.packetCount;
    m_packets.push_back({datagram.sequence, arrives, nullptr});
}

// The next `count` units of the picture begin in its next packet.
void CAudit::beginUnits(SentPicture& picture, std::uint16_t sequence, int count) {
    for (int i = 0; i < count; ++i) {
        if (picture.begunUnits == picture.units.size()) {
            ++m_counts.wrong;
            return;
        }
        Unit& unit = picture.units[picture.begunUnits++];
        unit.sequence = sequence;
        unit.index = i;
        unit.firstPacket = picture.packetCount;
        unit.packetCount = 1;
    }
}

void CAudit::addFecPacket(const kit::Datagram& datagram, bool arrives) {
    const std::vector<std::uint16_t> sequences = protectedBy(datagram.bytes);
    if (sequences.empty()) {
        ++m_counts.wrong;
        return;
    }
    if (m_lastGroup == nullptr || m_lastGroup->firstSequence != sequences.front()) {
        beginGroup(sequences);
    }
    m_lastGroup->fecThatArrived += arrives ? 1 : 0;
}

void CAudit::beginGroup(const std::vector<std::uint16_t>& sequences) {
    m_lastGroup = std::make_shared<Group>();
    m_lastGroup->firstSequence = sequences.front();
    for (const std::uint16_t sequence : sequences) {
        const std::size_t at =
            m_packets.empty() ? 0 : static_cast<std::uint16_t>(sequence - m_packets.front().sequence);
        if (at < m_packets.size()) {
            m_packets[at].group = m_lastGroup;
            m_lastGroup->lostMedia += m_packets[at].arrives ? 0 : 1;
        }
    }
}

// The sequence numbers that an FEC packet names.
std::vector<std::uint16_t> CAudit::protectedBy(kit::BytesView fecPacket) const {
    constexpr int kMaskBits = 24;
    unsigned char* const bytes = const_cast<unsigned char*>(fecPacket.data());  // copied
    const int size = static_cast<int>(fecPacket.size());
    std::vector<std::uint16_t> sequences;
    if (m_scheme == kit::FecScheme::kXor) {
        const CRTPFECPacket fec(bytes, size);
        for (int i = 0; i < kMaskBits; ++i) {
            if ((fec.get_fec_mask() >> (kMaskBits - 1 - i) & 1) != 0) {
                sequences.push_back(static_cast<std::uint16_t>(fec.get_fec_sequence_number_base() + i));
            }
        }
        return sequences;
    }
    const CRTPRSPacket fec(bytes, size);
    for (int i = 0; i < fec.get_rs_mask(); ++i) {
        sequences.push_back(static_cast<std::uint16_t>(fec.get_rs_sequence_number_base() + i));
    }
    return sequences;
}

void CAudit::close(std::uint32_t timestamp, const std::vector<kit::Handover>& delivered) {
    const bool isOpen = std::any_of(m_pictures.begin(), m_pictures.end(),
                                    [&](const SentPicture& each) { return each.timestamp == timestamp; });
    if (!isOpen) {
        m_counts.wrong += delivered.size();
        return;
    }
    while (m_pictures.front().timestamp != timestamp) {
        closeFront({});
    }
    closeFront(delivered);
}

void CAudit::finish() {
    while (!m_pictures.empty()) {
        closeFront({});
    }
}

// Both lists are in decoding order, so one walk finds for each unit what was delivered of it; a hand-over
// that is passed over belongs to no unit or stands in the wrong place.
void CAudit::closeFront(const std::vector<kit::Handover>& delivered) {
    const SentPicture picture = std::move(m_pictures.front());
    m_pictures.pop_front();
    auto next = delivered.begin();
    for (const Unit& unit : picture.units) {
        const auto found = std::find_if(next, delivered.end(), [&](const kit::Handover& each) {
            return each.sequence == unit.sequence && each.index == unit.index;
        });
        if (found == delivered.end()) {
            compare(unit, nullptr);
            continue;
        }
        m_counts.wrong += static_cast<std::uint64_t>(found - next);
        compare(unit, &*found);
        next = found + 1;
    }
    m_counts.wrong += static_cast<std::uint64_t>(delivered.end() - next);
    countPackets(picture.packetCount);
}

void CAudit::compare(const Unit& unit, const kit::Handover* delivered) {
    const bool isMatch = delivered != nullptr && matches(*delivered, unit.bytes);
    const bool isWhole = isMatch && delivered->isWhole;
    m_counts.whole += isWhole ? 1 : 0;
    m_counts.cut += delivered != nullptr && !isWhole ? 1 : 0;
    m_counts.missing += delivered == nullptr ? 1 : 0;
    m_counts.wrong += delivered != nullptr && !isMatch ? 1 : 0;
    if (couldArrive(unit)) {
        ++m_counts.couldArrive;
        m_counts.arrivedButUndelivered += isWhole ? 0 : 1;
    }
}

// Counts the packets of the picture that is closed, and forgets them.
void CAudit::countPackets(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Packet& packet = m_packets[i];
        if (!packet.arrives) {
            ++m_counts.lostPackets;
            ++(couldCome(packet) ? m_counts.rebuildable : m_counts.notRebuildable);
        }
    }
    m_packets.erase(m_packets.begin(), m_packets.begin() + static_cast<std::ptrdiff_t>(count));
}

bool CAudit::couldArrive(const Unit& unit) const {
    for (std::size_t i = 0; i < unit.packetCount; ++i) {
        if (!couldCome(m_packets[unit.firstPacket + i])) {
            return false;
        }
    }
    return unit.packetCount > 0;
}

// One XOR packet makes up for one loss; each Reed-Solomon packet makes up for one.
bool CAudit::couldCome(const Packet& packet) const {
    if (packet.arrives || packet.group == nullptr) {
        return packet.arrives;
    }
    const int arrived = packet.group->fecThatArrived;
    return packet.group->lostMedia <= (m_scheme == kit::FecScheme::kXor ? std::min(arrived, 1) : arrived);
}

}  // namespace talrtp::host

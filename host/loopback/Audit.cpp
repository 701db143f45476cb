#include "loopback/Audit.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/SenderOptions.h>

#include <algorithm>
#include <utility>

namespace talrtp::host {

namespace {

constexpr unsigned int kFuStartBit = 0x80;

constexpr std::size_t kNoUnit = static_cast<std::size_t>(-1);

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
        case kit::kNalStapA:
            return countAggregated(payload);
        case kit::kNalFuA:
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
    for (; count > 0; --count) {
        if (picture.begunUnits == picture.units.size()) {
            ++m_counts.wrong;
            return;
        }
        Unit& unit = picture.units[picture.begunUnits++];
        unit.sequence = sequence;
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

void CAudit::close(const kit::Picture& played) {
    const bool isOpen = std::any_of(m_pictures.begin(), m_pictures.end(), [&](const SentPicture& each) {
        return each.timestamp == played.timestamp();
    });
    if (!isOpen) {
        m_counts.wrong += played.units().size();
        return;
    }
    while (m_pictures.front().timestamp != played.timestamp()) {
        closeFront(nullptr);
    }
    closeFront(&played);
}

void CAudit::finish() {
    while (!m_pictures.empty()) {
        closeFront(nullptr);
    }
}

void CAudit::closeFront(const kit::Picture* played) {
    enum class Fate { kMissing, kCut, kWhole };
    const SentPicture picture = std::move(m_pictures.front());
    m_pictures.pop_front();
    std::vector<Fate> fates(picture.units.size(), Fate::kMissing);
    if (played != nullptr) {
        const std::vector<std::size_t> matches = match(picture, *played);
        for (std::size_t i = 0; i < matches.size(); ++i) {
            if (matches[i] == kNoUnit) {
                ++m_counts.wrong;
            } else {
                fates[matches[i]] = played->isUnitWhole(i) ? Fate::kWhole : Fate::kCut;
            }
        }
    }
    for (std::size_t i = 0; i < fates.size(); ++i) {
        countUnit(picture.units[i], fates[i] != Fate::kMissing, fates[i] == Fate::kWhole);
    }
    countPackets(picture.packetCount);
}

// Finds for each unit played the unit sent, kNoUnit when there is none. Both lists are in decoding order, so
// one walk finds them. Of equal units the one that could become what was played comes first.
std::vector<std::size_t> CAudit::match(const SentPicture& sent, const kit::Picture& played) const {
    std::vector<std::size_t> matches;
    auto next = sent.units.begin();
    for (std::size_t i = 0; i < played.units().size(); ++i) {
        auto found = std::find_if(next, sent.units.end(), [&](const Unit& each) {
            return canBecome(each, played.isUnitWhole(i)) && isMatch(each, played, i);
        });
        if (found == sent.units.end()) {
            found = std::find_if(next, sent.units.end(),
                                 [&](const Unit& each) { return isMatch(each, played, i); });
        }
        const bool isFound = found != sent.units.end();
        matches.push_back(isFound ? static_cast<std::size_t>(found - sent.units.begin()) : kNoUnit);
        next = isFound ? found + 1 : next;
    }
    return matches;
}

// Tells whether unit `i` of the picture played is that unit, or a beginning of it if it was cut, and whether
// its first packet lies in that picture.
bool CAudit::isMatch(const Unit& sent, const kit::Picture& played, std::size_t i) const {
    const kit::BytesView unit = played.units()[i];
    const std::uint64_t span = played.lastSequence() - played.firstSequence();
    const auto distance = static_cast<std::uint16_t>(sent.sequence - played.firstSequence());
    const bool isSizeRight = played.isUnitWhole(i) ? unit.size() == sent.bytes.size()
                                                   : !unit.empty() && unit.size() < sent.bytes.size();
    return distance <= span && isSizeRight && std::equal(unit.begin(), unit.end(), sent.bytes.begin());
}

// Tells whether the losses leave of the unit all, or its first packet and not all.
bool CAudit::canBecome(const Unit& unit, bool isWhole) const {
    if (isWhole || unit.packetCount == 0) {
        return couldArrive(unit);
    }
    return couldCome(m_packets[unit.firstPacket]) && !couldArrive(unit);
}

void CAudit::countUnit(const Unit& unit, bool isPlayed, bool isWhole) {
    m_counts.whole += isWhole ? 1 : 0;
    m_counts.cut += isPlayed && !isWhole ? 1 : 0;
    m_counts.missing += isPlayed ? 0 : 1;
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

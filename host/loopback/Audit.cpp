#include "loopback/Audit.h"

#include "kit/AnnexB.h"

#include <algorithm>
#include <iterator>

namespace talrtp::host {

namespace {

// Tells whether a hand-over is a start code and the unit, or the beginning of both when `isWhole` is false.
bool matches(const kit::Handover& delivered, const kit::NalUnit& unit) {
    constexpr std::size_t kStart = sizeof kit::kStartCode;
    const std::size_t size = delivered.bytes.size();
    const std::size_t whole = kStart + unit.size();
    if (delivered.isWhole ? size != whole : size >= whole || size < kStart) {
        return false;
    }
    return std::equal(std::begin(kit::kStartCode), std::end(kit::kStartCode), delivered.bytes.begin()) &&
           std::equal(delivered.bytes.begin() + kStart, delivered.bytes.end(), unit.begin());
}

}  // namespace

void CAudit::addPicture(std::uint32_t timestamp, const kit::Picture& picture,
                        const std::vector<kit::PackStep>& steps, const CTalRtpPacket* packets) {
    SentPicture sent{timestamp, {}, kit::countPackets(steps)};
    std::size_t first = 0;
    for (const kit::PackStep& step : steps) {
        const std::size_t count = static_cast<std::size_t>(step.packetCount);
        for (std::size_t i = 0; i < step.unitCount; ++i) {
            sent.units.push_back({picture[step.firstUnit + i], packets[first].get_sequence_number(),
                                  static_cast<int>(i), first, count});
        }
        first += count;
    }
    m_packets.resize(m_packets.size() + sent.packetCount);
    m_counts.units += sent.units.size();
    m_pictures.push_back(std::move(sent));
}

void CAudit::addMediaPacket(bool comes) {
    Packet& packet = m_packets[m_sentPackets++];
    packet.isSent = true;
    packet.comes = comes;
}

void CAudit::addGroup(int mediaCount, std::size_t sentSince) {
    m_lastGroup = std::make_shared<Group>();
    const std::size_t end = m_sentPackets - sentSince;
    for (std::size_t i = end - static_cast<std::size_t>(mediaCount); i < end; ++i) {
        m_packets[i].group = m_lastGroup;
        m_lastGroup->lostMedia += m_packets[i].comes ? 0 : 1;
    }
}

void CAudit::addFecPacket(bool comes) {
    m_lastGroup->fecThatCame += comes ? 1 : 0;
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
        if (packet.isSent && !packet.comes) {
            ++m_counts.lostPackets;
            ++(couldCome(packet) ? m_counts.rebuildable : m_counts.notRebuildable);
        }
    }
    m_packets.erase(m_packets.begin(), m_packets.begin() + static_cast<std::ptrdiff_t>(count));
    m_sentPackets -= std::min(m_sentPackets, count);
}

bool CAudit::couldArrive(const Unit& unit) const {
    for (std::size_t i = 0; i < unit.packetCount; ++i) {
        if (!couldCome(m_packets[unit.firstPacket + i])) {
            return false;
        }
    }
    return true;
}

// One XOR packet makes up for one loss; each Reed-Solomon packet makes up for one.
bool CAudit::couldCome(const Packet& packet) const {
    if (packet.comes || packet.group == nullptr) {
        return packet.comes;
    }
    const int most =
        m_scheme == kit::FecScheme::kXor ? std::min(packet.group->fecThatCame, 1) : packet.group->fecThatCame;
    return packet.group->lostMedia <= most;
}

}  // namespace talrtp::host

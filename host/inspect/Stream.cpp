#include "inspect/Stream.h"

#include <algorithm>

namespace talrtp::host::inspect {

namespace {

constexpr double kBitsPerByte = 8;

// Most of a stream has to look alike, since a header that is cut or forged may not.
bool isMost(std::uint64_t part, std::uint64_t all) {
    return all > 0 && part * 10 >= all * 9;
}

}  // namespace

void CStream::add(const Datagram& datagram, const RtpView& packet, std::chrono::nanoseconds time,
                  const CStream* media) {
    m_first = m_packets == 0 ? time : m_first;
    m_last = std::max(m_last, time);
    ++m_packets;
    m_bytes += datagram.size;
    m_cutPackets += datagram.isCut() ? 1 : 0;
    m_reception.onPacket(packet.sequence, packet.timestamp, kit::TimePoint(time));
    TimelineBin& bin = m_timeline.at(time);
    bin.bytes += datagram.size;
    ++bin.arrived;
    const std::uint64_t restarts = m_sequences.restarts();
    const CSequenceTracker::Place place = m_sequences.place(packet.sequence);
    if (m_sequences.restarts() != restarts) {
        m_pictures.finish([](std::chrono::nanoseconds, std::uint64_t) {});
    }
    if (place.order == CSequenceTracker::Order::kNew || place.order == CSequenceTracker::Order::kReordered) {
        ++m_looked;
        addH264(datagram, packet, place.number, time);
        addFec(kit::FecScheme::kXor, packet, time, media);
        addFec(kit::FecScheme::kReedSolomon, packet, time, media);
    }
}

void CStream::addH264(const Datagram& datagram, const RtpView& packet, std::int64_t number,
                      std::chrono::nanoseconds time) {
    const H264Payload payload = packet.payload ? readH264(*packet.payload, datagram.isCut()) : H264Payload{};
    m_h264 += payload.kind == PayloadKind::kNone ? 0 : 1;
    countUnits(payload, packet, datagram.isCut());
    const bool continuesUnit = payload.kind == PayloadKind::kFragment && !payload.isFirstFragment;
    m_pictures.add(
        number, {packet.timestamp, packet.hasMarker, continuesUnit, time},
        [this](std::chrono::nanoseconds when, std::uint64_t lost) { m_timeline.at(when).lost += lost; });
}

void CStream::countUnits(const H264Payload& payload, const RtpView& packet, bool isCut) {
    switch (payload.kind) {
        case PayloadKind::kUnit:
            ++m_single;
            ++m_units[payload.unitType];
            break;
        case PayloadKind::kFragment:
            ++m_fragments;
            m_units[payload.unitType] += payload.isFirstFragment ? 1 : 0;
            break;
        case PayloadKind::kAggregate:
            ++m_aggregates;
            forEachAggregated(*packet.payload, isCut, [this](std::uint8_t type) { ++m_units[type]; });
            break;
        case PayloadKind::kNone:
            break;
    }
}

void CStream::addFec(kit::FecScheme scheme, const RtpView& packet, std::chrono::nanoseconds time,
                     const CStream* media) {
    const std::optional<FecHeader> header = readFecHeader(scheme, packet);
    if (!header) {
        return;
    }
    ++(scheme == kit::FecScheme::kXor ? m_xor : m_rs);
    groups(scheme).add(*header, packet.sequence, time, media == nullptr ? nullptr : &media->sequences());
}

void CStream::finish(const CStream* media) {
    const CSequenceTracker* const sequences = media == nullptr ? nullptr : &media->sequences();
    m_pictures.finish(
        [this](std::chrono::nanoseconds when, std::uint64_t lost) { m_timeline.at(when).lost += lost; });
    for (const kit::FecScheme scheme : {kit::FecScheme::kXor, kit::FecScheme::kReedSolomon}) {
        groups(scheme).finish(sequences);
    }
}

double CStream::bitsPerSecond() const {
    const double seconds = std::chrono::duration<double>(m_last - m_first).count();
    return seconds > 0 ? static_cast<double>(m_bytes) * kBitsPerByte / seconds : 0;
}

bool CStream::looksLikeH264() const {
    return isMost(m_h264, m_looked);
}

// The bytes of an FEC header can pass for NAL units as well, and hardly the other way round.
StreamKind CStream::guess() const {
    if (isMost(m_rs, m_looked)) {
        return StreamKind::kReedSolomonFec;
    }
    if (isMost(m_xor, m_looked)) {
        return StreamKind::kXorFec;
    }
    return looksLikeH264() ? StreamKind::kH264 : StreamKind::kOther;
}

}  // namespace talrtp::host::inspect

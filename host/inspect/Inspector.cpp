#include "inspect/Inspector.h"

#include <algorithm>

namespace talrtp::host::inspect {

CInspector::CInspector(const InspectorOptions& options) : m_options(options) {
    if (options.rtcp) {
        m_rtcp.emplace(*options.rtcp);
    }
}

void CInspector::add(LinkLayer link, kit::BytesView bytes, std::chrono::nanoseconds time) {
    ++m_counts.frames;
    m_start = m_start.value_or(time);
    const std::chrono::nanoseconds sinceStart = std::max(time - *m_start, std::chrono::nanoseconds(0));
    m_duration = std::max(m_duration, sinceStart);
    const Frame frame = readFrame(link, bytes);
    switch (frame.kind) {
        case FrameKind::kUdp:
            return addDatagram(frame.datagram, sinceStart);
        case FrameKind::kFragment:
            ++m_counts.fragments;
            return;
        case FrameKind::kMalformed:
            ++m_counts.malformed;
            return;
        case FrameKind::kOther:
            ++m_counts.otherFrames;
            return;
    }
}

void CInspector::addDatagram(const Datagram& datagram, std::chrono::nanoseconds time) {
    ++m_counts.datagrams;
    m_counts.cutDatagrams += datagram.isCut() ? 1 : 0;
    if (looksLikeRtcp(datagram.bytes)) {
        ++m_counts.rtcp;
        if (m_rtcp && !datagram.isCut()) {
            m_rtcp->add(datagram.bytes);
        }
        return;
    }
    if (const std::optional<RtpView> packet = readRtp(datagram)) {
        return addRtp(datagram, *packet, time);
    }
    ++m_counts.otherDatagrams;
}

void CInspector::addRtp(const Datagram& datagram, const RtpView& packet, std::chrono::nanoseconds time) {
    CStream* const stream = streamAt({datagram.from, datagram.to, packet.ssrc, packet.payloadType});
    if (stream == nullptr) {
        ++m_counts.untracked;
        return;
    }
    stream->add(datagram, packet, time, mediaOf(stream->key()));
}

CStream* CInspector::streamAt(const StreamKey& key) {
    const auto found = m_streams.find(key);
    if (found != m_streams.end()) {
        return found->second.get();
    }
    if (!makeRoom()) {
        return nullptr;
    }
    return m_streams.emplace(key, std::make_unique<CStream>(key, m_options.clockRate)).first->second.get();
}

// Datagrams that only look like RTP make streams of one packet each. The oldest of them goes first.
bool CInspector::makeRoom() {
    constexpr std::size_t kMaxStreams = 256;
    if (m_streams.size() < kMaxStreams) {
        return true;
    }
    auto oldest = m_streams.end();
    for (auto each = m_streams.begin(); each != m_streams.end(); ++each) {
        const bool isOlder = oldest == m_streams.end() || each->second->last() < oldest->second->last();
        if (!each->second->isLikely() && isOlder) {
            oldest = each;
        }
    }
    if (oldest == m_streams.end()) {
        return false;
    }
    m_counts.otherDatagrams += oldest->second->packets();
    m_streams.erase(oldest);
    return true;
}

bool CInspector::isTakenForMedia(const CStream& stream) const {
    return m_options.payloadType ? stream.key().payloadType == *m_options.payloadType
                                 : stream.looksLikeH264();
}

// The media that the FEC packets of a stream protect has their source and their addresses; ports may differ.
const CStream* CInspector::mediaOf(const StreamKey& key) const {
    const CStream* media = nullptr;
    for (const auto& [each, stream] : m_streams) {
        const bool isPeer = each.ssrc == key.ssrc && each.payloadType != key.payloadType &&
                            each.from.address == key.from.address && each.to.address == key.to.address;
        if (isPeer && isTakenForMedia(*stream) &&
            (media == nullptr || stream->packets() > media->packets())) {
            media = stream.get();
        }
    }
    return media;
}

void CInspector::finish() {
    for (auto each = m_streams.begin(); each != m_streams.end();) {
        if (each->second->isLikely()) {
            each->second->finish(mediaOf(each->first));
            ++each;
        } else {
            m_counts.otherDatagrams += each->second->packets();
            each = m_streams.erase(each);
        }
    }
}

std::vector<const CStream*> CInspector::streams() const {
    std::vector<const CStream*> all;
    for (const auto& each : m_streams) {
        all.push_back(each.second.get());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const CStream* a, const CStream* b) { return a->packets() > b->packets(); });
    return all;
}

StreamKind CInspector::kindOf(const CStream& stream) const {
    const unsigned int type = stream.key().payloadType;
    if (m_options.payloadType && type == *m_options.payloadType) {
        return StreamKind::kH264;
    }
    StreamKind kind = stream.guess();
    if (m_options.fecPayloadType && type == *m_options.fecPayloadType && m_options.fec) {
        kind = *m_options.fec == kit::FecScheme::kXor ? StreamKind::kXorFec : StreamKind::kReedSolomonFec;
    }
    const bool isFec = kind == StreamKind::kXorFec || kind == StreamKind::kReedSolomonFec;
    const bool isRuledOut = (isFec && m_options.fec == kit::FecScheme::kNone) ||
                            (isFec && m_options.fecPayloadType && type != *m_options.fecPayloadType) ||
                            (kind == StreamKind::kH264 && m_options.payloadType);
    return isRuledOut ? StreamKind::kOther : kind;
}

const CStream* CInspector::mainStream() const {
    for (const CStream* const stream : streams()) {
        const bool isChosen = !m_options.ssrc || stream->key().ssrc == *m_options.ssrc;
        if (isChosen && kindOf(*stream) == StreamKind::kH264) {
            return stream;
        }
    }
    return nullptr;
}

const CStream* CInspector::fecStreamOf(const CStream& media) const {
    for (const CStream* const stream : streams()) {
        const StreamKind kind = kindOf(*stream);
        const bool isFec = kind == StreamKind::kXorFec || kind == StreamKind::kReedSolomonFec;
        if (isFec && stream->key().ssrc == media.key().ssrc && mediaOf(stream->key()) == &media) {
            return stream;
        }
    }
    return nullptr;
}

}  // namespace talrtp::host::inspect

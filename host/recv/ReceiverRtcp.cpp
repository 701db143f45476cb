#include "recv/ReceiverRtcp.h"

#include "live/Cname.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <random>

namespace talrtp::host {

namespace {

constexpr std::size_t kSequenceOffset = 2;  // in an RTP header (RFC 3550, 5.1)
constexpr std::size_t kTimestampOffset = 4;
constexpr double kClockPerMs = 90;  // the RTP clock of video, per millisecond

std::uint32_t readBig(kit::BytesView bytes, std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes[offset + i];
    }
    return value;
}

}  // namespace

CReceiverRtcp::CReceiverRtcp(kit::Form form)
    : m_form(form), m_ssrc(std::random_device()()), m_cname(makeCname()) {}

void CReceiverRtcp::begin(std::uint32_t ssrc) {
    m_reception.emplace(ssrc);
    m_lastReport.reset();
    m_isOver = false;
}

void CReceiverRtcp::countMedia(std::uint32_t ssrc, kit::BytesView packet, kit::TimePoint now) {
    if (!m_reception || m_reception->ssrc() != ssrc) {
        begin(ssrc);
    }
    m_reception->onPacket(static_cast<std::uint16_t>(readBig(packet, kSequenceOffset, 2)),
                          readBig(packet, kTimestampOffset, 4), now);
}

void CReceiverRtcp::take(kit::BytesView datagram, const Endpoint& from, kit::TimePoint now) {
    const auto isSource = [this](std::uint32_t ssrc) { return m_reception && ssrc == m_reception->ssrc(); };
    const kit::RtcpReader reader(m_form);
    const kit::RtcpReadResult result = reader.read(
        datagram,
        kit::RtcpVisitor{[&](const kit::SenderReport& report) {
                             if (isSource(report.ssrc)) {
                                 m_reception->onSenderReport(report.ntp, now);
                                 m_lastReport = report;
                                 m_peer = m_peer && m_peer->address().is_multicast() ? *m_peer : from;
                             }
                         },
                         [&](const kit::Bye& bye) {
                             m_isOver = m_isOver || std::any_of(bye.ssrcs.begin(), bye.ssrcs.end(), isSource);
                         }});
    ++m_received;
    m_malformed += result ? 0 : 1;
}

std::vector<std::uint8_t> CReceiverRtcp::makeReport(kit::TimePoint now, bool isLast) {
    if (!m_reception) {
        return {};
    }
    kit::RtcpWriter writer(m_form);
    kit::ReceiverReport report;
    report.ssrc = m_ssrc;
    report.blocks = {m_reception->report(now)};
    writer.add(report);
    writer.addCname(m_ssrc, m_cname);
    if (m_wantsPicture) {
        writer.add(kit::Pli{m_ssrc, m_reception->ssrc()});
        m_wantsPicture = false;
        ++m_pictureRequests;
    }
    if (isLast) {
        writer.addBye(m_ssrc);
    }
    ++m_sent;
    return {writer.bytes().begin(), writer.bytes().end()};
}

Json CReceiverRtcp::report() const {
    Json result{{"sent", m_sent},
                {"received", m_received},
                {"malformed", m_malformed},
                {"pictureRequests", m_pictureRequests}};
    if (m_reception) {
        result["expected"] = m_reception->expected();
        result["lost"] = m_reception->lost();
        result["jitterMs"] = m_reception->jitter() / kClockPerMs;
    }
    if (m_lastReport) {
        result["senderPackets"] = m_lastReport->packetCount;
        result["senderOctets"] = m_lastReport->octetCount;
    }
    return result;
}

}  // namespace talrtp::host

#include "send/SenderRtcp.h"

#include "live/Cname.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace talrtp::host {

namespace {

constexpr double kClockPerMs = 90;  // the RTP clock of video, per millisecond
constexpr double kFractionUnit = 256;

}  // namespace

CSenderRtcp::CSenderRtcp(Socket socket, Endpoint remote, kit::Form form, std::uint32_t ssrc)
    : m_reader(std::move(socket)),
      m_remote(std::move(remote)),
      m_form(form),
      m_ssrc(ssrc),
      m_cname(makeCname()) {}

void CSenderRtcp::start(NtpClock clock, Tap tap, std::function<void()> onReport) {
    m_clock = std::move(clock);
    m_tap = std::move(tap);
    m_onReport = std::move(onReport);
    wait();
}

void CSenderRtcp::send(kit::SenderReport report, bool isLast) {
    report.ssrc = m_ssrc;
    kit::RtcpWriter writer(m_form);
    writer.add(report);
    writer.addCname(m_ssrc, m_cname);
    if (isLast) {
        writer.addBye(m_ssrc);
    }
    sendTo(m_remote, writer);
    ++m_sent;
}

void CSenderRtcp::sendGoodbye(const Endpoint& remote) {
    kit::RtcpWriter writer(m_form);
    kit::ReceiverReport report;
    report.ssrc = m_ssrc;
    writer.add(report);
    writer.addCname(m_ssrc, m_cname);
    writer.addBye(m_ssrc);
    sendTo(remote, writer);
}

void CSenderRtcp::sendTo(const Endpoint& remote, const kit::RtcpWriter& writer) {
    // A report that is lost here is lost as others are in the network.
    asio::error_code ignored;
    m_reader.socket().send_to(asio::buffer(writer.bytes().data(), writer.bytes().size()), remote, 0, ignored);
    m_tap(local(), remote, writer.bytes());
}

void CSenderRtcp::stop() {
    asio::error_code ignored;
    m_reader.socket().cancel(ignored);
}

void CSenderRtcp::wait() {
    m_reader.socket().async_wait(Socket::wait_read, [this](const asio::error_code& error) {
        if (error) {
            return;
        }
        const std::uint64_t before = m_received;
        m_reader.read([this](kit::BytesView datagram, const Endpoint& from) { take(datagram, from); });
        if (m_received != before) {
            m_onReport();
        }
        wait();
    });
}

void CSenderRtcp::take(kit::BytesView datagram, const Endpoint& from) {
    const bool isForeign = !m_remote.address().is_multicast() && from.address() != m_remote.address();
    if (isForeign || from == local()) {
        return;
    }
    m_tap(from, local(), datagram);
    bool hasReport = false;
    const auto takeBlocks = [&](const auto& report) {
        for (const kit::ReportBlock& block : report.blocks) {
            hasReport = hasReport || block.ssrc == m_ssrc;
            note(report.ssrc, block);
        }
    };
    const kit::RtcpReader reader(m_form);
    const kit::RtcpReadResult result =
        reader.read(datagram, kit::RtcpVisitor{[&](const kit::ReceiverReport& report) { takeBlocks(report); },
                                               [&](const kit::SenderReport& report) { takeBlocks(report); },
                                               [&](const kit::Pli&) { ++m_pictureRequests; },
                                               [&](const kit::Fir&) { ++m_pictureRequests; }});
    m_received += hasReport ? 1 : 0;
    m_malformed += result ? 0 : 1;
}

void CSenderRtcp::note(std::uint32_t receiver, const kit::ReportBlock& block) {
    if (block.ssrc != m_ssrc) {
        return;
    }
    if (m_receivers.size() >= kMaxReceivers && m_receivers.count(receiver) == 0) {
        m_receivers.erase(m_receivers.begin());
    }
    ReceiverView& view = m_receivers[receiver];
    view.fractionLost = block.fractionLost / kFractionUnit;
    view.lost = block.cumulativeLost;
    view.jitterMs = block.jitter / kClockPerMs;
    ++view.reports;
    if (const std::optional<kit::Duration> time = kit::roundTripTime(block, m_clock())) {
        view.roundTripMs = std::chrono::duration<double, std::milli>(*time).count();
    }
}

Endpoint CSenderRtcp::local() const {
    asio::error_code ignored;
    return m_reader.socket().local_endpoint(ignored);
}

Json CSenderRtcp::report() const {
    Json receivers = Json::array();
    for (const auto& [ssrc, view] : m_receivers) {
        Json each{{"ssrc", ssrc},
                  {"reports", view.reports},
                  {"fractionLost", view.fractionLost},
                  {"lost", view.lost},
                  {"jitterMs", view.jitterMs}};
        each["roundTripMs"] = view.roundTripMs ? Json(*view.roundTripMs) : Json(nullptr);
        receivers.push_back(each);
    }
    return {{"sent", m_sent},
            {"received", m_received},
            {"malformed", m_malformed},
            {"pictureRequests", m_pictureRequests},
            {"receivers", receivers}};
}

std::string CSenderRtcp::describe() const {
    std::string text;
    for (const auto& [ssrc, view] : m_receivers) {
        text += fmt::format("Receiver {:08x} lost {} packets, {:.1f} % of the latest; jitter {:.1f} ms", ssrc,
                            view.lost, view.fractionLost * 100, view.jitterMs);
        text += view.roundTripMs ? fmt::format(", round trip {:.1f} ms\n", *view.roundTripMs) : "\n";
    }
    return text;
}

}  // namespace talrtp::host

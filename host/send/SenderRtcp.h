// The RTCP of a sender: sends reports and a goodbye, and keeps what the receivers report back.

#ifndef TALRTP_HOST_SEND_SENDERRTCP_H
#define TALRTP_HOST_SEND_SENDERRTCP_H

#include "live/Reporter.h"
#include "net/DatagramReader.h"
#include "net/Socket.h"

#include <talrtp/kit/ReceptionReport.h>
#include <talrtp/kit/Rtcp.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace talrtp::host {

// The last report of one receiver.
struct ReceiverView {
    double fractionLost = 0;  // since its report before
    std::int64_t lost = 0;    // since the start
    double jitterMs = 0;
    std::optional<double> roundTripMs;  // once it had a sender report
    std::uint64_t reports = 0;
};

class CSenderRtcp {
public:
    // Returns the current time as a 64-bit NTP time.
    using NtpClock = std::function<std::uint64_t()>;
    // Is called with every datagram that leaves or arrives.
    using Tap = std::function<void(const Endpoint& from, const Endpoint& to, kit::BytesView)>;

    // A report of a receiver that does not stay is forgotten for a newer one beyond this many.
    static constexpr std::size_t kMaxReceivers = 64;

    CSenderRtcp(Socket socket, Endpoint remote, kit::Form form, std::uint32_t ssrc);

    // Waits for reports from now on. `onReport` is called after each datagram that held one.
    void start(NtpClock clock, Tap tap, std::function<void()> onReport);

    // Sends a sender report with the CNAME, and a goodbye where it is the last one.
    void send(kit::SenderReport report, bool isLast);

    // Sends `remote`, where the RTCP of another flow of this source goes, a goodbye: after a report without
    // blocks and the CNAME, since a compound begins so (RFC 3550, 6.1).
    void sendGoodbye(const Endpoint& remote);

    void stop();

    const std::map<std::uint32_t, ReceiverView>& receivers() const { return m_receivers; }
    Json report() const;
    // One line for each receiver.
    std::string describe() const;

private:
    void sendTo(const Endpoint& remote, const kit::RtcpWriter& writer);
    void wait();
    void take(kit::BytesView datagram, const Endpoint& from);
    void note(std::uint32_t receiver, const kit::ReportBlock& block);
    Endpoint local() const;

    CDatagramReader m_reader;
    Endpoint m_remote;
    kit::Form m_form;
    std::uint32_t m_ssrc;
    std::string m_cname;
    NtpClock m_clock;
    Tap m_tap;
    std::function<void()> m_onReport;
    std::map<std::uint32_t, ReceiverView> m_receivers;
    std::uint64_t m_sent = 0;
    std::uint64_t m_received = 0;
    std::uint64_t m_malformed = 0;
    std::uint64_t m_pictureRequests = 0;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_SENDERRTCP_H

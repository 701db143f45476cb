// The RTCP of a receiver: keeps account of what arrives, reports it to the sender, and hears its goodbye.

#ifndef TALRTP_HOST_RECV_RECEIVERRTCP_H
#define TALRTP_HOST_RECV_RECEIVERRTCP_H

#include "live/Reporter.h"
#include "net/DatagramReader.h"
#include "net/Socket.h"

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/ReceptionReport.h>
#include <talrtp/kit/Rtcp.h>
#include <talrtp/kit/Time.h>

#include <cstdint>
#include <optional>
#include <string>

namespace talrtp::host {

class CReceiverRtcp {
public:
    explicit CReceiverRtcp(kit::Form form);

    // Counts a media packet of the source. It starts anew when the source is another one.
    void countMedia(std::uint32_t ssrc, kit::BytesView packet, kit::TimePoint now);

    // Reads an RTCP datagram. A sender report of the source makes `from` the address to report to.
    void take(kit::BytesView datagram, const Endpoint& from, kit::TimePoint now);

    // Returns a report with the CNAME, after it a picture loss indication if one was asked for, or a goodbye
    // if `isLast`. Empty before the first media packet.
    std::vector<std::uint8_t> makeReport(kit::TimePoint now, bool isLast);

    // The next report asks for a picture that needs no earlier one (RFC 4585, 6.3.1).
    void askForPicture() { m_wantsPicture = true; }
    bool wantsPicture() const { return m_wantsPicture; }

    // Where reports go; known after the first sender report unless set.
    const std::optional<Endpoint>& peer() const { return m_peer; }
    void setPeer(const Endpoint& peer) { m_peer = peer; }

    // The source said goodbye.
    bool isOver() const { return m_isOver; }

    const std::optional<kit::ReceptionReport>& reception() const { return m_reception; }
    Json report() const;

private:
    void begin(std::uint32_t ssrc);

    kit::Form m_form;
    std::uint32_t m_ssrc;  // of this receiver
    std::string m_cname;
    std::optional<kit::ReceptionReport> m_reception;
    std::optional<Endpoint> m_peer;
    bool m_wantsPicture = false;
    bool m_isOver = false;
    std::uint64_t m_sent = 0;
    std::uint64_t m_received = 0;
    std::uint64_t m_malformed = 0;
    std::uint64_t m_pictureRequests = 0;
    std::optional<kit::SenderReport> m_lastReport;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_RECEIVERRTCP_H

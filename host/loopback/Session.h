// A session of the library, owned.

#ifndef TALRTP_HOST_LOOPBACK_SESSION_H
#define TALRTP_HOST_LOOPBACK_SESSION_H

#include "HostError.h"

#include <talrtp/ITalRTPSession.h>
#include <talrtp/kit/Fec.h>

namespace talrtp::host {

constexpr unsigned int kMediaPayloadType = 98;
constexpr unsigned int kFecPayloadType = 111;

class CSession {
public:
    // Borrows `sink`, which may be null, for its own life.
    CSession(ITalRTPSessionSink* sink, kit::FecScheme scheme) {
        constexpr unsigned int kSourceId = 0x7a11ab1e;
        constexpr unsigned int kRtpVersion = 2;
        TalCreateRTPSession(&m_session, sink, kSourceId, kRtpVersion);
        m_session->SetPayloadType(kMediaPayloadType, kFecPayloadType);
        m_session->SetFecType(scheme == kit::FecScheme::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
    }
    ~CSession() { close(); }
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    // Destroys the session before its time.
    void close() {
        TalDestroyRTPSession(m_session);
        m_session = nullptr;
    }

    ITalRTPSession* operator->() const { return m_session; }

private:
    ITalRTPSession* m_session = nullptr;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_SESSION_H

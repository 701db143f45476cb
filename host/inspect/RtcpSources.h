// The RTCP of a capture, counted by source.

#ifndef TALRTP_HOST_INSPECT_RTCPSOURCES_H
#define TALRTP_HOST_INSPECT_RTCPSOURCES_H

#include <talrtp/kit/RtcpPackets.h>
#include <talrtp/kit/RtcpReader.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace talrtp::host::inspect {

struct RtcpSource {
    std::uint64_t senderReports = 0;
    std::uint64_t receiverReports = 0;
    std::uint64_t descriptions = 0;
    std::uint64_t byes = 0;
    std::uint64_t apps = 0;
    std::uint64_t nacks = 0;
    std::uint64_t plis = 0;
    std::uint64_t firs = 0;
    std::uint64_t otherFeedback = 0;
    std::string cname;
    std::optional<kit::SenderReport> lastSenderReport;
    std::optional<kit::ReportBlock> lastBlock;  // the first block of its newest report
};

class CRtcpSources {
public:
    explicit CRtcpSources(kit::Form form) : m_reader(form) {}

    void add(kit::BytesView datagram);

    const std::map<std::uint32_t, RtcpSource>& sources() const { return m_sources; }
    std::uint64_t datagrams() const { return m_datagrams; }
    std::uint64_t malformed() const { return m_malformed; }
    const std::string& firstError() const { return m_firstError; }

private:
    class CVisitor;

    RtcpSource& at(std::uint32_t ssrc);

    kit::RtcpReader m_reader;
    std::map<std::uint32_t, RtcpSource> m_sources;
    RtcpSource m_overflow;  // takes what exceeds the limit of sources
    std::uint64_t m_datagrams = 0;
    std::uint64_t m_malformed = 0;
    std::string m_firstError;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_RTCPSOURCES_H

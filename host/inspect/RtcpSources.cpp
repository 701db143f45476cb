#include "inspect/RtcpSources.h"

namespace talrtp::host::inspect {

class CRtcpSources::CVisitor {
public:
    explicit CVisitor(CRtcpSources& sources) : m_sources(sources) {}

    void operator()(const kit::SenderReport& report) {
        RtcpSource& source = m_sources.at(report.ssrc);
        ++source.senderReports;
        source.lastSenderReport = report;
        noteBlock(source, report.blocks);
    }
    void operator()(const kit::ReceiverReport& report) {
        RtcpSource& source = m_sources.at(report.ssrc);
        ++source.receiverReports;
        noteBlock(source, report.blocks);
    }
    void operator()(const kit::SourceDescription& description) {
        for (const kit::SdesChunk& chunk : description.chunks) {
            RtcpSource& source = m_sources.at(chunk.ssrc);
            ++source.descriptions;
            for (const kit::SdesItem& item : chunk.items) {
                if (item.type == kit::kSdesCname) {
                    source.cname = item.text;
                }
            }
        }
    }
    void operator()(const kit::Bye& bye) {
        for (const std::uint32_t ssrc : bye.ssrcs) {
            ++m_sources.at(ssrc).byes;
        }
    }
    void operator()(const kit::App& app) { ++m_sources.at(app.ssrc).apps; }
    void operator()(const kit::Nack& nack) { ++m_sources.at(nack.senderSsrc).nacks; }
    void operator()(const kit::Pli& pli) { ++m_sources.at(pli.senderSsrc).plis; }
    void operator()(const kit::Fir& fir) { ++m_sources.at(fir.senderSsrc).firs; }
    void operator()(const kit::Feedback& feedback) { ++m_sources.at(feedback.senderSsrc).otherFeedback; }

private:
    static void noteBlock(RtcpSource& source, const std::vector<kit::ReportBlock>& blocks) {
        if (!blocks.empty()) {
            source.lastBlock = blocks.front();
        }
    }

    CRtcpSources& m_sources;
};

void CRtcpSources::add(kit::BytesView datagram) {
    ++m_datagrams;
    CVisitor visitor(*this);
    const kit::RtcpReadResult result = m_reader.read(datagram, visitor);
    if (!result) {
        ++m_malformed;
        m_firstError = m_firstError.empty() ? result.error : m_firstError;
    }
}

RtcpSource& CRtcpSources::at(std::uint32_t ssrc) {
    constexpr std::size_t kMaxSources = 256;
    const auto found = m_sources.find(ssrc);
    if (found != m_sources.end()) {
        return found->second;
    }
    return m_sources.size() < kMaxSources ? m_sources[ssrc] : m_overflow;
}

}  // namespace talrtp::host::inspect

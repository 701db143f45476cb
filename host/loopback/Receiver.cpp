#include "loopback/Receiver.h"

#include "loopback/TraceTap.h"

#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/Demux.h>

#include <utility>

namespace talrtp::host {

CReceiver::CReceiver(kit::FecScheme scheme, std::uint64_t waitMs, Play play)
    : m_session(this, scheme), m_play(std::move(play)), m_orderer(waitMs) {}

void CReceiver::receive(const std::vector<std::uint8_t>& datagram, std::uint64_t nowMs) {
    if (kit::classify(datagram) != kit::DatagramKind::kRtp) {
        return;
    }
    // The session copies the bytes and only reads them.
    unsigned char* bytes = const_cast<unsigned char*>(datagram.data());
    if (CTalRtpPacket::get_payload_type(bytes) == kMediaPayloadType) {
        m_orderer.note(CTalRtpPacket::get_timestamp(bytes), nowMs);
    }
    m_nowMs = nowMs;
    m_cutter.beginCall();
    m_session->InputReceivedData(bytes, static_cast<int>(datagram.size()), nowMs);
}

void CReceiver::advance(std::uint64_t nowMs) {
    std::uint32_t timestamp = 0;
    while (m_orderer.findDue(nowMs, timestamp)) {
        play(timestamp);
    }
}

void CReceiver::finish() {
    std::uint32_t timestamp = 0;
    while (m_orderer.findFirst(timestamp)) {
        play(timestamp);
    }
    const CTraceTap::StatisticsCatcher catcher;
    m_session.close();
    m_rebuiltCount = catcher.value("RecoveredMediaPacketNumber");
}

void CReceiver::play(std::uint32_t timestamp) {
    m_cutter.beginCall();
    m_session->ForceHandover(timestamp);
    m_play(timestamp, m_orderer.takeFirst());
}

void CReceiver::OnReceivedRTPPacket(CTalRtpPacket* packet) {
    const std::size_t declared = static_cast<std::size_t>(packet->get_payload_size());
    const kit::StapUnitCutter::Cut cut =
        m_cutter.cut(packet->get_timestamp(), packet->get_sequence_number(), declared);
    const unsigned char* payload = packet->get_payload_ptr();
    const bool isWhole = packet->get_packet_type() == 0;
    kit::Handover handover{packet->get_timestamp(), packet->get_sequence_number(),
                           static_cast<int>(cut.index), isWhole,
                           std::vector<std::uint8_t>(payload, payload + cut.size)};
    if (!m_orderer.push(std::move(handover), m_nowMs)) {
        ++m_refusedCount;
    }
}

}  // namespace talrtp::host

#include "loopback/Sender.h"

#include "kit/MarkerFix.h"

#include <fmt/format.h>

#include <algorithm>

namespace talrtp::host {

namespace {

// The session's operations take writable pointers and only read.
unsigned char* bytesOf(const kit::NalUnit& unit) {
    return const_cast<unsigned char*>(unit.data());
}

int sizeOf(const kit::NalUnit& unit) {
    return static_cast<int>(unit.size());
}

}  // namespace

CSender::CSender(const SenderOptions& options, ISenderOutput& output)
    : m_options(options),
      m_output(output),
      m_maxMediaPacket(kit::maxMediaPacket(options.mtu, options.fec.scheme)),
      m_packing(m_maxMediaPacket, options.isAggregating),
      m_grouping(options.fec),
      m_session(nullptr, options.fec.scheme),
      m_parity(static_cast<std::size_t>(options.fec.parity), options.mtu),
      m_xorPacket(options.mtu) {}

void CSender::send(std::uint32_t timestamp, const kit::Picture& picture) {
    const std::vector<kit::PackStep> steps = m_packing.plan(picture);
    const std::size_t count = kit::countPackets(steps);
    if (count > kMaxPicturePackets) {
        throw CHostError(
            fmt::format("a picture needs {} packets of at most {} bytes, more than {}: choose a larger --mtu",
                        count, m_maxMediaPacket, kMaxPicturePackets));
    }
    const std::size_t waiting = m_unprotected;
    beginRun(count);
    CTalRtpPacket* packets = m_run.data() + waiting;
    makePackets(timestamp, picture, steps, packets);
    kit::markLastPacketOnly(packets, count);
    m_output.onPicture(timestamp, picture, steps, packets);
    sendRun(waiting, false);
}

void CSender::finish() {
    sendRun(m_unprotected, true);
}

// Makes room for a picture behind the packets that still wait for FEC. Those are few: see `isTooFew`.
void CSender::beginRun(std::size_t newPackets) {
    PacketArray run(m_unprotected + newPackets, m_maxMediaPacket);
    for (std::size_t i = 0; i < m_unprotected; ++i) {
        run[i] = m_run[i];
    }
    m_run = std::move(run);
    m_unprotected = m_run.size();
}

void CSender::makePackets(std::uint32_t timestamp, const kit::Picture& picture,
                          const std::vector<kit::PackStep>& steps, CTalRtpPacket* packets) {
    for (const kit::PackStep& step : steps) {
        const kit::NalUnit& unit = picture[step.firstUnit];
        switch (step.kind) {
            case kit::PackStep::kSingle:
                m_session->CreateSinglePacket(timestamp, sizeOf(unit), bytesOf(unit), packets);
                break;
            case kit::PackStep::kFragments:
                m_session->CreateFuaPackets(timestamp, sizeOf(unit), bytesOf(unit), step.packetCount,
                                            packets);
                break;
            case kit::PackStep::kAggregate:
                aggregate(timestamp, picture, step, packets);
                break;
        }
        packets += step.packetCount;
    }
}

void CSender::aggregate(std::uint32_t timestamp, const kit::Picture& picture, const kit::PackStep& step,
                        CTalRtpPacket* packet) {
    std::vector<int> sizes;
    std::vector<unsigned char*> units;
    for (std::size_t i = 0; i < step.unitCount; ++i) {
        sizes.push_back(sizeOf(picture[step.firstUnit + i]));
        units.push_back(bytesOf(picture[step.firstUnit + i]));
    }
    m_session->CreateStapaPacket(timestamp, static_cast<int>(units.size()), sizes.data(), units.data(),
                                 packet);
}

// Sends the packets of the run from `alreadySent` on, and the FEC packets of each group behind its last
// packet.
void CSender::sendRun(std::size_t alreadySent, bool isLast) {
    std::size_t next = alreadySent;
    const auto sendUpTo = [&](std::size_t end) {
        for (; next < end; ++next) {
            m_output.onMediaPacket(m_run[next]);
        }
    };
    if (isLast || !m_grouping.isTooFew(m_unprotected)) {
        std::size_t end = 0;
        for (const int size : m_grouping.cut(m_unprotected)) {
            end += static_cast<std::size_t>(size);
            sendUpTo(end);
            protect(m_run.data() + end - size, size, next - end);
        }
        sendUpTo(m_unprotected);
        m_unprotected = 0;
    }
    sendUpTo(m_unprotected);
}

void CSender::protect(CTalRtpPacket* packets, int count, std::size_t sentSince) {
    m_output.onFecGroup(count, sentSince);
    if (m_options.fec.scheme == kit::FecScheme::kXor) {
        protectWithXor(packets, count);
    } else {
        protectWithReedSolomon(packets, count);
    }
}

void CSender::protectWithXor(CTalRtpPacket* packets, int count) {
    constexpr unsigned int kAll = 0xffffffff;
    m_session->CreateXorFecPackets(packets, count, kAll, &m_xorPacket);
    m_output.onFecPacket(m_xorPacket);
}

void CSender::protectWithReedSolomon(CTalRtpPacket* packets, int count) {
    m_session->CreateRsFecPackets(packets, count, m_parity.data(), m_options.fec.parity);
    for (std::size_t i = 0; i < m_parity.size(); ++i) {
        m_output.onFecPacket(m_parity[i]);
    }
}

}  // namespace talrtp::host

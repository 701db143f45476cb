#include "loopback/Loopback.h"

#include "HostError.h"

#include <fmt/format.h>
#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/PackingPlan.h>
#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace talrtp::host {

namespace {

constexpr double kRtpClock = 90000;
constexpr double kUsPerSecond = 1000000;

// The link takes a datagram every 125 microseconds. A session keeps packets, and knows them by a 16-bit
// number, for 5 seconds after the last one of their timestamp: at this rate those are 40,000, and no number
// comes again too early.
constexpr std::uint64_t kDatagramUs = 125;

// The longest wait of a receiver. It covers the longest delay of the network, a picture's time on the link,
// and the FEC packets of a group that is shared with the two next pictures: at 1 picture per second, the
// slowest, those come 2 seconds later.
constexpr std::chrono::milliseconds kWait{4000};

// Chooses the first sequence number of the media packets by the seed. The receiver knows it too, as from the
// signalling of a session, and so misses what is lost or late before the first packet that arrives.
LoopbackOptions withFirstSequence(LoopbackOptions options) {
    constexpr int kUpperBits = 48;  // the timestamp takes the lower ones
    options.sender.firstSequence =
        static_cast<std::uint16_t>(CRandom(options.network.seed).next() >> kUpperBits);
    return options;
}

kit::ReceiverOptions receiverFor(const kit::SenderOptions& sender) {
    kit::ReceiverOptions options;
    options.fec = sender.fec.scheme;
    options.payloadType = sender.payloadType;
    options.fecPayloadType = sender.fecPayloadType;
    options.ssrc = sender.ssrc;
    options.firstSequence = sender.firstSequence;
    options.wait = kWait;
    return options;
}

class CLoopback {
public:
    CLoopback(const LoopbackOptions& options, std::ostream* output)
        : m_options(withFirstSequence(options)),
          m_output(output),
          m_network(options.network),
          m_audit(options.sender.fec.scheme),
          m_receiver(receiverFor(m_options.sender), [this](const kit::Picture& picture) { play(picture); }),
          m_planner(kit::maxMediaPacket(options.sender.mtu, options.sender.fec.scheme),
                    options.sender.aggregate),
          m_sender(m_options.sender, [this](const kit::Datagram& datagram) { send(datagram); }),
          m_firstTimestamp(static_cast<std::uint32_t>(CRandom(options.network.seed).next())) {}

    void sendPicture(std::vector<kit::BytesView> units) {
        leaveOutWhatRtpCannotCarry(units);
        if (units.empty()) {
            return;
        }
        checkPacketCount(units);
        const double seconds = static_cast<double>(m_report.pictures) / m_options.fps;
        const std::int64_t ticks = std::llround(seconds * kRtpClock);
        m_pictureUs = static_cast<std::uint64_t>(seconds * kUsPerSecond);
        ++m_report.pictures;
        const std::uint32_t timestamp = m_firstTimestamp + static_cast<std::uint32_t>(ticks);
        m_audit.addPicture(timestamp, units);
        m_sender.sendPicture(timestamp, units);
    }

    LoopbackReport finish() {
        m_sender.flush();
        m_network.deliverAll([this](const CNetwork::Datagram& datagram) { receive(datagram); });
        m_receiver.finish();
        m_audit.finish();
        m_report.mediaFlow = m_network.counts(CNetwork::kMedia);
        m_report.fecFlow = m_network.counts(CNetwork::kFec);
        m_report.audit = m_audit.counts();
        m_report.rebuiltBySession = m_receiver.statistics().recoveredMediaPacketNumber;
        m_report.refused = m_receiver.statistics().refusedUnits;
        return m_report;
    }

private:
    void leaveOutWhatRtpCannotCarry(std::vector<kit::BytesView>& units) {
        const auto end = std::stable_partition(units.begin(), units.end(), kit::isCarriedByRtp);
        for (auto unit = end; unit != units.end(); ++unit) {
            m_report.skipped.add(unit->size());
        }
        units.erase(end, units.end());
        for (const kit::BytesView unit : units) {
            m_report.units[static_cast<std::size_t>(kit::nalType(unit))].add(unit.size());
        }
    }

    void checkPacketCount(const std::vector<kit::BytesView>& units) const {
        const std::size_t count = kit::countPackets(m_planner.plan(units));
        if (count > kit::kMaxPicturePackets) {
            const kit::SenderOptions& sender = m_options.sender;
            throw CHostError(fmt::format(
                "a picture needs {} packets of at most {} bytes, more than {}: choose a larger --mtu", count,
                kit::maxMediaPacket(sender.mtu, sender.fec.scheme), kit::kMaxPicturePackets));
        }
    }

    void send(const kit::Datagram& datagram) {
        m_nowUs = std::max(m_pictureUs, m_nowUs + kDatagramUs);
        const CNetwork::Flow flow = datagram.isFec ? CNetwork::kFec : CNetwork::kMedia;
        const bool arrives =
            m_network.send(flow, CNetwork::Datagram(datagram.bytes.begin(), datagram.bytes.end()), m_nowUs);
        if (datagram.isFec) {
            m_report.fec.add(datagram.bytes.size());
            m_audit.addFecPacket(datagram, arrives);
        } else {
            tallyOf(datagram).add(datagram.bytes.size());
            m_audit.addMediaPacket(datagram, arrives);
        }
        receiveWhatCame();
    }

    // By the payload's type (RFC 6184, 5.2).
    LoopbackReport::Tally& tallyOf(const kit::Datagram& datagram) {
        const int type = kit::nalType(datagram.bytes.subview(kit::kRtpHeaderSize));
        return type == kit::kNalStapA ? m_report.aggregate
               : type == kit::kNalFuA ? m_report.fragments
                                      : m_report.single;
    }

    void receiveWhatCame() {
        m_network.deliver(m_nowUs, [this](const CNetwork::Datagram& datagram) { receive(datagram); });
        m_receiver.poll(now());
    }

    kit::TimePoint now() const { return kit::TimePoint(std::chrono::microseconds(m_nowUs)); }

    void receive(const CNetwork::Datagram& datagram) { m_receiver.push(datagram, now()); }

    void play(const kit::Picture& picture) {
        m_audit.close(picture);
        if (m_output == nullptr) {
            return;
        }
        const kit::BytesView bytes = picture.annexB();
        m_output->write(reinterpret_cast<const char*>(bytes.data()),
                        static_cast<std::streamsize>(bytes.size()));
        if (!*m_output) {
            throw CHostError("the output cannot be written");
        }
    }

    LoopbackOptions m_options;
    std::ostream* m_output;
    LoopbackReport m_report;
    CNetwork m_network;
    CAudit m_audit;
    kit::Receiver m_receiver;
    kit::PackingPlanner m_planner;
    kit::Sender m_sender;
    std::uint32_t m_firstTimestamp;
    std::uint64_t m_pictureUs = 0;  // when the current picture is there to be sent
    std::uint64_t m_nowUs = 0;
};

void checkInput(const std::istream& input, std::uint64_t bytesRead, bool hasStartCode,
                std::uint64_t unitCount) {
    if (input.bad()) {
        throw CHostError("reading failed");
    }
    if (bytesRead == 0) {
        throw CHostError("the file is empty");
    }
    if (!hasStartCode) {
        throw CHostError("no start code (00 00 01) in it: this is no H.264 byte stream");
    }
    if (unitCount == 0) {
        throw CHostError("no NAL unit in it");
    }
}

void checkUnits(const kit::AccessUnitSplitter& splitter) {
    if (splitter.oversizeUnits() > 0) {
        throw CHostError(fmt::format("a NAL unit is longer than {} bytes",
                                     std::size_t{kit::AccessUnitSplitter::kDefaultMaxUnit}));
    }
}

}  // namespace

LoopbackReport runLoopback(const LoopbackOptions& options, std::istream& input, std::ostream* output,
                           const Progress& progress) {
    constexpr std::size_t kChunk = 64 * 1024;
    CLoopback loopback(options, output);
    std::uint64_t bytesRead = 0;
    std::uint64_t unitCount = 0;
    kit::AccessUnitSplitter splitter([&](const kit::AccessUnit& picture) {
        unitCount += picture.units().size();
        loopback.sendPicture(picture.units());
        if (!progress(bytesRead)) {
            throw CHostError("interrupted");
        }
    });
    std::vector<char> chunk(kChunk);
    while (input.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || input.gcount() > 0) {
        const std::size_t size = static_cast<std::size_t>(input.gcount());
        bytesRead += size;
        splitter.push(kit::BytesView(chunk).subview(0, size));
        checkUnits(splitter);
    }
    splitter.finish();
    checkUnits(splitter);
    checkInput(input, bytesRead, splitter.hasStartCode(), unitCount);
    return loopback.finish();
}

}  // namespace talrtp::host

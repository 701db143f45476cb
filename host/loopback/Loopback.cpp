#include "loopback/Loopback.h"

#include "loopback/Receiver.h"

#include <fmt/format.h>
#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/PackingPlan.h>
#include <talrtp/kit/Sender.h>

#include <algorithm>
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

// A picture waits for the longest delay of the network, for its own last packet on the link, and for the FEC
// packets of a group that it shares with the two next pictures; it stays below the 5 seconds.
constexpr std::uint64_t kWaitMs = 2000;
constexpr std::uint64_t kGroupPictures = 2;

class CLoopback {
public:
    CLoopback(const LoopbackOptions& options, std::ostream* output)
        : m_options(options),
          m_output(output),
          m_network(options.network),
          m_audit(options.sender.fec.scheme),
          m_receiver(options.sender.fec.scheme, kWaitMs + kGroupPictures * frameUs() / 1000,
                     [this](std::uint32_t timestamp, const std::vector<kit::Handover>& units) {
                         play(timestamp, units);
                     }),
          m_planner(kit::maxMediaPacket(options.sender.mtu, options.sender.fec.scheme),
                    options.sender.aggregate),
          m_sender(options.sender, [this](const kit::Datagram& datagram) { send(datagram); }),
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
        m_report.rebuiltBySession = m_receiver.rebuiltCount();
        m_report.refused = m_receiver.refusedCount();
        return m_report;
    }

private:
    std::uint64_t frameUs() const { return static_cast<std::uint64_t>(kUsPerSecond / m_options.fps); }

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
        constexpr int kStapA = 24;
        constexpr int kFuA = 28;
        const int type = kit::nalType(datagram.bytes.subview(kit::kRtpHeaderSize));
        return type == kStapA ? m_report.aggregate : type == kFuA ? m_report.fragments : m_report.single;
    }

    void receiveWhatCame() {
        m_network.deliver(m_nowUs, [this](const CNetwork::Datagram& datagram) { receive(datagram); });
        m_receiver.advance(m_nowUs / 1000);
    }

    void receive(const CNetwork::Datagram& datagram) { m_receiver.receive(datagram, m_nowUs / 1000); }

    void play(std::uint32_t timestamp, const std::vector<kit::Handover>& units) {
        m_audit.close(timestamp, units);
        if (m_output == nullptr) {
            return;
        }
        for (const kit::Handover& unit : units) {
            m_output->write(reinterpret_cast<const char*>(unit.bytes.data()),
                            static_cast<std::streamsize>(unit.bytes.size()));
        }
        if (!*m_output) {
            throw CHostError("the output cannot be written");
        }
    }

    LoopbackOptions m_options;
    std::ostream* m_output;
    LoopbackReport m_report;
    CNetwork m_network;
    CAudit m_audit;
    CReceiver m_receiver;
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

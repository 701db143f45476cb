#include "loopback/Loopback.h"

#include "kit/AnnexB.h"
#include "loopback/Receiver.h"

#include <fmt/format.h>

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

class CLoopback : private ISenderOutput {
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
          m_sender(options.sender, *this),
          m_firstTimestamp(static_cast<std::uint32_t>(CRandom(options.network.seed).next())) {}

    void sendPicture(kit::Picture picture) {
        leaveOutWhatRtpCannotCarry(picture);
        if (picture.empty()) {
            return;
        }
        const double seconds = static_cast<double>(m_report.pictures) / m_options.fps;
        const std::int64_t ticks = std::llround(seconds * kRtpClock);
        m_pictureUs = static_cast<std::uint64_t>(seconds * kUsPerSecond);
        ++m_report.pictures;
        m_sender.send(m_firstTimestamp + static_cast<std::uint32_t>(ticks), picture);
    }

    LoopbackReport finish() {
        m_sender.finish();
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

    void leaveOutWhatRtpCannotCarry(kit::Picture& picture) {
        const auto end = std::stable_partition(picture.begin(), picture.end(), kit::isCarriedByRtp);
        for (auto unit = end; unit != picture.end(); ++unit) {
            m_report.skipped.add(unit->size());
        }
        picture.erase(end, picture.end());
        for (const kit::NalUnit& unit : picture) {
            m_report.units[static_cast<std::size_t>(kit::nalType(unit))].add(unit.size());
        }
    }

    void onPicture(std::uint32_t timestamp, const kit::Picture& picture,
                   const std::vector<kit::PackStep>& steps, CTalRtpPacket* packets) override {
        m_audit.addPicture(timestamp, picture, steps, packets);
        const CTalRtpPacket* packet = packets;
        for (const kit::PackStep& step : steps) {
            for (int i = 0; i < step.packetCount; ++i, ++packet) {
                tallyOf(step.kind).add(static_cast<std::uint64_t>(packet->get_packet_size()));
            }
        }
    }

    LoopbackReport::Tally& tallyOf(kit::PackStep::Kind kind) {
        switch (kind) {
            case kit::PackStep::kAggregate:
                return m_report.aggregate;
            case kit::PackStep::kFragments:
                return m_report.fragments;
            case kit::PackStep::kSingle:
                break;
        }
        return m_report.single;
    }

    void onMediaPacket(CTalRtpPacket& packet) override {
        m_audit.addMediaPacket(send(CNetwork::kMedia, packet));
        receiveWhatCame();
    }

    void onFecGroup(int mediaCount, std::size_t sentSince) override {
        m_audit.addGroup(mediaCount, sentSince);
    }

    void onFecPacket(CTalRtpPacket& packet) override {
        m_report.fec.add(static_cast<std::uint64_t>(packet.get_packet_size()));
        m_audit.addFecPacket(send(CNetwork::kFec, packet));
        receiveWhatCame();
    }

    bool send(CNetwork::Flow flow, const CTalRtpPacket& packet) {
        m_nowUs = std::max(m_pictureUs, m_nowUs + kDatagramUs);
        const unsigned char* bytes = packet.get_buffer();
        return m_network.send(flow, CNetwork::Datagram(bytes, bytes + packet.get_packet_size()), m_nowUs);
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
    CSender m_sender;
    std::uint32_t m_firstTimestamp;
    std::uint64_t m_pictureUs = 0;  // when the current picture is there to be sent
    std::uint64_t m_nowUs = 0;
};

void checkInput(const std::istream& input, const kit::CAnnexBReader& reader, std::uint64_t unitCount) {
    if (input.bad()) {
        throw CHostError("reading failed");
    }
    if (reader.position() == 0) {
        throw CHostError("the file is empty");
    }
    if (!reader.hasStartCode()) {
        throw CHostError("no start code (00 00 01) in it: this is no H.264 byte stream");
    }
    if (unitCount == 0) {
        throw CHostError("no NAL unit in it");
    }
}

void checkUnit(const kit::CAnnexBReader& reader) {
    if (reader.hasOversize()) {
        throw CHostError(
            fmt::format("a NAL unit is longer than {} bytes", kit::CAnnexBReader::kDefaultMaxUnitSize));
    }
}

}  // namespace

LoopbackReport runLoopback(const LoopbackOptions& options, std::istream& input, std::ostream* output,
                           const Progress& progress) {
    CLoopback loopback(options, output);
    kit::CAnnexBReader reader(input);
    kit::CPictureGrouper grouper;
    kit::NalUnit unit;
    kit::Picture picture;
    std::uint64_t unitCount = 0;
    while (reader.read(unit)) {
        checkUnit(reader);
        ++unitCount;
        if (grouper.push(std::move(unit), picture)) {
            loopback.sendPicture(std::move(picture));
            if (!progress(reader.position())) {
                throw CHostError("interrupted");
            }
        }
    }
    checkInput(input, reader, unitCount);
    if (grouper.finish(picture)) {
        loopback.sendPicture(std::move(picture));
    }
    return loopback.finish();
}

}  // namespace talrtp::host

#include "send/SendSession.h"

#include "HostError.h"
#include "send/StreamFacts.h"

#include <talrtp/kit/Sdp.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <utility>

namespace talrtp::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kClockRate = 90000;
constexpr double kFallbackFps = 25;

// Datagrams whose time comes within this long leave together: a timer for each would cost more than it helps.
constexpr std::chrono::microseconds kQuantum{500};
// A picture's datagrams are spread over this share of the time up to the next picture.
constexpr double kSpread = 0.5;
// As much leaves at once, in bytes.
constexpr std::size_t kBurstBytes = 16 * 1024;
// Without pacing, so many bytes are collected before the system is called.
constexpr std::size_t kBatchBytes = 128 * 1024;
constexpr std::chrono::seconds kTick{1};
// How long the last reports are waited for, after the goodbye.
constexpr std::chrono::milliseconds kGoodbyeWait{100};
// How long the last packets have to be read before it.
constexpr std::chrono::milliseconds kMediaBeforeGoodbye{200};
constexpr std::size_t kRtpHeaderBytes = 12;
constexpr double kPercent = 100;

std::uint32_t randomNumber() {
    return std::random_device()();
}

Endpoint localOf(Socket& socket) {
    asio::error_code ignored;
    return socket.local_endpoint(ignored);
}

std::optional<std::uint16_t> above(std::optional<std::uint16_t> port, int distance) {
    return port ? std::optional<std::uint16_t>(static_cast<std::uint16_t>(*port + distance)) : std::nullopt;
}

}  // namespace

CSendSession::CSendSession(const SendOptions& options, CReporter& reporter)
    : m_options(options),
      m_reporter(reporter),
      m_timer(m_io),
      m_tickTimer(m_io),
      m_intervalTimer(m_io),
      m_goodbyeTimer(m_io),
      m_source(m_io, options.input, options.rounds),
      m_remote(resolve(m_io, options.to)),
      m_signals(m_io, SIGINT, SIGTERM),
      m_media(openSender(m_io, m_remote, options.stream.multicast, options.localPort.value_or(0)), m_remote),
      m_losses(options.drop, options.burst, CRandom(options.seed)),
      m_senderOptions(senderOptions(options)),
      m_sender(m_senderOptions, [this](const kit::Datagram& datagram) { queue(datagram); }),
      m_firstTimestamp(randomNumber()) {
    m_media.local = localOf(m_media.queue.socket());
    openFecFlow();
    openRtcp();
    if (!options.capturePath.empty()) {
        m_capture.emplace(options.capturePath);
    }
}

kit::SenderOptions CSendSession::senderOptions(const SendOptions& options) {
    kit::SenderOptions result;
    result.ssrc = randomNumber();
    result.mtu = options.mtu;
    result.fec = options.fec;
    result.aggregate = options.isAggregating;
    result.payloadType = options.stream.payloadType;
    result.fecPayloadType = options.stream.fecPayloadType;
    return result;
}

void CSendSession::openFecFlow() {
    const std::uint16_t port = m_options.stream.fecPortBeside(m_remote.port());
    if (m_options.fec.scheme == kit::FecScheme::kNone || port == m_remote.port()) {
        return;
    }
    const Endpoint remote = withPort(m_remote, port);
    m_fec.emplace(
        openSender(m_io, remote, m_options.stream.multicast, above(m_options.localPort, 2).value_or(0)),
        remote);
    m_fec->local = localOf(m_fec->queue.socket());
}

void CSendSession::openRtcp() {
    if (!m_options.stream.rtcp) {
        return;
    }
    const Endpoint remote = withPort(m_remote, static_cast<std::uint16_t>(m_remote.port() + 1));
    m_rtcp.emplace(
        openRtcpSender(m_io, remote, m_options.stream.multicast, above(m_options.localPort, 1).value_or(0)),
        remote, *m_options.stream.rtcp, m_senderOptions.ssrc);
}

int CSendSession::run() {
    m_start = m_statusTime = Clock::now();
    waitForSignals();
    startIntervals();
    next();
    m_io.run();
    m_reporter.report(report(), describe());
    if (m_capture) {
        m_capture->flush();
    }
    if (m_captureError) {
        throw CHostError(*m_captureError);
    }
    const bool isWhole = m_refusedUnits + m_source.oversizeUnits() + socketCounts().failed == 0;
    return isWhole ? kExitGood : kExitWrong;
}

void CSendSession::waitForSignals() {
    m_signals.async_wait([this](const asio::error_code& error, int) {
        if (!error) {
            m_signals.clear();  // a second signal ends the program at once
            stop();
        }
    });
}

// ---- the cycle

// Each step names the one before it only in a handler, which the event loop calls later: no stack grows.
// NOLINTBEGIN(misc-no-recursion)

void CSendSession::next() {
    if (m_isStopped) {
        return;
    }
    m_picture = m_source.take();
    if (m_picture) {
        if (!m_schedule) {
            begin(*m_picture);
        }
        sendWhenDue();
    } else if (m_source.isAtEnd()) {
        finish();
    } else {
        m_source.waitForMore([this] { next(); });
    }
}

// The stream begins with its first picture, and says there how fast it wants to be.
void CSendSession::begin(const CStoredPicture& first) {
    const StreamFacts facts = factsOf(first.units());
    m_fps = m_options.fps.value_or(facts.fps.value_or(kFallbackFps));
    if (!m_options.fps && !facts.fps) {
        m_reporter.note(fmt::format(
            "the stream does not tell its picture rate: taking {} a second, see --fps", kFallbackFps));
    }
    const kit::TimePoint now = Clock::now();
    m_schedule.emplace(now, m_fps, m_source.isLive());
    m_clock.emplace(now, std::chrono::system_clock::now(), m_firstTimestamp);
    m_start = m_statusTime = now;
    m_timestamp = m_firstTimestamp;
    if (m_options.pace == Pace::kBitrate) {
        m_pacer.emplace(m_options.bitsPerSecond, kBurstBytes);
    }
    if (!m_options.sdpPath.empty()) {
        writeSdp(facts);
    }
    if (m_rtcp) {
        m_rtcp->start([this] { return m_clock->ntpAt(Clock::now()); },
                      [this](const Endpoint& from, const Endpoint& to, kit::BytesView bytes) {
                          capture(from, to, bytes);
                      },
                      [this] {
                          if (m_hasSaidGoodbye) {
                              m_io.stop();
                          }
                      });
        sendReport(false);
    }
    tick();
}

void CSendSession::writeSdp(const StreamFacts& facts) {
    kit::Sdp sdp = kit::Sdp::fromParameterSets(facts.parameterSets);
    sdp.sessionName =
        m_options.input == "-" ? "live" : std::filesystem::path(m_options.input).filename().string();
    sdp.address = m_remote.address().to_string();
    sdp.port = m_remote.port();
    sdp.payloadType = m_options.stream.payloadType;
    if (m_options.stream.rtcp) {
        sdp.rtcpPort = m_remote.port() + 1;
    }
    if (m_fec) {  // a description has no words for FEC packets on the media's port
        sdp.fec = m_options.fec.scheme;
        sdp.fecPort = m_fec->remote.port();
        sdp.fecPayloadType = m_options.stream.fecPayloadType;
    }
    sdp.frameRate = m_fps;
    sdp.ttl = m_options.stream.multicast.ttl.value_or(1);
    const std::string problem = sdp.check();
    if (!problem.empty()) {
        throw CHostError(fmt::format("cannot describe the session: {}", problem));
    }
    std::ofstream file(m_options.sdpPath, std::ios::binary | std::ios::trunc);
    file << sdp.write();
    file.close();
    if (!file) {
        throw CHostError(fmt::format("cannot write '{}': {}", m_options.sdpPath, std::strerror(errno)));
    }
}

void CSendSession::sendWhenDue() {
    const kit::TimePoint now = Clock::now();
    m_schedule->beginPicture(now);
    if (m_options.pace != Pace::kRealTime || m_schedule->nextDue() <= now) {
        sendPicture();
        return;
    }
    m_timer.expires_at(m_schedule->nextDue());
    m_timer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_isStopped) {
            sendPicture();
        }
    });
}

void CSendSession::sendPicture() {
    if (m_options.pace == Pace::kRealTime) {
        m_pacer.emplace(spreadingRate(*m_picture), kBurstBytes);
    }
    m_timestamp = timestampOf(m_schedule->nextDue());
    const kit::SendResult result = m_sender.sendPicture(m_timestamp, m_picture->units());
    m_refusedUnits += result.refusedUnits;
    if (!result && m_firstRefusal.empty()) {
        m_firstRefusal = result.error;
        m_reporter.note(fmt::format("picture {}: {}", m_sender.statistics().sentPictures, result.error));
    }
    m_schedule->endPicture();
    pump();
}

// The bitrate at which the picture's packets, FEC included, take their share of the time up to the next one.
double CSendSession::spreadingRate(const CStoredPicture& picture) const {
    constexpr double kBitsPerByte = 8;
    constexpr double kHeaderShare = 1.1;  // what RTP adds to units, generously
    std::size_t bytes = 0;
    for (const kit::BytesView& unit : picture.units()) {
        bytes += unit.size();
    }
    const kit::Fec& fec = m_options.fec;
    const double redundancy =
        fec.scheme == kit::FecScheme::kNone ? 1 : 1 + static_cast<double>(fec.parity) / fec.maxMedia;
    const double time = kSpread * std::chrono::duration<double>(m_schedule->interval()).count();
    return std::max(1.0, static_cast<double>(bytes) * kBitsPerByte * kHeaderShare * redundancy / time);
}

void CSendSession::queue(const kit::Datagram& datagram) {
    Flow& flow = datagram.isFec ? fecFlow() : m_media;
    Tally& tally = datagram.isFec ? m_fecTally : m_mediaTally;
    ++tally.packets;
    tally.bytes += datagram.bytes.size();
    if (m_losses.isNextLost()) {
        ++tally.dropped;
        return;
    }
    flow.queue.push(datagram.bytes);
    if (m_pacer) {
        m_releases.push_back({m_pacer->next(Clock::now(), datagram.bytes.size()), &flow});
    } else {
        flow.queue.release(1);
    }
    capture(flow.local, flow.remote, datagram.bytes);
}

void CSendSession::pump() {
    if (m_isStopped) {
        return;
    }
    const kit::TimePoint now = Clock::now();
    for (; !m_releases.empty() && m_releases.front().when <= now + kQuantum; m_releases.pop_front()) {
        m_releases.front().flow->queue.release(1);
    }
    flush(m_media);
    flush(fecFlow());
    if (m_media.isBlocked || fecFlow().isBlocked) {
        return;
    }
    if (!m_releases.empty()) {
        m_timer.expires_at(m_releases.front().when);
        m_timer.async_wait([this](const asio::error_code& error) {
            if (!error) {
                pump();
            }
        });
    } else if (m_isFinishing) {
        sayGoodbyeSoon();
    } else {
        asio::post(m_io, [this] { next(); });
    }
}

void CSendSession::flush(Flow& flow) {
    const bool isCollecting = m_options.pace == Pace::kMax && !m_isFinishing && !m_source.isLive();
    if (flow.isBlocked || (isCollecting && flow.queue.bytes() < kBatchBytes)) {
        return;
    }
    flow.isBlocked = !flow.queue.flush();
    if (flow.isBlocked) {
        flow.queue.socket().async_wait(Socket::wait_write, [this, &flow](const asio::error_code& error) {
            flow.isBlocked = false;
            if (!error) {
                pump();
            }
        });
    }
}

void CSendSession::finish() {
    m_isFinishing = true;
    m_sender.flush();
    pump();
}

// RTCP arrives on a socket of its own, and ffmpeg reads that one first: a goodbye right after the last
// packets would end the stream before they are read.
void CSendSession::sayGoodbyeSoon() {
    if (!m_rtcp || !m_clock) {
        sayGoodbye();
        return;
    }
    m_goodbyeTimer.expires_after(kMediaBeforeGoodbye);
    m_goodbyeTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_hasSaidGoodbye) {
            sayGoodbye();
        }
    });
}

void CSendSession::sayGoodbye() {
    m_hasSaidGoodbye = true;
    if (!m_rtcp || !m_clock) {
        m_io.stop();
        return;
    }
    sendReport(true);
    sayGoodbyeOfFec();
    m_goodbyeTimer.expires_after(kGoodbyeWait);
    m_goodbyeTimer.async_wait([this](const asio::error_code&) { m_io.stop(); });
}

// Peers that read of the FEC flow in a session description wait for its goodbye too, one port above it.
void CSendSession::sayGoodbyeOfFec() {
    if (!m_fec) {
        return;
    }
    const int port = m_fec->remote.port() + 1;
    const bool isTaken = port == m_remote.port() || port > std::numeric_limits<std::uint16_t>::max();
    if (!isTaken) {
        m_rtcp->sendGoodbye(withPort(m_remote, static_cast<std::uint16_t>(port)));
    }
}

void CSendSession::stop() {
    if (!m_hasSaidGoodbye) {
        m_isStopped = true;
        m_source.cancel();
        sayGoodbye();
    }
}

std::uint32_t CSendSession::timestampOf(kit::TimePoint due) const {
    const double seconds = secondsBetween(m_start, due);
    return m_firstTimestamp + static_cast<std::uint32_t>(std::llround(seconds * kClockRate));
}

// NOLINTEND(misc-no-recursion)

// ---- reports

void CSendSession::tick() {
    m_tickTimer.expires_after(kTick);
    m_tickTimer.async_wait([this](const asio::error_code& error) {
        if (error || m_hasSaidGoodbye) {
            return;
        }
        if (m_rtcp) {
            sendReport(false);
        }
        showStatus();
        tick();
    });
}

// FEC packets have numbers of their own and are no part of the counts: receivers report on the media. A
// packet that is dropped on purpose counts as one that the network lost.
void CSendSession::sendReport(bool isLast) {
    const kit::TimePoint now = Clock::now();
    kit::SenderReport report;
    report.ntp = m_clock->ntpAt(now);
    report.rtpTimestamp = m_options.pace == Pace::kRealTime ? m_clock->timestampAt(now) : m_timestamp;
    report.packetCount = static_cast<std::uint32_t>(m_mediaTally.packets);
    report.octetCount =
        static_cast<std::uint32_t>(m_mediaTally.bytes - kRtpHeaderBytes * m_mediaTally.packets);
    m_rtcp->send(report, isLast);
}

void CSendSession::capture(const Endpoint& from, const Endpoint& to, kit::BytesView bytes) {
    if (!m_capture) {
        return;
    }
    try {
        m_capture->add(from, to, bytes);
    } catch (const CHostError& problem) {
        m_captureError = problem.what();
        m_capture.reset();
        asio::post(m_io, [this] { stop(); });
    }
}

void CSendSession::startIntervals() {
    const std::optional<double> seconds = m_reporter.options().statsSeconds;
    if (!seconds) {
        return;
    }
    m_intervalTimer.expires_after(
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds)));
    m_intervalTimer.async_wait([this](const asio::error_code& error) {
        if (!error) {
            m_reporter.interval(report());
            startIntervals();
        }
    });
}

void CSendSession::showStatus() {
    if (!m_reporter.showsStatus()) {
        return;
    }
    constexpr double kMegabit = 125000;
    const kit::TimePoint now = Clock::now();
    const std::uint64_t bytes = m_mediaTally.bytes + m_fecTally.bytes;
    const double rate =
        static_cast<double>(bytes - m_statusBytes) / secondsBetween(m_statusTime, now) / kMegabit;
    m_statusBytes = bytes;
    m_statusTime = now;
    std::string text =
        fmt::format("{:.0f} s  {:.2f} Mbit/s  {} pictures  {} packets", secondsBetween(m_start, now), rate,
                    m_sender.statistics().sentPictures, m_mediaTally.packets + m_fecTally.packets);
    if (m_rtcp && !m_rtcp->receivers().empty()) {
        const ReceiverView& view = m_rtcp->receivers().begin()->second;
        text += fmt::format("  loss {:.1f} %  jitter {:.1f} ms", view.fractionLost * kPercent, view.jitterMs);
        text += view.roundTripMs ? fmt::format("  round trip {:.1f} ms", *view.roundTripMs) : "";
    }
    m_reporter.status(text);
}

Json CSendSession::report() {
    const auto describeFlow = [](const Tally& tally, const Flow& flow) -> Json {
        return {{"to", talrtp::host::describe(flow.remote)},
                {"packets", tally.packets},
                {"bytes", tally.bytes},
                {"dropped", tally.dropped}};
    };
    const kit::Statistics statistics = m_sender.statistics();
    const SendCounts counts = socketCounts();
    Json result{{"program", "send"},
                {"seconds", secondsBetween(m_start, Clock::now())},
                {"fps", m_fps},
                {"ssrc", m_senderOptions.ssrc},
                {"pictures", statistics.sentPictures},
                {"units", statistics.sentUnits},
                {"refusedUnits", m_refusedUnits + m_source.oversizeUnits()},
                {"media", describeFlow(m_mediaTally, m_media)}};
    if (m_options.fec.scheme != kit::FecScheme::kNone) {
        result["fec"] = describeFlow(m_fecTally, fecFlow());
    }
    result["socket"] = {{"datagrams", counts.datagrams},
                        {"bytes", counts.bytes},
                        {"calls", counts.calls},
                        {"icmpErrors", counts.icmpErrors},
                        {"failed", counts.failed}};
    if (m_rtcp) {
        result["rtcp"] = m_rtcp->report();
    }
    result["process"] = processReport();
    return result;
}

std::string CSendSession::describe() {
    const kit::Statistics statistics = m_sender.statistics();
    const SendCounts counts = socketCounts();
    std::string text = fmt::format("Sent {} pictures, {} units, in {:.1f} s to {}\n", statistics.sentPictures,
                                   statistics.sentUnits, secondsBetween(m_start, Clock::now()),
                                   talrtp::host::describe(m_remote));
    const auto addFlow = [&text](const char* name, const Tally& tally) {
        text += fmt::format("{:<8}{:>10} packets{:>13} bytes", name, tally.packets, tally.bytes);
        text += tally.dropped > 0 ? fmt::format(", {} packets dropped on purpose\n", tally.dropped) : "\n";
    };
    addFlow("Media", m_mediaTally);
    if (m_options.fec.scheme != kit::FecScheme::kNone) {
        addFlow("FEC", m_fecTally);
    }
    if (counts.icmpErrors > 0) {
        text += fmt::format("Nobody listened: {} answers of 'port unreachable'\n", counts.icmpErrors);
    }
    if (counts.failed > 0) {
        text += fmt::format("NOT SENT: {} packets, which the system refused: {}\n", counts.failed,
                            std::strerror(counts.lastError));
    }
    if (m_refusedUnits + m_source.oversizeUnits() > 0) {
        text += fmt::format("NOT SENT: {} units\n", m_refusedUnits + m_source.oversizeUnits());
    }
    return text + (m_rtcp ? m_rtcp->describe() : "");
}

// Of both flows.
SendCounts CSendSession::socketCounts() {
    SendCounts sum = m_media.queue.counts();
    if (m_fec) {
        const SendCounts& fec = m_fec->queue.counts();
        sum.datagrams += fec.datagrams;
        sum.bytes += fec.bytes;
        sum.calls += fec.calls;
        sum.icmpErrors += fec.icmpErrors;
        sum.failed += fec.failed;
        sum.lastError = sum.lastError == 0 ? fec.lastError : sum.lastError;
    }
    return sum;
}

}  // namespace talrtp::host

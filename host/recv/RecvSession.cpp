#include "recv/RecvSession.h"

#include "HostError.h"

#include <asio/buffer.hpp>
#include <asio/post.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>

namespace talrtp::host {

namespace {

using Clock = std::chrono::steady_clock;

// Batches that are read from a port before the timers, the signals and the other ports have their turn.
constexpr int kMaxBatches = 16;
constexpr std::chrono::seconds kTick{1};
// Time between two requests for a picture, so that a burst of losses makes one.
constexpr std::chrono::milliseconds kPictureRequestGap{500};
constexpr double kPercent = 100;

}  // namespace

CRecvSession::CRecvSession(const RecvOptions& options, CReporter& reporter)
    : m_options(options),
      m_reporter(reporter),
      m_pollTimer(m_io),
      m_tickTimer(m_io),
      m_intervalTimer(m_io),
      m_endTimer(m_io),
      m_sink(m_io, options.output),
      m_signals(m_io, SIGINT, SIGTERM),
      m_local(listenEndpoint(m_io, options)),
      m_media(openMedia(m_io, m_local, options), m_local),
      m_receiver(receiverOptions(options), [this](const kit::Picture& picture) { play(picture); }) {
    openOthers();
    m_pace = readingPace();
    if (!options.capturePath.empty()) {
        m_capture.emplace(options.capturePath);
        m_receiver.onRebuilt([this](kit::BytesView packet) { captureRebuilt(packet); });
    }
}

Endpoint CRecvSession::listenEndpoint(asio::io_context& io, const RecvOptions& options) {
    return options.listen.host.empty() ? anyAddress(options.listen.port) : resolve(io, options.listen);
}

// An SDP names the address to which the sender sends, which need not be one of this host: a translator of
// addresses may stand between.
Socket CRecvSession::openMedia(asio::io_context& io, Endpoint& local, const RecvOptions& options) {
    if (!options.isListenAddressOptional || local.address().is_multicast()) {
        return openReceiver(io, local, options.stream.multicast);
    }
    Socket probe(io, local.protocol());
    asio::error_code error;
    probe.bind(withPort(local, 0), error);
    if (error) {
        local = anyAddress(local.port());
    }
    return openReceiver(io, local, options.stream.multicast);
}

kit::ReceiverOptions CRecvSession::receiverOptions(const RecvOptions& options) {
    kit::ReceiverOptions result;
    result.fec = options.stream.fec;
    result.payloadType = options.stream.payloadType;
    result.fecPayloadType = options.stream.fecPayloadType;
    result.wait = options.wait;
    result.sourceTimeout = kSourceTimeout;
    result.parameterSets = options.parameterSets;
    return result;
}

void CRecvSession::openOthers() {
    const StreamOptions& stream = m_options.stream;
    const std::uint16_t fecPort = stream.fecPortBeside(m_local.port());
    if (stream.fec != kit::FecScheme::kNone && fecPort != m_local.port()) {
        const Endpoint local = withPort(m_local, fecPort);
        m_fec.emplace(openReceiver(m_io, local, stream.multicast), local);
    }
    if (stream.rtcp) {
        const Endpoint local = withPort(m_local, m_options.rtcpPort);
        m_rtcpPort.emplace(openReceiver(m_io, local, stream.multicast), local);
        m_rtcp.emplace(*stream.rtcp);
        if (local.address().is_multicast()) {
            m_rtcp->setPeer(local);
        }
    }
}

// By the smaller buffer, in the count of the system call that asks for it.
CReadingPace CRecvSession::readingPace() const {
    const int bytes = receiveBuffer(m_media.reader.socket());
    return CReadingPace(m_fec ? std::min(bytes, receiveBuffer(m_fec->reader.socket())) : bytes);
}

int CRecvSession::run() {
    m_start = m_now = m_roundTime = m_lastAccepted = m_statusTime = Clock::now();
    waitForSignals();
    waitForStream();
    if (m_rtcpPort) {
        waitFor(*m_rtcpPort);
    }
    tick();
    startIntervals();
    m_io.run();
    m_reporter.report(report(), describe());
    if (m_capture) {
        m_capture->flush();
    }
    if (m_sink.error() || m_captureError) {
        throw CHostError(m_sink.error() ? *m_sink.error() : *m_captureError);
    }
    return isWhole() ? kExitGood : kExitWrong;
}

void CRecvSession::waitForSignals() {
    m_signals.async_wait([this](const asio::error_code& error, int) {
        if (!error) {
            m_signals.clear();  // a second signal ends the program at once
            end();
        }
    });
}

// ---- reading

void CRecvSession::waitFor(Port& port) {
    if (port.isWaiting) {
        return;
    }
    port.isWaiting = true;
    port.reader.socket().async_wait(Socket::wait_read, [this, &port](const asio::error_code& error) {
        port.isWaiting = false;
        if (error || m_isOver) {
            return;
        }
        if (m_rtcpPort && &port == &*m_rtcpPort) {
            readRtcp();
            waitFor(port);
        } else if (!m_isResting) {
            readRound();
        }
    });
}

void CRecvSession::waitForStream() {
    waitFor(m_media);
    if (m_fec) {
        waitFor(*m_fec);
    }
}

// Each round asks for the next one in a handler, which the event loop calls later: no stack grows.
// NOLINTBEGIN(misc-no-recursion)

// Reads the stream and decides when to do so again: when something arrives, or, in a fast stream, after a
// rest, in which more arrives.
void CRecvSession::readRound() {
    const kit::TimePoint before = std::exchange(m_roundTime, Clock::now());
    const std::uint64_t datagramsBefore = receivedDatagrams();
    readStream();
    afterReading();
    if (m_isOver) {
        return;
    }
    const std::int64_t datagrams = static_cast<std::int64_t>(receivedDatagrams() - datagramsBefore);
    if (CReadingPace::isRestDue(m_roundTime - before, datagrams)) {
        restUntil(m_roundTime + m_pace->rest());
    } else {
        waitForStream();
    }
}

// The timers, the signals and the RTCP port have their turn first, and wait during the rest. A timer would
// not do: each datagram that arrives wakes up an event loop that waits.
void CRecvSession::restUntil(kit::TimePoint end) {
    m_isResting = true;
    asio::post(m_io, [this, end] {
        if (!m_isOver) {
            std::this_thread::sleep_until(end);
            m_isResting = false;
            readRound();
        }
    });
}

// NOLINTEND(misc-no-recursion)

// Media is taken first: an FEC packet that is taken before the media that was sent before it would rebuild
// packets that are there. So FEC packets are fetched before media, and taken after it.
void CRecvSession::readStream() {
    const bool isMoreFec = m_fec && m_fec->reader.fetch();
    read(m_media);
    if (m_fec) {
        takeFetched(*m_fec);
    }
    if (isMoreFec) {
        read(*m_fec);
    }
}

// RTCP comes last, so that a goodbye is read after what was sent before it.
void CRecvSession::readRtcp() {
    readStream();
    read(*m_rtcpPort);
    afterReading();
}

void CRecvSession::read(Port& port) {
    bool isMore = true;
    for (int i = 0; i < kMaxBatches && isMore && !m_isOver; ++i) {
        isMore = port.reader.fetch();
        takeFetched(port);
    }
}

void CRecvSession::takeFetched(Port& port) {
    m_now = Clock::now();
    port.reader.lend(
        [this, &port](kit::BytesView datagram, const Endpoint& from) { take(port, datagram, from); });
}

void CRecvSession::take(Port& port, kit::BytesView datagram, const Endpoint& from) {
    if (m_rtcpPort && &port == &*m_rtcpPort) {
        takeRtcp(datagram, from);
        return;
    }
    if (m_isOver || !port.guard.admits(from, m_now)) {
        return;
    }
    capture(from, port.local, datagram);
    const kit::PushResult result = m_receiver.push(datagram, m_now);
    switch (result) {
        case kit::PushResult::media:
            ++m_mediaPackets;
            noteSource(port, from);
            if (m_rtcp) {
                m_rtcp->countMedia(*m_receiver.ssrc(), datagram, m_now);
            }
            break;
        case kit::PushResult::fec:
            ++m_fecPackets;
            noteSource(port, from);
            break;
        case kit::PushResult::rtcp:
            takeRtcp(datagram, from);
            break;
        default:
            break;
    }
}

void CRecvSession::noteSource(Port& port, const Endpoint& from) {
    m_lastAccepted = m_now;
    port.guard.confirm(from, m_now);
}

void CRecvSession::takeRtcp(kit::BytesView datagram, const Endpoint& from) {
    const std::optional<Endpoint>& sender = m_media.guard.held();
    if (!m_rtcp || (sender && sender->address() != from.address())) {
        return;
    }
    capture(from, m_rtcpPort->local, datagram);
    m_rtcp->take(datagram, from, m_now);
}

void CRecvSession::afterReading() {
    if (m_isOver) {
        return;
    }
    armPoll(m_receiver.poll(m_now));
    m_sink.flushIfPipe();
    askAfterLoss();
    checkEnd();
}

// ---- playing

void CRecvSession::play(const kit::Picture& picture) {
    const bool isEnough = m_options.maxPictures > 0 && m_playedPictures >= m_options.maxPictures;
    if (!isEnough) {
        ++m_playedPictures;
        m_sink.add(picture.annexB());
    }
}

void CRecvSession::armPoll(const std::optional<kit::TimePoint>& next) {
    if (!next || (m_pollTime && *m_pollTime <= *next)) {
        return;
    }
    m_pollTime = next;
    m_pollTimer.expires_at(*next);
    m_pollTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_isOver) {
            m_pollTime.reset();
            m_now = Clock::now();
            readStream();  // what fills the gap may have arrived during a rest
            afterReading();
        }
    });
}

void CRecvSession::checkEnd() {
    const bool isEnough = m_options.maxPictures > 0 && m_playedPictures >= m_options.maxPictures;
    const bool isIdle =
        m_options.idleSeconds && secondsBetween(m_lastAccepted, Clock::now()) >= *m_options.idleSeconds;
    if (isEnough || isIdle || m_sink.error() || m_captureError) {
        end();
    } else if (m_rtcp && m_rtcp->isOver()) {
        endSoon();
    }
}

// Packets may arrive after the goodbye that was sent after them.
void CRecvSession::endSoon() {
    if (m_isEnding) {
        return;
    }
    m_isEnding = true;
    sendReport(false);  // while the sender still waits for the last one
    m_endTimer.expires_after(m_options.wait);
    m_endTimer.async_wait([this](const asio::error_code& error) {
        if (!error) {
            end();
        }
    });
}

void CRecvSession::end() {
    if (m_isOver) {
        return;
    }
    m_receiver.finish();
    m_isOver = true;
    if (m_rtcp) {
        sendReport(true);
    }
    m_sink.finish();
    m_io.stop();
}

// ---- reports

void CRecvSession::tick() {
    m_tickTimer.expires_after(kTick);
    m_tickTimer.async_wait([this](const asio::error_code& error) {
        if (error || m_isOver) {
            return;
        }
        m_sink.flush();
        if (!m_isEnding) {
            sendReport(false);
        }
        showStatus();
        checkEnd();
        tick();
    });
}

void CRecvSession::sendReport(bool isLast) {
    if (!m_rtcp || !m_rtcp->peer()) {
        return;
    }
    const std::vector<std::uint8_t> bytes = m_rtcp->makeReport(Clock::now(), isLast);
    if (bytes.empty()) {
        return;
    }
    // A report that is lost here is lost as others are in the network.
    asio::error_code ignored;
    m_rtcpPort->reader.socket().send_to(asio::buffer(bytes), *m_rtcp->peer(), 0, ignored);
    capture(m_rtcpPort->local, *m_rtcp->peer(), bytes);
}

void CRecvSession::askAfterLoss() {
    if (!m_rtcp || !m_options.asksForPictures) {
        return;
    }
    const kit::Statistics statistics = m_receiver.statistics();
    const std::uint64_t imperfect = statistics.cutPictures + statistics.skippedPictures;
    if (imperfect != m_imperfectPictures && m_now - m_lastPictureRequest >= kPictureRequestGap) {
        m_imperfectPictures = imperfect;
        m_lastPictureRequest = m_now;
        m_rtcp->askForPicture();
        sendReport(false);
    }
}

void CRecvSession::capture(const Endpoint& from, const Endpoint& to, kit::BytesView bytes) {
    if (!m_capture) {
        return;
    }
    try {
        m_capture->add(from, to, bytes);
    } catch (const CHostError& problem) {
        m_captureError = problem.what();
        m_capture.reset();
    }
}

// Nobody sent it, so it stands there with the source port that no sender has.
void CRecvSession::captureRebuilt(kit::BytesView packet) {
    const std::optional<Endpoint>& sender = m_media.guard.held();
    capture(withPort(sender.value_or(m_media.local), 0), m_media.local, packet);
}

void CRecvSession::startIntervals() {
    const std::optional<double> seconds = m_reporter.options().statsSeconds;
    if (!seconds) {
        return;
    }
    m_intervalTimer.expires_after(
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds)));
    m_intervalTimer.async_wait([this](const asio::error_code& error) {
        if (!error && !m_isOver) {
            m_reporter.interval(report());
            startIntervals();
        }
    });
}

std::uint64_t CRecvSession::receivedDatagrams() const {
    return m_media.reader.counts().datagrams + (m_fec ? m_fec->reader.counts().datagrams : 0);
}

std::uint64_t CRecvSession::receivedBytes() const {
    return m_media.reader.counts().bytes + (m_fec ? m_fec->reader.counts().bytes : 0);
}

std::uint64_t CRecvSession::refusedAddresses() const {
    return m_media.guard.refused() + (m_fec ? m_fec->guard.refused() : 0);
}

std::uint64_t CRecvSession::droppedByKernel() const {
    return m_media.reader.counts().droppedByKernel + (m_fec ? m_fec->reader.counts().droppedByKernel : 0);
}

void CRecvSession::showStatus() {
    if (!m_reporter.showsStatus()) {
        return;
    }
    constexpr double kMegabit = 125000;
    const kit::TimePoint now = Clock::now();
    const kit::Statistics statistics = m_receiver.statistics();
    const std::uint64_t bytes = receivedBytes();
    const double rate =
        static_cast<double>(bytes - m_statusBytes) / secondsBetween(m_statusTime, now) / kMegabit;
    m_statusBytes = bytes;
    m_statusTime = now;
    const double all =
        static_cast<double>(statistics.receivedValidMediaPacketNumber + statistics.lostPackets);
    const double missing = static_cast<double>(statistics.lostPackets + statistics.rebuiltPackets);
    m_reporter.status(fmt::format("{:.0f} s  {:.2f} Mbit/s  loss {:.1f} %  rebuilt {}  pictures {}  cut {}",
                                  secondsBetween(m_start, now), rate, all > 0 ? missing / all * kPercent : 0,
                                  statistics.rebuiltPackets, statistics.completePictures,
                                  statistics.cutPictures + statistics.skippedPictures));
}

bool CRecvSession::isWhole() const {
    const kit::Statistics statistics = m_receiver.statistics();
    return statistics.completePictures > 0 && statistics.cutPictures == 0 &&
           statistics.skippedPictures == 0 && m_sink.droppedPictures() == 0;
}

Json CRecvSession::report() const {
    const kit::Statistics s = m_receiver.statistics();
    const std::optional<std::uint32_t> ssrc = m_receiver.ssrc();
    Json result{{"program", "recv"}, {"seconds", secondsBetween(m_start, Clock::now())}};
    result["ssrc"] = ssrc ? Json(*ssrc) : Json(nullptr);
    const std::optional<Endpoint>& from = m_media.guard.held();
    result["from"] = from ? Json(talrtp::host::describe(*from)) : Json(nullptr);
    result["packets"] = {{"media", m_mediaPackets}, {"fec", m_fecPackets},
                         {"lost", s.lostPackets},   {"rebuilt", s.rebuiltPackets},
                         {"late", s.latePackets},   {"doubled", s.doubledPackets},
                         {"stray", s.strayPackets}};
    result["pictures"] = {{"played", m_playedPictures},    {"complete", s.completePictures},
                          {"cut", s.cutPictures},          {"skipped", s.skippedPictures},
                          {"written", m_sink.pictures()},  {"droppedByOutput", m_sink.droppedPictures()},
                          {"writtenBytes", m_sink.bytes()}};
    result["units"] = s.playedUnits;
    result["restarts"] = s.restarts;
    result["refused"] = {{"otherAddress", refusedAddresses()},
                         {"otherSource", s.otherSourceDatagrams},
                         {"notRtp", s.notRtpDatagrams},
                         {"invalid", s.invalidDatagrams},
                         {"unknownType", s.unknownTypeDatagrams}};
    result["socket"] = {{"datagrams", receivedDatagrams()},
                        {"bytes", receivedBytes()},
                        {"droppedByKernel", droppedByKernel()}};
    if (m_rtcp) {
        result["rtcp"] = m_rtcp->report();
    }
    result["process"] = processReport();
    return result;
}

std::string CRecvSession::describe() const {
    const kit::Statistics s = m_receiver.statistics();
    const std::optional<Endpoint>& from = m_media.guard.held();
    std::string text = fmt::format("Received {} pictures in {:.1f} s{}\n", m_playedPictures,
                                   secondsBetween(m_start, Clock::now()),
                                   from ? " from " + talrtp::host::describe(*from) : "");
    const auto addLine = [&text](const char* name, std::uint64_t count, bool isAlways = true) {
        text += isAlways || count > 0 ? fmt::format("{:<34}{:>10}\n", name, count) : "";
    };
    addLine("Pictures, complete", s.completePictures);
    addLine("  with packets missing", s.cutPictures);
    addLine("  lost whole", s.skippedPictures);
    addLine("  NOT WRITTEN, output too slow", m_sink.droppedPictures(), false);
    addLine("Media packets", m_mediaPackets);
    addLine("FEC packets", m_fecPackets, m_options.stream.fec != kit::FecScheme::kNone);
    addLine("Media packets rebuilt", s.rebuiltPackets, m_options.stream.fec != kit::FecScheme::kNone);
    addLine("Media packets lost", s.lostPackets);
    addLine("  of them in this host's socket", droppedByKernel(), false);
    addLine("  arrived too late", s.latePackets, false);
    addLine("Datagrams of others, refused",
            refusedAddresses() + s.otherSourceDatagrams + s.notRtpDatagrams + s.invalidDatagrams +
                s.unknownTypeDatagrams,
            false);
    addLine("Restarts of the sender", s.restarts, false);
    return text;
}

}  // namespace talrtp::host

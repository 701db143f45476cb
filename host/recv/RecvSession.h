// Receives one stream: reads the ports, plays pictures into a sink, reports to the sender.

#ifndef TALRTP_HOST_RECV_RECVSESSION_H
#define TALRTP_HOST_RECV_RECVSESSION_H

#include "live/Reporter.h"
#include "net/CaptureFile.h"
#include "net/DatagramReader.h"
#include "recv/PictureSink.h"
#include "recv/ReadingPace.h"
#include "recv/ReceiverRtcp.h"
#include "recv/RecvOptions.h"
#include "recv/SourceGuard.h"

#include <talrtp/kit/Receiver.h>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace talrtp::host {

class CRecvSession {
public:
    // Opens the output and the sockets. Throws CHostError. Borrows `reporter` for its own life.
    CRecvSession(const RecvOptions& options, CReporter& reporter);

    // Receives until the stream ends, or what the options say, or a signal comes, and reports. Returns the
    // exit code. Throws CHostError, after the report, when the output could not be written.
    int run();

private:
    struct Port {
        Port(Socket socket, Endpoint endpoint)
            : reader(std::move(socket)), local(std::move(endpoint)), guard(kSourceTimeout) {}

        CDatagramReader reader;
        Endpoint local;
        CSourceGuard guard;
        bool isWaiting = false;  // for a datagram
    };

    static constexpr std::chrono::milliseconds kSourceTimeout{2000};

    static Endpoint listenEndpoint(asio::io_context& io, const RecvOptions& options);
    static Socket openMedia(asio::io_context& io, Endpoint& local, const RecvOptions& options);
    static kit::ReceiverOptions receiverOptions(const RecvOptions& options);
    void openOthers();
    CReadingPace readingPace() const;
    void waitForSignals();

    void waitFor(Port& port);
    void waitForStream();
    void readRound();
    void restUntil(kit::TimePoint end);
    void readStream();
    void readRtcp();
    void read(Port& port);
    void takeFetched(Port& port);
    void take(Port& port, kit::BytesView datagram, const Endpoint& from);
    void noteSource(Port& port, const Endpoint& from);
    void takeRtcp(kit::BytesView datagram, const Endpoint& from);
    void afterReading();

    void play(const kit::Picture& picture);
    void armPoll(const std::optional<kit::TimePoint>& next);
    void checkEnd();
    void endSoon();
    void end();

    void tick();
    void sendReport(bool isLast);
    void askAfterLoss();
    void capture(const Endpoint& from, const Endpoint& to, kit::BytesView bytes);
    void captureRebuilt(kit::BytesView packet);
    void startIntervals();
    void showStatus();
    std::uint64_t receivedDatagrams() const;
    std::uint64_t receivedBytes() const;
    std::uint64_t refusedAddresses() const;
    std::uint64_t droppedByKernel() const;
    bool isWhole() const;
    Json report() const;
    std::string describe() const;

    RecvOptions m_options;
    CReporter& m_reporter;
    asio::io_context m_io;
    asio::steady_timer m_pollTimer;
    asio::steady_timer m_tickTimer;
    asio::steady_timer m_intervalTimer;
    asio::steady_timer m_endTimer;
    CPictureSink m_sink;
    asio::signal_set m_signals;  // from before the sockets are there to after the report
    Endpoint m_local;
    Port m_media;
    std::optional<Port> m_fec;       // when it has a port of its own
    std::optional<Port> m_rtcpPort;  // its guard admits all
    std::optional<CReceiverRtcp> m_rtcp;
    std::optional<CCaptureFile> m_capture;
    std::optional<std::string> m_captureError;
    kit::Receiver m_receiver;

    kit::TimePoint m_now;  // of the batch that is being read
    kit::TimePoint m_roundTime;
    std::optional<CReadingPace> m_pace;  // once the sockets are there
    bool m_isResting = false;
    kit::TimePoint m_start;
    kit::TimePoint m_lastAccepted;
    std::optional<kit::TimePoint> m_pollTime;  // that the timer waits for
    bool m_isEnding = false;
    bool m_isOver = false;
    std::uint64_t m_mediaPackets = 0;  // of the stream, as they arrived
    std::uint64_t m_fecPackets = 0;
    std::uint64_t m_playedPictures = 0;
    std::uint64_t m_imperfectPictures = 0;  // cut or skipped, when last looked at
    kit::TimePoint m_lastPictureRequest;
    std::uint64_t m_statusBytes = 0;
    kit::TimePoint m_statusTime;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_RECVSESSION_H

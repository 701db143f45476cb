// Sends one stream: takes pictures from the source when they are due, and datagrams off the queues when each
// may leave.

#ifndef TALRTP_HOST_SEND_SENDSESSION_H
#define TALRTP_HOST_SEND_SENDSESSION_H

#include "live/Reporter.h"
#include "net/CaptureFile.h"
#include "net/DatagramQueue.h"
#include "net/LossModel.h"
#include "send/PictureSource.h"
#include "send/SendOptions.h"
#include "send/SendSchedule.h"
#include "send/SenderRtcp.h"
#include "send/StreamFacts.h"

#include <talrtp/kit/MediaClock.h>
#include <talrtp/kit/Pacer.h>
#include <talrtp/kit/Sender.h>

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace talrtp::host {

class CSendSession {
public:
    // Opens the input and the sockets. Throws CHostError. Borrows `reporter` for its own life.
    CSendSession(const SendOptions& options, CReporter& reporter);

    // Sends until the input ends or a signal comes, and reports. Returns the exit code. Throws CHostError.
    int run();

private:
    // One flow of datagrams: the media, or the FEC packets on a port of their own.
    struct Flow {
        Flow(Socket socket, Endpoint to) : queue(std::move(socket)), remote(std::move(to)) {}

        CDatagramQueue queue;
        Endpoint remote;
        Endpoint local;
        bool isBlocked = false;  // waits for its socket
    };

    // Packets that were made, those dropped on purpose included.
    struct Tally {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint64_t dropped = 0;
    };

    // A datagram at the end of a queue that may not leave before its time.
    struct Release {
        kit::TimePoint when;
        Flow* flow;
    };

    static kit::SenderOptions senderOptions(const SendOptions& options);
    void openFecFlow();
    void openRtcp();
    void waitForSignals();

    // The cycle: take a picture, wait until it is due, send it, let its datagrams leave.
    void next();
    void begin(const CStoredPicture& first);
    void writeSdp(const StreamFacts& facts);
    void sendWhenDue();
    void sendPicture();
    double spreadingRate(const CStoredPicture& picture) const;
    void queue(const kit::Datagram& datagram);
    void pump();
    void flush(Flow& flow);
    void finish();
    void sayGoodbyeSoon();
    void sayGoodbye();
    void sayGoodbyeOfFec();
    void stop();
    std::uint32_t timestampOf(kit::TimePoint due) const;

    void tick();
    void sendReport(bool isLast);
    void capture(const Endpoint& from, const Endpoint& to, kit::BytesView bytes);
    void startIntervals();
    void showStatus();
    Json report();
    std::string describe();
    SendCounts socketCounts();

    Flow& fecFlow() { return m_fec ? *m_fec : m_media; }

    SendOptions m_options;
    CReporter& m_reporter;
    asio::io_context m_io;
    asio::steady_timer m_timer;          // of the cycle
    asio::steady_timer m_tickTimer;      // sender reports and the status line
    asio::steady_timer m_intervalTimer;  // of --stats
    asio::steady_timer m_goodbyeTimer;
    CPictureSource m_source;
    Endpoint m_remote;
    asio::signal_set m_signals;  // from before the sockets are there to after the report
    Flow m_media;
    std::optional<Flow> m_fec;  // when it has a port of its own
    Tally m_mediaTally;
    Tally m_fecTally;
    std::optional<CSenderRtcp> m_rtcp;
    std::optional<CCaptureFile> m_capture;
    std::optional<std::string> m_captureError;
    CLossModel m_losses;
    kit::SenderOptions m_senderOptions;
    kit::Sender m_sender;
    std::uint32_t m_firstTimestamp;

    std::optional<CStoredPicture> m_picture;  // taken, and not yet due
    std::optional<CSendSchedule> m_schedule;
    std::optional<kit::MediaClock> m_clock;
    std::optional<kit::Pacer> m_pacer;
    std::deque<Release> m_releases;
    bool m_isFinishing = false;
    bool m_isStopped = false;
    bool m_hasSaidGoodbye = false;

    kit::TimePoint m_start;
    std::uint32_t m_timestamp = 0;  // of the last picture
    double m_fps = 0;
    std::uint64_t m_refusedUnits = 0;
    std::string m_firstRefusal;
    std::uint64_t m_statusBytes = 0;  // made up to the last status line
    kit::TimePoint m_statusTime;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_SENDSESSION_H

// Keeps what a receiver tells about one source, and makes the report block of it.
//
//   kit::ReceptionReport reception(ssrc);
//   reception.onPacket(sequence, rtpTimestamp, now);   // every received media packet of the source
//   reception.onSenderReport(report.ntp, now);         // every sender report of the source
//   receiverReport.blocks = {reception.report(now)};   // once per report that is sent
//
// The counting is that of RFC 3550: sequence numbers by A.1, losses by A.3, jitter by A.8. Rebuilt packets
// are no received packets: losses are those of the network. The sender of the source finds its round-trip
// time in the block by roundTripTime(). No call allocates; one object serves one source on one thread.

#ifndef TALRTP_KIT_RECEPTIONREPORT_H
#define TALRTP_KIT_RECEPTIONREPORT_H

#include <talrtp/kit/RtcpPackets.h>
#include <talrtp/kit/Time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

namespace talrtp::kit {

// The middle 32 bits of a 64-bit NTP time: seconds modulo 65536, then their fraction in units of 1/65536 s.
// Report blocks carry times in this form. RFC 3550, 4.
constexpr std::uint32_t middleOfNtp(std::uint64_t ntp) {
    return static_cast<std::uint32_t>((ntp >> 16) & 0xffffffff);
}

// The reception state of one source.
class ReceptionReport {
public:
    // Counts packets of `ssrc`, whose RTP timestamps run at `clockRate` Hz.
    explicit ReceptionReport(std::uint32_t ssrc, std::uint32_t clockRate = 90000)
        : m_ssrc(ssrc), m_clockRate(clockRate) {}

    // Counts one packet of the source, duplicates and late ones included. `sequence` and `timestamp` are
    // those of its RTP header, `arrival` is when it arrived.
    //
    // A sequence number that jumps ahead by 3000 or more, or back by 100 or more, is not counted. When the
    // next packet follows it, the source began anew, and all counts begin anew with it. RFC 3550, A.1.
    void onPacket(std::uint16_t sequence, std::uint32_t timestamp, TimePoint arrival);

    // Notes a sender report of the source: the 64-bit NTP time in it, and its `arrival`.
    void onSenderReport(std::uint64_t ntp, TimePoint arrival) {
        m_lastSenderReport = middleOfNtp(ntp);
        m_senderReportArrival = arrival;
    }

    // Returns the block for a report that is sent at `now`, and begins the next interval: the fraction lost
    // counts from here on. Before the first packet, everything but the SSRC and the times of sender reports
    // is 0.
    ReportBlock report(TimePoint now);

    // Returns the source that the report is about.
    std::uint32_t ssrc() const { return m_ssrc; }
    // Tells whether any packet was counted.
    bool hasPackets() const { return m_hasPackets; }
    // The packets that arrived, duplicates included.
    std::uint64_t received() const { return m_received; }
    // The packets that the sequence numbers so far stand for.
    std::uint64_t expected() const { return m_hasPackets ? extendedHighest() - m_base + 1 : 0; }
    // Expected less received packets. Negative when duplicates outnumber losses.
    std::int64_t lost() const {
        return static_cast<std::int64_t>(expected()) - static_cast<std::int64_t>(m_received);
    }
    // Wrap-arounds of the sequence number, then the highest number: the number of the newest packet.
    std::uint64_t extendedHighest() const { return m_cycles + m_highest; }
    // The mean deviation of the packet spacing at arrival from that at sending, in units of the media clock.
    std::uint32_t jitter() const { return static_cast<std::uint32_t>(m_scaledJitter >> kJitterShift); }

private:
    static constexpr std::uint32_t kSequenceSpan = 0x10000;
    static constexpr std::uint32_t kMaxDropout = 3000;
    static constexpr std::uint32_t kMaxMisorder = 100;
    static constexpr std::uint32_t kNoSequence = kSequenceSpan + 1;
    static constexpr std::int64_t kMaxLoss = 0x7fffff;
    static constexpr std::int64_t kMinLoss = -0x800000;
    static constexpr unsigned int kJitterShift = 4;

    void start(std::uint16_t sequence);
    bool follow(std::uint16_t sequence);
    void addJitter(std::uint32_t timestamp, TimePoint arrival);
    std::uint32_t mediaTimeOf(TimePoint arrival) const;
    std::uint8_t fractionLost();
    std::uint32_t delaySince(TimePoint now) const;

    std::uint32_t m_ssrc;
    std::uint32_t m_clockRate;

    bool m_hasPackets = false;
    std::uint16_t m_highest = 0;
    std::uint64_t m_cycles = 0;                  // wrap-arounds, times 65536
    std::uint64_t m_base = 0;                    // the first sequence number
    std::uint32_t m_expectedNext = kNoSequence;  // would confirm that the source began anew
    std::uint64_t m_received = 0;

    std::uint64_t m_expectedPrior = 0;  // counts at the last report
    std::uint64_t m_receivedPrior = 0;

    bool m_hasTransit = false;
    std::uint32_t m_transit = 0;       // arrival less timestamp of the last packet, modulo 2^32
    std::uint64_t m_scaledJitter = 0;  // times 16

    std::uint32_t m_lastSenderReport = 0;
    std::optional<TimePoint> m_senderReportArrival;
};

// Returns the round-trip time that a report block tells the sender of the media. `arrivalNtp` is the 64-bit
// NTP time at which the block arrived, on the clock of the sender reports. Returns nothing when the receiver
// had no sender report yet. A difference below 0, which rounding can make, returns 0. RFC 3550, 6.4.1.
inline std::optional<Duration> roundTripTime(const ReportBlock& block, std::uint64_t arrivalNtp) {
    if (block.lastSenderReport == 0) {
        return std::nullopt;
    }
    const std::uint32_t elapsed =
        middleOfNtp(arrivalNtp) - block.lastSenderReport - block.delaySinceSenderReport;
    constexpr std::uint32_t kHalf = 0x80000000;
    const std::int64_t units = elapsed < kHalf ? elapsed : 0;
    // A unit of 1/65536 s is 15258.789 ns.
    const std::chrono::nanoseconds time((units * 1000000000) >> 16);
    return std::chrono::duration_cast<Duration>(time);
}

// ---- sequence numbers. RFC 3550, A.1

inline void ReceptionReport::start(std::uint16_t sequence) {
    m_hasPackets = true;
    m_highest = sequence;
    m_base = sequence;
    m_cycles = 0;
    m_expectedNext = kNoSequence;
    m_received = 0;
    m_expectedPrior = 0;
    m_receivedPrior = 0;
}

// Returns whether the packet counts.
inline bool ReceptionReport::follow(std::uint16_t sequence) {
    const std::uint32_t step = static_cast<std::uint16_t>(sequence - m_highest);
    if (step < kMaxDropout) {
        m_cycles += sequence < m_highest ? kSequenceSpan : 0;
        m_highest = sequence;
        m_expectedNext = kNoSequence;
        return true;
    }
    if (step > kSequenceSpan - kMaxMisorder) {
        return true;  // a duplicate or a late packet
    }
    if (sequence != m_expectedNext) {
        m_expectedNext = static_cast<std::uint16_t>(sequence + 1);
        return false;
    }
    start(sequence);
    m_hasTransit = false;
    return true;
}

inline void ReceptionReport::onPacket(std::uint16_t sequence, std::uint32_t timestamp, TimePoint arrival) {
    if (!m_hasPackets) {
        start(sequence);
    } else if (!follow(sequence)) {
        return;
    }
    ++m_received;
    addJitter(timestamp, arrival);
}

// ---- jitter. RFC 3550, A.8

// The arrival on the media clock, modulo 2^32. Whole seconds and the rest are scaled one by one, since their
// sum in nanoseconds, times the clock rate, passes 64 bits.
inline std::uint32_t ReceptionReport::mediaTimeOf(TimePoint arrival) const {
    const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(arrival.time_since_epoch());
    const std::int64_t nanosecondsPerSecond = 1000000000;
    std::int64_t seconds = since.count() / nanosecondsPerSecond;
    std::int64_t rest = since.count() % nanosecondsPerSecond;
    if (rest < 0) {
        rest += nanosecondsPerSecond;
        --seconds;
    }
    const std::uint32_t whole = static_cast<std::uint32_t>(static_cast<std::uint64_t>(seconds)) * m_clockRate;
    return whole + static_cast<std::uint32_t>(rest * std::int64_t{m_clockRate} / nanosecondsPerSecond);
}

inline void ReceptionReport::addJitter(std::uint32_t timestamp, TimePoint arrival) {
    const std::uint32_t transit = mediaTimeOf(arrival) - timestamp;
    if (m_hasTransit) {
        const std::uint32_t change = transit - m_transit;
        const std::uint32_t deviation = std::min(change, 0U - change);
        m_scaledJitter += deviation;
        m_scaledJitter -= (m_scaledJitter - deviation + (1U << (kJitterShift - 1))) >> kJitterShift;
    }
    m_transit = transit;
    m_hasTransit = true;
}

// ---- the report. RFC 3550, A.3

inline std::uint8_t ReceptionReport::fractionLost() {
    const std::uint64_t expectedNow = expected();
    const std::int64_t expectedInterval = static_cast<std::int64_t>(expectedNow - m_expectedPrior);
    const std::int64_t receivedInterval = static_cast<std::int64_t>(m_received - m_receivedPrior);
    m_expectedPrior = expectedNow;
    m_receivedPrior = m_received;
    const std::int64_t lostInterval = expectedInterval - receivedInterval;
    if (expectedInterval == 0 || lostInterval <= 0) {
        return 0;
    }
    return static_cast<std::uint8_t>(lostInterval * 256 / expectedInterval);
}

// In units of 1/65536 s, at most what 32 bits hold, which is more than 18 hours.
inline std::uint32_t ReceptionReport::delaySince(TimePoint now) const {
    if (!m_senderReportArrival || now <= *m_senderReportArrival) {
        return 0;
    }
    const auto delay = std::chrono::duration_cast<std::chrono::microseconds>(now - *m_senderReportArrival);
    constexpr std::int64_t kMost = 65535LL * 1000000;
    return static_cast<std::uint32_t>(std::min<std::int64_t>(delay.count(), kMost) * 65536 / 1000000);
}

inline ReportBlock ReceptionReport::report(TimePoint now) {
    ReportBlock block;
    block.ssrc = m_ssrc;
    block.lastSenderReport = m_lastSenderReport;
    block.delaySinceSenderReport = delaySince(now);
    if (m_hasPackets) {
        block.fractionLost = fractionLost();
        block.cumulativeLost = static_cast<std::int32_t>(std::clamp(lost(), kMinLoss, kMaxLoss));
        block.extendedHighest = static_cast<std::uint32_t>(extendedHighest() & 0xffffffff);
        block.jitter = jitter();
    }
    return block;
}

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RECEPTIONREPORT_H

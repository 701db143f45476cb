// Receives H.264 over RTP: takes every datagram of a port and plays pictures, each once, in decoding order.
//
//   kit::ReceiverOptions options;
//   kit::Receiver receiver(options, [&](const kit::Picture& picture) { decoder.feed(picture.annexB()); });
//
//   receiver.push(datagram, now);        // anything that arrived on the media port or the FEC port
//   auto next = receiver.poll(now);      // plays what is due; call again then, or with the next datagram
//   receiver.finish();                   // plays what is left
//
// It holds a session of the library, keeps from it whatever a session must not see, puts the units that it
// hands over back into order, asks it for cut units when a gap was not filled in time, and counts.

#ifndef TALRTP_KIT_RECEIVER_H
#define TALRTP_KIT_RECEIVER_H

#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Demux.h>
#include <talrtp/kit/Failure.h>
#include <talrtp/kit/PacketHead.h>
#include <talrtp/kit/Picture.h>
#include <talrtp/kit/PlayoutQueue.h>
#include <talrtp/kit/ReceiverOptions.h>
#include <talrtp/kit/SessionClock.h>
#include <talrtp/kit/SessionHandle.h>
#include <talrtp/kit/SourceFilter.h>
#include <talrtp/kit/StapUnitCutter.h>
#include <talrtp/kit/Statistics.h>
#include <talrtp/kit/Time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace talrtp::kit {

// Classifies a datagram.
enum class PushResult {
    media,        // a media packet of the source
    fec,          // an FEC packet of the source
    rtcp,         // for an `RtcpReader`
    notRtp,       // STUN, DTLS, ZRTP, TURN, or bytes of no known kind
    invalid,      // RTP with a header or padding that does not fit
    otherSource,  // a packet of another source
    unknownType,  // RTP with a payload type that is neither of the two
};

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wweak-vtables"  // header-only: no source file can hold the virtual table
#endif
// Passes hand-overs on to the owner's function.
template <typename Owner>
class HandoverSink final : public ITalRTPSessionSink {
public:
    // Borrows the owner, which has a `takeHandover`.
    explicit HandoverSink(Owner& owner) : m_owner(owner) {}
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override { m_owner.takeHandover(*packet); }

private:
    Owner& m_owner;
};
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

// Makes pictures of received datagrams.
//
// One thread at a time, as with a session. Neither copied nor moved.
class Receiver {
public:
    // Called for each picture, from within `push`, `poll` and `finish`, and outside of every call of the
    // session. It may call `push`, `poll`, `finish` and `statistics` of this receiver: pictures that become
    // due are then played within that call. It must not destroy the receiver. An exception passes through
    // to the host; the receiver goes on with the next picture.
    using Play = std::function<void(const Picture&)>;

    // Called from within `push` for each media packet that FEC rebuilt in time to be played, before its
    // picture is. **Lends** the packet for the call. It must not throw, and call nothing of this receiver.
    using Rebuilt = std::function<void(BytesView packet)>;

    // Throws `std::invalid_argument` when `options.check()` finds something or `play` is empty; without
    // exceptions, prints it and aborts.
    Receiver(const ReceiverOptions& options, Play play)
        : m_options(checked(options, play)),
          m_play(std::move(play)),
          m_sink(*this),
          m_sources(options.ssrc, options.sourceTimeout) {
        begin(options.firstSequence);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // Takes a datagram, borrowed, that arrived at `now`; plays what it completes, and what is due. Any bytes
    // are safe. Throws only what the host's function throws.
    PushResult push(BytesView datagram, TimePoint now) {
        const TimePoint time = m_time.advance(now);
        const PushResult result = classifyDatagram(datagram);
        switch (result) {
            case PushResult::media:
            case PushResult::fec:
                return takePacket(datagram, result == PushResult::fec, time);
            case PushResult::rtcp:
                ++m_counts.rtcpDatagrams;
                break;
            case PushResult::notRtp:
                ++m_counts.notRtpDatagrams;
                break;
            case PushResult::invalid:
                ++m_counts.invalidDatagrams;
                break;
            case PushResult::unknownType:
                ++m_counts.unknownTypeDatagrams;
                break;
            case PushResult::otherSource:
                break;
        }
        return result;
    }

    // Plays what is due at `now`. **Returns** the next time at which to call, unless a datagram arrives
    // before; none when nothing waits.
    std::optional<TimePoint> poll(TimePoint now) {
        playDue(m_time.advance(now));
        const std::optional<TimePoint> due = m_queue->dueTime();
        return due ? std::optional<TimePoint>(m_time.toHost(*due)) : std::nullopt;
    }

    // Plays everything that is left, for the end of a stream. More may be pushed afterwards.
    void finish() {
        PlayoutQueue::Due due;
        while (m_queue->findFirst(due)) {
            playFirst(due);
        }
    }

    // Sets the function for rebuilt packets, for captures and traces; none is called unless set.
    void onRebuilt(Rebuilt rebuilt) { m_rebuilt = std::move(rebuilt); }

    // Counts since the receiver was made.
    Statistics statistics() const {
        Statistics sum = m_counts;
        m_session->addCountersTo(sum);
        return sum;
    }

    // The source whose packets are taken; none before the first packet unless the options name one.
    std::optional<std::uint32_t> ssrc() const { return m_sources.ssrc(); }

private:
    friend class HandoverSink<Receiver>;

    using Verdict = PlayoutQueue::Verdict;

    static constexpr std::size_t kMaxDatagram = 65535;

    static const ReceiverOptions& checked(const ReceiverOptions& options, const Play& play) {
        refuseUnlessEmpty(play ? options.check() : "a receiver needs a function that plays");
        return options;
    }

    // Begins with a new session and nothing known of the source, unless its first number is.
    void begin(std::optional<std::uint16_t> firstSequence) {
        if (m_session) {
            m_session->addCountersTo(m_counts);
        }
        m_session.reset();
        m_session = std::make_unique<SessionHandle>(&m_sink, m_options.ssrc.value_or(0));
        (*m_session)->SetPayloadType(m_options.payloadType, m_options.fecPayloadType);
        (*m_session)->SetFecType(m_options.fec == FecScheme::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
        m_queue.emplace(m_options.wait, !m_options.parameterSets.empty(), firstSequence);
        m_hasPlayedParameterSets = false;
        m_recovered = 0;
    }

    // --- Datagrams ---

    bool isFecType(unsigned int payloadType) const {
        return m_options.fec != FecScheme::kNone && payloadType == m_options.fecPayloadType;
    }

    // Classifies by the bytes only, without the source.
    PushResult classifyDatagram(BytesView datagram) const {
        const DatagramKind kind = classify(datagram);
        if (kind != DatagramKind::kRtp) {
            return kind == DatagramKind::kRtcp ? PushResult::rtcp : PushResult::notRtp;
        }
        const unsigned int type = datagram[1] & 0x7fU;
        const bool isFec = isFecType(type);
        if (datagram.size() > kMaxDatagram ||
            !isValidRtp(datagram, isFec && m_options.fec == FecScheme::kXor)) {
            return PushResult::invalid;
        }
        if (isFec) {
            return PushResult::fec;
        }
        return type == m_options.payloadType ? PushResult::media : PushResult::unknownType;
    }

    PushResult takePacket(BytesView datagram, bool isFec, TimePoint now) {
        switch (m_sources.judge(datagram, isFec, now)) {
            case SourceFilter::Verdict::kTake:
                break;
            case SourceFilter::Verdict::kOther:
                ++m_counts.otherSourceDatagrams;
                return PushResult::otherSource;
            case SourceFilter::Verdict::kTakeOver:
                --m_counts.otherSourceDatagrams;  // the one kept
                beginWith(m_sources.releaseFirst(), datagram, now);
                playDue(now);
                return PushResult::media;  // FEC packets never make a new source
        }
        m_ssrc = readBig32(datagram, 8);
        if (isFec) {
            feed(datagram, now);
        } else {
            takeMedia(datagram, now);
        }
        playDue(now);
        return isFec ? PushResult::fec : PushResult::media;
    }

    // It may begin anew and is then called for the two first packets of the new stream, which are near each
    // other: no deeper.
    // NOLINTNEXTLINE(misc-no-recursion)
    void takeMedia(BytesView datagram, TimePoint now) {
        const PacketHead head = PacketHeadReader::read(datagram);
        Verdict verdict = m_queue->note(head, now);
        while (verdict == Verdict::kFull) {
            PlayoutQueue::Due due;
            m_queue->findFirst(due);
            playFirst(due);
            verdict = m_queue->note(head, now);
        }
        if (verdict == Verdict::kFarOff) {
            takeFarOff(datagram, head, now);
            return;
        }
        m_farOff.drop();
        m_counts.latePackets += verdict == Verdict::kLate ? 1 : 0;
        m_counts.doubledPackets += verdict == Verdict::kDoubled ? 1 : 0;
        m_counts.strayPackets += verdict == Verdict::kStray ? 1 : 0;
        if (verdict == Verdict::kFresh || verdict == Verdict::kLate) {
            feed(datagram, now);
        }
    }

    // A number far off the stream is put aside. When the next one continues it, the sender began anew
    // (RFC 3550, A.1).
    // NOLINTNEXTLINE(misc-no-recursion)
    void takeFarOff(BytesView datagram, const PacketHead& head, TimePoint now) {
        if (!m_farOff.isContinuedBy(head.sequence)) {
            ++m_counts.strayPackets;
            m_farOff.keep(datagram, head.sequence);
            return;
        }
        --m_counts.strayPackets;  // the one kept
        ++m_counts.restarts;
        beginWith(m_farOff.release(), datagram, now);
    }

    // Plays what is left, and begins anew with those media packets. When the host's function throws, all of
    // that is done first.
    // NOLINTNEXTLINE(misc-no-recursion)
    void beginWith(const std::vector<std::uint8_t>& first, BytesView second, TimePoint now) {
        HeldException exception;
        while (!m_queue->isEmpty()) {
            exception.run([this] { finish(); });
        }
        begin(std::nullopt);
        m_farOff.drop();
        m_ssrc = readBig32(first, 8);
        takeMedia(first, now);
        takeMedia(second, now);
        exception.rethrow();
    }

    // --- The session ---

    void feed(BytesView datagram, TimePoint now) {
        const unsigned long milliseconds = m_sessionTime.advance(now, datagram.size());
        m_cutter.beginCall();
        // The session copies the bytes and only reads them.
        (*m_session)
            ->InputReceivedData(const_cast<unsigned char*>(datagram.data()),
                                static_cast<int>(datagram.size()), milliseconds);
        const std::uint64_t recovered = m_session->recoveredCount();
        if (recovered != m_recovered) {
            m_queue->beginAt(m_session->firstMediaSequence(), now);
            noteRebuilt(recovered - m_recovered, now);
            m_recovered = recovered;
        }
    }

    // Looks for packets that the session rebuilt, `count` of them: among the missing numbers, and after the
    // highest, where the end of a group was lost.
    void noteRebuilt(std::uint64_t count, TimePoint now) {
        m_queue->visitMissing([&](std::uint16_t sequence) {
            count -= noteIfRebuilt(sequence, now) ? 1 : 0;
            return count > 0;
        });
        const std::uint16_t first = m_queue->sequenceAfterHighest();
        for (unsigned int ahead = 0; count > 0 && ahead < kMaxGroupAhead; ++ahead) {
            count -= noteIfRebuilt(static_cast<std::uint16_t>(first + ahead), now) ? 1 : 0;
        }
    }

    bool noteIfRebuilt(std::uint16_t sequence, TimePoint now) {
        const CTalRtpPacket* const packet = m_session->findMediaPacket(sequence);
        if (packet == nullptr) {
            return false;
        }
        const BytesView bytes(packet->get_buffer(), static_cast<std::size_t>(packet->get_packet_size()));
        const bool isNoted =
            isValidRtp(bytes, false) && m_queue->noteRebuilt(PacketHeadReader::read(bytes), now);
        if (isNoted && m_rebuilt) {
            m_rebuilt(bytes);
        }
        return isNoted;
    }

    // From the sink, within a call of the session.
    void takeHandover(CTalRtpPacket& packet) {
        const std::size_t declared = static_cast<std::size_t>(packet.get_payload_size());
        const std::uint16_t sequence = packet.get_sequence_number();
        const StapUnitCutter::Cut cut = m_cutter.cut(packet.get_timestamp(), sequence, declared);
        const bool isWhole = packet.get_packet_type() == PACKET_TYPE_UNITS;
        const BytesView unit(packet.get_payload_ptr(), cut.size);
        if (!m_queue->addUnit(sequence, cut.index, unit, isWhole, m_time.now())) {
            ++m_counts.refusedUnits;
        }
    }

    // --- Pictures ---

    void playDue(TimePoint now) {
        PlayoutQueue::Due due;
        while (m_queue->findDue(now, due)) {
            playFirst(due);
        }
    }

    // Plays the first picture of the queue. Everything is in order again before the host's function is
    // called, so that it may throw or call this receiver.
    void playFirst(const PlayoutQueue::Due& due) {
        if (due.needsForce) {
            m_cutter.beginCall();
            (*m_session)->ForceHandover(due.timestamp);
        }
        Lent picture(*this);
        const bool isPlayable = m_queue->take(*picture);
        count(*picture, isPlayable);
        if (isPlayable) {
            addParameterSets(*picture);
            PictureMaker::facts(*picture).ssrc = m_ssrc;
            PictureMaker::close(*picture);
            m_counts.playedUnits += picture->units().size();
            m_play(*picture);
        }
    }

    void count(const Picture& picture, bool isPlayable) {
        m_counts.lostPackets += picture.missingPackets();
        m_counts.rebuiltPackets += picture.rebuiltPackets();
        ++(!isPlayable            ? m_counts.skippedPictures
           : picture.isComplete() ? m_counts.completePictures
                                  : m_counts.cutPictures);
    }

    // Puts the parameter sets of the options before the first picture, unless it brings its own.
    void addParameterSets(Picture& picture) {
        if (m_hasPlayedParameterSets) {
            return;
        }
        m_hasPlayedParameterSets = true;
        if (!m_options.parameterSets.empty()) {
            PictureMaker::prepend(picture, m_options.parameterSets);
        }
    }

    // A picture from the store of the receiver, for as long as the host looks at it. There are as many as
    // calls of the host's function run inside each other: one, mostly.
    class Lent {
    public:
        explicit Lent(Receiver& receiver) : m_receiver(receiver), m_picture(receiver.takePicture()) {}
        ~Lent() { m_receiver.m_pictures.push_back(std::move(m_picture)); }
        Lent(const Lent&) = delete;
        Lent& operator=(const Lent&) = delete;
        Picture& operator*() const { return *m_picture; }
        Picture* operator->() const { return m_picture.get(); }

    private:
        Receiver& m_receiver;
        std::unique_ptr<Picture> m_picture;
    };

    std::unique_ptr<Picture> takePicture() {
        if (m_pictures.empty()) {
            m_pictures.reserve(m_pictures.capacity() + 1);  // so that giving it back does not allocate
            return std::make_unique<Picture>();
        }
        std::unique_ptr<Picture> picture = std::move(m_pictures.back());
        m_pictures.pop_back();
        return picture;
    }

    // An XOR group spans 24 numbers, a Reed-Solomon group 255.
    static constexpr unsigned int kMaxGroupAhead = 256;

    ReceiverOptions m_options;
    Play m_play;
    Rebuilt m_rebuilt;
    Statistics m_counts;
    SteadyTime m_time;
    SessionClock m_sessionTime;
    HandoverSink<Receiver> m_sink;
    SourceFilter m_sources;
    KeptDatagram m_farOff;
    StapUnitCutter m_cutter;
    std::unique_ptr<SessionHandle> m_session;  // calls the sink, so it goes before it
    std::optional<PlayoutQueue> m_queue;
    std::vector<std::unique_ptr<Picture>> m_pictures;
    std::uint32_t m_ssrc = 0;       // of the pictures that wait
    std::uint64_t m_recovered = 0;  // rebuilt packets that the queue was told of
    bool m_hasPlayedParameterSets = false;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_RECEIVER_H

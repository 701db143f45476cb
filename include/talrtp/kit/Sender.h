// The sending end: pictures in, RTP packets out, FEC packets included.
//
//   kit::Sender sender(options, [&](const kit::Datagram& d) { socket.send(d.bytes); });
//
//   sender.sendPicture(timestamp, units);   // for each picture, in decoding order
//
//   sender.flush();                         // at the end of the stream, or before a pause
//
// Small units share a STAP-A, long ones are cut into FU-A fragments, and no packet exceeds the MTU, FEC
// packets included. The marker bit stands on the last packet of a picture only. FEC packets follow the last
// media packet of their group.
//
// A unit that RTP cannot carry is refused and the rest is sent. A sender keeps the packets of its largest
// picture for reuse: in the steady state it allocates nothing.

#ifndef TALRTP_KIT_SENDER_H
#define TALRTP_KIT_SENDER_H

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Datagram.h>
#include <talrtp/kit/Failure.h>
#include <talrtp/kit/FecGrouping.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/kit/PackingPlan.h>
#include <talrtp/kit/SenderOptions.h>
#include <talrtp/kit/SessionHandle.h>
#include <talrtp/kit/Statistics.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace talrtp::kit {

// More packets for one picture would come too close to where 16-bit sequence numbers repeat.
constexpr std::size_t kMaxPicturePackets = 8192;

// How the sending of one picture went.
struct SendResult {
    std::size_t sentUnits = 0;     // units that went out
    std::size_t refusedUnits = 0;  // units that RTP cannot carry
    std::size_t packets = 0;       // media packets sent in the call
    std::size_t fecPackets = 0;    // FEC packets sent in the call, those of earlier pictures included
    std::string error;  // the first refusal: unit, size, type and reason; empty when there was none

    // Nothing was refused.
    explicit operator bool() const { return error.empty(); }
};

// Makes the RTP and FEC packets of pictures.
//
// One thread at a time. Different senders and receivers may be used on different threads at the same time.
class Sender {
public:
    // Takes each packet, in the order in which to send. **Lends** the datagram for the call. It must not call
    // the sender. An exception from it ends the picture: what was not sent yet is dropped, and the next
    // picture is sent as if nothing had been.
    using Send = std::function<void(const Datagram&)>;

    // Throws `std::invalid_argument` when `options.check()` finds something or `send` is empty; without
    // exceptions, prints it and aborts.
    Sender(const SenderOptions& options, Send send)
        : m_options(checked(options, send)),
          m_send(std::move(send)),
          m_maxMediaPacket(maxMediaPacket(options.mtu, options.fec.scheme)),
          m_planner(m_maxMediaPacket, options.aggregate),
          m_grouping(options.fec),
          m_session(nullptr, options.ssrc),
          m_parity(options.fec.scheme == FecScheme::kReedSolomon
                       ? static_cast<std::size_t>(options.fec.parity)
                       : 0,
                   options.mtu),
          m_xorPacket(options.mtu) {
        m_session->SetPayloadType(options.payloadType, options.fecPayloadType);
        m_session->SetFecType(options.fec.scheme == FecScheme::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
        if (options.firstSequence) {
            m_session.setNextSequence(*options.firstSequence);
        }
        if (options.firstFecSequence) {
            m_session.setNextFecSequence(*options.firstFecSequence);
        }
    }

    // Sends one picture. `timestamp`: its RTP timestamp. `units`: any range of things that convert to
    // BytesView, each a NAL unit without start code, in decoding order; **borrowed** for the call.
    template <typename Units>
    SendResult sendPicture(std::uint32_t timestamp, Units&& units) {
        m_units.clear();
        for (auto&& unit : units) {
            m_units.push_back(BytesView(unit));
        }
        return sendUnits(timestamp);
    }
    // Likewise, for units that are listed at the call.
    SendResult sendPicture(std::uint32_t timestamp, std::initializer_list<BytesView> units) {
        if (units.size() == 1 && isOnePacket(*units.begin())) {
            return sendOnePacket(timestamp, *units.begin());
        }
        m_units.assign(units);
        return sendUnits(timestamp);
    }

    // Sends one picture from a byte stream, start codes of 3 or 4 bytes. `accessUnit` is **borrowed** for the
    // call. Bytes without a start code are refused whole, as one unit.
    SendResult sendAnnexB(std::uint32_t timestamp, BytesView accessUnit) {
        m_units.clear();
        if (!forEachUnit(accessUnit, [this](BytesView unit) { m_units.push_back(unit); })) {
            SendResult result;
            ++m_refusedUnits;
            result.refusedUnits = 1;
            result.error = std::to_string(accessUnit.size()) + " bytes without a start code (00 00 01)";
            return result;
        }
        return sendUnits(timestamp);
    }

    // Sends the FEC packets of pictures that still wait for company. They wait for the next picture, which
    // does not come at the end of a stream.
    void flush() {
        SendResult ignored;
        sendRun(m_waiting, m_waiting, true, ignored);
    }

    // Returns the counters up to now; those of receiving are 0.
    Statistics statistics() const {
        Statistics sum;
        m_session.addCountersTo(sum);
        sum.sentPictures = m_sentPictures;
        sum.sentUnits = m_sentUnits;
        sum.refusedUnits = m_refusedUnits;
        return sum;
    }

    // Returns the options as given.
    const SenderOptions& options() const { return m_options; }

private:
    using Packets = PacketArray<CTalRtpPacket>;

    static const SenderOptions& checked(const SenderOptions& options, const Send& send) {
        refuseUnlessEmpty(send ? options.check() : "a sender needs a function that sends");
        return options;
    }

    // Sends what `m_units` holds.
    SendResult sendUnits(std::uint32_t timestamp) {
        if (m_units.size() == 1 && isOnePacket(m_units[0])) {
            return sendOnePacket(timestamp, m_units[0]);
        }
        SendResult result;
        leaveOutWhatRtpCannotCarry(result);
        m_planner.plan(m_units, m_steps);
        const std::size_t count = limitPackets(result);
        const std::size_t waiting = m_waiting;
        makeRoom(waiting + count);
        makePackets(timestamp, m_run.data() + waiting);
        m_sentPictures += count > 0 ? 1 : 0;
        m_sentUnits += result.sentUnits;
        m_refusedUnits += result.refusedUnits;
        sendRun(waiting, waiting + count, false, result);
        return result;
    }

    // Tells whether a picture of one unit is one packet without FEC: nothing to plan, and the marker is right
    // as the session sets it. At a low bitrate most pictures are of this kind.
    bool isOnePacket(BytesView unit) const {
        return m_options.fec.scheme == FecScheme::kNone &&
               unit.size() <= static_cast<std::size_t>(m_maxMediaPacket - kRtpHeaderSize) &&
               whyNotCarried(unit) == nullptr;
    }

    SendResult sendOnePacket(std::uint32_t timestamp, BytesView unit) {
        makeRoom(1);
        m_session->CreateSinglePacket(timestamp, static_cast<int>(unit.size()), writable(unit), m_run.data());
        ++m_sentPictures;
        ++m_sentUnits;
        SendResult result;
        result.sentUnits = 1;
        result.packets = 1;
        pass(m_run[0], false);
        return result;
    }

    void leaveOutWhatRtpCannotCarry(SendResult& result) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_units.size(); ++i) {
            const char* const reason = whyNotCarried(m_units[i]);
            if (reason == nullptr) {
                m_units[kept++] = m_units[i];
            } else {
                refuse(i, m_units[i], reason, result);
            }
        }
        m_units.resize(kept);
    }

    // Takes the steps out of the plan for which the picture has no packets left. Returns the packets of the
    // others. Positions are those that the host knows unless a unit was refused before, and then the error is
    // about that one.
    std::size_t limitPackets(SendResult& result) {
        std::size_t count = 0;
        std::size_t kept = 0;
        for (const PackStep step : m_steps) {
            if (step.packetCount > kMaxPicturePackets - count) {
                refuseStep(step, count, result);
                continue;
            }
            count += step.packetCount;
            result.sentUnits += step.unitCount;
            m_steps[kept++] = step;
        }
        m_steps.resize(kept);
        return count;
    }

    void refuseStep(const PackStep& step, std::size_t taken, SendResult& result) const {
        const std::string reason = "it takes " + std::to_string(step.packetCount) + " packets of at most " +
                                   std::to_string(m_maxMediaPacket) + " bytes, and a picture has " +
                                   std::to_string(kMaxPicturePackets - taken) + " left of " +
                                   std::to_string(kMaxPicturePackets);
        for (std::size_t i = 0; i < step.unitCount; ++i) {
            refuse(step.firstUnit + i, m_units[step.firstUnit + i], reason.c_str(), result);
        }
    }

    static void refuse(std::size_t index, BytesView unit, const char* reason, SendResult& result) {
        ++result.refusedUnits;
        if (!result.error.empty()) {
            return;
        }
        const bool hasType = !unit.empty() && unit.data() != nullptr;
        result.error = "unit " + std::to_string(index) + " (" + std::to_string(unit.size()) + " bytes" +
                       (hasType ? ", type " + std::to_string(nalType(unit)) : "") +
                       ") cannot be sent: " + reason;
    }

    // Makes room for `count` packets. Those that wait for FEC are few, and stay.
    void makeRoom(std::size_t count) {
        if (count <= m_run.size()) {
            return;
        }
        Packets larger(count + count / 4, m_maxMediaPacket);
        for (std::size_t i = 0; i < m_waiting; ++i) {
            larger[i] = m_run[i];
        }
        m_run = std::move(larger);
    }

    // Fills the packets from `packet` on as the plan says. A session sets the marker on the last packet of
    // each step, where it stays on that of the picture only.
    void makePackets(std::uint32_t timestamp, CTalRtpPacket* packet) {
        for (const PackStep& step : m_steps) {
            const BytesView unit = m_units[step.firstUnit];
            const int size = static_cast<int>(unit.size());
            switch (step.kind) {
                case PackKind::kSingle:
                    m_session->CreateSinglePacket(timestamp, size, writable(unit), packet);
                    break;
                case PackKind::kFragments:
                    m_session->CreateFuaPackets(timestamp, size, writable(unit),
                                                static_cast<int>(step.packetCount), packet);
                    break;
                case PackKind::kAggregate:
                    aggregate(timestamp, step, packet);
                    break;
            }
            packet += step.packetCount;
            (packet - 1)->set_marker_flag(&step == &m_steps.back());
        }
    }

    void aggregate(std::uint32_t timestamp, const PackStep& step, CTalRtpPacket* packet) {
        m_sizes.clear();
        m_pointers.clear();
        for (std::size_t i = step.firstUnit; i < step.firstUnit + step.unitCount; ++i) {
            m_sizes.push_back(static_cast<int>(m_units[i].size()));
            m_pointers.push_back(writable(m_units[i]));
        }
        m_session->CreateStapaPacket(timestamp, static_cast<int>(step.unitCount), m_sizes.data(),
                                     m_pointers.data(), packet);
    }

    // The session's operations take writable pointers and only read.
    static unsigned char* writable(BytesView unit) { return const_cast<unsigned char*>(unit.data()); }

    // Sends packets `next` to `count` of the run, of which those before were sent already, and the FEC
    // packets of each group after its last packet. Unless `isLast`, a run that is too short for a group
    // waits.
    void sendRun(std::size_t next, std::size_t count, bool isLast, SendResult& result) {
        const bool isWaiting = !isLast && m_grouping.isTooFew(count);
        m_waiting = isWaiting ? count : 0;  // before the host's function, which may throw
        m_grouping.cut(isWaiting ? 0 : count, m_groups);
        std::size_t end = 0;
        for (const std::size_t size : m_groups) {
            end += size;
            sendMedia(next, end, result);
            next = std::max(next, end);
            protect(m_run.data() + (end - size), static_cast<int>(size), result);
        }
        sendMedia(next, count, result);
    }

    void sendMedia(std::size_t next, std::size_t end, SendResult& result) {
        for (; next < end; ++next) {
            ++result.packets;
            pass(m_run[next], false);
        }
    }

    void protect(CTalRtpPacket* packets, int count, SendResult& result) {
        if (m_options.fec.scheme == FecScheme::kXor) {
            constexpr unsigned int kAll = 0xffffffff;
            m_session->CreateXorFecPackets(packets, count, kAll, &m_xorPacket);
            ++result.fecPackets;
            pass(m_xorPacket, true);
            return;
        }
        m_session->CreateRsFecPackets(packets, count, m_parity.data(), m_options.fec.parity);
        for (std::size_t i = 0; i < m_parity.size(); ++i) {
            ++result.fecPackets;
            pass(m_parity[i], true);
        }
    }

    // Reads the header where it lies (RFC 3550, 5.1): an accessor of the library is a call each.
    void pass(const CTalRtpPacket& packet, bool isFec) const {
        constexpr unsigned int kMarkerBit = 0x80;
        const std::uint8_t* const bytes = packet.get_buffer();
        Datagram datagram;
        datagram.bytes = BytesView(bytes, static_cast<std::size_t>(packet.get_packet_size()));
        datagram.isFec = isFec;
        datagram.sequence = static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]);
        datagram.timestamp = static_cast<std::uint32_t>(bytes[4]) << 24 |
                             static_cast<std::uint32_t>(bytes[5]) << 16 |
                             static_cast<std::uint32_t>(bytes[6]) << 8 | bytes[7];
        datagram.isLastOfPicture = !isFec && (bytes[1] & kMarkerBit) != 0;
        m_send(datagram);
    }

    SenderOptions m_options;
    Send m_send;
    int m_maxMediaPacket;
    PackingPlanner m_planner;
    FecGrouping m_grouping;
    SessionHandle m_session;

    Packets m_run;              // media packets: first those that wait for FEC, then those of the picture
    std::size_t m_waiting = 0;  // how many of m_run were sent and have no FEC yet
    Packets m_parity;           // Reed-Solomon FEC packets of one group
    CRTPFECPacket m_xorPacket;

    // Memory that one call uses and the next one uses again.
    std::vector<BytesView> m_units;
    std::vector<PackStep> m_steps;
    std::vector<std::size_t> m_groups;
    std::vector<int> m_sizes;
    std::vector<unsigned char*> m_pointers;

    std::uint64_t m_sentPictures = 0;
    std::uint64_t m_sentUnits = 0;
    std::uint64_t m_refusedUnits = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_SENDER_H

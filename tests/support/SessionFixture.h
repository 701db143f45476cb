// The stage on which the session tests play: a recording sink, a trace catcher, a session whose protected
// members can be read, and verbs that feed it.
//
//   at(1000);                                    // the host's clock, milliseconds
//   media(7);                                    // a datagram with a small NAL unit that tells its number
//   expectDelivered({7});                        // one hand-over, since the last look
//   expectLines({warning("CMMRTPSession4SVC::...")});   // every trace line, since the last look

#ifndef TALRTP_TESTS_SESSIONFIXTURE_H
#define TALRTP_TESTS_SESSIONFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpSession.h>

#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "Datagrams.h"
#include "DocumentedLeak.h"
#include "ExpectedLine.h"
#include "Probe.h"
#include "RecordingSink.h"
#include "TraceCatcher.h"

namespace talrtp {
namespace test {

constexpr unsigned int kSourceId = 0x0a0b0c0d;  // SSRC of what the sessions under test send: 168496141

// Packet objects one after the other, as the sending operations expect them.
template <typename Packet>
class PacketArray {
public:
    PacketArray(int count, int capacity)
        : m_count(count),
          m_packets(
              static_cast<Packet*>(::operator new(static_cast<std::size_t>(count) * sizeof(Packet) + 1))) {
        for (int i = 0; i < count; ++i) {
            new (m_packets + i) Packet(capacity);
        }
    }
    ~PacketArray() {
        for (int i = 0; i < m_count; ++i) {
            m_packets[i].~Packet();
        }
        ::operator delete(m_packets);
    }
    PacketArray(const PacketArray&) = delete;
    PacketArray& operator=(const PacketArray&) = delete;

    Packet& operator[](int i) { return m_packets[i]; }
    operator Packet*() { return m_packets; }

private:
    int m_count;
    Packet* m_packets;
};

// Media packets with consecutive numbers and the FEC packets over them, as a sending session makes them, of
// which the network loses some.
class Group {
public:
    Group(unsigned int fecType, unsigned short firstSeq, unsigned short firstFecSeq,
          const std::vector<Bytes>& units, int fecCount = 1, unsigned int timestamp = kTimestamp)
        : m_firstSeq(firstSeq) {
        const TraceCatcher silence(-1);
        SvcProbe sender(nullptr, kPeerId);
        sender.SetFecType(fecType);
        sender.m_sequenceNumber = firstSeq;
        sender.m_fecSequenceNumber = firstFecSeq;
        const int count = static_cast<int>(units.size());
        PacketArray<CTalRtpPacket> packets(count, 2000);
        for (int i = 0; i < count; ++i) {
            const Bytes& unit = units[static_cast<std::size_t>(i)];
            sender.CreateSinglePacket(timestamp, static_cast<int>(unit.size()),
                                      const_cast<unsigned char*>(unit.data()), &packets[i]);
            media.push_back(bytesOf(packets[i]));
        }
        if (fecType == RTP_FEC_XOR) {
            CRTPFECPacket parity(2000);
            sender.CreateXorFecPackets(packets, count, 0xffffffff, &parity);
            fec.push_back(bytesOf(parity));
        } else {
            PacketArray<CTalRtpPacket> parities(fecCount, 2100);
            sender.CreateRsFecPackets(packets, count, parities, fecCount);
            for (int i = 0; i < fecCount; ++i) {
                fec.push_back(bytesOf(parities[i]));
            }
        }
    }

    // The network loses the media packet with that number.
    void lose(unsigned short seq) { m_lost.insert(seq); }

    // The media packets that arrive, in order.
    std::vector<Bytes> arriving() const {
        std::vector<Bytes> result;
        for (std::size_t i = 0; i < media.size(); ++i) {
            if (m_lost.count(static_cast<unsigned short>(m_firstSeq + i)) == 0) {
                result.push_back(media[i]);
            }
        }
        return result;
    }

    std::vector<Bytes> media;
    std::vector<Bytes> fec;

private:
    unsigned short m_firstSeq;
    std::set<unsigned short> m_lost;
};

// Single NAL units, one for each number from `first` on.
inline std::vector<Bytes> unitsFrom(unsigned short first, int count) {
    std::vector<Bytes> result;
    for (int i = 0; i < count; ++i) {
        result.push_back(unitOf(static_cast<unsigned short>(first + i)));
    }
    return result;
}

// A hand-over that a test expects.
struct Delivery {
    unsigned short seq;
    Bytes payload;
    unsigned int packetType;
};

template <typename Session>
class SessionTest : public ::testing::Test {
protected:
    // The host's clock.
    void at(unsigned long ms) { now = ms; }
    // The timestamp of the media datagrams that follow.
    void picture(unsigned int ts) { timestamp = ts; }

    // Lets a datagram arrive, in a buffer of exactly its size.
    int receive(const Bytes& datagram) {
        Bytes exact(datagram);
        exact.shrink_to_fit();
        return session.InputReceivedData(exact.data(), static_cast<int>(exact.size()), now);
    }
    // The same for a datagram that validation refuses: its packet is left allocated.
    int receiveRefused(const Bytes& datagram) {
        const DocumentedLeak leak;
        return receive(datagram);
    }
    void receiveAll(const std::vector<Bytes>& datagrams) {
        for (const Bytes& datagram : datagrams) {
            receive(datagram);
        }
    }
    int media(unsigned short seq) { return media(seq, unitOf(seq)); }
    int media(unsigned short seq, const Bytes& payload) { return receive(rtp(seq, timestamp, payload)); }

    // The hand-overs since the last look: one whole unit of `media(seq)` for each number, in that order.
    void expectDelivered(const std::vector<unsigned short>& seqs) {
        std::vector<Delivery> expected;
        for (const unsigned short seq : seqs) {
            const bool isSvc = std::is_base_of<CMMRTPSession4SVC, Session>::value;
            expected.push_back({seq, isSvc ? inByteStream(unitOf(seq)) : unitOf(seq), 0});
        }
        expectHandovers(expected);
    }
    void expectHandovers(const std::vector<Delivery>& expected) {
        ASSERT_EQ(sink.handovers.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            SCOPED_TRACE("hand-over " + std::to_string(i));
            EXPECT_EQ(sink.handovers[i].seq, expected[i].seq);
            EXPECT_EQ(sink.handovers[i].payload, expected[i].payload);
            EXPECT_EQ(sink.handovers[i].packetType, expected[i].packetType);
        }
        sink.handovers.clear();
    }

    // The trace lines since the last look.
    void expectLines(const std::vector<ExpectedLine>& expected) {
        std::vector<testing::Matcher<const TraceLine&>> matchers;
        for (const ExpectedLine& line : expected) {
            matchers.push_back(IsLine(line));
        }
        EXPECT_THAT(trace.lines(), testing::ElementsAreArray(matchers));
        trace.clear();
    }

    TraceCatcher trace{2};
    RecordingSink sink;
    Session session{&sink, kSourceId};
    unsigned long now = 1000;
    unsigned int timestamp = kTimestamp;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_SESSIONFIXTURE_H

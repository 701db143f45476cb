// Ten minutes of a stream, by a clock of the test: loss, reordering, duplicates, both wrap-arounds, a sender
// that begins anew, and a receiver's clock that jumps. Every whole unit that comes out is one that was sent,
// almost all that were sent come out, and the memory in use stays level.

#include <gtest/gtest.h>
#include <malloc.h>
#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/Sender.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Bytes.h"
#include "SeededRandom.h"

namespace talrtp {
namespace {

using test::Bytes;

constexpr unsigned long kPictureMs = 40;
constexpr unsigned long kSoakMs = 600000;
constexpr std::uint32_t kClockTicksPerMs = 90;
constexpr std::size_t kStartCodeSize = 4;
constexpr std::size_t kNumberOffset = 1;  // where a unit holds its own number, four bytes after its header

// A unit that tells its number.
Bytes unitOf(std::uint32_t number, std::size_t size) {
    Bytes unit(size);
    unit[0] = 0x41;
    for (std::size_t i = 0; i < 4; ++i) {
        unit[kNumberOffset + i] = static_cast<std::uint8_t>(1 + (number >> (7 * i)) % 128);
    }
    for (std::size_t i = kNumberOffset + 4; i < size; ++i) {
        unit[i] = static_cast<std::uint8_t>(1 + (number * 31 + i * 7) % 255);
    }
    return unit;
}

std::uint32_t numberOf(const Bytes& unit) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        number |= static_cast<std::uint32_t>(unit[kNumberOffset + i] - 1) << (7 * i);
    }
    return number;
}

// Bytes that malloc has handed out, large blocks included. AddressSanitizer counts none.
std::size_t bytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Compares what the session hands over with what was sent.
class Receiver : public ITalRTPSessionSink {
public:
    explicit Receiver(unsigned long fecType) {
        TalCreateRTPSession(&m_session, this, 7, 2);
        m_session->SetFecType(fecType);
    }
    ~Receiver() override { TalDestroyRTPSession(m_session); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void push(Bytes datagram, unsigned long nowMs) {
        m_session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), nowMs);
    }

    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        if (packet->get_packet_type() != 0) {
            return;  // cut
        }
        const unsigned char* const payload = packet->get_payload_ptr();
        take(Bytes(payload + kStartCodeSize, payload + packet->get_payload_size()));
    }

    std::map<std::uint32_t, std::size_t> sent;  // sizes of the units that may still come, by number
    std::uint64_t wholeUnits = 0;
    std::uint64_t wrongUnits = 0;

private:
    void take(const Bytes& unit) {
        const auto known = unit.size() > kNumberOffset + 4 ? sent.find(numberOf(unit)) : sent.end();
        if (known == sent.end() || unit != unitOf(known->first, known->second)) {
            ++wrongUnits;
            return;
        }
        ++wholeUnits;
        sent.erase(known);
    }

    ITalRTPSession* m_session = nullptr;
};

// Loses 3 %, doubles 2 %, and lets one in ten arrive up to 60 ms late.
class Network {
public:
    Network(std::uint32_t seed, Receiver& receiver) : m_random(seed), m_receiver(receiver) {}

    void send(kit::BytesView datagram, unsigned long nowMs) {
        if (m_random.between(1, 100) <= 3) {
            return;
        }
        for (int copies = m_random.oneIn(50) ? 2 : 1; copies > 0; --copies) {
            const unsigned long delay = m_random.oneIn(10) ? m_random.between(1, 60) : 0;
            m_onTheWay.emplace(nowMs + delay, Bytes(datagram.begin(), datagram.end()));
        }
    }

    // `skewMs` is what the receiver's clock shows beyond the network's.
    void deliver(unsigned long nowMs, unsigned long skewMs) {
        while (!m_onTheWay.empty() && m_onTheWay.begin()->first <= nowMs) {
            Bytes datagram = std::move(m_onTheWay.begin()->second);
            m_onTheWay.erase(m_onTheWay.begin());
            m_receiver.push(std::move(datagram), nowMs + skewMs);
        }
    }

private:
    test::SeededRandom m_random;
    Receiver& m_receiver;
    std::multimap<unsigned long, Bytes> m_onTheWay;
};

struct Account {
    std::uint32_t sentUnits = 0;
    std::uint64_t wholeUnits = 0;
    std::uint64_t wrongUnits = 0;
    std::size_t mostBytesInMinute2 = 0;
    std::size_t mostBytesAfter = 0;
};

Account soak(kit::Fec fec, unsigned long fecType, std::uint32_t seed) {
    Account account;
    Receiver receiver(fecType);
    Network network(seed, receiver);
    test::SeededRandom random(seed + 1);
    unsigned long now = 0;
    unsigned long skew = 3600000;
    std::uint32_t run = 0;
    std::uint32_t timestamp = 0;
    std::unique_ptr<kit::Sender> sender;
    // A run begins far from the numbers of the last one, and close before the wrap-around of both.
    const auto beginRun = [&] {
        kit::SenderOptions options;
        options.ssrc = 1000 + run;
        options.fec = fec;
        options.aggregate = false;  // so that a hand-over is one unit
        options.firstSequence = static_cast<std::uint16_t>(run % 2 == 0 ? 65000 : 25000);
        options.firstFecSequence = static_cast<std::uint16_t>(run % 2 == 0 ? 65500 : 30000);
        timestamp = run % 2 == 0 ? 0xffff0000U : 0x40000000U;
        ++run;
        sender = std::make_unique<kit::Sender>(
            options, [&](const kit::Datagram& datagram) { network.send(datagram.bytes, now); });
    };
    for (; now < kSoakMs; now += kPictureMs) {
        if (now % 150000 == 0) {
            beginRun();
        }
        if (now == 200000) {
            skew += 86400000;  // a day forward
        } else if (now == 400000) {
            skew -= 86400000;
        }
        std::vector<Bytes> picture;
        for (std::uint32_t units = random.between(1, 3); units > 0; --units) {
            const std::size_t size =
                random.oneIn(25) ? random.between(20000, 40000) : random.between(20, 9000);
            receiver.sent[account.sentUnits] = size;
            picture.push_back(unitOf(account.sentUnits++, size));
        }
        sender->sendPicture(timestamp, picture);
        sender->flush();
        timestamp += kPictureMs * kClockTicksPerMs;
        network.deliver(now, skew);
        // Nothing is handed over later than the 5 s for which a session keeps packets.
        receiver.sent.erase(receiver.sent.begin(),
                            receiver.sent.lower_bound(account.sentUnits - std::min(account.sentUnits, 400U)));
        std::size_t& most = now < 120000 ? account.mostBytesInMinute2 : account.mostBytesAfter;
        if (now >= 60000 && now % 1000 == 0) {
            most = std::max(most, bytesInUse());
        }
    }
    account.wholeUnits = receiver.wholeUnits;
    account.wrongUnits = receiver.wrongUnits;
    return account;
}

void expectLevel(const Account& account) {
    EXPECT_EQ(account.wrongUnits, 0U);
    // FEC leaves less than one unit in a hundred cut; each new run and each jump of the clock may cost a few
    // more.
    EXPECT_GT(account.wholeUnits, account.sentUnits * 0.98);
    EXPECT_LE(account.wholeUnits, account.sentUnits);
    // The kept five seconds of a bitrate that varies; a leak of one packet in ten would be ten times as much.
    EXPECT_LT(account.mostBytesAfter, account.mostBytesInMinute2 + (1U << 20));
}

TEST(Soak, TenMinutesWithReedSolomonStayLevel) {
    expectLevel(soak(kit::Fec::reedSolomon(10, 4), RTP_FEC_RS, 20261));
}

TEST(Soak, TenMinutesWithXorStayLevel) {
    expectLevel(soak(kit::Fec::xorParity(3), RTP_FEC_XOR, 20262));
}

}  // namespace
}  // namespace talrtp

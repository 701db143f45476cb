// Holds the library's receiving side against the plain model: both get the same calls, and after each one
// every hand-over, result, trace line, counter, list and record must be alike.
//
//   DifferentialTest                                  the normal run, 100,000 calls over all kinds of traffic
//   DifferentialTest --datagrams=5000000 --seed=7     the long one: more calls, another draw
//
// Options of GoogleTest select single kinds of traffic as usual. A run that fails prints its seed and
// its last calls.

#include "model/Duel.h"
#include "model/Traffic.h"

#include <gtest/gtest.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace talrtp {
namespace model {
namespace {

constexpr int kKindsOfTraffic = 12;
constexpr int kSessionLength = 2500;  // datagrams until both sides start again
constexpr int kDerivedPercent = 50;

std::uint64_t g_datagrams = 100000;
std::uint64_t g_seed = 20240229;

// ------------------------------------------------------------------------------------------------ The tests

// The events of a run, by which a test checks that its traffic served its purpose.
struct Met {
    std::uint64_t handOvers = 0;
    std::uint64_t recovered = 0;
    std::uint64_t refused = 0;
    std::uint64_t forced = 0;
    std::uint64_t agedOut = 0;
};

class DifferentialTest : public ::testing::Test {
protected:
    // Plays one kind of traffic, session after session. With `changesPercent` the sessions are derived ones,
    // which change their lists so often before a call.
    Met play(const Profile& profile, int changesPercent = 0) {
        m_changesPercent = changesPercent;
        Met met;
        Random random(g_seed * 1000003 + std::hash<std::string>()(profile.name));
        RecordProperty("seed", std::to_string(g_seed));
        for (std::uint64_t left = g_datagrams / kKindsOfTraffic; left > 0 && !HasFatalFailure();) {
            const std::uint64_t now = std::min<std::uint64_t>(left, kSessionLength);
            playSession(random, profile, static_cast<int>(now), met);
            left -= now;
        }
        return met;
    }

private:
    void playSession(Random& random, const Profile& profile, int datagrams, Met& met) {
        const std::unique_ptr<Duel> duel = makeDuel(profile.session, !random.percent(4),
                                                    m_changesPercent > 0 || random.percent(kDerivedPercent));
        Traffic traffic(random, profile, duel->model());
        std::deque<std::string> lastCalls;
        while (datagrams > 0) {
            if (m_changesPercent > 0 && random.percent(m_changesPercent)) {
                const std::uint64_t draw = random.next();
                note(lastCalls, "change of a list, draw " + std::to_string(draw));
                ASSERT_EQ("", duel->changeLists(draw)) << report(profile, "", lastCalls);
            }
            const Action action = traffic.next();
            const std::size_t recordsBefore = duel->model().timestamps.size();
            const std::string difference = duel->play(action, true);
            note(lastCalls, action.describe());
            if (!difference.empty()) {
                FAIL() << report(profile, difference, lastCalls);
            }
            count(action, *duel, recordsBefore, met);
            datagrams -= action.kind == Action::kInput ? 1 : 0;
        }
        met.recovered += duel->model().counters.recovered;
        ASSERT_EQ("", duel->close()) << "seed " << g_seed << ", " << profile.name;
    }

    static void note(std::deque<std::string>& lastCalls, const std::string& call) {
        constexpr std::size_t kNoted = 6;
        lastCalls.push_back(call);
        if (lastCalls.size() > kNoted) {
            lastCalls.pop_front();
        }
    }

    static void count(const Action& action, const Duel& duel, std::size_t recordsBefore, Met& met) {
        const ReceiveModel& model = duel.model();
        met.handOvers += model.handOvers.size();
        met.forced += action.kind == Action::kForceHandover ? model.handOvers.size() : 0;
        met.agedOut += model.timestamps.size() < recordsBefore ? 1 : 0;
        for (const Line& line : model.lines) {
            met.refused += line.message.find("validate failed") != std::string::npos ? 1 : 0;
        }
    }

    static std::string report(const Profile& profile, const std::string& difference,
                              const std::deque<std::string>& lastCalls) {
        std::string text = "seed " + std::to_string(g_seed) + ", " + profile.name + "\n" + difference;
        for (const std::string& call : lastCalls) {
            text += "  " + call + "\n";
        }
        return text;
    }

    int m_changesPercent = 0;
};

// name, fec, lost, burst, delayed, farthest, repeated, decorated, forged, small world, forced, tick,
// clock jumps, changes, near wrap, session

TEST_F(DifferentialTest, CleanStream) {
    const Met met =
        play({"clean stream", FecUse::kXor, 0, 0, 0, 0, 0, 10, 0, 0, 2, 60, 0, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.handOvers, 0U);
    EXPECT_EQ(met.recovered, 0U);
}

TEST_F(DifferentialTest, LossyStreamWithXor) {
    const Met met =
        play({"lossy XOR", FecUse::kXor, 8, 1, 20, 12, 3, 10, 0, 0, 4, 60, 1, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
}

TEST_F(DifferentialTest, LossyStreamWithReedSolomon) {
    const Met met =
        play({"lossy RS", FecUse::kRs, 10, 1, 20, 12, 3, 10, 0, 0, 4, 60, 1, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
}

TEST_F(DifferentialTest, HostileDatagrams) {
    const Met met = play(
        {"hostile", FecUse::kEither, 5, 1, 20, 12, 5, 20, 30, 25, 5, 60, 2, 10, false, SessionKind::kSvc});
    EXPECT_GT(met.refused, 0U);
    EXPECT_GT(met.handOvers, 0U);
}

TEST_F(DifferentialTest, SmallWorldWhereEverythingMeets) {
    const Met met = play({"small world", FecUse::kEither, 5, 1, 20, 12, 5, 20, 20, 96, 12, 150, 6, 8, false,
                          SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, NumbersAndTimestampsThatWrapAround) {
    const Met met = play(
        {"wrap-around", FecUse::kEither, 8, 1, 20, 12, 3, 10, 2, 30, 6, 60, 2, 3, true, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
}

TEST_F(DifferentialTest, ClockThatStepsBothWays) {
    const Met met = play(
        {"clock steps", FecUse::kEither, 8, 1, 20, 12, 3, 10, 2, 40, 6, 60, 30, 3, false, SessionKind::kSvc});
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, AgeingAndLateRetransmission) {
    const Met met = play(
        {"ageing", FecUse::kEither, 8, 1, 30, 150, 10, 10, 2, 10, 6, 150, 10, 3, false, SessionKind::kSvc});
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, MixedTraffic) {
    const Met met =
        play({"mixed", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8, 20, 5, 15, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.refused, 0U);
}

TEST_F(DifferentialTest, SessionWithoutKnowledgeOfH264) {
    const Met met = play({"base session", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8, 10, 5, 10, false,
                          SessionKind::kBase});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, SessionsThatChangeTheirLists) {
    const Met met = play({"changed lists", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8, 20, 5, 15, false,
                          SessionKind::kSvc},
                         30);
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.handOvers, 0U);
}

TEST_F(DifferentialTest, BaseSessionsThatChangeTheirLists) {
    const Met met = play({"changed lists of base sessions", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8,
                          10, 5, 10, false, SessionKind::kBase},
                         30);
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.handOvers, 0U);
}

// ----------------------------------------------------------------------------------------- Calls by hand

constexpr unsigned int kTimestamp = 0x1000;

Action input(int payloadType, int seq, const Bytes& payload, std::uint64_t time) {
    // clang-format off
    const Bytes header = {0x80, static_cast<unsigned char>(payloadType),
                          static_cast<unsigned char>(seq >> 8), static_cast<unsigned char>(seq),
                          0, 0, kTimestamp >> 8, 0,
                          1, 2, 3, 4};
    // clang-format on
    Bytes data(header.size() + payload.size());
    std::copy(payload.begin(), payload.end(), std::copy(header.begin(), header.end(), data.begin()));
    const int length = static_cast<int>(data.size());
    return {Action::kInput, std::move(data), false, length, time, 0, 0};
}

Action setFecType(unsigned long fecType) {
    return {Action::kSetFecType, Bytes(), false, 0, 0, fecType, 0};
}

Action forceHandover() {
    return {Action::kForceHandover, Bytes(), false, 0, 0, kTimestamp, 0};
}

TEST(DifferentialFecKindTest, StoredXorPacketCountsAsTheParityShardOfItsNumber) {
    // clang-format off
    const Bytes protectsTwo = {0, 200, 0, 0,     // base 200 | length
                               0, 0xc0, 0, 0,    // payload type | mask: 200 and 201
                               0, 0, 0, 0,       // timestamp
                               99};              // parity
    Bytes secondOfTwo = {0, 220, 0, 0,           // base 220 | length
                         1, 2, 2, 0};            // index | parity packets | media packets | reserved
    // clang-format on
    secondOfTwo.resize(8 + 20, 55);
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", duel->play(setFecType(RTP_FEC_XOR), true));
    ASSERT_EQ("", duel->play(input(111, 100, protectsTwo, 1000), true));
    ASSERT_EQ("", duel->play(setFecType(RTP_FEC_RS), true));
    EXPECT_EQ("", duel->play(input(111, 101, secondOfTwo, 1000), true));
    // Two shards for two packets: it is decoded, to lengths of 0, and not kept.
    EXPECT_EQ(duel->model().lines.at(0).message,
              "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
              "fecSeq = 101, fecIndex = 1, fecBaseSeq = 100, fecNum = 2, packetBaseSeq = 220, packetNum = 2");
    EXPECT_EQ(duel->model().fecPackets.count(101), 0U);
    EXPECT_EQ("", duel->close());
}

constexpr int kNumbers = 65536;
constexpr int kLastStored = 501;
constexpr std::uint8_t kMiddle = 0x05;
constexpr std::uint8_t kStart = 0x85;

Action fragment(int seq, std::uint8_t fuHeader, std::uint64_t time) {
    return input(98, seq, {0x7c, fuHeader, static_cast<unsigned char>(seq * 7)}, time);
}

// Stores a fragment under every number: every second one first, the others from above, so that runs stay
// short until the last.
std::string storeAllNumbers(Duel& duel, std::uint8_t lastFuHeader) {
    std::string text;
    for (int i = 1; i < kNumbers && text.empty(); i += 2) {
        text = duel.play(fragment(kLastStored + i, kMiddle, 1000), false);
    }
    for (int i = kNumbers - 2; i > 0 && text.empty(); i -= 2) {
        text = duel.play(fragment(kLastStored + i, kMiddle, 1000), false);
    }
    return text + duel.play(fragment(kLastStored, lastFuHeader, 1000), true);
}

TEST(DifferentialFullListTest, NoFragmentStartsAnywhere) {
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", storeAllNumbers(*duel, kMiddle));
    EXPECT_EQ("", duel->play(forceHandover(), true));
    EXPECT_EQ("", duel->play(fragment(77, kStart, 6000), true));
    EXPECT_EQ("", duel->play(fragment(77, kStart, 6001), true));
    EXPECT_EQ(duel->model().mediaPackets.size(), 1U);
    EXPECT_EQ("", duel->close());
}

TEST(DifferentialFullListTest, OneRunGoesAllTheWayRound) {
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", storeAllNumbers(*duel, kStart));
    EXPECT_EQ(duel->model().timestamps.at(kTimestamp).dataInfoMap.at(kLastStored).packetCount, kNumbers);
    EXPECT_EQ("", duel->play(forceHandover(), true));
    EXPECT_EQ(duel->model().handOvers.size(), 1U);
    EXPECT_EQ("", duel->close());
}

bool readOption(const std::string& argument, const std::string& name, std::uint64_t& value) {
    if (argument.compare(0, name.size(), name) != 0) {
        return false;
    }
    value = std::strtoull(argument.c_str() + name.size(), nullptr, 10);
    return true;
}

}  // namespace
}  // namespace model
}  // namespace talrtp

int main(int argc, char** argv) {
#ifdef __GLIBC__
    mallopt(M_PERTURB, 0xa5);  // so that a byte which nobody wrote is never 0 by chance
#endif
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (!talrtp::model::readOption(argv[i], "--datagrams=", talrtp::model::g_datagrams) &&
            !talrtp::model::readOption(argv[i], "--seed=", talrtp::model::g_seed)) {
            std::fprintf(stderr, "unknown option %s; there are --datagrams=N and --seed=N\n", argv[i]);
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}

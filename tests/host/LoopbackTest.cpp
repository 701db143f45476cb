// The loopback of the host program, run in this process: real and made streams through the network model and
// back, compared unit by unit with what was read, and the report's numbers with those of a model of their
// own.

#include "HostError.h"
#include "SeededRandom.h"
#include "loopback/Loopback.h"

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/PackingPlan.h>
#include <talrtp/kit/Sender.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>

namespace talrtp::host {
namespace {

using kit::FecScheme;
using test::SeededRandom;
using NalUnit = std::vector<std::uint8_t>;

const char* const kStreams[] = {"own-testsrc2-640x360-4slices.264", "own-svc-320x180-t4-prefix.264",
                                "own-testsrc2-320x180-bframes.264"};

std::string load(const std::string& name) {
    std::ifstream file(TALRTP_MEDIA_DIR "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::vector<NalUnit> unitsOf(const std::string& stream) {
    std::vector<NalUnit> units;
    kit::forEachUnit(stream, [&](kit::BytesView unit) { units.emplace_back(unit.begin(), unit.end()); });
    return units;
}

std::string streamOf(const std::vector<NalUnit>& units) {
    std::string stream;
    for (const NalUnit& unit : units) {
        stream.append(std::begin(kit::kStartCode), std::end(kit::kStartCode));
        stream.append(unit.begin(), unit.end());
    }
    return stream;
}

struct Outcome {
    LoopbackReport report;
    std::vector<NalUnit> units;
};

Outcome run(const std::string& stream, const LoopbackOptions& options) {
    std::istringstream input(stream);
    std::ostringstream output;
    Outcome result;
    result.report = runLoopback(options, input, &output, [](std::uint64_t) { return true; });
    result.units = unitsOf(output.str());
    return result;
}

LoopbackOptions withFec(FecScheme scheme, int group, int parity) {
    LoopbackOptions options;
    options.sender.fec = {scheme, group, parity};
    return options;
}

// Sums that hold for every run.
void expectConsistent(const LoopbackReport& report) {
    const AuditCounts& audit = report.audit;
    EXPECT_TRUE(audit.isGood());
    EXPECT_EQ(report.refused, 0u);
    EXPECT_EQ(audit.units, audit.whole + audit.cut + audit.missing);
    EXPECT_EQ(audit.lostPackets, audit.rebuildable + audit.notRebuildable);
    EXPECT_EQ(audit.lostPackets, report.mediaFlow.lost);
    EXPECT_EQ(report.mediaFlow.sent, report.single.count + report.aggregate.count + report.fragments.count);
    EXPECT_EQ(report.fecFlow.sent, report.fec.count);
}

TEST(Loopback, StreamsComeBackThroughReorderingAndDuplicates) {
    for (const char* const name : kStreams) {
        const std::string stream = load(name);
        const std::vector<NalUnit> units = unitsOf(stream);
        ASSERT_FALSE(units.empty());
        for (const int mtu : {200, 1200, 1500}) {
            for (const bool isAggregating : {true, false}) {
                SCOPED_TRACE(testing::Message()
                             << name << ", MTU " << mtu << ", aggregation " << isAggregating);
                LoopbackOptions options;
                options.sender.mtu = mtu;
                options.sender.aggregate = isAggregating;
                options.network.reorder = 20;
                options.network.duplicate = 0.1;
                const Outcome result = run(stream, options);
                EXPECT_TRUE(result.units == units);
                expectConsistent(result.report);
                EXPECT_EQ(result.report.audit.whole, units.size());
                EXPECT_GT(result.report.mediaFlow.reordered, 0u);
                EXPECT_GT(result.report.mediaFlow.duplicated, 0u);
                EXPECT_EQ(result.report.aggregate.count > 0, isAggregating);
            }
        }
    }
}

TEST(Loopback, StreamsComeBackUnderEveryFecScheme) {
    const LoopbackOptions table[] = {
        {}, withFec(FecScheme::kXor, 5, 1), withFec(FecScheme::kReedSolomon, 10, 2)};
    for (const char* const name : kStreams) {
        const std::string stream = load(name);
        for (LoopbackOptions options : table) {
            for (const int mtu : {200, 1200, 1500}) {
                SCOPED_TRACE(testing::Message() << name << ", MTU " << mtu);
                options.sender.mtu = mtu;
                options.network = {0, 0, 12, 0.05, 3};
                const Outcome result = run(stream, options);
                expectConsistent(result.report);
                EXPECT_TRUE(result.units == unitsOf(stream));
                options.network.loss = 0.06;
                const LoopbackReport lossy = run(stream, options).report;
                expectConsistent(lossy);
                EXPECT_GT(lossy.audit.lostPackets, 0u);
            }
        }
    }
}

// As many FEC packets as media packets, in small groups, make up for every loss of these runs.
TEST(Loopback, BPicturesComeBackInOrderThroughLossReorderingAndFec) {
    const std::string stream = load(kStreams[2]);
    const std::vector<NalUnit> units = unitsOf(stream);
    for (const int mtu : {200, 1200, 1500}) {
        for (const double burst : {0.0, 2.0}) {
            SCOPED_TRACE(testing::Message() << "MTU " << mtu << ", burst " << burst);
            LoopbackOptions options = withFec(FecScheme::kReedSolomon, 12, 12);
            options.sender.mtu = mtu;
            options.network = {0.03, burst, 16, 0.05, 5};
            const Outcome result = run(stream, options);
            expectConsistent(result.report);
            EXPECT_GT(result.report.audit.lostPackets, 0u);
            EXPECT_EQ(result.report.audit.notRebuildable, 0u);
            EXPECT_TRUE(result.units == units);
        }
    }
}

TEST(Loopback, CountsUnitsByType) {
    const LoopbackReport report = run(load(kStreams[1]), {}).report;
    EXPECT_EQ(report.pictures, 90u);
    EXPECT_EQ(report.units[kit::kNalSlice].count, 174u);
    EXPECT_EQ(report.units[kit::kNalIdrSlice].count, 6u);
    EXPECT_EQ(report.units[kit::kNalSps].count, 3u);
    EXPECT_EQ(report.units[kit::kNalPps].count, 3u);
    EXPECT_EQ(report.units[kit::kNalPrefix].count, 180u);
}

// Which of the first packets of a media-only flow are lost, by a network model of the test's own.
std::vector<bool> replayLosses(const NetworkOptions& options, std::size_t packets) {
    CNetwork network(options);
    std::vector<bool> lost;
    for (std::size_t i = 0; i < packets; ++i) {
        lost.push_back(!network.send(CNetwork::kMedia, {}, i));
    }
    return lost;
}

// The expected fate of the units, found with the plan and the losses and without the library.
struct Expected {
    std::vector<NalUnit> whole;  // all of whose packets arrived
    std::uint64_t cut = 0;       // whose first packet arrived, and another did not
};

Expected expectFrom(const std::string& stream, const LoopbackOptions& options,
                    const std::vector<bool>& lost) {
    const kit::PackingPlanner planner(options.sender.mtu, options.sender.aggregate);
    Expected expected;
    std::size_t packet = 0;
    kit::AccessUnitSplitter splitter([&](const kit::AccessUnit& picture) {
        for (const kit::PackStep& step : planner.plan(picture.units())) {
            const std::size_t end = packet + step.packetCount;
            const bool isHit =
                std::find(lost.begin() + packet, lost.begin() + end, true) != lost.begin() + end;
            for (std::size_t i = 0; i < step.unitCount && !isHit; ++i) {
                const kit::BytesView unit = picture.units()[step.firstUnit + i];
                expected.whole.emplace_back(unit.begin(), unit.end());
            }
            expected.cut += isHit && !lost[packet] ? 1 : 0;
            packet = end;
        }
    });
    splitter.push(stream);
    splitter.finish();
    EXPECT_EQ(packet, lost.size());
    return expected;
}

// Tells whether `part` is `all` with some units left out.
bool isSubsequence(const std::vector<NalUnit>& part, const std::vector<NalUnit>& all) {
    auto next = all.begin();
    for (const NalUnit& unit : part) {
        next = std::find(next, all.end(), unit);
        if (next == all.end()) {
            return false;
        }
        ++next;
    }
    return true;
}

TEST(Loopback, EveryUnitWithoutALostPacketComesBackAndTheNumbersAddUp) {
    for (const char* const name : kStreams) {
        const std::string stream = load(name);
        for (const int mtu : {200, 1200}) {
            for (std::uint64_t seed = 1; seed <= 5; ++seed) {
                SCOPED_TRACE(testing::Message() << name << ", MTU " << mtu << ", seed " << seed);
                LoopbackOptions options;
                options.sender.mtu = mtu;
                options.network.loss = 0.05;
                options.network.reorder = static_cast<int>(seed) * 3 - 3;
                options.network.duplicate = 0.05;
                options.network.seed = seed;
                const Outcome result = run(stream, options);
                expectConsistent(result.report);

                const std::vector<bool> lost = replayLosses(options.network, result.report.mediaFlow.sent);
                const Expected expected = expectFrom(stream, options, lost);
                EXPECT_EQ(result.report.audit.lostPackets,
                          static_cast<std::uint64_t>(std::count(lost.begin(), lost.end(), true)));
                EXPECT_GT(result.report.audit.lostPackets, 0u);
                EXPECT_EQ(result.report.audit.whole, expected.whole.size());
                EXPECT_EQ(result.report.audit.cut, expected.cut);
                EXPECT_EQ(result.report.audit.couldArrive, expected.whole.size());
                EXPECT_EQ(result.units.size(), result.report.audit.whole + result.report.audit.cut);
                EXPECT_TRUE(isSubsequence(expected.whole, result.units));
            }
        }
    }
}

// Without reordering a packet is rebuilt only if it was lost, so the session's own count is that of the
// losses which the groups can make up for.
TEST(Loopback, TheSessionRebuildsWhatTheLossesLetItRebuild) {
    struct {
        FecScheme scheme;
        int group;
        int parity;
        double burst;
    } const table[] = {
        {FecScheme::kXor, 5, 1, 0},           {FecScheme::kXor, 24, 1, 2},
        {FecScheme::kXor, 1, 1, 0},           {FecScheme::kReedSolomon, 10, 2, 0},
        {FecScheme::kReedSolomon, 10, 4, 3},  {FecScheme::kReedSolomon, 1, 1, 0},
        {FecScheme::kReedSolomon, 250, 5, 2},
    };
    for (const char* const name : kStreams) {
        const std::string stream = load(name);
        for (const auto& row : table) {
            for (std::uint64_t seed = 1; seed <= 4; ++seed) {
                LoopbackOptions options = withFec(row.scheme, row.group, row.parity);
                options.sender.mtu = 400;
                options.network.loss = 0.08;
                options.network.burst = row.burst;
                options.network.seed = seed;
                SCOPED_TRACE(testing::Message() << name << ", group " << row.group << ", seed " << seed);
                const LoopbackReport report = run(stream, options).report;
                expectConsistent(report);
                EXPECT_GT(report.audit.rebuildable, 0u);
                EXPECT_EQ(report.rebuiltBySession, report.audit.rebuildable);
            }
        }
    }
}

TEST(Loopback, FecAndReorderingGoTogether) {
    const std::string stream = load(kStreams[0]);
    for (const FecScheme scheme : {FecScheme::kXor, FecScheme::kReedSolomon}) {
        for (std::uint64_t seed = 1; seed <= 4; ++seed) {
            SCOPED_TRACE(testing::Message() << "seed " << seed);
            LoopbackOptions options = withFec(scheme, 7, 1);
            options.network = {0.05, 0, 40, 0.1, seed};
            const LoopbackReport report = run(stream, options).report;
            expectConsistent(report);
            EXPECT_GE(report.rebuiltBySession, report.audit.rebuildable);
        }
    }
}

TEST(Loopback, TheSameSeedGivesTheSameReport) {
    LoopbackOptions options = withFec(FecScheme::kReedSolomon, 10, 2);
    options.network = {0.1, 2, 10, 0.1, 7};
    const std::string stream = load(kStreams[1]);
    const Outcome first = run(stream, options);
    const Outcome second = run(stream, options);
    EXPECT_TRUE(first.units == second.units);
    EXPECT_EQ(first.report.mediaFlow.lost, second.report.mediaFlow.lost);
    EXPECT_EQ(first.report.fecFlow.reordered, second.report.fecFlow.reordered);
    options.network.seed = 8;
    EXPECT_NE(run(stream, options).report.mediaFlow.reordered, first.report.mediaFlow.reordered);
}

TEST(Loopback, WhenAllIsLostNothingComesBack) {
    LoopbackOptions options = withFec(FecScheme::kXor, 5, 1);
    options.network.loss = 1;
    const Outcome result = run(load(kStreams[1]), options);
    expectConsistent(result.report);
    EXPECT_TRUE(result.units.empty());
    EXPECT_EQ(result.report.audit.missing, 366u);
    EXPECT_EQ(result.report.audit.lostPackets, result.report.mediaFlow.sent);
}

// One picture in 70,000 packets would be too many; here each unit is a picture of its own, and the sequence
// numbers and the timestamps, at 1000 a second, go around while packets come late.
TEST(Loopback, SequenceNumbersMayGoAround) {
    SeededRandom random(70);
    SCOPED_TRACE(random.describe());
    std::vector<NalUnit> units;
    for (int i = 0; i < 70000; ++i) {
        NalUnit unit = random.nalUnit(0x41, 6);
        unit[1] |= 0x80;
        units.push_back(unit);
    }
    LoopbackOptions options;
    options.fps = 1000;
    options.network.reorder = 5;
    const Outcome result = run(streamOf(units), options);
    expectConsistent(result.report);
    EXPECT_TRUE(result.units == units);
}

// 80,000 packets in what would be 20 milliseconds: the link makes them last, or numbers would come again
// while the session still knows them.
TEST(Loopback, ALinkKeepsSequenceNumbersApart) {
    SeededRandom random(80);
    SCOPED_TRACE(random.describe());
    std::vector<NalUnit> units;
    for (int i = 0; i < 20; ++i) {
        units.push_back(random.nalUnit(0x41, 8000));
        units.back()[1] |= 0x80;
    }
    LoopbackOptions options;
    options.fps = 1000;
    options.sender.mtu = 16;
    const Outcome result = run(streamOf(units), options);
    EXPECT_EQ(result.report.fragments.count, 80000u);
    expectConsistent(result.report);
    EXPECT_TRUE(result.units == units);
}

// Units of every size around what a packet holds, in pictures of a few, at small MTUs.
TEST(Loopback, MadeStreamsComeBackAtEveryMtu) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::vector<NalUnit> units;
        for (int i = 0; i < 120; ++i) {
            units.push_back(
                random.nalUnit(random.oneIn(9) ? 0x06 : 0x41, random.between(2, random.oneIn(6) ? 900 : 80)));
            if (units.back()[0] == 0x41) {
                units.back()[1] = random.oneIn(3) ? 0x80 : 0x40;
            }
        }
        LoopbackOptions options;
        options.sender.fec.scheme = static_cast<FecScheme>(seed % 3);
        options.sender.fec.maxMedia = static_cast<int>(random.between(1, 24));
        options.sender.fec.parity = seed % 3 == 1 ? 1 : static_cast<int>(random.between(1, 4));
        options.sender.aggregate = random.oneIn(2);
        options.sender.mtu = static_cast<int>(random.between(36, 120));
        options.network.reorder = static_cast<int>(random.between(0, 30));
        options.network.duplicate = 0.2;
        options.fps = random.oneIn(2) ? 1 : 60;
        const Outcome whole = run(streamOf(units), options);
        expectConsistent(whole.report);
        EXPECT_TRUE(whole.units == units);
        options.network.loss = 0.15;
        expectConsistent(run(streamOf(units), options).report);
    }
}

TEST(Loopback, UnitsThatRtpCannotCarryAreLeftOutAndCounted) {
    const Outcome result = run(streamOf({{0x67, 1}, {0x7f, 1, 2}, {0x60, 9}, {0x65, 0x80}}), {});
    expectConsistent(result.report);
    EXPECT_EQ(result.report.skipped.count, 2u);
    EXPECT_EQ(result.report.skipped.bytes, 5u);
    EXPECT_EQ(result.units, (std::vector<NalUnit>{{0x67, 1}, {0x65, 0x80}}));
}

std::string complaintAbout(const std::string& stream, const LoopbackOptions& options = {}) {
    try {
        run(stream, options);
    } catch (const CHostError& problem) {
        return problem.what();
    }
    return "";
}

TEST(Loopback, RefusesWhatIsNoStream) {
    EXPECT_EQ(complaintAbout(""), "the file is empty");
    EXPECT_EQ(complaintAbout("no video"), "no start code (00 00 01) in it: this is no H.264 byte stream");
    EXPECT_EQ(complaintAbout(std::string("\0\0\1\0\0\1\0", 7)), "no NAL unit in it");
}

TEST(Loopback, RefusesAPictureOfTooManyPackets) {
    LoopbackOptions options;
    options.sender.mtu = 16;
    const std::string most = streamOf({NalUnit(2 * kit::kMaxPicturePackets, 0x65)});
    const std::string tooMany = streamOf({NalUnit(2 * kit::kMaxPicturePackets + 1, 0x65)});
    EXPECT_EQ(complaintAbout(most, options), "");
    EXPECT_EQ(complaintAbout(tooMany, options),
              "a picture needs 8193 packets of at most 16 bytes, more than 8192: choose a larger --mtu");
}

TEST(Loopback, AnInterruptionEndsTheRun) {
    std::istringstream input(load(kStreams[1]));
    EXPECT_THROW(runLoopback({}, input, nullptr, [](std::uint64_t) { return false; }), CHostError);
}

TEST(Loopback, AFailingOutputEndsTheRun) {
    std::istringstream input(load(kStreams[1]));
    std::ofstream output("/dev/full");
    EXPECT_THROW(runLoopback({}, input, &output, [](std::uint64_t) { return true; }), CHostError);
}

}  // namespace
}  // namespace talrtp::host

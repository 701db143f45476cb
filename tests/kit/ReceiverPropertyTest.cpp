// Random streams through random networks. Each test names its seed when it fails.

#include "RandomStream.h"

#include <talrtp/kit/Receiver.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;
using test::ExpectedPicture;
using test::KeepingReceiver;
using test::Oracle;
using test::PlayedPicture;
using test::RandomStream;
using test::SeededRandom;

struct Arrival {
    int ms;
    const Bytes* datagram;
};

struct Network {
    std::uint32_t lossPercent = 0;
    std::uint32_t doublePercent = 0;
    std::uint32_t jitterMs = 0;
    std::size_t calmPackets = 0;  // the first packets arrive undisturbed
};

// The journey of one stream. A media packet leaves each millisecond; FEC packets leave with the last packet
// of their group.
struct Journey {
    std::vector<Arrival> arrivals;
    std::vector<bool> arrived;     // media packets
    std::vector<bool> fecArrived;  // FEC packets
};

Journey travel(const RandomStream& stream, const Network& network, SeededRandom& random, int startMs) {
    Journey journey;
    const auto send = [&](const Bytes& bytes, int ms, bool isCalm) {
        if (!isCalm && random.between(1, 100) <= network.lossPercent) {
            return false;
        }
        const std::uint32_t copies = !isCalm && random.between(1, 100) <= network.doublePercent ? 2 : 1;
        for (std::uint32_t i = 0; i < copies; ++i) {
            const std::uint32_t delay = isCalm ? 0 : random.between(0, network.jitterMs);
            journey.arrivals.push_back({ms + static_cast<int>(delay), &bytes});
        }
        return true;
    };
    for (std::size_t i = 0; i < stream.packets.size(); ++i) {
        const int ms = startMs + static_cast<int>(i);
        journey.arrived.push_back(send(stream.packets[i].bytes, ms, i < network.calmPackets));
    }
    for (const test::StreamFec& fec : stream.fec) {
        const int ms = startMs + static_cast<int>(fec.first + fec.count - 1);
        journey.fecArrived.push_back(send(fec.bytes, ms, false));
    }
    std::stable_sort(journey.arrivals.begin(), journey.arrivals.end(),
                     [](const Arrival& a, const Arrival& b) { return a.ms < b.ms; });
    return journey;
}

// Adds the packets that FEC rebuilds: of a group, any as many as FEC packets of it arrived.
std::vector<bool> rebuild(const RandomStream& stream, const Journey& journey) {
    std::vector<bool> present = journey.arrived;
    for (std::size_t i = 0; i < stream.fec.size();) {
        const std::size_t first = stream.fec[i].first;
        const std::size_t end = first + stream.fec[i].count;
        std::ptrdiff_t parity = 0;
        for (; i < stream.fec.size() && stream.fec[i].first == first; ++i) {
            parity += journey.fecArrived[i] ? 1 : 0;
        }
        const auto from = present.begin() + static_cast<std::ptrdiff_t>(first);
        const auto to = present.begin() + static_cast<std::ptrdiff_t>(end);
        if (std::count(from, to, false) <= parity) {
            std::fill(from, to, true);
        }
    }
    return present;
}

void expectPlayed(const RandomStream& stream, const std::vector<ExpectedPicture>& expected,
                  const std::vector<PlayedPicture>& played, std::size_t first) {
    ASSERT_EQ(expected.size(), played.size() - first);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const PlayedPicture& picture = played[first + i];
        SCOPED_TRACE("picture " + std::to_string(expected[i].picture));
        ASSERT_EQ(stream.pictures[expected[i].picture].timestamp, picture.timestamp);
        ASSERT_EQ(expected[i].units, picture.units);
        ASSERT_EQ(expected[i].areWhole, picture.areWhole);
        ASSERT_EQ(annexB(expected[i].units), picture.bytes);
        ASSERT_EQ(expected[i].isComplete, picture.isComplete);
    }
}

// Expects units of the picture, in order, each whole or cut at its end; all of them if it is complete.
void expectPartOf(const test::StreamPicture& truth, const PlayedPicture& picture) {
    std::size_t unit = 0;
    for (std::size_t i = 0; i < picture.units.size(); ++i, ++unit) {
        const Bytes& bytes = picture.units[i];
        const auto isIt = [&](const Bytes& whole) {
            return picture.areWhole[i]
                       ? whole == bytes
                       : whole.size() > bytes.size() && std::equal(bytes.begin(), bytes.end(), whole.begin());
        };
        while (unit < truth.units.size() && !isIt(truth.units[unit])) {
            ++unit;
        }
        ASSERT_LT(unit, truth.units.size()) << "unit " << i << " of picture " << picture.timestamp;
    }
    if (picture.isComplete) {
        EXPECT_EQ(truth.units, picture.units);
    }
}

struct FecShape {
    FecScheme scheme;
    std::size_t group;
    std::size_t parity;
};

FecShape drawFec(SeededRandom& random) {
    switch (random.between(0, 2)) {
        case 0:
            return {FecScheme::kNone, 0, 0};
        case 1:
            return {FecScheme::kXor, 2 * random.between(1, 10) + 1, 1};
        default:
            return {FecScheme::kReedSolomon, random.between(2, 20), random.between(1, 4)};
    }
}

std::uint32_t drawNearEnd(SeededRandom& random, std::uint32_t end, std::uint32_t distance) {
    return random.oneIn(2) ? end - random.between(0, distance) : random.between(0, end);
}

// A sender's streams, one after the other, into one receiver.
class ReceiverPropertyTest : public testing::Test {
protected:
    // Sends a stream that begins far off the last one; compares what is played with the truth.
    void runStream(SeededRandom& random, const FecShape& fec, std::uint16_t firstSequence,
                   KeepingReceiver& receiver, int startMs) {
        const std::size_t first = receiver.pictures.size();
        const RandomStream stream(random, random.between(5, 40), firstSequence,
                                  drawNearEnd(random, 0xffffffff, 60000), fec.scheme, fec.group, fec.parity);
        Network network;
        network.lossPercent = random.oneIn(4) ? 0 : random.between(1, 30);
        network.doublePercent = random.between(0, 10);
        network.jitterMs = random.oneIn(4) ? 0 : random.between(1, 60);
        network.calmPackets = std::max<std::size_t>(stream.pictures[0].lastPacket + 1, 2);
        const Journey journey = travel(stream, network, random, startMs);
        for (const Arrival& arrival : journey.arrivals) {
            receiver.push(*arrival.datagram, arrival.ms);
            if (random.oneIn(3)) {
                receiver.receiver.poll(atMs(arrival.ms));
            }
        }
        lastMs = journey.arrivals.back().ms;
        lastSequence = static_cast<std::uint16_t>(firstSequence + stream.packets.size());
        receiver.receiver.finish();
        expectPlayed(stream, Oracle(stream, rebuild(stream, journey)).expect(), receiver.pictures, first);
    }

    int lastMs = 0;
    std::uint16_t lastSequence = 0;
};

// Jitter and groups stay below the wait, so that the packets that arrive, and those that can be rebuilt,
// decide over all that is played.
TEST_F(ReceiverPropertyTest, PlaysEveryPictureOnceInOrderAndKnowsWhatIsMissing) {
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        const FecShape fec = drawFec(random);
        ReceiverOptions options;
        options.fec = fec.scheme;
        options.wait = std::chrono::milliseconds(random.between(100, 400));
        KeepingReceiver receiver(options);
        std::uint16_t sequence = static_cast<std::uint16_t>(drawNearEnd(random, 65535, 300));
        const std::uint32_t streams = random.between(1, 3);
        for (std::uint32_t i = 0; i < streams; ++i) {
            runStream(random, fec, sequence, receiver, lastMs + 1000);
            if (HasFatalFailure()) {
                return;
            }
            sequence = static_cast<std::uint16_t>(lastSequence + random.between(5000, 60000));
        }
        EXPECT_EQ(streams - 1, receiver.receiver.statistics().restarts);
        EXPECT_EQ(0u, receiver.receiver.statistics().strayPackets);
    }
}

// Delays far beyond the wait: pictures are cut or lost, but never shuffled, repeated or wrong.
TEST_F(ReceiverPropertyTest, PlaysNothingTwiceAndNothingWrongWhenPacketsAreLate) {
    std::size_t cut = 0;
    std::size_t whole = 0;
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        const FecShape fec = drawFec(random);
        ReceiverOptions options;
        options.fec = fec.scheme;
        options.wait = std::chrono::milliseconds(random.between(0, 30));
        KeepingReceiver receiver(options);
        const RandomStream stream(random, 40, static_cast<std::uint16_t>(drawNearEnd(random, 65535, 300)),
                                  drawNearEnd(random, 0xffffffff, 60000), fec.scheme, fec.group, fec.parity);
        const Network network{random.between(0, 20), random.between(0, 10), random.between(10, 90), 0};
        const Journey journey = travel(stream, network, random, 0);
        for (const Arrival& arrival : journey.arrivals) {
            receiver.push(*arrival.datagram, arrival.ms);
            receiver.receiver.poll(atMs(arrival.ms));
        }
        receiver.receiver.finish();

        std::size_t index = 0;
        for (const PlayedPicture& picture : receiver.pictures) {
            while (index < stream.pictures.size() && stream.pictures[index].timestamp != picture.timestamp) {
                ++index;
            }
            ASSERT_LT(index, stream.pictures.size()) << "out of order: " << picture.timestamp;
            expectPartOf(stream.pictures[index], picture);
            ++(picture.isComplete ? whole : cut);
        }
    }
    EXPECT_GT(cut, 1000u);
    EXPECT_GT(whole, 1000u);
}

}  // namespace
}  // namespace talrtp::kit

// The network model.

#include "loopback/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace talrtp::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kMany = 20000;

CNetwork::Datagram datagram(int number) {
    return {static_cast<std::uint8_t>(number >> 16), static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number)};
}

int numberOf(const CNetwork::Datagram& bytes) {
    return bytes[0] << 16 | bytes[1] << 8 | bytes[2];
}

// Sends numbered datagrams, a millisecond apart, and returns the numbers in the order of arrival.
std::vector<int> sendMany(CNetwork& network, int count) {
    std::vector<int> arrived;
    const auto note = [&](const CNetwork::Datagram& bytes) { arrived.push_back(numberOf(bytes)); };
    for (int i = 0; i < count; ++i) {
        const std::uint64_t nowUs = static_cast<std::uint64_t>(i) * 1000;
        network.send(CNetwork::kMedia, datagram(i), nowUs);
        network.deliver(nowUs, note);
    }
    network.deliverAll(note);
    return arrived;
}

TEST(Random, GivesTheSequenceOfSplitMix64) {
    CRandom random(1234567);
    EXPECT_EQ(random.next(), 6457827717110365317u);
    EXPECT_EQ(random.next(), 3203168211198807973u);
    EXPECT_EQ(random.next(), 9817491932198370423u);
}

TEST(Random, ChanceKnowsNeverAndAlways) {
    CRandom random(1);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(random.chance(0));
        EXPECT_TRUE(random.chance(1));
        EXPECT_LE(random.upTo(3), 3u);
    }
}

TEST(Network, DeliversAllInOrderUnlessToldOtherwise) {
    CNetwork network({});
    const std::vector<int> arrived = sendMany(network, 100);
    ASSERT_EQ(arrived.size(), 100u);
    EXPECT_TRUE(std::is_sorted(arrived.begin(), arrived.end()));
    EXPECT_EQ(network.counts(CNetwork::kMedia).sent, 100u);
    EXPECT_EQ(network.counts(CNetwork::kMedia).reordered, 0u);
    EXPECT_EQ(network.counts(CNetwork::kFec).sent, 0u);
}

TEST(Network, LosesItsShareAndCountsIt) {
    CNetwork network({0.1, 0, 0, 0, 1});
    const std::vector<int> arrived = sendMany(network, kMany);
    const NetworkCounts& counts = network.counts(CNetwork::kMedia);
    EXPECT_EQ(arrived.size() + counts.lost, static_cast<std::size_t>(kMany));
    EXPECT_NEAR(static_cast<double>(counts.lost), 0.1 * kMany, 0.01 * kMany);
}

TEST(Network, TellsWhatWillCome) {
    CNetwork network({0.5, 0, 0, 0, 3});
    std::vector<int> promised;
    for (int i = 0; i < 200; ++i) {
        if (network.send(CNetwork::kMedia, datagram(i), 0)) {
            promised.push_back(i);
        }
    }
    std::vector<int> arrived;
    network.deliverAll([&](const CNetwork::Datagram& bytes) { arrived.push_back(numberOf(bytes)); });
    EXPECT_EQ(arrived, promised);
}

TEST(Network, BurstsHaveTheirMeanLengthAndTheLossesTheirShare) {
    CNetwork network({0.1, 4, 0, 0, 1});
    int bursts = 0;
    int lost = 0;
    bool isLast = false;
    for (int i = 0; i < 10 * kMany; ++i) {
        const bool isLost = !network.send(CNetwork::kMedia, {}, 0);
        bursts += isLost && !isLast ? 1 : 0;
        lost += isLost ? 1 : 0;
        isLast = isLost;
    }
    EXPECT_NEAR(static_cast<double>(lost) / bursts, 4, 0.2);
    EXPECT_NEAR(static_cast<double>(lost), 0.1 * 10 * kMany, 0.01 * 10 * kMany);
}

TEST(Network, KnowsWhichBurstsAreImpossible) {
    EXPECT_TRUE(isPossibleBurst(1, 0));
    EXPECT_FALSE(isPossibleBurst(1, 5));
    EXPECT_FALSE(isPossibleBurst(0.1, 0.5));
    EXPECT_TRUE(isPossibleBurst(0.8, 4));
    EXPECT_FALSE(isPossibleBurst(0.81, 4));
}

TEST(Network, DoublesItsShare) {
    CNetwork network({0, 0, 0, 0.25, 1});
    std::map<int, int> copies;
    for (const int number : sendMany(network, kMany)) {
        ++copies[number];
    }
    int twice = 0;
    for (const auto& each : copies) {
        ASSERT_LE(each.second, 2);
        twice += each.second == 2 ? 1 : 0;
    }
    EXPECT_EQ(copies.size(), static_cast<std::size_t>(kMany));
    EXPECT_EQ(network.counts(CNetwork::kMedia).duplicated, static_cast<std::uint64_t>(twice));
    EXPECT_NEAR(twice, 0.25 * kMany, 0.02 * kMany);
}

TEST(Network, ADatagramComesAtMostSoManyLate) {
    CNetwork network({0, 0, 7, 0, 1});
    const std::vector<int> arrived = sendMany(network, kMany);
    ASSERT_EQ(arrived.size(), static_cast<std::size_t>(kMany));
    std::uint64_t reordered = 0;
    int latest = 0;
    int furthest = 0;
    for (const int number : arrived) {
        reordered += number < latest ? 1 : 0;
        furthest = std::max(furthest, latest - number);
        latest = std::max(latest, number);
    }
    EXPECT_EQ(furthest, 7);
    EXPECT_EQ(network.counts(CNetwork::kMedia).reordered, reordered);
    EXPECT_GT(reordered, 0u);
}

TEST(Network, NothingIsDelayedForLonger) {
    CNetwork network({0, 0, 1000, 0, 1});
    std::vector<int> arrived;
    const auto note = [&](const CNetwork::Datagram& bytes) { arrived.push_back(numberOf(bytes)); };
    network.send(CNetwork::kMedia, datagram(5), 100);
    network.deliver(100 + CNetwork::kMaxDelayUs - 1, note);
    EXPECT_THAT(arrived, IsEmpty());
    network.deliver(100 + CNetwork::kMaxDelayUs, note);
    EXPECT_THAT(arrived, ElementsAre(5));
    network.deliverAll(note);
    EXPECT_THAT(arrived, ElementsAre(5));
}

TEST(Network, CountsItsFlowsApart) {
    CNetwork network({1, 0, 0, 0, 1});
    network.send(CNetwork::kMedia, {}, 0);
    network.send(CNetwork::kFec, {}, 0);
    network.send(CNetwork::kFec, {}, 0);
    EXPECT_EQ(network.counts(CNetwork::kMedia).lost, 1u);
    EXPECT_EQ(network.counts(CNetwork::kFec).lost, 2u);
}

TEST(Network, DelayAndDoublingDoNotChangeTheLosses) {
    CNetwork plain({0.2, 0, 0, 0, 9});
    CNetwork busy({0.2, 0, 50, 0.5, 9});
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(plain.send(CNetwork::kMedia, {}, 0), busy.send(CNetwork::kMedia, {}, 0));
    }
}

}  // namespace
}  // namespace talrtp::host

// The orderer of hand-overs.

#include "KitRandom.h"
#include "kit/HandoverOrderer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace talrtp::kit {
namespace {

using test::SeededRandom;
using testing::ElementsAre;
using testing::IsEmpty;

class HandoverOrdererTest : public testing::Test {
protected:
    bool push(std::uint32_t timestamp, int sequence, int index = 0) {
        return m_orderer->push({timestamp, static_cast<std::uint16_t>(sequence), index, true, {}}, m_now);
    }

    std::vector<int> takeSequences() {
        std::vector<int> sequences;
        for (const Handover& handover : m_orderer->takeFirst()) {
            sequences.push_back(handover.sequence);
        }
        return sequences;
    }

    // The timestamp of the picture that is due, or nothing.
    std::vector<std::uint32_t> due() {
        std::uint32_t timestamp = 0;
        return m_orderer->findDue(m_now, timestamp) ? std::vector<std::uint32_t>{timestamp}
                                                    : std::vector<std::uint32_t>{};
    }

    void at(std::uint64_t now) { m_now = now; }

    std::uint64_t m_now = 0;
    std::unique_ptr<CHandoverOrderer> m_orderer = std::make_unique<CHandoverOrderer>(100);
};

TEST_F(HandoverOrdererTest, OrdersByPictureThenSequenceThenIndex) {
    push(6000, 15);
    push(3000, 12, 1);
    push(3000, 12, 0);
    push(3000, 10);
    EXPECT_THAT(takeSequences(), ElementsAre(10, 12, 12));
    EXPECT_THAT(takeSequences(), ElementsAre(15));
    EXPECT_THAT(takeSequences(), IsEmpty());
}

TEST_F(HandoverOrdererTest, SequenceNumbersWrapAround) {
    push(3000, 1);
    push(3000, 65534);
    push(3000, 0);
    EXPECT_THAT(takeSequences(), ElementsAre(65534, 0, 1));
}

TEST_F(HandoverOrdererTest, TheMiddleOfTheSequenceNumbersIsNoBorder) {
    push(3000, 32769);
    push(3000, 32767);
    push(3000, 32768);
    EXPECT_THAT(takeSequences(), ElementsAre(32767, 32768, 32769));
}

TEST_F(HandoverOrdererTest, TimestampsWrapAround) {
    push(500, 3);
    push(0xfffffff0, 2);
    EXPECT_THAT(takeSequences(), ElementsAre(2));
    EXPECT_THAT(takeSequences(), ElementsAre(3));
}

TEST_F(HandoverOrdererTest, APictureIsDueWhenTheWaitIsOver) {
    at(1000);
    push(3000, 1);
    at(1099);
    EXPECT_THAT(due(), IsEmpty());
    at(1100);
    EXPECT_THAT(due(), ElementsAre(3000));
}

TEST_F(HandoverOrdererTest, EveryPacketOfThePictureStartsTheWaitAnew) {
    at(1000);
    push(3000, 1);
    at(1050);
    m_orderer->note(3000, 1050);
    at(1100);
    EXPECT_THAT(due(), IsEmpty());
    at(1150);
    EXPECT_THAT(due(), ElementsAre(3000));
}

TEST_F(HandoverOrdererTest, APictureWithoutHandOverIsDueToo) {
    m_orderer->note(3000, 1000);
    at(1100);
    EXPECT_THAT(due(), ElementsAre(3000));
    EXPECT_THAT(takeSequences(), IsEmpty());
}

TEST_F(HandoverOrdererTest, ADuePictureTakesTheEarlierOnesAlong) {
    at(1000);
    push(6000, 2);
    at(1050);
    push(3000, 1);
    at(1100);
    EXPECT_THAT(due(), ElementsAre(3000));
    EXPECT_THAT(takeSequences(), ElementsAre(1));
    EXPECT_THAT(due(), ElementsAre(6000));
}

TEST_F(HandoverOrdererTest, WhatComesAfterItsPictureWasTakenIsRefused) {
    EXPECT_TRUE(push(6000, 2));
    takeSequences();
    EXPECT_FALSE(push(6000, 3));
    EXPECT_FALSE(push(3000, 1));
    m_orderer->note(3000, m_now);
    EXPECT_EQ(m_orderer->pictureCount(), 0u);
    EXPECT_TRUE(push(9000, 4));
}

TEST_F(HandoverOrdererTest, ARepeatedUnitIsRefused) {
    EXPECT_TRUE(push(3000, 1, 0));
    EXPECT_TRUE(push(3000, 1, 1));
    EXPECT_FALSE(push(3000, 1, 0));
    EXPECT_THAT(takeSequences(), ElementsAre(1, 1));
}

TEST_F(HandoverOrdererTest, ASenderThatBeginsAnewIsTakenUp) {
    push(2000000, 1);
    takeSequences();
    EXPECT_FALSE(push(2000000 - 899999, 2));
    EXPECT_TRUE(push(2000000 - 900000, 3));
}

TEST_F(HandoverOrdererTest, TooManyPicturesForceTheFirstOut) {
    m_orderer = std::make_unique<CHandoverOrderer>(100, 2);
    push(3000, 1);
    push(6000, 2);
    EXPECT_THAT(due(), IsEmpty());
    push(9000, 3);
    EXPECT_THAT(due(), ElementsAre(3000));
}

TEST_F(HandoverOrdererTest, FindsTheFirstPictureAtTheEnd) {
    std::uint32_t timestamp = 0;
    EXPECT_FALSE(m_orderer->findFirst(timestamp));
    push(6000, 2);
    push(3000, 1);
    ASSERT_TRUE(m_orderer->findFirst(timestamp));
    EXPECT_EQ(timestamp, 3000u);
}

// Pictures of random length, shuffled within the wait, come out in order across both wraps.
TEST_F(HandoverOrdererTest, OrdersShuffledStreams) {
    for (std::uint32_t seed = 1; seed <= 50; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        m_orderer = std::make_unique<CHandoverOrderer>(1000);
        struct Sent {
            std::uint32_t timestamp;
            std::uint16_t sequence;
            std::uint32_t arrival;
        };
        std::vector<Sent> sent;
        std::uint32_t timestamp = 0xffffffff - random.between(0, 100000);
        std::uint16_t sequence = static_cast<std::uint16_t>(65535 - random.between(0, 200));
        for (int picture = 0; picture < 60; ++picture, timestamp += 3000) {
            for (std::uint32_t unit = random.between(1, 8); unit > 0; --unit) {
                sent.push_back({timestamp, sequence++,
                                static_cast<std::uint32_t>(picture) * 33 + random.between(0, 900)});
            }
        }
        std::vector<Sent> arriving = sent;
        std::stable_sort(arriving.begin(), arriving.end(),
                         [](const Sent& a, const Sent& b) { return a.arrival < b.arrival; });
        std::vector<int> taken;
        const auto takeInto = [&] {
            for (const int each : takeSequences()) {
                taken.push_back(each);
            }
        };
        for (const Sent& each : arriving) {
            at(each.arrival);
            EXPECT_TRUE(push(each.timestamp, each.sequence));
            while (!due().empty()) {
                takeInto();
            }
        }
        while (m_orderer->pictureCount() > 0) {
            takeInto();
        }
        ASSERT_EQ(taken.size(), sent.size());
        for (std::size_t i = 0; i < sent.size(); ++i) {
            ASSERT_EQ(taken[i], sent[i].sequence) << "at " << i;
        }
    }
}

// Forged timestamps and sequence numbers: every picture that is due can be taken, and the memory stays
// bounded.
TEST_F(HandoverOrdererTest, HostileTimestampsNeitherFillNorBlockIt) {
    SeededRandom random(99);
    SCOPED_TRACE(random.describe());
    m_orderer = std::make_unique<CHandoverOrderer>(100, 16);
    for (std::uint32_t i = 0; i < 20000; ++i) {
        at(i / 10);
        const std::uint32_t timestamp = random.between(0, 0xffffffff);
        m_orderer->note(timestamp, m_now);
        push(timestamp, static_cast<int>(random.between(0, 65535)), static_cast<int>(random.between(0, 3)));
        int steps = 0;
        while (!due().empty()) {
            takeSequences();
            ASSERT_LT(++steps, 20);
        }
        ASSERT_LE(m_orderer->pictureCount(), 16u);
    }
}

}  // namespace
}  // namespace talrtp::kit

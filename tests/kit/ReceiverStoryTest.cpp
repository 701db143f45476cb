// Streams that a `Sender` made, and what can happen to them on the way to a `Receiver`.

#include "RtpPackets.h"
#include "SeededRandom.h"

#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace talrtp::kit {
namespace {

using test::annexB;
using test::atMs;
using test::Bytes;
using test::KeepingReceiver;
using test::SeededRandom;
using Timestamps = std::vector<std::uint32_t>;

const Bytes kSps = {0x67, 0x42, 0xc0, 0x1e};
const Bytes kPps = {0x68, 0xce};

struct Sent {
    Bytes bytes;
    bool isFec;
};

// A sender and everything that it sent.
class Story {
public:
    explicit Story(const Fec& fec, std::uint16_t firstSequence = 100, int mtu = 1200)
        : m_sender(options(fec, firstSequence, mtu), [this](const Datagram& datagram) {
              sent.push_back({test::copyOf(datagram.bytes), datagram.isFec});
          }) {}

    // Sends a picture of one slice, the first with parameter sets in front. Returns its units.
    void picture(std::uint32_t timestamp, std::size_t size = 40) {
        Bytes slice(size, static_cast<std::uint8_t>(timestamp));
        slice[0] = truth.empty() ? 0x65 : 0x41;
        slice[1] = 0x9a;
        const std::vector<Bytes> units =
            truth.empty() ? std::vector<Bytes>{kSps, kPps, slice} : std::vector<Bytes>{slice};
        ASSERT_TRUE(m_sender.sendPicture(timestamp, units));
        truth.push_back(annexB(units));
        timestamps.push_back(timestamp);
    }
    void flush() { m_sender.flush(); }

    std::vector<Sent> sent;
    std::vector<Bytes> truth;  // each picture as a byte stream
    Timestamps timestamps;

private:
    static SenderOptions options(const Fec& fec, std::uint16_t firstSequence, int mtu) {
        SenderOptions options;
        options.ssrc = test::kSource;
        options.fec = fec;
        options.firstSequence = firstSequence;
        options.mtu = mtu;
        return options;
    }

    Sender m_sender;
};

ReceiverOptions receiving(const Fec& fec) {
    ReceiverOptions options;
    options.fec = fec;
    return options;
}

// Expects each picture once, in order, bit for bit and complete.
void expectAll(const Story& story, const KeepingReceiver& receiver) {
    ASSERT_EQ(story.truth.size(), receiver.pictures.size());
    for (std::size_t i = 0; i < story.truth.size(); ++i) {
        EXPECT_EQ(story.timestamps[i], receiver.pictures[i].timestamp);
        EXPECT_EQ(story.truth[i], receiver.pictures[i].bytes) << i;
        EXPECT_TRUE(receiver.pictures[i].isComplete) << i;
    }
}

// --- FEC instead of media ---

// A group of pictures of one packet each, of which not one arrives: as many FEC packets are as good.
TEST(ReceiverStoryTest, RebuildsTinyPicturesOfWhichNoPacketArrives) {
    const Fec fec = Fec::reedSolomon(3, 3);
    Story story(fec);
    for (std::uint32_t i = 0; i < 12; ++i) {
        story.picture(1000 * i);
    }
    KeepingReceiver receiver(receiving(fec));
    std::size_t media = 0;
    for (const Sent& each : story.sent) {
        if (each.isFec || media++ < 3) {
            receiver.push(each.bytes, 1);
        }
    }
    expectAll(story, receiver);
    EXPECT_EQ(9u, receiver.receiver.statistics().rebuiltPackets);
}

TEST(ReceiverStoryTest, BeginsWithPicturesThatFecRebuilt) {
    const Fec fec = Fec::reedSolomon(3, 3);
    Story story(fec);
    for (std::uint32_t i = 0; i < 6; ++i) {
        story.picture(1000 * i);
    }
    KeepingReceiver receiver(receiving(fec));
    for (const Sent& each : story.sent) {
        if (each.isFec) {
            EXPECT_EQ(PushResult::fec, receiver.push(each.bytes, 1));
        }
    }
    expectAll(story, receiver);
    EXPECT_EQ(6u, receiver.receiver.statistics().rebuiltPackets);
    EXPECT_EQ(0u, receiver.receiver.statistics().refusedUnits);
}

TEST(ReceiverStoryTest, BeginsWithAPictureOfManyPacketsThatFecRebuilt) {
    const Fec fec = Fec::reedSolomon(8, 8);
    Story story(fec, 65533, 100);
    story.picture(1000, 300);
    story.picture(2000, 300);
    KeepingReceiver receiver(receiving(fec));
    for (const Sent& each : story.sent) {
        if (each.isFec) {
            receiver.push(each.bytes, 1);
        }
    }
    expectAll(story, receiver);
}

// The first group has half of a unit's fragments, so nothing is handed over before the second one is there.
TEST(ReceiverStoryTest, BeginsInTheMiddleOfAUnitThatFecRebuilt) {
    const Fec fec = Fec::reedSolomon(4, 4);
    for (const bool isSecondMedia : {false, true}) {
        Story story(fec, 65530, 100);
        story.picture(1000, 150);  // four packets, which nobody receives
        story.picture(2000, 400);
        ASSERT_EQ(8u + 7u + 8u, story.sent.size());  // groups of 4 and 3 packets
        KeepingReceiver receiver(receiving(fec));
        for (std::size_t i = 8; i < story.sent.size(); ++i) {
            if (story.sent[i].isFec != (isSecondMedia && i >= 16)) {
                receiver.push(story.sent[i].bytes, 1);
            }
        }
        receiver.receiver.finish();
        ASSERT_EQ(Timestamps{2000}, receiver.played());
        EXPECT_EQ(story.truth[1], receiver.pictures[0].bytes);
        EXPECT_EQ(isSecondMedia ? 4u : 7u, receiver.pictures[0].rebuilt);
    }
}

TEST(ReceiverStoryTest, FecMayArriveBeforeAndAfterItsMedia) {
    for (const Fec& fec : {Fec::xorParity(3), Fec::reedSolomon(3, 1)}) {
        for (const bool isFecFirst : {true, false}) {
            Story story(fec);
            for (std::uint32_t i = 0; i < 9; ++i) {
                story.picture(1000 * i);
            }
            std::vector<Sent> order = story.sent;
            order.erase(order.begin() + 5);  // the second media packet of the second group
            std::stable_partition(order.begin() + 4, order.end(),
                                  [&](const Sent& each) { return each.isFec == isFecFirst; });
            KeepingReceiver receiver(receiving(fec));
            for (const Sent& each : order) {
                receiver.push(each.bytes, 1);
            }
            expectAll(story, receiver);
        }
    }
}

TEST(ReceiverStoryTest, FillsAHoleAtTheWrapAroundByFec) {
    for (const Fec& fec : {Fec::xorParity(5), Fec::reedSolomon(5, 2)}) {
        for (const std::uint16_t lost : {std::uint16_t{65535}, std::uint16_t{0}}) {
            Story story(fec, 65533);
            for (std::uint32_t i = 0; i < 6; ++i) {
                story.picture(0xfffffc00U + 1000 * i, i == 1 ? 3000 : 40);
            }
            story.flush();
            KeepingReceiver receiver(receiving(fec));
            for (const Sent& each : story.sent) {
                if (each.isFec || (each.bytes[2] << 8 | each.bytes[3]) != lost) {
                    receiver.push(each.bytes, 1);
                }
            }
            expectAll(story, receiver);
            EXPECT_EQ(1u, receiver.receiver.statistics().rebuiltPackets);
        }
    }
}

// --- Order and copies ---

TEST(ReceiverStoryTest, PutsAStreamBackInOrderThatIsShuffledFromItsFirstPacketOn) {
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        Story story(Fec::none(), static_cast<std::uint16_t>(random.between(65500, 65540)), 100);
        for (std::uint32_t i = 0; i < 20; ++i) {
            story.picture(0xfffff000U + 1000 * i, i == 0 ? 400 : random.between(2, 300));
        }
        for (std::size_t i = 0; i + 3 <= story.sent.size(); i += 3) {  // within windows of three
            std::swap(story.sent[i], story.sent[i + random.between(0, 2)]);
            std::swap(story.sent[i + 1], story.sent[i + random.between(1, 2)]);
        }
        KeepingReceiver receiver;
        for (const Sent& each : story.sent) {
            receiver.push(each.bytes, 1);
        }
        expectAll(story, receiver);
    }
}

TEST(ReceiverStoryTest, PlaysAPictureOfTheLongestKindWhateverTheOrderOfItsPackets) {
    for (const bool isBackwards : {false, true}) {
        Story story(Fec::none(), 60000, 100);
        story.picture(1000);
        const std::size_t first = story.sent.size();
        story.picture(2000, 86 * (kMaxPicturePackets - 1));
        ASSERT_GT(story.sent.size(), kMaxPicturePackets - 10);
        story.picture(3000);
        if (isBackwards) {
            // Not further ahead than what counts as a gap.
            for (std::size_t i = first; i + 2500 < story.sent.size(); i += 2500) {
                std::reverse(story.sent.begin() + static_cast<std::ptrdiff_t>(i),
                             story.sent.begin() + static_cast<std::ptrdiff_t>(i + 2500));
            }
        }
        KeepingReceiver receiver;
        for (const Sent& each : story.sent) {
            receiver.push(each.bytes, 1);
        }
        expectAll(story, receiver);
    }
}

TEST(ReceiverStoryTest, AStormOfCopiesChangesNothing) {
    const Fec fec = Fec::reedSolomon(5, 2);
    Story story(fec, 65530, 200);
    for (std::uint32_t i = 0; i < 20; ++i) {
        story.picture(1000 * i, 500);
    }
    story.flush();
    KeepingReceiver receiver(receiving(fec));
    std::size_t media = 0;
    for (std::size_t i = 0; i < story.sent.size(); ++i) {
        media += story.sent[i].isFec ? 0 : 1;
        for (std::size_t j = i < 20 ? 0 : i - 20; j <= i; ++j) {
            receiver.push(story.sent[j].bytes, static_cast<int>(i));
        }
    }
    expectAll(story, receiver);
    const Statistics statistics = receiver.receiver.statistics();
    EXPECT_EQ(media, statistics.receivedValidMediaPacketNumber);
    EXPECT_GT(statistics.doubledPackets, 15 * media);
    EXPECT_EQ(0u, statistics.rebuiltPackets);
}

// --- Markers ---

void setMarkers(Story& story, bool isSet) {
    for (Sent& each : story.sent) {
        each.bytes[1] = static_cast<std::uint8_t>((each.bytes[1] & 0x7fU) | (isSet ? 0x80U : 0U));
    }
}

TEST(ReceiverStoryTest, PlaysAStreamWithoutMarkersAPictureLate) {
    Story story(Fec::none(), 100, 100);
    for (std::uint32_t i = 0; i < 10; ++i) {
        story.picture(1000 * i, 300);
    }
    setMarkers(story, false);
    KeepingReceiver receiver;
    for (const Sent& each : story.sent) {
        receiver.push(each.bytes, 1);
    }
    EXPECT_EQ(9u, receiver.pictures.size());
    EXPECT_EQ(atMs(501), receiver.receiver.poll(atMs(500)));  // the end of the last one shows by silence
    EXPECT_EQ(9u, receiver.pictures.size());
    EXPECT_EQ(std::nullopt, receiver.receiver.poll(atMs(501)));
    expectAll(story, receiver);
}

TEST(ReceiverStoryTest, ALongWaitIsTheSilenceWithoutMarkers) {
    Story story(Fec::none(), 100, 100);
    story.picture(0, 300);
    setMarkers(story, false);
    ReceiverOptions options;
    options.wait = std::chrono::milliseconds(700);
    KeepingReceiver receiver(options);
    for (const Sent& each : story.sent) {
        receiver.push(each.bytes, 1);
    }
    EXPECT_EQ(atMs(701), receiver.receiver.poll(atMs(700)));
    receiver.receiver.poll(atMs(701));
    expectAll(story, receiver);
}

// A host that sends each unit by the session's own call sets the marker on each. From the second packet on it
// is known that the markers mean nothing.
TEST(ReceiverStoryTest, PlaysAStreamWithAMarkerOnEveryPacket) {
    Story story(Fec::none(), 100, 100);
    for (std::uint32_t i = 0; i < 10; ++i) {
        story.picture(1000 * i, 300);
    }
    setMarkers(story, true);
    KeepingReceiver receiver;
    for (const Sent& each : story.sent) {
        receiver.push(each.bytes, 1);
    }
    receiver.receiver.finish();
    ASSERT_GE(receiver.pictures.size(), 10u);
    const std::size_t extra = receiver.pictures.size() - 10;  // the first one in parts
    Bytes first;
    for (std::size_t i = 0; i <= extra; ++i) {
        first.insert(first.end(), receiver.pictures[i].bytes.begin(), receiver.pictures[i].bytes.end());
    }
    EXPECT_EQ(story.truth[0], first);
    for (std::size_t i = 1; i < 10; ++i) {
        EXPECT_EQ(story.truth[i], receiver.pictures[i + extra].bytes) << i;
        EXPECT_TRUE(receiver.pictures[i + extra].isComplete) << i;
    }
}

// --- Times ---

TEST(ReceiverStoryTest, AStallInAPictureCutsNothingUpToTheLongestWait) {
    for (const int wait : {0, 4000}) {
        Story story(Fec::none(), 100, 100);
        for (std::uint32_t i = 0; i < 5; ++i) {
            story.picture(1000 * i, 300);
        }
        ReceiverOptions options;
        options.wait = std::chrono::milliseconds(wait);
        KeepingReceiver receiver(options);
        for (std::size_t i = 0; i < story.sent.size(); ++i) {
            // The first picture tells that markers are set.
            const int ms = i < 8 ? 0 : 7000 * static_cast<int>(i);
            receiver.receiver.poll(atMs(ms));
            receiver.push(story.sent[i].bytes, ms);
        }
        expectAll(story, receiver);
    }
}

TEST(ReceiverStoryTest, WithoutAWaitAGapIsGivenUpWhenTheNextPictureShows) {
    Story story(Fec::none(), 100);
    for (std::uint32_t i = 0; i < 4; ++i) {
        story.picture(1000 * i);
    }
    ReceiverOptions options;
    options.wait = std::chrono::milliseconds(0);
    KeepingReceiver receiver(options);
    for (const std::size_t i : {0, 2, 1, 3}) {
        receiver.push(story.sent[i].bytes, 1);
    }
    EXPECT_EQ((Timestamps{0, 2000, 3000}), receiver.played());
    EXPECT_EQ(1u, receiver.receiver.statistics().latePackets);
    EXPECT_EQ(1u, receiver.receiver.statistics().lostPackets);
}

TEST(ReceiverStoryTest, TheLongestWaitHoldsToTheMillisecondAndFecEndsIt) {
    const Fec fec = Fec::xorParity(3);
    Story story(fec);
    for (std::uint32_t i = 0; i < 6; ++i) {
        story.picture(1000 * i);
    }
    ReceiverOptions options = receiving(fec);
    options.wait = std::chrono::milliseconds(4000);
    for (const int fecAt : {3999, 4001}) {
        KeepingReceiver receiver(options);
        for (std::size_t i = 0; i < 7; ++i) {
            if (i != 5) {  // 0 to 2 and their FEC packet, then 4 to 6
                receiver.push(story.sent[i].bytes, 0);
            }
        }
        EXPECT_EQ(4u, receiver.pictures.size());
        if (fecAt > 4000) {
            EXPECT_EQ(atMs(4000), receiver.receiver.poll(atMs(3999)));
            receiver.receiver.poll(atMs(4000));
            EXPECT_EQ(5u, receiver.pictures.size());
        }
        receiver.push(story.sent[7].bytes, fecAt);
        EXPECT_EQ(fecAt > 4000 ? 5u : 6u, receiver.pictures.size());
        EXPECT_EQ(fecAt > 4000 ? 0u : 1u, receiver.receiver.statistics().rebuiltPackets);
    }
}

// --- Streams that end, stop and begin anew ---

TEST(ReceiverStoryTest, GoesOnAfterFinish) {
    Story story(Fec::none(), 100, 100);
    for (std::uint32_t i = 0; i < 6; ++i) {
        story.picture(1000 * i, 300);
    }
    KeepingReceiver receiver;
    receiver.receiver.finish();  // nothing there yet
    const std::size_t half = story.sent.size() / 2;
    for (std::size_t i = 0; i < story.sent.size(); ++i) {
        if (i == half) {
            receiver.receiver.finish();
            receiver.receiver.finish();
        }
        receiver.push(story.sent[i].bytes, 1);
    }
    // Of picture 2000 only the last fragment was not there, of which nothing can be made.
    ASSERT_EQ((Timestamps{0, 1000, 2000, 3000, 4000, 5000}), receiver.played());
    for (std::size_t i = 0; i < receiver.pictures.size(); ++i) {
        EXPECT_EQ(i != 2, receiver.pictures[i].isComplete) << i;
    }
}

TEST(ReceiverStoryTest, NoticesASenderThatBeginsAnewWithNumbersNearby) {
    for (const int distance : {100, 50, 2}) {
        Story old(Fec::none(), 1000);
        for (std::uint32_t i = 0; i < 150; ++i) {
            old.picture(1000 * i);
        }
        Story fresh(Fec::none(), static_cast<std::uint16_t>(1150 - distance));
        for (std::uint32_t i = 0; i < 200; ++i) {
            fresh.picture(777000 + 1000 * i);
        }
        KeepingReceiver receiver;
        for (const Sent& each : old.sent) {
            receiver.push(each.bytes, 1);
        }
        expectAll(old, receiver);
        receiver.pictures.clear();
        for (const Sent& each : fresh.sent) {
            receiver.push(each.bytes, 2);
        }
        expectAll(fresh, receiver);
        EXPECT_EQ(1u, receiver.receiver.statistics().restarts);
    }
}

TEST(ReceiverStoryTest, RebuildsInTheStreamOfASenderThatBeganAnew) {
    const Fec fec = Fec::xorParity(3);
    KeepingReceiver receiver(receiving(fec));
    for (const std::uint16_t firstSequence : {std::uint16_t{100}, std::uint16_t{40000}}) {
        Story story(fec, firstSequence);
        for (std::uint32_t i = 0; i < 6; ++i) {
            story.picture(1000 * i);
        }
        receiver.pictures.clear();
        for (std::size_t i = 0; i < story.sent.size(); ++i) {
            if (i != 5) {  // a media packet of the second group
                receiver.push(story.sent[i].bytes, 1);
            }
        }
        expectAll(story, receiver);
    }
    EXPECT_EQ(1u, receiver.receiver.statistics().restarts);
    EXPECT_EQ(2u, receiver.receiver.statistics().rebuiltPackets);
    EXPECT_EQ(2u, receiver.receiver.statistics().recoveredMediaPacketNumber);
}

TEST(ReceiverStoryTest, TwoSourcesInTurnsAreOneStream) {
    Story story(Fec::none());
    Story other(Fec::none(), 40000);
    KeepingReceiver receiver;
    for (std::uint32_t i = 0; i < 20; ++i) {
        story.picture(1000 * i);
        other.picture(5 + 1000 * i);
        Bytes foreign = other.sent[i].bytes;
        foreign[8] ^= 0xff;
        EXPECT_EQ(PushResult::media, receiver.push(story.sent[i].bytes, static_cast<int>(40 * i)));
        EXPECT_EQ(PushResult::otherSource, receiver.push(foreign, static_cast<int>(40 * i + 1)));
    }
    expectAll(story, receiver);
    EXPECT_EQ(20u, receiver.receiver.statistics().otherSourceDatagrams);
}

// --- Hosts that throw ---

// The host's function throws for the first picture of the old stream that is left when the new one begins.
TEST(ReceiverStoryTest, ASenderThatBeginsAnewLosesNothingWhenTheHostThrows) {
    for (const bool isOtherSource : {false, true}) {
        Story old(Fec::none(), 100);
        for (std::uint32_t i = 0; i < 6; ++i) {
            old.picture(1000 * i);
        }
        Story fresh(Fec::none(), 40000);
        for (std::uint32_t i = 0; i < 6; ++i) {
            fresh.picture(777000 + 1000 * i);
        }
        Timestamps played;
        Receiver receiver(ReceiverOptions(), [&](const Picture& picture) {
            played.push_back(picture.timestamp());
            if (picture.timestamp() == 3000) {
                throw std::runtime_error("full");
            }
        });
        for (const std::size_t i : {0, 1, 3, 5}) {  // 2 and 4 are lost
            receiver.push(old.sent[i].bytes, atMs(0));
        }
        int thrown = 0;
        int ms = isOtherSource ? 3000 : 1;
        for (Sent& each : fresh.sent) {
            each.bytes[8] ^= isOtherSource ? 0xff : 0;
            try {
                receiver.push(each.bytes, atMs(ms));
            } catch (const std::runtime_error&) {
                ++thrown;
            }
        }
        EXPECT_EQ(1, thrown);
        EXPECT_EQ((Timestamps{0, 1000, 3000, 5000, 777000, 778000, 779000, 780000, 781000, 782000}), played);
        EXPECT_EQ(isOtherSource ? 0u : 1u, receiver.statistics().restarts);
    }
}

}  // namespace
}  // namespace talrtp::kit

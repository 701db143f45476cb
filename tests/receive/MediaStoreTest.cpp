// The media store against a plain std::map whose runs are walked packet by packet.

#include "receive/MediaStore.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

#include "StoreFixture.h"

namespace talrtp {
namespace test {
namespace {

constexpr unsigned int kSeed = 20261122;

struct Bounds {
    bool starts;
    bool ends;
};

_uint16_t number(unsigned int value) {
    return static_cast<_uint16_t>(value);
}

class MediaStoreTest : public StoreTest {
protected:
    ~MediaStoreTest() override {
        for (const auto& entry : stored) {
            store.remove(entry.first);
        }
    }

    bool add(_uint16_t seq, bool starts, bool ends) {
        stored[seq] = Bounds{starts, ends};
        return store.add(seq, makePacket(seq), starts, ends);
    }
    void remove(_uint16_t seq) { EXPECT_EQ(store.remove(seq), stored.erase(seq) != 0); }

    // The plain answers: walks of at most 65536 packets.
    bool findStart(_uint16_t seq, _uint16_t& start) const {
        for (unsigned int i = 0; i < CNumberSets::kNumbers; ++i, --seq) {
            const auto packet = stored.find(seq);
            if (packet == stored.end()) {
                return false;
            }
            if (packet->second.starts) {
                start = seq;
                return true;
            }
        }
        return false;
    }
    bool findEnd(_uint16_t start, _uint16_t& end) const {
        _uint16_t seq = start;
        for (unsigned int i = 0; i < CNumberSets::kNumbers; ++i, ++seq) {
            const auto packet = stored.find(seq);
            if (packet == stored.end()) {
                break;
            }
            end = seq;
            if (packet->second.ends) {
                return true;
            }
        }
        return false;
    }

    void expectAlike(_uint16_t seq) {
        CTalRtpPacket* const packet = store.find(seq);
        ASSERT_EQ(packet != nullptr, stored.count(seq) != 0) << seq;
        EXPECT_EQ(store.contains(seq), packet != nullptr);
        if (packet != nullptr) {
            EXPECT_EQ(packet->get_sequence_number(), seq);
            EXPECT_EQ(mediaList.at(seq), packet);
        }
        EXPECT_EQ(mediaList.size(), stored.size());
        EXPECT_EQ(store.known().contains(seq), stored.count(seq) != 0 || rebuilt.count(seq) != 0) << seq;
        _uint16_t found = 7;
        _uint16_t expected = 7;
        EXPECT_EQ(store.findStart(seq, found), findStart(seq, expected)) << seq;
        EXPECT_EQ(found, expected);
        found = expected = 7;
        EXPECT_EQ(store.findEnd(seq, found), findEnd(seq, expected)) << seq;
        EXPECT_EQ(found, expected);
    }

    CMediaStore store{mediaList, meter};
    std::map<_uint16_t, Bounds> stored;
    std::set<_uint16_t> rebuilt;
};

// Runs of fragments come and go around the wrap-around, in any order.
TEST_F(MediaStoreTest, AnswersAsWalksOverThePacketsDo) {
    std::mt19937 random(kSeed);
    for (int call = 0; call < 20000 && !HasFailure(); ++call) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", call " + std::to_string(call));
        const _uint16_t seq = number(65300 + random() % 500);
        switch (random() % 8) {
            case 0:
                if (store.know(seq)) {
                    rebuilt.insert(seq);
                }
                break;
            case 1:
                EXPECT_EQ(store.forget(seq), rebuilt.erase(seq) != 0 && stored.count(seq) == 0);
                break;
            case 2:
            case 3:
                remove(seq);
                break;
            case 4:
                if (stored.count(seq) != 0) {
                    stored[seq] = Bounds{random() % 4 == 0, random() % 4 == 0};
                    store.setUnitBounds(seq, stored[seq].starts, stored[seq].ends);
                }
                break;
            default:
                if (stored.count(seq) == 0) {
                    const bool isNew = rebuilt.erase(seq) == 0;
                    EXPECT_EQ(add(seq, random() % 8 == 0, random() % 8 == 0), isNew);
                }
        }
        expectAlike(seq);
        expectAlike(number(65300 + random() % 500));
    }
}

TEST_F(MediaStoreTest, RunOfAllNumbersHasAnEndOnlyIfAPacketEndsIt) {
    for (unsigned int seq = 0; seq < CNumberSets::kNumbers; ++seq) {
        add(number(seq), seq == 40000, false);
    }
    EXPECT_TRUE(store.isFull());
    _uint16_t found = 0;
    EXPECT_TRUE(store.findStart(39999, found));
    EXPECT_EQ(found, 40000);
    EXPECT_FALSE(store.findEnd(40000, found));
    EXPECT_EQ(found, 39999);
    store.setUnitBounds(39990, false, true);
    EXPECT_TRUE(store.findEnd(40000, found));
    EXPECT_EQ(found, 39990);
}

// The list holds null only if a derived class put it there; a packet fills such an entry.
TEST_F(MediaStoreTest, EntryThatHeldNullIsFilled) {
    mediaList.emplace(500, nullptr);
    add(500, true, true);
    EXPECT_EQ(mediaList.at(500), store.find(500));
    EXPECT_NE(store.find(500), nullptr);
}

TEST_F(MediaStoreTest, UnitIsKnownUnderTheTimestampThatItWasSetForLast) {
    stTalRtpTSInfo first(0, &pool);
    stTalRtpTSInfo second(0, &pool);
    stTalRtpDataInfo unit = {10, 1, false, false};
    add(10, true, false);
    EXPECT_EQ(store.unitOf(10, &first), nullptr);
    store.setUnit(10, &unit, &first);
    EXPECT_EQ(store.unitOf(10, &first), &unit);
    EXPECT_EQ(store.unitOf(10, &second), nullptr);
    store.forgetUnit(10, &second);
    EXPECT_EQ(store.unitOf(10, &first), &unit);
    store.forgetUnit(10, &first);
    EXPECT_EQ(store.unitOf(10, &first), nullptr);
    store.setUnit(11, &unit, &first);  // nothing is stored there
    EXPECT_EQ(store.unitOf(11, &first), nullptr);
}

TEST_F(MediaStoreTest, UnitGoesWithItsPacket) {
    stTalRtpTSInfo record(0, &pool);
    stTalRtpDataInfo unit = {10, 1, false, false};
    add(10, true, false);
    store.setUnit(10, &unit, &record);
    remove(10);
    add(10, true, false);
    EXPECT_EQ(store.unitOf(10, &record), nullptr);
}

// One step to store a packet, whatever is stored.
TEST_F(MediaStoreTest, PacketCostsOneStep) {
    for (const int seq : {9, 7, 8, 65535, 0}) {
        const _uint64_t before = meter.steps;
        add(number(static_cast<unsigned int>(seq)), true, true);
        EXPECT_EQ(meter.steps, before + 1) << seq;
    }
}

// Lists that somebody else changed: 20 was put in, 21 exchanged, 23 taken out.
TEST_F(MediaStoreTest, RebuildKeepsTheBoundsOfPacketsThatStayed) {
    add(10, true, false);
    add(11, false, true);
    add(21, true, false);
    add(23, false, false);
    mediaList[20] = makePacket(20);
    CTalRtpPacket* const before = mediaList.at(21);
    mediaList.at(21) = makePacket(21);
    delete before;
    delete mediaList.at(23);
    mediaList.erase(23);
    EXPECT_TRUE(store.isTrue(10));
    EXPECT_FALSE(store.isTrue(21));
    EXPECT_FALSE(store.isTrueDownwards(21));
    EXPECT_FALSE(store.isTrueUpwards(21));

    store.rebuild(true);
    stored.erase(23);
    stored[20] = stored[21] = Bounds{true, true};
    for (const _uint16_t seq : {10, 11, 20, 21, 23}) {
        expectAlike(seq);
        EXPECT_TRUE(store.isTrueDownwards(seq));
        EXPECT_TRUE(store.isTrueUpwards(seq));
    }
}

TEST_F(MediaStoreTest, RebuildTakesEachPacketForAUnitOfItsOwn) {
    add(10, true, false);
    add(11, false, true);
    add(65535, false, false);
    store.rebuild(false);
    for (auto& entry : stored) {
        entry.second = Bounds{true, true};
    }
    for (const _uint16_t seq : {10, 11, 65535}) {
        expectAlike(seq);
    }
}

// The last number is no end of the walk over what was known.
TEST_F(MediaStoreTest, RebuildKeepsTheBoundsOfTheLastNumber) {
    add(65534, true, false);
    add(65535, false, true);
    store.rebuild(true);
    expectAlike(65534);
    expectAlike(65535);
}

// A fragment that neither starts nor ends: the search goes on to the gap.
TEST_F(MediaStoreTest, LookFromTheMiddleOfARunSeesItsNeighbours) {
    add(30, true, false);
    add(31, false, false);
    add(32, false, true);
    CTalRtpPacket* const before = mediaList.at(30);
    mediaList.at(30) = makePacket(30);
    EXPECT_FALSE(store.isTrueDownwards(31));
    EXPECT_TRUE(store.isTrueUpwards(31));
    delete before;
}

}  // namespace
}  // namespace test
}  // namespace talrtp

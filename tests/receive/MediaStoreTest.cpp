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

}  // namespace
}  // namespace test
}  // namespace talrtp

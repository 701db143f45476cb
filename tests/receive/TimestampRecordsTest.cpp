// The records of timestamps and units, without a session.

#include "receive/TimestampRecords.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "StoreFixture.h"

namespace talrtp {
namespace test {
namespace {

constexpr unsigned int kSeed = 20261122;

// Finds units by the runs of the media store.
struct RunRules {
    static constexpr bool kAsksHooks = false;

    bool starts(_uint16_t /*seq*/) const { return isStart; }
    bool ends(_uint16_t /*seq*/) const { return isEnd; }
    bool findStart(_uint16_t seq, _uint16_t& start) const { return media.findStart(seq, start); }
    bool findEnd(_uint16_t start, _uint16_t& end) const { return media.findEnd(start, end); }

    const CMediaStore& media;
    bool isStart;
    bool isEnd;
};

class TimestampRecordsTest : public StoreTest {
protected:
    TimestampRecordsTest() { records.remember(); }
    ~TimestampRecordsTest() override {
        records.clear();
        while (!mediaList.empty()) {
            media.remove(mediaList.begin()->first);
        }
    }

    // Stores a packet and records it in its unit.
    stTalRtpDataInfo* receive(_uint16_t seq, _uint32_t timestamp, bool starts, bool ends) {
        media.add(seq, makePacket(seq, timestamp), starts, ends);
        return records.growUnitOf(records.noteMedia(timestamp, seq, 0), seq, RunRules{media, starts, ends});
    }

    // The timestamps from the oldest on.
    std::vector<_uint32_t> order() const {
        std::vector<_uint32_t> result;
        for (const stTalRtpTSInfo* record = records.order().oldest(); record != nullptr;
             record = CAgeOrder::newer(record)) {
            EXPECT_TRUE(CAgeOrder::newer(record) == nullptr ||
                        CAgeOrder::older(CAgeOrder::newer(record)) == record);
            result.push_back(CTimestampRecords::timestampOf(record));
        }
        return result;
    }

    CMediaStore media{mediaList, meter};
    CTimestampRecords records{recordList, media, &pool, meter};
};

TEST_F(TimestampRecordsTest, RecordIsMadeOnceAndFound) {
    EXPECT_EQ(records.find(100), nullptr);
    stTalRtpTSInfo* const record = records.findOrMake(100, 7);
    EXPECT_EQ(record->createTime, 7u);
    EXPECT_EQ(record->updateTime, 7u);
    EXPECT_EQ(records.findOrMake(50, 8)->createTime, 8u);
    EXPECT_EQ(records.find(100), record);
    EXPECT_EQ(records.findOrMake(100, 9), record);
    EXPECT_EQ(record->createTime, 7u);
    EXPECT_EQ(recordList.at(100), record);
    records.remove(record);
    EXPECT_EQ(records.find(100), nullptr);
    EXPECT_EQ(recordList.size(), 1u);
}

// A derived class may have put null there.
TEST_F(TimestampRecordsTest, NullRecordIsNoRecord) {
    recordList.emplace(100, nullptr);
    EXPECT_EQ(records.findOrMake(100, 7), nullptr);
    EXPECT_EQ(records.noteMedia(100, 1, 7), nullptr);
    EXPECT_EQ(records.find(100), nullptr);
}

// A derived class may exchange the record of an entry, or those of two entries.
TEST_F(TimestampRecordsTest, EntryIsTrueWhileItHoldsTheRecordThatIsFiledForIt) {
    stTalRtpTSInfo* const first = records.findOrMake(100, 7);
    records.findOrMake(200, 7);
    EXPECT_TRUE(records.isTrue(first));
    EXPECT_TRUE(records.isTrueAt(100));
    EXPECT_TRUE(records.isTrueAt(300));  // has none
    std::swap(recordList.at(100), recordList.at(200));
    EXPECT_FALSE(records.isTrue(first));
    EXPECT_FALSE(records.isTrueAt(100));
    EXPECT_FALSE(records.isTrueAt(200));
    std::swap(recordList.at(100), recordList.at(200));
    stTalRtpTSInfo other;
    recordList.at(100) = &other;
    EXPECT_FALSE(records.isTrue(first));
    EXPECT_FALSE(records.isTrueAt(100));
    recordList.at(100) = nullptr;
    EXPECT_FALSE(records.isTrue(first));
    EXPECT_TRUE(records.isTrueAt(100));
    recordList.at(100) = first;
    EXPECT_TRUE(records.isTrue(first));
    EXPECT_TRUE(records.isTrueAt(100));
}

TEST_F(TimestampRecordsTest, RecordInTwoEntriesIsFiledOnce) {
    stTalRtpTSInfo* const record = new stTalRtpTSInfo;
    recordList[100] = record;
    recordList[200] = record;
    records.rebuild();
    EXPECT_EQ(records.order().oldest(), record);
    EXPECT_EQ(records.order().newest(), record);
    EXPECT_EQ(CAgeOrder::older(record), nullptr);
    EXPECT_EQ(CAgeOrder::newer(record), nullptr);
    recordList.erase(200);
}

TEST_F(TimestampRecordsTest, NotesStandInOrderOfArrival) {
    for (const int seq : {5, 3, 4}) {
        records.noteMedia(100, static_cast<_uint16_t>(seq), 7);
    }
    const stTalRtpTSInfo::SeqList& notes = records.find(100)->mediaSeqList;
    EXPECT_EQ(std::vector<int>(notes.begin(), notes.end()), (std::vector<int>{5, 3, 4}));
    records.forgetLastMedia(100, 3);  // not the last
    EXPECT_EQ(notes.size(), 3u);
    records.forgetLastMedia(100, 4);
    EXPECT_EQ(std::vector<int>(notes.begin(), notes.end()), (std::vector<int>{5, 3}));
    records.forgetLastMedia(200, 4);
}

// Against a plain list that is sorted anew: the clock runs, stands still, and steps back.
TEST_F(TimestampRecordsTest, OldestIsTheOneWithoutAPacketForLongest) {
    std::mt19937 random(kSeed);
    std::map<_uint32_t, _uint64_t> times;
    _uint64_t now = 100000;
    for (int call = 0; call < 5000 && !HasFailure(); ++call) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", call " + std::to_string(call));
        now += random() % 3;
        if (random() % 50 == 0) {
            now -= random() % 500;
        }
        const _uint32_t timestamp = random() % 40;
        if (random() % 4 == 0 && times.erase(timestamp) != 0) {
            records.remove(records.find(timestamp));
        } else {
            records.noteMedia(timestamp, 1, now);
            times[timestamp] = now;
        }
        _uint64_t last = 0;
        const std::vector<_uint32_t> ordered = order();
        for (const _uint32_t each : ordered) {
            ASSERT_EQ(times.count(each), 1u);
            EXPECT_GE(times[each], last);
            last = times[each];
        }
        ASSERT_EQ(ordered.size(), times.size());
        EXPECT_EQ(records.order().newest() == nullptr, times.empty());
    }
}

TEST_F(TimestampRecordsTest, UnitGrowsWithItsPacketsInOrder) {
    const stTalRtpDataInfo* const unit = receive(10, 100, true, false);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->startSeq, 10);
    EXPECT_EQ(unit->packetCount, 1);
    EXPECT_FALSE(unit->complete);
    EXPECT_EQ(receive(11, 100, false, false), unit);
    EXPECT_EQ(unit->packetCount, 2);
    EXPECT_EQ(receive(12, 100, false, true), unit);
    EXPECT_EQ(unit->packetCount, 3);
    EXPECT_TRUE(unit->complete);
    EXPECT_FALSE(unit->delivered);
    EXPECT_EQ(records.find(100)->dataInfoMap.at(10), unit);
}

TEST_F(TimestampRecordsTest, UnitGrowsOverPacketsThatArrivedEarlier) {
    EXPECT_EQ(receive(12, 100, false, true), nullptr);
    EXPECT_EQ(receive(11, 100, false, false), nullptr);
    const stTalRtpDataInfo* const unit = receive(10, 100, true, false);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->packetCount, 3);
    EXPECT_TRUE(unit->complete);
}

TEST_F(TimestampRecordsTest, PacketInAGapJoinsWhatFollows) {
    const stTalRtpDataInfo* const unit = receive(65534, 100, true, false);
    receive(0, 100, false, true);
    EXPECT_EQ(unit->packetCount, 1);
    EXPECT_EQ(receive(65535, 100, false, false), unit);
    EXPECT_EQ(unit->packetCount, 3);
    EXPECT_TRUE(unit->complete);
}

TEST_F(TimestampRecordsTest, StartBeginsAUnitThoughTheOneBeforeItIsOpen) {
    const stTalRtpDataInfo* const first = receive(10, 100, true, false);
    const stTalRtpDataInfo* const second = receive(11, 100, true, false);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(second->startSeq, 11);
    EXPECT_EQ(first->packetCount, 1);
}

// The next record may lie where the last one did.
TEST_F(TimestampRecordsTest, OpenUnitGoesWithItsTimestamp) {
    receive(10, 100, true, false);
    records.remove(records.find(100));
    const stTalRtpDataInfo* const unit = receive(11, 100, false, true);
    ASSERT_EQ(records.find(100)->dataInfoMap.count(10), 1u);
    EXPECT_EQ(unit, records.find(100)->dataInfoMap.at(10));
    EXPECT_EQ(unit->packetCount, 2);
}

// A unit that lost its last packets is not continued by those of the next number.
TEST_F(TimestampRecordsTest, ClosedUnitLooksItsRunUpAgain) {
    const stTalRtpDataInfo* const unit = receive(10, 100, true, false);
    receive(11, 100, false, false);
    media.remove(11);
    records.closeUnit();
    EXPECT_EQ(receive(12, 100, false, true), nullptr);
    EXPECT_EQ(unit->packetCount, 2);
    EXPECT_FALSE(unit->complete);
}

// A start is found across timestamps, so each timestamp of a run may have a record of the unit.
TEST_F(TimestampRecordsTest, EachTimestampHasARecordOfTheUnit) {
    const stTalRtpDataInfo* const first = receive(10, 100, true, false);
    const stTalRtpDataInfo* const second = receive(11, 200, false, true);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(second->startSeq, 10);
    EXPECT_EQ(second->packetCount, 2);
    EXPECT_TRUE(second->complete);
    EXPECT_EQ(records.findUnit(records.find(100), 10), first);
    EXPECT_EQ(records.findUnit(records.find(200), 10), second);
    EXPECT_EQ(records.findUnit(records.find(200), 11), nullptr);
}

TEST_F(TimestampRecordsTest, SpanNeverShrinks) {
    stTalRtpDataInfo unit = {65535, 3, false, false};
    CTimestampRecords::grow(unit, 0, true);
    EXPECT_EQ(unit.packetCount, 3);
    EXPECT_FALSE(unit.complete);
    CTimestampRecords::grow(unit, 1, true);
    EXPECT_TRUE(unit.complete);
    CTimestampRecords::grow(unit, 2, false);
    EXPECT_EQ(unit.packetCount, 4);
    EXPECT_FALSE(unit.complete);
}

// The record of a unit must not be found after its timestamp's was freed.
TEST_F(TimestampRecordsTest, UnitsGoWithTheirTimestamp) {
    receive(10, 100, true, false);
    records.remove(records.find(100));
    stTalRtpTSInfo* const record = records.findOrMake(100, 5);
    EXPECT_EQ(records.findUnit(record, 10), nullptr);
    const stTalRtpDataInfo* const unit = records.growUnitOf(record, 10, RunRules{media, true, false});
    EXPECT_EQ(unit, record->dataInfoMap.at(10));
}

}  // namespace
}  // namespace test
}  // namespace talrtp

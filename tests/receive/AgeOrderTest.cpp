// The order in which timestamps age out, against a plain sorted list.

#include "receive/AgeOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "SeededRandom.h"

namespace talrtp {
namespace test {
namespace {

class AgeOrderTest : public testing::Test {
protected:
    stTalRtpTSInfo* make(_uint64_t updateTime) {
        records.push_back(std::make_unique<stTalRtpTSInfo>());
        records.back()->updateTime = updateTime;
        return records.back().get();
    }
    stTalRtpTSInfo* file(_uint64_t updateTime) {
        stTalRtpTSInfo* const record = make(updateTime);
        order.insert(record);
        return record;
    }
    // Walks from the oldest on, and holds the way back against it.
    std::vector<stTalRtpTSInfo*> walk() const {
        std::vector<stTalRtpTSInfo*> upwards;
        for (stTalRtpTSInfo* record = order.oldest(); record != nullptr; record = CAgeOrder::newer(record)) {
            upwards.push_back(record);
        }
        std::vector<stTalRtpTSInfo*> downwards;
        for (stTalRtpTSInfo* record = order.newest(); record != nullptr; record = CAgeOrder::older(record)) {
            downwards.push_back(record);
        }
        std::reverse(downwards.begin(), downwards.end());
        EXPECT_EQ(upwards, downwards);
        return upwards;
    }

    stStepMeter meter;
    CAgeOrder order{meter};
    std::vector<std::unique_ptr<stTalRtpTSInfo>> records;
};

typedef std::vector<stTalRtpTSInfo*> Records;

TEST_F(AgeOrderTest, EmptyOrderHasNoEnds) {
    EXPECT_EQ(order.oldest(), nullptr);
    EXPECT_EQ(order.newest(), nullptr);
}

TEST_F(AgeOrderTest, RecordsLieByTimeAndThoseOfOneTimeInTheOrderOfFiling) {
    stTalRtpTSInfo* const late = file(30);
    stTalRtpTSInfo* const early = file(10);
    stTalRtpTSInfo* const second = file(20);
    stTalRtpTSInfo* const third = file(20);
    EXPECT_EQ(walk(), (Records{early, second, third, late}));
}

TEST_F(AgeOrderTest, TouchedRecordMovesToItsTime) {
    stTalRtpTSInfo* const a = file(10);
    stTalRtpTSInfo* const b = file(20);
    stTalRtpTSInfo* const c = file(30);
    order.touch(a, 40);
    EXPECT_EQ(a->updateTime, 40u);
    EXPECT_EQ(walk(), (Records{b, c, a}));
    order.touch(a, 25);  // the clock stepped back
    EXPECT_EQ(walk(), (Records{b, a, c}));
    order.touch(b, 20);
    EXPECT_EQ(walk(), (Records{b, a, c}));
}

TEST_F(AgeOrderTest, FilingTakesOneStepWhileTheClockRunsForward) {
    for (_uint64_t time = 0; time < 1000; ++time) {
        file(time);
        order.touch(records.back().get(), time);
    }
    EXPECT_EQ(meter.steps, 1000u);
}

TEST_F(AgeOrderTest, FilingAfterTheClockSteppedBackSearchesOnce) {
    for (_uint64_t time = 1000; time < 2000; ++time) {
        file(time);
    }
    meter.steps = 0;
    for (_uint64_t time = 0; time < 100; ++time) {
        file(time);
    }
    EXPECT_EQ(meter.steps, 1000u + 100u);
}

// Each packet of one timestamp files its record anew, next to where it was.
TEST_F(AgeOrderTest, RecordThatIsTouchedAfterTheClockSteppedBackMovesInAStep) {
    for (_uint64_t time = 1000; time < 2000; ++time) {
        file(time);
    }
    stTalRtpTSInfo* const record = file(0);
    meter.steps = 0;
    for (_uint64_t time = 1; time <= 100; ++time) {
        order.touch(record, time);
    }
    EXPECT_EQ(order.oldest(), record);
    EXPECT_EQ(meter.steps, 200u);  // each begins at the record that was next to it
}

TEST_F(AgeOrderTest, AnyChangesLeaveASortedList) {
    SeededRandom random(20);
    SCOPED_TRACE(random.describe());
    Records plain;
    const auto insertPlain = [&plain](stTalRtpTSInfo* record) {
        const auto isOlder = [](_uint64_t time, const stTalRtpTSInfo* other) {
            return time < other->updateTime;
        };
        plain.insert(std::upper_bound(plain.begin(), plain.end(), record->updateTime, isOlder), record);
    };
    for (int change = 0; change < 3000; ++change) {
        const _uint64_t time = random.between(0, 50);
        if (plain.empty() || random.oneIn(3)) {
            insertPlain(file(time));
        } else {
            const auto chosen =
                plain.begin() + random.between(0, static_cast<std::uint32_t>(plain.size()) - 1);
            stTalRtpTSInfo* const record = *chosen;
            if (random.oneIn(2)) {
                order.remove(record);
                plain.erase(chosen);
            } else if (record->updateTime == time) {
                order.touch(record, time);
            } else {
                plain.erase(chosen);
                order.touch(record, time);
                insertPlain(record);
            }
        }
        ASSERT_EQ(walk(), plain) << "change " << change;
    }
}

}  // namespace
}  // namespace test
}  // namespace talrtp

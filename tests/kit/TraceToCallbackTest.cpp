// Lines of the library, on their way to a callback. The program is compiled with -fvisibility=hidden, under
// which trace functions without a declaration of their own visibility stay unseen by the library.

#include <talrtp/kit/TraceToCallback.h>

#include <talrtp/TalRtpPacket.h>
#include <talrtp/kit/SessionHandle.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#ifndef TALRTP_VISIBILITY_IS_HIDDEN
#error "the build compiles this test with -fvisibility=hidden"
#endif

namespace talrtp::kit {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class TraceToCallbackTest : public ::testing::Test {
protected:
    ~TraceToCallbackTest() override { setTrace(TraceLevel::kNone, {}, 0); }

    void collect(TraceLevel level, unsigned int linesPerSecond = 0) {
        setTrace(
            level,
            [this](const TraceLine& line) {
                levels.push_back(line.level);
                texts.emplace_back(line.text);
            },
            linesPerSecond);
    }

    // Makes the library emit one WARNING line: a packet whose version is 1.
    static void warn() {
        unsigned char datagram[12] = {0x40, 98};
        EXPECT_FALSE(CTalRtpPacket(datagram, sizeof(datagram)).validate());
    }

    std::vector<TraceLevel> levels;
    std::vector<std::string> texts;
};

TEST_F(TraceToCallbackTest, LinesOfTheLibraryArrive) {
    collect(TraceLevel::kWarning);
    warn();
    EXPECT_THAT(levels, ElementsAre(TraceLevel::kWarning));
    ASSERT_THAT(texts, SizeIs(1));
    EXPECT_THAT(texts[0], HasSubstr("[TAL] WARNING: [TalRtp]: CTalRtpPacket::validate"));
    EXPECT_EQ(']', texts[0].back());
    EXPECT_EQ(1u, traceCounts().passed);
}

TEST_F(TraceToCallbackTest, LinesBeyondTheLevelDoNotArrive) {
    collect(TraceLevel::kError);
    EXPECT_EQ(0, get_external_trace_mask());
    warn();
    util_adapter_trace(1, "TAL", "called in spite of the mask", 27);
    EXPECT_THAT(texts, IsEmpty());
}

TEST_F(TraceToCallbackTest, WithoutACallbackTheLibraryAssemblesNothing) {
    EXPECT_EQ(-1, get_external_trace_mask());
    setTrace(TraceLevel::kInfo, {}, 0);
    EXPECT_EQ(-1, get_external_trace_mask());
    warn();
    EXPECT_EQ(0u, traceCounts().passed);
}

TEST_F(TraceToCallbackTest, TheLineOfEveryFecPacketIsFiltered) {
    collect(TraceLevel::kError, 1);
    SessionHandle session(nullptr, 0x1234);
    session->SetPayloadType(98, 111);
    std::vector<unsigned char> fecPacket(40);
    fecPacket[0] = 0x80;
    fecPacket[1] = 111;
    for (unsigned char number = 1; number <= 5; ++number) {
        fecPacket[3] = number;
        session->InputReceivedData(fecPacket.data(), static_cast<int>(fecPacket.size()), 1000);
    }
    EXPECT_THAT(texts, IsEmpty());
    EXPECT_EQ(5u, traceCounts().filtered);
    util_adapter_trace(0, "TAL", "an error", 8);
    EXPECT_THAT(texts, ElementsAre("an error"));
}

TEST_F(TraceToCallbackTest, WithoutTheTimeTheLinesOfOneSecondPass) {
    collect(TraceLevel::kInfo, 3);
    for (int i = 0; i < 10; ++i) {
        warn();
    }
    EXPECT_THAT(texts, SizeIs(3));
    EXPECT_EQ(7u, traceCounts().dropped);
}

TEST_F(TraceToCallbackTest, TimeRefillsTheBudget) {
    collect(TraceLevel::kInfo, 10);
    TimePoint now{seconds(5000)};
    advanceTrace(now);
    const auto passedOf = [&](int lines) {
        texts.clear();
        for (int i = 0; i < lines; ++i) {
            warn();
        }
        return texts.size();
    };
    EXPECT_EQ(10u, passedOf(20));
    advanceTrace(now += milliseconds(300));
    EXPECT_EQ(3u, passedOf(20));
    advanceTrace(now += milliseconds(99));
    EXPECT_EQ(0u, passedOf(1));
    advanceTrace(now += milliseconds(1));
    EXPECT_EQ(1u, passedOf(2));
    advanceTrace(now += std::chrono::hours(100000));  // a day off does not save up lines
    EXPECT_EQ(10u, passedOf(50));
    advanceTrace(now - seconds(10));  // time that steps back refills nothing
    EXPECT_EQ(0u, passedOf(1));
    advanceTrace(now);
    EXPECT_EQ(0u, passedOf(1));
}

TEST_F(TraceToCallbackTest, SettingAnewBeginsAnew) {
    collect(TraceLevel::kInfo, 1);
    warn();
    warn();
    EXPECT_EQ(1u, traceCounts().dropped);
    collect(TraceLevel::kInfo, 1);
    EXPECT_EQ(0u, traceCounts().dropped);
    warn();
    EXPECT_THAT(texts, SizeIs(2));
}

}  // namespace
}  // namespace talrtp::kit

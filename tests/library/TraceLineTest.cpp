// The format of trace lines, their levels and the weak defaults. The internal line class is compiled into
// this program, since the library does not export it; the packet stands for the library where its own lines
// matter.

#include "TalRtpTraceLine.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpPacket.h>

#include <climits>
#include <string>

#include "TraceCatcher.h"

namespace talrtp {
namespace {

using test::TraceCatcher;
using test::TraceLine;
using testing::IsEmpty;
using testing::SizeIs;

// The position that the macro records at this very line.
#define POSITION_HERE std::string("[" __FILE__ ":") + std::to_string(__LINE__) + "]"

TEST(TraceLine, FramesTheMessageWithoutABlankBeforeThePosition) {
    const TraceCatcher trace(2);
    // clang-format off
    TAL_TRACE(WARNING, "value = " << 3u); const std::string position = POSITION_HERE;
    // clang-format on
    ASSERT_THAT(trace.lines(), SizeIs(1));
    const TraceLine& line = trace.lines()[0];
    EXPECT_EQ(line.level, 1);
    EXPECT_EQ(line.tag, "TAL");
    EXPECT_EQ(line.text, "[TAL] WARNING: [TalRtp]: value = 3" + position);
    EXPECT_EQ(line.length, line.text.size());
}

TEST(TraceLine, NamesEachLevel) {
    const TraceCatcher trace(2);
    TAL_TRACE_WITHOUT_POSITION(ERROR, "a");
    TAL_TRACE_WITHOUT_POSITION(WARNING, "b");
    TAL_TRACE_WITHOUT_POSITION(INFO, "c");
    ASSERT_THAT(trace.lines(), SizeIs(3));
    EXPECT_EQ(trace.lines()[0].level, 0);
    EXPECT_EQ(trace.lines()[0].text, "[TAL] ERROR: [TalRtp]: a");
    EXPECT_EQ(trace.lines()[1].level, 1);
    EXPECT_EQ(trace.lines()[1].text, "[TAL] WARNING: [TalRtp]: b");
    EXPECT_EQ(trace.lines()[2].level, 2);
    EXPECT_EQ(trace.lines()[2].text, "[TAL] INFO: [TalRtp]: c");
}

TEST(TraceLine, WritesNumbersInDecimalAndPointersInHexadecimal) {
    const TraceCatcher trace(2);
    TAL_TRACE_WITHOUT_POSITION(INFO, 0 << " " << INT_MAX << " " << INT_MIN << " " << UINT_MAX);
    TAL_TRACE_WITHOUT_POSITION(INFO, LONG_MAX << " " << LONG_MIN << " " << ULONG_MAX);
    TAL_TRACE_WITHOUT_POSITION(INFO, static_cast<unsigned short>(65535) << " " << true << " " << false);
    TAL_TRACE_WITHOUT_POSITION(INFO, reinterpret_cast<const void*>(0x1f2e)
                                         << static_cast<const void*>(nullptr));
    EXPECT_THAT(trace.messages(),
                testing::ElementsAre("0 2147483647 -2147483648 4294967295",
                                     "9223372036854775807 -9223372036854775808 18446744073709551615",
                                     "65535 1 0", "0x1f2e0x0"));
}

TEST(TraceLine, IsCutAt1023Characters) {
    const std::string prefix = "[TAL] INFO: [TalRtp]: ";
    const TraceCatcher trace(2);

    const std::string fitting(1023 - prefix.size(), 'x');
    TAL_TRACE_WITHOUT_POSITION(INFO, fitting.c_str());
    TAL_TRACE_WITHOUT_POSITION(INFO, fitting.c_str() << 7);
    TAL_TRACE(INFO, std::string(5000, 'x').c_str());
    ASSERT_THAT(trace.lines(), SizeIs(3));
    for (const TraceLine& line : trace.lines()) {
        EXPECT_EQ(line.text, prefix + fitting);
        EXPECT_EQ(line.length, 1023u);
    }
}

TEST(TraceLine, CutInsideThePositionKeepsWhatFits) {
    const std::string prefix = "[TAL] INFO: [TalRtp]: ";
    const TraceCatcher trace(2);
    TAL_TRACE(INFO, std::string(1022 - prefix.size(), 'x').c_str());
    ASSERT_THAT(trace.lines(), SizeIs(1));
    EXPECT_EQ(trace.lines()[0].text, prefix + std::string(1022 - prefix.size(), 'x') + "[");
}

TEST(TraceLine, IsMadeWhenTheMaskIsNotBelowItsLevel) {
    const int masks[] = {INT_MIN, -1, 0, 1, 2, 3, INT_MAX};
    for (const int mask : masks) {
        const TraceCatcher trace(mask);
        TAL_TRACE(ERROR, "e");
        TAL_TRACE(WARNING, "w");
        TAL_TRACE(INFO, "i");
        EXPECT_THAT(trace.messages(0), SizeIs(mask >= 0 ? 1 : 0)) << mask;
        EXPECT_THAT(trace.messages(1), SizeIs(mask >= 1 ? 1 : 0)) << mask;
        EXPECT_THAT(trace.messages(2), SizeIs(mask >= 2 ? 1 : 0)) << mask;
        EXPECT_EQ(trace.maskCalls(), 3) << "asked afresh before each line";
    }
}

TEST(TraceLine, ComputesNoValueWhenTheMaskIsTooLow) {
    const TraceCatcher trace(0);
    int computed = 0;
    const auto value = [&computed] { return ++computed; };
    TAL_TRACE(WARNING, value());
    TAL_TRACE_WITHOUT_POSITION(INFO, value());
    EXPECT_EQ(computed, 0);
    TAL_TRACE(ERROR, value());
    EXPECT_EQ(computed, 1);
}

TEST(TraceLine, OfTheLibraryRecordsThePathWithinTheRepository) {
    CTalRtpPacket packet(12);
    packet.set_version(3);
    const TraceCatcher trace(1);
    EXPECT_FALSE(packet.validate());
    ASSERT_THAT(trace.lines(), SizeIs(1));
    EXPECT_THAT(
        trace.lines()[0].text,
        testing::MatchesRegex("\\[TAL\\] WARNING: \\[TalRtp\\]: CTalRtpPacket::validate, version isn't "
                              "supported, version = 3\\[src/rtp/TalRtpPacket\\.cpp:[0-9]+\\]"));
    EXPECT_EQ(trace.lines()[0].length, trace.lines()[0].text.size());
}

TEST(TraceLine, OfTheLibraryIsNotMadeBelowItsLevel) {
    CTalRtpPacket packet(12);
    packet.set_version(3);
    for (const int mask : {-1, 0}) {
        const TraceCatcher trace(mask);
        EXPECT_FALSE(packet.validate());
        EXPECT_THAT(trace.lines(), IsEmpty()) << mask;
        EXPECT_EQ(trace.maskCalls(), 1);
    }
}

#if !defined(TALRTP_STATIC)
// This program defines the facility itself; looked up in the shared library only, the defaults show.
TEST(TraceDefaults, GiveMaskMinusOneAndNoOutput) {
    void* const library = dlopen("libtalrtp.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto mask = reinterpret_cast<int (*)()>(dlsym(library, "get_external_trace_mask"));
    const auto output = reinterpret_cast<void (*)(int, const char*, const char*, unsigned int)>(
        dlsym(library, "util_adapter_trace"));
    ASSERT_NE(mask, nullptr);
    ASSERT_NE(output, nullptr);
    ASSERT_NE(mask, &get_external_trace_mask) << "not the library's own";

    const TraceCatcher trace(2);
    EXPECT_EQ(mask(), -1);
    EXPECT_EQ(trace.maskCalls(), 0);
    output(0, "TAL", "text", 4);
    EXPECT_THAT(trace.lines(), IsEmpty());
    dlclose(library);
}
#endif

}  // namespace
}  // namespace talrtp

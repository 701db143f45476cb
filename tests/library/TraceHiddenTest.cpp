// The trace functions as docs/hosts.md shows them, in a program that is compiled with -fvisibility=hidden.
// They reach the library because TalRtpTrace.h declares them with the visibility that they need.

#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpTrace.h>

#include <gtest/gtest.h>

#ifndef TALRTP_VISIBILITY_IS_HIDDEN
#error "the build compiles this test with -fvisibility=hidden"
#endif

namespace {

int g_lines = 0;

}  // namespace

extern "C" int get_external_trace_mask(void) {
    return 1;
}

extern "C" void util_adapter_trace(int, const char*, const char*, unsigned int) {
    ++g_lines;
}

namespace talrtp {
namespace {

TEST(TraceHiddenTest, LinesArriveUnderHiddenVisibility) {
    unsigned char datagram[12] = {0x40, 98};
    EXPECT_FALSE(CTalRtpPacket(datagram, sizeof(datagram)).validate());
    EXPECT_EQ(1, g_lines);
}

}  // namespace
}  // namespace talrtp

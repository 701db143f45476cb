#include "RtpPackets.h"

#include <talrtp/kit/UnitRun.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace talrtp::kit {
namespace {

using test::Bytes;
using test::copyOf;

TEST(UnitRunTest, IsEmptyAtFirst) {
    const UnitRun run;
    EXPECT_EQ(0u, run.count());
    EXPECT_TRUE(run.annexB().empty());
}

TEST(UnitRunTest, KeepsUnitsInOrderWithTheirStartCodes) {
    UnitRun run;
    run.append(Bytes{0, 0, 0, 1, 0x67, 0x42}, true);
    run.appendBare(Bytes{0x68});
    run.append(Bytes{0, 0, 0, 1, 0x65, 0x88, 0x80}, false);
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x65, 0x88, 0x80}),
              copyOf(run.annexB()));
    ASSERT_EQ(3u, run.count());
    EXPECT_EQ(2u, run.sizeOf(0));
    EXPECT_EQ(1u, run.sizeOf(1));
    EXPECT_EQ(3u, run.sizeOf(2));
    EXPECT_TRUE(run.isWhole(0));
    EXPECT_TRUE(run.isWhole(1));
    EXPECT_FALSE(run.isWhole(2));
}

TEST(UnitRunTest, IgnoresAUnitWithoutAByteOfItsOwn) {
    UnitRun run;
    run.append(Bytes{0, 0, 0, 1}, true);
    run.append(Bytes{0, 0, 1}, true);
    run.append({}, false);
    EXPECT_EQ(0u, run.count());
    EXPECT_TRUE(run.annexB().empty());
    run.append(Bytes{0, 0, 0, 1, 9}, true);
    EXPECT_EQ(1u, run.count());
    EXPECT_EQ(1u, run.sizeOf(0));
}

TEST(UnitRunTest, ForgetsTheUnitsAndKeepsTheMemory) {
    UnitRun run;
    run.appendBare(Bytes(1000, 0x65));
    const std::size_t capacity = run.capacity();
    const std::uint8_t* const bytes = run.annexB().data();
    EXPECT_GE(capacity, 1004u);
    run.clear();
    EXPECT_EQ(0u, run.count());
    EXPECT_TRUE(run.annexB().empty());
    EXPECT_EQ(capacity, run.capacity());
    run.appendBare(Bytes(1000, 0x41));
    EXPECT_EQ(bytes, run.annexB().data());
    EXPECT_EQ(1u, run.count());
    EXPECT_EQ(1004u, run.annexB().size());
}

}  // namespace
}  // namespace talrtp::kit

// The head of a NAL unit.

#include <talrtp/kit/NalUnit.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "Bytes.h"

namespace talrtp::kit {
namespace {

using test::Bytes;

TEST(NalUnit, TypeIsTheLowFiveBits) {
    EXPECT_EQ(nalType(Bytes{0x67, 0x42}), 7);
    EXPECT_EQ(nalType(Bytes{0xff}), 31);
    EXPECT_EQ(nalType(Bytes{0xe0}), 0);
    EXPECT_EQ(nalType(BytesView()), 0);
}

TEST(NalUnit, RtpCarriesTypes1To23) {
    for (unsigned int type = 0; type < 32; ++type) {
        const std::uint8_t unit[] = {static_cast<std::uint8_t>(0x60 | type)};
        EXPECT_EQ(isCarriedByRtp(unit), type >= 1 && type <= 23) << type;
    }
}

TEST(NalUnit, NamesTheReasonWhyRtpDoesNotCarryIt) {
    EXPECT_EQ(whyNotCarried(BytesView()), std::string("it is empty"));
    EXPECT_EQ(whyNotCarried(BytesView(static_cast<const std::uint8_t*>(nullptr), 5)),
              std::string("its pointer is null"));
    EXPECT_EQ(whyNotCarried(Bytes{0x60, 1}), std::string("type 0 is not used in RTP"));
    EXPECT_EQ(whyNotCarried(Bytes{0x78}), std::string("types 24 to 31 mark packets in RTP, not units"));
    EXPECT_EQ(whyNotCarried(Bytes{0x41}), nullptr);
}

// ue(v) of 0 is the single bit 1.
TEST(NalUnit, ASliceBeginsAPictureWhenItsFirstBitIsSet) {
    EXPECT_TRUE(startsAtFirstMacroblock(Bytes{0x41, 0x80}));
    EXPECT_TRUE(startsAtFirstMacroblock(Bytes{0x65, 0xff}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x41, 0x7f}));
    EXPECT_TRUE(startsAtFirstMacroblock(Bytes{0x74, 0, 0, 0, 0x80}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x74, 0xff, 0xff, 0xff, 0x7f}));
}

// The extension of 3D video is one byte shorter than that of scalable and multiview video.
TEST(NalUnit, ASliceOfDepthHasAShorterHeader) {
    EXPECT_TRUE(startsAtFirstMacroblock(Bytes{0x75, 0x80, 0, 0x80}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x75, 0x80, 0, 0x7f, 0x80}));
    EXPECT_TRUE(startsAtFirstMacroblock(Bytes{0x75, 0x7f, 0, 0, 0x80}));
}

TEST(NalUnit, AHeaderWithoutSliceBeginsNoPicture) {
    EXPECT_FALSE(startsAtFirstMacroblock(BytesView()));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x41}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x74, 0x80, 0xff, 0xff}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x75, 0x80, 0xff}));
    EXPECT_FALSE(startsAtFirstMacroblock(Bytes{0x75}));
}

// Scalable: dependency_id in bits 6-4 and quality_id in bits 3-0 of the third byte. Multiview: ten bits of
// view_id from the third byte on.
TEST(NalUnit, LayerGrowsWithDependencyQualityAndView) {
    EXPECT_EQ(layerOf(Bytes{0x74, 0x80, 0x92, 0x07, 0x80}), 0x12);
    EXPECT_EQ(layerOf(Bytes{0x74, 0x00, 0x01, 0x80, 0x80}), 6);
    EXPECT_EQ(layerOf(Bytes{0x74, 0x80, 0x92}), 0);
    EXPECT_EQ(layerOf(BytesView()), 0);
}

}  // namespace
}  // namespace talrtp::kit

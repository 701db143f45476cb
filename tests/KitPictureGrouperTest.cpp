// The grouping of units into pictures.

#include "KitRandom.h"
#include "kit/PictureGrouper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace talrtp::kit {
namespace {

using test::SeededRandom;
using testing::ElementsAre;
using testing::IsEmpty;

// Units of one letter each; a capital slice begins with macroblock 0.
NalUnit unitOf(char letter) {
    switch (letter) {
        case 'S':
            return {0x41, 0x80};
        case 's':
            return {0x41, 0x40};
        case 'I':
            return {0x65, 0xff};
        case 'i':
            return {0x65, 0x7f};
        case 'A':
            return {0x42, 0x80};  // data partition A
        case 'b':
            return {0x43, 0x80};  // data partition B, which begins with slice_id
        case 'e':
            return {0x06, 0x05};  // SEI
        case 'p':
            return {0x67, 0x42};  // SPS
        case 'q':
            return {0x68, 0xce};  // PPS
        case 'd':
            return {0x09, 0xf0};  // delimiter
        case 'z':
            return {0x0b};  // end of stream
        case 'f':
            return {0x0c, 0xff};  // filler
        case 'x':
            return {0x6e, 0x40, 0x00, 0x07};  // prefix
        case 'u':
            return {0x6f, 0x53};  // subset SPS
        case 'L':
            return {0x74, 0x80, 0x00, 0x07, 0x80};  // layer slice, dependency_id 0
        case 'M':
            return {0x74, 0x80, 0x10, 0x07, 0x80};  // layer slice, dependency_id 1
        case 'm':
            return {0x74, 0x80, 0x10, 0x07, 0x40};
        default:
            return {};
    }
}

// Groups the units and returns the letters of each picture.
std::vector<std::string> group(const std::string& letters, std::size_t maxPictureSize = 1000) {
    const std::string known = "SsIiAbepqdzfxuLMm";
    CPictureGrouper grouper(maxPictureSize);
    std::vector<std::string> pictures;
    const auto note = [&](const Picture& picture) {
        pictures.emplace_back();
        for (const NalUnit& unit : picture) {
            for (const char letter : known) {
                if (unitOf(letter) == unit) {
                    pictures.back() += letter;
                }
            }
        }
    };
    Picture done;
    for (const char letter : letters) {
        if (grouper.push(unitOf(letter), done)) {
            note(done);
        }
    }
    if (grouper.finish(done)) {
        note(done);
    }
    return pictures;
}

TEST(PictureGrouper, ASliceWithMacroblockZeroBeginsAPicture) {
    EXPECT_THAT(group("IiiiSsssS"), ElementsAre("Iiii", "Ssss", "S"));
}

TEST(PictureGrouper, ParameterSetsAndSeiGoWithTheSlicesBehindThem) {
    EXPECT_THAT(group("pqeIiSspqIieS"), ElementsAre("pqeIi", "Ss", "pqIi", "eS"));
}

TEST(PictureGrouper, ADelimiterBeginsAPicture) {
    EXPECT_THAT(group("dpqIdSdS"), ElementsAre("dpqI", "dS", "dS"));
}

TEST(PictureGrouper, APrefixUnitGoesWithItsSlice) {
    EXPECT_THAT(group("pqxIxixSxs"), ElementsAre("pqxIxi", "xSxs"));
}

TEST(PictureGrouper, APrefixUnitAtTheEndIsKept) {
    EXPECT_THAT(group("xIx"), ElementsAre("xIx"));
}

TEST(PictureGrouper, LayerSlicesBelongToTheBaseLayersPicture) {
    EXPECT_THAT(group("puqILMmSLM"), ElementsAre("puqILMm", "SLM"));
}

TEST(PictureGrouper, LayerSlicesWithoutBaseLayerBeginAPictureAtTheLowestLayer) {
    EXPECT_THAT(group("uqLMmLMMM"), ElementsAre("uqLMm", "LM", "M", "M"));
}

TEST(PictureGrouper, DataPartitionsBelongToTheirSlice) {
    EXPECT_THAT(group("AbbAb"), ElementsAre("Abb", "Ab"));
}

TEST(PictureGrouper, FillerAndEndOfStreamStayWithThePicture) {
    EXPECT_THAT(group("IfSfz"), ElementsAre("If", "Sfz"));
}

TEST(PictureGrouper, ALostFirstSliceJoinsTwoPictures) {
    EXPECT_THAT(group("ssSs"), ElementsAre("ss", "Ss"));
}

TEST(PictureGrouper, ASliceOfOnlyAHeaderByteBeginsNoPicture) {
    EXPECT_FALSE(startsAtFirstMacroblock({0x41}));
    EXPECT_FALSE(startsAtFirstMacroblock({0x74, 0x80, 0x00, 0x07}));
    EXPECT_FALSE(startsAtFirstMacroblock({}));
}

TEST(PictureGrouper, EndsAPictureThatGrowsTooLarge) {
    EXPECT_THAT(group("ssssss", 5), ElementsAre("sss", "sss"));
    EXPECT_THAT(group("ssssss", 6), ElementsAre("ssss", "ss"));
}

TEST(PictureGrouper, NoUnitsMakeNoPicture) {
    EXPECT_THAT(group(""), IsEmpty());
}

// Whatever the order of the units, all come out once and in order, and a picture is never empty.
TEST(PictureGrouper, KeepsEveryUnitInOrder) {
    const std::string alphabet = "SsIiAbepqdzfxuLMm";
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::string letters;
        for (int i = 0; i < 60; ++i) {
            letters += alphabet[random.between(0, static_cast<std::uint32_t>(alphabet.size() - 1))];
        }
        std::string joined;
        for (const std::string& picture : group(letters)) {
            EXPECT_FALSE(picture.empty());
            joined += picture;
        }
        EXPECT_EQ(joined, letters);
    }
}

}  // namespace
}  // namespace talrtp::kit

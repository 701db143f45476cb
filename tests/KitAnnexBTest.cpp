// The byte-stream reader, writer and splitter of the host.

#include "KitRandom.h"
#include "kit/AnnexB.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace talrtp::kit {
namespace {

using test::SeededRandom;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<NalUnit> readAll(CAnnexBReader& reader) {
    std::vector<NalUnit> units;
    NalUnit unit;
    while (reader.read(unit)) {
        units.push_back(unit);
    }
    return units;
}

std::vector<NalUnit> readAll(const std::vector<std::uint8_t>& bytes) {
    std::istringstream input(std::string(bytes.begin(), bytes.end()));
    CAnnexBReader reader(input);
    return readAll(reader);
}

TEST(AnnexBReader, ReadsThreeAndFourByteStartCodes) {
    EXPECT_THAT(readAll({0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0xce, 0, 0, 1, 0x65}),
                ElementsAre(NalUnit{0x67, 0x42}, NalUnit{0x68, 0xce}, NalUnit{0x65}));
}

TEST(AnnexBReader, DropsZerosAroundUnits) {
    EXPECT_THAT(readAll({0, 0, 0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 0, 0, 0, 1, 0x68, 0, 0}),
                ElementsAre(NalUnit{0x67, 0x42}, NalUnit{0x68}));
}

TEST(AnnexBReader, KeepsZerosInsideUnits) {
    EXPECT_THAT(readAll({0, 0, 1, 0x65, 0, 0x80, 0, 0, 3, 0, 0, 3, 1}),
                ElementsAre(NalUnit{0x65, 0, 0x80, 0, 0, 3, 0, 0, 3, 1}));
}

TEST(AnnexBReader, AByteOfOneWithoutTwoZerosIsNoStartCode) {
    EXPECT_THAT(readAll({0, 0, 1, 0x65, 0, 1, 1, 1}), ElementsAre(NalUnit{0x65, 0, 1, 1, 1}));
}

TEST(AnnexBReader, SkipsEmptyUnitsAndWhatStandsBeforeTheFirstStartCode) {
    EXPECT_THAT(readAll({9, 9, 0, 0, 1, 0, 0, 1, 0x65, 0x80, 0, 0, 1}), ElementsAre(NalUnit{0x65, 0x80}));
}

TEST(AnnexBReader, TellsAStreamWithoutStartCode) {
    std::istringstream input(std::string("\0\0\2 no video", 12));
    CAnnexBReader reader(input);
    EXPECT_THAT(readAll(reader), IsEmpty());
    EXPECT_FALSE(reader.hasStartCode());
    EXPECT_EQ(reader.position(), 12u);
}

TEST(AnnexBReader, AnEmptyStreamHasNoUnits) {
    EXPECT_THAT(readAll(std::vector<std::uint8_t>()), IsEmpty());
}

TEST(AnnexBReader, CutsAUnitAtTheLimitAndTellsIt) {
    std::istringstream input(std::string("\0\0\1abcd\0\0\1abcde\0\0\1ab", 20));
    CAnnexBReader reader(input, 4);
    NalUnit unit;
    ASSERT_TRUE(reader.read(unit));
    EXPECT_EQ(unit.size(), 4u);
    EXPECT_FALSE(reader.hasOversize());
    ASSERT_TRUE(reader.read(unit));
    EXPECT_EQ(unit.size(), 4u);
    EXPECT_TRUE(reader.hasOversize());
    ASSERT_TRUE(reader.read(unit));
    EXPECT_EQ(unit.size(), 2u);
}

TEST(AnnexBReader, ZerosCountTowardsTheLimit) {
    std::istringstream input(std::string("\0\0\1a\0\0\0\0b", 9));
    CAnnexBReader reader(input, 5);
    EXPECT_THAT(readAll(reader), ElementsAre(NalUnit{'a'}));
    EXPECT_TRUE(reader.hasOversize());
}

// Units of random content behind random start codes, longer than the reader's pieces, so that start codes
// fall on every place of a piece.
TEST(AnnexBReader, ReadsBackRandomStreams) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::vector<std::uint8_t> stream;
        std::vector<NalUnit> units;
        for (int i = 0; i < 40; ++i) {
            units.push_back(
                random.nalUnit(0x41, random.oneIn(4) ? random.between(1, 60000) : random.between(1, 9)));
            stream.insert(stream.end(), random.between(2, 6), 0);
            stream.push_back(1);
            stream.insert(stream.end(), units.back().begin(), units.back().end());
        }
        EXPECT_EQ(readAll(stream), units);
    }
}

// Any bytes give units, none of them empty or with a start code inside.
TEST(AnnexBReader, AnyBytesGiveUnitsWithoutStartCodes) {
    for (std::uint32_t seed = 1; seed <= 50; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::vector<std::uint8_t> stream = random.bytes(2000);
        for (std::uint8_t& byte : stream) {
            byte &= 3;
        }
        const NalUnit startCode{0, 0, 1};
        for (const NalUnit& unit : readAll(stream)) {
            ASSERT_FALSE(unit.empty());
            EXPECT_NE(unit.back(), 0);
            EXPECT_EQ(std::search(unit.begin(), unit.end(), startCode.begin(), startCode.end()), unit.end());
        }
    }
}

TEST(AnnexBWriter, PutsAFourByteStartCodeBeforeEachUnit) {
    std::ostringstream output;
    CAnnexBWriter writer(output);
    writer.write({0x67, 0x42});
    writer.write({0x68});
    EXPECT_EQ(output.str(), std::string("\0\0\0\1\x67\x42\0\0\0\1\x68", 11));
}

TEST(SplitAnnexB, ReturnsEveryUnitOfAHandOver) {
    const std::vector<std::uint8_t> bytes{0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68};
    EXPECT_THAT(splitAnnexB(bytes.data(), bytes.size()), ElementsAre(NalUnit{0x67, 0x42}, NalUnit{0x68}));
    EXPECT_THAT(splitAnnexB(bytes.data(), 0), IsEmpty());
}

}  // namespace
}  // namespace talrtp::kit

// The cut of a byte stream into access units.

#include "Bytes.h"
#include "SeededRandom.h"

#include <talrtp/kit/AccessUnitSplitter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace talrtp::kit {
namespace {

using test::Bytes;
using test::SeededRandom;
using testing::ElementsAre;
using testing::IsEmpty;

// Units of one letter each; a capital slice begins with macroblock 0.
Bytes unitOf(char letter) {
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

const std::string kLetters = "SsIiAbepqdzfxuLMm";

std::string lettersOf(const AccessUnit& accessUnit) {
    std::string letters;
    for (const BytesView unit : accessUnit.units()) {
        const auto known = std::find_if(kLetters.begin(), kLetters.end(),
                                        [&](char letter) { return BytesView(unitOf(letter)) == unit; });
        letters += known == kLetters.end() ? '?' : *known;
    }
    return letters;
}

// The stream of the units that the letters name, with start codes of 4 and 3 bytes in turn.
Bytes streamOf(const std::string& letters) {
    Bytes stream;
    for (std::size_t i = 0; i < letters.size(); ++i) {
        stream.insert(stream.end(), 3 - i % 2, 0);
        stream.push_back(1);
        const Bytes unit = unitOf(letters[i]);
        stream.insert(stream.end(), unit.begin(), unit.end());
    }
    return stream;
}

// Splits the stream of the units in chunks of `chunk` bytes and returns the letters of each access unit.
std::vector<std::string> split(const std::string& letters, std::size_t chunk,
                               std::size_t maxAccessUnit = 1000) {
    std::vector<std::string> found;
    AccessUnitSplitter splitter([&](const AccessUnit& unit) { found.push_back(lettersOf(unit)); }, 100,
                                maxAccessUnit);
    const Bytes stream = streamOf(letters);
    for (std::size_t i = 0; i < stream.size(); i += chunk) {
        splitter.push(BytesView(stream).subview(i, chunk));
    }
    splitter.finish();
    EXPECT_EQ(splitter.oversizeUnits(), 0u);
    return found;
}

// The same for chunks of one byte, of a few and of all.
std::vector<std::string> group(const std::string& letters) {
    const std::vector<std::string> found = split(letters, 1);
    for (const std::size_t chunk : {2, 3, 5, 7, 100000}) {
        EXPECT_EQ(split(letters, chunk), found) << chunk;
    }
    return found;
}

TEST(AccessUnitSplitter, ASliceWithMacroblockZeroBeginsAPicture) {
    EXPECT_THAT(group("IiiiSsssS"), ElementsAre("Iiii", "Ssss", "S"));
}

TEST(AccessUnitSplitter, ParameterSetsAndSeiGoWithTheSlicesAfterThem) {
    EXPECT_THAT(group("pqeIiSspqIieS"), ElementsAre("pqeIi", "Ss", "pqIi", "eS"));
}

TEST(AccessUnitSplitter, ADelimiterBeginsAPicture) {
    EXPECT_THAT(group("dpqIdSdS"), ElementsAre("dpqI", "dS", "dS"));
}

TEST(AccessUnitSplitter, APrefixUnitGoesWithItsSlice) {
    EXPECT_THAT(group("pqxIxixSxs"), ElementsAre("pqxIxi", "xSxs"));
}

TEST(AccessUnitSplitter, APrefixUnitAtTheEndIsKept) {
    EXPECT_THAT(group("xIx"), ElementsAre("xIx"));
}

TEST(AccessUnitSplitter, LayerSlicesBelongToTheBaseLayersPicture) {
    EXPECT_THAT(group("puqILMmSLM"), ElementsAre("puqILMm", "SLM"));
}

TEST(AccessUnitSplitter, LayerSlicesWithoutBaseLayerBeginAPictureAtTheLowestLayer) {
    EXPECT_THAT(group("uqLMmLMMM"), ElementsAre("uqLMm", "LM", "M", "M"));
}

TEST(AccessUnitSplitter, DataPartitionsBelongToTheirSlice) {
    EXPECT_THAT(group("AbbAb"), ElementsAre("Abb", "Ab"));
}

TEST(AccessUnitSplitter, FillerAndEndOfStreamStayWithThePicture) {
    EXPECT_THAT(group("IfSfz"), ElementsAre("If", "Sfz"));
}

TEST(AccessUnitSplitter, ALostFirstSliceJoinsTwoPictures) {
    EXPECT_THAT(group("ssSs"), ElementsAre("ss", "Ss"));
}

// Slices of 2 bytes: the limit is passed by the third one, and the fourth begins anew.
TEST(AccessUnitSplitter, EndsAnAccessUnitThatGrowsTooLarge) {
    for (const std::size_t chunk : {1, 1000}) {
        EXPECT_THAT(split("ssssss", chunk, 5), ElementsAre("sss", "sss"));
        EXPECT_THAT(split("ssssss", chunk, 6), ElementsAre("ssss", "ss"));
    }
}

TEST(AccessUnitSplitter, NoUnitsMakeNoPicture) {
    EXPECT_THAT(group(""), IsEmpty());
}

// Whatever the order of the units, all come out once and in order, and a picture is never empty.
TEST(AccessUnitSplitter, KeepsEveryUnitInOrder) {
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        std::string letters;
        for (int i = 0; i < 60; ++i) {
            letters += kLetters[random.between(0, static_cast<std::uint32_t>(kLetters.size() - 1))];
        }
        std::string joined;
        for (const std::string& picture : group(letters)) {
            EXPECT_FALSE(picture.empty());
            joined += picture;
        }
        EXPECT_EQ(joined, letters);
    }
}

// Collects the units of every access unit and its bytes.
struct Collector {
    std::vector<std::vector<Bytes>> units;
    std::vector<Bytes> bytes;

    AccessUnitSplitter::Take take() {
        return [this](const AccessUnit& accessUnit) {
            units.emplace_back();
            for (const BytesView unit : accessUnit.units()) {
                units.back().emplace_back(unit.begin(), unit.end());
            }
            bytes.emplace_back(accessUnit.annexB().begin(), accessUnit.annexB().end());
        };
    }
};

// 00 00 01 41 80 | 00 00 00 01 41 80: the second 41 80 is enough to end the first access unit.
TEST(AccessUnitSplitter, PassesAnAccessUnitOnWhenTheNextOneShows) {
    Collector found;
    AccessUnitSplitter splitter(found.take());
    const Bytes stream{0, 0, 1, 0x41, 0x80, 7, 0, 0, 0, 1, 0x41};
    splitter.push(stream);
    EXPECT_EQ(found.units.size(), 0u);
    splitter.push(Bytes{0x80});
    ASSERT_EQ(found.units.size(), 1u);
    EXPECT_THAT(found.units[0], ElementsAre(Bytes{0x41, 0x80, 7}));
}

TEST(AccessUnitSplitter, TheHeaderOfADelimiterIsEnough) {
    Collector found;
    AccessUnitSplitter splitter(found.take());
    splitter.push(Bytes{0, 0, 1, 0x65, 0x80, 0, 0, 0, 1});
    EXPECT_EQ(found.units.size(), 0u);
    splitter.push(Bytes{0x09});
    EXPECT_EQ(found.units.size(), 1u);
    splitter.finish();
    ASSERT_EQ(found.units.size(), 2u);
    EXPECT_THAT(found.units[1], ElementsAre(Bytes{0x09}));
}

TEST(AccessUnitSplitter, LendsTheBytesOfTheStream) {
    Collector found;
    AccessUnitSplitter splitter(found.take());
    splitter.push(Bytes{8, 0, 0, 0, 0, 1, 0x67, 5, 0, 0, 0, 0, 1, 0x65, 0x80, 0, 0, 0, 1, 0x41, 0x80, 0});
    splitter.finish();
    EXPECT_THAT(found.bytes, ElementsAre(Bytes{0, 0, 0, 1, 0x67, 5, 0, 0, 0, 0, 1, 0x65, 0x80},
                                         Bytes{0, 0, 0, 1, 0x41, 0x80}));
}

TEST(AccessUnitSplitter, BeginsAnewAfterTheEnd) {
    Collector found;
    AccessUnitSplitter splitter(found.take());
    splitter.push(Bytes{0, 0, 1, 0x65, 0x80, 0, 0});
    splitter.finish();
    splitter.push(Bytes{1, 0x41, 0x80});  // the zeros before the end count no more
    splitter.push(Bytes{0, 0, 1, 0x41, 0x40});
    splitter.finish();
    EXPECT_THAT(found.units, ElementsAre(std::vector<Bytes>{{0x65, 0x80}}, std::vector<Bytes>{{0x41, 0x40}}));
}

TEST(AccessUnitSplitter, ReportsAMissingStartCode) {
    Collector found;
    AccessUnitSplitter splitter(found.take());
    splitter.push(Bytes(200000, 1));
    splitter.push(Bytes{0, 0});
    EXPECT_FALSE(splitter.hasStartCode());
    splitter.push(Bytes{1});
    EXPECT_TRUE(splitter.hasStartCode());
    splitter.finish();
    EXPECT_EQ(found.units.size(), 0u);
}

TEST(AccessUnitSplitter, LeavesAUnitOutThatIsTooLong) {
    for (const std::size_t chunk : {1, 4, 1000}) {
        Collector found;
        AccessUnitSplitter splitter(found.take(), 4, 1000);
        const Bytes stream{0, 0, 1, 0x67, 2, 3, 4, 0, 0, 1, 0x68, 2, 3, 4, 5, 0, 0, 0, 1, 0x65, 0x80};
        for (std::size_t i = 0; i < stream.size(); i += chunk) {
            splitter.push(BytesView(stream).subview(i, chunk));
        }
        splitter.finish();
        EXPECT_EQ(splitter.oversizeUnits(), 1u);
        EXPECT_THAT(found.units, ElementsAre(std::vector<Bytes>{{0x67, 2, 3, 4}, {0x65, 0x80}}));
        EXPECT_THAT(found.bytes, ElementsAre(Bytes{0, 0, 1, 0x67, 2, 3, 4, 0, 0, 0, 1, 0x65, 0x80}));
    }
}

TEST(AccessUnitSplitter, ASliceThatIsTooLongStillEndsItsAccessUnit) {
    Collector found;
    AccessUnitSplitter splitter(found.take(), 4, 1000);
    splitter.push(Bytes{0, 0, 1, 0x67, 1, 0, 0, 1, 0x65, 0x80, 2, 3, 4, 0, 0, 1, 0x41, 0x80});
    splitter.finish();
    EXPECT_THAT(found.units, ElementsAre(std::vector<Bytes>{{0x67, 1}}, std::vector<Bytes>{{0x41, 0x80}}));
}

TEST(AccessUnitSplitter, ZerosWithinAUnitCountTowardsTheLimit) {
    for (const std::size_t chunk : {1, 1000}) {
        Collector found;
        AccessUnitSplitter splitter(found.take(), 5, 1000);
        Bytes stream{0, 0, 1, 0x67};
        stream.insert(stream.end(), 20, 0);
        Bytes inside = stream;
        stream.insert(stream.end(), {1, 0x68});
        inside.insert(inside.end(), {2, 0, 0, 1, 0x68});
        for (const Bytes& each : {stream, inside}) {
            for (std::size_t i = 0; i < each.size(); i += chunk) {
                splitter.push(BytesView(each).subview(i, chunk));
            }
            splitter.finish();
        }
        EXPECT_EQ(splitter.oversizeUnits(), 1u);
        EXPECT_THAT(found.units, ElementsAre(std::vector<Bytes>{{0x67}, {0x68}}, std::vector<Bytes>{{0x68}}));
    }
}

// A thousand megabytes that would all have to be kept and walked over again and again.
TEST(AccessUnitSplitter, EndlessZerosAndEmptyUnitsTakeNeitherTimeNorMemory) {
    Collector found;
    AccessUnitSplitter splitter(found.take(), 1 << 20, 1 << 20);
    splitter.push(Bytes{0, 0, 1, 0x65, 0x80});
    const Bytes zeros(1 << 20, 0);
    for (int i = 0; i < 1000; ++i) {
        splitter.push(zeros);
    }
    Bytes startCodes;
    while (startCodes.size() < 3 << 20) {
        startCodes.insert(startCodes.end(), {0, 0, 1});
    }
    splitter.push(startCodes);
    splitter.push(Bytes{0x41, 0x80});
    splitter.finish();
    EXPECT_THAT(found.units, ElementsAre(std::vector<Bytes>{{0x65, 0x80}}, std::vector<Bytes>{{0x41, 0x80}}));
    EXPECT_LE(found.bytes[0].size(), 10u);
    EXPECT_EQ(splitter.cutAccessUnits(), 1u);
}

Bytes load(const std::string& name) {
    std::ifstream file(std::string(TALRTP_MEDIA_DIR) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Four slices a picture; 60 pictures of which the first of every GOP brings parameter sets. A file in which
// each picture begins with a slice of macroblock 0 tells their number to a walk that knows nothing else.
TEST(AccessUnitSplitter, CutsAFileOfManySlices) {
    const Bytes stream = load("own-testsrc2-640x360-4slices.264");
    std::size_t pictures = 0;
    std::size_t unitCount = 0;
    Bytes joined;
    ASSERT_TRUE(forEachUnit(stream, [&](BytesView unit) {
        ++unitCount;
        pictures += isBaseSlice(nalType(unit)) && startsAtFirstMacroblock(unit) ? 1 : 0;
    }));
    Collector found;
    AccessUnitSplitter splitter(found.take());
    SeededRandom random(1);
    for (std::size_t i = 0; i < stream.size();) {
        const std::size_t chunk = random.between(1, random.oneIn(2) ? 10 : 100000);
        splitter.push(BytesView(stream).subview(i, chunk));
        i += chunk;
    }
    splitter.finish();
    EXPECT_EQ(found.units.size(), pictures);
    std::size_t split = 0;
    for (const std::vector<Bytes>& each : found.units) {
        split += each.size();
        EXPECT_EQ(std::count_if(each.begin(), each.end(),
                                [](const Bytes& unit) { return isBaseSlice(nalType(unit)); }),
                  4);
    }
    EXPECT_EQ(split, unitCount);
    for (const Bytes& each : found.bytes) {
        joined.insert(joined.end(), each.begin(), each.end());
    }
    EXPECT_TRUE(joined == stream);
}

// Random bytes of 0 to 3 with start codes everywhere, in chunks of any size: the same access units.
TEST(AccessUnitSplitter, ChunksChangeNothing) {
    for (std::uint32_t seed = 1; seed <= 100; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        Bytes stream = random.bytes(random.between(1, 3000));
        for (std::uint8_t& byte : stream) {
            byte = byte < 40 ? 0x41 : byte < 60 ? 0x65 : byte < 80 ? 0x80 : byte & 1;
        }
        const std::size_t maxUnit = random.between(1, 40);
        const std::size_t maxAccessUnit = random.between(1, 200);
        Collector whole;
        AccessUnitSplitter inOne(whole.take(), maxUnit, maxAccessUnit);
        inOne.push(stream);
        inOne.finish();
        Collector cut;
        AccessUnitSplitter inMany(cut.take(), maxUnit, maxAccessUnit);
        for (std::size_t i = 0; i < stream.size();) {
            const std::size_t chunk = random.between(1, 20);
            inMany.push(BytesView(stream).subview(i, chunk));
            i += chunk;
        }
        inMany.finish();
        EXPECT_TRUE(cut.units == whole.units);
        EXPECT_EQ(inMany.oversizeUnits(), inOne.oversizeUnits());
    }
}

TEST(AccessUnitSplitter, RefusesNoFunction) {
    EXPECT_THROW(AccessUnitSplitter{AccessUnitSplitter::Take()}, std::invalid_argument);
}

}  // namespace
}  // namespace talrtp::kit

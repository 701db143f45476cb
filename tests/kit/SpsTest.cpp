// Sequence parameter sets.

#include <talrtp/kit/Sps.h>

#include "Bytes.h"
#include "SeededRandom.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace talrtp::kit {
namespace {

using test::Bytes;
using test::SeededRandom;

// Writes bits, highest first, and Exp-Golomb numbers.
class BitWriter {
public:
    BitWriter& bits(std::uint32_t value, int count) {
        for (int i = count - 1; i >= 0; --i) {
            m_bits.push_back((value >> i & 1) != 0);
        }
        return *this;
    }
    BitWriter& ue(std::uint32_t value) {
        int length = 1;
        while ((std::uint64_t{value} + 1) >> length != 0) {
            ++length;
        }
        return bits(0, length - 1).bits(value + 1, length);
    }
    BitWriter& se(std::int32_t value) {
        return ue(static_cast<std::uint32_t>(value > 0 ? 2 * value - 1 : -2 * value));
    }

    // The unit: header, then the bits and a stop bit, with emulation prevention.
    Bytes unit(std::uint8_t header) const {
        std::vector<bool> padded = m_bits;
        padded.push_back(true);
        padded.resize((padded.size() + 7) / 8 * 8);
        Bytes bytes{header};
        std::size_t zeros = 0;
        for (std::size_t i = 0; i < padded.size(); i += 8) {
            std::uint8_t byte = 0;
            for (std::size_t bit = 0; bit < 8; ++bit) {
                byte = static_cast<std::uint8_t>(byte << 1 | (padded[i + bit] ? 1 : 0));
            }
            if (zeros >= 2 && byte <= 3) {
                bytes.push_back(3);
                zeros = 0;
            }
            bytes.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
        return bytes;
    }

private:
    std::vector<bool> m_bits;
};

// Baseline, 20 by 15 macroblocks:
//   67 42 c0 1e | sps_id 1, frame_num 1, order type 2 011, reference frames 1 010 | gaps 0, width-1 19
//   000010100, height-1 14 0001111, frames only 1, direct 1, cropping 0, VUI 0, stop 1 00
TEST(Sps, ReadsABaselineSetWorkedOutByHand) {
    const std::optional<SpsInfo> sps = readSps(Bytes{0x67, 0x42, 0xc0, 0x1e, 0xda, 0x05, 0x07, 0xe4});
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->profile, 66u);
    EXPECT_EQ(sps->constraints, 0xc0u);
    EXPECT_EQ(sps->level, 30u);
    EXPECT_EQ(sps->id, 0u);
    EXPECT_EQ(sps->width, 320u);
    EXPECT_EQ(sps->height, 240u);
    EXPECT_TRUE(sps->hasOnlyFrames);
    EXPECT_EQ(sps->frameNumberBits, 4);
    EXPECT_EQ(sps->pictureOrderType, 2u);
    EXPECT_FALSE(sps->timing);
    EXPECT_FALSE(sps->frameRate());
    EXPECT_FALSE(sps->maxReorder);
}

// The set of a stream of x264: High, 640 by 360 (23 rows of macroblocks, 8 lines cropped), 25 frames a
// second, fixed, no reordering. Its timing holds emulation prevention bytes.
TEST(Sps, ReadsTheSetOfARealStream) {
    const std::optional<SpsInfo> sps =
        readSps(Bytes{0x67, 0x64, 0x00, 0x1e, 0xac, 0xb2, 0x01, 0x40, 0x5f, 0xf2, 0xe0, 0x22, 0x00,
                      0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x65, 0x1e, 0x2c, 0x5c, 0x90});
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->profile, 100u);
    EXPECT_EQ(sps->width, 640u);
    EXPECT_EQ(sps->height, 360u);
    ASSERT_TRUE(sps->frameRate());
    EXPECT_EQ(sps->frameRate()->numerator, 25u);
    EXPECT_EQ(sps->frameRate()->denominator, 1u);
    EXPECT_TRUE(sps->timing->isFixed);
    EXPECT_EQ(sps->maxReorder, std::optional<std::uint32_t>(0));
}

// High 4:4:4 with everything that may stand in front of the timing, and after it up to the reordering.
BitWriter fullSet(std::uint32_t unitsInTick, std::uint32_t timeScale) {
    BitWriter w;
    w.bits(244, 8).bits(0, 8).bits(41, 8).ue(31);
    w.ue(3).bits(1, 1).ue(2).ue(2).bits(0, 1);  // 4:4:4 in planes of their own
    w.bits(1, 1);                               // scaling matrix of 12 lists:
    w.bits(1, 1).se(-8);                        //   the first ends at once, scale 8 - 8 = 0
    w.bits(1, 1).se(300);                       //   8 + 300 is 52 modulo 256
    for (int i = 1; i < 16; ++i) {
        w.se(0);
    }
    w.bits(0, 10);
    w.ue(12).ue(1).bits(0, 1).se(-1).se(1).ue(2).se(5).se(-5);  // order type 1 with a cycle of two
    w.ue(4).bits(0, 1);
    w.ue(44).ue(17).bits(0, 1).bits(1, 1).bits(1, 1);  // 720 by 576 in fields
    w.bits(1, 1).ue(3).ue(5).ue(1).ue(2);              // crops 8 columns and 3 * 2 lines
    w.bits(1, 1);                                      // VUI
    w.bits(1, 1).bits(255, 8).bits(0x00100011, 32);
    w.bits(1, 1).bits(1, 1);
    w.bits(1, 1).bits(5, 3).bits(0, 1).bits(1, 1).bits(0x010101, 24);
    w.bits(1, 1).ue(2).ue(2);
    w.bits(1, 1).bits(unitsInTick, 32).bits(timeScale, 32).bits(0, 1);
    w.bits(1, 1).ue(1).bits(0x12, 8).ue(7).ue(8).bits(0, 1).ue(9).ue(10).bits(1, 1).bits(0xabcde, 20);
    w.bits(1, 1).ue(0).bits(0x34, 8).ue(70000).ue(1).bits(0, 1).bits(0x12345, 20);
    w.bits(0, 1);
    w.bits(1, 1);
    w.bits(1, 1).bits(1, 1).ue(0).ue(0).ue(16).ue(16).ue(3).ue(4);
    return w;
}

TEST(Sps, ReadsEveryFieldInItsPlace) {
    const std::optional<SpsInfo> sps = readSps(fullSet(1001, 60000).unit(0x67));
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->id, 31u);
    EXPECT_TRUE(sps->hasColourPlanes);
    EXPECT_EQ(sps->frameNumberBits, 16);
    EXPECT_EQ(sps->pictureOrderType, 1u);
    EXPECT_FALSE(sps->hasOnlyFrames);
    EXPECT_EQ(sps->width, 712u);
    EXPECT_EQ(sps->height, 570u);
    ASSERT_TRUE(sps->timing);
    EXPECT_EQ(sps->timing->unitsInTick, 1001u);
    EXPECT_EQ(sps->timing->timeScale, 60000u);
    EXPECT_FALSE(sps->timing->isFixed);
    EXPECT_EQ(sps->frameRate()->numerator, 30000u);
    EXPECT_EQ(sps->frameRate()->denominator, 1001u);
    EXPECT_EQ(sps->maxReorder, std::optional<std::uint32_t>(3));
}

TEST(Sps, ReadsASubsetToo) {
    EXPECT_TRUE(readSps(fullSet(1, 50).unit(0x6f)));
    EXPECT_FALSE(readSps(fullSet(1, 50).unit(0x68)));
    EXPECT_FALSE(readSps(BytesView()));
}

TEST(Sps, TimingsThatAreNoneAreNotStated) {
    EXPECT_FALSE(readSps(fullSet(0, 60000).unit(0x67))->timing);
    EXPECT_FALSE(readSps(fullSet(1, 0).unit(0x67))->timing);
    // 4294967295 / (2 * 2147483648) has a denominator of 2^32.
    EXPECT_TRUE(readSps(fullSet(0x80000000, 0xffffffff).unit(0x67))->timing);
    EXPECT_FALSE(readSps(fullSet(0x80000000, 0xffffffff).unit(0x67))->frameRate());
    EXPECT_EQ(readSps(fullSet(0x80000000, 0xfffffffe).unit(0x67))->frameRate()->denominator, 0x80000000u);
}

// A baseline set with one value out of its range.
Bytes setWith(std::uint32_t id, std::uint32_t frameBits, std::uint32_t orderType, std::uint32_t columns,
              std::uint32_t crop) {
    BitWriter w;
    w.bits(66, 8).bits(0, 8).bits(30, 8).ue(id).ue(frameBits).ue(orderType).ue(1).bits(0, 1);
    w.ue(columns).ue(14).bits(1, 1).bits(1, 1);
    w.bits(1, 1).ue(crop).ue(0).ue(0).ue(0).bits(0, 1);
    return w.unit(0x67);
}

TEST(Sps, RefusesValuesOutOfRange) {
    EXPECT_TRUE(readSps(setWith(31, 12, 2, 19, 159)));
    EXPECT_FALSE(readSps(setWith(32, 12, 2, 19, 159)));
    EXPECT_FALSE(readSps(setWith(31, 13, 2, 19, 159)));
    EXPECT_FALSE(readSps(setWith(31, 12, 3, 19, 159)));
    EXPECT_FALSE(readSps(setWith(31, 12, 2, 4096, 0)));
    EXPECT_FALSE(readSps(setWith(31, 12, 2, 19, 160)));  // nothing would be left of 320 columns
    EXPECT_FALSE(readSps(setWith(31, 12, 2, 19, 0x80000000)));
    EXPECT_EQ(readSps(setWith(0, 0, 2, 4095, 0))->width, 65536u);
}

TEST(Sps, ACutSetHasASizeOrIsNone) {
    const Bytes whole = fullSet(1001, 60000).unit(0x67);
    bool hadSize = false;
    bool hadTiming = false;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::optional<SpsInfo> sps = readSps(BytesView(whole).subview(0, size));
        EXPECT_FALSE(hadSize && !sps) << size;
        hadSize = sps.has_value();
        if (sps) {
            EXPECT_EQ(sps->width, 712u);
            EXPECT_FALSE(hadTiming && !sps->timing);
            hadTiming = sps->timing.has_value();
            EXPECT_TRUE(!hadTiming || sps->timing->timeScale == 60000);
        }
    }
    EXPECT_TRUE(hadTiming);
}

TEST(Sps, AnyBytesAreSafe) {
    for (std::uint32_t seed = 1; seed <= 20000; ++seed) {
        SeededRandom random(seed);
        Bytes bytes = random.bytes(random.between(0, 60));
        for (std::uint8_t& byte : bytes) {
            byte = random.oneIn(3) ? 0 : byte;
        }
        bytes.insert(bytes.begin(), 0x67);
        const std::optional<SpsInfo> sps = readSps(bytes);
        if (sps) {
            ASSERT_GT(sps->width, 0u);
            ASSERT_GT(sps->height, 0u);
            ASSERT_LE(sps->width, 65536u);
        }
    }
}

TEST(RbspReader, ReadsTheCodesOfTheStandard) {
    // 1 | 010 | 011 | 00100 | 00101 00: 0, 1, 2, 3, 4 and, signed, 0, 1, -1, 2, -2
    const Bytes bits{0xa6, 0x42, 0x80};
    RbspReader plain(bits);
    for (std::uint32_t expected = 0; expected < 5; ++expected) {
        EXPECT_EQ(plain.ue(), expected);
    }
    RbspReader reader(bits);
    for (const std::int32_t expected : {0, 1, -1, 2, -2}) {
        EXPECT_EQ(reader.se(), expected);
    }
    EXPECT_TRUE(reader.isGood());
}

TEST(RbspReader, ReadsTheLargestNumberAndRefusesLargerOnes) {
    // 31 zeros, a one and 31 ones: 2^32 - 2.
    const Bytes largest{0, 0, 3, 0, 1, 0xff, 0xff, 0xff, 0xfe};
    RbspReader reader(largest);
    EXPECT_EQ(reader.ue(), 0xfffffffeu);
    EXPECT_TRUE(reader.isGood());
    const Bytes longer{0, 0, 3, 0, 0, 0x80, 0, 0, 3, 0, 0, 0x80};  // 32 zeros and a one
    RbspReader tooLarge(longer);
    EXPECT_EQ(tooLarge.ue(), 0u);
    EXPECT_FALSE(tooLarge.isGood());
}

TEST(RbspReader, DropsEmulationPrevention) {
    const Bytes bytes{0, 0, 3, 1, 0, 0, 3, 0, 3, 3};
    RbspReader reader(bytes);
    EXPECT_EQ(reader.bits(32), 0x00000100u);
    EXPECT_EQ(reader.bits(32), 0x00000303u);
    EXPECT_TRUE(reader.isGood());
    EXPECT_EQ(reader.bits(1), 0u);
    EXPECT_FALSE(reader.isGood());
}

}  // namespace
}  // namespace talrtp::kit

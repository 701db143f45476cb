// The arithmetic of XOR parity without a session: the fields that an FEC packet states for its group, and its
// contents (RFC 2733), against bytes worked out by hand and against plain sums.

#include "Bytes.h"
#include "fec/GroupSpan.h"
#include "fec/XorParity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

namespace talrtp {
namespace test {
namespace {

using testing::Each;

stByteView viewOf(const Bytes& bytes) {
    return {bytes.data(), static_cast<int>(bytes.size())};
}

// A packet of `size` bytes whose contents follow from its number.
Bytes packetOf(unsigned int seq, unsigned int timestamp, std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(seq * 7 + i * 13 + 5);
    }
    bytes[2] = static_cast<unsigned char>(seq >> 8);
    bytes[3] = static_cast<unsigned char>(seq);
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[4 + i] = static_cast<unsigned char>(timestamp >> (24 - 8 * i));
    }
    return bytes;
}

// --- The span of a group -------------------------------------------------------------------------------

stGroupSpan spanOf(const std::vector<Bytes>& packets) {
    stGroupSpan span;
    for (const Bytes& packet : packets) {
        span.add(viewOf(packet));
    }
    return span;
}

stGroupSpan spanOfNumbers(std::initializer_list<unsigned int> numbers) {
    std::vector<Bytes> packets;
    for (const unsigned int number : numbers) {
        packets.push_back(packetOf(number, 0, 12));
    }
    return spanOf(packets);
}

TEST(GroupSpanTest, OfOnePacketIsThatPacket) {
    const stGroupSpan span = spanOf({packetOf(0x9001, 0xf0000001, 40)});
    EXPECT_EQ(span.count, 1);
    EXPECT_EQ(span.lowestSeq, 0x9001);
    EXPECT_EQ(span.highestSeq, 0x9001);
    EXPECT_EQ(span.latestTimestamp, 0xf0000001u);
    EXPECT_EQ(span.largestSize, 40);
    EXPECT_TRUE(span.isConsecutive());
}

TEST(GroupSpanTest, OfNothingIsNotConsecutive) {
    EXPECT_EQ(stGroupSpan().count, 0);
    EXPECT_FALSE(stGroupSpan().isConsecutive());
}

TEST(GroupSpanTest, NumbersAreOrderedAcrossTheWrap) {
    const stGroupSpan span = spanOfNumbers({1, 65534, 0, 65535});
    EXPECT_EQ(span.lowestSeq, 65534);
    EXPECT_EQ(span.highestSeq, 1);
    EXPECT_TRUE(span.isConsecutive());
}

TEST(GroupSpanTest, NumberHalfTheRangeAheadIsLaterAndOneMoreIsEarlier) {
    EXPECT_EQ(spanOfNumbers({5, 5 + 32768}).lowestSeq, 5);
    EXPECT_EQ(spanOfNumbers({5, 5 + 32768}).highestSeq, 5 + 32768);
    EXPECT_EQ(spanOfNumbers({5, 5 + 32769}).lowestSeq, 5 + 32769);
    EXPECT_EQ(spanOfNumbers({5, 5 + 32769}).highestSeq, 5);
}

TEST(GroupSpanTest, GapAndRepeatAreNotConsecutive) {
    EXPECT_FALSE(spanOfNumbers({10, 11, 13}).isConsecutive());
    EXPECT_FALSE(spanOfNumbers({10, 11, 11}).isConsecutive());
    EXPECT_TRUE(spanOfNumbers({12, 10, 11}).isConsecutive());
}

TEST(GroupSpanTest, TimestampIsTheLatestAcrossTheWrap) {
    EXPECT_EQ(spanOf({packetOf(1, 0xfffffff0, 12), packetOf(2, 0x10, 12)}).latestTimestamp, 0x10u);
    EXPECT_EQ(spanOf({packetOf(1, 0x10, 12), packetOf(2, 0xfffffff0, 12)}).latestTimestamp, 0x10u);
    EXPECT_EQ(spanOf({packetOf(1, 0, 12), packetOf(2, 0x80000000, 12)}).latestTimestamp, 0x80000000u);
    EXPECT_EQ(spanOf({packetOf(1, 0, 12), packetOf(2, 0x80000001, 12)}).latestTimestamp, 0u);
}

TEST(GroupSpanTest, SizeIsThatOfTheLargestPacket) {
    EXPECT_EQ(spanOf({packetOf(1, 0, 20), packetOf(2, 0, 90), packetOf(3, 0, 30)}).largestSize, 90);
}

// --- The parity ----------------------------------------------------------------------------------------

// The packets of a vector, less those that are empty.
struct Group {
    const std::vector<Bytes>* packets;

    int end() const { return static_cast<int>(packets->size()); }
    bool contains(int i) const { return !packets->at(static_cast<std::size_t>(i)).empty(); }
    stByteView at(int i) const { return viewOf(packets->at(static_cast<std::size_t>(i))); }
};

constexpr std::size_t kParityBegin = 12 + 12;  // after the RTP header and the FEC header

// An FEC packet with room for a parity of `size` bytes, and what stood there before.
Bytes emptyFecPacket(std::size_t size) {
    Bytes packet(kParityBegin + size, 0xee);
    packet[0] = 0x80;
    packet[1] = 99;
    return packet;
}

// The parity of a group in which nothing is odd.
Bytes parityOf(const std::vector<Bytes>& packets, unsigned int base, std::size_t size) {
    Bytes fec = emptyFecPacket(size);
    CXorParity parity(static_cast<std::uint16_t>(base), static_cast<int>(size), fec.data() + kParityBegin);
    int place = 0;
    EXPECT_EQ(parity.add(Group{&packets}, place), EXorStop::kEnd);
    EXPECT_EQ(place, static_cast<int>(packets.size()));
    parity.finish(fec.data());
    return fec;
}

// The same, one byte and one field after the other.
Bytes plainParityOf(const std::vector<Bytes>& packets, unsigned int base, std::size_t size) {
    Bytes fec = emptyFecPacket(size);
    std::fill(fec.begin() + 12, fec.end(), 0);
    fec[12] = static_cast<unsigned char>(base >> 8);
    fec[13] = static_cast<unsigned char>(base);
    for (const Bytes& packet : packets) {
        if (packet.empty()) {
            continue;
        }
        const unsigned int distance =
            (packet[2] * 256u + packet[3] + 65536u - base) % 65536u;  // 0 is the first bit of byte 17
        const std::size_t length = packet.size() - 12;
        fec[0] ^= packet[0] & 0x3f;  // P, X and CC
        fec[1] ^= packet[1] & 0x80;  // M
        fec[14] ^= static_cast<unsigned char>(length >> 8);
        fec[15] ^= static_cast<unsigned char>(length);
        fec[16] ^= packet[1] & 0x7f;  // PT
        fec[17 + distance / 8] |= static_cast<unsigned char>(0x80 >> distance % 8);
        for (std::size_t i = 0; i < 4; ++i) {
            fec[20 + i] ^= packet[4 + i];  // TS
        }
        for (std::size_t i = 0; i < length; ++i) {
            fec[kParityBegin + i] ^= packet[12 + i];
        }
    }
    return fec;
}

TEST(XorParityTest, TwoPacketsWorkedOutByHand) {
    // clang-format off
    const std::vector<Bytes> packets = {
        {
            0x90, 0xe0, 0xff, 0xff,  // V=2 P=0 X=1 CC=0 | M=1 PT=96 | sequence number 65535
            0x00, 0x00, 0x00, 0x01,  // timestamp 1
            0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
            0xbe, 0xde, 0x00, 0x00,  // extension without data
            0x41,                    // payload: 5 bytes in all after the fixed header
        },
        {
            0xa2, 0x61, 0x00, 0x01,  // V=2 P=1 X=0 CC=2 | M=0 PT=97 | sequence number 1
            0x00, 0x00, 0x00, 0x03,  // timestamp 3
            0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
            0x01, 0x02, 0x03,        // 3 bytes after the fixed header
        },
    };
    const Bytes expected = {
        0xb2, 0xe3, 0xee, 0xee,  // P=1 X=1 CC=2 | M=1, PT of the FEC packet | its number stays
        0xee, 0xee, 0xee, 0xee,  // its timestamp stays
        0xee, 0xee, 0xee, 0xee,  // its SSRC stays
        0xff, 0xff, 0x00, 0x06,  // SN base 65535 | length recovery 5^3
        0x01, 0xa0, 0x00, 0x00,  // E=0, PT recovery 96^97 | mask: base + 0 and base + 2
        0x00, 0x00, 0x00, 0x02,  // TS recovery 1^3
        0xbf, 0xdc, 0x03, 0x00,  // be^01 de^02 00^03 00
        0x41,                    // 41
    };
    // clang-format on
    EXPECT_EQ(parityOf(packets, 65535, 5), expected);
}

TEST(XorParityTest, AnyNumberOfPacketsSumsUpPlainly) {
    std::mt19937 random(20);
    for (const std::size_t count : {1, 2, 3, 8, 24, 31, 32, 33, 63, 64, 65, 96, 97, 200}) {
        std::vector<Bytes> packets;
        for (std::size_t i = 0; i < count; ++i) {
            packets.push_back(packetOf(65530 + i % 24, random(), 12 + random() % 300));
        }
        packets[count / 2] = packetOf(65530, 7, 12 + 300);
        ASSERT_EQ(parityOf(packets, 65530, 300), plainParityOf(packets, 65530, 300)) << count;
    }
}

TEST(XorParityTest, PacketsOutsideTheGroupArePassedOver) {
    std::vector<Bytes> packets = {{}, packetOf(100, 1, 40), {}, packetOf(102, 1, 30), {}};
    EXPECT_EQ(parityOf(packets, 100, 28), plainParityOf(packets, 100, 28));
}

TEST(XorParityTest, PacketWithoutABodyHasFieldsOnly) {
    EXPECT_EQ(parityOf({packetOf(1, 9, 12), packetOf(2, 8, 30)}, 1, 18),
              plainParityOf({packetOf(1, 9, 12), packetOf(2, 8, 30)}, 1, 18));
}

TEST(XorParityTest, TwentyThreeFromTheBaseIsAddedAndTwentyFourIsLeftOut) {
    for (const unsigned int distance : {24u, 25u, 65535u}) {
        const std::vector<Bytes> packets = {packetOf(200, 1, 40), packetOf(200 + distance, 1, 40),
                                            packetOf(223, 1, 40)};
        Bytes fec = emptyFecPacket(28);
        CXorParity parity(200, 28, fec.data() + kParityBegin);
        int place = 0;
        ASSERT_EQ(parity.add(Group{&packets}, place), EXorStop::kTooFar) << distance;
        ASSERT_EQ(place, 1);
        ++place;
        ASSERT_EQ(parity.add(Group{&packets}, place), EXorStop::kEnd);
        ASSERT_EQ(place, 3);
        parity.finish(fec.data());
        ASSERT_EQ(fec, plainParityOf({packets[0], packets[2]}, 200, 28)) << distance;
    }
}

TEST(XorParityTest, PacketAsLongAsTheParityFitsAndALongerOneIsReportedAndAdded) {
    const std::vector<Bytes> packets = {packetOf(1, 5, 12 + 20), packetOf(2, 5, 12 + 21),
                                        packetOf(3, 5, 12 + 8)};
    Bytes fec = emptyFecPacket(20);
    fec.push_back(0x5a);  // after the parity
    CXorParity parity(1, 20, fec.data() + kParityBegin);
    int place = 0;
    EXPECT_EQ(parity.add(Group{&packets}, place), EXorStop::kTooLong);
    EXPECT_EQ(place, 1);
    ++place;
    EXPECT_EQ(parity.add(Group{&packets}, place), EXorStop::kEnd);
    parity.finish(fec.data());
    EXPECT_EQ(fec.back(), 0x5a);
    fec.pop_back();
    Bytes expected = plainParityOf(packets, 1, 21);
    expected.pop_back();
    EXPECT_EQ(fec, expected);
}

TEST(XorParityTest, OfNothingIsZero) {
    Bytes fec = emptyFecPacket(16);
    CXorParity parity(3, 16, fec.data() + kParityBegin);
    parity.finish(fec.data());
    EXPECT_EQ(fec, plainParityOf({}, 3, 16));
    EXPECT_THAT(Bytes(fec.begin() + kParityBegin, fec.end()), Each(0));
}

}  // namespace
}  // namespace test
}  // namespace talrtp

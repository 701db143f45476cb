// The making of FEC packets, XOR parity (RFC 2733) and Reed-Solomon, and the XOR kernel under it.

#include <algorithm>
#include <cstring>

#include "SessionFixture.h"
#include "TimeLimit.h"

namespace talrtp {
namespace test {
namespace {

using testing::Each;

// --- The XOR kernel ------------------------------------------------------------------------------------

typedef void (*XorFunction)(unsigned char*, unsigned char*, unsigned char*, int);

class XorKernelTest : public ::testing::TestWithParam<XorFunction> {};

INSTANTIATE_TEST_SUITE_P(FreeAndMember, XorKernelTest,
                         testing::Values(static_cast<XorFunction>(&deployXorProcess),
                                         static_cast<XorFunction>(&CMMRTPSessionBase::deployXorProcess)),
                         [](const auto& function) { return function.index == 0 ? "Free" : "Member"; });

TEST_P(XorKernelTest, LengthOfZeroOrLessLeavesTheDestination) {
    for (const int length : {0, -1, -5, -64}) {
        Bytes dst(16, 0x5a);
        Bytes one(16, 0xff);
        Bytes two(16, 0x0f);
        GetParam()(dst.data(), one.data(), two.data(), length);
        EXPECT_THAT(dst, Each(0x5a)) << length;
    }
}

TEST_P(XorKernelTest, EveryLengthIsTheXorOfEachByteAndNoMore) {
    for (int length = 1; length <= 257; ++length) {
        const std::size_t size = static_cast<std::size_t>(length);
        Bytes one = pattern(size, 3);
        Bytes two = pattern(size, 200);
        Bytes dst(size + 2, 0xee);
        GetParam()(dst.data() + 1, one.data(), two.data(), length);
        EXPECT_EQ(dst.front(), 0xee);
        EXPECT_EQ(dst.back(), 0xee);
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(dst[i + 1], one[i] ^ two[i]) << "byte " << i << " of " << length;
        }
    }
}

TEST_P(XorKernelTest, DestinationMayBeTheFirstSource) {
    for (const int length : {1, 7, 8, 9, 15, 16, 17, 63, 64, 65, 71, 72, 73, 127, 128, 129, 1500}) {
        const std::size_t size = static_cast<std::size_t>(length);
        const Bytes before = pattern(size, 9);
        Bytes area = before;
        Bytes two = pattern(size, 77);
        GetParam()(area.data(), area.data(), two.data(), length);
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(area[i], before[i] ^ two[i]) << "byte " << i << " of " << length;
        }
    }
}

TEST_P(XorKernelTest, AreasNeedNoAlignment) {
    Bytes one = pattern(200, 1);
    Bytes two = pattern(200, 2);
    for (std::size_t a = 0; a < 8; ++a) {
        for (std::size_t b = 0; b < 8; ++b) {
            Bytes dst(200);
            GetParam()(dst.data() + (a + b) % 8, one.data() + a, two.data() + b, 100);
            for (std::size_t i = 0; i < 100; ++i) {
                ASSERT_EQ(dst[(a + b) % 8 + i], one[a + i] ^ two[b + i]) << a << " " << b << " " << i;
            }
        }
    }
}

// --- Both kinds ----------------------------------------------------------------------------------------

class GenerationTest : public SessionTest<SvcProbe> {
protected:
    GenerationTest() { session.m_fecSequenceNumber = 0x0200; }

    // Puts bytes into place `i` of the media group.
    void set(int i, Bytes bytes) { group[i].from_buffer(bytes.data(), static_cast<int>(bytes.size())); }
    // A media packet of `size` bytes in all.
    void set(int i, unsigned short seq, unsigned int ts, int size) {
        set(i, rtp(seq, ts, pattern(static_cast<std::size_t>(size) - 12, seq)));
    }

    PacketArray<CTalRtpPacket> group{300, 1700};
};

// --- CreateXorFecPackets -------------------------------------------------------------------------------

class XorGenerationTest : public GenerationTest {
protected:
    XorGenerationTest() { session.SetFecType(RTP_FEC_XOR); }

    int create(int count, unsigned int mask) { return session.CreateXorFecPackets(group, count, mask, &fec); }

    CRTPFECPacket fec{2000};
};

TEST_F(XorGenerationTest, ParityPacketToTheByte) {
    // clang-format off
    set(0, {
        0x80, 0xe2, 0x00, 0x64,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 100
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x11, 0x22, 0x33,        // payload: 3 bytes after the fixed header
    });
    set(1, 101, kTimestamp, 400);  // not selected
    set(2, {
        0xa1, 0x61, 0x00, 0x66,  // V=2 P=1 X=0 CC=1 | M=0 PT=97 | sequence number 102
        0x00, 0x01, 0x6d, 0xa0,  // timestamp 93600
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x01, 0x02, 0x03, 0x04,  // CSRC
        0xf0, 0x01,              // payload with 1 byte of padding: 6 bytes after the fixed header
    });
    const Bytes expected = {
        0xa1, 0xef, 0x02, 0x00,  // V=2, P=0^1, X=0^0, CC=0^1 | M=1^0, PT=111 | FEC sequence number 0x0200
        0x00, 0x01, 0x6d, 0xa0,  // the later timestamp
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x00, 0x64, 0x00, 0x05,  // SN base 100 | length recovery 3^6
        0x03, 0xa0, 0x00, 0x00,  // E=0, PT recovery 98^97 | mask: base + 0 and base + 2
        0x00, 0x00, 0x32, 0x30,  // TS recovery 0x15f90 ^ 0x16da0
        0x10, 0x20, 0x30, 0x04,  // parity: 11^01 22^02 33^03 00^04
        0xf0, 0x01,              // 00^f0 00^01
    };
    // clang-format on
    std::memset(fec.get_buffer(), 0xff, 2000);
    EXPECT_EQ(create(3, 5), 0);
    EXPECT_EQ(bytesOf(fec), expected);
    EXPECT_THAT(Bytes(fec.get_buffer() + 30, fec.get_buffer() + 2000), Each(0x00));
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0201);
    EXPECT_EQ(session.m_createdFECPacketNumber, 1u);
    EXPECT_EQ(session.m_createdMediaPacketNumber, 0u);
    expectLines({});
}

TEST_F(XorGenerationTest, RecoveryOfTheExtensionBitAndOfFifteenCsrcs) {
    Bytes first = rtp(10, 1, Bytes(64, 0x00));
    first[0] = 0x9f;  // X=1 CC=15
    set(0, first);
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(fec.get_buffer()[0], 0x9f);
    EXPECT_EQ(fec.get_packet_size(), 24 + 64);  // neither counts as a header of the FEC packet
    EXPECT_EQ(fec.get_fec_extension_flag(), false);
}

TEST_F(XorGenerationTest, NullIsRefusedWithAnErrorAndLeavesEverything) {
    EXPECT_EQ(session.CreateXorFecPackets(nullptr, 1, 1, &fec), -1);
    EXPECT_EQ(session.CreateXorFecPackets(group, 1, 1, nullptr), -1);
    const std::string opening = "CMMRTPSessionBase::CreateXorFecPackets invalid parameter: pPacket = ";
    expectLines({error(opening + "0x0, pFecPacket = " + printed(&fec)),
                 error(opening + printed(&group[0]) + ", pFecPacket = 0x0")});
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
    EXPECT_EQ(session.m_createdFECPacketNumber, 0u);
}

TEST_F(XorGenerationTest, OtherFecTypeIsRefusedWithAWarningAfterTheNullCheck) {
    session.SetFecType(RTP_FEC_RS);
    fec.get_buffer()[20] = 0x77;
    EXPECT_EQ(session.CreateXorFecPackets(nullptr, 1, 1, &fec), -1);
    trace.clear();
    EXPECT_EQ(create(0, 0), -2);
    expectLines(
        {warning("CMMRTPSessionBase::CreateXorFecPackets FEC type is not RTP_FEC_XOR type: fecType = 1")});
    EXPECT_EQ(fec.get_buffer()[20], 0x77);
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
}

TEST_F(XorGenerationTest, NothingSelectedIsRefusedWithAnError) {
    set(0, 100, 1, 20);
    set(1, 101, 1, 20);
    fec.get_buffer()[20] = 0x77;
    EXPECT_EQ(create(2, 4), -1);
    EXPECT_EQ(create(0, 1), -1);
    EXPECT_EQ(create(-1, 3), -1);
    const std::string opening = "CMMRTPSessionBase::CreateXorFecPackets invalid mask count, mask = ";
    expectLines(
        {error(opening + "4, count = 0"), error(opening + "1, count = 0"), error(opening + "3, count = 0")});
    EXPECT_EQ(fec.get_buffer()[20], 0x77);
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
    EXPECT_EQ(session.m_createdFECPacketNumber, 0u);
}

TEST_F(XorGenerationTest, MaskGoesRoundAfter32PacketsWhichIsKept) {
    for (int i = 0; i < 34; ++i) {
        set(i, static_cast<unsigned short>(500 + i), 1, 20);
    }
    set(32, 501, 1, 20);
    set(33, 502, 1, 20);
    EXPECT_EQ(create(34, 1), 0);  // bit 0: packets 0 and 32
    EXPECT_EQ(fec.get_fec_mask(), 0xc00000u);
    expectLines({});
}

TEST_F(XorGenerationTest, BaseIsTheEarliestNumberAcrossTheWrap) {
    set(0, 0, 1, 20);
    set(1, 65535, 1, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_fec_sequence_number_base(), 65535);
    EXPECT_EQ(fec.get_fec_mask(), 0xc00000u);
}

TEST_F(XorGenerationTest, NumberIsEarlierFrom32769OnAndNotAt32768) {
    set(0, 0, 1, 20);
    set(1, 32768, 1, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_fec_sequence_number_base(), 0);
    set(1, 32769, 1, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_fec_sequence_number_base(), 32769);
}

TEST_F(XorGenerationTest, PacketsGoIntoTheMaskByNumberNotByPlace) {
    set(0, 103, 1, 20);
    set(1, 100, 1, 20);
    set(2, 101, 1, 20);
    EXPECT_EQ(create(3, 7), 0);
    EXPECT_EQ(fec.get_fec_sequence_number_base(), 100);
    EXPECT_EQ(fec.get_fec_mask(), 0xd00000u);  // base + 0, 1 and 3
}

TEST_F(XorGenerationTest, TwentyThreeFromTheBaseIsProtectedAndTwentyFourIsLeftOut) {
    set(0, 100, 1, 20);
    set(1, 123, 1, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_fec_mask(), 0x800001u);
    expectLines({});
    set(1, 124, 1, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_fec_mask(), 0x800000u);
    expectLines({warning(
        "CMMRTPSessionBase::CreateXorFecPackets sequence number slop over, baseSeq = 100, packetSeq = 124")});
}

TEST_F(XorGenerationTest, PacketLeftOutStillCountsForSizeAndTimestamp) {
    set(0, 100, 1000, 40);
    set(1, 130, 2000, 100);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_payload_size(), 12 + 88);
    EXPECT_EQ(fec.get_timestamp(), 2000u);
    EXPECT_EQ(fec.get_fec_recover_length(), 28);
    EXPECT_EQ(fec.get_fec_recover_timestamp(), 1000u);
    EXPECT_EQ(fec.get_fec_recover_payload_type(), 98);
    const Bytes parity = slice(payloadOf(fec), 12);
    EXPECT_EQ(slice(parity, 0, 28), slice(bytesOf(group[0]), 12));
    EXPECT_THAT(slice(parity, 28), Each(0x00));
}

TEST_F(XorGenerationTest, TimestampIsTheLatestAcrossTheWrap) {
    set(0, 1, 0xfffffff0, 20);
    set(1, 2, 0x00000010, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_timestamp(), 0x10u);
    set(0, 1, 0x00000010, 20);
    set(1, 2, 0xfffffff0, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_timestamp(), 0x10u);
}

TEST_F(XorGenerationTest, TimestampIsLaterUpTo2To31AheadAndNotBeyond) {
    set(0, 1, 0, 20);
    set(1, 2, 0x80000000, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_timestamp(), 0x80000000u);
    set(1, 2, 0x80000001, 20);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_timestamp(), 0u);
}

TEST_F(XorGenerationTest, ShorterPacketCountsAsZeroBeyondItsEnd) {
    set(0, 1, 1, 60);
    set(1, 2, 1, 100);
    EXPECT_EQ(create(2, 3), 0);
    EXPECT_EQ(fec.get_payload_size(), 100);
    EXPECT_EQ(slice(payloadOf(fec), 60), slice(bytesOf(group[1]), 60));
    EXPECT_EQ(fec.get_fec_recover_length(), 48 ^ 88);
}

TEST_F(XorGenerationTest, LargeGroupHasTheParityOfAllPacketsButThoseLeftOut) {
    const TimeLimit limit(60);  // the walk over the packets stops at each full batch
    Bytes parity(100, 0);
    int length = 0;
    std::vector<ExpectedLine> lines;
    for (int i = 0; i < 70; ++i) {
        const bool isFar = i == 31 || i == 32 || i == 69;
        const unsigned short seq = static_cast<unsigned short>(isFar ? 1000 + i : 100 + i % 20);
        const int size = 112 - i % 9;
        set(i, seq, 1, size);
        if (isFar) {
            lines.push_back(
                warning("CMMRTPSessionBase::CreateXorFecPackets sequence number slop over, "
                        "baseSeq = 100, packetSeq = " +
                        std::to_string(seq)));
            continue;
        }
        const Bytes body = slice(bytesOf(group[i]), 12);
        for (std::size_t at = 0; at < body.size(); ++at) {
            parity[at] = static_cast<unsigned char>(parity[at] ^ body[at]);
        }
        length ^= size - 12;
    }
    EXPECT_EQ(create(70, 0xffffffff), 0);
    EXPECT_EQ(slice(payloadOf(fec), 12), parity);
    EXPECT_EQ(fec.get_fec_recover_length(), length);
    EXPECT_EQ(fec.get_fec_mask(), 0xfffff0u);
    expectLines(lines);
}

// The only packet that can be longer than the longest that was selected: it grows in between.
TEST_F(XorGenerationTest, PacketThatBecomesTheFecPacketIsTooLong) {
    PacketArray<CRTPFECPacket> packets(2, 200);
    for (int i = 0; i < 2; ++i) {
        packets[i].set_sequence_number(static_cast<unsigned short>(100 + i));
        packets[i].set_payload_size(50);
    }
    session.m_fecSequenceNumber = 110;
    EXPECT_EQ(session.CreateXorFecPackets(packets, 2, 0xf3, &packets[1]), 0);
    expectLines(
        {warning("CMMRTPSessionBase::CreateXorFecPackets packet length is bigger than fec max length"
                 ", packet_index = 2, mask = 243")});
    EXPECT_EQ(packets[1].get_fec_recover_length(), 50 ^ 62);
    EXPECT_EQ(packets[1].get_fec_mask(), 0x802000u);
}

TEST_F(XorGenerationTest, SessionsTypesAndNumbersGoOnFromCallToCall) {
    set(0, 1, 1, 20);
    session.SetPayloadType(96, 97);
    session.m_fecSequenceNumber = 65535;
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(fec.get_sequence_number(), 65535);
    EXPECT_EQ(fec.get_payload_type(), 97u);
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(fec.get_sequence_number(), 0);
    EXPECT_EQ(session.m_createdFECPacketNumber, 2u);
}

// --- CreateRsFecPackets --------------------------------------------------------------------------------

// GF(2^8) with x^8 + x^4 + x^3 + x^2 + 1, one bit at a time.
unsigned char multiply(unsigned char a, unsigned char b) {
    unsigned int product = 0;
    for (int bit = 7; bit >= 0; --bit) {
        product = product << 1 ^ ((product & 0x80) != 0 ? 0x11d : 0);
        product ^= (b >> bit & 1) != 0 ? a : 0;
    }
    return static_cast<unsigned char>(product);
}

unsigned char inverse(unsigned char a) {
    static const Bytes table = [] {
        Bytes inverses(256);
        for (unsigned int one = 1; one < 256; ++one) {
            for (unsigned int other = 1; other < 256; ++other) {
                if (multiply(static_cast<unsigned char>(one), static_cast<unsigned char>(other)) == 1) {
                    inverses[one] = static_cast<unsigned char>(other);
                }
            }
        }
        return inverses;
    }();
    return table[a];
}

// Position p of the code is the value at the p-th of the points 0, 1, 2, 4, 8, ...
unsigned char point(int position) {
    static const Bytes table = [] {
        Bytes points = {0, 1};
        while (points.size() < 256) {
            points.push_back(multiply(points.back(), 2));
        }
        return points;
    }();
    return table[static_cast<std::size_t>(position)];
}

// The share of source `j` in the block at `position`: Lagrange's polynomial over the first k points.
unsigned char coefficient(int k, int position, int j) {
    unsigned char result = 1;
    for (int other = 0; other < k; ++other) {
        if (other != j) {
            const unsigned char above = point(position) ^ point(other);
            const unsigned char below = point(j) ^ point(other);
            result = multiply(result, multiply(above, inverse(below)));
        }
    }
    return result;
}

class RsGenerationTest : public GenerationTest {
protected:
    int create(int count, int fecCount) { return session.CreateRsFecPackets(group, count, fec, fecCount); }

    // Parity block `j` over the first `count` packets of the group.
    Bytes expectedParity(int count, int j, int size) {
        Bytes parity(static_cast<std::size_t>(size));
        for (int i = 0; i < count; ++i) {
            const unsigned char share = coefficient(count, count + j, i);
            const Bytes source = bytesOf(group[i]);
            for (std::size_t at = 0; at < source.size(); ++at) {
                parity[at] ^= multiply(share, source[at]);
            }
        }
        return parity;
    }
    unsigned short expectedLength(int count, int j) {
        unsigned int low = 0;
        unsigned int high = 0;
        for (int i = 0; i < count; ++i) {
            const unsigned char share = coefficient(count, count + j, i);
            const int size = group[i].get_packet_size();
            low ^= multiply(share, static_cast<unsigned char>(size));
            high ^= multiply(share, static_cast<unsigned char>(size >> 8));
        }
        return static_cast<unsigned short>(high << 8 | low);
    }
    const CRTPRSPacket view(int j) { return CRTPRSPacket(fec[j].get_buffer(), fec[j].get_packet_size()); }

    PacketArray<CTalRtpPacket> fec{6, 1700};
};

TEST_F(RsGenerationTest, TwoParityPacketsToTheByte) {
    // clang-format off
    set(0, {
        0x80, 0xe2, 0x00, 0x10,  // V=2 P=0 X=0 CC=0 | M=1 PT=98 | sequence number 16
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x01, 0x02,              // payload; 14 bytes in all
    });
    set(1, {
        0x80, 0xe2, 0x00, 0x11,  // the same with sequence number 17
        0x00, 0x01, 0x5f, 0x90,
        0x0a, 0x0b, 0x0c, 0x0d,
        0x03,                    // payload; 13 bytes in all
    });
    // Over two sources the first parity is 3 * a + 2 * b and the second 5 * a + 4 * b, so bytes that are equal
    // in both packets appear as they are.
    const Bytes first = {
        0x80, 0x6f, 0x02, 0x00,  // V=2 P=X=CC=0 | M=0 PT=111 | FEC sequence number 0x0200
        0x00, 0x01, 0x5f, 0x90,  // timestamp of the group
        0x0a, 0x0b, 0x0c, 0x0d,  // SSRC
        0x00, 0x10, 0x00, 0x08,  // base 16 | recover length 3*14 + 2*13
        0x00, 0x02, 0x02, 0x00,  // index 0, of 2, over 2 media packets, reserved
        0x80, 0xe2, 0x00, 0x12,  // parity: ... 3*10 + 2*11
        0x00, 0x01, 0x5f, 0x90,
        0x0a, 0x0b, 0x0c, 0x0d,
        0x05, 0x06,              // 3*01 + 2*03, 3*02
    };
    const Bytes second = {
        0x80, 0x6f, 0x02, 0x01,  // FEC sequence number 0x0201
        0x00, 0x01, 0x5f, 0x90,
        0x0a, 0x0b, 0x0c, 0x0d,
        0x00, 0x10, 0x00, 0x02,  // base 16 | recover length 5*14 + 4*13
        0x01, 0x02, 0x02, 0x00,  // index 1, of 2, over 2
        0x80, 0xe2, 0x00, 0x14,  // parity: ... 5*10 + 4*11
        0x00, 0x01, 0x5f, 0x90,
        0x0a, 0x0b, 0x0c, 0x0d,
        0x09, 0x0a,              // 5*01 + 4*03, 5*02
    };
    // clang-format on
    for (int j = 0; j < 2; ++j) {
        std::memset(fec[j].get_buffer(), 0xff, 1700);
    }
    EXPECT_EQ(create(2, 2), 0);
    EXPECT_EQ(bytesOf(fec[0]), first);
    EXPECT_EQ(bytesOf(fec[1]), second);
    EXPECT_THAT(Bytes(fec[0].get_buffer() + 34, fec[0].get_buffer() + 1700), Each(0x00));
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0202);
    EXPECT_EQ(session.m_createdFECPacketNumber, 2u);
    expectLines({});
}

TEST_F(RsGenerationTest, ParityOverOnePacketIsThePacketItself) {
    set(0, 7, kTimestamp, 300);
    EXPECT_EQ(create(1, 2), 0);
    for (int j = 0; j < 2; ++j) {
        EXPECT_EQ(slice(payloadOf(fec[j]), 8), bytesOf(group[0]));
        EXPECT_EQ(view(j).get_rs_recover_length(), 300);
    }
}

TEST_F(RsGenerationTest, ShorterPacketsCountAsZeroBeyondTheirEnd) {
    set(0, 1, kTimestamp, 1200);
    set(1, 2, kTimestamp, 800);
    set(2, 3, kTimestamp, 1000);
    EXPECT_EQ(create(3, 2), 0);
    for (int j = 0; j < 2; ++j) {
        EXPECT_EQ(fec[j].get_payload_size(), 1208);
        EXPECT_EQ(fec[j].get_packet_size(), 1220);
        EXPECT_EQ(slice(payloadOf(fec[j]), 8), expectedParity(3, j, 1200));
        EXPECT_EQ(view(j).get_rs_recover_length(), expectedLength(3, j));
    }
}

TEST_F(RsGenerationTest, LargeGroupHasTheParityOfItsCode) {
    for (int i = 0; i < 40; ++i) {
        set(i, static_cast<unsigned short>(1000 + i), kTimestamp, 30 + i * 13);
    }
    EXPECT_EQ(create(40, 6), 0);
    for (int j = 0; j < 6; ++j) {
        EXPECT_EQ(slice(payloadOf(fec[j]), 8), expectedParity(40, j, 30 + 39 * 13)) << j;
        EXPECT_EQ(view(j).get_rs_recover_length(), expectedLength(40, j)) << j;
        EXPECT_EQ(view(j).get_rs_index(), j);
        EXPECT_EQ(view(j).get_rs_count(), 6);
        EXPECT_EQ(view(j).get_rs_mask(), 40);
        EXPECT_EQ(view(j).get_rs_sequence_number_base(), 1000);
        EXPECT_EQ(fec[j].get_sequence_number(), 0x0200 + j);
    }
}

// A receiver numbers its shards by sequence number; a sender whose array is in another order makes parity
// that fits no receiver.
TEST_F(RsGenerationTest, CodePositionIsThePlaceInTheArrayWhichIsKept) {
    set(0, 11, kTimestamp, 30);
    set(1, 10, kTimestamp, 30);
    EXPECT_EQ(create(2, 1), 0);
    EXPECT_EQ(view(0).get_rs_sequence_number_base(), 10);
    EXPECT_EQ(slice(payloadOf(fec[0]), 8), expectedParity(2, 0, 30));
}

TEST_F(RsGenerationTest, NumbersMayWrap) {
    const unsigned short numbers[] = {65534, 65535, 0, 1};
    for (int i = 0; i < 4; ++i) {
        set(i, numbers[i], kTimestamp, 20);
    }
    EXPECT_EQ(create(4, 1), 0);
    EXPECT_EQ(view(0).get_rs_sequence_number_base(), 65534);
}

TEST_F(RsGenerationTest, GapInTheNumbersIsRefusedWithAnError) {
    set(0, 10, kTimestamp, 20);
    set(1, 11, kTimestamp, 20);
    set(2, 13, kTimestamp, 20);
    fec[0].get_buffer()[20] = 0x77;
    EXPECT_EQ(create(3, 1), -1);
    EXPECT_EQ(create(0, 1), -1);
    EXPECT_EQ(create(-1, 1), -1);
    expectLines({error("CMMRTPSessionBase::CreateRsFecPackets packet seq numbers are discontinuous."),
                 error("CMMRTPSessionBase::CreateRsFecPackets packet seq numbers are discontinuous."),
                 error("CMMRTPSessionBase::CreateRsFecPackets packet seq numbers are discontinuous.")});
    EXPECT_EQ(fec[0].get_buffer()[20], 0x77);
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
}

TEST_F(RsGenerationTest, NullIsRefusedWithAnError) {
    EXPECT_EQ(session.CreateRsFecPackets(nullptr, 1, fec, 1), -1);
    EXPECT_EQ(session.CreateRsFecPackets(group, 1, nullptr, 1), -1);
    const std::string opening = "CMMRTPSessionBase::CreateRsFecPackets invalid parameter: pPacket = ";
    expectLines({error(opening + "0x0, pFecPacket = " + printed(&fec[0])),
                 error(opening + printed(&group[0]) + ", pFecPacket = 0x0")});
}

TEST_F(RsGenerationTest, GroupOf255IsTakenAndOneOf256IsRefusedWhichIsKept) {
    for (int i = 0; i < 251; ++i) {
        set(i, static_cast<unsigned short>(1 + i), kTimestamp, 14);
    }
    fec[0].get_buffer()[20] = 0x77;
    EXPECT_EQ(create(251, 5), -1);
    expectLines({error("CMMRTPSessionBase::CreateRsFecPackets total number of packet and fec is over 256.")});
    EXPECT_EQ(fec[0].get_buffer()[20], 0x77);
    EXPECT_EQ(create(250, 5), 0);
    EXPECT_EQ(view(4).get_rs_mask(), 250);
    EXPECT_EQ(view(4).get_rs_count(), 5);
    EXPECT_EQ(slice(payloadOf(fec[4]), 8), expectedParity(250, 4, 14));
    expectLines({});
}

TEST_F(RsGenerationTest, OtherFecTypeIsRefusedAfterTheGroupsSizeAndBeforeItsNumbers) {
    session.SetFecType(RTP_FEC_XOR);
    set(0, 10, kTimestamp, 20);
    set(1, 12, kTimestamp, 20);
    EXPECT_EQ(create(2, 1), -2);
    expectLines(
        {warning("CMMRTPSessionBase::CreateRsFecPackets FEC type is not RTP_FEC_RS type: fecType = 0")});
    EXPECT_EQ(create(251, 5), -1);
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
}

TEST_F(RsGenerationTest, GroupWithoutACodeIsAnErrorAndUsesNoNumbersUp) {
    set(0, 10, kTimestamp, 20);
    set(1, 11, kTimestamp, 20);
    set(2, 12, kTimestamp, 20);
    EXPECT_EQ(create(3, -1), 1);
    expectLines({error("CMMRTPSessionBase::CreateRsFecPackets get rs model failed, k = 3, n = 2")});
    EXPECT_EQ(session.m_fecSequenceNumber, 0x0200);
    EXPECT_EQ(session.m_createdFECPacketNumber, 0u);
}

TEST_F(RsGenerationTest, NoParityPacketsAskedForIsSuccess) {
    set(0, 10, kTimestamp, 20);
    EXPECT_EQ(create(1, 0), 0);
    EXPECT_EQ(session.m_createdFECPacketNumber, 0u);
    expectLines({});
}

TEST_F(RsGenerationTest, TimestampIsTheLatestAcrossTheWrap) {
    set(0, 1, 0x00000010, 20);
    set(1, 2, 0xfffffff0, 20);
    EXPECT_EQ(create(2, 1), 0);
    EXPECT_EQ(fec[0].get_timestamp(), 0x10u);
    set(0, 1, 0, 20);
    set(1, 2, 0x80000000, 20);
    EXPECT_EQ(create(2, 1), 0);
    EXPECT_EQ(fec[0].get_timestamp(), 0x80000000u);
    set(1, 2, 0x80000001, 20);
    EXPECT_EQ(create(2, 1), 0);
    EXPECT_EQ(fec[0].get_timestamp(), 0u);
}

TEST_F(RsGenerationTest, PacketOf1600BytesIsCoded) {
    set(0, 1, kTimestamp, 1600);
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(slice(payloadOf(fec[0]), 8), bytesOf(group[0]));
    expectLines({});
}

// The host hears of it by the codec's line alone; the packets are numbered all the same.
TEST_F(RsGenerationTest, PacketOf1601BytesLeavesZeroParityAndSucceedsWhichIsKept) {
    set(0, 1, kTimestamp, 1601);
    EXPECT_EQ(create(1, 2), 0);
    EXPECT_EQ(fec[1].get_payload_size(), 1609);
    EXPECT_THAT(slice(payloadOf(fec[1]), 8), Each(0x00));
    EXPECT_EQ(fec[1].get_sequence_number(), 0x0201);
    EXPECT_EQ(view(1).get_rs_recover_length(), 1601);
    EXPECT_EQ(session.m_createdFECPacketNumber, 2u);
    expectLines(
        {warning("CRsFec::Encode, max packet size is 1601, bigger than MAX_PACKET_SIZE, skip it!", "RsFec")});
}

TEST_F(RsGenerationTest, NumbersGoOnFromGroupToGroupAndBetweenTheKinds) {
    set(0, 1, kTimestamp, 20);
    session.m_fecSequenceNumber = 65534;
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(fec[0].get_sequence_number(), 65534);
    session.SetFecType(RTP_FEC_XOR);
    CRTPFECPacket xorFec(200);
    EXPECT_EQ(session.CreateXorFecPackets(group, 1, 1, &xorFec), 0);
    EXPECT_EQ(xorFec.get_sequence_number(), 65535);
    session.SetFecType(RTP_FEC_RS);
    EXPECT_EQ(create(1, 2), 0);
    EXPECT_EQ(fec[0].get_sequence_number(), 0);
    EXPECT_EQ(fec[1].get_sequence_number(), 1);
    EXPECT_EQ(session.m_fecSequenceNumber, 2);
    EXPECT_EQ(session.m_createdFECPacketNumber, 4u);
}

TEST_F(RsGenerationTest, SessionsTypesAreUsed) {
    set(0, 1, kTimestamp, 20);
    session.SetPayloadType(96, 97);
    EXPECT_EQ(create(1, 1), 0);
    EXPECT_EQ(fec[0].get_payload_type(), 97u);
    EXPECT_EQ(fec[0].get_sync_source(), kSourceId);
    EXPECT_FALSE(fec[0].get_marker_flag());
}

// --- Used packets --------------------------------------------------------------------------------------

// A class with a header of its own, four bytes after those of its base.
template <typename Packet>
class WideHeader : public Packet {
public:
    using Packet::Packet;

    int get_header_size() const override { return 16; }
};

// FEC packets into used ones, in which no byte is 0, and into new ones. Every byte of the capacity is the
// same.
class UsedFecPacketTest : public SessionTest<SvcProbe> {
protected:
    UsedFecPacketTest() {
        for (int i = 0; i < 2; ++i) {
            Bytes unit = pattern(static_cast<std::size_t>(20 + 10 * i), 1);
            session.CreateSinglePacket(kTimestamp, static_cast<int>(unit.size()), unit.data(), &media[i]);
        }
    }

    template <typename Packet, typename Make>
    void expectSameAsFresh(Make make) {
        PacketArray<Packet> used(2, 100);
        PacketArray<Packet> fresh(2, 100);
        for (int i = 0; i < 2; ++i) {
            used[i].set_payload_size(70);
            used[i].set_packet_type(5);
            std::fill_n(used[i].get_buffer(), 100, static_cast<unsigned char>(0xee));
        }
        session.m_fecSequenceNumber = 7;
        EXPECT_EQ(make(used), 0);
        session.m_fecSequenceNumber = 7;
        EXPECT_EQ(make(fresh), 0);
        for (int i = 0; i < 2; ++i) {
            SCOPED_TRACE("packet " + std::to_string(i));
            EXPECT_EQ(used[i].get_packet_size(), fresh[i].get_packet_size());
            EXPECT_EQ(used[i].get_payload_size(), fresh[i].get_payload_size());
            EXPECT_EQ(used[i].get_packet_type(), fresh[i].get_packet_type());
            EXPECT_EQ(Bytes(used[i].get_buffer(), used[i].get_buffer() + 100),
                      Bytes(fresh[i].get_buffer(), fresh[i].get_buffer() + 100));
        }
    }
    template <typename Packet>
    void expectSameAsFreshOfRs() {
        session.SetFecType(RTP_FEC_RS);
        expectSameAsFresh<Packet>(
            [&](Packet* into) { return session.CreateRsFecPackets(media, 2, into, 2); });
    }
    template <typename Packet>
    void expectSameAsFreshOfXor() {
        session.SetFecType(RTP_FEC_XOR);
        expectSameAsFresh<Packet>([&](Packet* into) {
            return session.CreateXorFecPackets(media, 2, 1, &into[0]) +
                   session.CreateXorFecPackets(media, 2, 3, &into[1]);
        });
    }

    PacketArray<CTalRtpPacket> media{2, 100};
};

TEST_F(UsedFecPacketTest, ReedSolomonParityOverwritesEveryByteOfAUsedPacket) {
    expectSameAsFreshOfRs<CTalRtpPacket>();
    expectSameAsFreshOfRs<WideHeader<CTalRtpPacket>>();
}

TEST_F(UsedFecPacketTest, XorParityOverwritesEveryByteOfAUsedPacket) {
    expectSameAsFreshOfXor<CRTPFECPacket>();
    expectSameAsFreshOfXor<WideHeader<CRTPFECPacket>>();
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// Groups of packets under the Reed-Solomon code, without a session: parity against bytes worked out by hand
// and Lagrange's formula evaluated plainly, and the packets that are rebuilt from it.

#include "fec/CodeMatrix.h"
#include "fec/RsGroup.h"

#include "Bytes.h"
#include "PlainField.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace talrtp {
namespace test {
namespace {

// The coefficients of parity block `p` for `k` packets: products of (x - x_m) / (x_j - x_m) over m != j.
Bytes coefficientsOf(std::size_t p, std::size_t k) {
    Bytes coefficients;
    for (std::size_t j = 0; j < k; ++j) {
        unsigned char dividend = 1;
        unsigned char divisor = 1;
        for (std::size_t m = 0; m < k; ++m) {
            if (m != j) {
                dividend = times(dividend, plainPoint(p) ^ plainPoint(m));
                divisor = times(divisor, plainPoint(j) ^ plainPoint(m));
            }
        }
        coefficients.push_back(times(dividend, inverseOf(divisor)));
    }
    return coefficients;
}

struct Parity {
    Bytes block;
    std::uint16_t length;
};

// Parity block `p` of a group of packets, as long as the longest.
Parity plainParity(const std::vector<Bytes>& packets, int p) {
    const Bytes coefficients = coefficientsOf(static_cast<std::size_t>(p), packets.size());
    Parity parity = {{}, 0};
    for (std::size_t j = 0; j < packets.size(); ++j) {
        parity.block.resize(std::max(parity.block.size(), packets[j].size()));
        for (std::size_t i = 0; i < packets[j].size(); ++i) {
            parity.block[i] ^= times(coefficients[j], packets[j][i]);
        }
        const int size = static_cast<int>(packets[j].size());
        parity.length ^= static_cast<std::uint16_t>(times(coefficients[j], size & 0xff) |
                                                    times(coefficients[j], size >> 8) << 8);
    }
    return parity;
}

// A packet with that number, random contents and a plain header.
Bytes packetOf(unsigned int seq, std::size_t size, std::mt19937& random) {
    Bytes packet(size);
    std::generate(packet.begin(), packet.end(), [&] { return static_cast<unsigned char>(random()); });
    packet[0] = 0x80;
    packet[2] = static_cast<unsigned char>(seq >> 8);
    packet[3] = static_cast<unsigned char>(seq);
    return packet;
}

// --- Making --------------------------------------------------------------------------------------------

// The code of a number of packets and parity blocks.
class Code {
public:
    Code(int k, int n) : m_matrix(static_cast<std::size_t>(k * n)), model{k, n, m_matrix.data()} {
        fillCodeMatrix(m_matrix.data(), k, n);
    }

private:
    Bytes m_matrix;

public:
    const rs_param_ model;
};

TEST(RsParityTest, TwoBlocksOfTwoPacketsWorkedOutByHand) {
    const Code code(2, 4);  // 3a + 2b, and 5a + 4b
    Bytes first = {1, 2};
    Bytes second = {4};
    Bytes blocks[] = {Bytes(3, 0xee), Bytes(3, 0xee)};
    CRsParity parity;
    parity.addPacket(first.data(), 2);
    parity.addPacket(second.data(), 1);
    parity.addBlock(blocks[0].data());
    parity.addBlock(blocks[1].data());
    EXPECT_EQ(parity.make(code.model), ERsMaking::kMade);
    EXPECT_EQ(blocks[0], (Bytes{3 ^ 8, 6, 0xee}));    // 3*1 + 2*4, 3*2
    EXPECT_EQ(blocks[1], (Bytes{5 ^ 16, 10, 0xee}));  // 5*1 + 4*4, 5*2
    EXPECT_EQ(parity.recoverLength(0), 6 ^ 2);        // 3*2 + 2*1
    EXPECT_EQ(parity.recoverLength(1), 10 ^ 4);       // 5*2 + 4*1
}

TEST(RsParityTest, GroupOfPacketsOfAllSizesIsTheOneOfTheFormula) {
    std::mt19937 random(1);
    for (const int k : {1, 3, 20, 80}) {
        std::vector<Bytes> packets;
        for (int j = 0; j < k; ++j) {
            packets.push_back(packetOf(static_cast<unsigned int>(j), 12 + random() % 500, random));
        }
        CRsParity parity;
        for (Bytes& packet : packets) {
            parity.addPacket(packet.data(), static_cast<int>(packet.size()));
        }
        std::vector<Bytes> blocks(3, Bytes(static_cast<std::size_t>(parity.largestSize())));
        for (Bytes& block : blocks) {
            parity.addBlock(block.data());
        }
        ASSERT_EQ(parity.make(Code(k, k + 3).model), ERsMaking::kMade);
        for (int i = 0; i < 3; ++i) {
            const Parity expected = plainParity(packets, k + i);
            ASSERT_EQ(blocks[static_cast<std::size_t>(i)], expected.block) << k << " " << i;
            ASSERT_EQ(parity.recoverLength(i), expected.length) << k << " " << i;
        }
    }
}

TEST(RsParityTest, SixteenHundredBytesAreMadeAndOneMoreHasParityOfTheLengthsOnly) {
    const Code code(1, 2);
    for (const int size : {1600, 1601}) {
        Bytes packet(static_cast<std::size_t>(size), 0x11);
        Bytes block(static_cast<std::size_t>(size), 0xee);
        CRsParity parity;
        parity.addPacket(packet.data(), size);
        parity.addBlock(block.data());
        const bool isMade = size == 1600;
        EXPECT_EQ(parity.make(code.model), isMade ? ERsMaking::kMade : ERsMaking::kTooLong);
        EXPECT_EQ(block, Bytes(block.size(), isMade ? 0x11 : 0xee));
        EXPECT_EQ(parity.largestSize(), size);
        EXPECT_EQ(parity.recoverLength(0), size);
    }
}

// --- Rebuilding ----------------------------------------------------------------------------------------

// A group with its parity, and what a receiver has of it.
class Received {
    const int m_k;
    const std::uint16_t m_firstSeq;

public:
    // `sizes`: of the packets, which are numbered from `firstSeq` on.
    Received(const std::vector<std::size_t>& sizes, unsigned int firstSeq)
        : m_k(static_cast<int>(sizes.size())), m_firstSeq(static_cast<std::uint16_t>(firstSeq)) {
        std::mt19937 random(2);
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            packets.push_back(packetOf((firstSeq + i) & 0xffff, sizes[i], random));
        }
    }

    // Rebuilds the packets at these places from parity blocks k + first, k + first + 1, ...
    CRsGroup& rebuild(const std::vector<int>& lost, ERsRebuilding outcome = ERsRebuilding::kDone,
                      int firstParity = 0, bool isEveryHeaderNeeded = false) {
        for (int i = 0; i < m_k; ++i) {
            if (std::find(lost.begin(), lost.end(), i) == lost.end()) {
                group.listAvailable(i);
            } else {
                group.listMissing(i);
            }
        }
        for (int i = 0; !group.hasEnough(); ++i) {
            group.listAvailable(m_k + firstParity + i);
            m_parity.push_back(plainParity(packets, m_k + firstParity + i));
            m_parity.back().block.resize(m_parity.back().block.size() + extraParity);
        }
        for (int i = 0; i < m_k; ++i) {
            const int position = group.availablePosition(i);
            if (position < m_k) {
                setBlock(i, packets[static_cast<std::size_t>(position)]);
            } else {
                const Parity& parity = m_parity[static_cast<std::size_t>(position - m_k - firstParity)];
                group.setBlock(i, {parity.block.data(), static_cast<int>(parity.block.size())},
                               static_cast<std::uint16_t>(parity.length ^ forgedLength));
            }
        }
        EXPECT_EQ(group.rebuild(isEveryHeaderNeeded), outcome);
        return group;
    }

    std::vector<Bytes> packets;
    CRsGroup group{m_k, m_firstSeq};
    std::size_t extraParity = 0;
    std::uint16_t forgedLength = 0;

private:
    void setBlock(int i, const Bytes& packet) {
        group.setBlock(i, {packet.data(), static_cast<int>(packet.size())},
                       static_cast<std::uint16_t>(packet.size()));
    }

    std::vector<Parity> m_parity;
};

Bytes bytesOf(const stRsRebuilt& rebuilt) {
    return rebuilt.kind == ERsPacket::kWhole ? Bytes(rebuilt.data, rebuilt.data + rebuilt.size) : Bytes();
}

TEST(RsGroupTest, HasEnoughWithAsManyBlocksAsPackets) {
    CRsGroup group(2, 0);
    EXPECT_FALSE(group.hasEnough());
    group.listAvailable(1);
    group.listMissing(0);
    EXPECT_FALSE(group.hasEnough());
    group.listAvailable(7);
    EXPECT_TRUE(group.hasEnough());
    EXPECT_EQ(group.availableCount(), 2);
    EXPECT_EQ(group.availablePosition(1), 7);
    EXPECT_EQ(group.missingCount(), 1);
}

TEST(RsGroupTest, LargestPacketAndParityAreKeptApart) {
    CRsGroup group(4, 0);
    for (const int position : {0, 2, 4, 5}) {
        group.listAvailable(position);
    }
    const Bytes bytes(50);
    group.setBlock(0, {bytes.data(), 30}, 30);
    group.setBlock(1, {bytes.data(), 20}, 20);
    EXPECT_EQ(group.largestParity(), 0);
    group.setBlock(2, {bytes.data(), 40}, 0);
    group.setBlock(3, {bytes.data(), 35}, 0);
    EXPECT_EQ(group.largestPacket(), 30);
    EXPECT_EQ(group.largestParity(), 40);
}

TEST(RsGroupTest, LostPacketsComeBackWithTheirLengthsAcrossTheWrap) {
    for (const std::vector<int>& lost : {std::vector<int>{0}, {2}, {1, 3}, {0, 1, 2, 3, 4}}) {
        Received received({40, 12, 300, 255, 256}, 65534);
        const std::vector<Bytes> sent = received.packets;
        const CRsGroup& group = received.rebuild(lost, ERsRebuilding::kDone, 1);
        ASSERT_EQ(group.missingCount(), static_cast<int>(lost.size()));
        for (std::size_t r = 0; r < lost.size(); ++r) {
            const stRsRebuilt rebuilt = group.rebuilt(static_cast<int>(r));
            EXPECT_EQ(bytesOf(rebuilt), sent[static_cast<std::size_t>(lost[r])]) << lost[r];
            EXPECT_EQ(rebuilt.seq, (65534 + lost[r]) % 65536);
            EXPECT_EQ(rebuilt.expectedSeq, rebuilt.seq);
        }
    }
}

TEST(RsGroupTest, HalfOfALargeGroupComesBack) {
    std::vector<std::size_t> sizes;
    std::vector<int> lost;
    for (int i = 0; i < 128; ++i) {
        sizes.push_back(static_cast<std::size_t>(12 + i * 5));
        if (i % 2 == 0) {
            lost.push_back(i);
        }
    }
    Received received(sizes, 1000);
    const CRsGroup& group = received.rebuild(lost);
    for (std::size_t r = 0; r < lost.size(); ++r) {
        ASSERT_EQ(bytesOf(group.rebuilt(static_cast<int>(r))),
                  received.packets[static_cast<std::size_t>(lost[r])]);
    }
}

TEST(RsGroupTest, PacketWithAnotherNumberIsNotRebuiltAndDoesNotKeepOthersBack) {
    Received received({40, 50, 60}, 7);
    received.packets[1][3] = 99;
    const CRsGroup& group = received.rebuild({1, 2});
    EXPECT_EQ(group.rebuilt(0).kind, ERsPacket::kWrongNumber);
    EXPECT_EQ(group.rebuilt(0).seq, 99);
    EXPECT_EQ(group.rebuilt(0).expectedSeq, 8);
    EXPECT_EQ(bytesOf(group.rebuilt(1)), received.packets[2]);
}

TEST(RsGroupTest, UpperByteOfTheNumberCountsToo) {
    Received received({40, 50}, 7);
    received.packets[1][2] = 1;
    EXPECT_EQ(received.rebuild({1}).rebuilt(0).kind, ERsPacket::kWrongNumber);
    EXPECT_EQ(received.group.rebuilt(0).seq, 0x108);
}

TEST(RsGroupTest, PacketWithAnotherNumberAndAnExtensionIsRebuiltOnRequest) {
    for (const bool isEveryHeaderNeeded : {false, true}) {
        Received received({40, 50, 60}, 7);
        received.packets[1][0] = 0x90;
        received.packets[1][3] = 99;
        received.packets[2][3] = 98;  // no extension
        const CRsGroup& group = received.rebuild({1, 2}, ERsRebuilding::kDone, 0, isEveryHeaderNeeded);
        EXPECT_EQ(group.rebuilt(0).kind, isEveryHeaderNeeded ? ERsPacket::kWhole : ERsPacket::kWrongNumber);
        EXPECT_EQ(bytesOf(group.rebuilt(0)), isEveryHeaderNeeded ? received.packets[1] : Bytes());
        EXPECT_EQ(group.rebuilt(0).seq, 99);
        EXPECT_EQ(group.rebuilt(1).kind, ERsPacket::kWrongNumber);
    }
}

// The bytes after it belong to something else.
TEST(RsGroupTest, BlockShorterThanAHeaderCountsAsZeroAfterItsEnd) {
    std::mt19937 random(3);
    const Bytes lost = packetOf(8, 40, random);
    const Bytes tooShort = {0x80, 0x62};
    const Bytes buffer = {0x80, 0x62, 0xee, 0xee};
    const Parity parity = plainParity({tooShort, lost}, 2);
    CRsGroup group(2, 7);
    group.listAvailable(0);
    group.listMissing(1);
    group.listAvailable(2);
    group.setBlock(0, {buffer.data(), 2}, 2);
    group.setBlock(1, {parity.block.data(), 40}, parity.length);
    EXPECT_EQ(group.rebuild(false), ERsRebuilding::kDone);
    EXPECT_EQ(bytesOf(group.rebuilt(0)), lost);
}

TEST(RsGroupTest, PacketWithAWrongLengthCostsNoMoreThanItsFirstBytes) {
    Received received({40, 50}, 7);
    received.forgedLength = 0x8000;
    EXPECT_EQ(received.rebuild({1}).rebuilt(0).kind, ERsPacket::kWrongLength);
    EXPECT_EQ(received.group.products(), 5 * 2 * 64u);
}

// With one packet lost of one, its length is the one that the parity states.
ERsPacket kindWithLength(unsigned char flags, int length) {
    Received received({30}, 7);
    received.packets[0][0] = flags;
    received.forgedLength = static_cast<std::uint16_t>(30 ^ length);
    return received.rebuild({0}).rebuilt(0).kind;
}

TEST(RsGroupTest, LengthIsRightFromAHeaderToTheParityBlock) {
    EXPECT_EQ(kindWithLength(0x80, 11), ERsPacket::kWrongLength);
    EXPECT_EQ(kindWithLength(0x80, 12), ERsPacket::kWhole);
    EXPECT_EQ(kindWithLength(0x80, 30), ERsPacket::kWhole);
    EXPECT_EQ(kindWithLength(0x80, 31), ERsPacket::kWrongLength);
    EXPECT_EQ(kindWithLength(0x80, 0x100 + 20), ERsPacket::kWrongLength);
}

TEST(RsGroupTest, LengthHoldsTheCsrcsUnlessAnExtensionLeavesThatOpen) {
    EXPECT_EQ(kindWithLength(0x83, 23), ERsPacket::kWrongLength);
    EXPECT_EQ(kindWithLength(0x83, 24), ERsPacket::kWhole);
    EXPECT_EQ(kindWithLength(0x93, 23), ERsPacket::kWhole);
}

TEST(RsGroupTest, ParityOfSixteenHundredBytesIsTakenAndOneMoreIsTooLong) {
    for (const std::size_t extra : {1550, 1551}) {
        Received received({40, 50}, 7);
        received.extraParity = extra;
        const bool isTooLong = extra == 1551;
        received.rebuild({1}, isTooLong ? ERsRebuilding::kTooLong : ERsRebuilding::kDone);
        EXPECT_EQ(received.group.largestParity(), isTooLong ? 1601 : 1600);
        EXPECT_EQ(received.group.products() == 0, isTooLong);
    }
}

TEST(RsGroupTest, CountsTheBytesThatItMultiplies) {
    Received received({40, 50, 60}, 7);
    received.packets[1][3] = 99;
    const std::uint64_t probe = 5 * 3 * 64;  // 5 bytes of each block, for as many packets as a kernel takes
    EXPECT_EQ(received.rebuild({1, 2}).products(), probe + 3 * 60);
}

}  // namespace
}  // namespace test
}  // namespace talrtp

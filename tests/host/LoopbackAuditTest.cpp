// The account that the loopback keeps: it must notice everything that is wrong.

#include "loopback/Audit.h"

#include <gtest/gtest.h>

namespace talrtp::host {
namespace {

using kit::FecScheme;
using NalUnit = std::vector<std::uint8_t>;

// One picture of three units: two in an aggregation packet, sequence number 100, and one in the fragments 101
// to 103.
class AuditTest : public testing::Test {
protected:
    void begin(FecScheme scheme = FecScheme::kNone) {
        m_audit = CAudit(scheme);
        m_sent = 0;
        m_audit.addPicture(9000, {m_sps, m_pps, m_slice});
    }

    // Notes for each of the next packets whether it arrives.
    void send(const std::vector<bool>& arrives) {
        static const std::vector<NalUnit> payloads{
            {0x78, 0, 3, 0x67, 1, 2, 0, 2, 0x68, 3}, {0x7c, 0x85, 4, 5}, {0x7c, 0x05, 6, 7}, {0x7c, 0x45, 8}};
        for (const bool each : arrives) {
            NalUnit packet(12, 0);
            packet.insert(packet.end(), payloads.at(m_sent).begin(), payloads.at(m_sent).end());
            m_audit.addMediaPacket(datagramOf(packet, 100 + m_sent), each);
            ++m_sent;
        }
    }

    static kit::Datagram datagramOf(const NalUnit& packet, std::size_t sequence) {
        kit::Datagram datagram;
        datagram.bytes = packet;
        datagram.sequence = static_cast<std::uint16_t>(sequence);
        return datagram;
    }

    // An FEC packet over `count` packets from `first` on, after 12 bytes of RTP header. XOR: base, length,
    // type, mask in the upper bits of three bytes, timestamp. Reed-Solomon: base, length, index, parity,
    // count.
    void sendXor(std::uint8_t first, int count, bool arrives) {
        NalUnit packet(12, 0);
        const std::uint8_t mask = static_cast<std::uint8_t>(0xff00 >> count);
        packet.insert(packet.end(), {0, first, 0, 0, 0, mask, 0, 0, 0, 0, 0, 0});
        m_audit.addFecPacket(datagramOf(packet, 7), arrives);
    }
    void sendReedSolomon(std::uint8_t first, std::uint8_t count, std::uint8_t index, bool arrives) {
        NalUnit packet(12, 0);
        packet.insert(packet.end(), {0, first, 0, 0, index, 3, count, 0});
        m_audit.addFecPacket(datagramOf(packet, 7), arrives);
    }

    struct Played {
        NalUnit unit;
        bool isWhole = true;
    };

    std::vector<Played> all() const { return {{m_sps}, {m_pps}, {m_slice}}; }

    // Closes the picture of that timestamp with the packets `first` to `last` and those units.
    void close(const std::vector<Played>& units, std::uint32_t timestamp = 9000, std::uint64_t first = 100,
               std::uint64_t last = 103) {
        kit::Picture picture;
        kit::PictureMaker::facts(picture).timestamp = timestamp;
        kit::PictureMaker::facts(picture).firstSequence = kCycle + first;
        kit::PictureMaker::facts(picture).lastSequence = kCycle + last;
        for (const Played& each : units) {
            NalUnit bytes{0, 0, 0, 1};
            bytes.insert(bytes.end(), each.unit.begin(), each.unit.end());
            kit::PictureMaker::run(picture).append(bytes, each.isWhole);
        }
        kit::PictureMaker::close(picture);
        m_audit.close(picture);
    }

    void expectUnits(std::uint64_t whole, std::uint64_t cut, std::uint64_t missing) const {
        EXPECT_EQ(m_audit.counts().units, 3u);
        EXPECT_EQ(m_audit.counts().whole, whole);
        EXPECT_EQ(m_audit.counts().cut, cut);
        EXPECT_EQ(m_audit.counts().missing, missing);
    }

    static constexpr std::uint64_t kCycle = 65536;  // a receiver counts on from there

    const NalUnit m_sps{0x67, 1, 2};
    const NalUnit m_pps{0x68, 3};
    const NalUnit m_slice{0x65, 4, 5, 6, 7, 8};
    CAudit m_audit{FecScheme::kNone};
    std::size_t m_sent = 0;
};

TEST_F(AuditTest, AllIsGoodWhenAllArrived) {
    begin();
    send({true, true, true, true});
    close(all());
    expectUnits(3, 0, 0);
    EXPECT_EQ(m_audit.counts().couldArrive, 3u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALossExplainsWhatIsMissing) {
    begin();
    send({false, true, true, true});
    close({{m_slice}});
    expectUnits(1, 0, 2);
    EXPECT_EQ(m_audit.counts().lostPackets, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALossExplainsACut) {
    begin();
    send({true, true, true, false});
    close({{m_sps}, {m_pps}, {{0x65, 4, 5}, false}});
    expectUnits(2, 1, 0);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AMissingUnitThatCouldArriveIsNoticed) {
    begin();
    send({true, true, true, true});
    std::vector<Played> played = all();
    played.pop_back();
    close(played);
    expectUnits(2, 0, 1);
    EXPECT_EQ(m_audit.counts().arrivedButUndelivered, 1u);
    EXPECT_FALSE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AChangedBitIsNoticed) {
    for (std::size_t byte = 0; byte < 6; ++byte) {
        begin();
        send({true, true, true, true});
        std::vector<Played> played = all();
        played[2].unit[byte] ^= 0x10;
        close(played);
        EXPECT_FALSE(m_audit.counts().isGood()) << byte;
        EXPECT_EQ(m_audit.counts().wrong, 1u);
    }
}

TEST_F(AuditTest, AUnitThatIsTooLongOrTooShortIsNoticed) {
    for (const int change : {-1, 1}) {
        begin();
        send({true, true, true, true});
        std::vector<Played> played = all();
        played[2].unit.resize(played[2].unit.size() + static_cast<std::size_t>(change));
        close(played);
        EXPECT_EQ(m_audit.counts().wrong, 1u);
    }
}

TEST_F(AuditTest, ACutThatIsNoBeginningIsNoticed) {
    begin();
    send({true, true, true, false});
    close({{{0x65, 9}, false}});
    EXPECT_EQ(m_audit.counts().wrong, 1u);
}

TEST_F(AuditTest, WrongOrderIsNoticed) {
    begin();
    send({true, true, true, true});
    close({{m_pps}, {m_sps}, {m_slice}});
    EXPECT_FALSE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AUnitThatWasNeverSentIsNoticed) {
    begin();
    send({true, true, true, true});
    std::vector<Played> played = all();
    played.push_back({{0x65, 9}});
    played.insert(played.begin(), {{0x67, 9}});
    close(played);
    EXPECT_EQ(m_audit.counts().wrong, 2u);
    expectUnits(3, 0, 0);
}

TEST_F(AuditTest, AUnitPlayedTwiceIsNoticed) {
    begin();
    send({true, true, true, true});
    close({{m_sps}, {m_pps}, {m_pps}, {m_slice}});
    EXPECT_EQ(m_audit.counts().wrong, 1u);
    expectUnits(3, 0, 0);
}

TEST_F(AuditTest, APicturePlayedTwiceIsNoticed) {
    begin();
    send({true, true, true, true});
    close(all());
    close(all());
    EXPECT_EQ(m_audit.counts().wrong, 3u);
    expectUnits(3, 0, 0);
}

TEST_F(AuditTest, APictureThatIsPlayedAfterALaterOneIsNoticed) {
    begin();
    send({true, true, true, true});
    m_audit.addPicture(12000, {m_pps});
    m_audit.addMediaPacket(datagramOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x68, 3}, 104), true);
    close({{m_pps}}, 12000, 104, 104);
    close(all());
    EXPECT_EQ(m_audit.counts().wrong, 3u);
    EXPECT_EQ(m_audit.counts().arrivedButUndelivered, 3u);
}

TEST_F(AuditTest, UnitsWithoutTheirPacketsAreNoticed) {
    for (const std::uint64_t first : {std::uint64_t{101}, std::uint64_t{104}}) {
        begin();
        send({true, true, true, true});
        close(all(), 9000, first, 104);
        EXPECT_EQ(m_audit.counts().wrong, first == 101 ? 2u : 3u);
    }
}

TEST_F(AuditTest, AUnitThatIsCutWithoutALossIsNoticed) {
    begin();
    send({true, true, true, true});
    close({{m_sps}, {m_pps}, {{0x65, 4, 5}, false}});
    expectUnits(2, 1, 0);
    EXPECT_EQ(m_audit.counts().arrivedButUndelivered, 1u);
    EXPECT_FALSE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AUnitThatIsWholeInSpiteOfALossIsNoticed) {
    begin();
    send({true, true, true, false});
    close(all());
    EXPECT_EQ(m_audit.counts().whole, 3u);
    EXPECT_EQ(m_audit.counts().couldArrive, 2u);
    EXPECT_FALSE(m_audit.counts().isGood());
}

// Two equal units in packets of their own, of which the first is lost: the one played is the second.
TEST_F(AuditTest, OfEqualUnitsTheOneThatArrivedIsTheOnePlayed) {
    m_audit.addPicture(9000, {m_pps, m_pps});
    const NalUnit packet{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x68, 3};
    m_audit.addMediaPacket(datagramOf(packet, 100), false);
    m_audit.addMediaPacket(datagramOf(packet, 101), true);
    close({{m_pps}}, 9000, 100, 101);
    EXPECT_EQ(m_audit.counts().whole, 1u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, APictureThatWasNeverSentIsNoticed) {
    begin();
    send({true, true, true, true});
    close(all(), 12345);
    EXPECT_EQ(m_audit.counts().wrong, 3u);
}

TEST_F(AuditTest, WhatIsNeverDeliveredIsMissing) {
    begin();
    send({false, false, false, false});
    m_audit.finish();
    expectUnits(0, 0, 3);
    EXPECT_EQ(m_audit.counts().lostPackets, 4u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, APacketWithoutAUnitOfThePictureIsNoticed) {
    begin();
    send({true, true, true, true});
    m_sent = 0;
    send({true});
    EXPECT_EQ(m_audit.counts().wrong, 1u);
}

TEST_F(AuditTest, OneXorPacketMakesUpForOneLoss) {
    begin(FecScheme::kXor);
    send({true, true, false, true});
    sendXor(100, 4, true);
    close(all());
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().couldArrive, 3u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALostFecPacketMakesUpForNothing) {
    begin(FecScheme::kXor);
    send({true, true, false, true});
    sendXor(100, 4, false);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
    EXPECT_EQ(m_audit.counts().couldArrive, 2u);
}

TEST_F(AuditTest, ReedSolomonMakesUpForAsManyAsArrived) {
    for (std::uint8_t arrived = 0; arrived <= 3; ++arrived) {
        begin(FecScheme::kReedSolomon);
        send({true, false, false, true});
        for (std::uint8_t i = 0; i < 3; ++i) {
            sendReedSolomon(100, 4, i, i < arrived);
        }
        m_audit.finish();
        EXPECT_EQ(m_audit.counts().rebuildable, arrived >= 2 ? 2u : 0u);
        EXPECT_EQ(m_audit.counts().couldArrive, arrived >= 2 ? 3u : 2u);
    }
}

TEST_F(AuditTest, GroupsAreApart) {
    begin(FecScheme::kXor);
    send({false, false});
    sendXor(100, 2, true);
    send({true, false});
    sendXor(102, 2, true);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 2u);
}

TEST_F(AuditTest, AGroupMayLieBeforeWhatWasSentLast) {
    begin(FecScheme::kXor);
    send({true, false, false, true});
    sendXor(100, 2, true);
    sendXor(102, 2, false);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
}

// A picture whose packets all arrived may be played before the FEC of the group that it shares.
TEST_F(AuditTest, AGroupMayReachBackToAClosedPicture) {
    begin(FecScheme::kXor);
    send({true, true, true, true});
    close(all());
    m_audit.addPicture(12000, {m_pps});
    m_audit.addMediaPacket(datagramOf({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x68, 3}, 104), false);
    sendXor(100, 5, true);
    close({{m_pps}}, 12000, 104, 104);
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().whole, 4u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

}  // namespace
}  // namespace talrtp::host

// The account that the loopback keeps: it must notice everything that is wrong.

#include "kit/AnnexB.h"
#include "kit/PacketArray.h"
#include "loopback/Audit.h"

#include <gtest/gtest.h>

namespace talrtp::host {
namespace {

using kit::FecScheme;
using kit::Handover;
using kit::NalUnit;

// One picture of three units: two in an aggregation packet, sequence number 100, and one in the fragments 101
// to 103.
class AuditTest : public testing::Test {
protected:
    void begin(FecScheme scheme = FecScheme::kNone) {
        m_audit = CAudit(scheme);
        kit::CPacketArray<CTalRtpPacket> packets(4, 50);
        for (std::size_t i = 0; i < packets.size(); ++i) {
            packets[i].set_sequence_number(static_cast<unsigned short>(100 + i));
        }
        m_audit.addPicture(9000, {m_sps, m_pps, m_slice},
                           {{kit::PackStep::kAggregate, 0, 2, 1}, {kit::PackStep::kFragments, 2, 1, 3}},
                           packets.data());
    }

    // Notes for each packet whether it comes.
    void send(const std::vector<bool>& comes) {
        for (const bool each : comes) {
            m_audit.addMediaPacket(each);
        }
    }

    static Handover handover(int sequence, int index, const NalUnit& unit, bool isWhole = true) {
        Handover result{9000, static_cast<std::uint16_t>(sequence), index, isWhole, {0, 0, 0, 1}};
        result.bytes.insert(result.bytes.end(), unit.begin(), unit.end());
        return result;
    }

    std::vector<Handover> all() const {
        return {handover(100, 0, m_sps), handover(100, 1, m_pps), handover(101, 0, m_slice)};
    }

    void expectUnits(std::uint64_t whole, std::uint64_t cut, std::uint64_t missing) const {
        EXPECT_EQ(m_audit.counts().units, 3u);
        EXPECT_EQ(m_audit.counts().whole, whole);
        EXPECT_EQ(m_audit.counts().cut, cut);
        EXPECT_EQ(m_audit.counts().missing, missing);
    }

    const NalUnit m_sps{0x67, 1, 2};
    const NalUnit m_pps{0x68, 3};
    const NalUnit m_slice{0x65, 4, 5, 6, 7, 8};
    CAudit m_audit{FecScheme::kNone};
};

TEST_F(AuditTest, AllIsGoodWhenAllCame) {
    begin();
    send({true, true, true, true});
    m_audit.close(9000, all());
    expectUnits(3, 0, 0);
    EXPECT_EQ(m_audit.counts().couldArrive, 3u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALossExplainsWhatIsMissing) {
    begin();
    send({false, true, true, true});
    m_audit.close(9000, {handover(101, 0, m_slice)});
    expectUnits(1, 0, 2);
    EXPECT_EQ(m_audit.counts().lostPackets, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALossExplainsACut) {
    begin();
    send({true, true, true, false});
    m_audit.close(9000,
                  {handover(100, 0, m_sps), handover(100, 1, m_pps), handover(101, 0, {0x65, 4, 5}, false)});
    expectUnits(2, 1, 0);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AMissingUnitThatCouldArriveIsNoticed) {
    begin();
    send({true, true, true, true});
    std::vector<Handover> delivered = all();
    delivered.pop_back();
    m_audit.close(9000, delivered);
    expectUnits(2, 0, 1);
    EXPECT_EQ(m_audit.counts().arrivedButUndelivered, 1u);
    EXPECT_FALSE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AChangedBitIsNoticed) {
    for (std::size_t byte = 0; byte < 10; ++byte) {
        begin();
        send({true, true, true, true});
        std::vector<Handover> delivered = all();
        delivered[2].bytes[byte] ^= 0x10;
        m_audit.close(9000, delivered);
        EXPECT_FALSE(m_audit.counts().isGood()) << byte;
        EXPECT_EQ(m_audit.counts().wrong, 1u);
    }
}

TEST_F(AuditTest, AUnitThatIsTooLongOrTooShortIsNoticed) {
    for (const int change : {-1, 1}) {
        begin();
        send({true, true, true, true});
        std::vector<Handover> delivered = all();
        delivered[2].bytes.resize(delivered[2].bytes.size() + static_cast<std::size_t>(change));
        m_audit.close(9000, delivered);
        EXPECT_EQ(m_audit.counts().wrong, 1u);
    }
}

TEST_F(AuditTest, ACutThatIsNoBeginningIsNoticed) {
    begin();
    send({true, true, true, false});
    m_audit.close(9000, {handover(101, 0, {0x65, 9}, false)});
    EXPECT_EQ(m_audit.counts().wrong, 1u);
}

TEST_F(AuditTest, WrongOrderIsNoticed) {
    begin();
    send({true, true, true, true});
    m_audit.close(9000, {handover(100, 1, m_pps), handover(100, 0, m_sps), handover(101, 0, m_slice)});
    EXPECT_FALSE(m_audit.counts().isGood());
}

TEST_F(AuditTest, AUnitThatWasNeverSentIsNoticed) {
    begin();
    send({true, true, true, true});
    std::vector<Handover> delivered = all();
    delivered.push_back(handover(104, 0, m_slice));
    delivered.insert(delivered.begin(), handover(99, 0, m_slice));
    m_audit.close(9000, delivered);
    EXPECT_EQ(m_audit.counts().wrong, 2u);
    expectUnits(3, 0, 0);
}

TEST_F(AuditTest, APictureThatWasNeverSentIsNoticed) {
    begin();
    send({true, true, true, true});
    m_audit.close(12345, all());
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

TEST_F(AuditTest, OneXorPacketMakesUpForOneLoss) {
    begin(FecScheme::kXor);
    send({true, true, false, true});
    m_audit.addGroup(4, 0);
    m_audit.addFecPacket(true);
    m_audit.close(9000, all());
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().couldArrive, 3u);
    EXPECT_TRUE(m_audit.counts().isGood());
}

TEST_F(AuditTest, ALostFecPacketMakesUpForNothing) {
    begin(FecScheme::kXor);
    send({true, true, false, true});
    m_audit.addGroup(4, 0);
    m_audit.addFecPacket(false);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
    EXPECT_EQ(m_audit.counts().couldArrive, 2u);
}

TEST_F(AuditTest, ReedSolomonMakesUpForAsManyAsCame) {
    for (int fecThatCame = 0; fecThatCame <= 3; ++fecThatCame) {
        begin(FecScheme::kReedSolomon);
        send({true, false, false, true});
        m_audit.addGroup(4, 0);
        for (int i = 0; i < 3; ++i) {
            m_audit.addFecPacket(i < fecThatCame);
        }
        m_audit.finish();
        EXPECT_EQ(m_audit.counts().rebuildable, fecThatCame >= 2 ? 2u : 0u);
        EXPECT_EQ(m_audit.counts().couldArrive, fecThatCame >= 2 ? 3u : 2u);
    }
}

TEST_F(AuditTest, GroupsAreApart) {
    begin(FecScheme::kXor);
    send({false, false});
    m_audit.addGroup(2, 0);
    m_audit.addFecPacket(true);
    send({true, false});
    m_audit.addGroup(2, 0);
    m_audit.addFecPacket(true);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 2u);
}

TEST_F(AuditTest, AGroupMayLieBehindWhatWasSentLast) {
    begin(FecScheme::kXor);
    send({true, false, false, true});
    m_audit.addGroup(2, 2);
    m_audit.addFecPacket(true);
    m_audit.addGroup(2, 0);
    m_audit.addFecPacket(false);
    m_audit.finish();
    EXPECT_EQ(m_audit.counts().rebuildable, 1u);
    EXPECT_EQ(m_audit.counts().notRebuildable, 1u);
}

}  // namespace
}  // namespace talrtp::host

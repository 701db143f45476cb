// Rebuilding lost media packets from Reed-Solomon parity packets.

#include <talrtp/RsFec.h>

#include <map>
#include <random>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RsRecoveryTest : public SessionTest<SvcProbe> {
protected:
    std::vector<int> storedFec() {
        std::vector<int> seqs;
        for (const auto& entry : session.m_fecPacketList) {
            seqs.push_back(entry.first);
        }
        return seqs;
    }
    // The bytes of the stored media packet with that number, or nothing.
    Bytes stored(unsigned short seq) {
        const CTalRtpPacket* const packet = session.getMediaPacketBySeq(seq);
        return packet == nullptr ? Bytes() : bytesOf(*packet);
    }

    static ExpectedLine rebuilt(int seq, unsigned int ts = kTimestamp) {
        return info("CMMRTPSessionBase::recoverPacketWithRSFEC recoveredSeq = " + std::to_string(seq) +
                    ", recoveredTS = " + std::to_string(ts) + ", sourceID = 168496141");
    }
    static ExpectedLine otherNumber(int recovered, int requested) {
        return warning(
            "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
            "recoveredSeq = " +
            std::to_string(recovered) + ", requestSeq = " + std::to_string(requested));
    }
    static ExpectedLine mismatch(int fecSeq, int index, int fecBase, int fecNum, int base, int num) {
        return warning(
            "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
            "fecSeq = " +
            std::to_string(fecSeq) + ", fecIndex = " + std::to_string(index) +
            ", fecBaseSeq = " + std::to_string(fecBase) + ", fecNum = " + std::to_string(fecNum) +
            ", packetBaseSeq = " + std::to_string(base) + ", packetNum = " + std::to_string(num));
    }
    static ExpectedLine dubitable(int own, int media, int fec) {
        return warning(
            "CMMRTPSessionBase::recoverPacketWithRSFEC fec payoad size is dubitable, "
            "fecPayloadSize = " +
            std::to_string(own) + ", maxPacketLen = " + std::to_string(media) +
            ", maxFecPayloadLen = " + std::to_string(fec));
    }
};

// --- Whole groups --------------------------------------------------------------------------------------

TEST_F(RsRecoveryTest, TwoLossesAreRebuiltWithTheSecondFecPacket) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 4), 2);
    group.lose(101);
    group.lose(102);
    receiveAll(group.arriving());
    expectDelivered({100, 103});
    receive(group.fec[0]);
    EXPECT_THAT(storedFec(), ElementsAre(500));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));
    expectDelivered({});
    trace.clear();
    receive(group.fec[1]);
    expectLines({rebuilt(101), rebuilt(102), fecArrived()});
    expectDelivered({101, 102});
    EXPECT_EQ(stored(101), group.media[1]);
    EXPECT_EQ(stored(102), group.media[2]);
    EXPECT_THAT(storedFec(), IsEmpty());  // the first one was spent at the next try
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, IsEmpty());
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 2u);
    EXPECT_EQ(session.m_recoveredMediaPacketBytes, 2600u);
}

// Over two packets the parity is 3 * a + 2 * b, so a = (parity + 2 * b) / 3. With bytes below 0x40 that is
// plain binary arithmetic without carries: 3 * 41 + 2 * 42 = c3 + 84 = 47.
TEST_F(RsRecoveryTest, LostPacketIsRebuiltToTheByte) {
    // clang-format off
    receive({
        0x80, 0x62, 0x00, 0x11,  // V=2 | M=0 PT=98 | sequence number 17
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x42,                    // payload; 13 bytes in all
    });
    receive({
        0x80, 0x6f, 0x02, 0x00,  // V=2 | M=0 PT=111 | FEC sequence number 512
        0x00, 0x01, 0x5f, 0x90,  // timestamp 90000
        0xca, 0xfe, 0xba, 0xbe,  // SSRC of the FEC stream
        0x00, 0x10, 0x00, 0x08,  // base 16 | recover length 3*14 + 2*13
        0x00, 0x01, 0x02, 0x00,  // index 0, of 1, over 2 media packets, reserved
        0x80, 0x62, 0x00, 0x12,  // parity: equal bytes as they are; 3*10 + 2*11 = 12
        0x00, 0x01, 0x5f, 0x90,
        0x11, 0x22, 0x33, 0x44,
        0x47, 0x06,              // 3*41 + 2*42, 3*02
    });
    const Bytes expected = {
        0x80, 0x62, 0x00, 0x10,  // sequence number 16
        0x00, 0x01, 0x5f, 0x90,
        0x11, 0x22, 0x33, 0x44,  // the lost packet's own SSRC
        0x41, 0x02,              // payload; 14 bytes in all
    };
    // clang-format on
    EXPECT_EQ(stored(16), expected);
    expectHandovers({{17, inByteStream({0x42}), 0}, {16, inByteStream({0x41, 0x02}), 0}});
}

// The packets of a group may be shorter than the row of coefficients that rebuilds one.
TEST_F(RsRecoveryTest, LossesOfALongGroupOfShortPacketsAreRebuilt) {
    std::vector<Bytes> units;
    for (unsigned char i = 0; i < 200; ++i) {
        units.push_back({0x41, i});
    }
    Group group(RTP_FEC_RS, 100, 500, units, 2);
    group.lose(103);
    group.lose(299);
    receiveAll(group.arriving());
    sink.handovers.clear();
    receiveAll(group.fec);
    expectHandovers({{103, inByteStream(units[3]), 0}, {299, inByteStream(units[199]), 0}});
    EXPECT_EQ(stored(103), group.media[3]);
    EXPECT_EQ(stored(299), group.media[199]);
}

TEST_F(RsRecoveryTest, CompleteGroupDropsTheFecPacket) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 4), 2);
    receiveAll(group.media);
    receive(group.fec[0]);
    EXPECT_THAT(storedFec(), IsEmpty());
    expectLines({fecArrived()});
    expectDelivered({100, 101, 102, 103});
}

TEST_F(RsRecoveryTest, FecPacketWaitsForMediaToo) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 3), 1);
    receive(group.fec[0]);
    receive(group.media[2]);
    EXPECT_THAT(storedFec(), ElementsAre(500));
    receive(group.media[0]);
    expectDelivered({102, 100, 101});
    EXPECT_THAT(storedFec(), IsEmpty());
}

TEST_F(RsRecoveryTest, AnyFecPacketsOfTheGroupWillDo) {
    for (int missingFec = 0; missingFec < 3; ++missingFec) {
        const unsigned short first = static_cast<unsigned short>(1000 + 100 * missingFec);
        Group group(RTP_FEC_RS, first, first, unitsFrom(first, 5), 3);
        group.lose(static_cast<unsigned short>(first + 1));
        group.lose(static_cast<unsigned short>(first + 3));
        receiveAll(group.arriving());
        sink.handovers.clear();
        for (int j = 0; j < 3; ++j) {
            if (j != missingFec) {
                receive(group.fec[static_cast<std::size_t>(j)]);
            }
        }
        expectDelivered({static_cast<unsigned short>(first + 1), static_cast<unsigned short>(first + 3)});
    }
}

TEST_F(RsRecoveryTest, WholeGroupIsRebuiltFromItsFecPacketsAlone) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 3), 3);
    receiveAll(group.fec);
    expectDelivered({100, 101, 102});
}

TEST_F(RsRecoveryTest, MediaAndFecNumbersMayWrap) {
    Group group(RTP_FEC_RS, 65534, 65535, unitsFrom(65534, 4), 2);
    group.lose(65535);
    group.lose(0);
    receiveAll(group.arriving());
    sink.handovers.clear();
    receive(group.fec[1]);
    receive(group.fec[0]);
    expectDelivered({0, 65535});  // dealt by plain number
}

TEST_F(RsRecoveryTest, PacketsOfDifferentLengthsComeBackWithTheirLengths) {
    std::vector<Bytes> units;
    for (const std::size_t size : {1200u, 1u, 255u, 256u, 700u, 1588u}) {
        units.push_back(join({{0x41}, pattern(size - 1, static_cast<unsigned int>(size))}));
    }
    Group group(RTP_FEC_RS, 100, 500, units, 3);
    group.lose(101);
    group.lose(102);
    group.lose(105);
    receiveAll(group.arriving());
    receiveAll(group.fec);
    for (unsigned short i = 0; i < 6; ++i) {
        EXPECT_EQ(stored(static_cast<unsigned short>(100 + i)), group.media[i]) << i;
    }
}

TEST_F(RsRecoveryTest, RebuiltPacketInTheListCountsAsPresent) {
    Group first(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 1);
    Group second(RTP_FEC_RS, 101, 501, unitsFrom(101, 2), 1);
    receive(first.fec[0]);
    receive(second.fec[0]);
    trace.clear();
    receive(first.media[0]);
    expectLines({rebuilt(101), rebuilt(102)});  // in one walk: nothing is dealt between the two
    expectDelivered({100, 101, 102});
}

TEST_F(RsRecoveryTest, MediaThatAgedOutIsMissingAgain) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 3), 1);
    at(1000);
    picture(1);
    media(100);
    at(3000);
    receive(group.fec[0]);
    at(6001);
    picture(2);
    media(50);
    receive(group.media[1]);
    EXPECT_THAT(storedFec(), ElementsAre(500));
    receive(group.media[2]);
    expectDelivered({100, 50, 101, 102, 100});
}

TEST_F(RsRecoveryTest, FecPacketThatAgedOutIsNoShard) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 2);
    Bytes early = group.fec[0];
    std::fill(early.begin() + 4, early.begin() + 8, 0x00);  // of the picture with timestamp 0
    at(1000);
    receive(early);
    at(6001);
    media(50);
    EXPECT_THAT(storedFec(), IsEmpty());
    receive(group.fec[1]);
    EXPECT_THAT(storedFec(), ElementsAre(501));
    receive(group.media[1]);
    expectDelivered({50, 101, 100});
}

TEST_F(RsRecoveryTest, AttemptTellsWhetherToKeepThePacket) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 1);
    CRTPRSPacket fec(group.fec[0].data(), static_cast<int>(group.fec[0].size()));
    bool keep = false;
    session.recoverPacketWithRSFEC(&fec, keep);
    EXPECT_TRUE(keep);
    receive(group.media[1]);
    session.recoverPacketWithRSFEC(&fec, keep);
    EXPECT_FALSE(keep);
    EXPECT_THAT(session.m_recoverPacketList, SizeIs(1));
    keep = true;
    session.recoverPacketWithRSFEC(nullptr, keep);
    EXPECT_FALSE(keep);
    expectLines({rebuilt(100),
                 error("CMMRTPSessionBase::recoverPacketWithRSFEC invalid parameter: fecPacket = 0x0")});
}

// Only a derived class can have put it there.
TEST_F(RsRecoveryTest, PacketOfTheRebuiltListMakesItsGroupWhole) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 1);
    CRTPRSPacket fec(group.fec[0].data(), static_cast<int>(group.fec[0].size()));
    receive(group.media[1]);
    CTalRtpPacket own(100);
    session.m_recoverPacketList[100] = &own;
    bool keep = true;
    session.recoverPacketWithRSFEC(&fec, keep);
    EXPECT_FALSE(keep);
    EXPECT_EQ(session.getRecoverPacketBySeq(100), &own);
    expectLines({});
    session.m_recoverPacketList.clear();
}

// The trace callback of a derived class can put one there between two packets of a group. The line names the
// last parity packet.
TEST_F(RsRecoveryTest, PacketOfTheRebuiltListIsReportedAndNotReplaced) {
    const Bytes own = {0x41, 0x77};
    for (const int mask : {2, 0}) {
        const unsigned short first = mask == 2 ? 100 : 200;
        const unsigned short second = static_cast<unsigned short>(first + 1);
        Group group(RTP_FEC_RS, first, 500, unitsFrom(first, 2), 2);
        trace.setMask(2);
        receive(group.fec[0]);
        trace.clear();
        bool isFirst = true;
        trace.onLine = [&](const TraceLine&) {
            if (!isFirst) {
                return;
            }
            isFirst = false;
            trace.setMask(mask);
            Bytes bytes = rtp(second, kTimestamp, own);
            session.m_recoverPacketList[second] =
                new CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
        };
        receive(group.fec[1]);
        trace.onLine = nullptr;
        if (mask == 2) {
            expectLines({rebuilt(first), rebuilt(second),
                         warning("CMMRTPSessionBase::recoverPacketWithRSFEC recover repeat packet: "
                                 "seq = 501, ts = 90000"),
                         fecArrived()});
        } else {
            expectLines({rebuilt(first), fecArrived()});
        }
        expectHandovers({{first, inByteStream(unitOf(first)), 0}, {second, inByteStream(own), 0}});
        EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
        EXPECT_THAT(storedFec(), IsEmpty());
    }
}

TEST_F(RsRecoveryTest, InfoLinesNeedTheMaskAtTwo) {
    trace.setMask(1);
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 1), 1);
    receive(group.fec[0]);
    expectLines({fecArrived()});
    expectDelivered({100});
}

// The numbers of a group count, not the mode in which the packet arrived.
TEST_F(RsRecoveryTest, FecPacketStoredInXorModeIsStillAShard) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 2);
    session.SetFecType(RTP_FEC_XOR);
    receive(group.fec[0]);  // read as XOR parity, it protects two packets that never come
    EXPECT_THAT(storedFec(), ElementsAre(500));
    session.SetFecType(RTP_FEC_RS);
    receive(group.fec[1]);
    expectDelivered({100, 101});
    EXPECT_EQ(stored(100), group.media[0]);
    EXPECT_THAT(storedFec(), IsEmpty());
}

// --- Odd headers ---------------------------------------------------------------------------------------

// The first parity block over two packets is the same whatever the number of FEC packets.
TEST_F(RsRecoveryTest, GroupOf256IsRebuiltAndOneOf257Dropped) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 2), 1);
    receive(group.media[0]);
    sink.handovers.clear();
    Bytes fec = group.fec[0];
    fec[17] = 255;  // 2 + 255
    receive(fec);
    expectLines({warning("CMMRTPSessionBase::recoverPacketWithRSFEC total number of packet and fec is over "
                         "256."),
                 fecArrived()});
    EXPECT_THAT(storedFec(), IsEmpty());
    expectDelivered({});
    fec[17] = 254;  // 2 + 254
    receive(fec);
    expectDelivered({101});
}

TEST_F(RsRecoveryTest, FecPacketOverNothingIsDropped) {
    RsFecFields fec;
    fec.count = 1;
    fec.parity = Bytes(16, 0x00);
    receive(fec.bytes());
    EXPECT_THAT(storedFec(), IsEmpty());
    expectLines({fecArrived()});
}

TEST_F(RsRecoveryTest, FecPacketOfAGroupWithoutFecPacketsWaits) {
    RsFecFields fec;
    fec.seq = 500;
    fec.base = 100;
    fec.mediaCount = 1;
    fec.count = 0;
    fec.parity = rtp(100, kTimestamp, unitOf(100));
    receive(fec.bytes());
    EXPECT_THAT(storedFec(), ElementsAre(500));
    expectDelivered({});
    media(100);
    EXPECT_THAT(storedFec(), IsEmpty());
}

// Its index puts it outside of its own group, so that it is never one of the parity shards.
TEST_F(RsRecoveryTest, FecPacketWithAnIndexBeyondItsGroupWaits) {
    RsFecFields fec;
    fec.seq = 500;
    fec.base = 100;
    fec.mediaCount = 1;
    fec.count = 2;
    fec.index = 2;
    fec.parity = rtp(100, kTimestamp, unitOf(100));
    receive(fec.bytes());
    EXPECT_THAT(storedFec(), ElementsAre(500));
    expectDelivered({});
}

TEST_F(RsRecoveryTest, MediaAsLongAsTheParityIsPlausibleAndLongerIsNot) {
    Group group(RTP_FEC_RS, 100, 500, {unitOf(100), unitOf(101)}, 1);
    receive(rtp(100, kTimestamp, {0x41, 0x01, 0x02, 0x03, 0x04}));  // 17 bytes; the parity has 16
    sink.handovers.clear();
    receive(group.fec[0]);
    expectLines({dubitable(16, 17, 16), fecArrived()});
    EXPECT_THAT(storedFec(), IsEmpty());
    expectDelivered({});
    receive(group.media[1]);  // 16 bytes, in another group
    Group other(RTP_FEC_RS, 101, 501, {unitOf(101), unitOf(102)}, 1);
    receive(other.fec[0]);
    expectDelivered({101, 102});
}

TEST_F(RsRecoveryTest, ShorterFecPacketOfAGroupIsNotPlausible) {
    Group group(RTP_FEC_RS, 100, 500, unitsFrom(100, 3), 2);
    receive(group.media[0]);
    sink.handovers.clear();
    Bytes longer = join({group.fec[0], {0x00}});
    receive(longer);
    trace.clear();
    receive(group.fec[1]);
    expectLines({dubitable(16, 16, 17), fecArrived()});
    EXPECT_THAT(storedFec(), ElementsAre(500));
    expectDelivered({});
}

TEST_F(RsRecoveryTest, PacketWithAnotherNumberIsReportedAndDestroyed) {
    RsFecFields fec;  // over one packet the parity is the packet
    fec.seq = 507;
    fec.base = 100;
    fec.mediaCount = 1;
    fec.count = 5;
    fec.index = 2;
    fec.length = 16;
    fec.parity = rtp(99, kTimestamp, unitOf(99));
    receive(fec.bytes());
    expectLines({otherNumber(99, 100), mismatch(507, 2, 505, 5, 100, 1), fecArrived()});
    expectDelivered({});
    EXPECT_THAT(storedFec(), IsEmpty());
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 0u);
}

TEST_F(RsRecoveryTest, FirstFecNumberOfTheGroupWraps) {
    RsFecFields fec;
    fec.seq = 1;
    fec.base = 100;
    fec.mediaCount = 1;
    fec.count = 5;
    fec.index = 3;
    fec.length = 16;
    fec.parity = rtp(99, kTimestamp, unitOf(99));
    receive(fec.bytes());
    expectLines({otherNumber(99, 100), mismatch(1, 3, 65534, 5, 100, 1), fecArrived()});
}

TEST_F(RsRecoveryTest, MismatchOfOnePacketDoesNotKeepTheOthersBack) {
    Group strange(RTP_FEC_RS, 100, 500, {unitOf(100), unitOf(101)}, 2);
    // Change both parities as if packet 101 bore the number 102: 2 * (65 ^ 66) and 4 * (65 ^ 66), at the low
    // byte of the number.
    strange.fec[0][20 + 3] ^= 2 * (0x65 ^ 0x66);
    strange.fec[1][20 + 3] ^= 4 * (0x65 ^ 0x66);
    receiveAll(strange.fec);
    // With packet 100 rebuilt, the stored FEC packet has shards enough too and comes to the same end.
    expectLines({fecArrived(), rebuilt(100), otherNumber(102, 101), mismatch(501, 1, 500, 2, 100, 2),
                 otherNumber(102, 101), mismatch(500, 0, 500, 2, 100, 2), fecArrived()});
    expectDelivered({100});
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 1u);
    EXPECT_THAT(storedFec(), IsEmpty());
}

// --- Any group, any loss -------------------------------------------------------------------------------

struct RandomGroup {
    RandomGroup(unsigned int seed, int minMedia)
        : random(seed),
          mediaCount(minMedia + static_cast<int>(random() % 16)),
          fecCount(1 + static_cast<int>(random() % 5)),
          first(static_cast<unsigned short>(random())),
          group(RTP_FEC_RS, first, static_cast<unsigned short>(random()), makeUnits(), fecCount) {}

    std::vector<Bytes> makeUnits() {
        for (int i = 0; i < mediaCount; ++i) {
            units.push_back(join({{0x41}, pattern(random() % 300, static_cast<unsigned int>(random()))}));
        }
        return units;
    }
    unsigned short seq(int i) const { return static_cast<unsigned short>(first + i); }

    std::mt19937 random;
    int mediaCount;
    int fecCount;
    unsigned short first;
    std::vector<Bytes> units;
    Group group;
};

class RandomLossTest : public ::testing::TestWithParam<unsigned int> {
protected:
    void arrive(std::vector<Bytes> datagrams, std::mt19937& random) {
        std::shuffle(datagrams.begin(), datagrams.end(), random);
        for (Bytes& datagram : datagrams) {
            session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
        }
    }

    RecordingSink sink;
    SvcProbe session{&sink, kSourceId};
};

INSTANTIATE_TEST_SUITE_P(Seeds, RandomLossTest, testing::Range(1u, 121u));

TEST_P(RandomLossTest, AsManyLossesAsFecPacketsAreAllMadeGood) {
    constexpr int kManyMedia = 25;  // up to 40, which are decoded in other ways from 33 on
    RandomGroup one(GetParam(), GetParam() % 2 != 0 ? 1 : kManyMedia);
    std::vector<Bytes> datagrams = one.group.media;
    datagrams.insert(datagrams.end(), one.group.fec.begin(), one.group.fec.end());
    const int losses = 1 + static_cast<int>(one.random() % static_cast<unsigned int>(one.fecCount));
    std::shuffle(datagrams.begin(), datagrams.end(), one.random);
    datagrams.resize(datagrams.size() - static_cast<std::size_t>(losses));
    arrive(datagrams, one.random);

    std::map<unsigned short, Bytes> delivered;
    for (const Handover& handover : sink.handovers) {
        EXPECT_TRUE(delivered.emplace(handover.seq, handover.payload).second) << handover.seq;
        EXPECT_EQ(handover.packetType, 0u);
    }
    ASSERT_THAT(delivered, SizeIs(static_cast<std::size_t>(one.mediaCount)));
    for (int i = 0; i < one.mediaCount; ++i) {
        const std::size_t place = static_cast<std::size_t>(i);
        EXPECT_EQ(delivered[one.seq(i)], inByteStream(one.units[place])) << i;
        ASSERT_NE(session.getMediaPacketBySeq(one.seq(i)), nullptr);
        EXPECT_EQ(bytesOf(*session.getMediaPacketBySeq(one.seq(i))), one.group.media[place]) << i;
    }
}

TEST_P(RandomLossTest, OneMediaLossMoreRebuildsNothing) {
    RandomGroup one(GetParam(), 7);
    std::vector<int> places;
    for (int i = 0; i < one.mediaCount; ++i) {
        places.push_back(i);
    }
    std::shuffle(places.begin(), places.end(), one.random);
    places.resize(static_cast<std::size_t>(one.mediaCount - one.fecCount - 1));
    std::vector<Bytes> datagrams = one.group.fec;
    for (const int i : places) {
        datagrams.push_back(one.group.media[static_cast<std::size_t>(i)]);
    }
    arrive(datagrams, one.random);

    ASSERT_THAT(sink.handovers, SizeIs(places.size()));
    for (const Handover& handover : sink.handovers) {
        const unsigned short place = static_cast<unsigned short>(handover.seq - one.first);
        ASSERT_LT(place, one.mediaCount);
        EXPECT_EQ(handover.payload, inByteStream(one.units[place]));
    }
    EXPECT_THAT(session.m_fecPacketList, SizeIs(static_cast<std::size_t>(one.fecCount)));
    EXPECT_EQ(session.m_recoveredMediaPacketNumber, 0u);
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// The store of FEC packets and of their notes, without a session.

#include "receive/FecStore.h"

#include <gtest/gtest.h>

#include <vector>

#include "StoreFixture.h"
#include "receive/MediaStore.h"

namespace talrtp {
namespace test {
namespace {

// An XOR packet that protects 24 media packets. **Returns owned.**
CTalRtpPacket* makeXor(_uint16_t seq) {
    std::vector<unsigned char> bytes(12 + 12, 0);
    bytes[0] = 0x80;
    bytes[1] = 111;
    bytes[2] = static_cast<unsigned char>(seq >> 8);
    bytes[3] = static_cast<unsigned char>(seq);
    bytes[17] = bytes[18] = bytes[19] = 0xff;  // the mask
    return new CRTPFECPacket(bytes.data(), static_cast<int>(bytes.size()));
}

// A Reed-Solomon packet that protects `mediaCount` media packets from 0 on with `count` parity packets.
// **Returns owned.**
CTalRtpPacket* makeRs(_uint16_t seq, unsigned char mediaCount, unsigned char count) {
    std::vector<unsigned char> bytes(12 + 12, 0);
    bytes[0] = 0x80;
    bytes[1] = 111;
    bytes[2] = static_cast<unsigned char>(seq >> 8);
    bytes[3] = static_cast<unsigned char>(seq);
    bytes[17] = count;
    bytes[18] = mediaCount;
    return new CRTPRSPacket(bytes.data(), static_cast<int>(bytes.size()));
}

class FecStoreTest : public StoreTest {
protected:
    ~FecStoreTest() override { store.clear(); }

    std::vector<int> notes() const { return {record.fecSeqList.begin(), record.fecSeqList.end()}; }
    std::vector<int> due(bool isEveryDue) const {
        std::vector<int> result;
        for (_uint16_t seq = 0; store.findNextTry(isEveryDue, seq); ++seq) {
            result.push_back(seq);
        }
        return result;
    }

    CMediaStore media{mediaList, meter};
    CFecStore store{fecList, media.known(), meter};
    stTalRtpTSInfo record{0, &pool};
    stTalRtpTSInfo other{0, &pool};
};

TEST_F(FecStoreTest, PacketsAreFoundUntilTheyAreRemoved) {
    for (const int seq : {500, 3, 40000, 4}) {
        store.add(static_cast<_uint16_t>(seq), makeXor(static_cast<_uint16_t>(seq)), RTP_FEC_XOR);
    }
    EXPECT_EQ(fecList.size(), 4u);
    EXPECT_EQ(store.find(3), fecList.at(3));
    EXPECT_TRUE(store.numbers().contains(40000));
    store.remove(3);
    store.remove(3);
    EXPECT_EQ(store.find(3), nullptr);
    EXPECT_EQ(fecList.count(3), 0u);
    EXPECT_FALSE(store.numbers().contains(3));
    store.clear();
    EXPECT_TRUE(fecList.empty());
    EXPECT_EQ(store.find(500), nullptr);
}

TEST_F(FecStoreTest, NotesAreForgottenWithoutASearch) {
    for (int seq = 0; seq < 100; ++seq) {
        store.add(static_cast<_uint16_t>(seq), makeXor(static_cast<_uint16_t>(seq)), RTP_FEC_XOR);
        store.note(&record, static_cast<_uint16_t>(seq));
    }
    const _uint64_t before = meter.steps;
    store.forgetNote(&record, 70);
    EXPECT_EQ(meter.steps, before);
    EXPECT_EQ(notes().size(), 99u);
    EXPECT_EQ(notes()[70], 71);
    store.forgetNote(&record, 70);
    store.forgetNote(&other, 71);
    EXPECT_EQ(notes().size(), 99u);
}

// Only a derived class can note a number before its packet is stored.
TEST_F(FecStoreTest, FirstEqualNoteIsForgottenThoughThePacketCameAfterIt) {
    store.note(&record, 500);
    store.note(&record, 7);
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.note(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{500, 7, 500}));
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{7, 500}));
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{7}));
    store.forgetNote(&record, 500);
    store.forgetNote(&record, 7);
    EXPECT_EQ(notes(), (std::vector<int>{}));
    // Once no such note is left, nothing is searched.
    store.note(&record, 500);
    const _uint64_t before = meter.steps;
    store.forgetNote(&record, 500);
    EXPECT_EQ(meter.steps, before);
    EXPECT_EQ(notes(), (std::vector<int>{}));
}

TEST_F(FecStoreTest, LaterEqualNotesAreForgottenAfterTheFirst) {
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.note(&record, 500);
    store.note(&record, 7);
    store.note(&record, 500);
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{7, 500}));
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{7}));
}

TEST_F(FecStoreTest, EachTimestampForgetsItsOwnNote) {
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.note(&other, 500);
    store.note(&record, 500);
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{}));
    EXPECT_EQ(other.fecSeqList.size(), 1u);
    store.forgetNote(&other, 500);
    EXPECT_TRUE(other.fecSeqList.empty());
}

// The note of a packet that was removed without it is one more that no packet knows.
TEST_F(FecStoreTest, NoteOutlivesItsPacket) {
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.note(&record, 500);
    store.remove(500);
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.note(&record, 500);
    store.forgetNote(&record, 500);
    store.forgetNote(&record, 500);
    EXPECT_EQ(notes(), (std::vector<int>{}));
}

TEST_F(FecStoreTest, PacketIsDueOnceAllButOneOfItsMediaPacketsArrived) {
    store.add(500, makeXor(500), RTP_FEC_XOR);  // protects 0 to 23
    store.beginRound(RTP_FEC_XOR);
    for (_uint16_t seq = 0; seq < 22; ++seq) {
        media.know(seq);
        store.mediaArrived(seq);
    }
    EXPECT_FALSE(store.hasWork(RTP_FEC_XOR));
    media.know(22);
    store.mediaArrived(22);
    EXPECT_TRUE(store.hasWork(RTP_FEC_XOR));
    EXPECT_EQ(due(false), (std::vector<int>{500}));
}

// Only a derived class can have put it in. Its one try finds out that it is of no use.
TEST_F(FecStoreTest, ReedSolomonPacketOfAnImpossibleGroupIsDueOnce) {
    struct Case {
        unsigned char mediaCount;
        unsigned char count;
        bool isPossible;
    };
    for (const Case& one : {Case{0, 1, false}, Case{2, 254, true}, Case{2, 255, false}, Case{255, 1, true},
                            Case{255, 2, false}}) {
        SCOPED_TRACE(testing::Message() << int(one.mediaCount) << " and " << int(one.count));
        fecList[500] = makeRs(500, one.mediaCount, one.count);
        store.rebuild(recordList);
        EXPECT_TRUE(store.beginRound(RTP_FEC_RS));
        EXPECT_EQ(due(true), (std::vector<int>{500}));
        EXPECT_FALSE(store.hasWork(RTP_FEC_RS));
        for (_uint16_t seq = 0; seq < one.mediaCount; ++seq) {
            media.know(seq);
            store.mediaArrived(seq);
        }
        EXPECT_EQ(store.hasWork(RTP_FEC_RS), one.isPossible);
        for (_uint16_t seq = 0; seq < one.mediaCount; ++seq) {
            media.forget(seq);
            store.mediaLeft(seq);
        }
        store.remove(500);
        EXPECT_TRUE(fecList.empty());
    }
}

// After the FEC type changed, packets of both kinds are tried once: those of the other kind are spent.
TEST_F(FecStoreTest, EveryPacketIsDueOnceAfterTheTypeChanged) {
    store.add(500, makeXor(500), RTP_FEC_XOR);
    store.beginRound(RTP_FEC_XOR);
    EXPECT_FALSE(store.hasWork(RTP_FEC_XOR));
    EXPECT_TRUE(store.hasWork(RTP_FEC_RS));
    EXPECT_TRUE(store.beginRound(RTP_FEC_RS));
    EXPECT_EQ(due(true), (std::vector<int>{500}));
    EXPECT_FALSE(store.hasWork(RTP_FEC_RS));
    EXPECT_FALSE(store.beginRound(RTP_FEC_RS));
    store.add(501, makeXor(501), RTP_FEC_XOR);  // stored beside one of the other time
    EXPECT_TRUE(store.hasWork(RTP_FEC_XOR));
    EXPECT_TRUE(store.beginRound(RTP_FEC_XOR));
    EXPECT_EQ(due(true), (std::vector<int>{500, 501}));
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// The stores of a session without one: the library's own changes of the lists against those of anybody else.

#include "receive/ReceiveIndex.h"

#include <gtest/gtest.h>

#include <vector>

#include "StoreFixture.h"

namespace talrtp {
namespace test {
namespace {

constexpr _uint32_t kTimestamp = 9000;
constexpr _uint64_t kNow = 1000;

class ReceiveIndexTest : public StoreTest {
protected:
    ~ReceiveIndexTest() override { index.clear(); }

    PacketMap rebuiltList{std::less<_uint16_t>(), PacketMap::allocator_type(&pool)};
    CReceiveIndex index{&pool, mediaList, fecList, rebuiltList, recordList};
};

TEST_F(ReceiveIndexTest, ChangesOfTheLibraryAreNobodyElses) {
    index.addMedia(7, makePacket(7), true, true);
    stTalRtpTSInfo* const record = index.records.noteMedia(kTimestamp, 7, kNow);
    index.records.findOrMakeUnit(record, 7);
    EXPECT_FALSE(index.isStale());
    index.records.remove(record);
    index.removeMedia(7);
    EXPECT_FALSE(index.isStale());
    EXPECT_TRUE(index.isTrue());
}

TEST_F(ReceiveIndexTest, PacketThatWasPutInIsSeenAndLearned) {
    mediaList[8] = makePacket(8);
    EXPECT_TRUE(index.isStale());
    EXPECT_FALSE(index.isTrue());
    EXPECT_FALSE(index.media.contains(8));
    index.rebuild(false);
    EXPECT_FALSE(index.isStale());
    EXPECT_TRUE(index.isTrue());
    EXPECT_EQ(index.media.find(8), mediaList.at(8));
    EXPECT_TRUE(index.fec.find(8) == nullptr);
}

TEST_F(ReceiveIndexTest, ErasureDoesNotMakeUpForAnInsertion) {
    index.addMedia(7, makePacket(7), true, true);
    delete mediaList.at(7);
    mediaList.erase(7);
    mediaList[8] = makePacket(8);
    EXPECT_TRUE(index.isStale());
    index.rebuild(false);
    EXPECT_FALSE(index.media.contains(7));
    EXPECT_TRUE(index.media.contains(8));
}

TEST_F(ReceiveIndexTest, EntryThatHeldNullIsSeenWhenItIsFilled) {
    mediaList[8] = nullptr;
    index.rebuild(false);
    EXPECT_TRUE(index.isStale());  // the entry has to be looked at
    EXPECT_TRUE(index.isTrue());
    EXPECT_TRUE(index.hasNulls());
    mediaList[8] = makePacket(8);
    EXPECT_FALSE(index.isTrue());
    index.rebuild(false);
    EXPECT_FALSE(index.isStale());
    EXPECT_FALSE(index.hasNulls());
    EXPECT_TRUE(index.media.contains(8));
}

TEST_F(ReceiveIndexTest, EntryThatHoldsNullIsErasedLikeAPacket) {
    mediaList[8] = nullptr;
    fecList[9] = nullptr;
    index.rebuild(false);
    index.removeMedia(8);
    index.removeFec(9);
    EXPECT_TRUE(mediaList.empty());
    EXPECT_TRUE(fecList.empty());
    index.rebuild(false);
    EXPECT_FALSE(index.isStale());
}

TEST_F(ReceiveIndexTest, RecordThatWasExchangedInItsEntryIsSeen) {
    index.records.findOrMake(kTimestamp, kNow);
    stTalRtpTSInfo* const record = new stTalRtpTSInfo;
    delete recordList.at(kTimestamp);
    recordList.at(kTimestamp) = record;
    EXPECT_TRUE(index.isStale());
    EXPECT_FALSE(index.isTrue());
    index.rebuild(false);
    EXPECT_TRUE(index.isTrue());
    EXPECT_EQ(index.records.find(kTimestamp), record);
    EXPECT_EQ(index.records.order().oldest(), record);
}

TEST_F(ReceiveIndexTest, RecordsOfAHostAreLearnedByAge) {
    for (const _uint64_t updateTime : {30, 10, 20}) {
        stTalRtpTSInfo* const record = new stTalRtpTSInfo;
        record->updateTime = updateTime;
        recordList[static_cast<_uint32_t>(100 - updateTime)] = record;
    }
    index.rebuild(false);
    const stTalRtpTSInfo* record = index.records.order().oldest();
    for (const _uint64_t updateTime : {10, 20, 30}) {
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record->updateTime, updateTime);
        record = CAgeOrder::newer(record);
    }
    EXPECT_EQ(record, nullptr);
}

TEST_F(ReceiveIndexTest, RebuiltPacketIsKnownButNotStored) {
    rebuiltList[9] = makePacket(9);
    index.rebuild(false);
    EXPECT_TRUE(index.media.known().contains(9));
    EXPECT_FALSE(index.media.contains(9));
    EXPECT_TRUE(index.isTrueFrom(9, 1));
    delete rebuiltList.at(9);
    rebuiltList.at(9) = nullptr;
    EXPECT_FALSE(index.isTrueFrom(9, 1));
    EXPECT_TRUE(index.isTrueFrom(10, 1));
    rebuiltList.erase(9);
    EXPECT_FALSE(index.isTrueFrom(9, 1));
}

// A group of three media packets, from 0 on, waits for two of them.
TEST_F(ReceiveIndexTest, FecPacketsCountOnlyNumbersThatBecomeKnownOrUnknown) {
    std::vector<unsigned char> bytes(12 + 12, 0);
    bytes[0] = 0x80;
    bytes[17] = 1;  // FEC packet
    bytes[18] = 3;  // media packets
    CRTPRSPacket* const packet = new CRTPRSPacket(bytes.data(), static_cast<int>(bytes.size()));
    index.fec.add(0, packet, RTP_FEC_RS);
    index.know(0);
    index.forget(0);
    index.addMedia(0, makePacket(0), true, true);
    index.removeMedia(0);
    index.know(1);
    EXPECT_FALSE(index.fec.hasWork(RTP_FEC_RS));  // one of two
    index.know(1);
    EXPECT_FALSE(index.fec.hasWork(RTP_FEC_RS));
    index.forget(2);
    index.removeMedia(2);
    index.releaseMedia(2);
    index.know(2);
    EXPECT_TRUE(index.fec.hasWork(RTP_FEC_RS));
}

TEST_F(ReceiveIndexTest, RangeWithAnExchangedPacketIsNotTrue) {
    index.addMedia(65535, makePacket(65535), true, true);
    index.addMedia(0, makePacket(0), true, true);
    EXPECT_TRUE(index.isTrueFrom(65534, 4));
    CTalRtpPacket* const before = mediaList.at(0);
    mediaList.at(0) = makePacket(0);
    EXPECT_FALSE(index.isTrueFrom(65534, 4));
    EXPECT_TRUE(index.isTrueFrom(65534, 2));
    delete before;
}

TEST_F(ReceiveIndexTest, PacketThatIsTakenBackLeavesNoNote) {
    CTalRtpPacket* const packet = makePacket(7);
    index.addMedia(7, packet, true, true);
    index.records.noteMedia(kTimestamp, 6, kNow);
    const stTalRtpTSInfo* const record = index.records.noteMedia(kTimestamp, 7, kNow);
    EXPECT_TRUE(index.takeBack(7, packet, kTimestamp));
    EXPECT_TRUE(mediaList.empty());
    EXPECT_EQ(record->mediaSeqList, stTalRtpTSInfo::SeqList(1, 6));
    EXPECT_FALSE(index.isStale());
    EXPECT_FALSE(index.media.known().contains(7));
    EXPECT_FALSE(index.takeBack(7, packet, kTimestamp));
    EXPECT_EQ(record->mediaSeqList.size(), 1u);
    delete packet;
}

TEST_F(ReceiveIndexTest, PacketIsTakenBackFromListsThatWereChanged) {
    CTalRtpPacket* const packet = makePacket(7);
    index.addMedia(7, packet, true, true);
    const stTalRtpTSInfo* const record = index.records.noteMedia(kTimestamp, 7, kNow);
    mediaList.erase(7);
    mediaList[9] = makePacket(9);
    mediaList[7] = packet;  // in another node
    EXPECT_TRUE(index.takeBack(7, packet, kTimestamp));
    EXPECT_EQ(mediaList.count(7), 0u);
    EXPECT_TRUE(record->mediaSeqList.empty());
    EXPECT_FALSE(index.isTrue());
    index.rebuild(false);
    EXPECT_FALSE(index.media.contains(7));
    EXPECT_TRUE(index.media.contains(9));
    delete packet;
}

TEST_F(ReceiveIndexTest, PacketIsTakenBackOnlyIfItsEntryHoldsIt) {
    CTalRtpPacket* const packet = makePacket(7);
    index.addMedia(7, packet, true, true);
    mediaList.at(7) = makePacket(7);
    EXPECT_FALSE(index.takeBack(7, packet, kTimestamp));
    EXPECT_NE(mediaList.at(7), packet);
    delete packet;
}

TEST_F(ReceiveIndexTest, ClearDestroysWhatAnybodyPutIn) {
    mediaList[8] = makePacket(8);
    fecList[9] = makePacket(9);
    rebuiltList[10] = makePacket(10);
    recordList[kTimestamp] = new stTalRtpTSInfo;
    recordList.at(kTimestamp)->dataInfoMap[8] = new stTalRtpDataInfo;
    index.clear();
    EXPECT_TRUE(mediaList.empty() && fecList.empty() && rebuiltList.empty() && recordList.empty());
    EXPECT_FALSE(index.isStale());
}

}  // namespace
}  // namespace test
}  // namespace talrtp

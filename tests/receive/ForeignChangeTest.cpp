// A derived class changes the receive lists and records, between calls and inside each hook. Every operation
// then answers as if it walked and searched the lists.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

enum class Place {
    kBetweenCalls,
    kIsStart,
    kIsEnd,
    kFindStart,
    kFindEnd,
    kDeal,
    kForce,
    kRecover,
    kSink,
};

const char* nameOf(Place place) {
    static const char* const kNames[] = {"BetweenCalls",          "InIsStartSeq",    "InIsEndSeq",
                                         "InFindStartSeq",        "InFindEndSeq",    "InDealPacket",
                                         "InForceHandoverPacket", "InRecoverPacket", "InTheSink"};
    return kNames[static_cast<int>(place)];
}

// A session that runs a script once, at its first call of one hook.
class ScriptedSession : public SvcProbe, public ITalRTPSessionSink {
public:
    explicit ScriptedSession(unsigned int source) : SvcProbe(this, source) {}

    void arm(Place place, std::function<void(ScriptedSession&)> script) {
        m_place = place;
        m_script = std::move(script);
    }
    bool isArmed() const { return m_script != nullptr; }
    void meet(Place place) {
        if (m_script != nullptr && place == m_place) {
            const std::function<void(ScriptedSession&)> script = std::move(m_script);
            m_script = nullptr;
            script(*this);
        }
    }

    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        handedOver.push_back(packet->get_sequence_number());
        meet(Place::kSink);
    }

    std::vector<int> handedOver;

    bool isStartSeq(unsigned short seq) override {
        meet(Place::kIsStart);
        return SvcProbe::isStartSeq(seq);
    }
    bool isEndSeq(unsigned short seq) override {
        meet(Place::kIsEnd);
        return SvcProbe::isEndSeq(seq);
    }
    bool findStartSeq(unsigned short seq, unsigned short& start) override {
        meet(Place::kFindStart);
        return SvcProbe::findStartSeq(seq, start);
    }
    bool findEndSeq(unsigned short start, unsigned short& end) override {
        meet(Place::kFindEnd);
        return SvcProbe::findEndSeq(start, end);
    }
    void dealPacket(CTalRtpPacket* packet) override {
        meet(Place::kDeal);
        SvcProbe::dealPacket(packet);
    }
    void forceHandoverPacket(CTalRtpPacket* packet) override {
        meet(Place::kForce);
        SvcProbe::forceHandoverPacket(packet);
    }
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fec) override {
        meet(Place::kRecover);
        return SvcProbe::recoverPacket(seq, fec);
    }

private:
    Place m_place = Place::kBetweenCalls;
    std::function<void(ScriptedSession&)> m_script;
};

CTalRtpPacket* packetOf(Bytes datagram) {
    return new CTalRtpPacket(datagram.data(), static_cast<int>(datagram.size()));
}
CTalRtpPacket* unitPacket(unsigned short seq, unsigned int timestamp = kTimestamp) {
    return packetOf(rtp(seq, timestamp, unitOf(seq)));
}
CTalRtpPacket* fragmentPacket(unsigned short seq, unsigned char flags) {
    return packetOf(rtp(seq, kTimestamp, fragment(flags, {1, 2})));
}
Bytes waitingFec(unsigned short seq, unsigned short base) {
    XorFec fec;
    fec.seq = seq;
    fec.base = base;
    fec.mask = 0xc00000;
    fec.parity = pattern(4, seq);
    return fec.bytes();
}
CTalRtpPacket* fecPacket(unsigned short seq, unsigned short base) {
    Bytes bytes = waitingFec(seq, base);
    return new CRTPFECPacket(bytes.data(), static_cast<int>(bytes.size()));
}

// Destroys the packet of an entry and puts another there, made while the old one still is.
void exchange(CTalRtpPacket*& entry, CTalRtpPacket* packet) {
    delete entry;
    entry = packet;
}

void freeRecord(stTalRtpTSInfo* record) {
    for (const auto& unit : record->dataInfoMap) {
        delete unit.second;
    }
    delete record;
}

stTalRtpTSInfo* recordWithUnit(unsigned short seq) {
    stTalRtpTSInfo* const record = new stTalRtpTSInfo;
    record->updateTime = record->createTime = 1000;
    stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
    unit->startSeq = seq;
    unit->complete = true;
    record->dataInfoMap[seq] = unit;
    record->mediaSeqList.push_back(seq);
    record->fecSeqList.push_back(501);
    return record;
}

constexpr unsigned int kOther = kTimestamp + 3000;  // of media packet 60

struct Change {
    const char* name;
    std::function<void(ScriptedSession&)> make;
};

void PrintTo(const Change& change, std::ostream* out) {
    *out << change.name;
}

typedef ScriptedSession S;

// Stored by then: fragments 1 to 3 and no end, units 10 and 60, FEC packets 500 over 10, 11, 12 and 501 over
// 40,
// 41. On the way: unit 11, which lets 12 be rebuilt.
const std::vector<Change>& changes() {
    static const std::vector<Change> all = {
        {"PutMedia", [](S& s) { s.m_mediaPacketList[4] = fragmentPacket(4, kEnd); }},
        {"PutMediaThatFecWaitsFor", [](S& s) { s.m_mediaPacketList[40] = unitPacket(40); }},
        {"TakeMedia",
         [](S& s) {
             delete s.m_mediaPacketList.at(2);
             s.m_mediaPacketList.erase(2);
         }},
        {"TakeAllMediaOfATimestamp",
         [](S& s) {
             delete s.m_mediaPacketList.at(60);
             s.m_mediaPacketList.erase(60);
         }},
        {"SetMediaToNull", [](S& s) { exchange(s.m_mediaPacketList.at(2), nullptr); }},
        {"PutNullMedia", [](S& s) { s.m_mediaPacketList[4] = nullptr; }},
        {"ExchangeMedia", [](S& s) { exchange(s.m_mediaPacketList.at(2), fragmentPacket(2, kStart)); }},
        {"PutFec", [](S& s) { s.m_fecPacketList[502] = fecPacket(502, 60); }},
        {"PutFecUnderAnotherNumber", [](S& s) { s.m_fecPacketList[503] = fecPacket(502, 70); }},
        {"PutFecOfNoKind", [](S& s) { s.m_fecPacketList[502] = unitPacket(502); }},
        {"TakeFec",
         [](S& s) {
             delete s.m_fecPacketList.at(501);
             s.m_fecPacketList.erase(501);
         }},
        {"SetFecToNull", [](S& s) { exchange(s.m_fecPacketList.at(501), nullptr); }},
        {"PutNullFec", [](S& s) { s.m_fecPacketList[502] = nullptr; }},
        {"ExchangeFec", [](S& s) { exchange(s.m_fecPacketList.at(501), fecPacket(501, 44)); }},
        {"PutRebuilt", [](S& s) { s.m_recoverPacketList[50000] = unitPacket(50000); }},
        {"PutNullRebuilt", [](S& s) { s.m_recoverPacketList[50000] = nullptr; }},
        {"PutRecord", [](S& s) { s.m_tsInfoList[77] = recordWithUnit(60); }},
        {"PutOldRecord",
         [](S& s) {
             s.m_tsInfoList[77] = new stTalRtpTSInfo;  // of time 0
         }},
        {"PutNullRecord", [](S& s) { s.m_tsInfoList[77] = nullptr; }},
        {"TakeRecord",
         [](S& s) {
             freeRecord(s.m_tsInfoList.at(kOther));
             s.m_tsInfoList.erase(kOther);
         }},
        {"TakeRecordInUse",
         [](S& s) {
             freeRecord(s.m_tsInfoList.at(kTimestamp));
             s.m_tsInfoList.erase(kTimestamp);
         }},
        {"SetRecordToNull",
         [](S& s) {
             freeRecord(s.m_tsInfoList.at(kOther));
             s.m_tsInfoList.at(kOther) = nullptr;
         }},
        {"ExchangeRecord",
         [](S& s) {
             stTalRtpTSInfo* const before = s.m_tsInfoList.at(kOther);
             s.m_tsInfoList.at(kOther) = recordWithUnit(60);
             freeRecord(before);
         }},
        {"ExchangeRecordsOfTwoTimestamps",
         [](S& s) { std::swap(s.m_tsInfoList.at(kOther), s.m_tsInfoList.at(kTimestamp)); }},
        {"PutUnit",
         [](S& s) {
             stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
             unit->startSeq = 60;
             s.tsInfo(kTimestamp)->dataInfoMap[60] = unit;
         }},
        {"TakeUnit",
         [](S& s) {
             auto& units = s.tsInfo(kTimestamp)->dataInfoMap;
             delete units.at(1);
             units.erase(1);
         }},
        {"SetUnitToNull",
         [](S& s) {
             auto& units = s.tsInfo(kTimestamp)->dataInfoMap;
             delete units.at(1);
             units.at(1) = nullptr;
         }},
        {"ExchangeUnit",
         [](S& s) {
             auto& units = s.tsInfo(kTimestamp)->dataInfoMap;
             stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
             unit->startSeq = 1;
             delete units.at(1);
             units.at(1) = unit;
         }},
        {"PutMediaNumber", [](S& s) { s.tsInfo(kOther)->mediaSeqList.push_back(3); }},
        {"TakeMediaNumber", [](S& s) { s.tsInfo(kTimestamp)->mediaSeqList.remove(3); }},
        {"SetMediaNumber", [](S& s) { s.tsInfo(kOther)->mediaSeqList.front() = 3; }},
        {"PutFecNumber", [](S& s) { s.tsInfo(kTimestamp)->fecSeqList.push_front(501); }},
        {"TakeFecNumber", [](S& s) { s.tsInfo(kTimestamp)->fecSeqList.remove(501); }},
        {"SetFecNumber", [](S& s) { s.tsInfo(kTimestamp)->fecSeqList.back() = 7; }},
        {"TakeEverythingElse",
         [](S& s) {
             for (const auto& record : s.m_tsInfoList) {
                 freeRecord(record.second);
             }
             s.m_tsInfoList.clear();
             delete s.m_fecPacketList.at(501);
             s.m_fecPacketList.erase(501);
             for (const unsigned short seq : {2, 3, 60}) {  // 1 is lent while it is forced
                 delete s.m_mediaPacketList.at(seq);
                 s.m_mediaPacketList.erase(seq);
             }
         }},
    };
    return all;
}

class ForeignChangeTest : public testing::Test {
protected:
    ForeignChangeTest() { session.SetFecType(RTP_FEC_XOR); }

    int receive(Bytes datagram, unsigned long now = 1000) {
        return session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), now);
    }
    void setStage() {
        const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
        receive(rtp(1, kTimestamp, fragment(kStart, {1})));
        receive(rtp(2, kTimestamp, fragment(kMiddle, {2})));
        receive(rtp(3, kTimestamp, fragment(kMiddle, {3})));
        receive(group.media[0]);
        receive(rtp(60, kOther, unitOf(60)));
        receive(group.fec[0]);
        receive(waitingFec(501, 40));
        ASSERT_THAT(session.handedOver, ElementsAre(10, 60));
        ASSERT_EQ(session.m_fecPacketList.size(), 2u);
    }
    // Rebuilt packets 20 and 21 wait. Once 20 was handed over, after a received packet, a packet is put in,
    // and `thrower` runs in the hook that is asked about it.
    void throwBeforeTheSecondRebuiltPacketIsStored(std::function<void(S&)> thrower) {
        session.m_recoverPacketList[20] = unitPacket(20);
        session.m_recoverPacketList[21] = unitPacket(21);
        session.arm(Place::kSink, [thrower](S& s) {
            s.arm(Place::kSink, [thrower](S& dealing) {
                dealing.m_mediaPacketList[9] = unitPacket(9);
                dealing.arm(Place::kIsStart, thrower);
            });
        });
    }
    void letEachHookBeCalled() {
        receive(rtp(11, kTimestamp, unitOf(11)));
        session.ForceHandover(kTimestamp);
    }

    // --- The plain answers ---

    CTalRtpPacket* media(unsigned short seq) const { return search(session.m_mediaPacketList, seq); }
    static CTalRtpPacket* search(const S::PacketMap& list, unsigned short seq) {
        const auto entry = list.find(seq);
        return entry != list.end() ? entry->second : nullptr;
    }
    static bool hasBit(const CTalRtpPacket& packet, unsigned char bit) {
        const unsigned char* const payload = packet.get_payload_ptr();
        if (packet.get_payload_size() < 2) {
            return false;
        }
        const int type = payload[0] & 0x1f;
        return type == 28 ? (payload[1] & bit) != 0 : type >= 1 && type <= 24;
    }
    bool findStart(unsigned short seq, unsigned short& start) const {
        while (const CTalRtpPacket* const packet = media(seq)) {
            if (hasBit(*packet, kStart)) {
                start = seq;
                return true;
            }
            --seq;
        }
        return false;
    }
    bool findEnd(unsigned short seq, unsigned short& end) const {
        while (const CTalRtpPacket* const packet = media(seq)) {
            end = seq;
            if (hasBit(*packet, kEnd)) {
                return true;
            }
            ++seq;
        }
        return false;
    }
    stTalRtpDataInfo* unit(unsigned int timestamp, unsigned short seq) const {
        unsigned short start;
        return findStart(seq, start) && session.tsInfo(timestamp) != nullptr
                   ? session.unitInfo(timestamp, start)
                   : nullptr;
    }

    void expectTrue() {
        for (unsigned int i = 0; i < 600; ++i) {
            const unsigned short seq = static_cast<unsigned short>(i);
            SCOPED_TRACE("number " + std::to_string(seq));
            EXPECT_EQ(session.getFECPacketBySeq(seq), search(session.m_fecPacketList, seq));
            EXPECT_EQ(session.getMediaDataInfo(kTimestamp, seq), unit(kTimestamp, seq));
            EXPECT_EQ(session.getMediaDataInfo(kOther, seq), unit(kOther, seq));
            EXPECT_EQ(session.getMediaDataInfo(77, seq), unit(77, seq));
            unsigned short found = 9;
            unsigned short expected = 9;
            EXPECT_EQ(session.findStartSeq(seq, found), findStart(seq, expected));
            EXPECT_EQ(found, expected);
            EXPECT_EQ(session.findEndSeq(seq, found), findEnd(seq, expected));
            EXPECT_EQ(found, expected);
            EXPECT_EQ(session.getMediaPacketBySeq(seq), media(seq));
        }
    }

    // A packet that no record notes stays until the end.
    void expectEverythingNotedAgesOut() {
        receive(rtp(2000, kTimestamp + 9000, unitOf(2000)), 9000);
        EXPECT_NE(media(2000), nullptr);
        for (const auto& record : session.m_tsInfoList) {
            EXPECT_TRUE(record.second == nullptr || record.first == kTimestamp + 9000) << record.first;
        }
        expectTrue();
    }

    S session{kSourceId};
};

class EachForeignChangeTest : public ForeignChangeTest,
                              public testing::WithParamInterface<std::tuple<Change, Place>> {};

TEST_P(EachForeignChangeTest, IsSeenByEveryOperation) {
    const Change& change = std::get<0>(GetParam());
    setStage();
    session.arm(std::get<1>(GetParam()), change.make);
    session.meet(Place::kBetweenCalls);
    letEachHookBeCalled();
    EXPECT_FALSE(session.isArmed());
    expectTrue();
    receive(rtp(4, kTimestamp, fragment(kEnd, {4})));
    receive(rtp(41, kTimestamp, unitOf(41)));
    expectTrue();
    session.ForceHandover(kOther);
    expectEverythingNotedAgesOut();
}

INSTANTIATE_TEST_SUITE_P(, EachForeignChangeTest,
                         testing::Combine(testing::ValuesIn(changes()),
                                          testing::Values(Place::kBetweenCalls, Place::kIsStart,
                                                          Place::kIsEnd, Place::kFindStart, Place::kFindEnd,
                                                          Place::kDeal, Place::kForce, Place::kRecover,
                                                          Place::kSink)),
                         [](const testing::TestParamInfo<std::tuple<Change, Place>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    nameOf(std::get<1>(info.param));
                         });

// --- What follows from a change ---

TEST_F(ForeignChangeTest, PacketThatWasPutInIsADuplicateOfWhatArrives) {
    session.m_mediaPacketList[7] = unitPacket(7);
    EXPECT_EQ(receive(rtp(7, kTimestamp, unitOf(7))), 0);
    EXPECT_THAT(session.handedOver, IsEmpty());
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 0u);
}

TEST_F(ForeignChangeTest, PacketThatWasTakenOutIsNewAgain) {
    receive(rtp(7, kTimestamp, unitOf(7)));
    exchange(session.m_mediaPacketList.at(7), nullptr);
    receive(rtp(7, kTimestamp, unitOf(7)));
    delete session.m_mediaPacketList.at(7);
    session.m_mediaPacketList.erase(7);
    receive(rtp(7, kTimestamp, unitOf(7)));
    EXPECT_THAT(session.handedOver, ElementsAre(7, 7, 7));
    EXPECT_EQ(session.m_receivedValidMediaPacketNumber, 3u);
}

// A host may feed its session without a public call.
TEST_F(ForeignChangeTest, ExchangedPacketIsSeenBeforeTheFirstDatagram) {
    session.inputReceivedMediaPacket(unitPacket(7));
    stTalRtpTSInfo* const record = session.m_tsInfoList.at(kTimestamp);
    stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
    unit->startSeq = 7;
    delete record->dataInfoMap.at(7);
    record->dataInfoMap.at(7) = unit;
    CTalRtpPacket* const packet = unitPacket(7);
    exchange(session.m_mediaPacketList.at(7), packet);
    EXPECT_EQ(session.getMediaPacketBySeq(7), packet);
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 7), unit);
}

TEST_F(ForeignChangeTest, FragmentThatWasPutInCompletesItsUnit) {
    receive(rtp(1, kTimestamp, fragment(kStart, {1})));
    session.m_mediaPacketList[2] = fragmentPacket(2, kMiddle);
    receive(rtp(3, kTimestamp, fragment(kEnd, {3})));
    EXPECT_THAT(session.handedOver, ElementsAre(1));
    EXPECT_EQ(session.unitInfo(kTimestamp, 1)->packetCount, 3);
}

// While the hook is asked about the first packet, it puts in the one that ends its unit.
TEST_F(ForeignChangeTest, BoundsAreAskedOfWhatAHookPutsInWhileItIsAsked) {
    session.m_mediaPacketList[1] = fragmentPacket(1, kStart);
    session.arm(Place::kIsEnd, [](ScriptedSession& s) { s.m_mediaPacketList[2] = fragmentPacket(2, kEnd); });
    receive(rtp(60, kOther, unitOf(60)));
    unsigned short found = 7;
    EXPECT_TRUE(session.findEndSeq(1, found));
    EXPECT_EQ(found, 2);
    EXPECT_TRUE(session.findStartSeq(2, found));
    EXPECT_EQ(found, 1);
}

// Its exception passes, and the bounds are asked at the next look.
TEST_F(ForeignChangeTest, HookThatThrowsWhileItIsAskedIsAskedAgain) {
    session.m_mediaPacketList[1] = fragmentPacket(1, kStart);
    session.m_mediaPacketList[2] = fragmentPacket(2, kEnd);
    session.arm(Place::kIsStart, [](ScriptedSession&) { throw std::runtime_error("hook"); });
    EXPECT_THROW(receive(rtp(60, kOther, unitOf(60))), std::runtime_error);
    session.m_mediaPacketList[3] = unitPacket(3);
    session.arm(Place::kIsStart, [](ScriptedSession&) { throw std::runtime_error("hook"); });
    EXPECT_THROW(receive(waitingFec(500, 60)), std::runtime_error);
    unsigned short found = 7;
    EXPECT_TRUE(session.findEndSeq(1, found));
    EXPECT_EQ(found, 2);
    EXPECT_TRUE(session.findStartSeq(2, found));
    EXPECT_EQ(found, 1);
}

// The packet that could not be recorded is taken back without a question to the hooks, which would throw
// again.
TEST_F(ForeignChangeTest, HookThatChangesTheListsAndThrowsLeavesOnlyItsChanges) {
    for (const Place place : {Place::kIsEnd, Place::kFindStart, Place::kFindEnd}) {
        SCOPED_TRACE(nameOf(place));
        S changed(kSourceId);
        changed.arm(place, [](S& s) {
            s.m_mediaPacketList[9] = unitPacket(9);
            s.arm(Place::kIsEnd, [](S&) { throw std::runtime_error("asked about 9"); });
            throw std::runtime_error("hook");
        });
        Bytes datagram = rtp(7, kTimestamp, unitOf(7));
        const auto receiveSeven = [&] {
            return changed.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
        };
        EXPECT_THROW(receiveSeven(), std::runtime_error);
        EXPECT_EQ(changed.m_mediaPacketList.size(), 1u);
        EXPECT_EQ(changed.m_mediaPacketList.count(9), 1u);
        EXPECT_EQ(changed.m_receivedValidMediaPacketNumber, 0u);
        EXPECT_TRUE(changed.tsInfo(kTimestamp) == nullptr ||
                    changed.tsInfo(kTimestamp)->mediaSeqList.empty());
        EXPECT_THROW(receiveSeven(), std::runtime_error);
        EXPECT_EQ(receiveSeven(), 0);
        EXPECT_THAT(changed.handedOver, ElementsAre(7));
        EXPECT_EQ(changed.m_mediaPacketList.size(), 2u);
    }
}

TEST_F(ForeignChangeTest, HookThatTakesTheNewPacketOutAndThrowsOwnsIt) {
    std::unique_ptr<CTalRtpPacket> taken;
    session.arm(Place::kFindEnd, [&](S& s) {
        taken.reset(s.m_mediaPacketList.at(7));
        s.m_mediaPacketList.erase(7);
        throw std::runtime_error("hook");
    });
    EXPECT_THROW(receive(rtp(7, kTimestamp, unitOf(7))), std::runtime_error);
    EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
    EXPECT_EQ(taken->get_sequence_number(), 7);
    receive(rtp(7, kTimestamp, unitOf(7)));
    EXPECT_THAT(session.handedOver, ElementsAre(7));
}

// The hook is asked about a change before it is known whether the second packet is new.
TEST_F(ForeignChangeTest, RebuiltPacketIsFreedWhenAHookThrowsBeforeItIsStored) {
    throwBeforeTheSecondRebuiltPacketIsStored([](S&) { throw std::runtime_error("asked about 9"); });
    EXPECT_THROW(receive(rtp(1, kTimestamp, unitOf(1))), std::runtime_error);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_EQ(media(21), nullptr);
    receive(rtp(21, kTimestamp, unitOf(21)));
    EXPECT_THAT(session.handedOver, ElementsAre(1, 20, 21));
}

// Memory that is short for a host's hook is short for the packet, which is tried once more since another was
// new.
TEST_F(ForeignChangeTest, RebuiltPacketIsDealtLaterWhenAHookFindsNoMemoryBeforeItIsStored) {
    throwBeforeTheSecondRebuiltPacketIsStored([](S&) { throw std::bad_alloc(); });
    EXPECT_EQ(receive(rtp(1, kTimestamp, unitOf(1))), -1);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    EXPECT_EQ(receive(rtp(2, kTimestamp, unitOf(2))), 0);
    EXPECT_THAT(session.handedOver, ElementsAre(1, 20, 21, 2));
}

TEST_F(ForeignChangeTest, UnitWithAnEntrySetToNullWaits) {
    receive(rtp(1, kTimestamp, fragment(kStart, {1})));
    receive(rtp(2, kTimestamp, fragment(kMiddle, {2})));
    exchange(session.m_mediaPacketList.at(2), nullptr);
    receive(rtp(3, kTimestamp, fragment(kEnd, {3})));
    EXPECT_THAT(session.handedOver, IsEmpty());
    receive(rtp(2, kTimestamp, fragment(kMiddle, {2})));
    EXPECT_THAT(session.handedOver, ElementsAre(1));
}

TEST_F(ForeignChangeTest, MediaThatWasPutInLetsTheOthersBeRebuilt) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.fec[0]);
    session.m_mediaPacketList[10] = packetOf(group.media[0]);
    session.m_recoverPacketList[11] = packetOf(group.media[1]);
    receive(rtp(60, kOther, unitOf(60)));
    EXPECT_THAT(session.handedOver, ElementsAre(60, 11, 12));
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

// Filled without a node.
TEST_F(ForeignChangeTest, NullEntriesThatAreFilledCount) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.fec[0]);
    for (const unsigned short seq : {10, 11}) {
        session.m_mediaPacketList[seq] = nullptr;
    }
    receive(rtp(60, kOther, unitOf(60)));
    session.m_mediaPacketList[10] = packetOf(group.media[0]);
    session.m_mediaPacketList[11] = packetOf(group.media[1]);
    receive(rtp(61, kOther, unitOf(61)));
    EXPECT_THAT(session.handedOver, ElementsAre(60, 61, 12));
}

// Each of the two packets is longer than the parity, and a line says so.
TEST_F(ForeignChangeTest, PacketThatATraceCallbackTakesOutStaysInTheTryOfThatMoment) {
    for (const unsigned short seq : {10, 11}) {
        receive(rtp(seq, kTimestamp, join({unitOf(seq), pattern(20, seq)})));
    }
    XorFec fec;
    fec.seq = 500;
    fec.base = 10;
    fec.mask = 0xe00000;
    fec.parity = pattern(4, 1);
    std::unique_ptr<CTalRtpPacket> taken;
    TraceCatcher trace(1);
    trace.onLine = [&](const TraceLine&) {
        if (taken == nullptr) {
            taken.reset(session.m_mediaPacketList.at(11));
            session.m_mediaPacketList.erase(11);
            EXPECT_EQ(session.getMediaPacketBySeq(11), nullptr);
        }
    };
    receive(fec.bytes());
    trace.onLine = nullptr;
    const std::string line =
        "recovered packet size is too small, recoveredSeq = 12, recoveredLen = 4, recoverLen = ";
    EXPECT_THAT(trace.messages(),
                ElementsAre(testing::HasSubstr(line), testing::HasSubstr(line), testing::_, testing::_));
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->get_sequence_number(), 11);
}

TEST_F(ForeignChangeTest, MediaThatWasTakenOutIsMissingToAGroup) {
    const Group group(RTP_FEC_RS, 10, 500, unitsFrom(10, 3), 2);
    session.SetFecType(RTP_FEC_RS);
    receive(group.media[0]);
    receive(group.fec[0]);
    exchange(session.m_mediaPacketList.at(10), nullptr);
    receive(group.fec[1]);
    EXPECT_THAT(session.handedOver, ElementsAre(10));  // two of three
    receive(group.media[2]);
    EXPECT_THAT(session.handedOver, ElementsAre(10, 12, 10, 11));
}

TEST_F(ForeignChangeTest, ParityThatWasPutInIsTried) {
    const Group group(RTP_FEC_RS, 10, 500, unitsFrom(10, 3), 2);
    session.SetFecType(RTP_FEC_RS);
    receive(group.media[0]);
    receive(group.fec[0]);
    Bytes bytes = group.fec[1];
    session.m_fecPacketList[501] = new CRTPRSPacket(bytes.data(), static_cast<int>(bytes.size()));
    receive(rtp(60, kOther, unitOf(60)));
    EXPECT_THAT(session.handedOver, ElementsAre(10, 60, 11, 12));
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

TEST_F(ForeignChangeTest, ExchangedFecPacketIsTriedAsWhatItIs) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.media[0]);
    receive(group.media[1]);
    receive(waitingFec(500, 40));
    Bytes bytes = group.fec[0];
    exchange(session.m_fecPacketList.at(500),
             new CRTPFECPacket(bytes.data(), static_cast<int>(bytes.size())));
    receive(rtp(60, kOther, unitOf(60)));
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 60, 12));
}

TEST_F(ForeignChangeTest, RecordOfAHostAgesOutWithWhatItNotes) {
    receive(rtp(60, kOther, unitOf(60)));
    receive(waitingFec(501, 40));
    session.m_tsInfoList[77] = recordWithUnit(60);
    receive(rtp(2000, kTimestamp + 9000, unitOf(2000)), 6000);
    EXPECT_NE(media(60), nullptr);
    receive(rtp(2001, kTimestamp + 9000, unitOf(2001)), 6001);
    EXPECT_EQ(media(60), nullptr);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_EQ(session.m_tsInfoList.size(), 1u);
}

TEST_F(ForeignChangeTest, ListsOfARecordOfAHostAreSearchedEachTime) {
    stTalRtpTSInfo* const record = new stTalRtpTSInfo;
    session.m_tsInfoList[kTimestamp] = record;
    receive(rtp(60, kTimestamp, unitOf(60)));
    receive(waitingFec(501, 40));
    EXPECT_THAT(record->mediaSeqList, ElementsAre(60));
    record->fecSeqList.push_front(7);
    record->fecSeqList.push_front(501);
    session.removeFECInfoFromList(kTimestamp, 501);
    EXPECT_THAT(record->fecSeqList, ElementsAre(7, 501));
    session.removeFECInfoFromList(kTimestamp, 501);
    session.removeFECInfoFromList(kTimestamp, 501);
    EXPECT_THAT(record->fecSeqList, ElementsAre(7));
    stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
    delete record->dataInfoMap.at(60);
    record->dataInfoMap.at(60) = unit;
    EXPECT_EQ(session.getMediaDataInfo(kTimestamp, 60), unit);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    EXPECT_TRUE(unit->delivered);
}

// Whoever takes a record out may delete it as long as the session lives.
TEST_F(ForeignChangeTest, RecordThatWasTakenOutMayLiveOn) {
    receive(rtp(60, kOther, unitOf(60)));
    stTalRtpTSInfo* const record = session.m_tsInfoList.at(kOther);
    session.m_tsInfoList.at(kOther) = nullptr;
    receive(rtp(61, kTimestamp, unitOf(61)), 9000);
    EXPECT_NE(media(60), nullptr);
    EXPECT_EQ(session.m_tsInfoList.at(kOther), nullptr);
    freeRecord(record);
    receive(rtp(62, kTimestamp, unitOf(62)), 9000);
    EXPECT_THAT(session.handedOver, ElementsAre(60, 61, 62));
}

TEST_F(ForeignChangeTest, UnitsThatAHookPutsInAreHandedOverInTurn) {
    receive(rtp(1, kTimestamp, fragment(kStart, {1})));
    session.arm(Place::kForce, [](S& s) {
        for (const unsigned short seq : {0, 60}) {
            stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
            unit->startSeq = seq;
            s.tsInfo(kTimestamp)->dataInfoMap[seq] = unit;
            s.m_mediaPacketList[seq] = unitPacket(seq);
        }
    });
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    EXPECT_THAT(session.handedOver, ElementsAre(1, 60));  // 0 lies before the walk
}

TEST_F(ForeignChangeTest, ExchangedPacketCountsInASearchForTheEnd) {
    receive(rtp(1, kTimestamp, fragment(kStart, {1})));
    receive(rtp(2, kTimestamp, fragment(kMiddle, {2})));
    std::unique_ptr<CTalRtpPacket> before(search(session.m_mediaPacketList, 2));
    session.m_mediaPacketList.at(2) = fragmentPacket(2, kEnd);
    unsigned short end = 7;
    EXPECT_TRUE(session.findEndSeq(1, end));
    EXPECT_EQ(end, 2);
}

TEST_F(ForeignChangeTest, ExchangedRecordIsUsedAtOnce) {
    receive(rtp(60, kOther, unitOf(60)));
    stTalRtpTSInfo* const before = session.m_tsInfoList.at(kOther);
    stTalRtpTSInfo* const after = recordWithUnit(60);
    session.m_tsInfoList.at(kOther) = after;
    receive(rtp(61, kOther, unitOf(61)), 1500);
    EXPECT_THAT(after->mediaSeqList, ElementsAre(60, 61));
    EXPECT_EQ(after->updateTime, 1500u);
    EXPECT_THAT(before->mediaSeqList, ElementsAre(60));
    freeRecord(before);
}

TEST_F(ForeignChangeTest, NullEntriesOfATimestampAgeOutWithIt) {
    receive(rtp(60, kOther, unitOf(60)));
    receive(rtp(61, kOther, unitOf(61)));
    for (const unsigned short seq : {60, 61}) {
        exchange(session.m_mediaPacketList.at(seq), nullptr);
        EXPECT_EQ(session.getMediaPacketBySeq(seq), nullptr);
    }
    receive(rtp(2000, kTimestamp + 9000, unitOf(2000)), 9000);
    EXPECT_EQ(session.m_mediaPacketList.size(), 1u);
}

// The packet is stored and counted by then, and its timestamp has it noted.
TEST_F(ForeignChangeTest, PacketThatAHookTakesOutWhileItIsRecordedIsTheHosts) {
    int taken = 0;
    for (const Place place : {Place::kIsEnd, Place::kIsStart, Place::kFindStart, Place::kFindEnd}) {
        SCOPED_TRACE(nameOf(place));
        std::unique_ptr<CTalRtpPacket> packet;
        session.arm(place, [&](S& s) {
            packet.reset(s.m_mediaPacketList.at(7));
            s.m_mediaPacketList.erase(7);
        });
        EXPECT_EQ(receive(rtp(7, kTimestamp, unitOf(7))), 0);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(bytesOf(*packet), rtp(7, kTimestamp, unitOf(7)));
        EXPECT_THAT(session.handedOver, IsEmpty());
        EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
        EXPECT_EQ(session.m_receivedValidMediaPacketNumber, static_cast<unsigned int>(++taken));
    }
    receive(rtp(7, kTimestamp, unitOf(7)));
    EXPECT_THAT(session.handedOver, ElementsAre(7));
}

// --- Hooks in the middle of the FEC cycle ---

TEST_F(ForeignChangeTest, RebuiltPacketThatAHookTakesOutIsRebuiltAgain) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.media[0]);
    receive(group.media[1]);
    session.arm(Place::kDeal, [](S& s) {
        delete s.m_mediaPacketList.at(10);
        s.m_mediaPacketList.erase(10);
    });
    receive(group.fec[0]);  // packet 10 leaves while 12 is dealt
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12));
    std::unique_ptr<CTalRtpPacket> taken;
    session.arm(Place::kSink, [&](S& s) {
        taken.reset(s.m_mediaPacketList.at(10));
        s.m_mediaPacketList.erase(10);
    });
    Bytes again = group.fec[0];
    again[3] = 0xf5;  // number 501
    receive(again);
    EXPECT_EQ(bytesOf(*taken), group.media[0]);
    again[3] = 0xf6;
    receive(again);
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12, 10, 10));
    EXPECT_EQ(bytesOf(*media(10)), group.media[0]);
}

TEST_F(ForeignChangeTest, FecPacketThatAHookTakesOutDuringItsTryIsTheHosts) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.media[0]);
    receive(group.fec[0]);
    std::unique_ptr<CTalRtpPacket> taken;  // it is read until the try is over
    session.arm(Place::kRecover, [&](S& s) {
        taken.reset(s.m_fecPacketList.at(500));
        s.m_fecPacketList.erase(500);
    });
    receive(group.media[1]);
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12));
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));  // as the hook left it
}

TEST_F(ForeignChangeTest, FecPacketThatAHookExchangesDuringItsTryStays) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.media[0]);
    receive(group.fec[0]);
    std::unique_ptr<CTalRtpPacket> taken;
    CTalRtpPacket* const other = fecPacket(500, 40);
    session.arm(Place::kRecover, [&](S& s) {
        taken.reset(s.m_fecPacketList.at(500));
        s.m_fecPacketList.at(500) = other;
    });
    receive(group.media[1]);
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12));
    ASSERT_EQ(search(session.m_fecPacketList, 500), other);
    EXPECT_EQ(session.getFECPacketBySeq(500), other);
    EXPECT_THAT(session.tsInfo(kTimestamp)->fecSeqList, ElementsAre(500));
}

// Both are due once 11 arrived. The first try sets the entry of the second one to null.
TEST_F(ForeignChangeTest, FecPacketThatAHookSetsToNullIsNotTried) {
    const Group group(RTP_FEC_XOR, 10, 500, unitsFrom(10, 3));
    receive(group.media[0]);
    receive(group.fec[0]);
    receive(waitingFec(501, 11));
    session.arm(Place::kRecover, [](S& s) { exchange(s.m_fecPacketList.at(501), nullptr); });
    const TraceCatcher trace(0);
    receive(group.media[1]);
    EXPECT_FALSE(session.isArmed());
    EXPECT_THAT(trace.messages(), IsEmpty());
    EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12));
    EXPECT_EQ(session.m_fecPacketList.count(500), 0u);
    EXPECT_EQ(session.m_fecPacketList.at(501), nullptr);
}

// Tells of its end.
class WatchedPacket : public CTalRtpPacket {
public:
    WatchedPacket(Bytes bytes, bool& isGone)
        : CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size())), m_isGone(isGone) {}
    ~WatchedPacket() override { m_isGone = true; }

private:
    bool& m_isGone;
};

// A session whose hook also puts a packet under the number of the one that it has just rebuilt.
class RebuildingSession : public ScriptedSession {
public:
    using ScriptedSession::ScriptedSession;
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fec) override {
        CTalRtpPacket* const packet = ScriptedSession::recoverPacket(seq, fec);
        m_recoverPacketList[seq] = other != nullptr ? other : packet;
        return packet;
    }

    CTalRtpPacket* other = nullptr;  // null: the same packet
};

class RebuildingHookTest : public testing::Test {
protected:
    RebuildingHookTest() { session.SetFecType(RTP_FEC_XOR); }

    // Lets all but packet 12 arrive.
    void receiveGroup() {
        for (Bytes datagram : {group.media[0], group.media[1], group.fec[0]}) {
            session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
        }
        EXPECT_THAT(session.handedOver, ElementsAre(10, 11, 12));
        EXPECT_EQ(bytesOf(*session.getMediaPacketBySeq(12)), group.media[2]);
        EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
    }

    const Group group{RTP_FEC_XOR, 10, 500, unitsFrom(10, 3)};
    RebuildingSession session{kSourceId};
};

TEST_F(RebuildingHookTest, PacketThatTheHookReturnsReplacesAndDestroysTheOneThatItStored) {
    bool isGone = false;
    session.other = new WatchedPacket(rtp(12, kTimestamp, {0x41, 0x77}), isGone);
    receiveGroup();
    EXPECT_TRUE(isGone);
}

TEST_F(RebuildingHookTest, PacketThatTheHookBothStoresAndReturnsIsStoredOnce) {
    receiveGroup();
}

// --- Reed-Solomon packets that the session itself never stores ---

CTalRtpPacket* rsPacket(unsigned short seq, unsigned char mediaCount, unsigned char count) {
    RsFecFields fec;
    fec.seq = seq;
    fec.base = 40;
    fec.mediaCount = mediaCount;
    fec.count = count;
    fec.parity = Bytes(16, 0x00);
    Bytes bytes = fec.bytes();
    return new CRTPRSPacket(bytes.data(), static_cast<int>(bytes.size()));
}

TEST_F(ForeignChangeTest, ReedSolomonPacketOverNothingIsDroppedAtItsTry) {
    session.SetFecType(RTP_FEC_RS);
    session.m_fecPacketList[500] = rsPacket(500, 0, 1);
    const TraceCatcher trace(2);
    receive(rtp(60, kOther, unitOf(60)));
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(trace.messages(), IsEmpty());
}

TEST_F(ForeignChangeTest, ReedSolomonPacketOfATooLargeGroupIsReportedAndDroppedAtItsTry) {
    session.SetFecType(RTP_FEC_RS);
    session.m_fecPacketList[500] = rsPacket(500, 2, 255);
    const TraceCatcher trace(2);
    receive(rtp(60, kOther, unitOf(60)));
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    EXPECT_THAT(trace.messages(), ElementsAre("CMMRTPSessionBase::recoverPacketWithRSFEC total number of "
                                              "packet and fec is over 256."));
}

// --- A clock that stepped back ---

// Exchanges the record of the newest timestamp for one of `updateTime`, and lets a packet arrive before it.
class ClockStepTest : public ForeignChangeTest {
protected:
    void exchangeAndStepBack(unsigned long updateTime) {
        receive(rtp(10, kTimestamp, unitOf(10)), 1000);
        receive(rtp(60, kOther, unitOf(60)), 3000);
        before = session.m_tsInfoList.at(kOther);
        after = recordWithUnit(60);
        after->updateTime = updateTime;
        session.m_tsInfoList.at(kOther) = after;
        receive(rtp(11, kTimestamp, unitOf(11)), 2000);
    }
    ~ClockStepTest() override { freeRecord(before); }

    stTalRtpTSInfo* before = nullptr;
    stTalRtpTSInfo* after = nullptr;
};

TEST_F(ClockStepTest, RecordThatWasExchangedForAnOlderOneStays) {
    exchangeAndStepBack(1500);
    ASSERT_EQ(session.tsInfo(kOther), after);
    EXPECT_NE(media(60), nullptr);
    EXPECT_EQ(before->dataInfoMap.size(), 1u);
}

TEST_F(ClockStepTest, RecordThatWasExchangedForANewerOneAgesOutInItsPlace) {
    exchangeAndStepBack(4000);
    EXPECT_EQ(session.m_tsInfoList.count(kOther), 0u);
    EXPECT_EQ(media(60), nullptr);
    EXPECT_EQ(before->dataInfoMap.size(), 1u);
    EXPECT_NE(media(11), nullptr);
}

// --- Hooks that are asked for the bounds of packets that were put in ---

TEST_F(ForeignChangeTest, HookThatChangesTheListsAtEachQuestionIsAskedThreeTimes) {
    session.m_mediaPacketList[1] = fragmentPacket(1, kStart);
    int questions = 0;
    std::function<void(S&)> change = [&](S& s) {
        ++questions;
        if (s.m_recoverPacketList.erase(50000) == 0) {
            s.m_recoverPacketList[50000] = nullptr;
        }
        s.arm(Place::kIsEnd, change);
    };
    session.arm(Place::kIsEnd, change);
    EXPECT_EQ(session.getMediaPacketBySeq(1), media(1));
    EXPECT_EQ(questions, 3);
    EXPECT_EQ(session.getMediaPacketBySeq(1), media(1));
    EXPECT_EQ(questions, 3);  // nothing has changed since
    session.arm(Place::kBetweenCalls, nullptr);
    receive(rtp(2, kTimestamp, fragment(kEnd, {2})));
    EXPECT_THAT(session.handedOver, ElementsAre(1));
}

TEST_F(ForeignChangeTest, LastNumberIsAskedForItsBoundsToo) {
    session.m_mediaPacketList[65534] = fragmentPacket(65534, kStart);
    session.m_mediaPacketList[65535] = fragmentPacket(65535, kMiddle);
    receive(rtp(0, kTimestamp, fragment(kEnd, {3})));
    EXPECT_THAT(session.handedOver, ElementsAre(65534));
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// The hooks of a derived class: how often they are called, with which arguments, in which order. Hosts
// rely on all of it, also where an answer is asked for twice.

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

// Notes every hook that it is asked, and answers as the library does.
class NotingSession : public SvcProbe {
public:
    using SvcProbe::SvcProbe;

    bool isStartSeq(unsigned short seq) override {
        note("isStartSeq", seq);
        return SvcProbe::isStartSeq(seq);
    }
    bool isEndSeq(unsigned short seq) override {
        note("isEndSeq", seq);
        return SvcProbe::isEndSeq(seq);
    }
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override {
        note("findStartSeq", seq);
        return SvcProbe::findStartSeq(seq, startSeq);
    }
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override {
        note("findEndSeq", startSeq);
        return SvcProbe::findEndSeq(startSeq, endSeq);
    }
    void dealPacket(CTalRtpPacket* packet) override {
        note("dealPacket", packet->get_sequence_number());
        SvcProbe::dealPacket(packet);
    }
    void forceHandoverPacket(CTalRtpPacket* packet) override {
        note("forceHandoverPacket", packet->get_sequence_number());
        SvcProbe::forceHandoverPacket(packet);
    }
    int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) override {
        note("setPacketHeader", static_cast<int>(timestamp));
        return SvcProbe::setPacketHeader(timestamp, packet);
    }
    int setPacketPayload(int index, int count, int size, unsigned char* data,
                         CTalRtpPacket* packet) override {
        note("setPacketPayload", index);
        calls.back() += " of " + std::to_string(count) + ", " + std::to_string(size) + " bytes";
        return SvcProbe::setPacketPayload(index, count, size, data, packet);
    }

    std::vector<std::string> calls;

private:
    void note(const char* hook, int argument) { calls.push_back(hook + (" " + std::to_string(argument))); }
};

class HostHooksTest : public SessionTest<NotingSession> {
protected:
    // The hooks that were called since the last look.
    void expectCalls(const std::vector<std::string>& expected) {
        EXPECT_EQ(session.calls, expected);
        session.calls.clear();
    }

    unsigned char unit[10] = {0x65};
    PacketArray<CTalRtpPacket> packets{3, 100};
};

TEST_F(HostHooksTest, WholeUnitIsRecordedDealtAndMarked) {
    media(7);
    expectCalls(
        {"isEndSeq 7", "isStartSeq 7", "findStartSeq 7", "findEndSeq 7", "dealPacket 7", "findStartSeq 7"});
}

TEST_F(HostHooksTest, FragmentsInOrderAreFoundFromTheirStartEachTime) {
    media(10, fragment(kStart, {1}));
    expectCalls({"isEndSeq 10", "isStartSeq 10", "findStartSeq 10", "findEndSeq 10", "dealPacket 10",
                 "findStartSeq 10"});
    media(11, fragment(kMiddle, {2}));
    expectCalls({"isEndSeq 11", "isStartSeq 11", "findStartSeq 11", "findEndSeq 10", "dealPacket 11",
                 "findStartSeq 11"});
    media(12, fragment(kEnd, {3}));
    expectCalls({"isEndSeq 12", "isStartSeq 12", "findStartSeq 12", "findEndSeq 10", "dealPacket 12",
                 "findStartSeq 12", "findStartSeq 10"});
}

TEST_F(HostHooksTest, FragmentWithoutStartAsksForNoEnd) {
    media(11, fragment(kMiddle, {2}));
    expectCalls({"isEndSeq 11", "isStartSeq 11", "findStartSeq 11", "dealPacket 11", "findStartSeq 11"});
}

TEST_F(HostHooksTest, FragmentOfACompleteUnitAsksForNoEnd) {
    media(10, fragment(kStart | kEnd, {1}));
    session.calls.clear();
    media(11, fragment(kMiddle, {2}));
    expectCalls({"isEndSeq 11", "isStartSeq 11", "findStartSeq 11", "dealPacket 11", "findStartSeq 11",
                 "findStartSeq 10"});
}

TEST_F(HostHooksTest, ForcedHandoverAsksForTheStart) {
    media(10, fragment(kStart, {1}));
    session.calls.clear();
    session.ForceHandover(kTimestamp);
    expectCalls({"forceHandoverPacket 10", "findStartSeq 10", "findStartSeq 10"});
}

TEST_F(HostHooksTest, SinglePacketAsksForHeaderThenPayload) {
    EXPECT_EQ(session.CreateSinglePacket(5, 10, unit, packets), 0);
    expectCalls({"setPacketHeader 5", "setPacketPayload 1 of 1, 10 bytes"});
}

TEST_F(HostHooksTest, EachFragmentAsksForHeaderThenPayload) {
    EXPECT_EQ(session.CreateFuaPackets(5, 10, unit, 3, packets), 0);
    expectCalls({"setPacketHeader 5", "setPacketPayload 1 of 3, 4 bytes", "setPacketHeader 5",
                 "setPacketPayload 2 of 3, 4 bytes", "setPacketHeader 5",
                 "setPacketPayload 3 of 3, 2 bytes"});
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// The conduct of a session when memory is refused. Every allocation that an operation makes is refused once,
// one by one, and all from each one on; the allocator's functions are wrapped at link time, and the operator
// new of the program ends in them. After each try the lists are held against the index and the notes, and the
// session goes on.

#include <gtest/gtest.h>
#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "SessionFixture.h"

namespace {

// Which allocation is refused, counted from 1 while `isArmed`; with `isLasting` all after it as well.
struct Refusal {
    bool isArmed = false;
    bool isLasting = false;
    int nth = 0;
    int count = 0;
    int refused = 0;
    bool isHit = false;
};
Refusal s_refusal;

bool isRefused() {
    if (!s_refusal.isArmed) {
        return false;
    }
    ++s_refusal.count;
    const bool isNow =
        s_refusal.count == s_refusal.nth || (s_refusal.isLasting && s_refusal.count > s_refusal.nth);
    s_refusal.refused += isNow ? 1 : 0;
    s_refusal.isHit |= isNow;
    return isNow;
}

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
int __real_posix_memalign(void** memory, std::size_t alignment, std::size_t size);

void* __wrap_malloc(std::size_t size) {
    return isRefused() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return isRefused() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
    return isRefused() ? nullptr : __real_realloc(memory, size);
}
int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    return isRefused() ? 12 : __real_posix_memalign(memory, alignment, size);
}

}  // extern "C"

namespace talrtp {
namespace test {
namespace {

// Refuses the nth allocation of `call`, for every n, alone and with all after it. `prepare` makes what
// `call` works on; `check` looks at it afterwards.
template <typename Stage>
void refuseEach(const std::function<void(Stage&)>& call, const std::function<void(Stage&, bool)>& check) {
    for (const bool isLasting : {false, true}) {
        bool isHit = true;
        int tries = 0;
        for (int nth = 1; isHit; ++nth) {
            ASSERT_LE(nth, 2000) << "the operation never came through";
            SCOPED_TRACE(testing::Message()
                         << "allocation " << nth << (isLasting ? " and all after it" : ""));
            Stage stage;
            s_refusal = Refusal();
            s_refusal.isLasting = isLasting;
            s_refusal.nth = nth;
            call(stage);
            isHit = s_refusal.isHit;
            check(stage, isHit);
            ++tries;
        }
        EXPECT_GE(tries, 2) << "nothing was refused";
    }
}

// Runs what the library does, armed.
template <typename Call>
auto armed(Call call) {
    struct Arm {
        Arm() { s_refusal.isArmed = true; }
        ~Arm() { s_refusal.isArmed = false; }
    } arm;
    return call();
}

class NumberSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        const bool wasArmed = s_refusal.isArmed;
        s_refusal.isArmed = false;
        ++handovers[packet->get_sequence_number()];
        s_refusal.isArmed = wasArmed;
    }

    std::map<unsigned short, int> handovers;  // by sequence number
};

class Session : public CMMRTPSession4SVC {
public:
    explicit Session(ITalRTPSessionSink* sink) : CMMRTPSession4SVC(sink, kSourceId) {}

    const CTalRtpPacket* getPacket(unsigned short seq) const { return getMediaPacketBySeq(seq); }
    // The numbers of rebuilt packets that are not dealt yet.
    std::vector<unsigned short> waiting() const {
        std::vector<unsigned short> seqs;
        for (const auto& entry : m_recoverPacketList) {
            seqs.push_back(entry.first);
        }
        return seqs;
    }

    // Holds the lists against the look-ups and the notes. Rebuilt packets wait in their list only after a
    // call that was refused memory.
    void expectInStep(bool isRefused) const {
        std::map<unsigned short, int> mediaNotes;
        std::map<unsigned short, int> fecNotes;
        for (const auto& entry : m_tsInfoList) {
            for (const unsigned short seq : entry.second->mediaSeqList) {
                ++mediaNotes[seq];
            }
            for (const unsigned short seq : entry.second->fecSeqList) {
                ++fecNotes[seq];
            }
        }
        expectNoted(m_mediaPacketList, mediaNotes);
        expectNoted(m_fecPacketList, fecNotes);
        for (const auto& entry : m_mediaPacketList) {
            EXPECT_EQ(getMediaPacketBySeq(entry.first), entry.second);
        }
        for (const auto& entry : m_fecPacketList) {
            EXPECT_EQ(getFECPacketBySeq(entry.first), entry.second);
        }
        EXPECT_TRUE(isRefused || m_recoverPacketList.empty());
        for (const auto& entry : m_recoverPacketList) {
            EXPECT_EQ(m_mediaPacketList.count(entry.first), 0u);
        }
    }
    // The same while nothing has aged out: each stored packet is counted.
    void expectInStepAndCounted(bool isRefused = false) const {
        expectInStep(isRefused);
        EXPECT_EQ(m_mediaPacketList.size(), m_receivedValidMediaPacketNumber + m_recoveredMediaPacketNumber);
    }

private:
    static void expectNoted(const PacketMap& list, const std::map<unsigned short, int>& notes) {
        EXPECT_EQ(list.size(), notes.size());
        for (const auto& entry : list) {
            ASSERT_NE(entry.second, nullptr);
            const auto note = notes.find(entry.first);
            ASSERT_NE(note, notes.end()) << entry.first;
            EXPECT_EQ(note->second, 1) << entry.first;
        }
    }
};

// A session of the library's class, or of a derived one, with what it has received.
struct Receiver {
    Receiver() = default;

    int input(Bytes datagram) {
        return session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
    }
    int inputArmed(Bytes datagram) {
        int result = 7;
        EXPECT_NO_THROW(result = armed([&] {
                            return session->InputReceivedData(datagram.data(),
                                                              static_cast<int>(datagram.size()), 1000);
                        }));
        return result;
    }

    NumberSink sink;
    std::unique_ptr<Session> session{new Session(&sink)};
};

// Feeds `before`, then `datagrams` with refusals. Afterwards everything is sent again, and each of `wanted`
// has been handed over, if need be by force.
void refuseInReceiving(unsigned long fecType, const std::vector<Bytes>& before,
                       const std::vector<Bytes>& datagrams, const std::vector<unsigned short>& wanted) {
    refuseEach<Receiver>(
        [&](Receiver& receiver) {
            receiver.session->SetFecType(fecType);
            for (const Bytes& datagram : before) {
                ASSERT_EQ(receiver.input(datagram), 0);
            }
            for (const Bytes& datagram : datagrams) {
                const int refusedBefore = s_refusal.refused;
                const int result = receiver.inputArmed(datagram);
                const bool isRefused = s_refusal.refused != refusedBefore;
                EXPECT_TRUE(result == 0 || (result == -1 && isRefused)) << result;
                receiver.session->expectInStepAndCounted(isRefused);
            }
        },
        [&](Receiver& receiver, bool isHit) {
            for (const Bytes& datagram : datagrams) {
                EXPECT_EQ(receiver.input(datagram), 0);
            }
            // A try that was refused its memory is made again with the next new packet.
            EXPECT_EQ(receiver.input(rtp(100, kTimestamp, unitOf(100))), 0);
            receiver.session->expectInStepAndCounted();
            receiver.session->ForceHandover(kTimestamp);
            for (const unsigned short seq : wanted) {
                EXPECT_GE(receiver.sink.handovers[seq], 1) << seq;
                EXPECT_TRUE(isHit || receiver.sink.handovers[seq] == 1) << seq;
            }
            // All of it ages out, and the session goes on.
            Bytes later = rtp(9000, kTimestamp + 9000, unitOf(9));
            EXPECT_EQ(receiver.session->InputReceivedData(later.data(), static_cast<int>(later.size()), 9000),
                      0);
            EXPECT_EQ(receiver.sink.handovers[9000], 1);
        });
}

std::vector<Bytes> fragments(unsigned short first, int count) {
    std::vector<Bytes> run;
    for (int i = 0; i < count; ++i) {
        const unsigned char flags = i == 0 ? kStart : i + 1 == count ? kEnd : kMiddle;
        run.push_back(
            rtp(static_cast<unsigned short>(first + i), kTimestamp, fragment(flags, pattern(3000, 1))));
    }
    return run;
}

TEST(AllocationFailureTest, SingleUnit) {
    refuseInReceiving(RTP_FEC_RS, {}, {rtp(1, kTimestamp, unitOf(1))}, {1});
}

TEST(AllocationFailureTest, AggregationPacket) {
    refuseInReceiving(RTP_FEC_RS, {}, {rtp(1, kTimestamp, aggregation({unitOf(1)}))}, {1});
}

TEST(AllocationFailureTest, RunOfFragments) {
    refuseInReceiving(RTP_FEC_RS, {}, fragments(1, 4), {1});
}

// FEC over numbers 10 .. 13 of which some do not arrive.
struct Group {
    Group(unsigned long fecType, int count, int fecCount) {
        CMMRTPSession4SVC sender(nullptr, kPeerId);
        sender.SetFecType(fecType);
        std::vector<Packet> packets(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            Bytes unit = join({unitOf(static_cast<unsigned short>(i)), pattern(100, 3)});
            Packet& packet = packets[static_cast<std::size_t>(i)];
            sender.CreateSinglePacket(kTimestamp, static_cast<int>(unit.size()), unit.data(), &packet);
            packet.set_sequence_number(static_cast<unsigned short>(10 + i));
            media.push_back(bytesOf(packet));
        }
        if (fecType == RTP_FEC_RS) {
            std::vector<Packet> made(static_cast<std::size_t>(fecCount));
            sender.CreateRsFecPackets(packets.data(), count, made.data(), fecCount);
            for (int i = 0; i < fecCount; ++i) {
                made[static_cast<std::size_t>(i)].set_sequence_number(static_cast<unsigned short>(500 + i));
                fec.push_back(bytesOf(made[static_cast<std::size_t>(i)]));
            }
        } else {
            CRTPFECPacket made(1500);
            sender.CreateXorFecPackets(packets.data(), count, 0xffffffff, &made);
            made.set_sequence_number(500);
            fec.push_back(bytesOf(made));
        }
    }

    struct Packet : CTalRtpPacket {
        Packet() : CTalRtpPacket(1500) {}
    };
    std::vector<Bytes> media;
    std::vector<Bytes> fec;
};

TEST(AllocationFailureTest, XorPacketThatWaitsAndThenRebuilds) {
    const Group group(RTP_FEC_XOR, 3, 1);
    refuseInReceiving(RTP_FEC_XOR, {}, {group.fec[0], group.media[0], group.media[2]}, {10, 11, 12});
    refuseInReceiving(RTP_FEC_XOR, {group.media[0]}, {group.fec[0], group.media[2]}, {10, 11, 12});
}

TEST(AllocationFailureTest, XorPacketThatRebuildsAtOnce) {
    const Group group(RTP_FEC_XOR, 3, 1);
    refuseInReceiving(RTP_FEC_XOR, {group.media[0], group.media[2]}, {group.fec[0]}, {10, 11, 12});
}

TEST(AllocationFailureTest, ReedSolomonGroupCompletedByAFecPacket) {
    const Group group(RTP_FEC_RS, 4, 2);
    refuseInReceiving(RTP_FEC_RS, {group.media[0], group.media[3]}, {group.fec[0], group.fec[1]},
                      {10, 11, 12, 13});
}

TEST(AllocationFailureTest, ReedSolomonGroupCompletedByAMediaPacket) {
    const Group group(RTP_FEC_RS, 4, 2);
    refuseInReceiving(RTP_FEC_RS, {group.fec[0], group.fec[1], group.media[1]}, {group.media[3]},
                      {10, 11, 12, 13});
}

// Nodes come in pages, so what is refused for a packet depends on how many were stored before.
TEST(AllocationFailureTest, NewTimestampAtEveryFillOfThePages) {
    std::vector<Bytes> before;
    for (unsigned short seq = 1000; seq < 1090; ++seq) {
        before.push_back(rtp(seq, kTimestamp + seq, unitOf(seq)));
        refuseInReceiving(RTP_FEC_RS, before, {rtp(1, kTimestamp, unitOf(1))}, {1});
    }
}

TEST(AllocationFailureTest, RebuiltPacketAtEveryFillOfThePages) {
    const Group group(RTP_FEC_XOR, 1, 1);
    std::vector<Bytes> before;
    for (unsigned short seq = 1000; seq < 1090; ++seq) {
        before.push_back(rtp(seq, kTimestamp + seq, unitOf(seq)));
        refuseInReceiving(RTP_FEC_XOR, before, {group.fec[0]}, {10});
    }
}

TEST(AllocationFailureTest, RebuiltPacketsThatWaitAreDealtInTheNextCall) {
    const Group group(RTP_FEC_RS, 4, 2);
    bool hasWaited = false;
    refuseEach<Receiver>(
        [&](Receiver& receiver) {
            receiver.session->SetFecType(RTP_FEC_RS);
            for (const Bytes& datagram : {group.fec[0], group.fec[1], group.media[1]}) {
                ASSERT_EQ(receiver.input(datagram), 0);
            }
            receiver.inputArmed(group.media[3]);
        },
        [&](Receiver& receiver, bool) {
            const std::vector<unsigned short> waiting = receiver.session->waiting();
            hasWaited |= !waiting.empty();
            for (const unsigned short seq : waiting) {
                EXPECT_EQ(receiver.sink.handovers[seq], 0) << seq;
            }
            EXPECT_EQ(receiver.input(rtp(100, kTimestamp, unitOf(100))), 0);
            EXPECT_TRUE(receiver.session->waiting().empty());
            for (const unsigned short seq : waiting) {
                EXPECT_EQ(receiver.sink.handovers[seq], 1) << seq;
            }
        });
    EXPECT_TRUE(hasWaited);
}

// May put a null entry under each number that is to be rebuilt.
class PlacingSession : public Session {
public:
    using Session::Session;

    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fec) override {
        if (isPlacing) {
            const bool wasArmed = s_refusal.isArmed;
            s_refusal.isArmed = false;
            m_recoverPacketList[seq] = nullptr;
            s_refusal.isArmed = wasArmed;
        }
        isAsked = true;
        return Session::recoverPacket(seq, fec);
    }
    // Returns false when memory was refused.
    bool tryToRecover(CRTPFECPacket& fec) {
        try {
            return armed([&] {
                bool keep = false;
                recoverPacketWithXORFEC(&fec, keep);
                return true;
            });
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    const CTalRtpPacket* rebuilt(unsigned short seq) const { return m_recoverPacketList.at(seq); }

    bool isPlacing = false;
    bool isAsked = false;
};

struct PlacingStage {
    NumberSink sink;
    PlacingSession session{&sink};
};

// Refuses memory while packet 128 is rebuilt, which lies in another page than the stored one.
void refuseInRebuilding(bool isPlacing, const std::function<void(PlacingStage&, bool)>& check) {
    const test::Group group(RTP_FEC_XOR, 127, 500, unitsFrom(127, 2));
    refuseEach<PlacingStage>(
        [&](PlacingStage& stage) {
            stage.session.isPlacing = isPlacing;
            stage.session.SetFecType(RTP_FEC_XOR);
            Bytes stored = group.media[0];
            stage.session.InputReceivedData(stored.data(), static_cast<int>(stored.size()), 1000);
            Bytes bytes = group.fec[0];
            CRTPFECPacket fec(bytes.data(), static_cast<int>(bytes.size()));
            const bool isTried = stage.session.tryToRecover(fec);
            EXPECT_EQ(isTried, !s_refusal.isHit);
        },
        check);
}

TEST(AllocationFailureTest, RebuiltPacketThatFindsNoMemoryLeavesNoEntry) {
    refuseInRebuilding(false, [](PlacingStage& stage, bool isHit) {
        EXPECT_EQ(stage.session.waiting(),
                  isHit ? std::vector<unsigned short>() : std::vector<unsigned short>{128});
    });
}

TEST(AllocationFailureTest, EntryOfAHookStaysWhenTheRebuiltPacketFindsNoMemory) {
    refuseInRebuilding(true, [](PlacingStage& stage, bool isHit) {
        EXPECT_TRUE(stage.session.isAsked);  // nothing is allocated before
        EXPECT_EQ(stage.session.rebuilt(128) == nullptr, isHit);
    });
}

TEST(AllocationFailureTest, ReedSolomonGroupThatFindsNoMemoryIsReported) {
    const Group group(RTP_FEC_RS, 4, 2);
    bool isReported = false;
    refuseEach<Receiver>(
        [&](Receiver& receiver) {
            receiver.session->SetFecType(RTP_FEC_RS);
            for (const Bytes& datagram : {group.fec[0], group.fec[1], group.media[1]}) {
                receiver.input(datagram);
            }
            TraceCatcher trace(0);
            trace.onLine = [](const TraceLine&) { s_refusal.isLasting = false; };
            receiver.inputArmed(group.media[3]);
            const std::vector<std::string> failed = {
                "CMMRTPSessionBase::CreateRsFecPackets get rs model failed, k = 4, n = 6"};
            isReported |= trace.messages() == failed;
            EXPECT_TRUE(trace.lines().empty() || trace.messages() == failed);
            EXPECT_TRUE(trace.lines().empty() || s_refusal.isHit);
        },
        [&](Receiver& receiver, bool) {
            receiver.input(group.media[3]);
            receiver.input(rtp(100, kTimestamp, unitOf(100)));
            for (unsigned short seq = 10; seq < 14; ++seq) {
                EXPECT_NE(receiver.session->getPacket(seq), nullptr) << seq;
            }
        });
    EXPECT_TRUE(isReported);
}

TEST(AllocationFailureTest, ForcedHandoverIsMadeLater) {
    refuseEach<Receiver>(
        [](Receiver& receiver) {
            std::vector<Bytes> run = fragments(1, 3);
            receiver.input(run[0]);
            receiver.input(run[1]);
            int result = 7;
            EXPECT_NO_THROW(result = armed([&] { return receiver.session->ForceHandover(kTimestamp); }));
            EXPECT_EQ(result, s_refusal.isHit ? -1 : 0);
            receiver.session->expectInStepAndCounted();
        },
        [](Receiver& receiver, bool isHit) {
            EXPECT_EQ(receiver.session->ForceHandover(kTimestamp), isHit ? 0 : 1);
            EXPECT_EQ(receiver.sink.handovers[1], 1);
        });
}

TEST(AllocationFailureTest, ForcedHandoverOfAnAggregationPacketIsMadeLater) {
    refuseEach<Receiver>(
        [](Receiver& receiver) {
            const Refusal wanted = s_refusal;
            s_refusal.isLasting = true;  // so that the packet is stored and not handed over
            s_refusal.nth = 1;
            receiver.input(rtp(1, kTimestamp, unitOf(1)));
            Bytes datagram = rtp(2, kTimestamp + 1, aggregation({pattern(5000, 1), pattern(5000, 2)}));
            // Twice each, since the record of the timestamp stays once there was memory for it.
            for (int attempt = 2; receiver.sink.handovers.count(2) == 0; ++attempt) {
                s_refusal.nth = attempt / 2;
                ASSERT_LE(s_refusal.nth, 100);
                s_refusal.count = 0;
                receiver.inputArmed(datagram);
                if (receiver.session->getPacket(2) != nullptr) {
                    break;
                }
            }
            ASSERT_EQ(receiver.sink.handovers.count(2), 0u);
            s_refusal = wanted;
            const int result = armed([&] { return receiver.session->ForceHandover(kTimestamp + 1); });
            EXPECT_EQ(result, s_refusal.isHit ? -1 : 0);
        },
        [](Receiver& receiver, bool isHit) {
            EXPECT_EQ(receiver.session->ForceHandover(kTimestamp + 1), isHit ? 0 : 1);
            EXPECT_EQ(receiver.sink.handovers[2], 1);
        });
}

// After the first of two rebuilt packets was dealt, a packet is put in, so that all has to be learned anew
// for the second.
class ChangingSession : public Session {
public:
    using Session::Session;

    void putRebuilt(unsigned short seq) { m_recoverPacketList[seq] = makePacket(seq); }
    bool hasRebuilt() const { return !m_recoverPacketList.empty(); }

    void dealPacket(CTalRtpPacket* packet) override {
        Session::dealPacket(packet);
        if (packet->get_sequence_number() == 20) {
            const Refusal before = s_refusal;
            s_refusal.isArmed = false;
            m_mediaPacketList[9] = makePacket(9);
            s_refusal = before;
        }
    }

private:
    static CTalRtpPacket* makePacket(unsigned short seq) {
        Bytes datagram = rtp(seq, kTimestamp, unitOf(seq));
        return new CTalRtpPacket(datagram.data(), static_cast<int>(datagram.size()));
    }
};

TEST(AllocationFailureTest, ListsThatChangeWhilePacketsAreDealtAreLearnedLater) {
    bool isAnyKept = false;
    refuseEach<Receiver>(
        [&](Receiver& receiver) {
            receiver.session.reset(new ChangingSession(&receiver.sink));
            auto& session = static_cast<ChangingSession&>(*receiver.session);
            session.putRebuilt(20);
            session.putRebuilt(21);
            const int result = receiver.inputArmed(rtp(1, kTimestamp, unitOf(1)));
            EXPECT_TRUE(result == 0 || (result == -1 && s_refusal.isHit)) << result;
            isAnyKept |= session.hasRebuilt() && receiver.sink.handovers[20] == 1;
        },
        [](Receiver& receiver, bool) {
            EXPECT_EQ(receiver.input(rtp(100, kTimestamp, unitOf(100))), 0);
            const auto& session = static_cast<ChangingSession&>(*receiver.session);
            EXPECT_FALSE(session.hasRebuilt());
            for (const unsigned short seq : {20, 21, 100}) {
                EXPECT_EQ(receiver.sink.handovers[seq], 1) << seq;
                EXPECT_NE(session.getPacket(seq), nullptr) << seq;
            }
            EXPECT_NE(session.getPacket(9), nullptr);
        });
    EXPECT_TRUE(isAnyKept);
}

struct Nothing {};

TEST(AllocationFailureTest, SessionThatIsNotMadeLeaksNothing) {
    refuseEach<Nothing>(
        [](Nothing&) {
            ITalRTPSession* session = nullptr;
            bool isThrown = false;
            try {
                armed([&] {
                    TalCreateRTPSession(&session, nullptr, 1, 2);
                    return 0;
                });
            } catch (const std::bad_alloc&) {
                isThrown = true;
            }
            EXPECT_EQ(isThrown, s_refusal.isHit);
            EXPECT_EQ(session != nullptr, !isThrown);
            TalDestroyRTPSession(session);
        },
        [](Nothing&, bool) {});
}

TEST(AllocationFailureTest, ModelThatIsNotMadeIsMadeLater) {
    refuseEach<Nothing>(
        [](Nothing&) {
            RsMapClear();
            rs_param_* model = nullptr;
            EXPECT_NO_THROW(model = armed([] { return GetRsModel(4, 6); }));
            EXPECT_EQ(model == nullptr, s_refusal.isHit);
            EXPECT_NE(GetRsModel(4, 6), nullptr);
            RsMapClear();
        },
        [](Nothing&, bool) {});
}

// As many lost blocks as need rows on the heap.
TEST(AllocationFailureTest, BlocksThatAreNotRebuiltStayAsTheyWere) {
    constexpr int kMedia = 20;
    constexpr int kLost = 17;
    rs_param_* const model = GetRsModel(kMedia, kMedia + kLost);
    std::vector<Bytes> blocks;
    std::vector<unsigned char*> places;
    for (unsigned int i = 0; i < kMedia + kLost; ++i) {
        blocks.push_back(pattern(50, i));
    }
    for (Bytes& block : blocks) {
        places.push_back(block.data());
    }
    ASSERT_EQ(CRsFec::Encode(model, places.data(), 50, places.data() + kMedia), 0);
    refuseEach<Nothing>(
        [&](Nothing&) {
            std::vector<unsigned char*> present(places.begin() + kLost, places.end());
            std::vector<int> index;
            std::vector<int> lost;
            std::vector<Bytes> rebuilt(kLost, Bytes(50, 0xee));
            std::vector<unsigned char*> out;
            for (int i = 0; i < kMedia; ++i) {
                index.push_back(kLost + i);
            }
            for (int i = 0; i < kLost; ++i) {
                lost.push_back(i);
                out.push_back(rebuilt[static_cast<std::size_t>(i)].data());
            }
            const int result = armed([&] {
                return CRsFec::Decode(model, present.data(), 50, index.data(), out.data(), lost.data(),
                                      kLost);
            });
            for (std::size_t i = 0; i < kLost; ++i) {
                EXPECT_EQ(rebuilt[i], result == 0 ? blocks[i] : Bytes(50, 0xee)) << i;
            }
            EXPECT_TRUE(result == 0 || (result == 1 && s_refusal.isHit)) << result;
        },
        [](Nothing&, bool) {});
    RsMapClear();
}

class CutPacketSink : public ITalRTCPStackSink {
public:
    void OnRtcpPacket(unsigned char*, int) override { ++packets; }
    int packets = 0;
};

TEST(AllocationFailureTest, CutRtcpPacketIsRefusedOrHandedOver) {
    refuseEach<Nothing>(
        [](Nothing&) {
            Bytes cut = {0x81, 201, 0, 7, 0x11, 0x22, 0x33, 0x44};  // tells 32 bytes
            CutPacketSink sink;
            CTalRTCPStack stack;
            const std::int64_t result = armed(
                [&] { return stack.InputReceivedRtcpData(&sink, cut.data(), static_cast<int>(cut.size())); });
            EXPECT_EQ(result, s_refusal.isHit ? -1 : 0);
            EXPECT_EQ(sink.packets, s_refusal.isHit ? 0 : 1);
        },
        [](Nothing&, bool) {});
}

struct Packets {
    Bytes bytes = rtp(1, kTimestamp, pattern(2000, 1));
    CTalRtpPacket large{bytes.data(), static_cast<int>(bytes.size())};
    CTalRtpPacket small{100};
};

// Constructors, copies and what grows let std::bad_alloc pass and leave the object as it was.
TEST(AllocationFailureTest, PacketsLetTheExceptionPassAndStayWhole) {
    const std::vector<std::function<void(Packets&)>> operations = {
        [](Packets&) { CTalRtpPacket made(200); },
        [](Packets& of) { CTalRtpPacket made(of.bytes.data(), static_cast<int>(of.bytes.size())); },
        [](Packets& of) { CTalRtpPacket copy(of.large); },
        [](Packets& of) { of.small = of.large; },
        [](Packets& of) { of.small.from_buffer(of.bytes.data(), static_cast<int>(of.bytes.size())); },
    };
    for (const auto& operation : operations) {
        refuseEach<Packets>(
            [&](Packets& packets) {
                bool isThrown = false;
                try {
                    armed([&] {
                        operation(packets);
                        return 0;
                    });
                } catch (const std::bad_alloc&) {
                    isThrown = true;
                }
                EXPECT_EQ(isThrown, s_refusal.isHit);
            },
            [](Packets& packets, bool isHit) {
                EXPECT_EQ(bytesOf(packets.large), packets.bytes);
                if (isHit) {
                    EXPECT_EQ(packets.small.get_buffer_size(), 100);
                    packets.small.set_payload_size(88);
                    EXPECT_EQ(bytesOf(packets.small).size(), 100u);
                }
            });
    }
}

TEST(AllocationFailureTest, ElementThatFindsNoMemoryIsNotAdded) {
    refuseEach<Packets>(
        [](Packets& packets) {
            unsigned char element[] = {0x12, 1, 2, 3};
            bool isAdded = true;
            EXPECT_NO_THROW(isAdded = armed([&] {
                                return packets.large.add_onebyte_extension_element(1, element,
                                                                                   sizeof element);
                            }));
            EXPECT_EQ(isAdded, !s_refusal.isHit);
        },
        [](Packets& packets, bool isHit) {
            if (isHit) {
                EXPECT_EQ(bytesOf(packets.large), packets.bytes);
            }
        });
}

// --- Exceptions of the host ---

// Throws in place of the nth hand-over.
class ThrowingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket*) override {
        if (++calls == nth) {
            if (isBadAlloc) {
                throw std::bad_alloc();
            }
            throw std::runtime_error("the sink's own");
        }
    }
    int calls = 0;
    int nth = 0;
    bool isBadAlloc = false;
};

TEST(HostExceptionTest, ExceptionOfTheSinkPassesAndLeavesTheSessionUsable) {
    const Group group(RTP_FEC_RS, 4, 3);
    for (const bool isBadAlloc : {false, true}) {
        for (int nth = 1; nth <= 4; ++nth) {
            ThrowingSink sink;
            sink.nth = nth;
            sink.isBadAlloc = isBadAlloc;
            Session session(&sink);
            int thrown = 0;
            for (Bytes datagram : {group.fec[0], group.fec[1], group.fec[2], group.media[3]}) {
                try {
                    session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
                } catch (const std::exception&) {
                    ++thrown;
                }
            }
            EXPECT_EQ(thrown, 1) << nth;
            Bytes later = rtp(100, kTimestamp, unitOf(100));
            EXPECT_EQ(session.InputReceivedData(later.data(), static_cast<int>(later.size()), 1000), 0);
            session.expectInStepAndCounted();
            EXPECT_EQ(sink.calls, 5) << nth;  // each packet once, the one that threw too
            Bytes last = rtp(200, kTimestamp + 1, unitOf(200));
            EXPECT_EQ(session.InputReceivedData(last.data(), static_cast<int>(last.size()), 9000), 0);
            session.expectInStep(false);
        }
    }
}

// A hook that throws for one sequence number.
class ThrowingHooks : public Session {
public:
    using Session::Session;
    bool isStartSeq(unsigned short seq) override { return check(seq, 0) && Session::isStartSeq(seq); }
    bool findStartSeq(unsigned short seq, unsigned short& start) override {
        return check(seq, 1) && Session::findStartSeq(seq, start);
    }
    void dealPacket(CTalRtpPacket* packet) override {
        check(packet->get_sequence_number(), 2);
        Session::dealPacket(packet);
    }
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fec) override {
        check(seq, 3);
        return Session::recoverPacket(seq, fec);
    }

    int hook = -1;

private:
    bool check(unsigned short seq, int which) const {
        if (hook == which && seq == 11) {
            throw std::runtime_error("the hook's own");
        }
        return true;
    }
};

TEST(HostExceptionTest, ExceptionOfAHookPassesAndLeavesTheSessionUsable) {
    const Group group(RTP_FEC_XOR, 3, 1);
    for (int hook = 0; hook < 4; ++hook) {
        NumberSink sink;
        ThrowingHooks session(&sink);
        session.SetFecType(RTP_FEC_XOR);
        session.hook = hook;
        int thrown = 0;
        for (Bytes datagram : {group.media[0], group.media[2], group.fec[0]}) {
            try {
                session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000);
            } catch (const std::runtime_error&) {
                ++thrown;
            }
        }
        EXPECT_EQ(thrown, 1) << hook;
        session.hook = -1;
        for (Bytes datagram : group.media) {
            EXPECT_EQ(session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 1000), 0);
        }
        session.ForceHandover(kTimestamp);
        EXPECT_EQ(sink.handovers[11], 1) << hook;
    }
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// Which waiting FEC packets may have something new to give: the index against a plain count, over groups
// whose numbers differ in single bits, so that groups that fall together are found.

#include "receive/FecWaiting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <new>
#include <random>
#include <set>
#include <vector>

#include "HeapCounter.h"

namespace talrtp {
namespace {

using test::heap;

constexpr unsigned int kSeed = 20261122;

typedef std::set<unsigned short> Numbers;
typedef std::bitset<65536> Arrived;

unsigned short number(unsigned int value) {
    return static_cast<unsigned short>(value);
}

// Numbers as a store keeps them.
class NumberSet {
public:
    // Has all pages for good, so that the allocations of the groups alone are counted.
    NumberSet() {
        for (unsigned int seq = 0; seq < CNumberSets::kNumbers; ++seq) {
            m_table.reserve(static_cast<unsigned short>(seq));
            m_table.claim(static_cast<unsigned short>(seq));
        }
    }

    void insert(unsigned short seq) { m_table.assign(seq, CNumberSets::kFull | 1); }
    void erase(unsigned short seq) { m_table.assign(seq, CNumberSets::kFull); }
    CNumberSet view() const { return {m_table, 0}; }

private:
    CNumberTable<int> m_table;
};

// A filed FEC packet and what it protects.
struct Filed {
    unsigned short seq;
    unsigned short base;
    unsigned int mask;        // of XOR, else 0
    unsigned int mediaCount;  // of Reed-Solomon
    unsigned short fecBase;
    unsigned int fecCount;

    // How many packets it lacks.
    int lacks(const Arrived& media, const Arrived& fec) const {
        if (mask != 0) {
            int missing = -1;  // XOR does without one
            for (unsigned int i = 0; i < kFecMaskBits; ++i) {
                missing += (mask >> (kFecMaskBits - 1 - i) & 1) != 0 && !media[number(base + i)];
            }
            return missing;
        }
        int missing = static_cast<int>(mediaCount);
        for (unsigned int i = 0; i < mediaCount; ++i) {
            missing -= media[number(base + i)];
        }
        for (unsigned int j = 0; j < fecCount; ++j) {
            missing -= fec[number(fecBase + j)];
        }
        return missing;
    }
};

class FecWaitingTest : public testing::Test {
protected:
    void addRs(unsigned int seq, unsigned int base, unsigned int mediaCount, unsigned int fecBase,
               unsigned int fecCount) {
        filed.push_back({number(seq), number(base), 0, mediaCount, number(fecBase), fecCount});
        waiting.addRs(number(seq), number(base), mediaCount, number(fecBase), fecCount);
    }
    void addXor(unsigned int seq, unsigned int base, unsigned int mask) {
        filed.push_back({number(seq), number(base), mask, 0, 0, 0});
        waiting.addXor(number(seq), number(base), mask);
    }
    void remove(unsigned int seq) {
        filed.erase(std::remove_if(filed.begin(), filed.end(),
                                   [seq](const Filed& packet) { return packet.seq == seq; }),
                    filed.end());
        waiting.remove(number(seq));
    }
    // All whose base is one of `count` numbers.
    void removeFrom(unsigned int first, unsigned int count) {
        for (std::size_t i = filed.size(); i-- > 0;) {
            if (number(filed[i].base - first) < count) {
                remove(filed[i].seq);
            }
        }
    }
    void mediaArrives(unsigned int seq) {
        if (!media[number(seq)]) {
            media.set(number(seq));
            mediaNumbers.insert(number(seq));
            waiting.mediaArrived(number(seq));
        }
    }
    void mediaLeaves(unsigned int seq) {
        media.reset(number(seq));
        mediaNumbers.erase(number(seq));
        waiting.mediaLeft(number(seq));
    }
    void fecArrives(unsigned int seq) {
        if (!fec[number(seq)]) {
            fec.set(number(seq));
            fecNumbers.insert(number(seq));
            waiting.fecArrived(number(seq));
        }
    }

    // Ready are those that lack nothing.
    Numbers expectedReady() const {
        Numbers result;
        for (const Filed& packet : filed) {
            if (packet.lacks(media, fec) <= 0) {
                result.insert(packet.seq);
            }
        }
        return result;
    }
    Numbers ready() const {
        Numbers result;
        unsigned short seq = 0;
        while (waiting.findReady(seq, seq)) {
            result.insert(seq);
            if (++seq == 0) {
                break;
            }
        }
        return result;
    }

    std::mt19937 random{kSeed};
    NumberSet mediaNumbers;
    NumberSet fecNumbers;
    _uint64_t steps = 0;
    CFecWaiting waiting{mediaNumbers.view(), fecNumbers.view(), steps};
    Arrived media;
    Arrived fec;
    std::vector<Filed> filed;
};

// The numbers of the groups are single bits or two, in every combination, over one media base.
TEST_F(FecWaitingTest, GroupsWhoseNumbersDifferInOneBitAreReadyByThemselves) {
    constexpr unsigned int kBase = 40000;
    unsigned int seq = 0;
    for (const unsigned int mediaCount : {4, 5, 8, 9, 16, 33, 65, 128, 129}) {
        for (unsigned int bit = 0; bit <= 16; ++bit) {
            const unsigned int fecBase = bit == 0 ? 0 : 1u << (bit - 1);
            for (unsigned int fecCount = 1; fecCount <= 128; fecCount *= 2) {
                addRs(seq++, kBase, mediaCount, fecBase, fecCount);
            }
        }
    }
    std::vector<unsigned int> arrivals;
    for (unsigned int i = 0; i < 40; ++i) {
        arrivals.push_back(kBase + random() % 128);
        for (unsigned int bit = 0; bit < 16; ++bit) {
            arrivals.push_back(0x10000u + (1u << bit) + random() % (1u << (i % 8)));
        }
        arrivals.push_back(0x10000u + random() % (1u << (i % 8)));
    }
    for (const unsigned int arrival : arrivals) {
        if (arrival >= 0x10000u) {
            fecArrives(arrival);
        } else {
            mediaArrives(arrival);
        }
        ASSERT_EQ(ready(), expectedReady()) << "seed " << kSeed << ", behind " << arrival;
    }
    EXPECT_GT(ready().size(), filed.size() / 4);
    EXPECT_LT(ready().size(), filed.size());
}

TEST_F(FecWaitingTest, XorGroupsWhoseNumbersDifferInOneBitAreReadyByThemselves) {
    constexpr unsigned int kBase = 65530;
    unsigned int seq = 0;
    for (unsigned int distance = 0; distance < 24; ++distance) {
        for (unsigned int first = 0; first < kFecMaskBits; ++first) {
            for (unsigned int second = 0; second < first; ++second) {
                addXor(seq++, number(kBase + distance), 1u << first | 1u << second | 1u);
            }
        }
    }
    for (unsigned int i = 0; i < 48; ++i) {
        mediaArrives(kBase + i * 29 % 48);
        ASSERT_EQ(ready(), expectedReady()) << i;
    }
    EXPECT_EQ(ready().size(), filed.size());
}

// A group that was ready is in no tree, so another one is filed for the same packets. After packets have left
// again, all of these wait over one base. Their tree is as flat as any: few of them are passed on the way to
// a group that protects less, or more.
TEST_F(FecWaitingTest, XorGroupsOverTheSamePacketsWaitBesideEachOther) {
    constexpr unsigned int kGroups = 1000;
    constexpr _uint64_t kDepth = 60;
    for (unsigned int seq = 0; seq < kGroups; ++seq) {
        addXor(seq, 100, 0xe00000);  // 100 to 102
        mediaArrives(100);
        mediaArrives(101);
        ASSERT_EQ(ready().size(), seq + 1);
        mediaLeaves(100);
        mediaLeaves(101);
    }
    for (unsigned int seq = 0; seq < kGroups; ++seq) {
        waiting.waitAgain(number(seq));
    }
    ASSERT_EQ(ready(), Numbers());
    for (const unsigned int mask : {0xc00000u, 0xe00001u}) {
        const _uint64_t before = steps;
        addXor(kGroups + mask % 2, 100, mask);
        EXPECT_LE(steps - before, kDepth);
    }
    for (unsigned int seq = 0; seq < kGroups; seq += 2) {
        remove(seq * 7 % kGroups);
    }
    mediaArrives(102);
    ASSERT_EQ(ready(), expectedReady());
    mediaArrives(100);
    EXPECT_EQ(ready(), expectedReady());
    EXPECT_EQ(ready().size(), kGroups / 2 + 1);  // the largest lacks two
}

TEST_F(FecWaitingTest, NumbersWithoutAFiledPacketDoNotWait) {
    addXor(500, 100, 0xc00000);
    mediaArrives(100);
    waiting.waitAgain(501);
    waiting.waitAgain(40000);
    EXPECT_EQ(ready(), Numbers({500}));
    waiting.waitAgain(500);  // it lacks nothing all the same
    EXPECT_EQ(ready(), Numbers({500}));
    mediaLeaves(100);
    waiting.waitAgain(500);
    EXPECT_EQ(ready(), Numbers());
}

// The table of XOR groups has fewer places than there are bases.
TEST_F(FecWaitingTest, XorGroupsOfEveryBaseAreReadyByThemselves) {
    for (unsigned int base = 0; base < 65536; ++base) {
        addXor(base, base, 0xa00000);  // base and base + 2
    }
    for (unsigned int i = 0; i < 40; ++i) {
        mediaArrives(i * 7919);
        ASSERT_EQ(ready(), expectedReady()) << i;
    }
    EXPECT_EQ(ready().size(), 80u);
}

// A search goes down one way of the tree of a base, which is balanced by chance: some 2.5 times the binary
// logarithm of the groups, and the walks that call themselves go no deeper.
TEST_F(FecWaitingTest, TreeOfABaseStaysFlatWhileGroupsComeAndGo) {
    constexpr unsigned int kGroups = 16384;
    constexpr _uint64_t kDepth = 60;
    constexpr unsigned int kKept = 16;  // one of so many stays throughout
    const auto expectFlat = [&](unsigned int step) {
        for (unsigned int i = 0; i < kGroups; i += step) {
            const _uint64_t before = steps;
            waiting.addRs(number(kGroups + i), 1000, 200, number(i), 1);  // finds the group of `i`
            ASSERT_LE(steps - before, kDepth) << i;
            waiting.remove(number(kGroups + i));
        }
    };
    for (unsigned int i = 0; i < kGroups; ++i) {
        waiting.addRs(number(i), 1000, 200, number(i), 1);
    }
    expectFlat(1);
    for (unsigned int round = 0; round < 4; ++round) {
        for (unsigned int i = 0; i < kGroups; ++i) {
            if (i % kKept != 0) {
                waiting.remove(number(i));
            }
        }
        expectFlat(kKept);
        for (unsigned int i = kGroups; i-- > 0;) {
            if (i % kKept != 0) {
                waiting.addRs(number(i), 1000, 200, number(i), 1);
            }
        }
        expectFlat(1);
    }
}

// Groups come, are tried in vain and leave while packets arrive.
TEST_F(FecWaitingTest, RandomGroupsAreReadyWhenTheyLackNothing) {
    for (unsigned int i = 0; i < 3000; ++i) {
        const unsigned int kind = random() % 8;
        const unsigned int seq = i;
        if (kind == 0) {
            addXor(seq, 65500 + random() % 60, random() & 0xffffff & random());
            if (filed.back().mask == 0) {
                remove(seq);  // protects nothing: never filed by a session
            }
        } else if (kind <= 2) {
            addRs(seq, 65400 + random() % 100, 1 + random() % 100, random() % 40, 1 + random() % 100);
        } else if (kind <= 5) {
            mediaArrives(65400 + random() % 250);
        } else if (kind == 6) {
            fecArrives(random() % 150);
        } else if (!filed.empty()) {
            const unsigned short some = filed[random() % filed.size()].seq;
            if (random() % 2 == 0) {
                remove(some);
            } else {
                waiting.waitAgain(some);
            }
        }
        ASSERT_EQ(ready(), expectedReady()) << "seed " << kSeed << ", step " << i;
    }
}

// Media packets are counted for all groups of a base at once, FEC packets for one group of them.
TEST_F(FecWaitingTest, CountsOfAllGroupsAndOfSingleOnesAddUp) {
    constexpr unsigned int kGroups = 64;
    for (unsigned int i = 0; i < kGroups; ++i) {
        addRs(i, 100, 4, 1000 + 10 * i, 2);
    }
    for (unsigned int round = 0; round < 2; ++round) {
        mediaArrives(100 + round);
        ASSERT_TRUE(ready().empty());
        for (unsigned int i = 0; i < kGroups; ++i) {
            fecArrives(1000 + 10 * i + round);
            ASSERT_EQ(ready(), expectedReady()) << "round " << round << ", group " << i;
        }
    }
    EXPECT_EQ(ready().size(), kGroups);
}

// The groups over a base stand below each other as chance wants it, and come in any order.
TEST_F(FecWaitingTest, GroupBelowOthersIsReadyInTime) {
    constexpr unsigned int kBases = 200;
    constexpr unsigned int kGroups = 8;
    for (unsigned int i = 0; i < kBases; ++i) {
        const unsigned int base = 300 * i;
        const unsigned int some = base + 10 * (random() % kGroups);
        for (unsigned int j = 0; j < kGroups; ++j) {
            addRs(kGroups * i + j, base, 4, base + 10 * ((j * 3 + i) % kGroups), 2);
        }
        fecArrives(some);
        fecArrives(some + 1);
        mediaArrives(base);
        mediaArrives(base + 1);
        EXPECT_EQ(ready().size(), i + 1) << "seed " << kSeed << ", base " << base;
    }
    EXPECT_EQ(ready(), expectedReady());
}

TEST_F(FecWaitingTest, MediaPacketCompletesTheGroupsThatAFecPacketBroughtNear) {
    constexpr unsigned int kGroups = 64;
    for (unsigned int i = 0; i < kGroups; ++i) {
        addRs(i, 100, 4, 1000 + 10 * i, 2);
    }
    mediaArrives(100);
    for (unsigned int i = 0; i < kGroups; i += 2) {
        fecArrives(1000 + 10 * i);
    }
    mediaArrives(101);
    ASSERT_TRUE(ready().empty());
    mediaArrives(102);
    ASSERT_EQ(ready(), expectedReady());
    EXPECT_EQ(ready().size(), kGroups / 2);
}

// A new group passes on the counts that its new place still holds for the groups below.
TEST_F(FecWaitingTest, GroupThatIsReadyAtOnceHidesNoOther) {
    constexpr unsigned int kGroups = 64;
    for (unsigned int i = 0; i < kGroups; ++i) {
        addRs(i, 100, 4, 1000 + 10 * i, 1);
        fecArrives(1005 + 10 * i);
        fecArrives(1006 + 10 * i);
        if (i % 2 == 0) {
            fecArrives(1000 + 10 * i);
        }
    }
    mediaArrives(100);
    mediaArrives(101);
    ASSERT_TRUE(ready().empty());
    for (unsigned int i = 0; i < kGroups; ++i) {
        addRs(kGroups + i, 100, 4, 1005 + 10 * i, 2);
    }
    ASSERT_EQ(ready(), expectedReady());
    mediaArrives(102);
    ASSERT_EQ(ready(), expectedReady());
    EXPECT_EQ(ready().size(), kGroups + kGroups / 2);
}

// A new group takes the memory of the one that left.
TEST_F(FecWaitingTest, GroupThatLeavesItsFecBaseLeavesTheOthersThere) {
    for (unsigned int leaving = 0; leaving < 3; ++leaving) {
        const unsigned int base = 1000 * leaving;
        for (unsigned int i = 0; i < 3; ++i) {
            addRs(base + i, base + 100 * i, 1, base + 500, 1);
        }
        remove(base + leaving);
        addRs(base + 3, base + 300, 1, base + 600, 1);
        fecArrives(base + 500);
        ASSERT_EQ(ready(), expectedReady()) << leaving;
        fecArrives(base + 600);
        ASSERT_EQ(ready(), expectedReady()) << leaving;
    }
    EXPECT_EQ(ready().size(), 9u);
}

TEST_F(FecWaitingTest, PacketThatJoinsAReadyGroupIsReady) {
    addRs(1, 100, 2, 50, 1);
    mediaArrives(100);
    mediaArrives(101);
    ASSERT_EQ(ready(), Numbers({1}));
    addRs(2, 100, 2, 50, 1);
    EXPECT_EQ(ready(), Numbers({1, 2}));

    addXor(3, 100, 0xc00000);
    addXor(4, 100, 0xc00000);
    EXPECT_EQ(ready(), Numbers({1, 2, 3, 4}));
    remove(1);
    remove(3);
    EXPECT_EQ(ready(), Numbers({2, 4}));
}

TEST_F(FecWaitingTest, PacketThatJoinsAWaitingGroupWaits) {
    addRs(1, 100, 2, 50, 1);
    addRs(2, 100, 2, 50, 1);
    addXor(3, 100, 0xe00000);
    addXor(4, 100, 0xe00000);
    mediaArrives(100);
    EXPECT_EQ(ready(), Numbers());
    fecArrives(50);
    EXPECT_EQ(ready(), Numbers({1, 2}));
    mediaArrives(102);
    EXPECT_EQ(ready(), Numbers({1, 2, 3, 4}));
}

TEST_F(FecWaitingTest, FecPacketMeetsNoGroupThatIsTooShortForItOnceALongOneIsGone) {
    addRs(0, 0, 1, 0, 255);
    remove(0);
    for (unsigned int i = 0; i < 200; ++i) {
        addRs(i, 10 * i, 200, i, 2);
    }
    steps = 0;
    fecArrives(200);
    EXPECT_LE(steps, 10u);
}

// Media that left is missing again for whoever waits: at the latest when something arrives near it.
TEST_F(FecWaitingTest, MediaThatLeftIsMissingAgain) {
    addRs(1, 100, 3, 50, 1);
    addXor(2, 100, 0xf00000);
    mediaArrives(100);
    mediaLeaves(100);
    mediaArrives(101);
    EXPECT_EQ(ready(), Numbers());
    mediaArrives(102);
    EXPECT_EQ(ready(), Numbers());
    mediaArrives(100);
    EXPECT_EQ(ready(), Numbers({1, 2}));
}

TEST_F(FecWaitingTest, MediaThatLeftAndCameAgainCountsOnce) {
    addRs(1, 100, 3, 50, 1);
    mediaArrives(100);
    mediaLeaves(100);
    mediaArrives(100);
    mediaArrives(101);
    EXPECT_EQ(ready(), Numbers());
    mediaArrives(102);
    EXPECT_EQ(ready(), Numbers({1}));
}

// Groups come, are tried and leave while packets arrive and age out, over borders of pages, at numbers far
// apart and with every other allocation refused. A packet that lacks nothing is ready; one that is ready and
// lacks something is not any more once it was tried.
TEST_F(FecWaitingTest, RandomGroupsAreReadyWhileMediaComesAndLeaves) {
    const unsigned int kPlaces[] = {0, 64 * 31, 30000, 65200};
    unsigned int refusals = 0;
    for (unsigned int i = 0; i < 5000; ++i) {
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", step " << i);
        const unsigned int place = kPlaces[random() % 4];
        const unsigned int seq = (i * 3 + random() % 200) % 65536;
        const unsigned int kind = random() % 16;
        const Numbers before = ready();
        if (kind <= 3) {
            remove(seq);
            heap().refused = random() % 2 == 0 ? 0 : 1 + random() % 3;
            try {
                if (kind == 0) {
                    addXor(seq, place + random() % 300, 0x800001u | (random() & random() & 0xffffff));
                } else {
                    const unsigned int k = random() % 4 == 0 ? 255 : 1 + random() % 30;
                    addRs(seq, place + random() % 300, k, place + random() % 90, 1 + random() % (256 - k));
                }
            } catch (const std::bad_alloc&) {
                filed.pop_back();
                ++refusals;
            }
            heap().refused = 0;
        } else if (kind <= 8) {
            const std::size_t calls = heap().calls;
            mediaArrives(place + random() % 400);
            ASSERT_EQ(heap().calls, calls);
        } else if (kind <= 12) {
            const unsigned int gone = number(place + random() % 400);
            const std::size_t calls = heap().calls;
            if (media[gone]) {
                mediaLeaves(gone);
            }
            ASSERT_EQ(heap().calls, calls);
        } else if (kind == 13) {
            fecArrives(place + random() % 150);
        } else if (!filed.empty() && (filed.size() > 100 || kind == 14)) {
            remove(filed[random() % filed.size()].seq);
        }
        if (i % 50 == 0) {  // the last one here takes the pages with it
            removeFrom(place, 600);
        }
        const Numbers expected = expectedReady();
        const Numbers actual = ready();
        ASSERT_TRUE(std::includes(actual.begin(), actual.end(), expected.begin(), expected.end()));
        if (kind > 3 && kind <= 8) {  // others are counted back at the latest with a media packet
            for (const unsigned short tried : actual) {
                if (expected.count(tried) == 0) {
                    ASSERT_EQ(before.count(tried), 1u);  // what left is counted back first
                    const std::size_t calls = heap().calls;
                    waiting.waitAgain(tried);
                    ASSERT_EQ(heap().calls, calls);
                }
            }
            ASSERT_EQ(ready(), expected);
        }
    }
    EXPECT_GT(refusals, 40u);
}

// --- Memory ---

constexpr std::size_t kHeapHeader = 8;

class FecMemoryTest : public FecWaitingTest {
protected:
    // The bytes that the groups take of the heap, with the headers of its blocks; the plain lists of the test
    // reserve theirs before.
    FecMemoryTest() {
        filed.reserve(70000);
        m_bytesBefore = heap().bytes;
        m_callsBefore = heap().calls;
    }
    std::size_t inUse() const { return heap().bytes - m_bytesBefore; }
    std::size_t calls() const { return heap().calls - m_callsBefore; }

    // As many media packets come and age out.
    void passMedia(unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            mediaArrives(m_next);
            mediaLeaves(m_next - 20);
            ++m_next;
        }
    }

    unsigned int m_next = 64000;

private:
    std::size_t m_bytesBefore = 0;
    std::size_t m_callsBefore = 0;
};

TEST_F(FecMemoryTest, SessionWithoutParityPaysForNothing) {
    EXPECT_LE(sizeof(CFecWaiting), 100u);
    passMedia(10000);
    fecArrives(1);
    waiting.remove(1);
    waiting.waitAgain(1);
    waiting.prefetchGroup(1);
    EXPECT_TRUE(ready().empty());
    EXPECT_EQ(calls(), 0u);
}

TEST_F(FecMemoryTest, TenPacketsThatWaitTakeAtMost8Kb) {
    for (unsigned int i = 0; i < 10; ++i) {
        addRs(65530 + i, 100 + 40 * i, 40, 65530 + i, 4);
    }
    EXPECT_LE(inUse() + calls() * kHeapHeader, 8192u);
    for (unsigned int i = 0; i < 10; ++i) {
        remove(65530 + i);
        addXor(65530 + i, 65500 + 20 * i, 0xffffff);
    }
    EXPECT_LE(inUse() + calls() * kHeapHeader, 8192u);
    EXPECT_TRUE(ready().empty());
}

TEST_F(FecMemoryTest, PacketOfAGroupOfItsOwnTakesAtMost44Bytes) {
    constexpr unsigned int kPackets = 65536;
    for (unsigned int i = 0; i < kPackets; ++i) {
        addRs(i, 2 * i, 129, i, 127);
    }
    EXPECT_LE(inUse(), kPackets * 44u);
    for (unsigned int i = 0; i < kPackets; ++i) {
        waiting.remove(number(i));
    }
    EXPECT_LE(inUse(), 16384u);
}

TEST_F(FecMemoryTest, RefusedPacketKeepsNothing) {
    unsigned int refusals = 0;
    for (unsigned int base = 0; base < 65536; base += 512) {
        bool isRefused = true;
        for (unsigned int nth = 1; isRefused; ++nth) {
            heap().refused = nth;
            try {
                waiting.remove(number(base));
                waiting.addRs(number(base), number(base), 255, number(base + 100), 1);
                isRefused = heap().refused == 0;  // what only serves later was refused
            } catch (const std::bad_alloc&) {
                ++refusals;
            }
            heap().refused = 0;
        }
    }
    EXPECT_GT(refusals, 300u);
    for (unsigned int base = 0; base < 65536; base += 512) {
        waiting.remove(number(base));
    }
    EXPECT_LE(inUse(), 16384u);
}

TEST_F(FecMemoryTest, AllOfItGoesOnceNothingWasFiledForLong) {
    for (unsigned int i = 0; i < 1000; ++i) {
        addRs(i, 100 * i, 255, 50 * i, 1);
        addXor(1000 + i, 100 * i, 0xffffff);
    }
    for (unsigned int i = 0; i < 2000; ++i) {
        waiting.remove(number(i));
    }
    passMedia(200);
    EXPECT_GT(inUse(), 0u);  // a stream would go on soon
    passMedia(2000);
    EXPECT_EQ(inUse(), 0u);
    addXor(1, m_next, 0xc00000);
    mediaArrives(m_next);
    EXPECT_EQ(ready(), Numbers({1}));
    remove(1);
    passMedia(2000);
    EXPECT_EQ(inUse(), 0u);
}

// The parity of each group arrives after its media packets, or before one of them, and is dropped.
TEST_F(FecMemoryTest, StreamThatGoesOnAsksForNothing) {
    constexpr unsigned int kWarm = 40;
    unsigned int warmCalls = 0;
    for (unsigned int group = 0; group < 1000; ++group) {
        const unsigned int base = m_next;
        const unsigned int fecBase = 3 * group;
        const bool isEarly = group % 3 == 0;
        passMedia(254 - isEarly);
        for (unsigned int i = 0; i < 2; ++i) {
            waiting.addRs(number(fecBase + i), number(base), 254, number(fecBase), 2);
        }
        waiting.addXor(number(fecBase + 2), number(base + 240), 0xffffff);
        passMedia(isEarly);
        for (unsigned int i = 0; i < 3; ++i) {
            waiting.remove(number(fecBase + i));
        }
        if (group == kWarm) {
            warmCalls = calls();
        }
    }
    EXPECT_EQ(calls(), warmCalls);
}

}  // namespace
}  // namespace talrtp

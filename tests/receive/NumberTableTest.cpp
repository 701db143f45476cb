// The table of sets and slots against std::set and std::map, over random calls.

#include "receive/NumberTable.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "SeededRandom.h"

namespace talrtp {
namespace {

constexpr unsigned int kSeed = 20261120;
constexpr int kCalls = 60000;

// The plain answers of one set.
class PlainSet {
public:
    bool findUpward(unsigned short number, unsigned short& found) const {
        const auto member = members.lower_bound(number);
        return member != members.end() && ((found = *member), true);
    }
    bool findDownward(unsigned short number, unsigned short& found) const {
        const auto above = members.upper_bound(number);
        return above != members.begin() && ((found = *std::prev(above)), true);
    }
    bool findNext(unsigned short number, unsigned short& found) const {
        return findUpward(number, found) || findUpward(0, found);
    }
    bool findPrevious(unsigned short number, unsigned short& found) const {
        return findDownward(number, found) || findDownward(65535, found);
    }
    unsigned long long window(unsigned short first, unsigned int count) const {
        unsigned long long bits = 0;
        for (unsigned int i = 0; i < count; ++i) {
            bits |= static_cast<unsigned long long>(members.count(static_cast<unsigned short>(first + i)))
                    << i;
        }
        return bits;
    }

    std::set<unsigned short> members;
};

// Numbers that meet often and lie on the borders of words, of pages and of words of the summary.
class Numbers : public test::SeededRandom {
public:
    using SeededRandom::SeededRandom;

    unsigned int below(unsigned int end) { return between(0, end - 1); }
    unsigned short next() {
        static const unsigned int kBases[] = {0, 63, 64, 127, 8191, 8192, 32767, 65535 - 64, 65535};
        const unsigned int base = kBases[below(sizeof(kBases) / sizeof(kBases[0]))];
        return static_cast<unsigned short>(base + below(3) * below(70));
    }
};

template <typename Find, typename PlainFind>
void expectAlike(Find find, PlainFind plainFind) {
    unsigned short actual = 1234;
    unsigned short expected = 1234;
    EXPECT_EQ(find(actual), plainFind(expected));
    EXPECT_EQ(actual, expected);
}

void expectAlike(const CNumberSets& sets, unsigned int set, const PlainSet& plain, unsigned short number,
                 unsigned int count) {
    SCOPED_TRACE("set " + std::to_string(set));
    ASSERT_EQ(sets.isEmpty(set), plain.members.empty());
    EXPECT_EQ(sets.contains(set, number), plain.members.count(number) != 0);
    EXPECT_EQ(sets.window(set, number, count), plain.window(number, count));
    expectAlike([&](unsigned short& found) { return sets.findUpward(set, number, found); },
                [&](unsigned short& found) { return plain.findUpward(number, found); });
    expectAlike([&](unsigned short& found) { return sets.findDownward(set, number, found); },
                [&](unsigned short& found) { return plain.findDownward(number, found); });
    expectAlike([&](unsigned short& found) { return sets.findNext(set, number, found); },
                [&](unsigned short& found) { return plain.findNext(number, found); });
    expectAlike([&](unsigned short& found) { return sets.findPrevious(set, number, found); },
                [&](unsigned short& found) { return plain.findPrevious(number, found); });
}

class NumberTableTest : public testing::Test {
protected:
    NumberTableTest() {
        for (unsigned int number = 0; number < CNumberSets::kNumbers; ++number) {
            for (PlainSet* const full : {&plain[2], &plain[3]}) {
                full->members.insert(full->members.end(), static_cast<unsigned short>(number));
            }
        }
    }

    void assign(unsigned short number, unsigned int members) {
        table.assign(number, members);
        for (unsigned int set = 0; set < CNumberSets::kSets; ++set) {
            (members >> set & 1) != 0 ? static_cast<void>(plain[set].members.insert(number))
                                      : static_cast<void>(plain[set].members.erase(number));
        }
    }
    void claim(unsigned short number, int value) {
        table.reserve(number);
        table.claim(number);
        table[number] = value;
        slots[number] = value;
    }
    void release(unsigned short number) {
        table.release(number);
        slots.erase(number);
        for (unsigned int set = 0; set < CNumberSets::kSets; ++set) {
            set < 2 ? static_cast<void>(plain[set].members.erase(number))
                    : static_cast<void>(plain[set].members.insert(number));
        }
    }

    CNumberTable<int> table;
    PlainSet plain[CNumberSets::kSets];
    std::map<unsigned short, int> slots;
};

// The table grows and shrinks in turn, so that it is now full of runs and now nearly empty.
TEST_F(NumberTableTest, AnswersAsPlainSetsDo) {
    Numbers numbers(kSeed);
    for (int call = 1; call <= kCalls && !HasFailure(); ++call) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", call " + std::to_string(call));
        const unsigned short number = numbers.next();
        const auto held = slots.find(number);
        ASSERT_EQ(table.peek(number), held != slots.end() ? held->second : 0);
        const bool isGrowing = call / 1000 % 2 == 0;
        if (numbers.below(100) < (isGrowing ? 80u : 20u)) {
            if (held == slots.end()) {
                claim(number, call);
            }
            assign(number, numbers.below(16));
        } else if (held != slots.end()) {
            release(number);
        }
        const unsigned int set = numbers.below(CNumberSets::kSets);
        expectAlike(table, set, plain[set], numbers.next(), numbers.below(65));
    }
}

TEST_F(NumberTableTest, EmptyTableHoldsNothingInTwoSetsAndAllInTheOthers) {
    for (unsigned int set = 0; set < CNumberSets::kSets; ++set) {
        for (const int number : {0, 63, 64, 127, 128, 65535}) {
            expectAlike(table, set, plain[set], static_cast<unsigned short>(number), 64);
        }
    }
    EXPECT_EQ(table.peek(4711), 0);
}

// The searches pass over whole pages and words of the summary that are empty.
TEST_F(NumberTableTest, FindsTheOnlyMemberFromEverywhere) {
    for (const int only : {0, 100, 127, 128, 8191, 8192, 40000, 65535}) {
        const unsigned short member = static_cast<unsigned short>(only);
        claim(member, 1);
        assign(member, CNumberSets::kFull | 1);
        for (unsigned int number = 0; number < CNumberSets::kNumbers; number += 61) {
            expectAlike(table, 0, plain[0], static_cast<unsigned short>(number), 64);
        }
        release(member);
    }
}

// The same for the only number that a full set lacks, and for the only one that it has.
TEST_F(NumberTableTest, FullSetsLackWhatWasTakenOut) {
    for (unsigned int number = 0; number < CNumberSets::kNumbers; ++number) {
        claim(static_cast<unsigned short>(number), 1);
        assign(static_cast<unsigned short>(number), number == 30000 ? 4 : 8);
    }
    for (const int number : {0, 29999, 30000, 30001, 65535}) {
        expectAlike(table, 2, plain[2], static_cast<unsigned short>(number), 64);
        expectAlike(table, 3, plain[3], static_cast<unsigned short>(number), 64);
    }
}

TEST_F(NumberTableTest, CountsMembersAcrossTheWrapAround) {
    for (const int number : {65530, 65535, 0, 1, 99, 100}) {
        claim(static_cast<unsigned short>(number), 1);
        assign(static_cast<unsigned short>(number), CNumberSets::kFull | 2);
    }
    const CNumberSet set(table, 1);
    EXPECT_EQ(set.count(65530, 106), 5u);  // 65530 to 99
    EXPECT_EQ(set.count(65531, 5), 1u);
    EXPECT_EQ(set.count(2, 97), 0u);
}

// A page that has served once is empty when other numbers get it.
TEST_F(NumberTableTest, ReleasedNumbersReadAsUntouched) {
    constexpr unsigned short kPage = 128;
    for (unsigned short number = 0; number < kPage; ++number) {
        claim(number, 1);
        assign(number, 1);
    }
    for (unsigned short number = 0; number < kPage; ++number) {
        release(number);
    }
    claim(10 * kPage, 2);
    EXPECT_EQ(table.peek(10 * kPage), 2);
    for (unsigned short number = 10 * kPage + 1; number < 11 * kPage; ++number) {
        ASSERT_EQ(table.peek(number), 0);
        for (unsigned int set = 0; set < CNumberSets::kSets; ++set) {
            ASSERT_EQ(table.contains(set, number), set >= 2) << set;
        }
    }
    EXPECT_EQ(table.peek(0), 0);
}

// A number that was claimed keeps its page when its neighbours are released.
TEST_F(NumberTableTest, ClaimedNumbersStayWhenOthersAreReleased) {
    claim(5, 50);
    claim(6, 60);
    release(6);
    EXPECT_EQ(table.peek(5), 50);
    EXPECT_EQ(table.peek(6), 0);
}

}  // namespace
}  // namespace talrtp

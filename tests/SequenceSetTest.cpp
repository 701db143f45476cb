// The set of sequence numbers against std::set, and the table of slots against std::map, over random calls.

#include "TalRtpSequenceSet.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>

namespace talrtp {
namespace {

constexpr unsigned int kSeed = 20261120;
constexpr int kCalls = 60000;

// The plain answers of `CSequenceSet`.
class PlainSet {
public:
    bool findUpward(unsigned short number, unsigned short& found) const {
        const auto member = members.lower_bound(number);
        return member != members.end() && ((found = *member), true);
    }
    bool findDownward(unsigned short number, unsigned short& found) const {
        const auto behind = members.upper_bound(number);
        return behind != members.begin() && ((found = *std::prev(behind)), true);
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

// Numbers that meet often and lie on the borders of words and of groups of words.
class Numbers {
public:
    explicit Numbers(unsigned int seed) : m_engine(seed) {}

    unsigned int below(unsigned int end) { return static_cast<unsigned int>(m_engine() % end); }
    unsigned short next() {
        static const unsigned int kBases[] = {0, 63, 64, 4095, 4096, 32767, 65535 - 64, 65535};
        const unsigned int base = kBases[below(sizeof(kBases) / sizeof(kBases[0]))];
        return static_cast<unsigned short>(base + below(3) * below(70));
    }

private:
    std::mt19937 m_engine;
};

template <typename Find>
void expectAlike(const CSequenceSet& set, const PlainSet& plain, unsigned short number, Find find) {
    unsigned short actual = 1234;
    unsigned short expected = 1234;
    EXPECT_EQ(find(set, number, actual), find(plain, number, expected));
    EXPECT_EQ(actual, expected);
}

void expectAlike(const CSequenceSet& set, const PlainSet& plain, unsigned short number, unsigned int count) {
    ASSERT_EQ(set.isEmpty(), plain.members.empty());
    EXPECT_EQ(set.contains(number), plain.members.count(number) != 0);
    EXPECT_EQ(set.window(number, count), plain.window(number, count));
    expectAlike(set, plain, number,
                [](const auto& s, unsigned short n, unsigned short& f) { return s.findUpward(n, f); });
    expectAlike(set, plain, number,
                [](const auto& s, unsigned short n, unsigned short& f) { return s.findDownward(n, f); });
    expectAlike(set, plain, number,
                [](const auto& s, unsigned short n, unsigned short& f) { return s.findNext(n, f); });
    expectAlike(set, plain, number,
                [](const auto& s, unsigned short n, unsigned short& f) { return s.findPrevious(n, f); });
}

// Lets both grow and shrink in turn, so that they are now full of runs and now nearly empty.
void playOn(CSequenceSet& set, PlainSet& plain) {
    Numbers numbers(kSeed);
    for (int call = 0; call < kCalls && !testing::Test::HasFailure(); ++call) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", call " + std::to_string(call));
        const unsigned short number = numbers.next();
        const bool isGrowing = call / 1000 % 2 == 0;
        const bool isInserted = numbers.below(100) < (isGrowing ? 80u : 20u);
        if (call % 3 == 0) {
            set.set(number, isInserted);
            isInserted ? static_cast<void>(plain.members.insert(number))
                       : static_cast<void>(plain.members.erase(number));
        } else if (isInserted) {
            ASSERT_EQ(set.insert(number), plain.members.insert(number).second);
        } else {
            set.erase(number);
            plain.members.erase(number);
        }
        expectAlike(set, plain, numbers.next(), numbers.below(65));
    }
}

TEST(SequenceSetTest, AnswersAsAPlainSetDoes) {
    CSequenceSet set(false);
    PlainSet plain;
    playOn(set, plain);
}

TEST(SequenceSetTest, FullSetAnswersAsAPlainSetDoes) {
    CSequenceSet set(true);
    PlainSet plain;
    for (unsigned int number = 0; number < CSequenceSet::kNumbers; ++number) {
        plain.members.insert(plain.members.end(), static_cast<unsigned short>(number));
    }
    playOn(set, plain);
}

TEST(SequenceSetTest, CountsMembersAcrossTheWrapAround) {
    CSequenceSet set(false);
    for (const int number : {65530, 65535, 0, 1, 99, 100}) {
        set.insert(static_cast<unsigned short>(number));
    }
    EXPECT_EQ(set.count(65530, 106), 5u);  // 65530 to 99
    EXPECT_EQ(set.count(65531, 5), 1u);
    EXPECT_EQ(set.count(2, 97), 0u);
}

TEST(SlotTableTest, HoldsWhatWasPutIn) {
    CSlotTable<int> table;
    std::map<unsigned int, int> plain;
    Numbers numbers(kSeed);
    for (int call = 1; call <= kCalls; ++call) {
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", call " + std::to_string(call));
        const unsigned int number = numbers.next();
        const auto held = plain.find(number);
        ASSERT_EQ(table.peek(number), held != plain.end() ? held->second : 0);
        if (held == plain.end()) {
            table.claim(number) = call;
            plain[number] = call;
        } else if (numbers.below(3) == 0) {
            table[number] = call;
            held->second = call;
        } else {
            table.release(number);
            plain.erase(held);
        }
    }
}

// A page that has served once is empty when other numbers get it.
TEST(SlotTableTest, ReleasedSlotsReadAsUntouched) {
    constexpr unsigned int kPage = 256;
    CSlotTable<int> table;
    for (unsigned int number = 0; number < kPage; ++number) {
        table.claim(number) = 1;
    }
    for (unsigned int number = 0; number < kPage; ++number) {
        table.release(number);
    }
    table.claim(10 * kPage) = 2;
    EXPECT_EQ(table.peek(10 * kPage), 2);
    for (unsigned int number = 10 * kPage + 1; number < 11 * kPage; ++number) {
        ASSERT_EQ(table.peek(number), 0);
    }
    EXPECT_EQ(table.peek(0), 0);
}

}  // namespace
}  // namespace talrtp

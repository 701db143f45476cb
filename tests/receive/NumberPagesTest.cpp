// The bits of pages against std::set, the pages and the store of records against std::map, over random calls.

#include "receive/NumberPages.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace talrtp {
namespace {

constexpr unsigned int kSeed = 20261122;

TEST(PageBitsTest, AgreesWithAPlainSet) {
    std::mt19937 random(kSeed);
    CPageBits bits;
    std::set<unsigned int> plain;
    for (unsigned int call = 0; call < 60000; ++call) {
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", call " << call);
        // Some words are full at times, others are empty, and so is all.
        const unsigned int page = call % 7 == 0 ? random() % kPageCount : random() % 3 * 500 + random() % 24;
        if (random() % 3 != 0) {
            bits.erase(page);
            plain.erase(page);
        } else {
            bits.insert(page);
            plain.insert(page);
        }
        ASSERT_EQ(bits.isEmpty(), plain.empty());
        ASSERT_EQ(bits.contains(page), plain.count(page) != 0);
        const unsigned int from = random() % (kPageCount + 2);
        const auto found = plain.lower_bound(from);
        ASSERT_EQ(bits.findUpward(from), found != plain.end() ? *found : kPageCount) << from;
    }
}

// A page of a set of numbers that counts how many there are.
struct Page {
    static int s_count;

    Page() : numbers(0), holders(0) { ++s_count; }
    Page(const Page& other) : numbers(other.numbers), holders(other.holders) { ++s_count; }
    Page& operator=(const Page&) = default;
    ~Page() { --s_count; }

    _uint64_t numbers;
    unsigned int holders;
};
int Page::s_count = 0;

TEST(PageTableTest, PageIsThereWhileItIsHeld) {
    constexpr int kSpares = 3;
    std::mt19937 random(kSeed);
    {
        CPageTable<Page, kSpares> table;
        std::map<unsigned int, unsigned int> holders;  // by page
        std::set<unsigned int> members;
        for (unsigned int call = 0; call < 20000; ++call) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", call " << call);
            const unsigned int number = (65536 - 300 + random() % 600 + random() % 2 * 2048) % 65536;
            const unsigned int page = pageOf(number);
            if (random() % 8 < 4) {
                ASSERT_TRUE(table.hold(number));
                ++holders[page];
                table[number].numbers |= bitOf(number);
                members.insert(number);
            } else if (holders.count(page) != 0) {
                if (--holders[page] == 0) {
                    holders.erase(page);
                    members.erase(members.lower_bound(page * 64), members.lower_bound(page * 64 + 64));
                }
                table.release(number);
            }
            ASSERT_EQ(table.find(number) != nullptr, holders.count(page) != 0);
            ASSERT_GE(Page::s_count, static_cast<int>(holders.size()));
            ASSERT_LE(Page::s_count, static_cast<int>(holders.size()) + kSpares);

            std::vector<unsigned int> expected;
            std::vector<unsigned int> visited;
            const unsigned short first = static_cast<unsigned short>(number - random() % 300);
            const unsigned int count = random() % 512;
            for (unsigned int i = 0; i < count; ++i) {
                if (members.count((first + i) % 65536) != 0) {
                    expected.push_back((first + i) % 65536);
                }
            }
            visitNumbers(
                table, first, count, [](const Page& of) { return of.numbers; },
                [&visited](const Page&, unsigned short visitedNumber) { visited.push_back(visitedNumber); });
            ASSERT_EQ(visited, expected) << first << " + " << count;
        }
        ASSERT_FALSE(holders.empty());
    }
    EXPECT_EQ(Page::s_count, 0);
}

TEST(RecordStoreTest, RecordHasTheLowestFreeNumberAndStaysAsItIs) {
    std::mt19937 random(kSeed);
    CRecordStore<unsigned int> store;
    std::map<unsigned int, unsigned int> plain;
    std::set<unsigned int> free;
    for (unsigned int id = 0; id < 65536; ++id) {
        free.insert(free.end(), id);
    }
    for (unsigned int round = 0; round < 6; ++round) {
        const bool isFilled = round % 2 == 0;
        for (unsigned int call = 0; call < 40000 && (isFilled || !plain.empty()); ++call) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", round " << round << ", call " << call);
            if (random() % 8 < (isFilled ? 7 : 1)) {
                const unsigned int value = static_cast<unsigned int>(random());
                const unsigned int id = store.take(value);
                ASSERT_EQ(id, *free.begin());
                free.erase(free.begin());
                plain[id] = value;
            } else if (!plain.empty()) {
                auto some = plain.lower_bound(random() % 65536);
                some = some != plain.end() ? some : std::prev(some);
                ASSERT_EQ(store[some->first], some->second);
                store.give(some->first);
                free.insert(some->first);
                plain.erase(some);
            }
        }
    }
    for (const auto& record : plain) {
        ASSERT_EQ(store[record.first], record.second);
    }
}

TEST(RecordStoreTest, HoldsAsManyRecordsAsThereAreNumbers) {
    CRecordStore<unsigned int> store;
    for (unsigned int i = 0; i < 65536; ++i) {
        ASSERT_EQ(store.take(i * 7), i);
    }
    for (unsigned int i = 0; i < 65536; ++i) {
        ASSERT_EQ(store[i], i * 7);
    }
    for (unsigned int i = 0; i < 65536; ++i) {
        store.give(i);
    }
    EXPECT_EQ(store.take(1), 0u);
}

}  // namespace
}  // namespace talrtp

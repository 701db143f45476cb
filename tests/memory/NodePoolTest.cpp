// The node pool of a session: what it gives is aligned, belongs to one owner at a time, and is out of bounds
// while nobody owns it.

#include "memory/NodePool.h"

#include <gtest/gtest.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "SanitizedBuild.h"

#if TALRTP_TESTS_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace talrtp {
namespace {

// A node filled with a pattern of its own.
class Node {
public:
    Node(CNodePool& pool, std::size_t size, unsigned char fill)
        : m_bytes(static_cast<unsigned char*>(pool.take(size))), m_size(size), m_fill(fill) {
        std::memset(m_bytes, fill, size);
    }

    // Returns the node, which holds what was written to it.
    void give(CNodePool& pool) {
        for (std::size_t i = 0; i < m_size; ++i) {
            ASSERT_EQ(m_bytes[i], m_fill) << "byte " << i << " of " << m_size;
        }
        pool.give(m_bytes, m_size);
    }
    const unsigned char* bytes() const { return m_bytes; }

private:
    unsigned char* m_bytes;
    std::size_t m_size;
    unsigned char m_fill;
};

// Sizes on both sides of every step, up to some beyond the largest node of a page, 240 bytes.
std::vector<std::size_t> sizes() {
    std::vector<std::size_t> result = {1, 8, 15};
    for (std::size_t size = 16; size <= 288; size += 16) {
        result.insert(result.end(), {size - 1, size, size + 1});
    }
    result.insert(result.end(), {1007, 1008, 1009, 2047, 2048, 2049, 4000, 4064, 4096, 5000, 70000});
    return result;
}

TEST(NodePoolTest, NodesOfEverySizeAreAlignedForAnyType) {
    CPagedNodePool pool;
    for (const std::size_t size : sizes()) {
        std::vector<Node> nodes;
        for (int i = 0; i < 9; ++i) {
            nodes.emplace_back(pool, size, static_cast<unsigned char>(i));
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(nodes.back().bytes()) % alignof(std::max_align_t), 0u)
                << size;
        }
        for (Node& node : nodes) {
            node.give(pool);
        }
    }
}

TEST(NodePoolTest, NodesOfEverySizeKeepWhatTheirOwnersWrite) {
    CPagedNodePool pool;
    std::vector<Node> nodes;
    for (int round = 0; round < 3; ++round) {
        for (const std::size_t size : sizes()) {
            nodes.emplace_back(pool, size, static_cast<unsigned char>(nodes.size() * 7 + 1));
        }
    }
    for (Node& node : nodes) {
        node.give(pool);
    }
}

TEST(NodePoolTest, RandomOwnersKeepTheirBytes) {
    constexpr unsigned int kSeed = 20261122;
    std::mt19937 random(kSeed);
    CPagedNodePool pool;
    const std::vector<std::size_t> all = sizes();
    std::vector<Node> nodes;
    for (unsigned int i = 0; i < 40000; ++i) {
        // Grows to some thousands of nodes and shrinks to few, again and again.
        const bool grows = i / 4000 % 2 == 0;
        if (nodes.empty() || random() % 8 < (grows ? 6 : 2)) {
            nodes.emplace_back(pool, all[random() % all.size()], static_cast<unsigned char>(i));
        } else {
            std::swap(nodes[random() % nodes.size()], nodes.back());
            ASSERT_NO_FATAL_FAILURE(nodes.back().give(pool)) << "seed " << kSeed << ", step " << i;
            nodes.pop_back();
        }
    }
    for (Node& node : nodes) {
        node.give(pool);
    }
}

TEST(NodePoolTest, NodeThatCameBackIsUsedAgain) {
    CPagedNodePool pool;
    void* const other = pool.take(40);  // keeps the page
    void* const node = pool.take(40);
    pool.give(node, 40);
    EXPECT_EQ(pool.take(33), node);  // sizes up to 48 share their pages
    pool.give(node, 33);
    pool.give(other, 40);
}

// From the caches, whatever pages they are of.
TEST(NodePoolTest, NodesThatCameBackLastAreTakenFirst) {
    constexpr std::size_t kSize = 48;  // some 80 to a page
    CPagedNodePool pool;
    std::vector<void*> nodes(1000);
    std::generate(nodes.begin(), nodes.end(), [&] { return pool.take(kSize); });
    for (std::size_t i = 0; i < nodes.size(); i += 10) {
        pool.give(nodes[i], kSize);
    }
    for (std::size_t i = nodes.size(); i > 0; i -= 10) {
        void* const node = pool.take(kSize);
        EXPECT_EQ(node, nodes[i - 10]) << i;
        nodes[i - 10] = node;
    }
    for (void* const node : nodes) {
        pool.give(node, kSize);
    }
}

// The page that was full has room again when one of its nodes comes back.
TEST(NodePoolTest, FullPagesTakeBackAndGiveAgain) {
    constexpr std::size_t kSize = 240;  // three to each of the first four pages, then sixteen
    CPagedNodePool pool;
    std::vector<void*> nodes;
    for (int i = 0; i < 4 * 3 + 2 * 16; ++i) {
        nodes.push_back(pool.take(kSize));
    }
    std::set<void*> returned;
    for (std::size_t i = 0; i < nodes.size(); i += 2) {
        pool.give(nodes[i], kSize);
        returned.insert(nodes[i]);
    }
    for (std::size_t i = 0; i < nodes.size(); i += 2) {
        nodes[i] = pool.take(kSize);
        EXPECT_EQ(returned.erase(nodes[i]), 1u) << i;
    }
    for (void* const node : nodes) {
        pool.give(node, kSize);
    }
}

TEST(NodePoolTest, FlowInAnyOrderUsesItsNodesAgain) {
    constexpr std::size_t kKept = 1000;
    constexpr std::size_t kSize = 48;
    CPagedNodePool pool;
    std::vector<void*> nodes;
    std::set<std::uintptr_t> pages;
    std::mt19937 random(7);
    for (std::size_t i = 0; i < 50 * kKept; ++i) {
        nodes.push_back(pool.take(kSize));
        pages.insert(reinterpret_cast<std::uintptr_t>(nodes.back()) / 4096);
        if (nodes.size() > kKept) {
            std::swap(nodes[random() % kKept], nodes.back());
            pool.give(nodes.back(), kSize);
            nodes.pop_back();
        }
    }
    // Less than a quarter of each page waits for the rest of the quarter.
    EXPECT_LE(pages.size(), kKept * kSize / 4096 * 3 / 2 + 4);
    for (void* const node : nodes) {
        pool.give(node, kSize);
    }
}

#if defined(__GLIBC__) && !TALRTP_TESTS_ADDRESS_SANITIZER
TEST(NodePoolTest, MemoryGoesBackToTheHeapInWhateverOrderNodesComeBack) {
    constexpr std::size_t kNodes = 20000;
    constexpr std::size_t kSize = 48;
    const auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    std::vector<void*> nodes(kNodes);
    {
        // malloc counts the small blocks in its cache as in use. This fills it.
        CPagedNodePool other;
        std::generate(nodes.begin(), nodes.end(), [&] { return other.take(kSize); });
        for (void* const node : nodes) {
            other.give(node, kSize);
        }
    }
    CPagedNodePool pool;
    for (const bool isReversed : {false, true}) {
        const std::size_t before = inUse();
        std::generate(nodes.begin(), nodes.end(), [&] { return pool.take(kSize); });
        ASSERT_GT(inUse(), before + kNodes * kSize);
        if (isReversed) {
            std::reverse(nodes.begin(), nodes.end());
        } else {
            std::shuffle(nodes.begin(), nodes.end(), std::mt19937(7));
        }
        for (void* const node : nodes) {
            pool.give(node, kSize);
        }
        EXPECT_LE(inUse(), before + 4 * 4096);
    }
}

// Of 1000 pages, those stay that have one of the last hundred nodes, and one more for eight of these.
TEST(NodePoolTest, FewNodesInUseKeepFewPages) {
    constexpr std::size_t kNodes = 80000;
    constexpr std::size_t kSize = 48;
    constexpr std::size_t kStay = 100;
    const auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    CPagedNodePool pool;
    std::vector<void*> nodes(kNodes);
    const std::size_t before = inUse();
    std::generate(nodes.begin(), nodes.end(), [&] { return pool.take(kSize); });
    std::shuffle(nodes.begin(), nodes.end(), std::mt19937(7));
    while (nodes.size() > kStay) {
        pool.give(nodes.back(), kSize);
        nodes.pop_back();
    }
    EXPECT_LE(inUse(), before + (kStay + kStay / 8 + 8) * 4096);
    for (void* const node : nodes) {
        pool.give(node, kSize);
    }
}
#endif

#if TALRTP_TESTS_ADDRESS_SANITIZER
TEST(NodePoolTest, BytesThatNobodyOwnsArePoisoned) {
    CPagedNodePool pool;
    const std::size_t kSize = 64;
    char* const first = static_cast<char*>(pool.take(kSize));
    char* const node = static_cast<char*>(pool.take(kSize));
    EXPECT_EQ(__asan_region_is_poisoned(node, kSize), nullptr);
    EXPECT_NE(__asan_region_is_poisoned(node, kSize + 1), nullptr);  // never taken
    pool.give(node, kSize);
    for (std::size_t i = 0; i < kSize; ++i) {
        EXPECT_TRUE(__asan_address_is_poisoned(node + i)) << i;
    }
    EXPECT_EQ(pool.take(kSize), node);
    EXPECT_EQ(__asan_region_is_poisoned(node, kSize), nullptr);
    pool.give(node, kSize);
    pool.give(first, kSize);  // the page is nobody's now, and may serve another size
    EXPECT_TRUE(__asan_address_is_poisoned(first));
    char* const larger = static_cast<char*>(pool.take(2 * kSize));
    EXPECT_EQ(__asan_region_is_poisoned(larger, 2 * kSize), nullptr);
    EXPECT_TRUE(__asan_address_is_poisoned(larger + 2 * kSize));
    pool.give(larger, 2 * kSize);
}
#endif

}  // namespace
}  // namespace talrtp

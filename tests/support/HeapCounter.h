// Counts the blocks that the global allocation operators return, which the library's objects come from too,
// and refuses one on request. The bytes of a packet are allocated with malloc and are not counted.
//
//   const long before = heap().blocks;
//   session.reset();
//   EXPECT_EQ(heap().blocks, before - 1);

#ifndef TALRTP_TESTS_HEAPCOUNTER_H
#define TALRTP_TESTS_HEAPCOUNTER_H

#include <atomic>
#include <cstddef>

namespace talrtp {
namespace test {

// Under ThreadSanitizer, whose operators cannot be replaced, all of it stays 0.
struct Heap {
    std::atomic<long> blocks{0};           // in use
    std::atomic<std::size_t> bytes{0};     // usable in these blocks
    std::atomic<std::size_t> calls{0};     // of operator new
    std::atomic<unsigned int> refused{0};  // the call to refuse: 1 the next, 0 none
};

Heap& heap();

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_HEAPCOUNTER_H

// Counts what is asked of the allocator, and the bytes that it has lent. The functions of the program stand
// in front of the allocator's; operator new calls them in the end too. A sanitizer has functions of its own
// in their place, so a test that counts skips itself under one:
//
//   if (kIsSanitized) {
//       GTEST_SKIP() << kNothingIsCounted;
//   }

#ifndef TALRTP_TESTS_MALLOCCOUNTER_H
#define TALRTP_TESTS_MALLOCCOUNTER_H

#include <cstddef>

#include "SanitizedBuild.h"

namespace talrtp {
namespace test {

constexpr char kNothingIsCounted[] = "a sanitizer stands in front of the allocator";

// Fixed in size: noting a request must not make one.
struct Requests {
    static constexpr int kNoted = 64;

    bool isWatching = false;
    int count = 0;  // while watching; stops at kNoted
    std::size_t sizes[kNoted] = {};
    std::size_t bytesInUse = 0;  // always, with eight for each block that the allocator keeps beside it
};

// Of all threads: the program has one that allocates.
Requests& requests();

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_MALLOCCOUNTER_H

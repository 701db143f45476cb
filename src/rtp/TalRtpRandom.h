// The body of both `random32` operations, the free function and the session's own, which differ only in their
// once-only seeding flag.

#ifndef TALRTP_SRC_TALRTPRANDOM_H
#define TALRTP_SRC_TALRTPRANDOM_H

#include <atomic>

namespace talrtp {

// Returns the next value of `rand` that is not 0; sets `isSeeded`, and seeds the generator first when it was
// still false. A thread that calls while another one seeds draws from the generator as it is: it would seed
// with the same time and draw the same value.
unsigned int drawRandom32(std::atomic<bool>& isSeeded);

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPRANDOM_H

// The body of both `random32` operations, the free function and the session's own, which differ only in their
// once-only seeding flag.

#ifndef TALRTP_SRC_TALRTPRANDOM_H
#define TALRTP_SRC_TALRTPRANDOM_H

namespace talrtp {

// Returns the next value of `rand` that is not 0; seeds the generator first when `isSeeded` is still false,
// and sets it.
unsigned int drawRandom32(bool& isSeeded);

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPRANDOM_H

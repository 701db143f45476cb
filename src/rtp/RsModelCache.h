// What the receiving side asks of the model cache before it lets bytes from the network fill it: forged
// packets may name any pair (k, n), so beyond a bound their models are built for one decode and freed.

#ifndef TALRTP_SRC_RSMODELCACHE_H
#define TALRTP_SRC_RSMODELCACHE_H

#include <cstddef>

namespace talrtp {

// Tells whether the cache holds the model of (k, n).
bool isRsModelCached(int k, int n);

// Returns the number of models that the cache holds; refused pairs do not count.
std::size_t getCachedRsModelCount();

}  // namespace talrtp

#endif  // TALRTP_SRC_RSMODELCACHE_H

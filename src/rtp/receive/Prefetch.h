#ifndef TALRTP_SRC_RECEIVE_PREFETCH_H
#define TALRTP_SRC_RECEIVE_PREFETCH_H

namespace talrtp {

constexpr int kCacheLine = 64;

// Fetches into the caches what will be read or written soon. Any address is allowed.
inline void prefetch(const void* address) {
    __builtin_prefetch(address, 1);
}

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_PREFETCH_H

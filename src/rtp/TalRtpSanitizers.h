// Whether the library may recycle memory without telling the allocator. AddressSanitizer could not tell a
// block in use from a recycled one, so under it every block returns to the heap.

#ifndef TALRTP_SRC_TALRTPSANITIZERS_H
#define TALRTP_SRC_TALRTPSANITIZERS_H

namespace talrtp {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMayReuse = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kMayReuse = false;
#else
constexpr bool kMayReuse = true;
#endif
#else
constexpr bool kMayReuse = true;
#endif

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPSANITIZERS_H

// Which sanitizers the test program is built with: each macro is 1 or 0.

#ifndef TALRTP_TESTS_SANITIZEDBUILD_H
#define TALRTP_TESTS_SANITIZEDBUILD_H

// g++ defines a macro for each of its sanitizers, clang++ answers a question.
#ifdef __has_feature
#define TALRTP_TESTS_HAS_FEATURE(name) __has_feature(name)
#else
#define TALRTP_TESTS_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || TALRTP_TESTS_HAS_FEATURE(address_sanitizer)
#define TALRTP_TESTS_ADDRESS_SANITIZER 1
#else
#define TALRTP_TESTS_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || TALRTP_TESTS_HAS_FEATURE(thread_sanitizer)
#define TALRTP_TESTS_THREAD_SANITIZER 1
#else
#define TALRTP_TESTS_THREAD_SANITIZER 0
#endif

#if TALRTP_TESTS_ADDRESS_SANITIZER || TALRTP_TESTS_THREAD_SANITIZER || \
    TALRTP_TESTS_HAS_FEATURE(memory_sanitizer)
#define TALRTP_TESTS_ANY_SANITIZER 1
#else
#define TALRTP_TESTS_ANY_SANITIZER 0
#endif

namespace talrtp {
namespace test {

// With allocation functions, a shadow and larger frames of its own.
constexpr bool kIsSanitized = TALRTP_TESTS_ANY_SANITIZER != 0;

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_SANITIZEDBUILD_H

// Around a call that is documented to leave a packet allocated, such as a datagram refused by validation:
//
//   {
//       const talrtp::test::DocumentedLeak leak;
//       EXPECT_EQ(session->InputReceivedData(datagram, length, 0), -1);
//   }
//
// Memory allocated while the object lives is not reported as a leak in builds with AddressSanitizer; every
// other build ignores the object. Keep the scope to the one call, so that a real leak beside it still shows.

#ifndef TALRTP_TESTS_DOCUMENTEDLEAK_H
#define TALRTP_TESTS_DOCUMENTEDLEAK_H

#include "SanitizedBuild.h"

#if TALRTP_TESTS_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace talrtp {
namespace test {

class DocumentedLeak {
public:
#if TALRTP_TESTS_ADDRESS_SANITIZER
    DocumentedLeak() {
        __lsan_disable();
    }
    ~DocumentedLeak() {
        __lsan_enable();
    }
#else
    DocumentedLeak() {}
    ~DocumentedLeak() {}
#endif
    DocumentedLeak(const DocumentedLeak&) = delete;
    DocumentedLeak& operator=(const DocumentedLeak&) = delete;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_DOCUMENTEDLEAK_H

// A receiving session with Reed-Solomon FEC, under a script of datagrams and losses.

#include <cstddef>
#include <cstdint>

#include "SessionScript.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    talrtp::fuzz::SessionScript(data, size, talrtp::RTP_FEC_RS).run();
    return 0;
}

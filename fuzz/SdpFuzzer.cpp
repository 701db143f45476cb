// Texts as session descriptions. A text is read or refused with a printable reason, and what was read says
// the same after it was written and read again.

#include "FuzzSupport.h"

#include <talrtp/kit/Sdp.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace talrtp {
namespace fuzz {
namespace {

void checkError(const std::string& error) {
    require(!error.empty() && error.size() < 300, "a refusal has a short reason");
    for (const char letter : error) {
        require(letter >= ' ' && letter <= '~', "a reason is printable");
    }
}

void checkDescription(const kit::Sdp& sdp) {
    for (const auto& set : sdp.parameterSets) {
        require(!set.empty(), "a parameter set has bytes");
    }
    require(sdp.payloadType <= 127 && sdp.clockRate > 0, "payload type and clock rate are in range");
    require(sdp.port >= 0 && sdp.port <= 65535, "the port is in range");
    const std::string text = sdp.write();
    require(text.empty() == !sdp.check().empty(), "a description without faults is written");
    if (!text.empty()) {
        const kit::SdpResult again = kit::Sdp::read(text);
        require(again.sdp.has_value(), "our own text is read");
        require(*again.sdp == sdp, "our own text says the same");
    }
}

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp;
    fuzz::ExactBuffer buffer(data, static_cast<int>(size));
    const std::string_view text(reinterpret_cast<const char*>(buffer.data()), size);
    const kit::SdpResult result = kit::Sdp::read(text);
    if (result.sdp) {
        fuzz::require(result.error.empty(), "a description comes without an error");
        fuzz::checkDescription(*result.sdp);
    } else {
        fuzz::checkError(result.error);
    }
    return 0;
}

#include "SdpFile.h"

#include "HostError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace talrtp::host {

kit::Sdp readSdpFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) {
        throw CHostError(fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
    }
    const kit::SdpResult result = kit::Sdp::read(text);
    if (!result.sdp) {
        throw CHostError(fmt::format("{}: {}", path, result.error));
    }
    return *result.sdp;
}

}  // namespace talrtp::host

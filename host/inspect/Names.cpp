#include "inspect/Names.h"

#include <arpa/inet.h>
#include <fmt/format.h>

namespace talrtp::host::inspect {

std::string nameOfEndpoint(const Endpoint& endpoint) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(endpoint.isIpv6 ? AF_INET6 : AF_INET, endpoint.address.data(), text.data(), text.size());
    return fmt::format(endpoint.isIpv6 ? "[{}]:{}" : "{}:{}", text.data(), endpoint.port);
}

std::string nameOfKind(StreamKind kind) {
    switch (kind) {
        case StreamKind::kH264:
            return "H.264";
        case StreamKind::kXorFec:
            return "FEC, XOR";
        case StreamKind::kReedSolomonFec:
            return "FEC, Reed-Solomon";
        case StreamKind::kOther:
            break;
    }
    return "not H.264";
}

std::string nameOfUnits(std::size_t type) {
    switch (type) {
        case 1:
            return "slices";
        case 5:
            return "IDR slices";
        case 6:
            return "SEI";
        case 7:
            return "sequence parameter sets";
        case 8:
            return "picture parameter sets";
        case 9:
            return "delimiters";
        case 14:
            return "prefix units";
        case 15:
            return "subset parameter sets";
        case 20:
            return "layer slices";
        default:
            return fmt::format("type {}", type);
    }
}

}  // namespace talrtp::host::inspect

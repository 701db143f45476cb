#include "net/Address.h"

#include "HostError.h"

#include <fmt/format.h>
#include <asio/ip/address.hpp>

#include <algorithm>
#include <cctype>

namespace talrtp::host {

namespace {

std::optional<std::uint16_t> parsePort(const std::string& text) {
    constexpr std::size_t kMaxDigits = 5;
    constexpr unsigned long kMaxPort = 65535;
    const bool isNumber =
        !text.empty() && text.size() <= kMaxDigits &&
        std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
    const unsigned long port = isNumber ? std::stoul(text) : 0;
    if (port == 0 || port > kMaxPort) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(port);
}

std::optional<HostAndPort> join(const std::string& host, const std::string& port) {
    const std::optional<std::uint16_t> number = parsePort(port);
    if (host.empty() || !number) {
        return std::nullopt;
    }
    return HostAndPort{host, *number};
}

}  // namespace

std::optional<HostAndPort> parseAddress(const std::string& text) {
    if (const std::optional<std::uint16_t> port = parsePort(text)) {
        return HostAndPort{"", *port};
    }
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find("]:");
        return end == std::string::npos ? std::nullopt : join(text.substr(1, end - 1), text.substr(end + 2));
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos) {
        return std::nullopt;
    }
    return join(text.substr(0, colon), text.substr(colon + 1));
}

Endpoint resolve(asio::io_context& io, const HostAndPort& address) {
    asio::error_code error;
    const asio::ip::address literal = asio::ip::make_address(address.host, error);
    if (!error) {
        return {literal, address.port};
    }
    asio::ip::udp::resolver resolver(io);
    const auto results = resolver.resolve(address.host, std::to_string(address.port), error);
    if (error) {
        throw CHostError(fmt::format("no address is known for '{}': {}", address.host, error.message()));
    }
    if (results.empty()) {
        throw CHostError(fmt::format("'{}' is a name without an address", address.host));
    }
    return results.begin()->endpoint();
}

Endpoint withPort(const Endpoint& endpoint, std::uint16_t port) {
    return {endpoint.address(), port};
}

std::string describe(const Endpoint& endpoint) {
    const asio::ip::address address = endpoint.address();
    if (address.is_v4()) {
        return fmt::format("{}:{}", address.to_string(), endpoint.port());
    }
    if (address.to_v6().is_v4_mapped()) {
        const auto v4 = asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
        return fmt::format("{}:{}", v4.to_string(), endpoint.port());
    }
    return fmt::format("[{}]:{}", address.to_string(), endpoint.port());
}

}  // namespace talrtp::host

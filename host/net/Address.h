// Addresses as users write them: HOST:PORT, [IPv6]:PORT or a PORT.

#ifndef TALRTP_HOST_NET_ADDRESS_H
#define TALRTP_HOST_NET_ADDRESS_H

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace talrtp::host {

using Endpoint = asio::ip::udp::endpoint;

struct HostAndPort {
    std::string host;  // empty when only a port was written
    std::uint16_t port = 0;
};

// Returns the parts of HOST:PORT, [ADDRESS]:PORT or PORT, or nothing when `text` is none of them. A port is 1
// to 65535; an IPv6 address with a port needs its brackets.
std::optional<HostAndPort> parseAddress(const std::string& text);

// Returns the first address of the host. Throws CHostError when the name is not known or has no address.
Endpoint resolve(asio::io_context& io, const HostAndPort& address);

// The same address with another port.
Endpoint withPort(const Endpoint& endpoint, std::uint16_t port);

// ADDRESS:PORT, with brackets round an IPv6 address; an IPv4 address within IPv6 is written as IPv4.
std::string describe(const Endpoint& endpoint);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_ADDRESS_H

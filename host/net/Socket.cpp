#include "net/Socket.h"

#include "HostError.h"

#include <fmt/format.h>
#include <asio/ip/multicast.hpp>
#include <asio/ip/unicast.hpp>
#include <asio/ip/v6_only.hpp>

#include <cerrno>
#include <cstring>

#include <net/if.h>
#include <sys/socket.h>

namespace talrtp::host {

namespace {

// Room for 60 ms of 1 Gbit/s, in the kernel's count, which charges small datagrams more than their size.
constexpr int kBufferBytes = 8 * 1024 * 1024;

[[noreturn]] void fail(const std::string& action, const asio::error_code& error) {
    throw CHostError(fmt::format("cannot {}: {}", action, error.message()));
}

void check(const std::string& action, const asio::error_code& error) {
    if (error) {
        fail(action, error);
    }
}

// Asks for the buffer beyond the system's limit first, which an administrator may, and then for as much as
// the limit allows. A smaller buffer is no error: the kernel's own count of lost datagrams tells when it was.
void requestBuffer(Socket& socket, int forceOption, int option) {
    const int size = kBufferBytes;
    if (setsockopt(socket.native_handle(), SOL_SOCKET, forceOption, &size, sizeof size) != 0) {
        setsockopt(socket.native_handle(), SOL_SOCKET, option, &size, sizeof size);
    }
}

Socket open(asio::io_context& io, const asio::ip::udp& protocol) {
    asio::error_code error;
    Socket socket(io);
    socket.open(protocol, error);
    check("open a UDP socket", error);
    socket.non_blocking(true, error);
    check("open a UDP socket", error);
    requestBuffer(socket, SO_RCVBUFFORCE, SO_RCVBUF);
    requestBuffer(socket, SO_SNDBUFFORCE, SO_SNDBUF);
    return socket;
}

unsigned int interfaceIndex(const std::string& name) {
    const unsigned int index = if_nametoindex(name.c_str());
    if (index == 0) {
        throw CHostError(fmt::format("there is no network interface '{}'", name));
    }
    return index;
}

// The index of the interface chooses for both families, so that it needs no address of its own.
void chooseMulticastInterface(Socket& socket, bool isV4, const std::string& name) {
    const unsigned int index = interfaceIndex(name);
    int result = 0;
    if (isV4) {
        ip_mreqn request{};
        request.imr_ifindex = static_cast<int>(index);
        result = setsockopt(socket.native_handle(), IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request);
    } else {
        result = setsockopt(socket.native_handle(), IPPROTO_IPV6, IPV6_MULTICAST_IF, &index, sizeof index);
    }
    if (result != 0) {
        fail("send multicast on " + name, asio::error_code(errno, asio::error::get_system_category()));
    }
}

void setHops(Socket& socket, int ttl, bool isMulticast) {
    asio::error_code error;
    if (isMulticast) {
        socket.set_option(asio::ip::multicast::hops(ttl), error);
    } else {
        socket.set_option(asio::ip::unicast::hops(ttl), error);
    }
    check("set the TTL", error);
}

void joinGroup(Socket& socket, const Endpoint& group, const std::string& interface) {
    group_req request{};
    request.gr_interface = interface.empty() ? 0 : interfaceIndex(interface);
    std::memcpy(&request.gr_group, group.data(), group.size());
    const int level = group.address().is_v4() ? IPPROTO_IP : IPPROTO_IPV6;
    if (setsockopt(socket.native_handle(), level, MCAST_JOIN_GROUP, &request, sizeof request) != 0) {
        fail("join the multicast group " + group.address().to_string(),
             asio::error_code(errno, asio::error::get_system_category()));
    }
}

void bindLocalPort(Socket& socket, const Endpoint& remote, std::uint16_t port) {
    asio::error_code error;
    socket.bind({remote.protocol(), port}, error);
    check(fmt::format("send from port {}", port), error);
}

void setSendOptions(Socket& socket, const Endpoint& remote, const MulticastOptions& options) {
    const bool isMulticast = remote.address().is_multicast();
    if (isMulticast && !options.interface.empty()) {
        chooseMulticastInterface(socket, remote.address().is_v4(), options.interface);
    }
    if (options.ttl) {
        setHops(socket, *options.ttl, isMulticast);
    }
}

}  // namespace

Socket openSender(asio::io_context& io, const Endpoint& remote, const MulticastOptions& options,
                  std::uint16_t localPort) {
    Socket socket = open(io, remote.protocol());
    if (localPort != 0) {
        bindLocalPort(socket, remote, localPort);
    }
    setSendOptions(socket, remote, options);
    asio::error_code error;
    socket.connect(remote, error);
    check("send to " + describe(remote), error);
    return socket;
}

Socket openRtcpSender(asio::io_context& io, const Endpoint& remote, const MulticastOptions& options,
                      std::uint16_t localPort) {
    if (remote.address().is_multicast()) {
        Socket socket = openReceiver(io, remote, options);
        setSendOptions(socket, remote, options);
        return socket;
    }
    Socket socket = open(io, remote.protocol());
    bindLocalPort(socket, remote, localPort);
    setSendOptions(socket, remote, options);
    return socket;
}

Socket openReceiver(asio::io_context& io, const Endpoint& local, const MulticastOptions& options) {
    Socket socket = open(io, local.protocol());
    asio::error_code error;
    if (local.address().is_multicast()) {
        // Several receivers of a group can share the port.
        socket.set_option(Socket::reuse_address(true), error);
    }
    if (local.address().is_v6() && local.address().is_unspecified()) {
        socket.set_option(asio::ip::v6_only(false), error);
    }
    socket.bind(local, error);
    check("listen on " + describe(local), error);
    if (local.address().is_multicast()) {
        joinGroup(socket, local, options.interface);
    }
    return socket;
}

int receiveBuffer(const Socket& socket) {
    asio::error_code ignored;
    Socket::receive_buffer_size size;
    socket.get_option(size, ignored);
    return size.value();
}

Endpoint anyAddress(std::uint16_t port) {
    asio::io_context io;
    Socket probe(io);
    asio::error_code error;
    probe.open(asio::ip::udp::v6(), error);
    if (!error) {
        probe.bind({asio::ip::udp::v6(), 0}, error);
    }
    return {error ? asio::ip::udp::v4() : asio::ip::udp::v6(), port};
}

}  // namespace talrtp::host

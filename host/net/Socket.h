// UDP sockets, opened the way that streaming needs them: non-blocking, with large buffers, in a multicast
// group where the address is one.

#ifndef TALRTP_HOST_NET_SOCKET_H
#define TALRTP_HOST_NET_SOCKET_H

#include "net/Address.h"

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <optional>
#include <string>

namespace talrtp::host {

using Socket = asio::ip::udp::socket;

struct MulticastOptions {
    std::optional<int> ttl;  // hops of what is sent, to one host too; the system's default unless set
    std::string interface;   // the name of the interface for multicast; the system chooses when empty
};

// Returns a socket from which datagrams go to `remote` only, and that takes datagrams from there only. An
// ICMP error that comes back fails one of the next calls. `localPort` 0 lets the system choose.
// Throws CHostError.
Socket openSender(asio::io_context& io, const Endpoint& remote, const MulticastOptions& options,
                  std::uint16_t localPort = 0);

// Returns a socket on `local` that takes datagrams from anywhere; it joins the group when the address is a
// multicast address. An IPv6 socket without an address takes IPv4 too. Throws CHostError, for instance when
// the port is in use.
Socket openReceiver(asio::io_context& io, const Endpoint& local, const MulticastOptions& options);

// Returns a socket from which RTCP goes to `remote`, and that takes what anybody sends back; it joins the
// group when the address is a multicast address. Throws CHostError.
Socket openRtcpSender(asio::io_context& io, const Endpoint& remote, const MulticastOptions& options,
                      std::uint16_t localPort = 0);

// Returns the bytes that wait in the socket at most, as they are asked for: the kernel takes twice as many,
// of which its own headers and the gaps between datagrams need their part.
int receiveBuffer(const Socket& socket);

// Every address of this host: IPv6 and IPv4 in one socket where the system has IPv6, else IPv4.
Endpoint anyAddress(std::uint16_t port);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_SOCKET_H

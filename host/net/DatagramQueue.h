// Datagrams on their way to a connected socket. Many leave with one system call, and runs of equal size as
// one message that the kernel or the network card cuts (UDP segmentation offload), where the kernel can.

#ifndef TALRTP_HOST_NET_DATAGRAMQUEUE_H
#define TALRTP_HOST_NET_DATAGRAMQUEUE_H

#include "net/Socket.h"

#include <talrtp/kit/BytesView.h>

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::host {

struct SendCounts {
    std::uint64_t datagrams = 0;   // left
    std::uint64_t bytes = 0;       // of UDP payload
    std::uint64_t calls = 0;       // of the system
    std::uint64_t icmpErrors = 0;  // answers that nobody listens on the port
    std::uint64_t failed = 0;      // datagrams that the system refused
    int lastError = 0;             // errno of the last refusal
};

class CDatagramQueue {
public:
    explicit CDatagramQueue(Socket socket);

    // Copies the datagram to the end of the queue, where it stays until it is released.
    void push(kit::BytesView datagram);

    // The next `count` datagrams may leave.
    void release(std::size_t count) { m_released += count; }
    void releaseAll() { m_released = m_sizes.size(); }

    // Sends what was released. Returns false when the socket takes no more for now: call again when it is
    // writable. An ICMP error is counted and sending goes on; so does it after a refusal, without the
    // datagrams of the refused message.
    bool flush();

    std::size_t size() const { return m_sizes.size() - m_next; }
    std::size_t bytes() const { return m_bytes.size() - m_nextOffset; }
    const SendCounts& counts() const { return m_counts; }
    Socket& socket() { return m_socket; }

private:
    static constexpr std::size_t kMaxMessages = 64;

    // A message: datagrams first .. first + count - 1, all of one size but the last, which may be shorter.
    struct Run {
        std::size_t count = 0;
        std::size_t bytes = 0;
    };

    Run nextRun(std::size_t first) const;
    std::size_t fillMessages();
    void setMessage(std::size_t index, std::size_t offset, const Run& run, std::size_t segmentSize);
    void drop(std::size_t messages, bool wereSent);
    bool handleError(int error);
    void compact();

    Socket m_socket;
    bool m_isSegmenting;
    std::vector<std::uint8_t> m_bytes;
    std::vector<std::size_t> m_sizes;
    std::size_t m_next = 0;        // of m_sizes: the first that waits
    std::size_t m_nextOffset = 0;  // of m_bytes, likewise
    std::size_t m_released = 0;    // of m_sizes: the first that may not leave yet
    SendCounts m_counts;

    struct Control {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };
    mmsghdr m_messages[kMaxMessages];
    iovec m_vectors[kMaxMessages];
    Control m_controls[kMaxMessages];
    Run m_runs[kMaxMessages];
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_DATAGRAMQUEUE_H

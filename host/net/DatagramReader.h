// Reads what waits in a socket, many datagrams with one system call. Where the kernel can, datagrams of one
// flow arrive joined (UDP receive offload) and are lent one by one.

#ifndef TALRTP_HOST_NET_DATAGRAMREADER_H
#define TALRTP_HOST_NET_DATAGRAMREADER_H

#include "net/Socket.h"

#include <talrtp/kit/BytesView.h>

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace talrtp::host {

struct ReceiveCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;  // of UDP payload
    std::uint64_t calls = 0;  // of the system
    std::uint64_t icmpErrors = 0;
    std::uint32_t droppedByKernel = 0;  // for want of room in the socket's buffer
};

class CDatagramReader {
public:
    explicit CDatagramReader(Socket socket);

    // Takes one batch from the socket. Returns whether more may wait: a batch that is not full emptied it.
    bool fetch();

    // Calls `handle(BytesView datagram, const Endpoint& from)` for each datagram of the batch fetched
    // last, which is lent for the call. Once for a batch.
    template <typename Handle>
    void lend(Handle handle) {
        for (std::size_t i = 0; i < m_fetched; ++i) {
            const Message message = open(i);
            m_counts.bytes += message.bytes.size();
            std::size_t position = 0;
            do {  // an empty datagram is one too
                ++m_counts.datagrams;
                handle(message.bytes.subview(position, message.segmentSize), m_from[i]);
                position += message.segmentSize;
            } while (position < message.bytes.size());
        }
    }

    // Both in one.
    template <typename Handle>
    bool read(Handle handle) {
        const bool isMore = fetch();
        lend(handle);
        return isMore;
    }

    const ReceiveCounts& counts() const { return m_counts; }
    Socket& socket() { return m_socket; }
    const Socket& socket() const { return m_socket; }

private:
    static constexpr std::size_t kMaxMessages = 32;
    static constexpr std::size_t kMaxMessageBytes = 65536;

    struct Message {
        kit::BytesView bytes;
        std::size_t segmentSize;  // at least 1
    };

    struct Control {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(std::uint32_t))];
    };

    void prepare(std::size_t index);
    Message open(std::size_t index);

    Socket m_socket;
    ReceiveCounts m_counts;
    std::unique_ptr<std::uint8_t[]> m_bytes;  // kMaxMessages blocks; the system maps what is used
    std::size_t m_fetched = 0;
    mmsghdr m_messages[kMaxMessages];
    iovec m_vectors[kMaxMessages];
    Control m_controls[kMaxMessages];
    Endpoint m_from[kMaxMessages];
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_DATAGRAMREADER_H

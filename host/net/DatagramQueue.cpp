#include "net/DatagramQueue.h"

#include <netinet/udp.h>

#include <cerrno>
#include <cstring>
#include <utility>

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103  // Linux 4.18
#endif

namespace talrtp::host {

namespace {

constexpr std::size_t kMaxSegments = 64;           // of one message, in every kernel that segments
constexpr std::size_t kMaxMessageBytes = 65000;    // all segments of one message, below what IP can carry
constexpr std::size_t kCompactBytes = 256 * 1024;  // sent bytes that may stay at the front of the buffer

bool canSegment(Socket& socket) {
    int size = 0;
    socklen_t length = sizeof size;
    return getsockopt(socket.native_handle(), IPPROTO_UDP, UDP_SEGMENT, &size, &length) == 0;
}

}  // namespace

CDatagramQueue::CDatagramQueue(Socket socket)
    : m_socket(std::move(socket)), m_isSegmenting(canSegment(m_socket)) {}

void CDatagramQueue::push(kit::BytesView datagram) {
    m_bytes.insert(m_bytes.end(), datagram.begin(), datagram.end());
    m_sizes.push_back(datagram.size());
}

bool CDatagramQueue::flush() {
    while (m_next < m_released) {
        const std::size_t messages = fillMessages();
        const int sent =
            sendmmsg(m_socket.native_handle(), m_messages, static_cast<unsigned int>(messages), MSG_DONTWAIT);
        ++m_counts.calls;
        if (sent > 0) {
            drop(static_cast<std::size_t>(sent), true);
        } else if (!handleError(errno)) {
            return false;
        }
    }
    compact();
    return true;
}

CDatagramQueue::Run CDatagramQueue::nextRun(std::size_t first) const {
    Run run{1, m_sizes[first]};
    while (m_isSegmenting && run.count < kMaxSegments && first + run.count < m_released) {
        const std::size_t size = m_sizes[first + run.count];
        if (size > m_sizes[first] || run.bytes + size > kMaxMessageBytes) {
            break;
        }
        ++run.count;
        run.bytes += size;
        if (size < m_sizes[first]) {
            break;
        }
    }
    return run;
}

std::size_t CDatagramQueue::fillMessages() {
    std::size_t filled = 0;
    std::size_t offset = m_nextOffset;
    for (std::size_t first = m_next; first < m_released && filled < kMaxMessages; ++filled) {
        const Run run = nextRun(first);
        setMessage(filled, offset, run, m_sizes[first]);
        offset += run.bytes;
        first += run.count;
    }
    return filled;
}

void CDatagramQueue::setMessage(std::size_t index, std::size_t offset, const Run& run,
                                std::size_t segmentSize) {
    m_runs[index] = run;
    m_vectors[index] = {m_bytes.data() + offset, run.bytes};
    msghdr& header = m_messages[index].msg_hdr;
    header = {};
    header.msg_iov = &m_vectors[index];
    header.msg_iovlen = 1;
    if (run.count == 1) {
        return;
    }
    header.msg_control = m_controls[index].bytes;
    header.msg_controllen = sizeof m_controls[index].bytes;
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = IPPROTO_UDP;
    control->cmsg_type = UDP_SEGMENT;
    control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
    const std::uint16_t size = static_cast<std::uint16_t>(segmentSize);
    std::memcpy(CMSG_DATA(control), &size, sizeof size);
}

// Takes messages off the front of the queue.
void CDatagramQueue::drop(std::size_t messages, bool wereSent) {
    for (std::size_t i = 0; i < messages; ++i) {
        m_next += m_runs[i].count;
        m_nextOffset += m_runs[i].bytes;
        if (wereSent) {
            m_counts.datagrams += m_runs[i].count;
            m_counts.bytes += m_runs[i].bytes;
        } else {
            m_counts.failed += m_runs[i].count;
        }
    }
}

// The error is that of the first message. Returns false when the socket is full.
bool CDatagramQueue::handleError(int error) {
    if (error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS) {
        return false;
    }
    if (error == EINTR) {
        return true;
    }
    if (error == ECONNREFUSED) {
        // An ICMP answer to an earlier datagram. Nothing of this message left, so it is sent again. There is
        // at most one answer to each datagram that left, so the loop ends.
        ++m_counts.icmpErrors;
        return true;
    }
    if (m_runs[0].count > 1) {
        // Segments that are larger than the interface carries cannot be offloaded, only fragmented.
        m_isSegmenting = false;
        return true;
    }
    m_counts.lastError = error;
    drop(1, false);
    return true;
}

void CDatagramQueue::compact() {
    if (m_next == m_sizes.size()) {
        m_bytes.clear();
        m_sizes.clear();
    } else if (m_nextOffset < kCompactBytes) {
        return;
    } else {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_nextOffset));
        m_sizes.erase(m_sizes.begin(), m_sizes.begin() + static_cast<std::ptrdiff_t>(m_next));
    }
    m_released -= m_next;
    m_next = 0;
    m_nextOffset = 0;
}

}  // namespace talrtp::host

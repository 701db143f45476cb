#include "net/DatagramReader.h"

#include <netinet/udp.h>

#include <cerrno>
#include <cstring>
#include <utility>

#ifndef UDP_GRO
#define UDP_GRO 104  // Linux 5.0
#endif

namespace talrtp::host {

CDatagramReader::CDatagramReader(Socket socket)
    : m_socket(std::move(socket)), m_bytes(new std::uint8_t[kMaxMessages * kMaxMessageBytes]) {
    // Neither is needed: without the first the kernel passes single datagrams, without the second its losses
    // are not known.
    const int on = 1;
    setsockopt(m_socket.native_handle(), IPPROTO_UDP, UDP_GRO, &on, sizeof on);
    setsockopt(m_socket.native_handle(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    for (std::size_t i = 0; i < kMaxMessages; ++i) {
        prepare(i);
    }
}

// Sets what the system overwrites when it fills a message, and where the message goes.
void CDatagramReader::prepare(std::size_t index) {
    m_vectors[index] = {m_bytes.get() + index * kMaxMessageBytes, kMaxMessageBytes};
    msghdr& header = m_messages[index].msg_hdr;
    header = {};
    header.msg_name = m_from[index].data();
    header.msg_namelen = static_cast<socklen_t>(m_from[index].capacity());
    header.msg_iov = &m_vectors[index];
    header.msg_iovlen = 1;
    header.msg_control = m_controls[index].bytes;
    header.msg_controllen = sizeof m_controls[index].bytes;
}

bool CDatagramReader::fetch() {
    for (std::size_t i = 0; i < m_fetched; ++i) {
        prepare(i);
    }
    int count = 0;
    do {
        count = recvmmsg(m_socket.native_handle(), m_messages, kMaxMessages, MSG_DONTWAIT, nullptr);
        ++m_counts.calls;
        // An error in place of datagrams is an ICMP answer to something that was sent from here.
        m_counts.icmpErrors += count < 0 && errno == ECONNREFUSED ? 1 : 0;
    } while (count < 0 && (errno == EINTR || errno == ECONNREFUSED));
    m_fetched = count < 0 ? 0 : static_cast<std::size_t>(count);
    return m_fetched == kMaxMessages;
}

CDatagramReader::Message CDatagramReader::open(std::size_t index) {
    msghdr& header = m_messages[index].msg_hdr;
    m_from[index].resize(header.msg_namelen);
    const kit::BytesView bytes(m_bytes.get() + index * kMaxMessageBytes, m_messages[index].msg_len);
    Message message{bytes, bytes.empty() ? 1 : bytes.size()};
    for (cmsghdr* each = CMSG_FIRSTHDR(&header); each != nullptr; each = CMSG_NXTHDR(&header, each)) {
        int value = 0;
        if (each->cmsg_level == IPPROTO_UDP && each->cmsg_type == UDP_GRO) {
            std::memcpy(&value, CMSG_DATA(each), sizeof value);
            message.segmentSize = value > 0 ? static_cast<std::size_t>(value) : message.segmentSize;
        } else if (each->cmsg_level == SOL_SOCKET && each->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&m_counts.droppedByKernel, CMSG_DATA(each), sizeof m_counts.droppedByKernel);
        }
    }
    return message;
}

}  // namespace talrtp::host

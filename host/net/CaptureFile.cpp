#include "net/CaptureFile.h"

#include "HostError.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <sys/stat.h>
#include <unistd.h>

namespace talrtp::host {

namespace {

constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kHopLimit = 64;
constexpr std::size_t kUdpHeaderSize = 8;
constexpr std::size_t kFileHeaderSize = 24;
constexpr std::size_t kRecordHeaderSize = 16;
// Where packets end is remembered for so many bytes, which bounds the memory for it.
constexpr std::size_t kMaxUnwritten = 65536;
constexpr int kSnapLength = 65536 + 40;  // an IPv6 header and the largest payload after it

using Bytes = std::vector<std::uint8_t>;

void append16(Bytes& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void set16(Bytes& bytes, std::size_t position, std::size_t value) {
    bytes[position] = static_cast<std::uint8_t>(value >> 8);
    bytes[position + 1] = static_cast<std::uint8_t>(value);
}

// The sum of RFC 1071 over `size` bytes, added to `sum`.
std::uint32_t addWords(const std::uint8_t* bytes, std::size_t size, std::uint32_t sum) {
    for (std::size_t i = 0; i < size; ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(bytes[i]) << 8 : bytes[i];
    }
    return sum;
}

std::uint16_t finish(std::uint32_t sum) {
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

bool isV4(const asio::ip::address& address) {
    return address.is_v4() || address.to_v6().is_v4_mapped();
}

// The address of a socket for both families is one of IPv6; in a packet of IPv4 it stands as 0.0.0.0.
asio::ip::address_v4::bytes_type v4Bytes(const asio::ip::address& address) {
    if (!isV4(address)) {
        return {};
    }
    return (address.is_v4() ? address.to_v4()
                            : asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()))
        .to_bytes();
}

// RFC 791, 3.1
void appendV4Header(Bytes& packet, const Endpoint& from, const Endpoint& to, std::size_t udpSize) {
    constexpr std::size_t kHeaderSize = 20;
    constexpr std::size_t kChecksumOffset = 10;
    packet = {0x45, 0};  // version 4, 5 words, no service class
    append16(packet, kHeaderSize + udpSize);
    append16(packet, 0);       // identification
    append16(packet, 0x4000);  // not fragmented
    packet.insert(packet.end(), {kHopLimit, kUdp, 0, 0});
    const auto source = v4Bytes(from.address());
    const auto destination = v4Bytes(to.address());
    packet.insert(packet.end(), source.begin(), source.end());
    packet.insert(packet.end(), destination.begin(), destination.end());
    set16(packet, kChecksumOffset, finish(addWords(packet.data(), kHeaderSize, 0)));
}

// RFC 8200, 3
void appendV6Header(Bytes& packet, const Endpoint& from, const Endpoint& to, std::size_t udpSize) {
    packet = {0x60, 0, 0, 0};  // version 6
    append16(packet, udpSize);
    packet.insert(packet.end(), {kUdp, kHopLimit});
    for (const Endpoint& each : {from, to}) {
        const auto address = each.address().to_v6().to_bytes();
        packet.insert(packet.end(), address.begin(), address.end());
    }
}

}  // namespace

CCaptureFile::CCaptureFile(const std::string& path) : m_path(path) {
    m_handle = pcap_open_dead(DLT_RAW, kSnapLength);
    m_file = m_handle == nullptr ? nullptr : pcap_dump_open(m_handle, path.c_str());
    if (m_file == nullptr) {
        const std::string reason = m_handle == nullptr ? "no memory" : std::strerror(errno);
        if (m_handle != nullptr) {
            pcap_close(m_handle);
        }
        throw CHostError(fmt::format("cannot write '{}': {}", path, reason));
    }
    m_size = kFileHeaderSize;
    m_ends.push_back(m_size);
}

CCaptureFile::~CCaptureFile() {
    if (m_file != nullptr) {
        pcap_dump_close(m_file);
    }
    pcap_close(m_handle);
}

void CCaptureFile::add(const Endpoint& from, const Endpoint& to, kit::BytesView payload) {
    const bool isOverV4 = isV4(from.address()) || isV4(to.address());
    writeHeaders(from, to, isOverV4, payload.size());
    m_packet.insert(m_packet.end(), payload.begin(), payload.end());
    const std::size_t udp = m_packet.size() - payload.size() - kUdpHeaderSize;
    // The checksum covers the addresses too, which end right before the UDP header, its length and its
    // protocol. 0 stands for none, so a sum of 0 is sent as its complement (RFC 768).
    const std::size_t addresses = isOverV4 ? 8 : 32;
    const std::size_t length = m_packet.size() - udp;
    const std::uint16_t sum =
        finish(addWords(m_packet.data() + udp - addresses, m_packet.size() - udp + addresses,
                        static_cast<std::uint32_t>(length) + kUdp));
    set16(m_packet, udp + 6, sum == 0 ? 0xffff : sum);

    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
    pcap_pkthdr header{};
    header.ts.tv_sec = seconds.count();
    header.ts.tv_usec = std::chrono::duration_cast<std::chrono::microseconds>(now - seconds).count();
    header.caplen = header.len = static_cast<bpf_u_int32>(m_packet.size());
    pcap_dump(reinterpret_cast<u_char*>(m_file), &header, m_packet.data());
    m_size += kRecordHeaderSize + m_packet.size();
    m_ends.push_back(m_size);
    if (std::ferror(pcap_dump_file(m_file)) != 0) {
        fail();
    }
    if (m_size - m_ends.front() > kMaxUnwritten) {
        flush();
    }
}

void CCaptureFile::flush() {
    if (pcap_dump_flush(m_file) != 0) {
        fail();
    }
    m_ends.clear();
    m_ends.push_back(m_size);
}

void CCaptureFile::writeHeaders(const Endpoint& from, const Endpoint& to, bool isOverV4,
                                std::size_t payloadSize) {
    const std::size_t udpSize = kUdpHeaderSize + payloadSize;
    if (isOverV4) {
        appendV4Header(m_packet, from, to, udpSize);
    } else {
        appendV6Header(m_packet, from, to, udpSize);
    }
    append16(m_packet, from.port());
    append16(m_packet, to.port());
    append16(m_packet, udpSize);
    append16(m_packet, 0);  // the checksum, which is set when all is there
}

void CCaptureFile::fail() {
    std::string problem = fmt::format("cannot write '{}': {}", m_path, std::strerror(errno));
    pcap_dump_close(m_file);  // before the size is looked at: it writes what the buffer holds
    m_file = nullptr;
    struct stat status {};
    if (stat(m_path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
        const auto size = static_cast<std::size_t>(status.st_size);
        const auto end = std::upper_bound(m_ends.begin(), m_ends.end(), size);
        const std::size_t whole = end == m_ends.begin() ? 0 : *std::prev(end);
        if (truncate(m_path.c_str(), static_cast<off_t>(whole)) != 0) {
            problem += "; it ends with a part of a packet";
        }
    }
    throw CHostError(problem);
}

}  // namespace talrtp::host

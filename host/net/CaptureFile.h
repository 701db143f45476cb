// Writes datagrams to a capture file (pcap, link type "raw IP") as if they had been seen on the network, for
// Wireshark and tshark.

#ifndef TALRTP_HOST_NET_CAPTUREFILE_H
#define TALRTP_HOST_NET_CAPTUREFILE_H

#include "net/Address.h"

#include <talrtp/kit/BytesView.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

struct pcap;
struct pcap_dumper;

namespace talrtp::host {

class CCaptureFile {
public:
    // Throws CHostError when the file cannot be written.
    explicit CCaptureFile(const std::string& path);
    ~CCaptureFile();
    CCaptureFile(const CCaptureFile&) = delete;
    CCaptureFile& operator=(const CCaptureFile&) = delete;

    // Adds a datagram with the current wall-clock time. When one of the addresses is IPv4, or IPv4 within
    // IPv6, so is the packet. Throws CHostError when the disk is full. The file then ends with the last
    // packet that is whole, and the only thing left to do is to destroy the object.
    void add(const Endpoint& from, const Endpoint& to, kit::BytesView payload);

    // Writes out what is buffered. Throws CHostError likewise.
    void flush();

private:
    void writeHeaders(const Endpoint& from, const Endpoint& to, bool isOverV4, std::size_t payloadSize);
    // Ends the file with its last whole packet, and throws.
    [[noreturn]] void fail();

    std::string m_path;
    pcap* m_handle = nullptr;
    pcap_dumper* m_file = nullptr;
    std::vector<std::uint8_t> m_packet;
    std::size_t m_size = 0;          // of the file when all is written out
    std::deque<std::size_t> m_ends;  // of the packets that may not have been written out
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_NET_CAPTUREFILE_H

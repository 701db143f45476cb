#include "inspect/CaptureReader.h"

#include "HostError.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <array>
#include <filesystem>

namespace talrtp::host::inspect {

namespace {

LinkLayer linkOf(int type, const std::string& path) {
    switch (type) {
        case DLT_EN10MB:
            return LinkLayer::kEthernet;
        case DLT_LINUX_SLL:
            return LinkLayer::kCooked;
        case DLT_LINUX_SLL2:
            return LinkLayer::kCooked2;
        case DLT_NULL:
        case DLT_LOOP:
            return LinkLayer::kNull;
        case DLT_RAW:
        case DLT_IPV4:
        case DLT_IPV6:
            return LinkLayer::kRaw;
        default:
            break;
    }
    const char* const name = pcap_datalink_val_to_name(type);
    throw CHostError(fmt::format("cannot read '{}': captures of link type {} are not supported", path,
                                 name != nullptr ? std::string(name) : std::to_string(type)));
}

}  // namespace

void CCaptureReader::Close::operator()(pcap* handle) const {
    pcap_close(handle);
}

CCaptureReader::CCaptureReader(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw CHostError(fmt::format("cannot read '{}': it is a directory", path));
    }
    std::array<char, PCAP_ERRBUF_SIZE> reason{};
    m_handle.reset(
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason.data()));
    if (!m_handle) {
        std::string text = reason.data();
        if (const std::string prefix = path + ": "; text.compare(0, prefix.size(), prefix) == 0) {
            text.erase(0, prefix.size());
        }
        throw CHostError(fmt::format("cannot read '{}' as a capture (pcap or pcapng): {}", path, text));
    }
    m_link = linkOf(pcap_datalink(m_handle.get()), path);
}

std::optional<CCaptureReader::Record> CCaptureReader::next() {
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    const int result = pcap_next_ex(m_handle.get(), &header, &bytes);
    if (result == 1) {
        return Record{std::chrono::seconds(header->ts.tv_sec) + std::chrono::nanoseconds(header->ts.tv_usec),
                      kit::BytesView(bytes, header->caplen)};
    }
    if (result == PCAP_ERROR) {
        m_problem = pcap_geterr(m_handle.get());
    }
    return std::nullopt;
}

}  // namespace talrtp::host::inspect

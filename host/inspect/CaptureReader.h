// A pcap or pcapng file, read one frame at a time.

#ifndef TALRTP_HOST_INSPECT_CAPTUREREADER_H
#define TALRTP_HOST_INSPECT_CAPTUREREADER_H

#include "inspect/Frame.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

struct pcap;

namespace talrtp::host::inspect {

class CCaptureReader {
public:
    struct Record {
        std::chrono::nanoseconds time{};  // since 1970
        kit::BytesView bytes;             // lent until the next call of `next`
    };

    // Throws CHostError when `path` is no capture, or one of a link that cannot be read.
    explicit CCaptureReader(const std::string& path);

    // Returns the next frame, or none at the end and where the file breaks off.
    std::optional<Record> next();

    LinkLayer link() const { return m_link; }

    // Why no frame follows the last one: empty at a proper end.
    const std::string& problem() const { return m_problem; }

private:
    struct Close {
        void operator()(pcap* handle) const;
    };

    std::unique_ptr<pcap, Close> m_handle;
    LinkLayer m_link = LinkLayer::kRaw;
    std::string m_problem;
};

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_CAPTUREREADER_H

// Reads a byte stream from a file or a pipe and cuts it into pictures.

#ifndef TALRTP_HOST_SEND_PICTURESOURCE_H
#define TALRTP_HOST_SEND_PICTURESOURCE_H

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/BytesView.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::host {

// The units of one picture, owned.
class CStoredPicture {
public:
    explicit CStoredPicture(const kit::AccessUnit& unit);

    // The units in decoding order, without start codes. Valid as long as this object, also after a move.
    const std::vector<kit::BytesView>& units() const { return m_units; }

private:
    std::vector<std::uint8_t> m_bytes;
    std::vector<kit::BytesView> m_units;
};

class CPictureSource {
public:
    // `path`: a file, or "-" for standard input. `rounds`: how often a file is read from its beginning; 0 for
    // without end. Throws CHostError when it cannot be read, or is no regular file and `rounds` is not 1.
    CPictureSource(asio::io_context& io, const std::string& path, std::uint64_t rounds);
    ~CPictureSource();
    CPictureSource(const CPictureSource&) = delete;
    CPictureSource& operator=(const CPictureSource&) = delete;

    // A pipe or the like, which delivers when it wants to.
    bool isLive() const { return m_stream.has_value(); }

    // Returns the next picture. Nothing at the end, and when a live input has to be waited for. Throws
    // CHostError when reading fails, or when the input ends and was no H.264 byte stream.
    std::optional<CStoredPicture> take();

    bool isAtEnd() const { return m_isAtEnd && m_pictures.empty(); }

    // Waits for a live input and reads what it has; then calls `handle`. `take` may still return nothing.
    void waitForMore(std::function<void()> handle);

    // Ends a wait without calling its handler.
    void cancel();

    std::uint64_t oversizeUnits() const { return m_splitter.oversizeUnits(); }

private:
    void open(asio::io_context& io);
    // Reads once, if there is something to read.
    void read();
    void finishRound();

    std::string m_path;
    int m_descriptor = -1;  // of a file; a live input has m_stream
    std::optional<asio::posix::stream_descriptor> m_stream;
    std::uint64_t m_rounds;  // left, the one under way included; 0 for without end
    std::vector<std::uint8_t> m_chunk;
    kit::AccessUnitSplitter m_splitter;
    std::deque<CStoredPicture> m_pictures;
    bool m_isAtEnd = false;
    bool m_hasPicture = false;
    std::uint64_t m_bytesRead = 0;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SEND_PICTURESOURCE_H

// Writes pictures to a file or a pipe: whole ones only. A pipe whose reader is slow costs pictures, not
// memory.

#ifndef TALRTP_HOST_RECV_PICTURESINK_H
#define TALRTP_HOST_RECV_PICTURESINK_H

#include <talrtp/kit/BytesView.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace talrtp::host {

class CPictureSink {
public:
    // A pipe gets at most so many bytes of waiting pictures, or one picture that is larger.
    static constexpr std::size_t kMaxWaitingBytes = 8 * 1024 * 1024;

    // `path`: a file, which is emptied, a pipe or a device, or "-" for standard output. Throws CHostError
    // when it cannot be opened.
    CPictureSink(asio::io_context& io, const std::string& path);
    ~CPictureSink();
    CPictureSink(const CPictureSink&) = delete;
    CPictureSink& operator=(const CPictureSink&) = delete;

    // Copies the picture, to be written, or drops it when too much waits already or writing failed before.
    void add(kit::BytesView picture);

    // Writes what waits and can be written without waiting: to a file everything.
    void flush();

    // The same for a pipe, whose reader wants each picture at once. A file is written in larger pieces.
    void flushIfPipe() {
        if (!m_isRegular) {
            flush();
        }
    }

    // Writes what waits; a reader of a pipe that takes nothing for a while loses the rest.
    void finish();

    // Returns why writing ended before its time, or nothing. A file then ends with the last picture that is
    // whole in it.
    const std::optional<std::string>& error() const { return m_error; }

    std::uint64_t pictures() const { return m_pictures; }
    std::uint64_t bytes() const { return m_bytes; }
    std::uint64_t droppedPictures() const { return m_dropped; }

private:
    void openPath(const std::string& path);
    void openStandardOutput();
    void watch(asio::io_context& io);
    void writeSome();
    void consume(std::size_t size);
    void fail(int error);
    void waitUntilWritable();

    std::string m_path;
    int m_descriptor = -1;
    bool m_isRegular = false;
    std::int64_t m_begin = 0;                                // position of the first byte in a file
    bool m_restoresBlocking = false;                         // of a descriptor that others share
    std::optional<asio::posix::stream_descriptor> m_stream;  // of what can be waited for
    bool m_isWaiting = false;

    std::vector<std::uint8_t> m_buffer;
    std::size_t m_written = 0;       // of m_buffer
    std::deque<std::size_t> m_ends;  // of the pictures in m_buffer that are not whole in the output yet
    std::uint64_t m_writtenBytes = 0;
    std::optional<std::string> m_error;
    std::uint64_t m_pictures = 0;  // whole in the output
    std::uint64_t m_bytes = 0;     // up to the end of the last of them
    std::uint64_t m_dropped = 0;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_PICTURESINK_H

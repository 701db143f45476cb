#include "recv/PictureSink.h"

#include "HostError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace talrtp::host {

namespace {

// A file is written in pieces of this size, to spare calls of the system.
constexpr std::size_t kFileBatch = 256 * 1024;
// How long the reader of a pipe may take nothing at the end.
constexpr int kFinishWaitMs = 1000;

}  // namespace

CPictureSink::CPictureSink(asio::io_context& io, const std::string& path) : m_path(path) {
    if (path == "-") {
        m_path = "standard output";
        openStandardOutput();
    } else {
        openPath(path);
    }
    struct stat status {};
    fstat(m_descriptor, &status);
    m_isRegular = S_ISREG(status.st_mode);
    if (m_isRegular) {
        // Standard output may be a file that holds something already.
        const bool isAppending = (fcntl(m_descriptor, F_GETFL) & O_APPEND) != 0;
        m_begin = isAppending ? status.st_size : lseek(m_descriptor, 0, SEEK_CUR);
    } else {
        watch(io);
    }
}

CPictureSink::~CPictureSink() {
    if (m_stream) {
        m_stream->release();
    }
    if (m_restoresBlocking) {
        fcntl(m_descriptor, F_SETFL, fcntl(m_descriptor, F_GETFL) & ~O_NONBLOCK);
    }
    close(m_descriptor);
}

void CPictureSink::openPath(const std::string& path) {
    constexpr int kReadWriteForAll = 0666;
    // A pipe is opened to write and waits for its reader.
    m_descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kReadWriteForAll);
    if (m_descriptor < 0) {
        throw CHostError(fmt::format("cannot write '{}': {}", path, std::strerror(errno)));
    }
}

// Whether writing waits belongs to the open pipe, which other programs may share. Opened again, it is ours.
void CPictureSink::openStandardOutput() {
    struct stat status {};
    const bool isPipe = fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
    m_descriptor = isPipe ? open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (m_descriptor < 0) {
        m_descriptor = dup(STDOUT_FILENO);
    }
    if (m_descriptor < 0) {
        throw CHostError(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
    }
}

// A device that is always ready, such as /dev/null, cannot be waited for, and need not be.
void CPictureSink::watch(asio::io_context& io) {
    m_restoresBlocking = (fcntl(m_descriptor, F_GETFL) & O_NONBLOCK) == 0;
    asio::error_code error;
    m_stream.emplace(io);
    m_stream->assign(m_descriptor, error);
    if (!error) {
        m_stream->native_non_blocking(true, error);
    }
    if (error) {
        m_stream.reset();
        m_restoresBlocking = false;
    }
}

void CPictureSink::add(kit::BytesView picture) {
    const std::size_t waiting = m_buffer.size() - m_written;
    const bool isFull = m_stream && waiting > 0 && waiting + picture.size() > kMaxWaitingBytes;
    if (m_error || isFull) {
        ++m_dropped;
        return;
    }
    m_buffer.insert(m_buffer.end(), picture.begin(), picture.end());
    m_ends.push_back(m_buffer.size());
    if (!m_stream && waiting + picture.size() >= kFileBatch) {
        flush();
    }
}

void CPictureSink::flush() {
    if (!m_isWaiting) {
        writeSome();
    }
    if (m_stream && !m_error && m_written < m_buffer.size() && !m_isWaiting) {
        waitUntilWritable();
    }
}

void CPictureSink::finish() {
    writeSome();
    while (!m_error && m_written < m_buffer.size()) {
        pollfd ready{m_descriptor, POLLOUT, 0};
        if (poll(&ready, 1, kFinishWaitMs) == 0) {
            break;
        }
        writeSome();
    }
    m_dropped += m_ends.size();
    m_ends.clear();
}

void CPictureSink::writeSome() {
    while (!m_error && m_written < m_buffer.size()) {
        const ssize_t size = write(m_descriptor, m_buffer.data() + m_written, m_buffer.size() - m_written);
        if (size >= 0) {
            consume(static_cast<std::size_t>(size));
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
    // Moving what is left for each piece that a slow reader takes would cost more than the writing.
    if (m_written >= m_buffer.size() - m_written) {
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(m_written));
        for (std::size_t& end : m_ends) {
            end -= m_written;
        }
        m_written = 0;
    }
}

void CPictureSink::consume(std::size_t size) {
    m_writtenBytes += size;
    m_written += size;
    for (; !m_ends.empty() && m_ends.front() <= m_written; m_ends.pop_front()) {
        m_bytes = m_writtenBytes - (m_written - m_ends.front());
        ++m_pictures;
    }
}

void CPictureSink::fail(int error) {
    m_error = error == EPIPE ? fmt::format("the reader of {} went away", m_path)
                             : fmt::format("cannot write '{}': {}", m_path, std::strerror(error));
    m_dropped += m_ends.size();
    m_ends.clear();
    m_written = m_buffer.size();
    if (m_isRegular && ftruncate(m_descriptor, m_begin + static_cast<off_t>(m_bytes)) != 0) {
        *m_error += "; it ends with a part of a picture";
    }
}

void CPictureSink::waitUntilWritable() {
    m_isWaiting = true;
    m_stream->async_wait(asio::posix::stream_descriptor::wait_write, [this](const asio::error_code& error) {
        m_isWaiting = false;
        if (!error) {
            flush();
        }
    });
}

}  // namespace talrtp::host

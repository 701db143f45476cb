#include "send/PictureSource.h"

#include "HostError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace talrtp::host {

namespace {

constexpr std::size_t kChunkSize = 64 * 1024;  // as much as a pipe holds

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw CHostError(fmt::format("cannot read '{}': {}", path == "-" ? "standard input" : path, reason));
}

// Tells whether a byte stream can begin so (ITU-T H.264, B.1.1): with zeros, at least two, a 1, and the
// header of a NAL unit, whose first bit is 0. A file of another kind may well have a start code somewhere
// inside.
bool beginsLikeStream(kit::BytesView bytes) {
    std::size_t zeros = 0;
    while (zeros < bytes.size() && bytes[zeros] == 0) {
        ++zeros;
    }
    const kit::BytesView rest = bytes.subview(zeros);
    return rest.empty() || (zeros >= 2 && rest[0] == 1 && (rest.size() == 1 || rest[1] < 0x80));
}

}  // namespace

CStoredPicture::CStoredPicture(const kit::AccessUnit& unit) {
    const kit::BytesView all = unit.annexB();
    m_bytes.assign(all.begin(), all.end());
    m_units.reserve(unit.units().size());
    for (const kit::BytesView& each : unit.units()) {
        m_units.emplace_back(m_bytes.data() + (each.data() - all.data()), each.size());
    }
}

CPictureSource::CPictureSource(asio::io_context& io, const std::string& path, std::uint64_t rounds)
    : m_path(path),
      m_rounds(rounds),
      m_chunk(kChunkSize),
      m_splitter([this](const kit::AccessUnit& unit) { m_pictures.emplace_back(unit); }) {
    open(io);
    if (isLive() && rounds != 1) {
        throw CHostError(fmt::format("'{}' cannot be read again from its beginning", path));
    }
}

CPictureSource::~CPictureSource() {
    if (m_descriptor > STDERR_FILENO) {
        close(m_descriptor);
    }
}

void CPictureSource::open(asio::io_context& io) {
    m_descriptor = m_path == "-" ? STDIN_FILENO : ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0) {
        fail(m_path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        close(m_descriptor);
        fail(m_path, "it is a directory");
    }
    if (S_ISREG(status.st_mode)) {
        return;
    }
    // The stream closes its descriptor, and standard input belongs to others too.
    const int descriptor = m_descriptor == STDIN_FILENO ? dup(STDIN_FILENO) : m_descriptor;
    m_descriptor = -1;
    asio::error_code error;
    m_stream.emplace(io);
    m_stream->assign(descriptor, error);
    if (error) {  // what epoll cannot wait for, such as /dev/null, is always ready
        m_stream.reset();
        m_descriptor = descriptor;
    }
}

std::optional<CStoredPicture> CPictureSource::take() {
    while (!isLive() && m_pictures.empty() && !m_isAtEnd) {
        read();
    }
    if (m_pictures.empty()) {
        return std::nullopt;
    }
    m_hasPicture = true;
    std::optional<CStoredPicture> next(std::move(m_pictures.front()));
    m_pictures.pop_front();
    return next;
}

void CPictureSource::waitForMore(std::function<void()> handle) {
    m_stream->async_wait(asio::posix::stream_descriptor::wait_read,
                         [this, handle = std::move(handle)](const asio::error_code& error) {
                             if (!error) {
                                 read();
                                 handle();
                             }
                         });
}

void CPictureSource::cancel() {
    if (isLive()) {
        asio::error_code ignored;
        m_stream->cancel(ignored);
    }
}

void CPictureSource::read() {
    const int descriptor = isLive() ? m_stream->native_handle() : m_descriptor;
    const ssize_t size = ::read(descriptor, m_chunk.data(), m_chunk.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (size < 0) {
        fail(m_path, std::strerror(errno));
    }
    if (size == 0) {
        finishRound();
        return;
    }
    const kit::BytesView chunk(m_chunk.data(), static_cast<std::size_t>(size));
    if (!isLive() && m_bytesRead == 0 && !beginsLikeStream(chunk)) {
        fail(m_path, "no H.264 byte stream: it does not begin with a start code (00 00 01) and a unit");
    }
    m_bytesRead += chunk.size();
    m_splitter.push(chunk);
}

void CPictureSource::finishRound() {
    m_splitter.finish();
    if (m_bytesRead == 0) {
        fail(m_path, "it is empty");
    }
    if (!m_splitter.hasStartCode()) {
        fail(m_path, "no H.264 byte stream: there is no start code (00 00 01)");
    }
    if (m_pictures.empty() && !m_hasPicture) {
        fail(m_path, "no H.264 byte stream: there is no NAL unit in it");
    }
    if (m_rounds == 1) {
        m_isAtEnd = true;
        return;
    }
    m_rounds -= m_rounds > 0 ? 1 : 0;
    if (lseek(m_descriptor, 0, SEEK_SET) != 0) {
        fail(m_path, std::strerror(errno));
    }
}

}  // namespace talrtp::host

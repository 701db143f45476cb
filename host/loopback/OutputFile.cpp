#include "loopback/OutputFile.h"

#include "HostError.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace talrtp::host {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw CHostError(fmt::format("cannot write '{}': {}", path, reason));
}

// The permissions of a new file under the user's umask; mkstemp grants fewer.
mode_t defaultMode() {
    constexpr mode_t kReadWriteForAll = 0666;
    const mode_t mask = umask(0);
    umask(mask);
    return kReadWriteForAll & ~mask;
}

}  // namespace

COutputFile::COutputFile(const std::string& path) : m_path(path) {
    std::error_code error;
    m_target = std::filesystem::weakly_canonical(path, error).string();
    if (error) {
        fail(m_path, error.message());
    }
    const std::filesystem::file_status status = std::filesystem::status(m_target, error);
    if (std::filesystem::is_directory(status)) {
        fail(m_path, "it is a directory");
    }
    m_temporaryPath = m_target;
    if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) {
        makeTemporary();
    }
    m_stream.open(m_temporaryPath, std::ios::binary | std::ios::trunc);
    if (!m_stream) {
        fail(m_path, std::strerror(errno));
    }
}

COutputFile::~COutputFile() {
    m_stream.close();
    if (m_isTemporary) {
        std::remove(m_temporaryPath.c_str());
    }
}

void COutputFile::makeTemporary() {
    if (access(m_target.c_str(), F_OK) == 0 && access(m_target.c_str(), W_OK) != 0) {
        fail(m_path, std::strerror(errno));
    }
    const std::string pattern = m_target + ".XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0) {
        fail(m_path, std::strerror(errno));
    }
    fchmod(descriptor, defaultMode());
    close(descriptor);
    m_temporaryPath = name.data();
    m_isTemporary = true;
}

void COutputFile::commit() {
    m_stream.close();
    if (!m_stream) {
        fail(m_path, std::strerror(errno));
    }
    if (m_isTemporary && std::rename(m_temporaryPath.c_str(), m_target.c_str()) != 0) {
        fail(m_path, std::strerror(errno));
    }
    m_isTemporary = false;
}

}  // namespace talrtp::host

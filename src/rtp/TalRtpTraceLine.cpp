#include "TalRtpTraceLine.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

// The defaults that apply when the host defines no trace facility of its own. A definition in the host
// program takes precedence over a weak one in a shared library.
extern "C" {

__attribute__((weak)) int get_external_trace_mask(void) {
    return -1;
}

__attribute__((weak)) void util_adapter_trace(int /*level*/, const char* /*tag*/, const char* /*text*/,
                                              unsigned int /*length*/) {}

}  // extern "C"

namespace talrtp {

namespace {

constexpr char kModuleTag[] = "TAL";
constexpr const char* kLevelWords[] = {"ERROR: ", "WARNING: ", "INFO: "};

// Writes the digits of `value` so that they end at `end`; returns the first one.
char* writeDigits(char* end, std::uint64_t value, unsigned int base) {
    char* digit = end;
    do {
        *--digit = "0123456789abcdef"[value % base];
        value /= base;
    } while (value != 0);
    return digit;
}

constexpr std::size_t kMaxDigits = 24;

}  // namespace

CTraceLine::CTraceLine(ETraceLevel level) : m_level(level), m_length(0) {
    *this << "[" << kModuleTag << "] " << kLevelWords[level] << "[TalRtp]: ";
}

CTraceLine& CTraceLine::operator<<(const char* text) {
    append(text, std::strlen(text));
    return *this;
}

CTraceLine& CTraceLine::operator<<(const void* pointer) {
    char digits[kMaxDigits];
    char* const end = digits + kMaxDigits;
    const char* const first = writeDigits(end, reinterpret_cast<std::uintptr_t>(pointer), 16);
    *this << "0x";
    append(first, static_cast<std::size_t>(end - first));
    return *this;
}

CTraceLine& CTraceLine::operator<<(long value) {
    if (value >= 0) {
        return *this << static_cast<unsigned long>(value);
    }
    return *this << "-" << (0UL - static_cast<unsigned long>(value));
}

CTraceLine& CTraceLine::operator<<(unsigned long value) {
    char digits[kMaxDigits];
    char* const end = digits + kMaxDigits;
    const char* const first = writeDigits(end, value, 10);
    append(first, static_cast<std::size_t>(end - first));
    return *this;
}

void CTraceLine::send() {
    m_text[m_length] = '\0';
    util_adapter_trace(static_cast<int>(m_level), kModuleTag, m_text, static_cast<unsigned int>(m_length));
}

void CTraceLine::send(const char* file, int line) {
    *this << "[" << file << ":" << line << "]";
    send();
}

void CTraceLine::append(const char* text, std::size_t length) {
    const std::size_t fitting = std::min(length, kCapacity - 1 - m_length);
    std::memcpy(m_text + m_length, text, fitting);
    m_length += fitting;
}

}  // namespace talrtp

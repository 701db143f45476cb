#include "TraceCatcher.h"

#include <talrtp/TalRtpTrace.h>

namespace talrtp {
namespace test {

namespace {

TraceCatcher* s_innermost = nullptr;

}  // namespace

std::string TraceLine::message() const {
    static const std::string kPrefixEnd = "[TalRtp]: ";
    const std::size_t prefix = text.find(kPrefixEnd);
    const std::size_t begin = prefix == std::string::npos ? 0 : prefix + kPrefixEnd.size();
    const std::size_t position = text.rfind("[src/rtp/");
    const bool hasPosition = position != std::string::npos && position >= begin && text.back() == ']';
    return hasPosition ? text.substr(begin, position - begin) : text.substr(begin);
}

std::string TraceLine::position() const {
    const std::size_t begin = text.rfind("[src/rtp/");
    const bool hasPosition = begin != std::string::npos && text.back() == ']';
    return hasPosition ? text.substr(begin + 1, text.size() - begin - 2) : std::string();
}

std::ostream& operator<<(std::ostream& out, const TraceLine& line) {
    return out << line.level << " " << line.tag << " \"" << line.text << "\" (" << line.length << ")";
}

TraceCatcher::TraceCatcher(int mask) : m_mask(mask), m_maskCalls(0), m_outer(s_innermost) {
    s_innermost = this;
}

TraceCatcher::~TraceCatcher() {
    s_innermost = m_outer;
}

std::vector<std::string> TraceCatcher::messages() const {
    std::vector<std::string> result;
    for (const TraceLine& line : m_lines) {
        result.push_back(line.message());
    }
    return result;
}

std::vector<std::string> TraceCatcher::messages(int level) const {
    std::vector<std::string> result;
    for (const TraceLine& line : m_lines) {
        if (line.level == level) {
            result.push_back(line.message());
        }
    }
    return result;
}

int TraceCatcher::answerMask() {
    if (s_innermost == nullptr) {
        return -1;
    }
    ++s_innermost->m_maskCalls;
    return s_innermost->m_mask;
}

void TraceCatcher::record(int level, const char* tag, const char* text, unsigned int length) {
    if (s_innermost != nullptr) {
        s_innermost->m_lines.push_back({level, tag, text, length});
        if (s_innermost->onLine) {
            s_innermost->onLine(s_innermost->m_lines.back());
        }
    }
}

}  // namespace test
}  // namespace talrtp

extern "C" {

int get_external_trace_mask(void) {
    return talrtp::test::TraceCatcher::answerMask();
}

void util_adapter_trace(int level, const char* tag, const char* text, unsigned int length) {
    talrtp::test::TraceCatcher::record(level, tag, text, length);
}

}  // extern "C"

// The trace lines that a test expects, without the number of the source line.

#ifndef TALRTP_TESTS_EXPECTEDLINE_H
#define TALRTP_TESTS_EXPECTEDLINE_H

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ostream>
#include <string>

#include "Datagrams.h"
#include "TraceCatcher.h"

namespace talrtp {
namespace test {

// A pointer as a trace line prints it.
inline std::string printed(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%lx", reinterpret_cast<unsigned long>(pointer));
    return text;
}

struct ExpectedLine {
    int level;
    std::string message;
    std::string file;  // how the source file's name begins; empty when the line has no position
};

inline std::ostream& operator<<(std::ostream& out, const ExpectedLine& line) {
    return out << line.level << " \"" << line.message << "\" from " << line.file;
}

constexpr char kSessionSources[] = "TalRtpSession";  // and its siblings, a stage each

inline ExpectedLine error(const std::string& message, const std::string& file = kSessionSources) {
    return {0, message, file};
}
inline ExpectedLine warning(const std::string& message, const std::string& file = kSessionSources) {
    return {1, message, file};
}
inline ExpectedLine info(const std::string& message, const std::string& file = kSessionSources) {
    return {2, message, file};
}

// The line that the session emits for every received FEC packet, after it was processed.
inline ExpectedLine fecArrived(unsigned int payloadType = kFecType) {
    const std::string type = std::to_string(payloadType);
    return error(
        "CMMRTPSessionBase::InputReceivedData payload type is FEC, but memomy alligned according to DATA. "
        "pHeader->ph_pt = " +
        type + ",  m_fecPayloadType  = " + type);
}

// Tells whether `text` is "[src/rtp/", a name that begins with `file`, ".cpp:", a line number and "]".
inline bool isPosition(const std::string& text, const std::string& file) {
    const std::string opening = "[src/rtp/" + file;
    const std::size_t dot = text.find(".cpp:");
    if (text.compare(0, opening.size(), opening) != 0 || dot == std::string::npos || text.back() != ']') {
        return false;
    }
    const std::string rest = text.substr(opening.size(), dot - opening.size());
    const std::string line = text.substr(dot + 5, text.size() - dot - 6);
    const auto isWord = [](unsigned char c) { return std::isalnum(c) != 0; };
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    return std::all_of(rest.begin(), rest.end(), isWord) && !line.empty() &&
           std::all_of(line.begin(), line.end(), isDigit);
}

MATCHER_P(IsLine, expected, testing::PrintToString(expected)) {
    static const char* const kWords[] = {"ERROR: ", "WARNING: ", "INFO: "};
    const TraceLine& line = arg;
    const std::string opening =
        std::string("[TAL] ") + kWords[expected.level] + "[TalRtp]: " + expected.message;
    if (line.level != expected.level || line.tag != "TAL" || line.length != line.text.size() ||
        line.text.compare(0, opening.size(), opening) != 0) {
        return false;
    }
    const std::string closing = line.text.substr(opening.size());
    return expected.file.empty() ? closing.empty() : isPosition(closing, expected.file);
}

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_EXPECTEDLINE_H

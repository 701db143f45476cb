// The host's side of the trace facility for test programs: records every line the library emits.
//
//   talrtp::test::TraceCatcher trace(2);            // mask 2: ERROR, WARNING and INFO
//   packet.validate();
//   EXPECT_THAT(trace.messages(), ElementsAre("CTalRtpPacket::validate, padding is zero"));
//
// The header defines the two C functions of the facility, so one source file per program includes it. While
// no catcher is alive the mask is -1 and nothing is recorded. Catchers nest; the innermost one records.

#ifndef TALRTP_TESTS_TRACECATCHER_H
#define TALRTP_TESTS_TRACECATCHER_H

#include <talrtp/TalRtpTrace.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace talrtp {
namespace test {

// One call of `util_adapter_trace`, with `length` as it was passed.
struct TraceLine {
    int level;
    std::string tag;
    std::string text;
    unsigned int length;

    // The text without "[TAL] WARNING: [TalRtp]: " before and "[file:line]" after it; a line that has no
    // position keeps its end.
    std::string message() const {
        static const std::string kPrefixEnd = "[TalRtp]: ";
        const std::size_t prefix = text.find(kPrefixEnd);
        const std::size_t begin = prefix == std::string::npos ? 0 : prefix + kPrefixEnd.size();
        const std::size_t position = text.rfind("[src/rtp/");
        const bool hasPosition = position != std::string::npos && position >= begin && text.back() == ']';
        return hasPosition ? text.substr(begin, position - begin) : text.substr(begin);
    }

    // The "file:line" at the end, or nothing when the line has none.
    std::string position() const {
        const std::size_t begin = text.rfind("[src/rtp/");
        const bool hasPosition = begin != std::string::npos && text.back() == ']';
        return hasPosition ? text.substr(begin + 1, text.size() - begin - 2) : std::string();
    }
};

inline std::ostream& operator<<(std::ostream& out, const TraceLine& line) {
    return out << line.level << " " << line.tag << " \"" << line.text << "\" (" << line.length << ")";
}

class TraceCatcher {
public:
    explicit TraceCatcher(int mask) : m_mask(mask), m_maskCalls(0), m_outer(current()) { current() = this; }
    ~TraceCatcher() { current() = m_outer; }
    TraceCatcher(const TraceCatcher&) = delete;
    TraceCatcher& operator=(const TraceCatcher&) = delete;

    void setMask(int mask) { m_mask = mask; }
    void clear() { m_lines.clear(); }

    const std::vector<TraceLine>& lines() const { return m_lines; }

    // The messages alone, of every level.
    std::vector<std::string> messages() const {
        std::vector<std::string> result;
        for (const TraceLine& line : m_lines) {
            result.push_back(line.message());
        }
        return result;
    }

    // The messages of one level: 0 ERROR, 1 WARNING, 2 INFO.
    std::vector<std::string> messages(int level) const {
        std::vector<std::string> result;
        for (const TraceLine& line : m_lines) {
            if (line.level == level) {
                result.push_back(line.message());
            }
        }
        return result;
    }

    // How often the library asked for the mask while this catcher was the innermost one.
    int maskCalls() const { return m_maskCalls; }

    // Called with each line while the library emits it, in the middle of its work.
    std::function<void(const TraceLine&)> onLine;

    // The C functions below call these on behalf of the innermost catcher.
    static int answerMask() {
        if (current() == nullptr) {
            return -1;
        }
        ++current()->m_maskCalls;
        return current()->m_mask;
    }
    static void record(int level, const char* tag, const char* text, unsigned int length) {
        if (current() != nullptr) {
            current()->m_lines.push_back({level, tag, text, length});
            if (current()->onLine) {
                current()->onLine(current()->m_lines.back());
            }
        }
    }

private:
    static TraceCatcher*& current() {
        static TraceCatcher* innermost = nullptr;
        return innermost;
    }

    int m_mask;
    int m_maskCalls;
    TraceCatcher* m_outer;
    std::vector<TraceLine> m_lines;
};

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

#endif  // TALRTP_TESTS_TRACECATCHER_H

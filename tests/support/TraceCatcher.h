// The host's side of the trace facility for test programs: records every line the library emits.
//
//   talrtp::test::TraceCatcher trace(2);            // mask 2: ERROR, WARNING and INFO
//   packet.validate();
//   EXPECT_THAT(trace.messages(), ElementsAre("CTalRtpPacket::validate, padding is zero"));
//
// While no catcher is alive the mask is -1 and nothing is recorded. Catchers nest; the innermost one records.

#ifndef TALRTP_TESTS_TRACECATCHER_H
#define TALRTP_TESTS_TRACECATCHER_H

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
    std::string message() const;
    // The "file:line" at the end, or nothing when the line has none.
    std::string position() const;
};

std::ostream& operator<<(std::ostream& out, const TraceLine& line);

class TraceCatcher {
public:
    explicit TraceCatcher(int mask);
    ~TraceCatcher();
    TraceCatcher(const TraceCatcher&) = delete;
    TraceCatcher& operator=(const TraceCatcher&) = delete;

    void setMask(int mask) { m_mask = mask; }
    void clear() { m_lines.clear(); }

    const std::vector<TraceLine>& lines() const { return m_lines; }

    // The messages of every level.
    std::vector<std::string> messages() const;
    // The messages of one level: 0 ERROR, 1 WARNING, 2 INFO.
    std::vector<std::string> messages(int level) const;

    // How often the library asked for the mask while this catcher was the innermost one.
    int maskCalls() const { return m_maskCalls; }

    // Called with each line while the library emits it, in the middle of its work.
    std::function<void(const TraceLine&)> onLine;

    // The facility's two functions call these on behalf of the innermost catcher.
    static int answerMask();
    static void record(int level, const char* tag, const char* text, unsigned int length);

private:
    int m_mask;
    int m_maskCalls;
    TraceCatcher* m_outer;
    std::vector<TraceLine> m_lines;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_TRACECATCHER_H

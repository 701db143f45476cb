// Trace lines out of any pieces: the text is that of the pieces in plain words, cut at 1023 characters, and
// it comes with its length. Compiles the class, which the library keeps for itself.

#include "FuzzSupport.h"
#include "TalRtpTraceLine.h"
#include "TraceCatcher.h"

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace talrtp {
namespace fuzz {
namespace {

constexpr std::size_t kLongest = 1023;

template <typename Value>
std::string printed(const char* format, Value value) {
    char text[32];
    const int length = std::snprintf(text, sizeof text, format, value);
    return std::string(text, static_cast<std::size_t>(length));
}

class Line {
public:
    explicit Line(InputReader& input)
        : m_input(input), m_level(input.within(0, 2)), m_line(levelOf(m_level)) {
        static const char* const kWords[] = {"ERROR", "WARNING", "INFO"};
        m_expected = std::string("[TAL] ") + kWords[m_level] + ": [TalRtp]: ";
    }

    void addPieces() {
        while (m_input.size() > 0) {
            addPiece();
        }
    }

    void send() {
        test::TraceCatcher trace(2);
        if (m_input.flag()) {
            const std::string file = textOf(m_input.within<std::size_t>(0, 40));
            const int line = m_input.any<int>();
            m_line.send(file.c_str(), line);
            m_expected += "[" + file + ":" + printed("%d", line) + "]";
        } else {
            m_line.send();
        }
        const std::string expected = m_expected.substr(0, kLongest);
        require(trace.lines().size() == 1, "a line is given once");
        require(trace.lines()[0].text == expected, "a line is its pieces, cut at its end");
        require(trace.lines()[0].length == expected.size(), "it tells its length");
        require(trace.lines()[0].level == m_level && trace.lines()[0].tag == "TAL", "and its level and tag");
    }

private:
    static ETraceLevel levelOf(int level) {
        return level == 0 ? TRACE_ERROR : level == 1 ? TRACE_WARNING : TRACE_INFO;
    }

    void addPiece() {
        switch (m_input.within(0, 6)) {
            case 0:
                return add("%d", m_input.any<int>());
            case 1:
                return add("%ld", m_input.any<long>());
            case 2:
                return add("%u", m_input.any<unsigned int>());
            case 3:
                return add("%lu", m_input.any<unsigned long>());
            case 4:
                return addPointer(m_input.any<std::uintptr_t>());
            case 5:
                return addText(m_input.within<std::size_t>(0, 63));
            default:
                return addText(m_input.within<std::size_t>(0, 1100));
        }
    }

    template <typename Value>
    void add(const char* format, Value value) {
        m_line << value;
        m_expected += printed(format, value);
    }

    void addPointer(std::uintptr_t value) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        m_line << reinterpret_cast<const void*>(value);
        m_expected += printed("0x%" PRIxPTR, value);
    }

    // A text of `size` characters, in a block of its own.
    void addText(std::size_t size) {
        const std::string text = textOf(size);
        ExactBuffer block(reinterpret_cast<const unsigned char*>(text.c_str()), static_cast<int>(size + 1));
        m_line << reinterpret_cast<const char*>(block.data());
        m_expected += text;
    }

    // The next bytes as text, then dots; a zero byte would end it.
    std::string textOf(std::size_t size) {
        std::string text;
        for (const unsigned char byte : m_input.bytes(std::min<std::size_t>(size, 16))) {
            text += byte == 0 ? '0' : static_cast<char>(byte);
        }
        text.resize(size, '.');
        return text;
    }

    InputReader& m_input;
    int m_level;
    CTraceLine m_line;
    std::string m_expected;
};

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    talrtp::fuzz::InputReader input(data, size);
    talrtp::fuzz::Line line(input);
    line.addPieces();
    line.send();
    return 0;
}

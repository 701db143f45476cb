// The one way in which the library logs a diagnostic:
//
//   TAL_TRACE(WARNING, "CTalRtpPacket::validate, version isn't supported, version = " << get_version());
//
// The mask is asked first, so nothing is formatted and no value is computed when the level is not wanted.

#ifndef TALRTP_SRC_TALRTPTRACELINE_H
#define TALRTP_SRC_TALRTPTRACELINE_H

#include <talrtp/TalRtpTrace.h>

#include <cstddef>

namespace talrtp {

enum ETraceLevel { TRACE_ERROR = 0, TRACE_WARNING = 1, TRACE_INFO = 2 };

// One line under assembly, in a buffer of 1024 characters on the stack. A longer line is cut.
class CTraceLine {
public:
    // Opens the line with the module tag, the level word and the component prefix.
    explicit CTraceLine(ETraceLevel level);

    CTraceLine& operator<<(const char* text);
    CTraceLine& operator<<(const void* pointer);  // "0x" and lower-case hexadecimal digits
    CTraceLine& operator<<(int value) { return *this << static_cast<long>(value); }
    CTraceLine& operator<<(long value);
    CTraceLine& operator<<(unsigned int value) { return *this << static_cast<unsigned long>(value); }
    CTraceLine& operator<<(unsigned long value);

    // Hands the finished line to the host.
    void send();
    // The same, with "[file:line]" after the last value.
    void send(const char* file, int line);

private:
    static constexpr std::size_t kCapacity = 1024;

    void append(const char* text, std::size_t length);

    ETraceLevel m_level;
    std::size_t m_length;
    char m_text[kCapacity];
};

inline bool isTraced(ETraceLevel level) {
    // A diagnostic is the rare case: its code stays out of the way of the code that runs for every packet.
    return __builtin_expect(get_external_trace_mask() >= static_cast<int>(level), 0) != 0;
}

}  // namespace talrtp

// The line is put together in a function of its own, out of the way of the code that runs for every packet:
// its kilobyte on the stack would cost each caller a larger frame and the stack protector's check.
#define TALRTP_TRACE(LEVEL, MESSAGE, ...)                                \
    do {                                                                 \
        if (::talrtp::isTraced(::talrtp::TRACE_##LEVEL)) {               \
            [&]() __attribute__((noinline, cold)) {                      \
                ::talrtp::CTraceLine traceLine(::talrtp::TRACE_##LEVEL); \
                traceLine << MESSAGE;                                    \
                traceLine.send(__VA_ARGS__);                             \
            }                                                            \
            ();                                                          \
        }                                                                \
    } while (false)

// Only the statistics lines have no source position; everything else uses TAL_TRACE.
#define TAL_TRACE_WITHOUT_POSITION(LEVEL, MESSAGE) TALRTP_TRACE(LEVEL, MESSAGE, )
#define TAL_TRACE(LEVEL, MESSAGE) TALRTP_TRACE(LEVEL, MESSAGE, __FILE__, __LINE__)

#endif  // TALRTP_SRC_TALRTPTRACELINE_H

// How the kit refuses options that cannot work.

#ifndef TALRTP_KIT_FAILURE_H
#define TALRTP_KIT_FAILURE_H

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

namespace talrtp::kit {

// Throws `std::invalid_argument` with `text` unless it is empty. Without exceptions, prints it and aborts:
// wrong options are a mistake in the host's program, never an effect of what arrives from the network.
inline void refuseUnlessEmpty(const std::string& text) {
    if (text.empty()) {
        return;
    }
#if defined(__cpp_exceptions)
    throw std::invalid_argument(text);
#else
    std::fprintf(stderr, "talrtp: %s\n", text.c_str());
    std::abort();
#endif
}

// Holds the first exception of the host's function until the kit has finished its own work.
class HeldException {
public:
    // Calls `call` and keeps what it throws, unless an exception is kept already.
    template <typename Call>
    void run(Call call) {
#if defined(__cpp_exceptions)
        try {
            call();
        } catch (...) {
            m_first = m_first ? m_first : std::current_exception();
        }
#else
        call();
#endif
    }

    // Throws the exception if there was one.
    void rethrow() const {
#if defined(__cpp_exceptions)
        if (m_first) {
            std::rethrow_exception(m_first);
        }
#endif
    }

private:
#if defined(__cpp_exceptions)
    std::exception_ptr m_first;
#endif
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_FAILURE_H

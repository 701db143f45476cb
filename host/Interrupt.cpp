#include "Interrupt.h"

#include "HostError.h"

#include <csignal>

namespace talrtp::host {

namespace {

volatile std::sig_atomic_t g_isInterrupted = 0;

void note(int) {
    g_isInterrupted = 1;
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

}  // namespace

void catchInterrupt() {
    std::signal(SIGINT, note);
    std::signal(SIGTERM, note);
}

bool isInterrupted() {
    return g_isInterrupted != 0;
}

void throwIfInterrupted() {
    if (isInterrupted()) {
        throw CHostError("interrupted");
    }
}

}  // namespace talrtp::host

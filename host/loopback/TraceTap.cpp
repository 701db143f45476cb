#include "loopback/TraceTap.h"

#include <talrtp/TalRtpTrace.h>

#include <cstdio>
#include <cstdlib>

namespace talrtp::host {

namespace {

constexpr int kInfoLevel = 2;

int g_printLevel = -1;
bool g_isCatching = false;
std::string g_caught;

}  // namespace

void CTraceTap::setPrintLevel(int level) {
    g_printLevel = level;
}

CTraceTap::StatisticsCatcher::StatisticsCatcher() {
    g_caught.clear();
    g_isCatching = true;
}

CTraceTap::StatisticsCatcher::~StatisticsCatcher() {
    g_isCatching = false;
}

std::uint64_t CTraceTap::StatisticsCatcher::value(const std::string& label) const {
    const std::string sought = label + " = ";
    const std::size_t at = g_caught.find(sought);
    return at == std::string::npos ? 0 : std::strtoull(g_caught.c_str() + at + sought.size(), nullptr, 10);
}

}  // namespace talrtp::host

extern "C" {

int get_external_trace_mask(void) {
    return talrtp::host::g_isCatching ? talrtp::host::kInfoLevel : talrtp::host::g_printLevel;
}

void util_adapter_trace(int level, const char*, const char* text, unsigned int length) {
    if (talrtp::host::g_isCatching) {
        talrtp::host::g_caught.append(text, length);
    }
    if (level <= talrtp::host::g_printLevel) {
        std::fprintf(stderr, "%.*s\n", static_cast<int>(length), text);
    }
}

}  // extern "C"

#include <talrtp/ITalRTCPStack.h>
#include <talrtp/TalRtcpStack.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpSession.h>
#include <talrtp/TalTime.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "TalRtpRandom.h"
#include "TalRtpTraceLine.h"
#include "memory/Assert.h"
#include "wire/ByteOrder.h"
#include "wire/PacketLayout.h"

namespace talrtp {

void tal_swap(void* data, int size) {
    assert(size > 0);
    unsigned char* const first = static_cast<unsigned char*>(data);
    std::reverse(first, first + size);
}

unsigned int tal_net_to_host_long(unsigned int value) {
    return convert32(value);
}

unsigned short tal_net_to_host_short(unsigned short value) {
    return convert16(value);
}

unsigned int tal_host_to_net_long(unsigned int value) {
    return convert32(value);
}

unsigned short tal_host_to_net_short(unsigned short value) {
    return convert16(value);
}

unsigned int drawRandom32(std::atomic<bool>& isSeeded) {
    if (!isSeeded.load(std::memory_order_relaxed) && !isSeeded.exchange(true, std::memory_order_relaxed)) {
        const _time_t now = _time_t::now();
        // Compatibility: the two halves are joined by OR, not by exclusive or.
        std::srand(static_cast<std::uint32_t>(now.getsecond()) |
                   static_cast<std::uint32_t>(now.getfraction()));
    }
    int value;
    do {
        value = std::rand();
    } while (value == 0);
    return static_cast<unsigned int>(value);
}

unsigned int random32() {
    static std::atomic<bool> isSeeded{false};
    return drawRandom32(isSeeded);
}

}  // namespace talrtp

extern "C" {

void TalCreateRTCPStack(talrtp::ITalRTCPStack** stack) {
    *stack = new talrtp::CTalRTCPStack;
}

void TalDestroyRTCPStack(talrtp::ITalRTCPStack* stack) {
    delete stack;
}

void TalCreateRTPSession(talrtp::ITalRTPSession** ppSession, talrtp::ITalRTPSessionSink* pSink,
                         unsigned int sourceId, unsigned int version) {
    if (version != talrtp::kVersion) {
        *ppSession = nullptr;
        TAL_TRACE(WARNING, "TalCreateRTPSession rtp version isn't support, version = " << version);
        return;
    }
    *ppSession = new talrtp::CMMRTPSession4SVC(pSink, sourceId);
}

void TalDestroyRTPSession(talrtp::ITalRTPSession* pSession) {
    delete pSession;
}

}  // extern "C"

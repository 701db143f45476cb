// The library takes no lock: this program puts its own functions in the place of those of pthreads and counts
// their calls. Locks that the C library takes inside of `rand` and malloc do not pass through them.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <talrtp/ITalRTCPStack.h>
#include <talrtp/ITalRTPSession.h>
#include <talrtp/RsFec.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalTime.h>
#include <talrtp/kit/Sender.h>

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "Bytes.h"

namespace {

thread_local bool t_isWatched = false;
thread_local std::vector<const char*>* t_calls = nullptr;

void note(const char* function) {
    if (t_isWatched) {
        t_isWatched = false;
        t_calls->push_back(function);
        t_isWatched = true;
    }
}

// Calls the function of this name that would have been called without this program.
template <typename Object>
int callNext(const char* name, Object* object) {
    note(name);
    typedef int (*Function)(Object*);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(object);
}

}  // namespace

extern "C" {

#define TALRTP_WATCH(function, Object)      \
    int function(Object* object) noexcept { \
        return callNext(#function, object); \
    }

TALRTP_WATCH(pthread_mutex_lock, pthread_mutex_t)
TALRTP_WATCH(pthread_mutex_trylock, pthread_mutex_t)
TALRTP_WATCH(pthread_rwlock_rdlock, pthread_rwlock_t)
TALRTP_WATCH(pthread_rwlock_tryrdlock, pthread_rwlock_t)
TALRTP_WATCH(pthread_rwlock_wrlock, pthread_rwlock_t)
TALRTP_WATCH(pthread_rwlock_trywrlock, pthread_rwlock_t)
TALRTP_WATCH(pthread_spin_lock, pthread_spinlock_t)
TALRTP_WATCH(pthread_spin_trylock, pthread_spinlock_t)

#undef TALRTP_WATCH

}  // extern "C"

namespace talrtp {
namespace {

using test::Bytes;

class NullSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket*) override { ++count; }
    int count = 0;
};

// Returns the names of the lock functions that `work` called.
template <typename Work>
std::vector<const char*> locksOf(Work work) {
    std::vector<const char*> calls;
    calls.reserve(1000);
    t_calls = &calls;
    t_isWatched = true;
    work();
    t_isWatched = false;
    return calls;
}

TEST(Locks, TheseAreSeen) {
    std::mutex mutex;
    std::shared_mutex shared;
    const std::vector<const char*> calls = locksOf([&] {
        const std::lock_guard<std::mutex> guard(mutex);
        const std::shared_lock<std::shared_mutex> reader(shared);
    });
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_STREQ(calls[0], "pthread_mutex_lock");
    EXPECT_STREQ(calls[1], "pthread_rwlock_rdlock");
}

// Sends three pictures, loses every fifth packet, and receives the rest.
int play(kit::Fec fec, unsigned long fecType) {
    NullSink sink;
    ITalRTPSession* receiver = nullptr;
    TalCreateRTPSession(&receiver, &sink, 7, 2);
    receiver->SetFecType(fecType);
    unsigned int number = 0;
    kit::SenderOptions options;
    options.ssrc = 7;
    options.fec = fec;
    kit::Sender sender(options, [&](const kit::Datagram& datagram) {
        Bytes bytes(datagram.bytes.begin(), datagram.bytes.end());
        if (++number % 5 != 0) {
            receiver->InputReceivedData(bytes.data(), static_cast<int>(bytes.size()), number);
        }
    });
    for (std::uint32_t timestamp = 0; timestamp < 3 * 3600; timestamp += 3600) {
        sender.sendPicture(timestamp, std::vector<Bytes>{Bytes(5000, 0x41), Bytes(20, 0x41)});
    }
    sender.flush();
    receiver->ForceHandover(0);
    TalDestroyRTPSession(receiver);
    return sink.count;
}

TEST(Locks, SessionsTakeNone) {
    int units = 0;
    const std::vector<const char*> calls = locksOf([&] {
        units += play(kit::Fec::reedSolomon(5, 2), RTP_FEC_RS);
        units += play(kit::Fec::xorParity(3), RTP_FEC_XOR);
    });
    EXPECT_TRUE(calls.empty()) << calls.size() << " calls, first " << calls.front();
    EXPECT_GT(units, 4);
}

TEST(Locks, FreeFunctionsTakeNone) {
    const std::vector<const char*> calls = locksOf([] {
        RsMapRetain();
        GetRsModel(3, 5);
        GetRsModel(3, 5);
        RsMapRelease();
        random32();
        _time_t::now();
        Bytes a(100);
        Bytes b(100, 1);
        gf_add(a.data(), b.data(), 100);
        gf_addmul(a.data(), b.data(), 3, 100);
        deployXorProcess(a.data(), a.data(), b.data(), 100);
        ITalRTCPStack* stack = nullptr;
        TalCreateRTCPStack(&stack);
        TalDestroyRTCPStack(stack);
    });
    EXPECT_TRUE(calls.empty()) << calls.size() << " calls, first " << calls.front();
}

}  // namespace
}  // namespace talrtp

// How much stack a call takes: 32 KB at the most, so that a thread with a small stack can receive. Each test
// fills the stack of a thread of its own with a pattern and looks afterwards how far down it was written.

#include <gtest/gtest.h>
#include <pthread.h>
#include <talrtp/talrtp.h>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "Bytes.h"
#include "SanitizedBuild.h"

namespace talrtp {
namespace {

// The need that docs/hosts.md documents. Without optimisation every local keeps a place of its own.
#ifdef NDEBUG
constexpr std::size_t kNeed = 32 * 1024;
#else
constexpr std::size_t kNeed = 48 * 1024;
#endif
constexpr std::size_t kThreadStack = 256 * 1024;
constexpr unsigned char kUntouched = 0xa5;
constexpr int kRoom = 1700;

using test::Bytes;

struct Run {
    std::function<void()> call;
    unsigned char* stackBegin;
    std::size_t used;
};

// Runs on the thread. The frame of the caller of `call` is the first of those that count.
void* measure(void* argument) {
    Run* const run = static_cast<Run*>(argument);
    unsigned char* const here = static_cast<unsigned char*>(__builtin_frame_address(0));
    run->call();
    unsigned char* lowest = run->stackBegin;
    while (*lowest == kUntouched && lowest < here) {
        ++lowest;
    }
    run->used = static_cast<std::size_t>(here - lowest);
    return nullptr;
}

// Returns the bytes of stack that `call` takes.
std::size_t stackOf(std::function<void()> call) {
    void* stack = nullptr;
    EXPECT_EQ(posix_memalign(&stack, 4096, kThreadStack), 0);
    std::memset(stack, kUntouched, kThreadStack);
    Run run = {std::move(call), static_cast<unsigned char*>(stack), 0};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    EXPECT_EQ(pthread_attr_setstack(&attributes, stack, kThreadStack), 0);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, measure, &run), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    std::free(stack);
    return run.used;
}

struct CountingSink : ITalRTPSessionSink {
    void OnReceivedRTPPacket(CTalRtpPacket*) override { ++count; }
    int count = 0;
};

struct Packet : CTalRtpPacket {
    Packet() : CTalRtpPacket(kRoom) {}
};

Bytes bytesOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

class StackNeedTest : public testing::Test {
protected:
    void SetUp() override {
        if (test::kIsSanitized) {
            GTEST_SKIP() << "a sanitizer makes frames larger";
        }
    }

    void input(Bytes datagram) {
        session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
    }

    CountingSink sink;
    CMMRTPSession4SVC session{&sink, 1};
};

TEST_F(StackNeedTest, TheMeasureSeesWhatACallTakes) {
    const std::size_t used = stackOf([] {
        volatile unsigned char frame[40000];
        frame[0] = 1;
        frame[sizeof frame - 1] = frame[0];
    });
    EXPECT_GE(used, 40000u);
    EXPECT_LT(used, 45000u);
}

// Groups of packets of different sizes, all of which are lost, from few to as many as there can be.
TEST_F(StackNeedTest, RebuildingAWholeGroup) {
    for (const int k : {1, 20, 127}) {
        CMMRTPSession4SVC sender(nullptr, 2);
        std::vector<Packet> packets(static_cast<std::size_t>(k));
        for (int i = 0; i < k; ++i) {
            Bytes unit(static_cast<std::size_t>(1401 - 7 * i), 0x41);
            ASSERT_EQ(sender.CreateSinglePacket(0, static_cast<int>(unit.size()), unit.data(),
                                                &packets[static_cast<std::size_t>(i)]),
                      0);
        }
        std::vector<Packet> fec(static_cast<std::size_t>(k));
        ASSERT_EQ(sender.CreateRsFecPackets(packets.data(), k, fec.data(), k), 0);
        for (int i = 0; i + 1 < k; ++i) {
            input(bytesOf(fec[static_cast<std::size_t>(i)]));
        }
        sink.count = 0;
        const Bytes last = bytesOf(fec[static_cast<std::size_t>(k - 1)]);
        EXPECT_LE(stackOf([&] { input(last); }), kNeed) << k;
        EXPECT_EQ(sink.count, k);
    }
}

class DecodeStackTest : public StackNeedTest {
protected:
    static constexpr int kSize = 1001;  // not a multiple of what a kernel takes

    // Decodes a code of `k` and `n - k` blocks whose first `lostCount` sources are lost. `extra` are asked
    // for beside them, although they are available.
    std::size_t stackOfDecode(int k, int n, int lostCount, int extra) {
        std::unique_ptr<rs_param_, void (*)(rs_param_*)> model(CRsFec::CreateRsModel(k, n),
                                                               &CRsFec::DeleteRsModel);
        std::vector<Bytes> blocks(static_cast<std::size_t>(n), Bytes(kSize, 0));
        std::vector<unsigned char*> all;
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            blocks[i][0] = static_cast<unsigned char>(i);
            all.push_back(blocks[i].data());
        }
        EXPECT_EQ(CRsFec::Encode(model.get(), all.data(), kSize, all.data() + k), 0);
        std::vector<unsigned char*> received(all.begin() + lostCount, all.begin() + lostCount + k);
        std::vector<int> index;
        for (int j = 0; j < k; ++j) {
            index.push_back(lostCount + j);
        }
        std::vector<Bytes> outputs(static_cast<std::size_t>(lostCount + extra), Bytes(kSize, 0xff));
        std::vector<unsigned char*> out;
        std::vector<int> lost;
        for (std::size_t r = 0; r < outputs.size(); ++r) {
            out.push_back(outputs[r].data());
            lost.push_back(static_cast<int>(r));
        }
        int result = -1;
        const std::size_t used = stackOf([&] {
            result = CRsFec::Decode(model.get(), received.data(), kSize, index.data(), out.data(),
                                    lost.data(), lostCount + extra);
        });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(outputs, std::vector<Bytes>(blocks.begin(), blocks.begin() + lostCount + extra));
        return used;
    }
};

TEST_F(DecodeStackTest, DecodingLostBlocks) {
    for (const int lost : {1, 2, 16, 17, 100}) {
        EXPECT_LE(stackOfDecode(100, 200, lost, 0), kNeed) << lost;
    }
}

TEST_F(DecodeStackTest, DecodingThroughTheWholeMatrix) {
    EXPECT_LE(stackOfDecode(156, 256, 100, 1), kNeed);
    EXPECT_LE(stackOfDecode(255, 256, 1, 1), kNeed);
}

TEST_F(StackNeedTest, EncodingTheLargestGroup) {
    CMMRTPSession4SVC sender(nullptr, 2);
    std::vector<Packet> packets(128);
    Bytes unit(100, 0x41);
    for (Packet& packet : packets) {
        ASSERT_EQ(sender.CreateSinglePacket(0, static_cast<int>(unit.size()), unit.data(), &packet), 0);
    }
    std::vector<Packet> fec(127);
    EXPECT_LE(stackOf([&] { EXPECT_EQ(sender.CreateRsFecPackets(packets.data(), 128, fec.data(), 127), 0); }),
              kNeed);
}

}  // namespace
}  // namespace talrtp

// The cost of forged traffic for a receiver: each row feeds one of the worst patterns known and prints what a
// call takes of CPU time and, where packets wait, what they keep beside their own blocks. The pattern that
// the session cannot help, but the kit guards against, is fed to both.
//
//   ForgedBench              with the best kernels of the processor
//   ForgedBench --portable   with the portable ones

#include <malloc.h>
#include <talrtp/kit/Receiver.h>
#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "kernels/Kernels.h"

namespace talrtp {
namespace {

typedef std::vector<unsigned char> Bytes;

constexpr unsigned int kNumbers = 65536;
constexpr int kPacketBytes = 1388;  // what a packet made of a short datagram takes for its bytes

struct NullSink : ITalRTPSessionSink {
    void OnReceivedRTPPacket(CTalRtpPacket*) override {}
};

// Of this thread, in microseconds: other programs may run beside.
double cpuTime() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// The times of the calls of one row, in microseconds.
struct Times {
    void add(double us) {
        most = std::max(most, us);
        sum += us;
        ++count;
    }
    double mean() const { return sum / count; }

    double most = 0;
    double sum = 0;
    int count = 0;
};

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

class Receiver {
public:
    explicit Receiver(unsigned long fecType) { m_session.SetFecType(fecType); }

    void input(Bytes& datagram) {
        const double begin = cpuTime();
        m_session.InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
        times.add(cpuTime() - begin);
    }

    Times times;

private:
    NullSink m_sink;
    CMMRTPSession4SVC m_session{&m_sink, 1};
};

Bytes header(unsigned char type, unsigned int seq, std::size_t size) {
    Bytes datagram(size);
    datagram[0] = 0x80;
    datagram[1] = type;
    datagram[2] = static_cast<unsigned char>(seq >> 8);
    datagram[3] = static_cast<unsigned char>(seq);
    return datagram;
}

Bytes media(unsigned int seq) {
    Bytes datagram = header(98, seq, 14);
    datagram[12] = 0x41;
    return datagram;
}

// Garbage parity of `blockSize` bytes that claims to be packet `index` of `m` over `k` packets from `base`
// on.
Bytes parity(unsigned int seq, unsigned int base, int k, int m, unsigned int index, std::size_t blockSize) {
    Bytes datagram = header(111, seq, 20 + blockSize);
    datagram[12] = static_cast<unsigned char>(base >> 8);
    datagram[13] = static_cast<unsigned char>(base);
    datagram[15] = static_cast<unsigned char>(seq * 37);
    datagram[16] = static_cast<unsigned char>(index);
    datagram[17] = static_cast<unsigned char>(m);
    datagram[18] = static_cast<unsigned char>(k);
    for (std::size_t i = 20; i < datagram.size(); ++i) {
        datagram[i] = static_cast<unsigned char>(i * seq + (i * i >> 3) + 1);
    }
    return datagram;
}

Bytes xorParity(unsigned int seq, unsigned int base, unsigned int mask) {
    Bytes datagram = header(111, seq, 24);
    datagram[12] = static_cast<unsigned char>(base >> 8);
    datagram[13] = static_cast<unsigned char>(base);
    datagram[14] = datagram[15] = 0xff;  // a length that never fits
    datagram[17] = static_cast<unsigned char>(mask >> 16);
    datagram[18] = static_cast<unsigned char>(mask >> 8);
    datagram[19] = static_cast<unsigned char>(mask);
    return datagram;
}

void report(const char* row, const Times& times) {
    std::printf("%-52s %10.1f us mean %10.1f us most of %d calls\n", row, times.mean(), times.most,
                times.count);
}

// Feeds without counting.
template <typename Make>
void feed(Receiver& receiver, unsigned int count, Make make) {
    for (unsigned int i = 0; i < count; ++i) {
        Bytes datagram = make(i);
        receiver.input(datagram);
    }
    receiver.times = Times();
}

void lastParityAgainAndAgain() {
    Receiver receiver(RTP_FEC_RS);
    feed(receiver, 127, [](unsigned int i) { return parity(i, 1000, 128, 128, i, 1580); });
    Bytes last = parity(127, 1000, 128, 128, 127, 1580);
    receiver.input(last);
    receiver.times = Times();
    for (int i = 0; i < 200; ++i) {
        receiver.input(last);
    }
    report("garbage parity of (128, 128), the last again", receiver.times);
}

void membersBeyondTheShards() {
    Times all;
    for (int round = 0; round < 5; ++round) {
        Receiver receiver(RTP_FEC_RS);
        feed(receiver, 255, [](unsigned int i) {
            const unsigned int index = i < 127 ? i : i + 1;
            return parity((65408 + index) % kNumbers, 1000, 128, 128, index, 1580);
        });
        Bytes packet = media(1000);
        receiver.input(packet);
        all.add(receiver.times.most);
    }
    report("media behind 128 members beyond the shards", all);
}

void manyGroupsAtOnce() {
    constexpr unsigned int kGroups = 740;
    constexpr unsigned int kParity = 88;
    Times all;
    for (int round = 0; round < 3; ++round) {
        Receiver receiver(RTP_FEC_RS);
        feed(receiver, kGroups * kParity, [](unsigned int i) {
            const unsigned int group = i / kParity;
            return parity(i, 1000 - group % (kParity + 1), kParity + 1, kParity, i % kParity, 1580);
        });
        Bytes packet = media(1000);
        receiver.input(packet);
        all.add(receiver.times.most);
    }
    report("media that makes 740 groups decodable", all);
}

void oneWindow() {
    Receiver receiver(RTP_FEC_RS);
    feed(receiver, kNumbers, [](unsigned int i) { return parity(i, 1000, 200, 1, 0, 4); });
    for (unsigned int i = 0; i < 198; ++i) {
        Bytes packet = media(1000 + i);
        receiver.input(packet);
    }
    report("media behind 65536 groups over its window", receiver.times);
}

void manyWindows() {
    Receiver receiver(RTP_FEC_RS);
    feed(receiver, kNumbers, [](unsigned int i) {
        return parity(i, 1000 + i % 50, static_cast<int>(150 + i / 50 % 100), 1, 0, 4);
    });
    for (unsigned int i = 0; i < 140; ++i) {
        Bytes packet = media(1050 + i % 90);
        receiver.input(packet);
    }
    report("media behind 65536 groups of 5000 shapes", receiver.times);
}

void oneXorWindow() {
    Receiver receiver(RTP_FEC_XOR);
    feed(receiver, kNumbers, [](unsigned int i) { return xorParity(i, 1000, 0xff0000 | i); });
    Bytes packet;
    for (unsigned int i = 23; i > 1; --i) {
        packet = media(1000 + i);
        receiver.input(packet);
    }
    report("the same with XOR, until all wait for two", receiver.times);
    receiver.times = Times();
    packet = media(1000);
    receiver.input(packet);
    report("the same with XOR, the packet that makes all ready", receiver.times);
}

// The groups of neighbours begin `step` media packets apart.
void parityOfItsOwnGroup(const char* row, unsigned int step) {
    const std::size_t before = heapInUse();
    Receiver receiver(RTP_FEC_RS);
    for (unsigned int i = 0; i < kNumbers; ++i) {
        Bytes datagram = parity(i, i * step, 129, 127, 0, 0);
        receiver.input(datagram);
    }
    report(row, receiver.times);
    const std::size_t blocks = (sizeof(CTalRtpPacket) + 16) / 16 * 16 + (kPacketBytes + 24) / 16 * 16;
    std::printf("%-52s %10.1f bytes beside its own blocks\n", "  each keeps",
                static_cast<double>(heapInUse() - before) / kNumbers - static_cast<double>(blocks));
}

// A fragment of a unit of 4.7 MB; 0x80 in its second byte marks the start, 0x40 the end.
constexpr unsigned int kFragments = 4000;
constexpr std::size_t kFragmentBytes = 1189;
constexpr unsigned int kStrays = 200;

Bytes fragment(unsigned int seq, unsigned char startAndEnd) {
    constexpr unsigned char kMarker = 0x80;  // on the end, so that the picture is complete
    const bool isEnd = (startAndEnd & 0x40) != 0;
    Bytes datagram = header(static_cast<unsigned char>(98 | (isEnd ? kMarker : 0)), seq, kFragmentBytes);
    datagram[12] = 0x7c;
    datagram[13] = static_cast<unsigned char>(5 | startAndEnd);
    return datagram;
}

// Feeds the unit and then `kStrays` middle fragments with the numbers after it.
template <typename Input>
Times straysAfterAWholeUnit(Input input) {
    for (unsigned int i = 0; i < kFragments; ++i) {
        Bytes datagram = fragment(i, i == 0 ? 0x80 : i == kFragments - 1 ? 0x40 : 0);
        input(datagram);
    }
    Times times;
    for (unsigned int i = 0; i < kStrays; ++i) {
        Bytes datagram = fragment(kFragments + i, 0);
        const double begin = cpuTime();
        input(datagram);
        times.add(cpuTime() - begin);
    }
    return times;
}

void strayFragments() {
    Receiver receiver(RTP_FEC_XOR);
    report("stray fragment after a unit of 4.7 MB, raw call",
           straysAfterAWholeUnit([&](Bytes& datagram) { receiver.input(datagram); }));

    std::size_t played = 0;
    kit::ReceiverOptions options;
    options.firstSequence = 0;
    kit::Receiver guarded(options, [&](const kit::Picture& picture) { played += picture.annexB().size(); });
    report("the same, pushed into the kit's receiver", straysAfterAWholeUnit([&](const Bytes& datagram) {
               guarded.push(kit::BytesView(datagram.data(), datagram.size()), kit::TimePoint());
           }));
    std::printf("%-52s %10zu bytes, of strays %llu refused\n", "  the kit played", played,
                static_cast<unsigned long long>(guarded.statistics().strayPackets));
}

}  // namespace
}  // namespace talrtp

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--portable") == 0) {
        talrtp::forceKernelLevel(talrtp::KERNEL_PORTABLE);
    }
    talrtp::lastParityAgainAndAgain();
    talrtp::membersBeyondTheShards();
    talrtp::manyGroupsAtOnce();
    talrtp::oneWindow();
    talrtp::manyWindows();
    talrtp::oneXorWindow();
    talrtp::parityOfItsOwnGroup("20-byte parity of a group of its own, stored", 2);
    talrtp::parityOfItsOwnGroup("the same, all groups from one media packet on", 0);
    talrtp::strayFragments();
    return 0;
}

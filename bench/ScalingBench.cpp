// Measures streams on one processor and on all of them: each thread sends and receives streams of its own
// through the kit. scripts/bench scaling makes a table of it.

#include <talrtp/kit.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

namespace {

namespace kit = talrtp::kit;

using Bytes = std::vector<std::uint8_t>;

constexpr int kPicturesPerSecond = 25;
constexpr int kRecordedMegabits = 200;  // ten seconds of a stream of 20 Mbit/s, or longer of a slower one
constexpr std::uint32_t kTimestampStep = 90000 / kPicturesPerSecond;
constexpr int kBytesPerMegabit = 125000;

enum Fec { kNone, kXor, kReedSolomon };

kit::Fec fecOf(std::int64_t fec) {
    return fec == kXor ? kit::Fec::xorParity(3) : fec == kNone ? kit::Fec() : kit::Fec::reedSolomon(10, 3);
}

kit::SenderOptions senderOptions(std::int64_t fec) {
    kit::SenderOptions options;
    options.ssrc = 7;
    options.fec = fecOf(fec);
    options.firstSequence = 0;
    options.firstFecSequence = 0;
    return options;
}

// `packets` are media packets, those that were lost included. `pictures` over the rate of a stream is the
// number of streams that are carried in real time.
void count(benchmark::State& state, std::int64_t packets, std::int64_t pictures) {
    state.SetItemsProcessed(packets);
    state.counters["streams"] =
        benchmark::Counter(static_cast<double>(pictures) / kPicturesPerSecond, benchmark::Counter::kIsRate);
}

// One picture of a stream of so many Mbit/s, as one unit.
std::vector<Bytes> pictureOf(std::int64_t megabits) {
    return {Bytes(static_cast<std::size_t>(megabits * kBytesPerMegabit / kPicturesPerSecond), 0x41)};
}

void send(benchmark::State& state) {
    const std::vector<Bytes> picture = pictureOf(state.range(0));
    std::size_t bytes = 0;
    std::int64_t media = 0;
    kit::Sender sender(senderOptions(state.range(1)), [&](const kit::Datagram& datagram) {
        bytes += datagram.bytes.size();
        media += datagram.isFec ? 0 : 1;
    });
    std::uint32_t timestamp = 0;
    for (auto _ : state) {
        sender.sendPicture(timestamp, picture);
        timestamp += kTimestampStep;
    }
    benchmark::DoNotOptimize(bytes);
    count(state, media, state.iterations());
}

// A piece of a stream as it arrives, so long that the making of a receiver counts little.
struct Recording {
    int pictures = 0;
    std::vector<Bytes> datagrams;
    std::vector<int> picture;       // in which each was sent
    std::int64_t mediaPackets = 0;  // sent
};

// `lossPercent` of all packets are lost, the same ones each time.
Recording record(std::int64_t megabits, std::int64_t fec, std::int64_t lossPercent) {
    Recording result;
    std::mt19937 random(20261122);
    const std::vector<Bytes> picture = pictureOf(megabits);
    result.pictures = static_cast<int>(kRecordedMegabits / megabits) * kPicturesPerSecond;
    int number = 0;
    kit::Sender sender(senderOptions(fec), [&](const kit::Datagram& datagram) {
        result.mediaPackets += datagram.isFec ? 0 : 1;
        if (static_cast<std::int64_t>(random() % 100) >= lossPercent) {
            result.datagrams.emplace_back(datagram.bytes.begin(), datagram.bytes.end());
            result.picture.push_back(number);
        }
    });
    for (; number < result.pictures; ++number) {
        sender.sendPicture(static_cast<std::uint32_t>(number) * kTimestampStep, picture);
    }
    sender.flush();
    return result;
}

// Each turn is a receiver that takes the recording.
void receive(benchmark::State& state) {
    const Recording recording = record(state.range(0), state.range(1), state.range(2));
    kit::ReceiverOptions options;
    options.fec = fecOf(state.range(1)).scheme;
    std::size_t bytes = 0;
    std::uint64_t rebuilt = 0;
    for (auto _ : state) {
        kit::Receiver receiver(options,
                               [&](const kit::Picture& picture) { bytes += picture.annexB().size(); });
        for (std::size_t i = 0; i < recording.datagrams.size(); ++i) {
            const kit::TimePoint now{
                std::chrono::milliseconds(1000 / kPicturesPerSecond * recording.picture[i])};
            receiver.push(recording.datagrams[i], now);
            receiver.poll(now);
        }
        receiver.finish();
        rebuilt += receiver.statistics().rebuiltPackets;
    }
    benchmark::DoNotOptimize(bytes);
    if (state.range(1) != kNone && state.range(2) > 0 && rebuilt == 0) {
        state.SkipWithError("nothing was rebuilt");
    }
    count(state, state.iterations() * recording.mediaPackets, state.iterations() * recording.pictures);
}

void onOneAndAllProcessors(benchmark::internal::Benchmark* row) {
    const unsigned int all = std::thread::hardware_concurrency();
    row->UseRealTime()->Threads(1);
    if (all > 1) {
        row->Threads(static_cast<int>(all));
    }
}

void sendShapes(benchmark::internal::Benchmark* row) {
    row->ArgNames({"mbit", "fec"});
    row->ArgsProduct({{2, 20}, {kNone, kXor, kReedSolomon}});
    onOneAndAllProcessors(row);
}
BENCHMARK(send)->Apply(sendShapes);

void receiveShapes(benchmark::internal::Benchmark* row) {
    row->ArgNames({"mbit", "fec", "loss"});
    row->ArgsProduct({{2, 20}, {kNone, kXor, kReedSolomon}, {0, 5}});
    onOneAndAllProcessors(row);
}
BENCHMARK(receive)->Apply(receiveShapes);

}  // namespace

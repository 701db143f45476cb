// Sending and receiving in six lines each, joined by a socket of memory that drops every fifth datagram.

#include <talrtp/kit.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace kit = talrtp::kit;
using Bytes = std::vector<std::uint8_t>;
using std::chrono::steady_clock;

struct Socket {
    void send(kit::BytesView bytes) {
        if (++count % 5 != 0) {
            wire.emplace_back(bytes.begin(), bytes.end());
        }
    }
    std::vector<Bytes> wire;
    int count = 0;
};

struct Decoder {
    void feed(kit::BytesView annexB) { fed.insert(fed.end(), annexB.begin(), annexB.end()); }
    Bytes fed;
};

static void send(Socket& socket, std::uint32_t timestamp, const std::vector<Bytes>& units) {
    kit::SenderOptions options;
    options.ssrc = 0x1234;
    options.fec = kit::Fec::reedSolomon(/*maxMedia=*/10, /*parity=*/3);
    kit::Sender sender(options, [&](const kit::Datagram& d) { socket.send(d.bytes); });
    sender.sendPicture(timestamp, units);
    sender.flush();
}

static void receive(Socket& socket, Decoder& decoder) {
    kit::Receiver receiver({}, [&](const kit::Picture& picture) { decoder.feed(picture.annexB()); });
    for (const Bytes& datagram : socket.wire) {
        receiver.push(datagram, steady_clock::now());
        receiver.poll(steady_clock::now());
    }
    receiver.finish();
}

int main() {
    Socket socket;
    Decoder decoder;
    const Bytes slice(8000, 0x65);
    send(socket, 90000, {{0x67, 0x42}, {0x68, 0xce}, slice});
    receive(socket, decoder);
    std::printf("%zu of %d datagrams arrived, %zu bytes decoded\n", socket.wire.size(), socket.count,
                decoder.fed.size());
    return decoder.fed.size() == 3 * 4 + 2 + 2 + slice.size() ? 0 : 1;
}

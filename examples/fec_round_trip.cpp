// Sends one picture through a network that loses three packets in a row, and receives it whole. No sockets:
// what the sender emits goes straight into the receiver.

#include <talrtp/kit.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace kit = talrtp::kit;

int main() {
    // An IDR slice of 9,000 bytes, which takes eight fragments, after its parameter sets.
    std::vector<std::vector<std::uint8_t>> units{{0x67, 0x42, 0xc0, 0x1e}, {0x68, 0xce}, {0x65, 0x88}};
    for (int i = 0; i < 9000; ++i) {
        units[2].push_back(static_cast<std::uint8_t>(i * 7));
    }

    bool isWhole = false;
    kit::Receiver receiver(kit::ReceiverOptions(), [&](const kit::Picture& picture) {
        std::printf("picture of %zu units: %zu packets rebuilt, %zu missing\n", picture.units().size(),
                    picture.rebuiltPackets(), picture.missingPackets());
        isWhole = picture.isComplete() && picture.units().back() == kit::BytesView(units[2]);
    });

    kit::SenderOptions options;
    options.ssrc = 0x1234;
    options.fec = kit::Fec::reedSolomon(/*maxMedia=*/10, /*parity=*/3);
    int number = 0;
    kit::Sender sender(options, [&](const kit::Datagram& datagram) {
        const bool isLost = number >= 4 && number <= 6;
        std::printf("%s packet %d, %zu bytes%s\n", datagram.isFec ? "FEC  " : "media", number,
                    datagram.bytes.size(), isLost ? ": lost" : "");
        if (!isLost) {
            receiver.push(datagram.bytes, kit::TimePoint(std::chrono::milliseconds(number)));
        }
        ++number;
    });
    sender.sendPicture(/*timestamp=*/90000, units);
    sender.flush();
    receiver.finish();
    return isWhole ? 0 : 1;
}

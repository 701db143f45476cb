// A host of the kit: C++17, built with and without exceptions and run-time type information. It sends a
// picture and receives it. It defines no trace function, so the library's own silent ones have to do.

#include <talrtp/kit.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kit = talrtp::kit;

namespace {

using Bytes = std::vector<std::uint8_t>;

bool optionsTellWhatIsWrong() {
    kit::SenderOptions options;
    options.fec = kit::Fec::reedSolomon(250, 30);
    return options.check().find("250") != std::string::npos;
}

std::vector<Bytes> sendOnePicture(const Bytes& unit) {
    kit::SenderOptions options;
    options.ssrc = 0x1234;
    options.fec = kit::Fec::reedSolomon(10, 3);
    std::vector<Bytes> wire;
    kit::Sender sender(options,
                       [&](const kit::Datagram& d) { wire.emplace_back(d.bytes.begin(), d.bytes.end()); });
    sender.sendPicture(90000, std::vector<Bytes>{unit});
    sender.flush();
    return wire;
}

bool pictureArrivesAfterALoss() {
    Bytes unit(5000, 0x55);
    unit.front() = 0x65;
    std::vector<Bytes> wire = sendOnePicture(unit);
    wire.erase(wire.begin() + 1);

    int pictures = 0;
    Bytes received;
    kit::Receiver receiver({}, [&](const kit::Picture& picture) {
        ++pictures;
        received.assign(picture.units().front().begin(), picture.units().front().end());
    });
    for (const Bytes& datagram : wire) {
        receiver.push(datagram, kit::TimePoint());
    }
    receiver.finish();
    return pictures == 1 && received == unit && receiver.statistics().recoveredMediaPacketNumber == 1;
}

}  // namespace

int main() {
    if (!optionsTellWhatIsWrong() || !pictureArrivesAfterALoss()) {
        std::fprintf(stderr, "kit consumer: the options or the picture are not as they should be\n");
        return 1;
    }
    std::puts("kit consumer: options checked, a picture rebuilt");
    return 0;
}

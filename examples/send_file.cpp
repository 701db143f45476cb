// Sends an H.264 file over UDP in real time, protected by Reed-Solomon FEC:
//
//   send_file FILE ADDRESS PORT [PICTURES PER SECOND]

#include <talrtp/kit.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

namespace kit = talrtp::kit;

int main(int argc, char** argv) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    if (argc < 4 || inet_pton(AF_INET, argv[2], &peer.sin_addr) != 1) {
        std::fputs("usage: send_file FILE ADDRESS PORT [PICTURES PER SECOND]\n", stderr);
        return 2;
    }
    peer.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[3])));
    const double fps = argc > 4 ? std::atof(argv[4]) : 25;
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    connect(udp, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);

    kit::SenderOptions options;
    options.ssrc = std::random_device{}();
    options.fec = kit::Fec::reedSolomon(/*maxMedia=*/10, /*parity=*/3);
    kit::Sender sender(options,
                       [&](const kit::Datagram& d) { send(udp, d.bytes.data(), d.bytes.size(), 0); });

    const auto begin = std::chrono::steady_clock::now();
    double seconds = 0;
    kit::AccessUnitSplitter splitter([&](const kit::AccessUnit& picture) {
        std::this_thread::sleep_until(begin + std::chrono::microseconds(static_cast<long>(seconds * 1e6)));
        const kit::SendResult result =
            sender.sendPicture(static_cast<std::uint32_t>(seconds * 90000), picture.units());
        if (!result) {
            std::fprintf(stderr, "send_file: %s\n", result.error.c_str());
        }
        seconds += 1 / fps;
    });
    std::ifstream file(argv[1], std::ios::binary);
    std::vector<char> chunk(65536);
    while (file.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || file.gcount() > 0) {
        splitter.push({chunk.data(), static_cast<std::size_t>(file.gcount())});
    }
    splitter.finish();
    sender.flush();
    return 0;
}

// Receives what `send_file` sends and writes it to a file, until two seconds pass without a datagram:
//
//   receive_file PORT FILE

#include <talrtp/kit.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace kit = talrtp::kit;
using namespace std::chrono_literals;

int main(int argc, char** argv) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(argc > 2 ? std::atoi(argv[1]) : 0));
    const timeval tick{0, 20000};
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    if (argc < 3 || bind(udp, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
        setsockopt(udp, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick) != 0) {
        std::perror("receive_file PORT FILE");
        return 1;
    }

    std::ofstream file(argv[2], std::ios::binary);
    kit::Receiver receiver(kit::ReceiverOptions(), [&](const kit::Picture& picture) {
        const kit::BytesView bytes = picture.annexB();
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });

    std::array<std::uint8_t, 65536> buffer{};
    auto last = kit::TimePoint::max() - 2s;  // nothing arrived yet: wait for the first datagram
    for (auto now = std::chrono::steady_clock::now(); now < last + 2s;
         now = std::chrono::steady_clock::now()) {
        const ssize_t size = recv(udp, buffer.data(), buffer.size(), 0);
        now = std::chrono::steady_clock::now();
        if (size >= 0) {
            receiver.push({buffer.data(), static_cast<std::size_t>(size)}, now);
            last = now;
        }
        receiver.poll(now);
    }
    receiver.finish();
    const kit::Statistics counts = receiver.statistics();
    std::printf("%d complete pictures, %d cut, %d packets rebuilt\n",
                static_cast<int>(counts.completePictures), static_cast<int>(counts.cutPictures),
                static_cast<int>(counts.rebuiltPackets));
    return file.flush() ? 0 : 1;
}

// An event loop of poll(2): media on PORT, FEC on PORT + 2. Prints every picture; ends after COUNT of them.
//
//   poll_receive PORT COUNT

#include <talrtp/kit.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace kit = talrtp::kit;
using std::chrono::steady_clock;

static int bindUdp(int port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    const bool isBound = udp >= 0 && bind(udp, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
    return isBound ? udp : -1;
}

int main(int argc, char** argv) {
    const int port = argc > 2 ? std::atoi(argv[1]) : 0;
    int left = argc > 2 ? std::atoi(argv[2]) : 0;
    std::array<pollfd, 2> sockets{{{bindUdp(port), POLLIN, 0}, {bindUdp(port + 2), POLLIN, 0}}};
    if (left == 0 || sockets[0].fd < 0 || sockets[1].fd < 0) {
        std::fputs("usage: poll_receive PORT COUNT, both ports free\n", stderr);
        return 2;
    }
    kit::Receiver receiver(kit::ReceiverOptions(), [&](const kit::Picture& picture) {
        std::printf("timestamp %u, %zu units, %s\n", picture.timestamp(), picture.units().size(),
                    picture.isComplete() ? "complete" : "cut");
        --left;
    });
    std::array<std::uint8_t, 65536> buffer{};
    auto next = receiver.poll(steady_clock::now());
    while (left > 0) {
        using Milliseconds = std::chrono::milliseconds;
        const auto rest = next ? *next - steady_clock::now() : Milliseconds(-1);
        // Rounded up: a poll that ends just before the time would only come back here.
        poll(sockets.data(), sockets.size(),
             next ? static_cast<int>(std::max(Milliseconds(0), std::chrono::ceil<Milliseconds>(rest)).count())
                  : -1);
        for (const pollfd& each : sockets) {
            for (ssize_t size = 0; (size = recv(each.fd, buffer.data(), buffer.size(), 0)) >= 0;) {
                receiver.push({buffer.data(), static_cast<std::size_t>(size)}, steady_clock::now());
            }
        }
        next = receiver.poll(steady_clock::now());
    }
    return 0;
}

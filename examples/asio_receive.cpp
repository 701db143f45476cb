// An event loop of Asio: media on PORT, FEC on PORT + 2, and a timer for what is due. Prints every picture;
// ends after COUNT of them.
//
//   asio_receive PORT COUNT

#include <talrtp/kit.h>

#include <asio.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace kit = talrtp::kit;
using asio::ip::udp;
using std::chrono::steady_clock;

int main(int argc, char** argv) {
    const int port = argc > 2 ? std::atoi(argv[1]) : 0;
    int left = argc > 2 ? std::atoi(argv[2]) : 0;
    asio::io_context loop;
    udp::socket media(loop, {udp::v4(), static_cast<std::uint16_t>(port)});
    udp::socket fec(loop, {udp::v4(), static_cast<std::uint16_t>(port + 2)});
    asio::steady_timer timer(loop);

    kit::Receiver receiver(kit::ReceiverOptions(), [&](const kit::Picture& picture) {
        std::printf("timestamp %u, %zu units, %s\n", picture.timestamp(), picture.units().size(),
                    picture.isComplete() ? "complete" : "cut");
        if (--left <= 0) {
            loop.stop();
        }
    });
    const std::function<void()> playWhatIsDue = [&] {
        if (const auto next = receiver.poll(steady_clock::now())) {
            timer.expires_at(*next);
            timer.async_wait([&](std::error_code error) { error ? void() : playWhatIsDue(); });
        }
    };
    using Buffer = std::array<std::uint8_t, 65536>;
    Buffer mediaBuffer{};
    Buffer fecBuffer{};
    const std::function<void(udp::socket&, Buffer&)> receive = [&](udp::socket& socket, Buffer& buffer) {
        socket.async_receive(asio::buffer(buffer), [&](std::error_code error, std::size_t size) {
            // An error reports an earlier datagram that found no port; the stream goes on.
            receiver.push({buffer.data(), error ? 0 : size}, steady_clock::now());
            playWhatIsDue();
            receive(socket, buffer);
        });
    };
    receive(media, mediaBuffer);
    receive(fec, fecBuffer);
    loop.run();
    return 0;
}

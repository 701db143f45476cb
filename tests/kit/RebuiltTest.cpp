// A host sees the packets that FEC rebuilt.

#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "Bytes.h"

namespace {

using namespace talrtp::kit;

using talrtp::test::Bytes;

TEST(Rebuilt, PacketIsLentAsItWasSent) {
    SenderOptions options;
    options.mtu = 200;
    options.fec = Fec::reedSolomon(6, 1);
    std::vector<Bytes> media;
    std::vector<Bytes> fec;
    Sender sender(options, [&](const Datagram& datagram) {
        (datagram.isFec ? fec : media).emplace_back(datagram.bytes.begin(), datagram.bytes.end());
    });
    Bytes unit(900, 0x5a);
    unit[0] = 0x65;
    unit[1] = 0x88;
    ASSERT_TRUE(sender.sendPicture(0, {BytesView(unit)}));
    sender.flush();
    ASSERT_EQ(6u, media.size());
    ASSERT_EQ(1u, fec.size());

    ReceiverOptions receiving;
    std::vector<Bytes> rebuilt;
    std::size_t played = 0;
    Receiver receiver(receiving, [&](const Picture& picture) {
        EXPECT_EQ(1u, rebuilt.size()) << "the packet comes before its picture";
        EXPECT_EQ(1u, picture.rebuiltPackets());
        ++played;
    });
    receiver.onRebuilt([&](BytesView packet) { rebuilt.emplace_back(packet.begin(), packet.end()); });
    const TimePoint now{};
    for (const std::size_t i : {0, 1, 3, 4, 5}) {
        receiver.push(media[i], now);
    }
    EXPECT_TRUE(rebuilt.empty());
    receiver.push(fec[0], now);
    EXPECT_EQ((std::vector<Bytes>{media[2]}), rebuilt);
    receiver.finish();
    EXPECT_EQ(1u, played);
}

}  // namespace

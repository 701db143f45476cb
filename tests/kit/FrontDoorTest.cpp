// The kit as a newcomer writes it down: the lines of README with sockets and a decoder that only keep what
// they get, and every range of bytes that a host is likely to have.

#include <talrtp/kit.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>
#if __cplusplus >= 202002L
#include <ranges>
#include <span>
#endif

#include "Bytes.h"

using namespace talrtp;

namespace {

using talrtp::test::Bytes;

const Bytes kSps = {0x67, 0x42, 0xc0, 0x1e};
const Bytes kPps = {0x68, 0xce};
const Bytes kIdr = {0x65, 0x88, 0xa1, 0xa2};
const Bytes kStream = {0, 0,    0,    1, 0x67, 0x42, 0xc0, 0x1e, 0,    0,    0,
                       1, 0x68, 0xce, 0, 0,    0,    1,    0x65, 0x88, 0xa1, 0xa2};

struct Socket {
    void send(kit::BytesView bytes) { datagrams.emplace_back(bytes.begin(), bytes.end()); }
    std::vector<Bytes> datagrams;
};

struct Decoder {
    void feed(kit::BytesView annexB) { fed.insert(fed.end(), annexB.begin(), annexB.end()); }
    Bytes fed;
};

TEST(FrontDoorTest, SendsAndReceivesInSixLinesEach) {
    Socket socket;
    Socket fecSocket;
    Decoder decoder;
    const std::uint32_t timestamp = 90000;
    const std::vector<Bytes> units = {kSps, kPps, kIdr};
    const Bytes bytes = {0, 0, 1, 0x41, 0x9a, 1, 0, 0, 0, 1, 0x41, 0x9b, 2};
    const kit::ReceiverOptions receiverOptions;

    kit::SenderOptions options;
    options.ssrc = 0x1234;
    options.mtu = 1200;
    options.fec = kit::Fec::reedSolomon(/*maxMedia=*/10, /*parity=*/3);

    kit::Sender sender(options,
                       [&](const kit::Datagram& d) { (d.isFec ? fecSocket : socket).send(d.bytes); });
    sender.sendPicture(timestamp, units);
    sender.sendAnnexB(timestamp + 3600, bytes);
    sender.flush();

    kit::Receiver receiver(receiverOptions,
                           [&](const kit::Picture& picture) { decoder.feed(picture.annexB()); });
    for (const Bytes& datagram : socket.datagrams) {
        const auto now = std::chrono::steady_clock::now();
        receiver.push(datagram, now);
        auto next = receiver.poll(now);
        if (next) {
            EXPECT_GE(*next, now);
        }
    }
    receiver.finish();

    Bytes expected = kStream;
    expected.insert(expected.end(), {0, 0, 0, 1, 0x41, 0x9a, 1, 0, 0, 0, 1, 0x41, 0x9b, 2});
    EXPECT_EQ(expected, decoder.fed);
    EXPECT_EQ(2u, socket.datagrams.size());
    EXPECT_EQ(3u, fecSocket.datagrams.size());  // two packets make one group, by `flush`
}

// Every datagram of the FEC port goes into the same `push`, and the scheme is all that a receiver is told.
TEST(FrontDoorTest, RebuildsWithTheSchemeThatTheSenderNames) {
    for (const kit::Fec& fec : {kit::Fec::xorParity(5), kit::Fec::reedSolomon(5, 1)}) {
        Socket socket;
        kit::SenderOptions options;
        options.mtu = 200;
        options.fec = fec;
        kit::Sender sender(options, [&](const kit::Datagram& d) { socket.send(d.bytes); });
        Bytes large(600, 0x55);
        large[0] = 0x65;
        ASSERT_TRUE(sender.sendPicture(1, {kSps, kPps, large}));
        sender.flush();

        Decoder decoder;
        kit::ReceiverOptions receiverOptions;
        receiverOptions.fec = options.fec;
        kit::Receiver receiver(receiverOptions, [&](const kit::Picture& picture) {
            EXPECT_TRUE(picture.isComplete());
            EXPECT_EQ(1u, picture.rebuiltPackets());
            EXPECT_EQ(3u, picture.units().size());
            decoder.feed(picture.units()[2]);
        });
        socket.datagrams.erase(socket.datagrams.begin() + 1);
        for (const Bytes& datagram : socket.datagrams) {
            receiver.push(datagram, kit::TimePoint());
        }
        EXPECT_EQ(large, decoder.fed);
    }
}

// --- Ranges of bytes ---

class RangesTest : public testing::Test {
protected:
    // The payload of the one packet that a call sent: a STAP-A of the three units (RFC 6184, 5.7.1).
    void expectSent() {
        const Bytes payload = {0x78, 0,    4, 0x67, 0x42, 0xc0, 0x1e, 0,   2,
                               0x68, 0xce, 0, 4,    0x65, 0x88, 0xa1, 0xa2};
        ASSERT_EQ(1u, socket.datagrams.size());
        EXPECT_EQ(payload, Bytes(socket.datagrams[0].begin() + 12, socket.datagrams[0].end()));
        socket.datagrams.clear();
    }

    Socket socket;
    kit::Sender sender{kit::SenderOptions(), [this](const kit::Datagram& d) { socket.send(d.bytes); }};
};

TEST_F(RangesTest, TakesAnyRangeOfUnits) {
    sender.sendPicture(1, std::vector<Bytes>{kSps, kPps, kIdr});
    expectSent();
    sender.sendPicture(1, std::vector<kit::BytesView>{kSps, kPps, kIdr});
    expectSent();
    sender.sendPicture(1, std::list<Bytes>{kSps, kPps, kIdr});
    expectSent();
    sender.sendPicture(1, {kSps, kPps, kIdr});
    expectSent();
    const std::initializer_list<Bytes> listed = {kSps, kPps, kIdr};
    sender.sendPicture(1, listed);
    expectSent();
    sender.sendPicture(1, {kit::BytesView(kSps.data(), kSps.size()), kit::BytesView(kPps), kIdr});
    expectSent();
    const Bytes array[] = {kSps, kPps, kIdr};
    sender.sendPicture(1, array);
    expectSent();
}

TEST_F(RangesTest, TakesBytesUnderAnyName) {
    using namespace std::string_view_literals;
    sender.sendPicture(
        1, std::array<std::string_view, 3>{"\x67\x42\xc0\x1e"sv, "\x68\xce"sv, "\x65\x88\xa1\xa2"sv});
    expectSent();
    sender.sendPicture(1, std::vector<std::string>{"\x67\x42\xc0\x1e", "\x68\xce", "\x65\x88\xa1\xa2"});
    expectSent();
    std::vector<std::vector<std::byte>> bytes;
    for (const Bytes& unit : {kSps, kPps, kIdr}) {
        bytes.emplace_back();
        for (const std::uint8_t byte : unit) {
            bytes.back().push_back(std::byte{byte});
        }
    }
    sender.sendPicture(1, bytes);
    expectSent();
    const std::array<std::uint8_t, 4> sps = {0x67, 0x42, 0xc0, 0x1e};
    const std::uint8_t pps[] = {0x68, 0xce};
    sender.sendPicture(1, {sps, pps, kIdr});
    expectSent();
}

TEST_F(RangesTest, TakesAByteStreamUnderAnyName) {
    sender.sendAnnexB(1, kStream);
    expectSent();
    sender.sendAnnexB(1, std::string(kStream.begin(), kStream.end()));
    expectSent();
    sender.sendAnnexB(1, {kStream.data(), kStream.size()});
    expectSent();
}

// A range may make its elements as it goes, and change itself while it does.
class CountingRange {
public:
    explicit CountingRange(const std::vector<Bytes>& units) : m_units(units) {}
    std::vector<Bytes>::const_iterator begin() {
        ++begun;
        return m_units.begin();
    }
    std::vector<Bytes>::const_iterator end() { return m_units.end(); }
    int begun = 0;

private:
    std::vector<Bytes> m_units;
};

TEST_F(RangesTest, TakesARangeThatIsNotConst) {
    CountingRange units({kSps, kPps, kIdr});
    sender.sendPicture(1, units);
    expectSent();
    EXPECT_EQ(1, units.begun);
}

#if __cplusplus >= 202002L
TEST_F(RangesTest, TakesSpansAndViews) {
    const std::vector<Bytes> units = {kSps, kPps, kIdr};
    sender.sendPicture(1, std::span(units));
    expectSent();
    const std::vector<std::span<const std::uint8_t>> spans(units.begin(), units.end());
    sender.sendPicture(1, spans);
    expectSent();
    sender.sendPicture(1, units | std::views::filter([](const Bytes& unit) { return !unit.empty(); }));
    expectSent();
    sender.sendAnnexB(1, std::span(kStream));
    expectSent();
}
#endif

TEST(FrontDoorTest, TakesADatagramUnderAnyName) {
    // Version 2, marker, type 98, number 1, timestamp 1, source 1, then a unit.
    const Bytes packet = {0x80, 0xe2, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0x67, 0x42};
    auto next = [number = std::uint8_t{0}, packet]() mutable {
        Bytes bytes = packet;
        bytes[3] = ++number;
        bytes[7] = number;
        return bytes;
    };
    Decoder decoder;
    kit::Receiver receiver({}, [&](const kit::Picture& picture) { decoder.feed(picture.annexB()); });
    const kit::TimePoint now;
    EXPECT_EQ(kit::PushResult::media, receiver.push(next(), now));
    const Bytes bytes = next();
    EXPECT_EQ(kit::PushResult::media, receiver.push(std::string(bytes.begin(), bytes.end()), now));
    char buffer[1500] = {};
    const Bytes third = next();
    std::copy(third.begin(), third.end(), std::begin(buffer));
    EXPECT_EQ(kit::PushResult::media, receiver.push({buffer, third.size()}, now));
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x67, 0x42}), decoder.fed);
}

// --- Wrong options ---

template <typename Make>
std::string thrownBy(Make make) {
    try {
        make();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return {};
}

TEST(FrontDoorTest, ThrowsTheTextOfTheCheck) {
    kit::SenderOptions sending;
    sending.mtu = 3;
    EXPECT_NE(std::string(), sending.check());
    EXPECT_EQ(sending.check(), thrownBy([&] { kit::Sender(sending, [](const kit::Datagram&) {}); }));
    kit::ReceiverOptions receiving;
    receiving.payloadType = 200;
    EXPECT_NE(std::string(), receiving.check());
    EXPECT_EQ(receiving.check(), thrownBy([&] { kit::Receiver(receiving, [](const kit::Picture&) {}); }));
}

TEST(FrontDoorTest, RefusesToRunWithoutTheHostsFunction) {
    EXPECT_NE(std::string(), thrownBy([] { kit::Sender(kit::SenderOptions(), nullptr); }));
    EXPECT_NE(std::string(), thrownBy([] { kit::Receiver(kit::ReceiverOptions(), nullptr); }));
}

}  // namespace

#include <talrtp/kit/ReceiverOptions.h>
#include <talrtp/kit/SenderOptions.h>

#include <gtest/gtest.h>

#include <string>

namespace talrtp::kit {
namespace {

TEST(FecTest, AcceptsWhatTheSchemesCarry) {
    EXPECT_EQ("", Fec::none().check());
    for (const int media : {1, 24}) {
        EXPECT_EQ("", Fec::xorParity(media).check());
    }
    EXPECT_EQ("", Fec::reedSolomon(1, 1).check());
    EXPECT_EQ("", Fec::reedSolomon(254, 1).check());
    EXPECT_EQ("", Fec::reedSolomon(1, 254).check());
}

TEST(FecTest, NamesTheValueOutOfRange) {
    EXPECT_EQ("XOR FEC takes 1 to 24 media packets in a group, not 0", Fec::xorParity(0).check());
    EXPECT_EQ("XOR FEC takes 1 to 24 media packets in a group, not 25", Fec::xorParity(25).check());
    EXPECT_EQ("XOR FEC makes 1 FEC packet for each group, not 2", (Fec{FecScheme::kXor, 5, 2}).check());
    EXPECT_EQ("Reed-Solomon FEC takes at least 1 media packet and 1 FEC packet in a group, not 0 and 3",
              Fec::reedSolomon(0, 3).check());
    EXPECT_EQ("Reed-Solomon FEC takes at most 255 packets in a group, media and FEC, not 254 and 2",
              Fec::reedSolomon(254, 2).check());
    EXPECT_EQ("Reed-Solomon FEC takes at most 255 packets in a group, media and FEC, not 2147483647 and 1",
              Fec::reedSolomon(2147483647, 1).check());
}

TEST(SenderOptionsTest, DefaultsAreRight) {
    EXPECT_EQ("", SenderOptions().check());
}

TEST(SenderOptionsTest, LeastMtuLeavesRoomForTheFecHeaders) {
    SenderOptions options;
    options.mtu = 15;
    EXPECT_EQ("an MTU is 16 to 65507 bytes with this FEC, not 15", options.check());
    options.fec = Fec::xorParity(5);
    options.mtu = 28;
    EXPECT_EQ("", options.check());
    options.mtu = 27;
    EXPECT_EQ("an MTU is 28 to 65507 bytes with this FEC, not 27", options.check());
    options.fec = Fec::reedSolomon(5, 2);
    options.mtu = 35;
    EXPECT_EQ("an MTU is 36 to 65507 bytes with this FEC, not 35", options.check());
    options.mtu = 65508;
    EXPECT_EQ("an MTU is 36 to 65507 bytes with this FEC, not 65508", options.check());
}

TEST(SenderOptionsTest, MediaPacketsAreAsLongAsTheFecOverThemAllows) {
    EXPECT_EQ(1200, maxMediaPacket(1200, FecScheme::kNone));
    EXPECT_EQ(1188, maxMediaPacket(1200, FecScheme::kXor));
    EXPECT_EQ(1180, maxMediaPacket(1200, FecScheme::kReedSolomon));
    EXPECT_EQ(1600, maxMediaPacket(1621, FecScheme::kReedSolomon));
    EXPECT_EQ(1599, maxMediaPacket(1619, FecScheme::kReedSolomon));
}

TEST(SenderOptionsTest, PayloadTypesDifferAndAreNoRtcp) {
    SenderOptions options;
    options.payloadType = 128;
    EXPECT_EQ("a payload type is 0 to 127, not 128", options.check());
    options.payloadType = 72;
    EXPECT_EQ("payload type 72 would read as RTCP: take one outside 64 to 95", options.check());
    options.payloadType = 111;
    EXPECT_EQ("media and FEC need different payload types, not 111 for both", options.check());
    options.payloadType = 96;
    EXPECT_EQ("", options.check());
}

TEST(ReceiverOptionsTest, DefaultsAreRight) {
    EXPECT_EQ("", ReceiverOptions().check());
}

TEST(ReceiverOptionsTest, NamesTheValueOutOfRange) {
    ReceiverOptions options;
    options.wait = std::chrono::milliseconds(4001);
    EXPECT_EQ("a wait is 0 to 4000 ms, not 4001", options.check());
    options.wait = std::chrono::milliseconds(-1);
    EXPECT_EQ("a wait is 0 to 4000 ms, not -1", options.check());
    options.wait = std::chrono::milliseconds(4000);
    EXPECT_EQ("", options.check());
    options.sourceTimeout = std::chrono::milliseconds(0);
    EXPECT_EQ("a source timeout is at least 1 ms, not 0", options.check());
    options.sourceTimeout = std::chrono::milliseconds(1);
    options.fecPayloadType = 98;
    EXPECT_EQ("media and FEC need different payload types, not 98 for both", options.check());
    options.fecPayloadType = 111;
    options.parameterSets = {{0x67}, {}};
    EXPECT_EQ("a parameter set is empty", options.check());
}

}  // namespace
}  // namespace talrtp::kit

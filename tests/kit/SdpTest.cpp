// Session descriptions: the text of our own, those of other programs, and what is wrong with a wrong one.

#include <talrtp/kit/Sdp.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Bytes.h"

namespace talrtp::kit {
namespace {

using test::Bytes;

// SPS and PPS of 2 and 3 bytes beyond the profile and level, so that each filling of Base64 occurs.
const Bytes kSps{0x67, 0x64, 0x00, 0x1e, 0xac};  // Z2QAHqw=
const Bytes kPps{0x68, 0xeb, 0xcc, 0xb2};        // aOvMsg==

Sdp streamToLoopback() {
    Sdp sdp = Sdp::fromParameterSets(std::vector<Bytes>{kSps, kPps});
    sdp.address = "127.0.0.1";
    sdp.port = 5004;
    return sdp;
}

void expectError(const std::string& text, const std::string& error) {
    const SdpResult result = Sdp::read(text);
    EXPECT_EQ(error, result.error);
    EXPECT_FALSE(result.sdp.has_value());
}

// Reads a description that has to be right.
Sdp readWhole(const std::string& text) {
    const SdpResult result = Sdp::read(text);
    EXPECT_EQ("", result.error);
    return result.sdp.value_or(Sdp());
}

// ---- Base64, RFC 4648, 10

TEST(Base64Test, TheVectorsOfRfc4648) {
    const std::vector<std::pair<std::string, std::string>> vectors = {{"", ""},
                                                                      {"f", "Zg=="},
                                                                      {"fo", "Zm8="},
                                                                      {"foo", "Zm9v"},
                                                                      {"foob", "Zm9vYg=="},
                                                                      {"fooba", "Zm9vYmE="},
                                                                      {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, text] : vectors) {
        EXPECT_EQ(text, encodeBase64(plain));
        EXPECT_EQ(Bytes(plain.begin(), plain.end()), decodeBase64(text));
        EXPECT_EQ(Bytes(plain.begin(), plain.end()), decodeBase64(text.substr(0, text.find('='))));
    }
    EXPECT_EQ("+/8=", encodeBase64(Bytes{0xfb, 0xff}));
}

TEST(Base64Test, OtherTextsAreRefused) {
    for (const char* text : {"Z", "Zm9vY", "Z===", "Zm 9", "Zm9-", "=Zm9", "Zm\n9v"}) {
        EXPECT_FALSE(decodeBase64(text).has_value()) << text;
    }
}

// ---- writing

TEST(SdpWriteTest, AStreamToOneReceiver) {
    EXPECT_EQ(
        "v=0\r\n"
        "o=- 0 0 IN IP4 127.0.0.1\r\n"
        "s=-\r\n"
        "c=IN IP4 127.0.0.1\r\n"
        "t=0 0\r\n"
        "m=video 5004 RTP/AVP 98\r\n"
        "a=rtpmap:98 H264/90000\r\n"
        "a=fmtp:98 packetization-mode=1;profile-level-id=64001e;sprop-parameter-sets=Z2QAHqw=,aOvMsg==\r\n",
        streamToLoopback().write());
}

TEST(SdpWriteTest, EveryFieldHasItsLine) {
    Sdp sdp = streamToLoopback();
    sdp.sessionName = "Camera 1";
    sdp.address = "239.1.2.3";
    sdp.ttl = 5;
    sdp.payloadType = 96;
    sdp.packetizationMode = 0;
    sdp.rtcpPort = 6001;
    sdp.frameRate = 29.97;
    sdp.ssrc = 0x12345678;
    sdp.fec = FecScheme::kReedSolomon;
    sdp.fecPort = 5006;
    EXPECT_EQ(
        "v=0\r\n"
        "o=- 0 0 IN IP4 239.1.2.3\r\n"
        "s=Camera 1\r\n"
        "c=IN IP4 239.1.2.3/5\r\n"
        "t=0 0\r\n"
        "a=group:FEC-FR 1 2\r\n"
        "m=video 5004 RTP/AVP 96\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=fmtp:96 packetization-mode=0;profile-level-id=64001e;sprop-parameter-sets=Z2QAHqw=,aOvMsg==\r\n"
        "a=framerate:29.97\r\n"
        "a=rtcp:6001\r\n"
        "a=ssrc:305419896 cname:talrtp-305419896\r\n"
        "a=mid:1\r\n"
        "m=application 5006 RTP/AVP 111\r\n"
        "a=rtpmap:111 x-talrtp-rs-fec/90000\r\n"
        "a=mid:2\r\n",
        sdp.write());
}

TEST(SdpWriteTest, AddressesChooseTheirNetwork) {
    Sdp sdp = streamToLoopback();
    sdp.address = "ff02::1:2";
    EXPECT_NE(std::string::npos, sdp.write().find("c=IN IP6 ff02::1:2\r\n"));
    sdp.address = "media.example.com";
    EXPECT_NE(std::string::npos, sdp.write().find("c=IN IP4 media.example.com\r\n"));
    for (const char* unicast : {"223.255.255.255", "240.0.0.1", "224.example.com"}) {
        sdp.address = unicast;
        EXPECT_NE(std::string::npos, sdp.write().find("c=IN IP4 " + sdp.address + "\r\n"));
    }
    for (const char* multicast : {"224.0.0.1", "239.255.255.255"}) {
        sdp.address = multicast;
        EXPECT_NE(std::string::npos, sdp.write().find("c=IN IP4 " + sdp.address + "/1\r\n"));
    }
}

TEST(SdpWriteTest, AnXorFlowHasItsOwnName) {
    Sdp sdp = streamToLoopback();
    sdp.fec = FecScheme::kXor;
    sdp.fecPort = 5006;
    sdp.fecPayloadType = 100;
    EXPECT_NE(std::string::npos, sdp.write().find("a=rtpmap:100 x-talrtp-xor-fec/90000\r\n"));
}

TEST(SdpWriteTest, FrameRatesAreDecimalNumbers) {
    Sdp sdp = streamToLoopback();
    const std::vector<std::pair<double, std::string>> rates = {
        {25, "25"}, {0.5, "0.5"}, {30000.0 / 1001, "29.97003"}, {120.000001, "120.000001"}, {10, "10"}};
    for (const auto& [rate, text] : rates) {
        sdp.frameRate = rate;
        EXPECT_NE(std::string::npos, sdp.write().find("a=framerate:" + text + "\r\n")) << sdp.write();
    }
}

TEST(SdpWriteTest, AFaultIsNamedAndNothingIsWritten) {
    const auto expectFault = [](const std::string& fault, void (*spoil)(Sdp&)) {
        Sdp sdp = streamToLoopback();
        sdp.fec = FecScheme::kXor;
        sdp.fecPort = 5006;
        EXPECT_EQ("", sdp.check());
        spoil(sdp);
        EXPECT_EQ(fault, sdp.check());
        EXPECT_EQ("", sdp.write());
    };
    expectFault("address \"\" is no address", [](Sdp& sdp) { sdp.address = ""; });
    expectFault("address \"a b\" is no address", [](Sdp& sdp) { sdp.address = "a b"; });
    expectFault("sessionName holds the end of a line", [](Sdp& sdp) { sdp.sessionName = "a\nm=video"; });
    expectFault("port 0 is not in 1..65535", [](Sdp& sdp) { sdp.port = 0; });
    expectFault("port 65536 is not in 1..65535", [](Sdp& sdp) { sdp.port = 65536; });
    expectFault("rtcpPort -1 is not in 1..65535", [](Sdp& sdp) { sdp.rtcpPort = -1; });
    expectFault("fecPort 5004 is the port of the media", [](Sdp& sdp) { sdp.fecPort = 5004; });
    expectFault("fecPort 0 is not in 1..65535", [](Sdp& sdp) { sdp.fecPort = 0; });
    expectFault("payloadType 128 is not in 0..127", [](Sdp& sdp) { sdp.payloadType = 128; });
    expectFault("fecPayloadType 200 is not in 0..127", [](Sdp& sdp) { sdp.fecPayloadType = 200; });
    expectFault("clockRate is 0", [](Sdp& sdp) { sdp.clockRate = 0; });
    expectFault("profileLevelId \"64001\" is not 6 hexadecimal digits",
                [](Sdp& sdp) { sdp.profileLevelId = "64001"; });
    expectFault("profileLevelId \"64001g\" is not 6 hexadecimal digits",
                [](Sdp& sdp) { sdp.profileLevelId = "64001g"; });
    expectFault("packetizationMode 2 is neither 0 nor 1", [](Sdp& sdp) { sdp.packetizationMode = 2; });
    expectFault("a parameter set is empty", [](Sdp& sdp) { sdp.parameterSets.emplace_back(); });
    expectFault("ttl 256 is not in 0..255", [](Sdp& sdp) { sdp.ttl = 256; });
    expectFault("frameRate 0.000000 is not above 0 and below 1000000", [](Sdp& sdp) { sdp.frameRate = 0; });
    expectFault("frameRate nan is not above 0 and below 1000000",
                [](Sdp& sdp) { sdp.frameRate = std::numeric_limits<double>::quiet_NaN(); });
}

TEST(SdpWriteTest, ProfileAndLevelAreThoseOfTheFirstSps) {
    const Bytes other{0x67, 0x42, 0xc0, 0x0c};
    EXPECT_EQ("64001e", Sdp::fromParameterSets(std::vector<Bytes>{kPps, kSps, other}).profileLevelId);
    EXPECT_EQ("", Sdp::fromParameterSets(std::vector<Bytes>{kPps}).profileLevelId);
    EXPECT_EQ("", Sdp::fromParameterSets(std::vector<Bytes>{{0x67, 0x42, 0xc0}}).profileLevelId);
    EXPECT_EQ((std::vector<Bytes>{kPps, kSps}),
              Sdp::fromParameterSets(std::vector<Bytes>{kPps, kSps}).parameterSets);
}

// ---- descriptions of other programs

const Bytes kBundledSps{0x67, 0x64, 0x00, 0x1e, 0xac, 0xb2, 0x01, 0x40, 0x5f, 0xf2, 0xe0, 0x22, 0x00,
                        0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x65, 0x1e, 0x2c, 0x5c, 0x90};
const Bytes kBundledPps{0x68, 0xeb, 0xcc, 0xb2, 0x2c};

TEST(SdpReadTest, FfmpegUnicast) {
    const Sdp sdp = readWhole(
        "v=0\r\n"
        "o=- 0 0 IN IP4 127.0.0.1\r\n"
        "s=No Name\r\n"
        "c=IN IP4 127.0.0.1\r\n"
        "t=0 0\r\n"
        "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
        "m=video 5004 RTP/AVP 96\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=fmtp:96 packetization-mode=1; "
        "sprop-parameter-sets=Z2QAHqyyAUBf8uAiAAADAAIAAAMAZR4sXJA=,aOvMsiw=; profile-level-id=64001E\r\n");
    EXPECT_EQ("No Name", sdp.sessionName);
    EXPECT_EQ("127.0.0.1", sdp.address);
    EXPECT_EQ(5004, sdp.port);
    EXPECT_EQ(96u, sdp.payloadType);
    EXPECT_EQ(90000u, sdp.clockRate);
    EXPECT_EQ("64001E", sdp.profileLevelId);
    EXPECT_EQ(1, sdp.packetizationMode);
    EXPECT_EQ((std::vector<Bytes>{kBundledSps, kBundledPps}), sdp.parameterSets);
    EXPECT_FALSE(sdp.rtcpPort || sdp.frameRate || sdp.ssrc);
    EXPECT_EQ(FecScheme::kNone, sdp.fec);
}

TEST(SdpReadTest, FfmpegMulticast) {
    const Sdp sdp = readWhole(
        "v=0\r\n"
        "o=- 0 0 IN IP4 127.0.0.1\r\n"
        "s=No Name\r\n"
        "c=IN IP4 239.1.2.3/5\r\n"
        "t=0 0\r\n"
        "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
        "m=video 5010 RTP/AVP 96\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=fmtp:96 packetization-mode=1; sprop-parameter-sets=Z0LADNoFBn58BEAAAAMAQAAADIPFCqg=,aM4PyA==; "
        "profile-level-id=42C00C\r\n");
    EXPECT_EQ("239.1.2.3", sdp.address);
    EXPECT_EQ(5, sdp.ttl);
    EXPECT_EQ((Bytes{0x68, 0xce, 0x0f, 0xc8}), sdp.parameterSets.at(1));
}

TEST(SdpReadTest, FfmpegIp6) {
    const Sdp sdp = readWhole(
        "v=0\r\n"
        "o=- 0 0 IN IP6 ::1\r\n"
        "s=No Name\r\n"
        "c=IN IP6 ::1\r\n"
        "t=0 0\r\n"
        "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
        "m=video 5012 RTP/AVP 96\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=fmtp:96 packetization-mode=1\r\n");
    EXPECT_EQ("::1", sdp.address);
    EXPECT_EQ("", sdp.profileLevelId);
    EXPECT_TRUE(sdp.parameterSets.empty());
}

TEST(SdpReadTest, FfmpegAudioIsRefused) {
    expectError(
        "v=0\r\n"
        "o=- 0 0 IN IP4 127.0.0.1\r\n"
        "s=No Name\r\n"
        "c=IN IP4 127.0.0.1\r\n"
        "t=0 0\r\n"
        "a=tool:libavformat LIBAVFORMAT_VERSION\r\n"
        "m=audio 5014 RTP/AVP 97\r\n"
        "b=AS:64\r\n"
        "a=rtpmap:97 opus/48000/2\r\n",
        "line 7: m= \"audio 5014 RTP/AVP 97\" is no H.264 video over RTP/AVP, and no other medium is");
}

TEST(SdpReadTest, GStreamer) {
    const Sdp sdp = readWhole(
        "v=0\r\n"
        "o=- 1188340656180883 1 IN IP4 127.0.0.1\r\n"
        "s=Session streamed with GStreamer\r\n"
        "i=rtsp-server\r\n"
        "t=0 0\r\n"
        "a=tool:GStreamer\r\n"
        "a=type:broadcast\r\n"
        "a=control:*\r\n"
        "a=range:npt=now-\r\n"
        "m=video 5004 RTP/AVP 96\r\n"
        "c=IN IP4 127.0.0.1\r\n"
        "b=AS:800\r\n"
        "a=rtpmap:96 H264/90000\r\n"
        "a=framerate:30\r\n"
        "a=fmtp:96 packetization-mode=1;profile-level-id=64001e;"
        "sprop-parameter-sets=Z2QAHqyyAUBf8uAiAAADAAIAAAMAZR4sXJA=,aOvMsiw=\r\n"
        "a=control:stream=0\r\n");
    EXPECT_EQ("127.0.0.1", sdp.address);
    EXPECT_EQ(30.0, sdp.frameRate);
    EXPECT_EQ("64001e", sdp.profileLevelId);
    EXPECT_EQ((std::vector<Bytes>{kBundledSps, kBundledPps}), sdp.parameterSets);
}

// As a player's streaming output writes it: LF, audio first, a port in a=rtcp, a semicolon at the end of
// fmtp.
TEST(SdpReadTest, SeveralMedia) {
    const Sdp sdp = readWhole(
        "v=0\n"
        "o=- 15454565486 15454565486 IN IP4 host\n"
        "s=Stream\n"
        "c=IN IP4 10.0.0.1\n"
        "t=0 0\n"
        "a=recvonly\n"
        "m=audio 5002 RTP/AVP 14\n"
        "a=rtpmap:14 MPA/90000\n"
        "m=video 6000 RTP/AVP 33\n"
        "m=video 5006/2 RTP/AVPF 97 96\n"
        "c=IN IP4 10.0.0.2\n"
        "b=RR:0\n"
        "a=rtpmap:97 VP8/90000\n"
        "a=rtpmap:96 h264/90000\n"
        "a=fmtp:97 profile-level-id=000000\n"
        "a=fmtp:96 Packetization-Mode=1; profile-level-id=42c01e ; sprop-parameter-sets= Z2QAHqw , aOvMsg== "
        ";\n"
        "a=rtcp:5009 IN IP4 10.0.0.2\n"
        "a=ssrc:4294967295 cname:x\n"
        "a=ssrc:7 cname:y\n"
        "m=video 7000 RTP/AVP 99\n"
        "a=rtpmap:99 H264/90000\n");
    EXPECT_EQ("10.0.0.2", sdp.address);
    EXPECT_EQ(5006, sdp.port);
    EXPECT_EQ(96u, sdp.payloadType);
    EXPECT_EQ("42c01e", sdp.profileLevelId);
    EXPECT_EQ((std::vector<Bytes>{kSps, kPps}), sdp.parameterSets);
    EXPECT_EQ(5009, sdp.rtcpPort);
    EXPECT_EQ(0xffffffffu, sdp.ssrc);
}

TEST(SdpReadTest, TheOrderOfPayloadTypesIsThatOfTheMediumLine) {
    const std::string rest =
        "c=IN IP4 ::\na=rtpmap:97 H264/90000\na=rtpmap:96 H264/90000\na=rtpmap:95 H264/90000\n";
    EXPECT_EQ(96u, readWhole("m=video 1 RTP/AVP 96 97\n" + rest).payloadType);
    EXPECT_EQ(97u, readWhole("m=video 1 RTP/AVP 97 96\n" + rest).payloadType);
}

TEST(SdpReadTest, APortOfZeroIsLeftToTheSetup) {
    EXPECT_EQ(0, readWhole("m=video 0 RTP/AVP 96\nc=IN IP4 0.0.0.0\na=rtpmap:96 H264/90000\n").port);
}

TEST(SdpReadTest, LinesWithoutMeaningAreSkipped) {
    const Sdp sdp = readWhole(
        "\n\nnonsense\n=\nv=0\nx\r\r\nm=video 5004 RTP/AVP 96\nc=IN IP4 h\n\n"
        "a=rtpmap:x H264/90000\na=rtpmap:96 H264/90000\na=framerate:abc\na=ssrc:abc\na=fmtp:1 x\na=fmtp:96 "
        "a;;=;b=\n");
    EXPECT_EQ(5004, sdp.port);
    EXPECT_FALSE(sdp.frameRate || sdp.ssrc);
}

TEST(SdpReadTest, EveryLineEndIsTaken) {
    const std::string text =
        "v=0\ns=a\rb\nc=IN IP4 127.0.0.1\nm=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\na=framerate:25\n";
    EXPECT_EQ("a\rb", readWhole(text).sessionName);  // ends at LF, and CR counts before it only
    for (const std::string end : {"\n", "\r\n", "\r", "\r\r\n"}) {
        std::string changed;
        for (const char letter : text) {
            changed += letter == '\n' ? end : std::string(letter == '\r' ? 0 : 1, letter);
        }
        const Sdp sdp = readWhole(changed);
        EXPECT_EQ("ab", sdp.sessionName);
        EXPECT_EQ("127.0.0.1", sdp.address);
        EXPECT_EQ(96u, sdp.payloadType);
        EXPECT_EQ(25.0, sdp.frameRate);
    }
}

// ---- errors

const std::string kHead = "v=0\nc=IN IP4 127.0.0.1\nm=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\n";

TEST(SdpReadTest, AnErrorNamesLineAndValue) {
    expectError("", "no m= line: this is no session description of a stream");
    expectError("v=1\n" + kHead, "line 1: version \"1\" is not 0");
    expectError("m=video x RTP/AVP 96\nc=IN IP4 h\na=rtpmap:96 H264/90000\n",
                "line 1: m= \"video x RTP/AVP 96\" has no port from 0 to 65535");
    expectError("m=video 65536 RTP/AVP 96\nc=IN IP4 h\na=rtpmap:96 H264/90000\n",
                "line 1: m= \"video 65536 RTP/AVP 96\" has no port from 0 to 65535");
    expectError("m=video 1 RTP/AVP 96\nc=IN IP4 h\na=rtpmap:96 H264/fast\n",
                "line 3: clock rate \"fast\" is not a number above 0");
    expectError("m=video 1 RTP/AVP 96\nc=IN IP4 h\na=rtpmap:96 H264/4294967296\n",
                "line 3: clock rate \"4294967296\" is not a number above 0");
    expectError("m=video 1 RTP/AVP 96\na=rtpmap:96 H264/90000\n",
                "no c= line tells the address of the video");
    expectError("m=video 1 RTP/AVP 96\nc=IN IP5 h\na=rtpmap:96 H264/90000\n",
                "line 2: c= \"IN IP5 h\" is no internet address");
    expectError("m=video 1 RTP/AVP 96\nc=IN IP4\na=rtpmap:96 H264/90000\n",
                "line 2: c= \"IN IP4\" is no internet address");
    expectError("m=video 1 RTP/AVP 96\nc=IN IP4 224.1.1.1/256\na=rtpmap:96 H264/90000\n",
                "line 2: TTL \"256\" is not in 0..255");
    expectError(kHead + "a=rtcp:0\n", "line 5: RTCP port \"0\" is not in 1..65535");
    expectError(kHead + "a=fmtp:96 packetization-mode=2\n",
                "line 5: packetization-mode \"2\" is neither 0 nor 1");
    expectError(kHead + "a=fmtp:96 profile-level-id=64001\n",
                "line 5: profile-level-id \"64001\" is not 6 hexadecimal digits");
    expectError(kHead + "a=fmtp:96 sprop-parameter-sets=Z2QAHqw=,a!\n",
                "line 5: parameter set \"a!\" is no Base64");
}

TEST(SdpReadTest, AVideoThatCannotBeReceivedIsNamed) {
    const std::string fault = " is no H.264 video over RTP/AVP, and no other medium is";
    expectError("m=audio 1 RTP/AVP 0\nm=video 2 RTP/SAVP 96\nc=IN IP4 h\na=rtpmap:96 H264/90000\n",
                "line 2: m= \"video 2 RTP/SAVP 96\"" + fault);
    expectError("m=video 2 RTP/AVP 97\nc=IN IP4 h\na=rtpmap:96 H264/90000\n",
                "line 1: m= \"video 2 RTP/AVP 97\"" + fault);
    expectError("m=audio 2 RTP/AVP 96\nc=IN IP4 h\na=rtpmap:96 H264/90000\n",
                "line 1: m= \"audio 2 RTP/AVP 96\"" + fault);
}

TEST(SdpReadTest, ValuesInErrorsAreShortAndPrintable) {
    expectError("v=\x1b[2J" + std::string(100, 'x') + "\n",
                "line 1: version \"?[2J" + std::string(56, 'x') + "...\" is not 0");
}

TEST(SdpReadTest, EveryShorterTextIsReadOrRefusedWithAReason) {
    Sdp sdp = streamToLoopback();
    sdp.fec = FecScheme::kReedSolomon;
    sdp.fecPort = 5006;
    const std::string text = sdp.write();
    std::size_t refused = 0;
    for (std::size_t size = 0; size < text.size(); ++size) {
        const SdpResult result = Sdp::read(std::string(text.begin(), text.begin() + static_cast<int>(size)));
        EXPECT_NE(result.sdp.has_value(), !result.error.empty()) << size;
        refused += result.sdp ? 0 : 1;
    }
    // The text is complete enough once the encoding of the video is named.
    EXPECT_GE(refused, text.find("H264/9") + 1);
}

// ---- round trips

Sdp randomSdp(std::mt19937& engine) {
    const auto upTo = [&](unsigned int most) { return static_cast<int>(engine() % (most + 1)); };
    const std::vector<std::string> addresses = {"127.0.0.1", "::1", "239.255.0.1", "example.com",
                                                "fe80::1-2_3"};
    Sdp sdp;
    sdp.sessionName = std::vector<std::string>{"", "a name", "x=y;z"}[static_cast<std::size_t>(upTo(2))];
    sdp.address = addresses[static_cast<std::size_t>(upTo(4))];
    sdp.port = 1 + upTo(29999);
    sdp.payloadType = static_cast<unsigned int>(upTo(127));
    sdp.clockRate = 1 + engine() % 0xffffffff;
    sdp.profileLevelId = upTo(1) == 0 ? "" : "42C01f";
    sdp.packetizationMode = upTo(1);
    for (int left = upTo(4); left > 0; --left) {
        Bytes set(static_cast<std::size_t>(1 + upTo(40)));
        for (std::uint8_t& value : set) {
            value = static_cast<std::uint8_t>(engine());
        }
        sdp.parameterSets.push_back(set);
    }
    if (upTo(1) == 0) {
        sdp.rtcpPort = 1 + upTo(65534);
        sdp.frameRate = static_cast<double>(1 + engine() % 999999999) / 1000000;
        sdp.ssrc = static_cast<std::uint32_t>(engine());
    }
    sdp.fec = static_cast<FecScheme>(upTo(2));
    sdp.fecPort = sdp.fec == FecScheme::kNone ? 0 : 30000 + upTo(35535);
    sdp.fecPayloadType = sdp.fec == FecScheme::kNone ? 111 : static_cast<unsigned int>(upTo(127));
    sdp.ttl = sdp.address == "239.255.0.1" ? upTo(255) : 1;
    return sdp;
}

TEST(SdpPropertyTest, WhatIsWrittenIsRead) {
    std::mt19937 engine(11);
    for (int round = 0; round < 2000; ++round) {
        const Sdp sdp = randomSdp(engine);
        ASSERT_EQ("", sdp.check());
        const SdpResult result = Sdp::read(sdp.write());
        ASSERT_EQ("", result.error) << sdp.write();
        ASSERT_TRUE(*result.sdp == sdp) << sdp.write();
    }
}

TEST(SdpPropertyTest, DamagedTextsAreReadWithoutHarm) {
    std::mt19937 engine(12);
    for (int round = 0; round < 5000; ++round) {
        std::string text = randomSdp(engine).write();
        for (int changes = 0; changes < 4; ++changes) {
            text[engine() % text.size()] = static_cast<char>(engine());
        }
        const SdpResult result = Sdp::read(text);
        ASSERT_NE(result.sdp.has_value(), !result.error.empty());
        if (result.sdp && result.sdp->check().empty()) {
            ASSERT_TRUE(*Sdp::read(result.sdp->write()).sdp == *result.sdp) << text;
        }
    }
}

}  // namespace
}  // namespace talrtp::kit

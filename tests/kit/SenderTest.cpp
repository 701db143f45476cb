// The sending end: the bytes of its packets, their order, and its account of refusals.

#include "SeededRandom.h"
#include "kit/SentStream.h"

#include <talrtp/kit/Sender.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talrtp::kit {
namespace {

using test::Bytes;
using test::SeededRandom;
using test::SentDatagram;
using test::SentStream;
using testing::ElementsAre;
using testing::IsEmpty;

SenderOptions optionsOf(int mtu, const Fec& fec = Fec::none(), bool aggregate = true) {
    SenderOptions options;
    options.ssrc = 0x11223344;
    options.mtu = mtu;
    options.fec = fec;
    options.aggregate = aggregate;
    options.firstSequence = 0x0102;
    options.firstFecSequence = 0x0a0b;
    return options;
}

// A sender and the datagrams that it passed on.
struct Sending {
    explicit Sending(const SenderOptions& options) : sender(options, std::ref(sent)) {}

    SentStream sent;
    Sender sender;
};

Bytes packetOf(std::uint8_t markerAndType, std::uint16_t sequence, const Bytes& payload) {
    Bytes packet{0x80, markerAndType, static_cast<std::uint8_t>(sequence >> 8),
                 static_cast<std::uint8_t>(sequence)};
    packet.insert(packet.end(), {0x55, 0x66, 0x77, 0x88, 0x11, 0x22, 0x33, 0x44});
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

constexpr std::uint32_t kTimestamp = 0x55667788;
constexpr std::uint8_t kMedia = 98;
constexpr std::uint8_t kMediaWithMarker = 0x80 | 98;

TEST(Sender, ASmallUnitIsAPacketOfItsOwn) {
    Sending sending(optionsOf(100));
    const SendResult result = sending.sender.sendPicture(kTimestamp, std::vector<Bytes>{{0x65, 1, 2, 3}});
    EXPECT_TRUE(result);
    EXPECT_EQ(result.sentUnits, 1u);
    EXPECT_EQ(result.packets, 1u);
    ASSERT_EQ(sending.sent.all.size(), 1u);
    EXPECT_EQ(sending.sent.all[0].bytes, packetOf(kMediaWithMarker, 0x0102, {0x65, 1, 2, 3}));
    const Datagram& told = sending.sent.all[0].told;
    EXPECT_FALSE(told.isFec);
    EXPECT_EQ(told.sequence, 0x0102);
    EXPECT_EQ(told.timestamp, kTimestamp);
    EXPECT_TRUE(told.isLastOfPicture);
}

// A STAP-A: type 24 with the highest NRI, then each unit after its length in 16 bits.
TEST(Sender, SmallUnitsShareAPacket) {
    Sending sending(optionsOf(100));
    sending.sender.sendPicture(kTimestamp, {Bytes{0x47, 9}, Bytes{0x68, 8, 7}, Bytes{0x25, 6}});
    ASSERT_EQ(sending.sent.all.size(), 1u);
    EXPECT_EQ(sending.sent.all[0].bytes,
              packetOf(kMediaWithMarker, 0x0102, {0x78, 0, 2, 0x47, 9, 0, 3, 0x68, 8, 7, 0, 2, 0x25, 6}));
}

// 17 bytes leave room for 5 bytes of a unit and 3 of a fragment. A unit of 7 bytes takes 3 fragments, of
// 3, 3 and 1 bytes. Its header byte travels in the two bytes before each: 0x65 is NRI 3 and type 5.
TEST(Sender, ALongUnitIsCutIntoFragments) {
    Sending sending(optionsOf(17));
    sending.sender.sendPicture(kTimestamp, std::vector<Bytes>{{0x65, 1, 2, 3, 4, 5, 6}});
    ASSERT_EQ(sending.sent.all.size(), 3u);
    EXPECT_EQ(sending.sent.all[0].bytes, packetOf(kMedia, 0x0102, {0x7c, 0x85, 1, 2}));
    EXPECT_EQ(sending.sent.all[1].bytes, packetOf(kMedia, 0x0103, {0x7c, 0x05, 3, 4, 5}));
    EXPECT_EQ(sending.sent.all[2].bytes, packetOf(kMediaWithMarker, 0x0104, {0x7c, 0x45, 6}));
    EXPECT_FALSE(sending.sent.all[1].told.isLastOfPicture);
    EXPECT_TRUE(sending.sent.all[2].told.isLastOfPicture);
}

// The FEC packet of one XOR group of one packet (RFC 2733, 3.3): its RTP header, with the marker as recovery
// bit; base, length of 4, payload type 98, mask of the first bit, timestamp; then the 4 bytes themselves.
TEST(Sender, XorFecFollowsItsPacket) {
    Sending sending(optionsOf(100, Fec::xorParity(1)));
    const SendResult result = sending.sender.sendPicture(kTimestamp, std::vector<Bytes>{{0x65, 1, 2, 3}});
    EXPECT_EQ(result.packets, 1u);
    EXPECT_EQ(result.fecPackets, 1u);
    ASSERT_EQ(sending.sent.all.size(), 2u);
    EXPECT_EQ(sending.sent.all[1].bytes,
              packetOf(0x80 | 111, 0x0a0b,
                       {0x01, 0x02, 0, 4, 98, 0x80, 0, 0, 0x55, 0x66, 0x77, 0x88, 0x65, 1, 2, 3}));
    EXPECT_TRUE(sending.sent.all[1].told.isFec);
    EXPECT_EQ(sending.sent.all[1].told.sequence, 0x0a0b);
    EXPECT_FALSE(sending.sent.all[1].told.isLastOfPicture);
}

TEST(Sender, TakesPayloadTypesOfTheHost) {
    SenderOptions options = optionsOf(100, Fec::xorParity(1));
    options.payloadType = 96;
    options.fecPayloadType = 97;
    Sending sending(options);
    sending.sender.sendPicture(0, {Bytes{0x65}});
    ASSERT_EQ(sending.sent.all.size(), 2u);
    EXPECT_EQ(sending.sent.all[0].bytes[1], 0x80 | 96);
    EXPECT_EQ(sending.sent.all[1].bytes[1], 0x80 | 97);
}

TEST(Sender, FirstSequenceIsRandomUnlessGiven) {
    std::vector<std::uint16_t> firsts;
    for (int i = 0; i < 8; ++i) {
        Sending sending{SenderOptions()};
        sending.sender.sendPicture(0, {Bytes{0x65}});
        firsts.push_back(sending.sent.all.at(0).sequence());
    }
    EXPECT_NE(std::count(firsts.begin(), firsts.end(), firsts[0]), 8);
}

TEST(Sender, TakesAnyRangeOfAnyBytes) {
    Sending sending(optionsOf(100, Fec::none(), false));
    const std::array<std::string_view, 2> views{"ab", "gh"};
    const std::list<std::vector<char>> list{{'a', 'b'}};
    const Bytes array[] = {{0x61, 0x62}};
    EXPECT_TRUE(sending.sender.sendPicture(0, views));
    EXPECT_TRUE(sending.sender.sendPicture(0, list));
    EXPECT_TRUE(sending.sender.sendPicture(0, array));
    EXPECT_THAT(test::depacketize(sending.sent.all),
                ElementsAre(Bytes{0x61, 0x62}, Bytes{0x67, 0x68}, Bytes{0x61, 0x62}, Bytes{0x61, 0x62}));
}

TEST(Sender, SendsAByteStream) {
    Sending sending(optionsOf(100));
    const SendResult result =
        sending.sender.sendAnnexB(kTimestamp, Bytes{0, 0, 0, 1, 0x67, 1, 0, 0, 1, 0x65, 2, 0, 0});
    EXPECT_EQ(result.sentUnits, 2u);
    EXPECT_THAT(test::depacketize(sending.sent.all), ElementsAre(Bytes{0x67, 1}, Bytes{0x65, 2}));
}

TEST(Sender, RefusesBytesWithoutStartCode) {
    Sending sending(optionsOf(100));
    const SendResult result = sending.sender.sendAnnexB(0, Bytes{0x65, 1, 2});
    EXPECT_FALSE(result);
    EXPECT_EQ(result.refusedUnits, 1u);
    EXPECT_EQ(result.error, "3 bytes without a start code (00 00 01)");
    EXPECT_THAT(sending.sent.all, IsEmpty());
    EXPECT_EQ(sending.sender.statistics().refusedUnits, 1u);
}

TEST(Sender, APictureWithoutUnitsSendsNothing) {
    Sending sending(optionsOf(100));
    EXPECT_TRUE(sending.sender.sendPicture(0, std::vector<Bytes>()));
    EXPECT_TRUE(sending.sender.sendAnnexB(0, Bytes{0, 0, 1}));
    EXPECT_THAT(sending.sent.all, IsEmpty());
    EXPECT_EQ(sending.sender.statistics().sentPictures, 0u);
}

TEST(Sender, LeavesOutWhatRtpCannotCarryAndNamesTheFirst) {
    Sending sending(optionsOf(100, Fec::none(), false));
    const SendResult result = sending.sender.sendPicture(
        0, {Bytes{0x67, 1}, Bytes{0x7f, 1, 2}, BytesView(), Bytes{0x60}, Bytes{0x65, 3}});
    EXPECT_FALSE(result);
    EXPECT_EQ(result.sentUnits, 2u);
    EXPECT_EQ(result.refusedUnits, 3u);
    EXPECT_EQ(result.error,
              "unit 1 (3 bytes, type 31) cannot be sent: types 24 to 31 mark packets in RTP, not units");
    EXPECT_THAT(test::depacketize(sending.sent.all), ElementsAre(Bytes{0x67, 1}, Bytes{0x65, 3}));
    EXPECT_TRUE(sending.sent.all.back().marker());
    EXPECT_EQ(sending.sender.statistics().refusedUnits, 3u);
    EXPECT_EQ(sending.sender.statistics().sentUnits, 2u);
}

TEST(Sender, NamesTheReasonOfEachRefusal) {
    Sending sending(optionsOf(100));
    EXPECT_EQ(sending.sender.sendPicture(0, {BytesView()}).error,
              "unit 0 (0 bytes) cannot be sent: it is empty");
    EXPECT_EQ(sending.sender.sendPicture(0, {Bytes{0x60, 7}}).error,
              "unit 0 (2 bytes, type 0) cannot be sent: type 0 is not used in RTP");
    EXPECT_EQ(sending.sender.sendPicture(0, {BytesView(static_cast<const char*>(nullptr), 5)}).error,
              "unit 0 (5 bytes) cannot be sent: its pointer is null");
}

TEST(Sender, ABrokenPictureDoesNotStopTheNext) {
    Sending sending(optionsOf(100, Fec::reedSolomon(10, 2)));
    EXPECT_FALSE(sending.sender.sendPicture(0, {BytesView()}));
    EXPECT_THAT(sending.sent.all, IsEmpty());
    EXPECT_TRUE(sending.sender.sendPicture(3000, {Bytes{0x65, 3}}));
    EXPECT_EQ(sending.sent.all.size(), 1u);
    EXPECT_EQ(sending.sent.all[0].sequence(), 0x0102);
    EXPECT_EQ(sending.sender.statistics().sentPictures, 1u);
}

// Packets of 16 bytes hold two bytes of a fragment each: 8192 of them carry 16384 bytes, header byte
// included.
TEST(Sender, RefusesAUnitForWhichThePictureHasNoPacketsLeft) {
    Sending sending(optionsOf(16));
    const Bytes small{0x67, 1};
    const Bytes most(16384, 0x65);
    const Bytes tooMuch(16385, 0x65);
    SendResult result = sending.sender.sendPicture(0, std::vector<Bytes>{most});
    EXPECT_TRUE(result);
    EXPECT_EQ(result.packets, 8192u);
    result = sending.sender.sendPicture(0, std::vector<Bytes>{small, tooMuch, small});
    EXPECT_EQ(result.error,
              "unit 1 (16385 bytes, type 5) cannot be sent: it takes 8193 packets of at most 16 bytes, and a "
              "picture has 8191 left of 8192");
    EXPECT_EQ(result.sentUnits, 2u);
    EXPECT_EQ(result.refusedUnits, 1u);
    EXPECT_EQ(result.packets, 2u);
    EXPECT_TRUE(sending.sent.all.back().marker());
    EXPECT_EQ(sending.sent.all.back().payload(), small);
}

TEST(Sender, RefusesASingleUnitOfOnePacketMoreThanAPictureHas) {
    Sending sending(optionsOf(16));
    const SendResult result = sending.sender.sendPicture(0, std::vector<Bytes>{Bytes(16385, 0x65)});
    EXPECT_EQ(result.error,
              "unit 0 (16385 bytes, type 5) cannot be sent: it takes 8193 packets of at most 16 bytes, and a "
              "picture has 8192 left of 8192");
    EXPECT_EQ(result.packets, 0u);
    EXPECT_THAT(sending.sent.all, IsEmpty());
}

TEST(Sender, UsesThePacketsOfAPictureUp) {
    Sending sending(optionsOf(16));
    const Bytes small{0x67, 1};
    const Bytes last(16382, 0x65);  // 8191 packets
    SendResult result = sending.sender.sendPicture(0, std::vector<Bytes>{small, last});
    EXPECT_TRUE(result);
    EXPECT_EQ(result.packets, 8192u);
    result = sending.sender.sendPicture(0, std::vector<Bytes>{last, small, small});
    EXPECT_EQ(
        result.error,
        "unit 2 (2 bytes, type 7) cannot be sent: it takes 1 packets of at most 16 bytes, and a picture "
        "has 0 left of 8192");
    EXPECT_EQ(result.packets, 8192u);
    EXPECT_EQ(result.refusedUnits, 1u);
}

// More than 2 GiB in one unit, none of which is read.
TEST(Sender, RefusesAUnitLongerThanAnInt) {
    Sending sending(optionsOf(1200));
    const Bytes header{0x65};
    const SendResult result = sending.sender.sendPicture(0, {BytesView(header.data(), std::size_t{3} << 30)});
    EXPECT_EQ(result.refusedUnits, 1u);
    EXPECT_THAT(result.error, testing::StartsWith("unit 0 (3221225472 bytes, type 5) cannot be sent: "));
    EXPECT_THAT(sending.sent.all, IsEmpty());
}

TEST(Sender, RefusesWrongOptions) {
    const auto complaint = [](const SenderOptions& options, Sender::Send send) -> std::string {
        try {
            const Sender sender(options, std::move(send));
        } catch (const std::invalid_argument& problem) {
            return problem.what();
        }
        return {};
    };
    const Sender::Send ignore = [](const Datagram&) {};
    EXPECT_EQ(complaint(SenderOptions(), ignore), "");
    EXPECT_EQ(complaint(SenderOptions(), nullptr), "a sender needs a function that sends");
    EXPECT_EQ(complaint(optionsOf(15), ignore), optionsOf(15).check());
    EXPECT_EQ(complaint(optionsOf(100, Fec::xorParity(25)), ignore),
              "XOR FEC takes 1 to 24 media packets in a group, not 25");
}

TEST(Sender, LargestPacketUsesTheMtuUp) {
    for (const Fec& fec : {Fec::none(), Fec::xorParity(5), Fec::reedSolomon(5, 1)}) {
        Sending sending(optionsOf(500, fec));
        const std::size_t largest = static_cast<std::size_t>(maxMediaPacket(500, fec.scheme)) - 12;
        sending.sender.sendPicture(0, {Bytes(largest, 0x65), Bytes(largest + 1, 0x65), Bytes(5000, 0x65)});
        sending.sender.flush();
        std::size_t size = 0;
        for (const SentDatagram& each : sending.sent.all) {
            size = std::max(size, each.bytes.size());
        }
        EXPECT_EQ(size, 500u);
    }
}

// The order of what was sent: m for a media packet, M for one with the marker, f for FEC.
std::string orderOf(const SentStream& sent) {
    std::string order;
    for (const SentDatagram& each : sent.all) {
        order += each.told.isFec ? 'f' : each.marker() ? 'M' : 'm';
    }
    return order;
}

// A picture of four packets is a group of its own; those of one packet are joined until there are three.
TEST(Sender, GroupsJoinPicturesOnlyWhereTheyAreSmall) {
    Sending sending(optionsOf(120, Fec::reedSolomon(10, 1), false));
    const Bytes unit(80, 0x41);
    sending.sender.sendPicture(0, std::vector<Bytes>(4, unit));
    sending.sender.sendPicture(3000, {unit});
    sending.sender.sendPicture(6000, {unit});
    EXPECT_EQ(orderOf(sending.sent), "mmmMfMM");
    sending.sender.sendPicture(9000, {unit});
    sending.sender.sendPicture(12000, {unit, unit});
    EXPECT_EQ(orderOf(sending.sent), "mmmMfMMMfmM");
    sending.sender.flush();
    EXPECT_EQ(orderOf(sending.sent), "mmmMfMMMfmMf");
    sending.sender.flush();
    EXPECT_EQ(sending.sent.all.size(), 12u);
    const std::vector<SentDatagram> fec = sending.sent.fec();
    EXPECT_THAT(test::protectedBy(fec[0], FecScheme::kReedSolomon), ElementsAre(0x102, 0x103, 0x104, 0x105));
    EXPECT_THAT(test::protectedBy(fec[1], FecScheme::kReedSolomon), ElementsAre(0x106, 0x107, 0x108));
    EXPECT_THAT(test::protectedBy(fec[2], FecScheme::kReedSolomon), ElementsAre(0x109, 0x10a));
    EXPECT_EQ(fec[1].timestamp(), 9000u);
}

// Two packets that wait make two odd groups; both were sent before.
TEST(Sender, FlushProtectsTheRestInOddXorGroups) {
    Sending sending(optionsOf(120, Fec::xorParity(9), false));
    const Bytes unit(80, 0x41);
    sending.sender.sendPicture(0, {unit, unit});
    EXPECT_EQ(orderOf(sending.sent), "mM");
    sending.sender.flush();
    EXPECT_EQ(orderOf(sending.sent), "mMff");
    const std::vector<SentDatagram> fec = sending.sent.fec();
    EXPECT_THAT(test::protectedBy(fec[0], FecScheme::kXor), ElementsAre(0x102));
    EXPECT_THAT(test::protectedBy(fec[1], FecScheme::kXor), ElementsAre(0x103));
}

TEST(Sender, WaitingPacketsSurviveALargerPicture) {
    Sending sending(optionsOf(120, Fec::reedSolomon(255 - 1, 1), false));
    sending.sender.sendPicture(0, {Bytes(80, 0x41)});
    sending.sender.sendPicture(3000, std::vector<Bytes>(100, Bytes(70, 0x42)));
    const std::vector<SentDatagram> fec = sending.sent.fec();
    ASSERT_EQ(fec.size(), 1u);
    EXPECT_EQ(test::protectedBy(fec[0], FecScheme::kReedSolomon).size(), 101u);
    EXPECT_EQ(fec[0].bytes.size(), 80u + 12 + 20);  // as the longest packet and the FEC headers
}

TEST(Sender, AnExceptionOfTheHostEndsOnePictureOnly) {
    int calls = 0;
    SentStream sent;
    Sender sender(optionsOf(120, Fec::reedSolomon(10, 1), false), [&](const Datagram& datagram) {
        if (++calls == 2) {
            throw std::runtime_error("no network");
        }
        sent(datagram);
    });
    const std::vector<Bytes> picture(4, Bytes(80, 0x41));
    EXPECT_THROW(sender.sendPicture(0, picture), std::runtime_error);
    EXPECT_EQ(orderOf(sent), "m");
    const SendResult result = sender.sendPicture(3000, picture);
    EXPECT_EQ(result.packets, 4u);
    EXPECT_EQ(orderOf(sent), "mmmmMf");
    EXPECT_THAT(test::protectedBy(sent.all.back(), FecScheme::kReedSolomon),
                ElementsAre(0x106, 0x107, 0x108, 0x109));
}

TEST(Sender, StatisticsCountEverything) {
    Sending sending(optionsOf(120, Fec::reedSolomon(10, 2), false));
    sending.sender.sendPicture(0, std::vector<Bytes>(4, Bytes(80, 0x41)));
    sending.sender.sendPicture(3000, {Bytes(80, 0x41), BytesView()});
    const Statistics counts = sending.sender.statistics();
    EXPECT_EQ(counts.createdMediaPacketNumber, 5u);
    EXPECT_EQ(counts.createdFECPacketNumber, 2u);
    EXPECT_EQ(counts.sentPictures, 2u);
    EXPECT_EQ(counts.sentUnits, 5u);
    EXPECT_EQ(counts.refusedUnits, 1u);
    EXPECT_EQ(counts.receivedPacketNumber, 0u);
    EXPECT_EQ(sending.sender.options().mtu, 120);
}

// --- Random pictures, sizes and FEC shapes ---

Fec randomFec(SeededRandom& random) {
    switch (random.between(0, 2)) {
        case 0:
            return Fec::xorParity(static_cast<int>(random.between(1, 24)));
        case 1: {
            const int media = static_cast<int>(random.between(1, 30));
            return Fec::reedSolomon(media, static_cast<int>(random.between(1, 6)));
        }
        default:
            return Fec::none();
    }
}

std::vector<Bytes> randomPicture(SeededRandom& random) {
    std::vector<Bytes> units;
    for (std::uint32_t i = random.between(1, 6); i > 0; --i) {
        const std::uint8_t header =
            static_cast<std::uint8_t>(random.between(0, 3) << 5 | random.between(1, 23));
        units.push_back(random.nalUnit(header, random.between(1, random.oneIn(4) ? 6000 : 90)));
    }
    return units;
}

// A stream and what a sender made of it.
struct RandomStream {
    explicit RandomStream(SeededRandom& random)
        : options(randomOptions(random)), sending(options), pictures(random.between(1, 12)) {
        std::uint32_t timestamp = 0xfffff000;
        for (std::vector<Bytes>& picture : pictures) {
            picture = randomPicture(random);
            units.insert(units.end(), picture.begin(), picture.end());
            EXPECT_TRUE(sending.sender.sendPicture(timestamp += 3000, picture));
        }
        sending.sender.flush();
    }

    static SenderOptions randomOptions(SeededRandom& random) {
        SenderOptions options;
        options.fec = randomFec(random);
        options.mtu = static_cast<int>(random.between(40, random.oneIn(3) ? 2000 : 300));
        options.aggregate = random.oneIn(2);
        options.firstSequence = static_cast<std::uint16_t>(65536 - random.between(1, 60));
        options.firstFecSequence = static_cast<std::uint16_t>(65536 - random.between(1, 20));
        return options;
    }

    SenderOptions options;
    Sending sending;
    std::vector<std::vector<Bytes>> pictures;
    std::vector<Bytes> units;
};

void forRandomStreams(const std::function<void(RandomStream&, SeededRandom&)>& check) {
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        SeededRandom random(seed);
        SCOPED_TRACE(random.describe());
        RandomStream stream(random);
        check(stream, random);
    }
}

TEST(SenderProperty, PayloadsMakeUpTheUnits) {
    forRandomStreams([](RandomStream& stream, SeededRandom&) {
        EXPECT_TRUE(test::depacketize(stream.sending.sent.media()) == stream.units);
    });
}

TEST(SenderProperty, NoDatagramExceedsTheMtu) {
    forRandomStreams([](RandomStream& stream, SeededRandom&) {
        for (const SentDatagram& each : stream.sending.sent.all) {
            ASSERT_LE(each.bytes.size(), static_cast<std::size_t>(stream.options.mtu));
        }
    });
}

TEST(SenderProperty, MarkersEndPicturesOnly) {
    forRandomStreams([](RandomStream& stream, SeededRandom&) {
        const std::vector<SentDatagram> media = stream.sending.sent.media();
        std::size_t markers = 0;
        for (std::size_t i = 0; i < media.size(); ++i) {
            const bool isLast = i + 1 == media.size() || media[i + 1].timestamp() != media[i].timestamp();
            ASSERT_EQ(media[i].marker(), isLast);
            ASSERT_EQ(media[i].told.isLastOfPicture, isLast);
            markers += isLast ? 1 : 0;
        }
        EXPECT_EQ(markers, stream.pictures.size());
    });
}

TEST(SenderProperty, SequenceNumbersCountUpAcrossTheWrap) {
    forRandomStreams([](RandomStream& stream, SeededRandom&) {
        std::uint16_t next = *stream.options.firstSequence;
        std::uint16_t nextFec = *stream.options.firstFecSequence;
        for (const SentDatagram& each : stream.sending.sent.all) {
            ASSERT_EQ(each.sequence(), each.told.isFec ? nextFec++ : next++);
            ASSERT_EQ(each.told.sequence, each.sequence());
            ASSERT_EQ(each.told.timestamp, each.timestamp());
        }
    });
}

// Each media packet lies in one group; groups keep the limits and follow their last packet.
TEST(SenderProperty, GroupsCoverEachPacketOnceWithinTheLimits) {
    forRandomStreams([](RandomStream& stream, SeededRandom&) {
        const Fec& fec = stream.options.fec;
        std::map<std::uint16_t, int> covered;
        std::map<std::uint16_t, bool> sent;
        for (const SentDatagram& each : stream.sending.sent.all) {
            sent[each.sequence()] = sent[each.sequence()] || !each.told.isFec;
            if (!each.told.isFec) {
                continue;
            }
            const std::vector<std::uint16_t> group = test::protectedBy(each, fec.scheme);
            ASSERT_GE(group.size(), 1u);
            ASSERT_LE(group.size(), static_cast<std::size_t>(fec.maxMedia));
            ASSERT_TRUE(fec.scheme != FecScheme::kXor || group.size() % 2 == 1);
            for (const std::uint16_t sequence : group) {
                ++covered[sequence];
                ASSERT_TRUE(sent[sequence]);
            }
        }
        for (const SentDatagram& each : stream.sending.sent.media()) {
            ASSERT_EQ(covered[each.sequence()], fec.parity);
        }
    });
}

// Collects whole units by sequence number and by their place in an aggregation packet. The hand-overs of one
// declare sizes that grow, and the growth is the unit's own size.
class UnitSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        const std::uint16_t sequence = packet->get_sequence_number();
        std::vector<Bytes>& units = bySequence[sequence];
        const int declared = packet->get_payload_size();
        const int before = units.empty() ? 0 : m_declared;
        const unsigned char* const payload = packet->get_payload_ptr();
        isAllWhole = isAllWhole && packet->get_packet_type() == PACKET_TYPE_UNITS;
        units.emplace_back(payload + 4, payload + (declared - before));
        m_declared = declared;
    }

    std::map<std::uint16_t, std::vector<Bytes>> bySequence;
    bool isAllWhole = true;

private:
    int m_declared = 0;
};

// Loses as many media packets of each group as its FEC packets can rebuild.
TEST(SenderProperty, ASessionRebuildsLostPacketsBitForBit) {
    std::size_t lostInAll = 0;
    forRandomStreams([&](RandomStream& stream, SeededRandom& random) {
        const Fec& fec = stream.options.fec;
        std::map<std::uint16_t, bool> isLost;
        std::map<std::uint16_t, bool> isSeen;
        for (const SentDatagram& each : stream.sending.sent.fec()) {
            std::vector<std::uint16_t> group = test::protectedBy(each, fec.scheme);
            if (std::exchange(isSeen[group[0]], true)) {
                continue;
            }
            for (int i = 0; i < fec.parity; ++i) {
                isLost[group[random.between(0, static_cast<std::uint32_t>(group.size() - 1))]] = true;
            }
        }
        UnitSink sink;
        SessionHandle session(&sink, 1);
        session->SetFecType(fec.scheme == FecScheme::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
        for (SentDatagram& each : stream.sending.sent.all) {
            if (!each.told.isFec && isLost[each.sequence()]) {
                ++lostInAll;
                continue;
            }
            ASSERT_EQ(session->InputReceivedData(each.bytes.data(), static_cast<int>(each.bytes.size()), 0),
                      0);
        }
        std::vector<Bytes> units;
        for (const SentDatagram& each : stream.sending.sent.media()) {
            const std::vector<Bytes>& found = sink.bySequence[each.sequence()];
            units.insert(units.end(), found.begin(), found.end());
        }
        EXPECT_TRUE(sink.isAllWhole);
        EXPECT_TRUE(units == stream.units);
    });
    EXPECT_GT(lostInAll, 1000u);
}

}  // namespace
}  // namespace talrtp::kit

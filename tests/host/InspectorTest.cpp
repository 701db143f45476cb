// The inspector's findings on captures whose packets were laid out by hand.

#include "inspect/Inspector.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Bytes.h"

namespace talrtp::host::inspect {
namespace {

using std::chrono::milliseconds;
using test::Bytes;

constexpr std::uint32_t kSsrc = 0x11223344;

void put16(Bytes& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void put32(Bytes& bytes, std::uint32_t value) {
    put16(bytes, value >> 16);
    put16(bytes, value & 0xffff);
}

Bytes rtp(unsigned int type, std::uint16_t sequence, std::uint32_t timestamp, const Bytes& payload,
          bool hasMarker = false, std::uint32_t ssrc = kSsrc) {
    Bytes bytes{0x80, static_cast<std::uint8_t>(type | (hasMarker ? 0x80U : 0U))};
    put16(bytes, sequence);
    put32(bytes, timestamp);
    put32(bytes, ssrc);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

const Bytes kSlice{0x41, 0x9a, 0x01, 0x02, 0x03};

// A capture of raw IPv4, whose frames are added one by one.
class CCapture {
public:
    explicit CCapture(const InspectorOptions& options = {}) : m_inspector(options) {}

    void add(const Bytes& payload, milliseconds time, std::uint16_t port = 5004) {
        Bytes frame{0x45, 0};
        put16(frame, 28 + payload.size());
        put32(frame, 0);
        put32(frame, 0x40110000);
        put32(frame, 0x7f000001);
        put32(frame, 0x7f000001);
        put16(frame, 40000);
        put16(frame, port);
        put16(frame, 8 + payload.size());
        put16(frame, 0);
        frame.insert(frame.end(), payload.begin(), payload.end());
        m_inspector.add(LinkLayer::kRaw, frame, kStart + time);
    }

    // Pictures of one packet each, 10 ms apart, with the numbers in the order given.
    void addPictures(const std::vector<std::uint16_t>& numbers) {
        for (const std::uint16_t number : numbers) {
            add(rtp(98, number, number * 900U, kSlice, true), milliseconds(10) * m_added++);
        }
    }

    CInspector& finish() {
        m_inspector.finish();
        return m_inspector;
    }

private:
    static constexpr std::chrono::seconds kStart{1'700'000'000};
    CInspector m_inspector;
    int m_added = 0;
};

const CStream& onlyStream(const CInspector& inspector) {
    EXPECT_EQ(inspector.streams().size(), 1U);
    return *inspector.streams().front();
}

TEST(Inspector, LossesDoublesAndReorderingAreCountedAcrossTheEndOfTheNumbers) {
    CCapture capture;
    // 65534 65535 0 (2) (1 late) (2 again) 5: lost 3 and 4.
    capture.addPictures({65534, 65535, 0, 2, 1, 2, 5});
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.packets(), 7U);
    EXPECT_EQ(stream.sequences().arrived(), 6U);
    EXPECT_EQ(stream.sequences().lost(), 2U);
    EXPECT_EQ(stream.sequences().doubled(), 1U);
    EXPECT_EQ(stream.sequences().reordered(), 1U);
    EXPECT_EQ(stream.units()[1], 6U);
    // The picture after the gap of 3 and 4 may have lost its beginning.
    EXPECT_EQ(stream.pictures().complete(), 5U);
    EXPECT_EQ(stream.pictures().cut(), 1U);
}

TEST(Inspector, ANumberIsNotTakenForOneThatPassedLongAgo) {
    CCapture capture;
    std::vector<std::uint16_t> numbers;
    for (std::uint16_t number = 0; number < 40000; ++number) {
        if (number != 39000) {
            numbers.push_back(number);
        }
    }
    numbers.push_back(39000);
    capture.addPictures(numbers);
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.sequences().reordered(), 1U);
    EXPECT_EQ(stream.sequences().doubled(), 0U);
    EXPECT_EQ(stream.sequences().lost(), 0U);
}

TEST(Inspector, BitrateAndSizeFollowTheRecordedTimes) {
    CCapture capture;
    capture.addPictures({1, 2, 3, 4, 5});  // 17 bytes each, 40 ms from the first to the last
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.bytes(), 85U);
    EXPECT_DOUBLE_EQ(stream.bitsPerSecond(), 85 * 8 / 0.04);
    EXPECT_EQ(stream.jitter(), 0U);  // 900 of the clock are the 10 ms between arrivals
}

TEST(Inspector, UnitsAreCountedOnceInEveryKindOfPacket) {
    CCapture capture;
    const Bytes aggregate{0x78, 0x00, 0x02, 0x67, 0x42, 0x00, 0x02, 0x68, 0xce};
    capture.add(rtp(96, 10, 0, aggregate), milliseconds(0));
    capture.add(rtp(96, 11, 0, {0x7c, 0x85, 0x01}), milliseconds(1));
    capture.add(rtp(96, 12, 0, {0x7c, 0x05, 0x02}), milliseconds(1));
    capture.add(rtp(96, 13, 0, {0x7c, 0x45, 0x03}, true), milliseconds(1));
    capture.add(rtp(96, 14, 3600, {0x41, 0x9a}, true), milliseconds(40));
    const CInspector& inspector = capture.finish();
    const CStream& stream = onlyStream(inspector);
    EXPECT_EQ(inspector.kindOf(stream), StreamKind::kH264);
    EXPECT_EQ(stream.units()[7], 1U);
    EXPECT_EQ(stream.units()[8], 1U);
    EXPECT_EQ(stream.units()[5], 1U);
    EXPECT_EQ(stream.units()[1], 1U);
    EXPECT_EQ(stream.aggregates(), 1U);
    EXPECT_EQ(stream.fragments(), 3U);
    EXPECT_EQ(stream.single(), 1U);
    EXPECT_EQ(stream.pictures().complete(), 2U);
}

TEST(Inspector, APictureIsCutByAGapAnywhereUpToItsEnd) {
    CCapture capture;
    const auto add = [&](std::uint16_t number, std::uint32_t timestamp, bool hasMarker) {
        capture.add(rtp(98, number, timestamp, kSlice, hasMarker), milliseconds(number));
    };
    add(1, 0, false);
    add(2, 0, true);
    add(4, 3000, true);  // 3 is lost: the beginning of this picture
    add(5, 6000, false);
    add(7, 9000, true);  // 6 is lost: the end of the one, or the beginning of the other
    add(8, 12000, true);
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.pictures().complete(), 2U);
    EXPECT_EQ(stream.pictures().cut(), 3U);
}

TEST(Inspector, PicturesWithoutMarkersEndAtTheNextTimestamp) {
    CCapture capture;
    for (std::uint16_t number = 0; number < 6; ++number) {
        capture.add(rtp(98, number, number / 2 * 3600U, kSlice), milliseconds(number));
    }
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.pictures().complete(), 2U);
    EXPECT_EQ(stream.pictures().cut(), 1U);  // nothing tells that the last one is whole
}

TEST(Inspector, ARestartBeginsANewNumbering) {
    CCapture capture;
    capture.addPictures({100, 101, 102, 40000, 40001, 40002, 40004});
    const CStream& stream = onlyStream(capture.finish());
    EXPECT_EQ(stream.sequences().restarts(), 1U);
    EXPECT_EQ(stream.sequences().stray(), 1U);  // 40000, which the next number made a beginning
    EXPECT_EQ(stream.sequences().lost(), 1U);   // 40003
}

Bytes xorPayload(std::uint16_t base, std::uint32_t mask) {
    Bytes bytes;
    put16(bytes, base);
    put16(bytes, 5);
    put32(bytes, 0x62000000 | mask);
    put32(bytes, 90000);
    bytes.push_back(0xaa);
    return bytes;
}

Bytes rsPayload(std::uint16_t base, std::uint8_t index, std::uint8_t count, std::uint8_t media) {
    Bytes bytes;
    put16(bytes, base);
    put16(bytes, 0x1234);
    bytes.insert(bytes.end(), {index, count, media, 0, 0xaa, 0xbb});
    return bytes;
}

const CStream& fecStream(const CInspector& inspector) {
    EXPECT_NE(inspector.mainStream(), nullptr);
    const CStream* const fec = inspector.fecStreamOf(*inspector.mainStream());
    EXPECT_NE(fec, nullptr);
    return *fec;
}

TEST(Inspector, XorGroupsAreHeldAgainstTheMediaThatArrived) {
    CCapture capture;
    capture.addPictures({65533, 65534, 65535, /* 0 lost */ 1, 2, /* 3, 4 lost */ 5, /* 6, 7 lost */ 8});
    capture.add(rtp(111, 9, 0, xorPayload(65533, 0xe00000)), milliseconds(70), 5006);  // 65533 to 65535
    capture.add(rtp(111, 10, 0, xorPayload(0, 0xe00000)), milliseconds(71), 5006);     // 0 to 2
    capture.add(rtp(111, 11, 0, xorPayload(3, 0xe00000)), milliseconds(72), 5006);     // 3 to 5
    capture.add(rtp(111, 12, 0, xorPayload(5, 0xe00000)), milliseconds(73), 5006);     // 5 to 7
    const CInspector& inspector = capture.finish();
    const CStream& fec = fecStream(inspector);
    EXPECT_EQ(inspector.kindOf(fec), StreamKind::kXorFec);
    const CFecGroups::Counts& counts = fec.groups(kit::FecScheme::kXor).counts();
    EXPECT_EQ(counts.complete, 1U);
    EXPECT_EQ(counts.repairable, 1U);
    EXPECT_EQ(counts.rebuildable, 1U);
    EXPECT_EQ(counts.lost, 2U);
    EXPECT_EQ(counts.missing, 4U);
}

TEST(Inspector, AGroupThatIsLongPastWhenItsFecPacketArrivesIsSettledAtOnce) {
    CCapture capture;
    std::vector<std::uint16_t> numbers;
    for (std::uint16_t number = 0; number < 9000; ++number) {
        numbers.push_back(number);
    }
    capture.addPictures(numbers);
    for (std::uint16_t number = 0; number < 3; ++number) {
        capture.add(rtp(111, number, 0, xorPayload(number, 0xe00000)), milliseconds(90000), 5006);
    }
    EXPECT_EQ(fecStream(capture.finish()).groups(kit::FecScheme::kXor).counts().complete, 3U);
}

TEST(Inspector, AReedSolomonGroupNeedsAsManyFecPacketsAsItLost) {
    CCapture capture;
    capture.addPictures({10, /* 11, 12 lost */ 13, 14, /* 15, 16 lost */ 17});
    // 10 to 13 with both FEC packets, one of them twice; 14 to 17 with one of two.
    for (const std::uint16_t number : {200, 201, 201}) {
        const auto index = static_cast<std::uint8_t>(number - 200);
        capture.add(rtp(111, number, 0, rsPayload(10, index, 2, 4)), milliseconds(60), 5006);
    }
    capture.add(rtp(111, 203, 0, rsPayload(14, 1, 2, 4)), milliseconds(61), 5006);
    const CInspector& inspector = capture.finish();
    const CStream& fec = fecStream(inspector);
    EXPECT_EQ(inspector.kindOf(fec), StreamKind::kReedSolomonFec);
    EXPECT_EQ(fec.sequences().lost(), 1U);
    const CFecGroups::Counts& counts = fec.groups(kit::FecScheme::kReedSolomon).counts();
    EXPECT_EQ(counts.complete, 0U);
    EXPECT_EQ(counts.repairable, 1U);
    EXPECT_EQ(counts.rebuildable, 2U);
    EXPECT_EQ(counts.lost, 1U);
    EXPECT_EQ(counts.missing, 2U);
}

TEST(Inspector, OptionsOverrideTheFormOfThePayloads) {
    InspectorOptions options;
    options.payloadType = 35;
    CCapture capture(options);
    for (std::uint16_t number = 0; number < 4; ++number) {
        capture.add(rtp(98, number, 0, kSlice), milliseconds(number));
        capture.add(rtp(35, number, 0, {0xff, 0xff}), milliseconds(number));
    }
    const CInspector& inspector = capture.finish();
    ASSERT_NE(inspector.mainStream(), nullptr);
    EXPECT_EQ(inspector.mainStream()->key().payloadType, 35);
    for (const CStream* const stream : inspector.streams()) {
        EXPECT_EQ(inspector.kindOf(*stream),
                  stream->key().payloadType == 35 ? StreamKind::kH264 : StreamKind::kOther);
    }
}

TEST(Inspector, AudioIsNoH264) {
    CCapture capture;
    for (std::uint16_t number = 0; number < 10; ++number) {
        capture.add(rtp(0, number, number * 160U, {0xff, 0x7f, 0xfe, 0xd5}), milliseconds(20 * number));
    }
    const CInspector& inspector = capture.finish();
    EXPECT_EQ(inspector.kindOf(onlyStream(inspector)), StreamKind::kOther);
    EXPECT_EQ(inspector.mainStream(), nullptr);
}

TEST(Inspector, RtcpIsReadInTheFormThatWasChosen) {
    // Receiver report without a block and goodbye, as RFC 3550 writes the lengths.
    const Bytes compound{0x80, 0xc9, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44,
                         0x81, 0xcb, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44};
    CCapture capture;
    capture.add(compound, milliseconds(0), 5005);
    const CInspector& inspector = capture.finish();
    ASSERT_TRUE(inspector.rtcp().has_value());
    EXPECT_EQ(inspector.counts().rtcp, 1U);
    EXPECT_EQ(inspector.rtcp()->malformed(), 0U);
    const RtcpSource& source = inspector.rtcp()->sources().at(kSsrc);
    EXPECT_EQ(source.receiverReports, 1U);
    EXPECT_EQ(source.byes, 1U);

    InspectorOptions native;
    native.rtcp = kit::Form::kNative;
    CCapture other(native);
    other.add(compound, milliseconds(0), 5005);
    EXPECT_EQ(other.finish().rtcp()->malformed(), 1U);
}

TEST(Inspector, DatagramsThatAreNoStreamAreCountedApart) {
    CCapture capture;
    capture.add({1, 2, 3}, milliseconds(0));
    capture.add(rtp(98, 7, 0, kSlice, false, 1), milliseconds(1));  // RTP by its form, and the only one
    const CInspector& inspector = capture.finish();
    EXPECT_TRUE(inspector.streams().empty());
    EXPECT_EQ(inspector.counts().otherDatagrams, 2U);
}

// Each datagram of another source would make a stream of its own.
TEST(Inspector, ForgedSourcesDoNotCrowdOutAStream) {
    CCapture capture;
    capture.addPictures({1, 2, 3, 4});
    for (std::uint32_t ssrc = 0; ssrc < 5000; ++ssrc) {
        capture.add(rtp(98, 5, 0, kSlice, false, ssrc), milliseconds(50));
    }
    capture.addPictures({5, 6});
    const CInspector& inspector = capture.finish();
    EXPECT_EQ(onlyStream(inspector).packets(), 6U);
    EXPECT_EQ(inspector.counts().otherDatagrams, 5000U);
}

TEST(Timeline, BinsDoubleTheirWidthAndKeepTheirSums) {
    CTimeline timeline;
    for (int second = 0; second < 100; ++second) {
        timeline.at(std::chrono::seconds(second)).bytes += 10;
    }
    std::uint64_t sum = 0;
    for (const TimelineBin& bin : timeline.bins()) {
        sum += bin.bytes;
    }
    EXPECT_EQ(sum, 1000U);
    EXPECT_LE(timeline.bins().size(), CTimeline::kMaxBins);
    EXPECT_DOUBLE_EQ(timeline.secondsPerBin(), 0.4);  // 400 bins of 0.2 s end at 80 s
}

}  // namespace
}  // namespace talrtp::host::inspect

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>

#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace {

using test::Bytes;

// A received packet: fixed header with `sources` CSRCs, an extension of `profile` that claims the words of
// `area` (whole words), and a payload.
Bytes packetWith(const Bytes& area, const Bytes& payload = {}, unsigned short profile = 0xbede,
                 int sources = 0) {
    Bytes bytes(static_cast<std::size_t>(12 + 4 * sources), 0x01);
    bytes[0] = static_cast<unsigned char>(0x90 | sources);
    bytes[1] = 98;
    const std::size_t words = area.size() / 4;
    bytes.insert(bytes.end(), {static_cast<unsigned char>(profile >> 8), static_cast<unsigned char>(profile),
                               static_cast<unsigned char>(words >> 8), static_cast<unsigned char>(words)});
    bytes.insert(bytes.end(), area.begin(), area.end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

struct Found {
    bool isFound;
    int offset;  // of the element's header byte in the packet, -1 when there is none
    int length;
};
bool operator==(const Found& left, const Found& right) {
    return left.isFound == right.isFound && left.offset == right.offset && left.length == right.length;
}
std::ostream& operator<<(std::ostream& out, const Found& found) {
    return out << (found.isFound ? "found" : "none") << " at " << found.offset << ", " << found.length
               << " bytes";
}
const Found kNone = {false, -1, -7};

// Both forms of the search, which have to agree. The bytes lie at the very end of their allocation.
Found find(Bytes bytes, unsigned char id) {
    unsigned char untouched = 0;
    unsigned char* element = &untouched;
    Found found = kNone;
    found.isFound = CTalRtpPacket::get_onebyte_extension_element(bytes.data(), static_cast<int>(bytes.size()),
                                                                 id, element, found.length);
    found.offset = element == &untouched ? -1 : static_cast<int>(element - bytes.data());

    if (bytes.size() >= 12) {
        const CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
        element = &untouched;
        Found member = kNone;
        member.isFound = packet.get_onebyte_extension_element(id, element, member.length);
        member.offset = element == &untouched ? -1 : static_cast<int>(element - packet.get_buffer());
        EXPECT_EQ(member, found);
    }
    return found;
}

TEST(FindElement, SkipsPaddingAndPointsAtTheHeaderByte) {
    const Bytes bytes = packetWith({0x10, 0xaa, 0x00, 0x31, 0xbb, 0xcc, 0x00, 0x00});
    EXPECT_EQ(find(bytes, 3), (Found{true, 16 + 3, 3}));
    EXPECT_EQ(find(bytes, 1), (Found{true, 16 + 0, 2}));
    EXPECT_EQ(find(bytes, 2), kNone);
    EXPECT_EQ(find(bytes, 0), kNone) << "padding is no element";
}

TEST(FindElement, LooksAfterTheSources) {
    EXPECT_EQ(find(packetWith({0x20, 0x01, 0x00, 0x00}, {}, 0xbede, 15), 2), (Found{true, 76, 2}));
}

TEST(FindElement, TakesTheFirstOfItsId) {
    EXPECT_EQ(find(packetWith({0x10, 0x01, 0x10, 0x02}), 1), (Found{true, 16, 2}));
}

TEST(FindElement, KnowsEveryLength) {
    for (int dataBytes = 1; dataBytes <= 16; ++dataBytes) {
        Bytes area(20, 0);
        area[1] = static_cast<unsigned char>(0x50 | (dataBytes - 1));
        std::fill_n(area.begin() + 2, dataBytes, static_cast<unsigned char>(0xff));
        EXPECT_EQ(find(packetWith(area), 5), (Found{true, 17, dataBytes + 1}));
    }
}

TEST(FindElement, TreatsIds0And15LikeAnyOther) {
    const Bytes bytes = packetWith({0x01, 0x11, 0x12, 0xf0, 0x21, 0x30, 0x31, 0x00});
    EXPECT_EQ(find(bytes, 0), (Found{true, 16, 3})) << "id 0 with a length is an element";
    EXPECT_EQ(find(bytes, 15), (Found{true, 19, 2})) << "id 15 does not end the walk";
    EXPECT_EQ(find(bytes, 3), (Found{true, 21, 2}));
}

TEST(FindElement, NeedsFlagProfileAndAnArea) {
    Bytes noFlag = packetWith({0x10, 0x01, 0x00, 0x00});
    noFlag[0] = 0x80;
    EXPECT_EQ(find(noFlag, 1), kNone);
    EXPECT_EQ(find(packetWith({0x10, 0x01, 0x00, 0x00}, {}, 0xbedf), 1), kNone);
    EXPECT_EQ(find(packetWith({0x10, 0x01, 0x00, 0x00}, {}, 0xbfde), 1), kNone);
    EXPECT_EQ(find(packetWith({}, {0x10, 0x01}), 1), kNone) << "an extension of 0 words";
    unsigned char* element = nullptr;
    int length = 0;
    EXPECT_FALSE(CTalRtpPacket::get_onebyte_extension_element(nullptr, 100, 1, element, length));
}

TEST(FindElement, InACutPacketFindsNothing) {
    const Bytes whole = packetWith({0x10, 0xaa, 0x21, 0xbb, 0xcc, 0x00, 0x00, 0x00}, {0x41}, 0xbede, 1);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const bool isAreaWhole = length >= 28;
        EXPECT_EQ(find(cut, 1), isAreaWhole ? (Found{true, 20, 2}) : kNone) << length;
        EXPECT_EQ(find(cut, 2), isAreaWhole ? (Found{true, 22, 3}) : kNone) << length;
    }
}

TEST(FindElement, ReportsOnlyWhatLiesWhollyInsideThePacket) {
    // The last element claims 5 bytes, of which the area holds 2 and the packet 2 to 6.
    const Bytes area = {0x10, 0x01, 0x23, 0x02};
    EXPECT_EQ(find(packetWith(area), 2), kNone);
    EXPECT_EQ(find(packetWith(area), 1), (Found{true, 16, 2}));
    EXPECT_EQ(find(packetWith(area, {1, 2}), 2), kNone);
    EXPECT_EQ(find(packetWith(area, {1, 2, 3}), 2), (Found{true, 18, 5}));
    EXPECT_EQ(find(packetWith(area, {1, 2, 3, 4}), 2), (Found{true, 18, 5}));
}

TEST(FindElement, StopsAtThePacketsEndWhenTheHeaderSizeIsTruncated) {
    // 16383 words make a header of 12 bytes, so the header fits while the area does not.
    Bytes bytes = packetWith({});
    bytes[14] = 0x3f;
    bytes[15] = 0xff;
    EXPECT_EQ(find(bytes, 1), kNone);
    bytes.insert(bytes.end(), {0x00, 0x10, 0xaa, 0x22, 0x01, 0x02});
    EXPECT_EQ(find(bytes, 1), (Found{true, 17, 2}));
    EXPECT_EQ(find(bytes, 2), kNone) << "four bytes claimed, three there";
}

// Adding.

bool addOne(CTalRtpPacket& packet, Bytes element) {
    return packet.add_onebyte_extension_element(9, element.data(), static_cast<int>(element.size()));
}

bool addMany(CTalRtpPacket& packet, std::vector<Bytes> elements) {
    std::vector<unsigned char*> pointers;
    std::vector<int> lengths;
    for (Bytes& element : elements) {
        pointers.push_back(element.data());
        lengths.push_back(static_cast<int>(element.size()));
    }
    return packet.add_onebyte_extension_elements(nullptr, pointers.data(), lengths.data(),
                                                 static_cast<int>(elements.size()));
}

Bytes bytesOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

CTalRtpPacket received(Bytes bytes) {
    return CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
}

// The bytes beyond the packet's buffer size that every packet object allocates as well.
constexpr int kSpareBytes = 88;

// Gives each byte that the packet does not use a value, so that a write there shows.
void fillUnusedBytes(const CTalRtpPacket& packet) {
    std::fill(packet.get_buffer() + packet.get_packet_size(),
              packet.get_buffer() + packet.get_buffer_size() + kSpareBytes, static_cast<unsigned char>(0xa5));
}

// The packet's bytes, sizes and capacity, to show that a refusal changes nothing.
struct Snapshot {
    explicit Snapshot(const CTalRtpPacket& packet)
        : bytes(packet.get_buffer(), packet.get_buffer() + packet.get_buffer_size() + kSpareBytes),
          packetSize(packet.get_packet_size()),
          payloadSize(packet.get_payload_size()) {}
    bool operator==(const Snapshot& other) const {
        return bytes == other.bytes && packetSize == other.packetSize && payloadSize == other.payloadSize;
    }
    Bytes bytes;
    int packetSize;
    int payloadSize;
};

TEST(AddElement, MakesTheExtensionAndMovesThePayload) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(3);
    std::memcpy(packet.get_payload_ptr(), "xyz", 3);
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(bytesOf(packet), Bytes({0x90, 0,    0,    0,    0,    0,    0,    0,    0,   0,   0,  0,
                                      0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00, 'x', 'y', 'z'}));
    EXPECT_EQ(packet.get_payload_size(), 3);
    EXPECT_EQ(packet.get_packet_size(), 23);
    EXPECT_EQ(packet.get_buffer_size(), 100);
}

TEST(AddElement, GoesAfterTheSources) {
    CTalRtpPacket packet(100);
    packet.set_contrib_source(1, 0x01020304);
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(packet.get_packet_size(), 28);
    EXPECT_EQ(Bytes(packet.get_buffer() + 16, packet.get_buffer() + 28),
              Bytes({0x01, 0x02, 0x03, 0x04, 0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00}));
}

TEST(AddElement, MovesThePayloadThatAStalePacketSizeDoesNotCover) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(3);
    std::memcpy(packet.get_payload_ptr(), "xyz", 3);
    packet.set_contrib_source(1, 0x01020304);
    ASSERT_EQ(packet.get_packet_size(), 15) << "without the two sources";
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(packet.get_packet_size(), 12 + 8 + 8 + 3);
    EXPECT_EQ(Bytes(packet.get_buffer() + 16, packet.get_buffer() + 31),
              Bytes({1, 2, 3, 4, 0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00, 'x', 'y', 'z'}));
}

TEST(AddElement, ToAnXorFecPacketBeginsAfterItsTwelveBytes) {
    CRTPFECPacket packet(100);
    packet.set_contrib_src_count(2);  // a recovery value
    packet.set_payload_size(1);
    packet.get_payload_ptr()[0] = 'x';
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + 21),
              Bytes({0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00, 'x'}));
}

TEST(AddElement, IgnoresTheIdArgumentKept) {
    CTalRtpPacket packet(100);
    Bytes element = {0x31, 0x01, 0x02};
    EXPECT_TRUE(packet.add_onebyte_extension_element(7, element.data(), 3));
    EXPECT_EQ(find(bytesOf(packet), 3), (Found{true, 16, 3}));
    EXPECT_EQ(find(bytesOf(packet), 7), kNone);
}

TEST(AddElement, FillsTheLastWordWithZeros) {
    for (int length = 1; length <= 17; ++length) {
        SCOPED_TRACE(length);
        CTalRtpPacket packet(100);
        std::memset(packet.get_buffer() + 12, 0xee, 60);  // what lies there must not show
        packet.set_payload_size(1);
        Bytes element(static_cast<std::size_t>(length), 0x11);
        element[0] = static_cast<unsigned char>(0x10 | (length >= 2 ? length - 2 : 0));
        EXPECT_TRUE(addOne(packet, element));
        const int words = (length + 3) / 4;
        EXPECT_EQ(packet.get_packet_size(), 12 + 4 + 4 * words + 1);
        EXPECT_EQ(packet.get_buffer()[15], words);
        element.resize(static_cast<std::size_t>(4 * words), 0);
        EXPECT_EQ(Bytes(packet.get_buffer() + 16, packet.get_buffer() + 16 + 4 * words), element);
        EXPECT_EQ(packet.get_payload_ptr()[0], 0xee) << "the payload moved";
    }
}

TEST(AddElement, DropsThePaddingBetweenElementsAlreadyThere) {
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0x00, 0x00, 0x31, 0xbb, 0xcc, 0x00}, {'x', 'y'}));
    EXPECT_TRUE(addOne(packet, {0x20, 0xdd}));
    EXPECT_EQ(bytesOf(packet), packetWith({0x10, 0xaa, 0x31, 0xbb, 0xcc, 0x20, 0xdd, 0x00}, {'x', 'y'}));
}

TEST(AddElement, MovesThePayloadDownWhenPaddingOutweighsIt) {
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {'x', 'y'}));
    EXPECT_TRUE(addOne(packet, {0x20, 0xdd}));
    EXPECT_EQ(bytesOf(packet), packetWith({0x10, 0xaa, 0x20, 0xdd}, {'x', 'y'}));
}

TEST(AddElement, ToAnEmptyOneByteExtensionFillsIt) {
    CTalRtpPacket packet = received(packetWith({}, {'x'}));
    EXPECT_TRUE(addOne(packet, {0x20, 0xdd}));
    EXPECT_EQ(bytesOf(packet), packetWith({0x20, 0xdd, 0x00, 0x00}, {'x'}));
}

TEST(AddElement, RefusesAnotherProfile) {
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0x00, 0x00}, {'x'}, 0x1234));
    fillUnusedBytes(packet);
    const Snapshot before(packet);
    EXPECT_FALSE(addOne(packet, {0x20, 0xdd}));
    EXPECT_TRUE(Snapshot(packet) == before);
}

TEST(AddElement, RefusesNullAndLengthsOutside1To17) {
    CTalRtpPacket packet(100);
    fillUnusedBytes(packet);
    const Snapshot before(packet);
    Bytes element(18, 0x11);
    EXPECT_FALSE(packet.add_onebyte_extension_element(1, nullptr, 2));
    EXPECT_FALSE(packet.add_onebyte_extension_element(1, element.data(), 0));
    EXPECT_FALSE(packet.add_onebyte_extension_element(1, element.data(), 18));
    EXPECT_FALSE(packet.add_onebyte_extension_element(1, element.data(), -1));
    EXPECT_TRUE(Snapshot(packet) == before);
    EXPECT_TRUE(packet.add_onebyte_extension_element(1, element.data(), 1));
    EXPECT_TRUE(packet.add_onebyte_extension_element(1, element.data(), 17));
}

TEST(AddElement, RefusesAnAreaThatRunsPastThePacket) {
    const Bytes whole = packetWith({0x10, 0xaa, 0x20, 0xbb, 0x30, 0xcc, 0x00, 0x00});
    for (int length = 12; length < static_cast<int>(whole.size()); ++length) {
        CTalRtpPacket packet = received(Bytes(whole.begin(), whole.begin() + length));
        fillUnusedBytes(packet);
        const Snapshot before(packet);
        EXPECT_FALSE(addOne(packet, {0x40, 0xdd})) << length;
        EXPECT_TRUE(Snapshot(packet) == before) << length;
    }
    CTalRtpPacket packet = received(whole);
    EXPECT_TRUE(addOne(packet, {0x40, 0xdd}));
}

TEST(AddElement, TakesAnElementThatRunsPastItsAreaWithTheBytesThatLieThere) {
    CTalRtpPacket inside = received(packetWith({0x10, 0xaa, 0x23, 0x01}, {5, 6, 7, 8}));
    EXPECT_TRUE(addOne(inside, {0x40, 0xdd}));
    EXPECT_EQ(bytesOf(inside),
              packetWith({0x10, 0xaa, 0x23, 0x01, 5, 6, 7, 0x40, 0xdd, 0, 0, 0}, {5, 6, 7, 8}));

    Bytes bytes = packetWith({0x10, 0xaa, 0x23, 0x01}, {5});
    CTalRtpPacket cut(100);
    std::memset(cut.get_buffer(), 0xee, 100);
    cut.from_buffer(bytes.data(), static_cast<int>(bytes.size()));
    cut.get_buffer()[bytes.size()] = 0x99;  // beyond the packet: counts as 0
    EXPECT_TRUE(addOne(cut, {0x40, 0xdd}));
    EXPECT_EQ(bytesOf(cut), packetWith({0x10, 0xaa, 0x23, 0x01, 5, 0, 0, 0x40, 0xdd, 0, 0, 0}, {5}));
}

TEST(AddElement, GrowsAFullBufferToTheNewPacketSize) {
    Bytes payload(1400, 0x41);
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0x00, 0x00}, payload));
    ASSERT_EQ(packet.get_buffer_size(), 1420);
    EXPECT_TRUE(addOne(packet, {0x20, 0xdd}));
    EXPECT_EQ(packet.get_buffer_size(), 1420) << "the padding made room";
    EXPECT_TRUE(addOne(packet, {0x30, 0xee}));
    EXPECT_EQ(packet.get_buffer_size(), 1424);
    EXPECT_EQ(bytesOf(packet), packetWith({0x10, 0xaa, 0x20, 0xdd, 0x30, 0xee, 0x00, 0x00}, payload));
    EXPECT_EQ(Bytes(packet.get_buffer() + 1424, packet.get_buffer() + 1424 + 88), Bytes(88, 0));
}

TEST(AddElements, ThatGrowTheBufferLeaveZerosAfterThem) {
    CTalRtpPacket packet = received(packetWith({}, Bytes(1400, 0x41)));
    Bytes element(17, 0xee);
    element[0] = 0x1f;
    mallopt(M_PERTURB, 0x5a);  // the heap's memory is not zero
    EXPECT_TRUE(addMany(packet, std::vector<Bytes>(200, element)));
    mallopt(M_PERTURB, 0);
    EXPECT_EQ(packet.get_buffer_size(), 12 + 4 + 200 * 17 + 1400);
    const unsigned char* const behind = packet.get_buffer() + packet.get_buffer_size();
    EXPECT_EQ(Bytes(behind, behind + 88), Bytes(88, 0));
}

TEST(AddElement, GrowsOnlyWhenTheResultDoesNotFit) {
    CTalRtpPacket fitting(20);
    EXPECT_TRUE(addOne(fitting, {0x10, 0xaa}));
    EXPECT_EQ(fitting.get_packet_size(), 20);
    EXPECT_EQ(fitting.get_buffer_size(), 20);
    CTalRtpPacket tight(19);
    EXPECT_TRUE(addOne(tight, {0x10, 0xaa}));
    EXPECT_EQ(tight.get_packet_size(), 20);
    EXPECT_EQ(tight.get_buffer_size(), 20);
}

TEST(AddElement, TakesAnElementOutOfThePacketItself) {
    CTalRtpPacket packet = received(packetWith({0x00, 0x00, 0x10, 0xaa}, {0x41}));
    unsigned char* element = nullptr;
    int length = 0;
    ASSERT_TRUE(packet.get_onebyte_extension_element(1, element, length));
    EXPECT_TRUE(packet.add_onebyte_extension_element(1, element, length));
    EXPECT_EQ(bytesOf(packet), packetWith({0x10, 0xaa, 0x10, 0xaa}, {0x41}));
}

TEST(AddElement, ToAPacketShorterThanItsHeaderStaysInsideTheBuffer) {
    Bytes bytes(12, 0x01);
    bytes[0] = 0x8f;  // 15 CSRCs that are not there: the payload size is -60
    CTalRtpPacket packet(12);
    packet.from_buffer(bytes.data(), 12);
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(Bytes(packet.get_buffer() + 72, packet.get_buffer() + 80),
              Bytes({0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00}));
    EXPECT_EQ(packet.get_packet_size(), 20);
    EXPECT_EQ(packet.get_buffer_size(), 80);
}

TEST(AddElement, ToAnXorFecPacketStaysInsideTheBuffer) {
    Bytes bytes = packetWith({0x10, 0xaa, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {}, 0xbede, 2);
    CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_TRUE(addOne(packet, {0x20, 0xbb}));
    EXPECT_EQ(packet.get_packet_size(), static_cast<int>(bytes.size()))
        << "12 plus an unchanged payload size";
    EXPECT_EQ(Bytes(packet.get_buffer() + 20, packet.get_buffer() + 28),
              Bytes({0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x20, 0xbb}));
}

TEST(AddElements, AppendsAllInOrder) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(1);
    packet.get_payload_ptr()[0] = 'x';
    EXPECT_TRUE(addMany(packet, {{0x10, 0xaa}, {0x21, 0xbb, 0xcc}, {0x30, 0xdd}}));
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + packet.get_packet_size()),
              Bytes({0xbe, 0xde, 0x00, 0x02, 0x10, 0xaa, 0x21, 0xbb, 0xcc, 0x30, 0xdd, 0x00, 'x'}));
    EXPECT_TRUE(addMany(packet, {{0x40, 0xee}, {0x50, 0xff}}));
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + packet.get_packet_size()),
              Bytes({0xbe, 0xde, 0x00, 0x03, 0x10, 0xaa, 0x21, 0xbb, 0xcc, 0x30, 0xdd, 0x40, 0xee, 0x50, 0xff,
                     0x00, 'x'}));
}

TEST(AddElements, OfNoneWritesAnEmptyExtension) {
    for (const int count : {0, -1, -1000}) {
        SCOPED_TRACE(count);
        CTalRtpPacket packet(100);
        packet.set_payload_size(1);
        packet.get_payload_ptr()[0] = 'x';
        EXPECT_TRUE(packet.add_onebyte_extension_elements(nullptr, nullptr, nullptr, count));
        EXPECT_TRUE(packet.get_extension_flag());
        EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + packet.get_packet_size()),
                  Bytes({0xbe, 0xde, 0x00, 0x00, 'x'}));
    }
}

TEST(AddElements, OfNoneCompactsTheAreaAlreadyThere) {
    CTalRtpPacket packet = received(packetWith({0x00, 0x10, 0xaa, 0x00, 0x00, 0x20, 0xbb, 0x00}, {'x'}));
    EXPECT_TRUE(packet.add_onebyte_extension_elements(nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(bytesOf(packet), packetWith({0x10, 0xaa, 0x20, 0xbb}, {'x'}));
}

TEST(AddElements, ChecksAllBeforeItTouchesAnything) {
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0x00, 0x00}, {'x'}));
    fillUnusedBytes(packet);
    const Snapshot before(packet);
    Bytes good = {0x20, 0xbb};
    unsigned char* withNull[] = {good.data(), nullptr};
    int lengths[] = {2, 2};
    EXPECT_FALSE(packet.add_onebyte_extension_elements(nullptr, withNull, lengths, 2));
    unsigned char* pointers[] = {good.data(), good.data()};
    for (const int bad : {0, 18, -5}) {
        int badLengths[] = {2, bad};
        EXPECT_FALSE(packet.add_onebyte_extension_elements(nullptr, pointers, badLengths, 2));
    }
    EXPECT_FALSE(packet.add_onebyte_extension_elements(nullptr, nullptr, lengths, 2));
    EXPECT_FALSE(packet.add_onebyte_extension_elements(nullptr, pointers, nullptr, 2));
    EXPECT_TRUE(Snapshot(packet) == before);
}

// `count` elements of 17 bytes.
bool addLong(CTalRtpPacket& packet, int count, Bytes last = {}) {
    std::vector<Bytes> elements(static_cast<std::size_t>(count), Bytes(17, 0x1f));
    if (!last.empty()) {
        elements.push_back(last);
    }
    return addMany(packet, elements);
}

TEST(AddElements, RefuseASumThatDoesNotFit16Bits) {
    CTalRtpPacket packet = received(packetWith({0x10, 0xaa, 0x00, 0x00}, {'x'}));
    fillUnusedBytes(packet);
    const Snapshot before(packet);
    EXPECT_FALSE(addLong(packet, 3854, Bytes(16, 0x1e))) << "65518 + 16 + 2 already there";
    EXPECT_FALSE(addLong(packet, 3855)) << "65535 + 2 already there";
    EXPECT_FALSE(addLong(packet, 10000));
    EXPECT_TRUE(Snapshot(packet) == before);
    CTalRtpPacket empty(100);
    EXPECT_FALSE(addLong(empty, 3855, Bytes(1, 0x10))) << "65536";
    EXPECT_FALSE(empty.get_extension_flag());
}

TEST(AddElements, TakeTheLargestAreaThatTheHeaderSizeCanTell) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(3);
    std::memcpy(packet.get_payload_ptr(), "xyz", 3);
    EXPECT_TRUE(addLong(packet, 3854, Bytes(10, 0x18)));  // 65528 bytes, 16382 words
    EXPECT_EQ(packet.get_header_size(), 12 + 4 + 65528);
    EXPECT_EQ(packet.get_packet_size(), 12 + 4 + 65528 + 3);
    EXPECT_EQ(packet.get_buffer_size(), packet.get_packet_size());
    EXPECT_EQ(std::memcmp(packet.get_payload_ptr(), "xyz", 3), 0);
    EXPECT_EQ(packet.get_buffer()[14], 0x3f);
    EXPECT_EQ(packet.get_buffer()[15], 0xfe);
}

TEST(AddElements, WithATruncatedHeaderSizeStayInsideTheBuffer) {
    CTalRtpPacket packet(100);
    packet.set_payload_size(3);
    std::memcpy(packet.get_payload_ptr(), "xyz", 3);
    EXPECT_TRUE(addLong(packet, 3855));  // 65535 bytes, 16384 words: the header size counts 4 of 65540
    EXPECT_EQ(packet.get_header_size(), 16);
    EXPECT_EQ(packet.get_packet_size(), 19);
    EXPECT_EQ(packet.get_buffer_size(), 12 + 4 + 65536 + 3) << "what was written has its room";
    EXPECT_EQ(std::memcmp(packet.get_buffer() + 12 + 4 + 65536, "xyz", 3), 0);
}

TEST(AddElement, ToAReceivedExtensionBeyond16BitsStaysInsideTheBuffer) {
    // 16384 words of padding make a header of 16 bytes; the payload size then counts the area.
    const Bytes area(65536, 0);
    CTalRtpPacket packet = received(packetWith(area, {'x', 'y', 'z'}));
    ASSERT_EQ(packet.get_payload_size(), 65539);
    EXPECT_TRUE(addOne(packet, {0x10, 0xaa}));
    EXPECT_EQ(packet.get_header_size(), 20);
    EXPECT_EQ(packet.get_packet_size(), 20 + 65539);
    EXPECT_GE(packet.get_buffer_size(), packet.get_packet_size());
    EXPECT_EQ(Bytes(packet.get_buffer() + 12, packet.get_buffer() + 23),
              Bytes({0xbe, 0xde, 0x00, 0x01, 0x10, 0xaa, 0x00, 0x00, 'x', 'y', 'z'}));
}

// Random runs of elements and padding against a model of plain lists.
TEST(ElementProperty, AddedElementsAreFoundAndPaddingGoesToTheEnd) {
    const unsigned int seed = 13;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 2000; ++round) {
        SCOPED_TRACE(round);
        std::vector<Bytes> model;
        const auto randomElement = [&random] {
            Bytes element(2 + random() % 16);
            std::generate(element.begin(), element.end(),
                          [&random] { return static_cast<unsigned char>(random()); });
            element[0] = static_cast<unsigned char>((1 + random() % 15) << 4 | (element.size() - 2));
            return element;
        };
        Bytes area;
        for (unsigned int i = random() % 6; i > 0; --i) {
            area.insert(area.end(), random() % 4, 0);
            model.push_back(randomElement());
            area.insert(area.end(), model.back().begin(), model.back().end());
        }
        area.resize((area.size() + 3) / 4 * 4 + 4 * (random() % 3), 0);
        const Bytes payload(random() % 1500, 0x41);
        const int sources = static_cast<int>(random() % 16);
        CTalRtpPacket packet = received(packetWith(area, payload, 0xbede, sources));

        std::vector<Bytes> added(random() % 4);
        std::generate(added.begin(), added.end(), randomElement);
        ASSERT_TRUE(addMany(packet, added));
        model.insert(model.end(), added.begin(), added.end());

        Bytes expected;
        for (const Bytes& element : model) {
            expected.insert(expected.end(), element.begin(), element.end());
        }
        expected.resize((expected.size() + 3) / 4 * 4, 0);
        ASSERT_EQ(bytesOf(packet), packetWith(expected, payload, 0xbede, sources));
        ASSERT_EQ(packet.get_payload_size(), static_cast<int>(payload.size()));
        for (int id = 1; id <= 15; ++id) {
            const auto first = std::find_if(model.begin(), model.end(),
                                            [id](const Bytes& element) { return element[0] >> 4 == id; });
            unsigned char* element = nullptr;
            int length = 0;
            ASSERT_EQ(packet.get_onebyte_extension_element(static_cast<unsigned char>(id), element, length),
                      first != model.end());
            if (first != model.end()) {
                ASSERT_EQ(Bytes(element, element + length), *first);
            }
        }
    }
}

}  // namespace
}  // namespace talrtp

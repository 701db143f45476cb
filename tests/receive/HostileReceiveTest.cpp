// Datagrams that no sender made: what a session does with bytes that are too short, that declare more than
// there is, or that fill its lists.

#include <sys/mman.h>
#include <talrtp/RsFec.h>
#include <unistd.h>

#include <cstring>

#include "HeapCounter.h"
#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Bytes that end where readable memory ends, so that a byte read beyond them stops the program.
class GuardedBytes {
public:
    explicit GuardedBytes(const Bytes& bytes) : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        m_size = (bytes.size() / m_page + 1) * m_page;
        m_area = static_cast<unsigned char*>(
            mmap(nullptr, m_size + m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(m_area + m_size, m_page, PROT_NONE);
        m_data = m_area + m_size - bytes.size();
        std::copy(bytes.begin(), bytes.end(), m_data);
    }
    ~GuardedBytes() { munmap(m_area, m_size + m_page); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    unsigned char* data() { return m_data; }

private:
    std::size_t m_page;
    std::size_t m_size;
    unsigned char* m_area;
    unsigned char* m_data;
};

class HostileTest : public SessionTest<SvcProbe> {
protected:
    int receiveGuarded(const Bytes& datagram) {
        GuardedBytes guarded(datagram);
        return session.InputReceivedData(guarded.data(), static_cast<int>(datagram.size()), now);
    }
    // The bytes of the stored media packet with that number, or nothing.
    Bytes stored(unsigned short seq) {
        const CTalRtpPacket* const packet = session.getMediaPacketBySeq(seq);
        return packet == nullptr ? Bytes() : bytesOf(*packet);
    }
};

// --- The entry -----------------------------------------------------------------------------------------

TEST_F(HostileTest, DatagramBelowTwelveBytesIsRefusedBeforeItIsRead) {
    const Bytes whole = rtp(1, kTimestamp, {});
    for (std::size_t size = 0; size < 12; ++size) {
        GuardedBytes guarded(slice(whole, 0, size));
        const unsigned long calls = session.m_receivedPacketNumber;
        EXPECT_EQ(session.InputReceivedData(guarded.data(), static_cast<int>(size), 70 + size), -1);
        expectLines({error("CMMRTPSessionBase::InputReceivedData check data validate failed, data = " +
                           printed(guarded.data()) + ", dataLen = " + std::to_string(size))});
        EXPECT_EQ(session.m_receivedPacketNumber, calls + 1);
        EXPECT_EQ(session.m_lastReceivedTime, 70 + size);
    }
    EXPECT_EQ(session.m_firstReceivedTime, 70u);
    EXPECT_EQ(session.m_receivedPacketBytes, 66u);
    EXPECT_EQ(receiveGuarded(whole), 0);  // 12 bytes are a packet
}

TEST_F(HostileTest, NegativeLengthIsRefusedBeforeADatagramIsRead) {
    GuardedBytes nothing({});
    EXPECT_EQ(session.InputReceivedData(nothing.data(), -1, 70), -1);
    EXPECT_EQ(session.InputReceivedData(nothing.data(), -2147483647 - 1, 70), -1);
    const std::string opening =
        "CMMRTPSessionBase::InputReceivedData check data validate failed, data = " + printed(nothing.data());
    expectLines({error(opening + ", dataLen = -1"), error(opening + ", dataLen = -2147483648")});
    EXPECT_EQ(session.m_receivedPacketNumber, 2u);
    EXPECT_EQ(session.m_receivedPacketBytes, 0xffffffff7fffffffu);
}

TEST(HostileObjectTest, DatagramBelowTwelveBytesMakesNoPacket) {
    SvcProbe session(nullptr, kSourceId);
    Bytes datagram = rtp(1, kTimestamp, {});
    const long before = heap().blocks;
    for (int size = -1; size < 12; ++size) {
        session.InputReceivedData(datagram.data(), size, 0);
    }
    EXPECT_EQ(heap().blocks, before);
}

// Every shape of datagram, cut at every length: no byte beyond it is read and nothing stops.
TEST_F(HostileTest, NoDatagramIsReadPastItsEnd) {
    XorFec xorFec;
    xorFec.base = 200;
    xorFec.mask = 0xffffff;
    xorFec.recoveredBits = 0x3f;
    xorFec.parity = pattern(40, 1);
    RsFecFields rsFec;
    rsFec.base = 300;
    rsFec.mediaCount = 1;
    rsFec.count = 1;
    rsFec.length = 30;
    rsFec.parity = rtp(300, kTimestamp, unitOf(300));
    Bytes withEverything = rtp(1, kTimestamp, pattern(90, 5));
    withEverything[0] = 0xbf;  // P=1 X=1 CC=15
    Bytes withExtension = join({rtp(2, kTimestamp, {0xbe, 0xde, 0x00, 0x02}), pattern(12, 9)});
    withExtension[0] = 0x90;
    const std::vector<Bytes> shapes = {rtp(3, kTimestamp, unitOf(3)),
                                       rtp(4, kTimestamp, aggregation({{0x67, 0x01}, {0x68}, {0x65, 2, 3}})),
                                       rtp(5, kTimestamp, fragment(kStart, {0x01, 0x02})),
                                       rtp(6, kTimestamp, fragment(kEnd, {0x03})),
                                       withEverything,
                                       withExtension,
                                       xorFec.bytes(),
                                       rsFec.bytes()};
    trace.setMask(-1);
    for (const unsigned long fecType : {RTP_FEC_XOR, RTP_FEC_RS}) {
        for (const Bytes& shape : shapes) {
            for (std::size_t size = 0; size <= shape.size(); ++size) {
                SvcProbe receiver(&sink, kSourceId);
                receiver.SetFecType(fecType);
                GuardedBytes guarded(slice(shape, 0, size));
                const DocumentedLeak leak;
                const int result = receiver.InputReceivedData(guarded.data(), static_cast<int>(size), now);
                receiver.ForceHandover(kTimestamp);
                EXPECT_TRUE(size >= 12 || result == -1);
            }
        }
    }
    for (const Handover& handover : sink.handovers) {
        EXPECT_LE(handover.payload.size(), 200u);
    }
}

TEST_F(HostileTest, EveryFecPacketIsAnsweredThoughTheIntakeDestroyedIt) {
    session.SetFecType(RTP_FEC_XOR);
    receive(XorFec().bytes());  // protects nothing: destroyed at once
    expectLines({fecArrived()});
}

// --- Short payloads ------------------------------------------------------------------------------------

TEST_F(HostileTest, PayloadOfNoBytesIsOfTypeZero) {
    // Leave dirty memory behind for the packets that follow.
    for (int i = 0; i < 4; ++i) {
        receive(rtp(1, kTimestamp, Bytes(1200, 0x7c), 0x55));
    }
    trace.clear();
    for (unsigned short seq = 10; seq < 14; ++seq) {
        EXPECT_EQ(media(seq, {}), 0);
        expectLines({warning("CMMRTPSession4SVC::dealPacket payload type is unknown, type = 0")});
        EXPECT_FALSE(session.isStartSeq(seq));
        EXPECT_FALSE(session.isEndSeq(seq));
        session.forceHandoverPacket(session.getMediaPacketBySeq(seq));
        expectLines({warning("CMMRTPSession4SVC::forceHandoverPacket payload type is unknown, type = 0")});
    }
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
}

TEST_F(HostileTest, FragmentOfOneByteHasNoBits) {
    for (int i = 0; i < 4; ++i) {
        receive(rtp(1, kTimestamp, Bytes(1200, 0xff), 0x55));
    }
    trace.clear();
    for (unsigned short seq = 10; seq < 20; seq = static_cast<unsigned short>(seq + 2)) {
        media(seq, {0x7c});
        EXPECT_FALSE(session.isStartSeq(seq));
        EXPECT_FALSE(session.isEndSeq(seq));
    }
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
    expectLines({});
}

TEST_F(HostileTest, ShortPacketsInsideARunAddNothing) {
    media(10, fragment(kStart, {0x11}));
    media(11, {0x7c});
    media(12, {});
    trace.clear();
    media(13, fragment(kEnd, {0x44}));
    expectHandovers({{10, inByteStream({0x65, 0x11, 0x44}), 0}});
    EXPECT_EQ(session.getFUPacketsPayloadSize(10, 13), 2u);
    EXPECT_EQ(session.getFUPacketsPayloadSize(11, 12), 0u);
    expectLines({});
}

TEST_F(HostileTest, UnitOfOneByteHandedOverAsAFragmentIsAHeaderAlone) {
    media(5, {0x41});
    sink.handovers.clear();
    media(6, fragment(kMiddle, {0x22}));
    expectHandovers({{5, inByteStream({0x40}), 0}});
}

TEST_F(HostileTest, UnitsOfNoBytesGrowTheDeclaredSizeOnArrival) {
    media(9, {0x78, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
    expectHandovers({{9, {0x00, 0x00, 0x00, 0x01}, 0},
                     {9, {0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}, 0},
                     {9, {0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, 0}});
    expectLines(
        {warning("CMMRTPSession4SVC::splitAUPacketEx payload size is smaller than unit min bytes, "
                 "Seq = 9, unitCount = 4, payloadSize = 1")});
}

TEST_F(HostileTest, UnitsOfNoBytesForcedOutAreStartCodes) {
    media(9, join({{0x78}, Bytes(1000, 0x00)}));
    // 1000 bytes give 499 units, each of which leaves 2 fewer, until 2 are left.
    EXPECT_THAT(sink.handovers, SizeIs(499));
    EXPECT_EQ(sink.handovers.back().payload.size(), 499u * 4);
    sink.handovers.clear();
    trace.clear();
    session.forceHandoverPacket(session.getMediaPacketBySeq(9));
    ASSERT_THAT(sink.handovers, SizeIs(1));
    EXPECT_EQ(sink.handovers[0].packetType, 0u);
    ASSERT_EQ(sink.handovers[0].payload.size(), 499u * 4);
    for (std::size_t i = 0; i < 499; ++i) {
        ASSERT_EQ(slice(sink.handovers[0].payload, i * 4, i * 4 + 4), (Bytes{0x00, 0x00, 0x00, 0x01}));
    }
    expectLines(
        {warning("CMMRTPSession4SVC::splitAUPacket payload size is smaller than unit min bytes, "
                 "Seq = 9, unitCount = 500, payloadSize = 2")});
}

// --- An extension whose length is cut off to nothing ---------------------------------------------------

// 16383 words and the 4 bytes of the extension's own header are 65536 bytes: none, in 16 bits. So the payload
// begins with the extension's header, whose first byte the profile states. In the temporary packet the same
// header is followed by zeros and counts 4 bytes more.
class VanishingExtensionTest : public HostileTest {
protected:
    Bytes datagram(unsigned short profile, const Bytes& behind) {
        Bytes bytes = rtp(7, kTimestamp, join({word16(profile), {0x3f, 0xff}, behind}));
        bytes[0] = 0x90;
        return bytes;
    }
    void expectOne(const Bytes& received, const Bytes& payload) {
        ASSERT_THAT(sink.handovers, SizeIs(1));
        EXPECT_EQ(sink.handovers[0].header, join({slice(received, 0, 12), {0x00, 0x00, 0x00, 0x00}}));
        EXPECT_EQ(sink.handovers[0].payload, payload);
    }
};

TEST_F(VanishingExtensionTest, SingleUnitIsHandedOverWhole) {
    const Bytes received = datagram(0x4101, pattern(1300, 3));
    receive(received);
    expectOne(received, inByteStream(slice(received, 12)));
}

TEST_F(VanishingExtensionTest, AggregatedUnitIsHandedOverWhole) {
    const Bytes received = datagram(0x7800, pattern(62, 3));  // one unit of 0x003f = 63 bytes
    receive(received);
    expectOne(received, inByteStream(slice(received, 15)));
    sink.handovers.clear();
    session.forceHandoverPacket(session.getMediaPacketBySeq(7));
    expectOne(received, inByteStream(slice(received, 15)));
}

TEST_F(VanishingExtensionTest, FragmentIsHandedOverWhole) {
    const Bytes received = datagram(0x7cc5, pattern(1300, 3));
    receive(received);
    expectOne(received, inByteStream(join({{0x65}, slice(received, 14)})));
}

// --- Full lists ----------------------------------------------------------------------------------------

class FullListTest : public HostileTest {
protected:
    void storeMiddleFragments(int count) {
        at(1000);
        for (int seq = 0; seq < count; ++seq) {
            media(static_cast<unsigned short>(seq), fragment(kMiddle, {}));
        }
        ASSERT_THAT(session.m_mediaPacketList, SizeIs(static_cast<std::size_t>(count)));
    }
};

TEST_F(FullListTest, WalkOverEveryNumberEnds) {
    storeMiddleFragments(65536);
    unsigned short found = 7;
    EXPECT_FALSE(session.findStartSeq(100, found));
    EXPECT_EQ(found, 7);
    EXPECT_FALSE(session.findEndSeq(100, found));
    EXPECT_EQ(found, 99);
    EXPECT_FALSE(session.findEndSeq(0, found));
    EXPECT_EQ(found, 65535);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 1);
    expectDelivered({});
}

TEST_F(FullListTest, FullListAgesOutBeforeTheNextPacketIsCalledADuplicate) {
    storeMiddleFragments(65536);
    at(6000);
    picture(2);
    EXPECT_EQ(media(500), 0);  // still a duplicate
    expectDelivered({});
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(65536));
    at(6001);
    media(500);
    expectDelivered({500});
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(1));
    EXPECT_THAT(session.m_tsInfoList, SizeIs(1));
}

TEST_F(FullListTest, DuplicateAgesNothingOutWhileANumberIsFree) {
    storeMiddleFragments(65535);
    at(6001);
    picture(2);
    media(500);
    expectDelivered({});
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(65535));
    media(65535);
    expectDelivered({65535});
    EXPECT_THAT(session.m_mediaPacketList, SizeIs(1));
}

TEST_F(FullListTest, RunOverEveryNumberIsHandedOverByItsStart) {
    storeMiddleFragments(65535);
    // The one number left brings start and end of a run that goes once round.
    trace.clear();
    media(65535, fragment(kStart, {0x11}));
    EXPECT_EQ(session.unitInfo(kTimestamp, 65535)->packetCount, 65536);
    EXPECT_FALSE(session.unitInfo(kTimestamp, 65535)->complete);
    EXPECT_EQ(session.ForceHandover(kTimestamp), 0);
    expectHandovers({{65535, inByteStream({0x65, 0x11}), 1}});
    expectLines({});
}

// --- XOR parity ----------------------------------------------------------------------------------------

class HostileXorTest : public HostileTest {
protected:
    HostileXorTest() {
        session.SetFecType(RTP_FEC_XOR);
        fec.base = 100;
        fec.mask = 0x800000;
        fec.payloadType = kMediaType;
        fec.recoveredTimestamp = kTimestamp;
        fec.parity = {0x41, 0x01, 0x02, 0x03};
        fec.length = 4;
    }
    XorFec fec;
};

TEST_F(HostileXorTest, FecPacketBelow24BytesRebuildsNothing) {
    fec.parity.clear();
    fec.length = 0;
    const Bytes whole = fec.bytes();
    ASSERT_EQ(whole.size(), 24u);
    for (std::size_t size = 12; size < 24; ++size) {
        EXPECT_EQ(receiveGuarded(slice(whole, 0, size)), 0) << size;
        expectLines({fecArrived()});
        EXPECT_THAT(session.m_mediaPacketList, IsEmpty());
        EXPECT_THAT(session.m_fecPacketList, IsEmpty()) << size;
    }
    receiveGuarded(whole);  // a packet of a header alone
    EXPECT_EQ(stored(100), rtp(100, kTimestamp, {}));
}

TEST_F(HostileXorTest, FecPacketBelow24BytesThatProtectsTwoWaits) {
    fec.mask = 0xc00000;
    receive(slice(fec.bytes(), 0, 18));
    EXPECT_THAT(session.m_fecPacketList, SizeIs(1));
    media(101);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    expectDelivered({101});
}

TEST_F(HostileXorTest, RebuiltLengthUpToTheParityIsTakenAndBeyondIsNot) {
    receive(fec.bytes());
    EXPECT_EQ(stored(100).size(), 16u);
    for (const unsigned short length : {5, 6, 1300, 32767, 32768, 65535}) {
        ++fec.base;
        trace.clear();
        fec.length = length;
        receive(fec.bytes());
        EXPECT_EQ(session.getMediaPacketBySeq(fec.base), nullptr) << length;
        EXPECT_THAT(session.m_fecPacketList, IsEmpty());
        expectLines({fecArrived()});
    }
}

TEST_F(HostileXorTest, RebuiltHeaderMustFitTheRebuiltPacket) {
    fec.recoveredBits = 0x01;  // one CSRC: 4 bytes
    receive(fec.bytes());
    EXPECT_EQ(stored(100).size(), 16u);
    fec.base = 101;
    fec.length = 3;
    receive(fec.bytes());
    EXPECT_EQ(session.getMediaPacketBySeq(101), nullptr);
    fec.recoveredBits = 0x0f;  // 60 bytes of CSRCs
    fec.length = 4;
    fec.base = 102;
    receive(fec.bytes());
    EXPECT_EQ(session.getMediaPacketBySeq(102), nullptr);
    fec.recoveredBits = 0x10;  // an extension of 0x0203 words
    fec.base = 103;
    receive(fec.bytes());
    EXPECT_EQ(session.getMediaPacketBySeq(103), nullptr);
    EXPECT_THAT(session.m_recoverPacketList, IsEmpty());
}

TEST_F(HostileXorTest, FailedRebuildLeavesNothingBehind) {
    receive(fec.bytes());
    trace.setMask(-1);
    Bytes bytes;
    ++fec.base;
    fec.length = 5;
    bytes = fec.bytes();
    const long before = heap().blocks;
    session.InputReceivedData(bytes.data(), static_cast<int>(bytes.size()), now);
    EXPECT_EQ(heap().blocks, before);
}

TEST_F(HostileXorTest, RecoveryBitsOfTheFecHeaderAreNoHeaderOfIts) {
    fec.recoveredBits = 0x1f;  // X=1 CC=15
    fec.parity = join({Bytes(60, 0xaa), {0xbe, 0xde, 0x00, 0x00}, {0x41, 0x01}});
    fec.length = 66;
    receive(fec.bytes());
    EXPECT_EQ(slice(stored(100), 12), fec.parity);
    expectHandovers({{100, inByteStream({0x41, 0x01}), 0}});
}

// --- Reed-Solomon parity -------------------------------------------------------------------------------

class HostileRsTest : public HostileTest {
protected:
    HostileRsTest() {
        // Over one packet the parity is the packet and the recover length its size.
        fec.seq = 500;
        fec.base = 100;
        fec.mediaCount = 1;
        fec.count = 1;
        fec.length = 16;
        fec.parity = rtp(100, kTimestamp, unitOf(100));
    }
    ExpectedLine mismatch(int base = 100) {
        return warning(
            "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
            "fecSeq = " +
            std::to_string(fec.seq) + ", fecIndex = 0, fecBaseSeq = " + std::to_string(fec.seq) +
            ", fecNum = 1, packetBaseSeq = " + std::to_string(base) + ", packetNum = 1");
    }
    RsFecFields fec;
};

TEST_F(HostileRsTest, FecPacketsAreObjectsOfTheirClass) {
    fec.mediaCount = 2;
    receive(fec.bytes());
    ASSERT_NE(session.getFECPacketBySeq(500), nullptr);
    EXPECT_NE(dynamic_cast<CRTPRSPacket*>(session.getFECPacketBySeq(500)), nullptr);
}

TEST_F(HostileRsTest, DecodedLengthFromTwelveUpToTheBlockIsTaken) {
    receive(fec.bytes());
    EXPECT_EQ(stored(100), fec.parity);
    fec.seq = 501;
    fec.base = 101;
    fec.parity = rtp(101, kTimestamp, unitOf(101));
    fec.length = 12;
    receive(fec.bytes());
    EXPECT_EQ(stored(101), rtp(101, kTimestamp, {}));
}

TEST_F(HostileRsTest, DecodedLengthBelowTwelveOrBeyondTheBlockIsAMismatchWithOneLine) {
    for (const unsigned short length : {0, 1, 11, 17, 1300, 32768, 65535}) {
        fec.length = length;
        receive(fec.bytes());
        expectLines({mismatch(), fecArrived()});
        EXPECT_EQ(session.getMediaPacketBySeq(100), nullptr) << length;
        EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    }
}

TEST_F(HostileRsTest, RebuiltHeaderBeyondThePacketIsAMismatchWithOneLine) {
    fec.parity[0] = 0x82;  // 2 CSRCs: 20 bytes
    receive(fec.bytes());
    expectLines({mismatch(), fecArrived()});
    EXPECT_EQ(session.getMediaPacketBySeq(100), nullptr);
    fec.parity[0] = 0x81;  // 1 CSRC: 16 bytes, the whole packet
    receive(fec.bytes());
    EXPECT_EQ(stored(100), fec.parity);
}

TEST_F(HostileRsTest, FailedRebuildLeavesNothingBehind) {
    receive(fec.bytes());
    trace.setMask(-1);
    fec.base = 101;
    fec.length = 17;
    Bytes bytes = fec.bytes();
    session.InputReceivedData(bytes.data(), static_cast<int>(bytes.size()), now);
    const long before = heap().blocks;
    session.InputReceivedData(bytes.data(), static_cast<int>(bytes.size()), now);
    EXPECT_EQ(heap().blocks, before);
}

TEST_F(HostileRsTest, PayloadBelowItsHeaderHasABlockOfNoBytes) {
    for (std::size_t size = 19; size <= 20; ++size) {
        receiveGuarded(
            slice(fec.bytes(), 0, size));  // up to the count of media packets, or the reserved byte
        expectLines({mismatch(), fecArrived()});
        EXPECT_EQ(session.getMediaPacketBySeq(100), nullptr);
    }
    for (std::size_t size = 12; size < 19; ++size) {  // the count of media packets reads as 0
        receiveGuarded(slice(fec.bytes(), 0, size));
        expectLines({fecArrived()});
        EXPECT_THAT(session.m_fecPacketList, IsEmpty());
    }
}

TEST_F(HostileRsTest, BlockOfNoBytesIsTracedAsZero) {
    fec.mediaCount = 2;
    media(101);
    trace.clear();
    receiveGuarded(slice(fec.bytes(), 0, 19));
    expectLines({warning("CMMRTPSessionBase::recoverPacketWithRSFEC fec payoad size is dubitable, "
                         "fecPayloadSize = 0, maxPacketLen = 16, maxFecPayloadLen = 0"),
                 fecArrived()});
}

TEST_F(HostileRsTest, BlockOf1600BytesIsDecodedAndOf1601Refused) {
    fec.parity = rtp(100, kTimestamp, join({{0x41}, Bytes(1587, 0x11)}));
    fec.length = 1600;
    receive(fec.bytes());
    EXPECT_EQ(stored(100).size(), 1600u);
    trace.clear();
    fec.base = 101;
    fec.parity = rtp(101, kTimestamp, join({{0x41}, Bytes(1588, 0x11)}));
    receive(fec.bytes());
    expectLines(
        {warning("CRsFec::Decode, max packet size is 1601, bigger than MAX_PACKET_SIZE, skip it!", "RsFec"),
         fecArrived()});
    EXPECT_EQ(session.getMediaPacketBySeq(101), nullptr);
    EXPECT_THAT(session.m_fecPacketList, IsEmpty());
}

// Whoever sends groups of every size would fill the cache, which forgets nothing while a session lives.
TEST_F(HostileRsTest, GroupsFromTheNetworkPutNoModelsIntoTheCache) {
    std::vector<Group> groups;
    for (int count = 1; count <= 8; ++count) {
        const unsigned short first = static_cast<unsigned short>(200 + 20 * count);
        groups.emplace_back(RTP_FEC_RS, first, first, unitsFrom(first, count), 2);
        groups.back().lose(first);
    }
    RsMapClear();
    for (const Group& group : groups) {
        receiveAll(group.arriving());
        sink.handovers.clear();
        receive(group.fec[1]);
        EXPECT_THAT(sink.handovers, SizeIs(1));
    }
    for (int count = 1; count <= 8; ++count) {
        const long before = heap().blocks;
        ASSERT_NE(GetRsModel(count, count + 2), nullptr);
        EXPECT_GT(heap().blocks, before) << count;  // was made now
    }
}

TEST_F(HostileRsTest, OnePacketMayNameTheSameNumbersAsItsFecNumbers) {
    fec.seq = 100;
    fec.base = 100;
    receive(fec.bytes());
    EXPECT_EQ(stored(100), fec.parity);
}

}  // namespace
}  // namespace test
}  // namespace talrtp

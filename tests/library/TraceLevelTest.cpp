// The level of every diagnostic about wrong use: a host that asks for less gets the same answer and no line.

#include "SessionFixture.h"

#include <talrtp/RsFec.h>

#include <functional>
#include <vector>

namespace talrtp {
namespace test {
namespace {

enum Level { ERROR_LINE = 0, WARNING_LINE = 1 };

// A call that emits lines of `level` and of no other.
template <typename Session>
struct WrongUse {
    const char* name;
    Level level;
    std::function<int(Session&)> call;
};

template <typename Session>
void expectLevels(const std::vector<WrongUse<Session>>& rows) {
    for (const WrongUse<Session>& row : rows) {
        SCOPED_TRACE(row.name);
        TraceCatcher trace(row.level);
        RecordingSink sink;
        Session loud(&sink, kSourceId);
        const int result = row.call(loud);
        EXPECT_FALSE(trace.lines().empty());
        for (const TraceLine& line : trace.lines()) {
            EXPECT_EQ(line.level, row.level) << line;
        }
        trace.clear();
        trace.setMask(row.level - 1);
        Session quiet(&sink, kSourceId);
        EXPECT_EQ(row.call(quiet), result);
        EXPECT_THAT(trace.lines(), testing::IsEmpty());
        EXPECT_THAT(sink.handovers, testing::IsEmpty());
    }
}

// Packets with the numbers 100, 100 + `step` and so on, of 20 bytes.
struct Numbered : PacketArray<CTalRtpPacket> {
    Numbered(int count, int step) : PacketArray<CTalRtpPacket>(count, 200) {
        for (int i = 0; i < count; ++i) {
            (*this)[i].set_sequence_number(static_cast<unsigned short>(100 + i * step));
            (*this)[i].set_payload_size(8);
        }
    }
};

int createXor(CMMRTPSessionBase& session, CTalRtpPacket* packets, unsigned int mask, CRTPFECPacket* fec) {
    session.SetFecType(RTP_FEC_XOR);
    return session.CreateXorFecPackets(packets, 2, mask, fec);
}

int createRs(CMMRTPSessionBase& session, CTalRtpPacket* packets, int count, CTalRtpPacket* fec,
             int fecCount) {
    session.SetFecType(RTP_FEC_RS);
    return session.CreateRsFecPackets(packets, count, fec, fecCount);
}

Bytes unit = {0x41, 1, 2, 3};
unsigned char* units[] = {unit.data()};
int sizes[] = {4};

TEST(TraceLevelTest, PacketsThatCannotBeMadeAreReportedFromTheirLevelOn) {
    expectLevels<BaseProbe>({
        {"payload without a packet", ERROR_LINE,
         [](BaseProbe& session) { return session.setPacketPayload(1, 1, 4, unit.data(), nullptr); }},
        {"second unit of a packet", WARNING_LINE,
         [](BaseProbe& session) {
             CTalRtpPacket packet(200);
             return session.setPacketPayload(2, 1, 4, unit.data(), &packet);
         }},
        {"aggregation of the base class", WARNING_LINE,
         [](BaseProbe& session) {
             CTalRtpPacket packet(200);
             return session.CreateStapaPacket(kTimestamp, 1, sizes, units, &packet);
         }},
        {"fragments of the base class", WARNING_LINE,
         [](BaseProbe& session) {
             Numbered packets(2, 1);
             return session.CreateFuaPackets(kTimestamp, 4, unit.data(), 2, packets);
         }},
    });
    expectLevels<SvcProbe>({
        {"negative count of packets", WARNING_LINE,
         [](SvcProbe& session) {
             CTalRtpPacket packet(200);
             return session.setPacketPayload(1, -1, 4, unit.data(), &packet);
         }},
        {"single unit without a packet", ERROR_LINE,
         [](SvcProbe& session) { return session.setSinglePayload(4, unit.data(), nullptr); }},
        {"aggregated unit without a packet", ERROR_LINE,
         [](SvcProbe& session) { return session.setAUPayload(1, 4, unit.data(), nullptr); }},
        {"fragment without a packet", ERROR_LINE,
         [](SvcProbe& session) { return session.setFUPayload(1, 2, 4, unit.data(), nullptr); }},
    });
}

TEST(TraceLevelTest, FecPacketsThatCannotBeMadeAreReportedFromTheirLevelOn) {
    expectLevels<SvcProbe>({
        {"XOR of no packets", ERROR_LINE,
         [](SvcProbe& session) {
             CRTPFECPacket fec(200);
             return createXor(session, nullptr, 3, &fec);
         }},
        {"XOR in a session of the other type", WARNING_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 1);
             CRTPFECPacket fec(200);
             session.SetFecType(RTP_FEC_RS);
             return session.CreateXorFecPackets(packets, 2, 3, &fec);
         }},
        {"XOR with an empty mask", ERROR_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 1);
             CRTPFECPacket fec(200);
             return createXor(session, packets, 0, &fec);
         }},
        {"XOR of packets far apart", WARNING_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 24);
             CRTPFECPacket fec(200);
             return createXor(session, packets, 3, &fec);
         }},
        {"XOR into a packet that it protects", WARNING_LINE,
         [](SvcProbe& session) {
             PacketArray<CRTPFECPacket> packets(2, 200);
             packets[0].set_sequence_number(100);
             packets[1].set_sequence_number(101);
             packets[0].set_payload_size(8);
             packets[1].set_payload_size(8);
             session.m_fecSequenceNumber = 101;
             return createXor(session, packets, 3, &packets[1]);
         }},
        {"Reed-Solomon of no packets", ERROR_LINE,
         [](SvcProbe& session) { return createRs(session, nullptr, 2, nullptr, 1); }},
        {"Reed-Solomon of too many packets", ERROR_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 1);
             return createRs(session, packets, 2, packets, 254);
         }},
        {"Reed-Solomon in a session of the other type", WARNING_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 1);
             session.SetFecType(RTP_FEC_XOR);
             return session.CreateRsFecPackets(packets, 2, packets, 1);
         }},
        {"Reed-Solomon of packets with a gap", ERROR_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 2);
             Numbered fec(1, 1);
             return createRs(session, packets, 2, fec, 1);
         }},
        {"Reed-Solomon without a code", ERROR_LINE,
         [](SvcProbe& session) {
             Numbered packets(2, 1);
             Numbered fec(1, 1);
             return createRs(session, packets, 2, fec, -1);
         }},
        {"blocks that are too long to encode", WARNING_LINE,
         [](SvcProbe&) {
             int lengths[] = {MAX_PACKET_SIZE + 1, 1};
             return CRsFec::Encode(GetRsModel(2, 3), nullptr, lengths, nullptr);
         }},
        {"blocks of a size that is too long to decode", WARNING_LINE,
         [](SvcProbe&) {
             return CRsFec::Decode(GetRsModel(2, 3), nullptr, MAX_PACKET_SIZE + 1, nullptr, nullptr, nullptr,
                                   1);
         }},
        {"blocks that are too long to decode", WARNING_LINE,
         [](SvcProbe&) {
             int lengths[] = {MAX_PACKET_SIZE + 1, 1};
             return CRsFec::Decode(GetRsModel(2, 3), nullptr, lengths, nullptr, nullptr, nullptr, 1);
         }},
    });
}

// Answers with a packet of another number than was asked for.
class OtherNumberProbe : public SvcProbe {
public:
    using SvcProbe::SvcProbe;
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket*) override {
        m_packet.set_sequence_number(static_cast<unsigned short>(seq + 1));
        return &m_packet;
    }

private:
    CTalRtpPacket m_packet{100};
};

TEST(TraceLevelTest, FecThatRebuildsNothingIsReportedFromItsLevelOn) {
    expectLevels<SvcProbe>({
        {"no FEC packet", ERROR_LINE,
         [](SvcProbe& session) { return session.inputReceivedFECPacket(nullptr); }},
        {"no FEC packet to try", ERROR_LINE,
         [](SvcProbe& session) {
             bool keep = true;
             session.recoverPacketWithFEC(nullptr, keep);
             return keep ? 1 : 0;
         }},
        {"no XOR packet to try", ERROR_LINE,
         [](SvcProbe& session) {
             bool keep = true;
             session.recoverPacketWithXORFEC(nullptr, keep);
             return keep ? 1 : 0;
         }},
        {"no Reed-Solomon packet to try", ERROR_LINE,
         [](SvcProbe& session) {
             bool keep = true;
             session.recoverPacketWithRSFEC(nullptr, keep);
             return keep ? 1 : 0;
         }},
        {"no XOR packet to rebuild from", ERROR_LINE,
         [](SvcProbe& session) { return session.recoverPacket(7, nullptr) != nullptr ? 1 : 0; }},
    });
    expectLevels<OtherNumberProbe>({
        {"packet of another number", WARNING_LINE,
         [](OtherNumberProbe& session) {
             CRTPFECPacket fec(200);
             fec.set_fec_sequence_number_base(7);
             fec.set_fec_mask(0x800000);
             bool keep = true;
             session.recoverPacketWithXORFEC(&fec, keep);
             return keep ? 1 : 0;
         }},
    });
}

TEST(TraceLevelTest, HandoversWithoutAPacketAreReportedFromTheirLevelOn) {
    expectLevels<BaseProbe>({
        {"no media packet", ERROR_LINE,
         [](BaseProbe& session) { return session.inputReceivedMediaPacket(nullptr); }},
        {"no packet to deal", ERROR_LINE, [](BaseProbe& session) { return session.dealPacket(nullptr), 0; }},
        {"no packet to force", ERROR_LINE,
         [](BaseProbe& session) { return session.forceHandoverPacket(nullptr), 0; }},
    });
    expectLevels<SvcProbe>({
        {"no packet to deal", ERROR_LINE, [](SvcProbe& session) { return session.dealPacket(nullptr), 0; }},
        {"no packet to force", ERROR_LINE,
         [](SvcProbe& session) { return session.forceHandoverPacket(nullptr), 0; }},
        {"packet of an unknown type to force", WARNING_LINE,
         [](SvcProbe& session) {
             CTalRtpPacket packet(200);
             packet.set_payload_size(1);
             packet.get_payload_ptr()[0] = 30;
             return session.forceHandoverPacket(&packet), 0;
         }},
        {"no single unit", ERROR_LINE,
         [](SvcProbe& session) { return session.deliveSinglePacket(nullptr), 0; }},
        {"no aggregation to split", ERROR_LINE,
         [](SvcProbe& session) { return session.splitAUPacketEx(nullptr), 0; }},
        {"no aggregation to hand over", ERROR_LINE,
         [](SvcProbe& session) { return session.splitAUPacket(nullptr), 0; }},
        {"no fragment", ERROR_LINE, [](SvcProbe& session) { return session.combineFUPacket(nullptr), 0; }},
        {"no fragment to force", ERROR_LINE,
         [](SvcProbe& session) { return session.forceHandoverFUPacket(nullptr), 0; }},
        {"fragment that is not there", WARNING_LINE,
         [](SvcProbe& session) {
             bool isComplete = true;
             unsigned short start = 0;
             unsigned short end = 0;
             return session.getFUPacketsInfoBySeq(7, isComplete, start, end);
         }},
        {"run of fragments without its start", WARNING_LINE,
         [](SvcProbe& session) { return session.deliveFUPacket(7, 8, true), 0; }},
    });
}

}  // namespace
}  // namespace test
}  // namespace talrtp

// A plain model of a session's receiving side, to hold the library against: ordinary maps and lists, every
// question answered by walking them, nothing remembered that can be looked up again. It knows nothing of the
// library but the rules of its behaviour, so what both do alike is not an accident of one implementation.
//
//   ReceiveModel model(kHasSink, sourceId, SessionKind::kSvc);
//   model.inputReceivedData(bytes, length, 1000);
//   model.handOvers, model.lines, model.mediaPackets ...   // what a host would have seen, and what is held
//
// The rounds of recovery run as a loop; the order of everything that can be seen is that of nested calls.

#ifndef TALRTP_TESTS_MODEL_RECEIVEMODEL_H
#define TALRTP_TESTS_MODEL_RECEIVEMODEL_H

#include "model/PlainPacket.h"

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

namespace talrtp {
namespace model {

// A packet that the sink was lent: its header and declared payload byte for byte, and its answers about
// itself.
struct HandOver {
    Bytes header;
    Bytes payload;
    unsigned int packetType;
    int packetSize;
    int payloadSize;
    int bufferSize;
};

// A trace line without prefix and position; every pointer value stands as "0xP".
struct Line {
    int level;
    std::string message;
};

struct DataInfo {
    std::uint16_t startSeq;
    int packetCount;
    bool delivered;
    bool complete;
};

struct TimestampInfo {
    std::uint64_t createTime;
    std::uint64_t updateTime;
    std::map<std::uint16_t, DataInfo> dataInfoMap;
    std::list<std::uint16_t> mediaSeqList;
    std::list<std::uint16_t> fecSeqList;
};

// The receive counters, in their order in the session.
struct Counters {
    std::uint64_t receivedPackets = 0;
    std::uint64_t receivedBytes = 0;
    std::uint64_t receivedMedia = 0;
    std::uint64_t validMedia = 0;
    std::uint64_t validMediaBytes = 0;
    std::uint64_t receivedFec = 0;
    std::uint64_t validFec = 0;
    std::uint64_t validFecBytes = 0;
    std::uint64_t recovered = 0;
    std::uint64_t recoveredBytes = 0;
    std::uint64_t deliveredBytes = 0;
};

enum class SessionKind { kBase, kSvc };

class ReceiveModel {
public:
    typedef std::map<std::uint16_t, PlainPacket> PacketMap;

    ReceiveModel(bool hasSink, unsigned int sourceId, SessionKind kind)
        : m_hasSink(hasSink), m_sourceId(sourceId), m_kind(kind) {}

    int setPayloadType(unsigned long payloadType, unsigned long fecPayloadType);
    int setFecType(unsigned long fecType);
    int inputReceivedData(const unsigned char* data, int dataLen, std::uint64_t receivedTime);
    int forceHandover(unsigned long timestamp);
    // Logs the lines that a session emits while it is destroyed.
    void close();

    // The trace mask of the host, and the output since it was last cleared.
    int mask = 2;
    std::vector<HandOver> handOvers;
    std::vector<Line> lines;

    PacketMap mediaPackets;
    PacketMap fecPackets;
    PacketMap recoveredPackets;
    std::map<std::uint32_t, TimestampInfo> timestamps;
    Counters counters;
    std::uint64_t firstReceivedTime = 0;
    std::uint64_t lastReceivedTime = 0;
    bool isFirstReceived = true;
    std::uint32_t payloadType = 98;
    std::uint32_t fecPayloadType = 111;
    std::uint32_t fecType = 1;

private:
    struct AggregatedUnit {
        int offset;         // of its first byte in the payload
        unsigned int size;  // as it will be copied
        unsigned int declared;
        int left;  // payload bytes from its first byte on
    };
    struct RsGroup {
        int k;
        int m;
        std::uint16_t mediaBase;
        std::uint16_t fecSeq;
        unsigned int index;
        std::uint16_t fecBase;
        std::vector<int> present;
        std::vector<int> missing;
    };

    void say(int level, std::string message);

    // Entry and bookkeeping
    bool validate(const PlainPacket& packet);
    int inputReceivedMediaPacket(const PlainPacket& packet);
    void updateMediaDataInfo(std::uint32_t timestamp, std::uint16_t seq);
    DataInfo* getMediaDataInfo(std::uint32_t timestamp, std::uint16_t seq);
    TimestampInfo& timestampInfo(std::uint32_t timestamp);

    // Ordering and delivery
    void dealPacket(std::uint16_t seq);
    void deliverPacket(const PlainPacket& packet);
    void forceHandoverPacket(std::uint16_t seq);
    void checkAllLists();
    bool findStartSeq(std::uint16_t seq, std::uint16_t& start) const;
    bool findEndSeq(std::uint16_t start, std::uint16_t& end) const;
    bool startsUnit(const PlainPacket& packet) const;
    bool endsUnit(const PlainPacket& packet) const;

    // H.264 payloads
    void dealSvcPacket(const PlainPacket& packet);
    void forceHandoverSvcPacket(const PlainPacket& packet);
    void deliverSinglePacket(const PlainPacket& packet);
    void splitOnArrival(const PlainPacket& packet);
    void splitWhenForced(const PlainPacket& packet);
    bool nextAggregatedUnit(const PlainPacket& packet, int& offset, AggregatedUnit& unit) const;
    int aggregationDeclares(const PlainPacket& packet) const;
    void warnOfUnitMinimum(const char* operation, const PlainPacket& packet, int unitCount, int left);
    void warnOfUnitSize(const char* operation, const PlainPacket& packet, int unitCount,
                        const AggregatedUnit& unit);
    void combineFragments(const PlainPacket& packet);
    void forceHandoverFragments(const PlainPacket& packet);
    DataInfo* fragmentRun(const PlainPacket& packet);
    int fragmentRunSize(std::uint16_t start, std::uint16_t end);
    void deliverFragments(const DataInfo& run);

    // Forward error correction
    int inputReceivedFecPacket(const PlainPacket& packet);
    void retryStoredFecPackets();
    bool dealRecoveredOnce();
    void dealRecoveredPackets();
    bool recoverWithFec(const PlainPacket& fec);
    bool recoverWithXor(const PlainPacket& fec);
    bool rebuildByXor(std::uint16_t seq, const PlainPacket& fec, PlainPacket& rebuilt);
    bool recoverWithRs(const PlainPacket& fec);
    bool findRsShards(const PlainPacket& fec, RsGroup& group) const;
    void rebuildByRs(const PlainPacket& fec, const RsGroup& group);
    bool acceptRebuiltByRs(const Bytes& block, const Bytes& lengthWord, std::uint16_t expected);
    const PlainPacket* knownMedia(std::uint16_t seq) const;

    bool m_hasSink;
    std::uint32_t m_sourceId;
    SessionKind m_kind;
};

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_RECEIVEMODEL_H

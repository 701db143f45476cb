// The session classes behind `ITalRTPSession`, for hosts that derive from them, and the XOR kernel.
//
// `CMMRTPSessionBase` holds the configuration, the sending operations and the receive pipeline:
//
//   InputReceivedData -> validate -> media packet: store, record, deal, retry FEC, age out
//                                 -> FEC packet:   try to rebuild, keep or drop, deal what was rebuilt
//
// and hands every stored packet over as it is. `CMMRTPSession4SVC`, the class that `TalCreateRTPSession`
// makes, replaces the payload writer and the delivery hooks by those of H.264 (RFC 6184): single NAL unit
// packets, STAP-A and FU-A.
//
// A derived class may read every protected member. The receive lists and records are kept in step with an
// index of the library's own, so a derived class must not change them, and `isStartSeq` and `isEndSeq` are
// asked once for each packet, when it is stored. The order and width of the documented members are binary
// interface.

#ifndef TALRTP_TALRTPSESSION_H
#define TALRTP_TALRTPSESSION_H

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <utility>

namespace talrtp {

// Writes `src1[i]` XOR `src2[i]` to `dst[i]` for every i below `length`, which may be 0 or negative. Borrows
// all three; no alignment is needed. `dst` may be `src1`; other overlaps are not supported.
TALRTP_API void deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2, int length);

// Keeps the nodes of a session's lists for reuse, so that a packet in the steady state costs no allocation
// but its own. Belongs to the session.
class TALRTP_API CNodePool {
public:
    CNodePool();
    ~CNodePool();
    CNodePool(const CNodePool&) = delete;
    CNodePool& operator=(const CNodePool&) = delete;

    // **Returns** room for `size` bytes, aligned for any type; it goes back with `give` and the same size.
    void* take(std::size_t size);
    // **Takes** back what `take` returned. The memory itself stays with the pool.
    void give(void* node, std::size_t size);

private:
    struct FreeNode;
    static constexpr std::size_t kGranularity = 16;
    static constexpr std::size_t kClasses = 64;  // nodes of up to 1024 bytes; larger ones go through the heap

    FreeNode* m_free[kClasses];
    void* m_slabs;
    char* m_slabCursor;
    char* m_slabEnd;
};

// The allocator of the session's lists: one node at a time out of a `CNodePool`.
template <typename T>
class CNodeAllocator {
public:
    typedef T value_type;

    explicit CNodeAllocator(CNodePool* pool) : m_pool(pool) {}
    template <typename U>
    CNodeAllocator(const CNodeAllocator<U>& other) : m_pool(other.pool()) {}

    T* allocate(std::size_t count) { return static_cast<T*>(m_pool->take(count * sizeof(T))); }
    void deallocate(T* node, std::size_t count) { m_pool->give(node, count * sizeof(T)); }
    CNodePool* pool() const { return m_pool; }

private:
    CNodePool* m_pool;
};

template <typename T, typename U>
bool operator==(const CNodeAllocator<T>& a, const CNodeAllocator<U>& b) {
    return a.pool() == b.pool();
}
template <typename T, typename U>
bool operator!=(const CNodeAllocator<T>& a, const CNodeAllocator<U>& b) {
    return !(a == b);
}

// What was received of one NAL unit: a run of packets from a start packet to an end packet.
struct stTalRtpDataInfo {
    _uint16_t startSeq;    // sequence number of the start packet
    _int32_t packetCount;  // packets from the start to the furthest one that follows without a gap
    bool delivered;        // handed to the sink, whole or in part
    bool complete;         // the end packet was found; the record changes no more
};

// What was received of one RTP timestamp.
struct stTalRtpTSInfo {
    typedef std::map<_uint16_t, stTalRtpDataInfo*, std::less<_uint16_t>,
                     CNodeAllocator<std::pair<const _uint16_t, stTalRtpDataInfo*> > >
        DataInfoMap;
    typedef std::list<_uint16_t, CNodeAllocator<_uint16_t> > SeqList;

    stTalRtpTSInfo(_uint64_t receivedTime, CNodePool* pool)
        : createTime(receivedTime),
          updateTime(receivedTime),
          dataInfoMap(std::less<_uint16_t>(), DataInfoMap::allocator_type(pool)),
          mediaSeqList(SeqList::allocator_type(pool)),
          fecSeqList(SeqList::allocator_type(pool)) {}

    _uint64_t createTime;     // receive time of the first packet, milliseconds
    _uint64_t updateTime;     // receive time of the latest packet, milliseconds
    DataInfoMap dataInfoMap;  // by start sequence number; owns the records
    SeqList mediaSeqList;     // stored media packets of this timestamp, in order of arrival
    SeqList fecSeqList;       // stored FEC packets of this timestamp, in order of arrival
};

class CMMRTPSession4SVC;
class CReceiveIndex;
struct stTalRtpTSRecord;

// A session without knowledge of H.264: a packet carries one unit and is handed over as it arrives.
class TALRTP_API CMMRTPSessionBase : public ITalRTPSession {
public:
    typedef std::map<_uint16_t, CTalRtpPacket*, std::less<_uint16_t>,
                     CNodeAllocator<std::pair<const _uint16_t, CTalRtpPacket*> > >
        PacketMap;
    typedef std::map<_uint32_t, stTalRtpTSInfo*, std::less<_uint32_t>,
                     CNodeAllocator<std::pair<const _uint32_t, stTalRtpTSInfo*> > >
        TSInfoMap;

    // Arguments as those of `TalCreateRTPSession`.
    CMMRTPSessionBase(ITalRTPSessionSink* pSink, unsigned int sourceId);
    // Gives the statistics lines, then frees everything that is held.
    ~CMMRTPSessionBase() override;
    CMMRTPSessionBase(const CMMRTPSessionBase&) = delete;
    CMMRTPSessionBase& operator=(const CMMRTPSessionBase&) = delete;

    int SetPayloadType(unsigned long payloadType, unsigned long fecPayloadType) override;
    int SetFecType(unsigned long fecType) override;
    int CreateStapaPacket(unsigned long timestamp, int nalCount, int* nal_len, unsigned char** nal_buf,
                          CTalRtpPacket* pRtpPacket) override;
    int CreateFuaPackets(unsigned long timestamp, int nalSize, unsigned char* nal_buf, int packetCount,
                         CTalRtpPacket* pRtpPacket) override;
    int CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                           CTalRtpPacket* pRtpPacket) override;
    int CreateXorFecPackets(CTalRtpPacket* pPacket, int count, unsigned int mask,
                            CRTPFECPacket* pFecPacket) override;
    int CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                           int fecCount) override;
    int InputReceivedData(unsigned char* data, int dataLen, unsigned long receivedTime) override;
    int ForceHandover(unsigned long timestamp) override;

    // The free `random32`, with a seeding flag of its own.
    static unsigned int random32();
    // The free `deployXorProcess`.
    static void deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2, int length);

    // Orders sequence numbers across the wrap-around (RFC 3550, A.1): 0 when equal, 1 when `a` lies 1 to
    // 32768 ahead of `b`, else -1. At a distance of exactly 32768 both orders give 1.
    static int compareSeq(unsigned short a, unsigned short b);
    // The same for timestamps, with 1 up to 0x80000000 ahead.
    static int compareTS(unsigned int a, unsigned int b);

protected:
    // --- Sending ---

    // Resets `packet` (borrowed) and writes its RTP header, with the next media sequence number and the
    // marker bit. Returns 0, or -1 with an ERROR line for null.
    int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) override;
    // Writes one piece of payload. `index` counts from 1; `count` is 1 for a single NAL unit, 0 for a unit of
    // an aggregation packet, else the number of fragments. Borrows `data`, of `size` bytes, and `packet`.
    // This class takes single units only. Returns 0, or -1 with a line for null and for what it does not
    // take.
    int setPacketPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet) override;

    // --- Receiving: entry and bookkeeping ---

    // Tells whether `payloadType` is that of FEC packets.
    bool isFECPacket(unsigned int payloadType) const;
    // **Takes** a valid media packet: stores it, records it, deals it, retries FEC, ages out. A duplicate is
    // destroyed. Returns 0, or -1 with an ERROR line for null.
    int inputReceivedMediaPacket(CTalRtpPacket* packet);
    // **Lends** the media packet stored under `seq`, or null.
    CTalRtpPacket* getMediaPacketBySeq(unsigned short seq) const;
    // Records a stored media packet under its timestamp and updates the record of its unit, if its start is
    // known.
    void updateMediaDataInfo(unsigned int timestamp, unsigned short seq);
    // **Lends** the record, kept under `timestamp`, of the unit that contains `seq`; null when there is none.
    stTalRtpDataInfo* getMediaDataInfo(unsigned int timestamp, unsigned short seq);
    // Stores `timestamp` as the newest one and returns true, unless it is equal to the stored one or more
    // than 0x80000000 ahead of it.
    bool updateReceivedTS(unsigned int timestamp);
    // Gives the INFO line of what was made, if anything was, and that of what was received, if anything was.
    void displayStatisticInfo() const;
    // Frees everything that the receive lists hold.
    void clearAllList();

    // --- Receiving: delivery ---

    // Hands over what `packet` (borrowed), just stored, makes deliverable. An ERROR line for null.
    void dealPacket(CTalRtpPacket* packet) override;
    // Lends `packet` to the sink, counts its payload and marks its unit delivered. Nothing for null or no
    // sink.
    void deliverPacket(CTalRtpPacket* packet);
    // Hands over the unit that starts with `packet` (borrowed) as far as it goes. An ERROR line for null.
    void forceHandoverPacket(CTalRtpPacket* packet) override;
    // Frees the timestamps, with their packets, for which more than 5000 ms have passed since their last
    // packet. A clock that stepped back frees them too.
    void checkAllLists();
    // Finds the start of the unit that contains `seq`. False, with `startSeq` unchanged, when it is not
    // stored.
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override;
    // Finds the end of the unit that starts at `startSeq`. False when it is not stored; `endSeq` is then the
    // last number that follows without a gap, if `startSeq` itself is stored.
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override;
    // Tells whether the packet stored under `seq` starts a unit.
    bool isStartSeq(unsigned short seq) override;
    // Tells whether the packet stored under `seq` ends a unit.
    bool isEndSeq(unsigned short seq) override;

    // --- Receiving: forward error correction ---

    // **Takes** a FEC packet: tries it, keeps it if it may still help, deals what it rebuilt. A duplicate is
    // destroyed. Returns 0, or -1 with an ERROR line for null.
    int inputReceivedFECPacket(CTalRtpPacket* fecPacket);
    // Tries the stored FEC packets again, drops those that are spent, and deals what was rebuilt.
    void recoverPacketWithFEC();
    // Tries one FEC packet (borrowed). `keep` tells afterwards whether it may still repair something.
    void recoverPacketWithFEC(CTalRtpPacket* fecPacket, bool& keep);
    // The same for one kind of FEC. What is rebuilt goes into `m_recoverPacketList`.
    void recoverPacketWithXORFEC(CRTPFECPacket* fecPacket, bool& keep);
    void recoverPacketWithRSFEC(CRTPRSPacket* fecPacket, bool& keep);
    // Rebuilds media packet `seq` from an XOR FEC packet (borrowed) and every other packet that it protects.
    // **Returns** the packet, or null: with an ERROR line for a null FEC packet, without for one too short or
    // a length that does not fit.
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) override;
    // **Lend** the stored FEC packet or the rebuilt media packet with that sequence number, or null.
    CTalRtpPacket* getFECPacketBySeq(unsigned short seq) const;
    CTalRtpPacket* getRecoverPacketBySeq(unsigned short seq) const;
    // Notes a stored FEC packet under its timestamp.
    void updateFECListInfo(unsigned int timestamp, unsigned short seq);
    // Forgets that note.
    void removeFECInfoFromList(unsigned int timestamp, unsigned short seq);
    // Feeds rebuilt packets into the media path and tries FEC again, until nothing new is rebuilt.
    void dealRecoverPacketList();

    // --- State: order and width are binary interface ---

    ITalRTPSessionSink* m_pSink;    // borrowed; null while the session is destroyed
    _uint32_t m_sourceId;           // SSRC of what this session makes
    _uint32_t m_payloadType;        // of media packets
    _uint32_t m_fecPayloadType;     // of FEC packets
    _uint32_t m_fecType;            // RTP_FEC_XOR or RTP_FEC_RS
    _uint16_t m_sequenceNumber;     // of the next media packet made
    _uint16_t m_fecSequenceNumber;  // of the next FEC packet made

    PacketMap m_mediaPacketList;    // media packets by sequence number; owned, until their timestamp ages out
    PacketMap m_fecPacketList;      // FEC packets that may still help, by their own sequence number; owned
    PacketMap m_recoverPacketList;  // rebuilt media packets that are not dealt yet; owned
    TSInfoMap m_tsInfoList;         // one record for each timestamp; owned

    _uint32_t m_receivedTS;         // newest timestamp accepted by updateReceivedTS
    _uint64_t m_firstReceivedTime;  // receive time of the first datagram, milliseconds
    _uint64_t m_lastReceivedTime;   // receive time of the latest datagram, milliseconds
    bool m_isFirstReceived;         // no datagram came yet

    _uint64_t m_createdMediaPacketNumber;
    _uint64_t m_createdFECPacketNumber;
    _uint64_t m_receivedPacketNumber;  // every call of InputReceivedData
    _uint64_t m_receivedPacketBytes;
    _uint64_t m_receivedMediaPacketNumber;       // valid ones, duplicates included
    _uint64_t m_receivedValidMediaPacketNumber;  // stored ones
    _uint64_t m_receivedValidMediaPacketBytes;   // by buffer size
    _uint64_t m_receivedFECPacketNumber;         // valid ones, duplicates included
    _uint64_t m_receivedValidFECPacketNumber;    // without duplicates
    _uint64_t m_receivedValidFECPacketBytes;     // by buffer size
    _uint64_t m_recoveredMediaPacketNumber;
    _uint64_t m_recoveredMediaPacketBytes;  // by buffer size
    _uint64_t m_deliveredDataBytes;         // payload of every hand-over

private:
    friend class CMMRTPSession4SVC;
    friend class CRsRecovery;
    friend class CSessionInspector;

    TALRTP_LOCAL CMMRTPSessionBase(ITalRTPSessionSink* pSink, unsigned int sourceId, CNodePool* pool);

    TALRTP_LOCAL CMMRTPSession4SVC* ownClass();
    TALRTP_LOCAL void writePacketHeader(_uint32_t timestamp, CTalRtpPacket& packet);

    TALRTP_LOCAL CTalRtpPacket* makeReceivedPacket(unsigned char* data, int dataLen) const;
    TALRTP_LOCAL void takeMediaPacket(CTalRtpPacket* packet, unsigned int timestamp, unsigned short seq);
    TALRTP_LOCAL void storeMediaPacket(CTalRtpPacket* packet, unsigned short seq);
    TALRTP_LOCAL stTalRtpTSRecord* noteMediaPacket(unsigned int timestamp, unsigned short seq);
    TALRTP_LOCAL static void growUnit(stTalRtpDataInfo& unit, unsigned short endSeq, bool isComplete);
    TALRTP_LOCAL stTalRtpTSRecord* findTSRecord(unsigned int timestamp) const;
    TALRTP_LOCAL stTalRtpTSRecord* findOrMakeTSRecord(unsigned int timestamp);
    TALRTP_LOCAL stTalRtpDataInfo* findDataInfo(stTalRtpTSRecord* record, unsigned short startSeq) const;
    TALRTP_LOCAL stTalRtpDataInfo* findOrMakeDataInfo(stTalRtpTSRecord* record, unsigned short startSeq);
    TALRTP_LOCAL void ageOut(stTalRtpTSRecord* record);
    TALRTP_LOCAL void freeTSRecord(stTalRtpTSRecord* record);

    TALRTP_LOCAL void storeFecPacket(CTalRtpPacket* fecPacket);
    TALRTP_LOCAL void eraseFecPacket(unsigned short seq);
    TALRTP_LOCAL void retryFecPackets();
    TALRTP_LOCAL void retryFecPacket(unsigned short seq);
    TALRTP_LOCAL void storeRecoveredPacket(unsigned short seq, CTalRtpPacket* packet);
    TALRTP_LOCAL bool dealRecoveredPackets();
    TALRTP_LOCAL CTalRtpPacket* getKnownMediaPacket(unsigned short seq) const;

    CNodePool* m_pool;       // owned; the nodes of every list above
    CReceiveIndex* m_index;  // owned; finds in constant time what the lists hold
};

// The session that `TalCreateRTPSession` makes: H.264 and H.264 SVC payloads (RFC 6184).
class TALRTP_API CMMRTPSession4SVC : public CMMRTPSessionBase {
public:
    // Arguments as those of `TalCreateRTPSession`.
    CMMRTPSession4SVC(ITalRTPSessionSink* pSink, unsigned int sourceId);
    ~CMMRTPSession4SVC() override;

protected:
    // --- Sending ---

    // Chooses the writer by `count`: 1 single, 0 aggregation, 2 or more fragmentation. A negative one gives a
    // WARNING line and -1.
    int setPacketPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet) override;
    // Writes a whole NAL unit. The writers borrow `data`, of `size` bytes, and `packet`; they return 0, or -1
    // with an ERROR line for null.
    int setSinglePayload(int size, unsigned char* data, CTalRtpPacket* packet);
    // Appends a NAL unit to a STAP-A payload, and keeps its header at the highest NRI so far.
    int setAUPayload(int index, int size, unsigned char* data, CTalRtpPacket* packet);
    // Writes fragment `index` of `count`; the first begins with the NAL unit's header byte, which is not
    // repeated.
    int setFUPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet);

    // --- Receiving ---

    void dealPacket(CTalRtpPacket* packet) override;
    void forceHandoverPacket(CTalRtpPacket* packet) override;
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override;
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override;
    bool isStartSeq(unsigned short seq) override;
    bool isEndSeq(unsigned short seq) override;

    // Hands a single NAL unit over.
    void deliveSinglePacket(CTalRtpPacket* packet);
    // Hands each unit of an aggregation packet over by itself, with a declared size that grows.
    void splitAUPacketEx(CTalRtpPacket* packet);
    // Hands all units of an aggregation packet over at once.
    void splitAUPacket(CTalRtpPacket* packet);
    // Hands the unit of a fragment over if the fragment, just stored, has completed it.
    void combineFUPacket(CTalRtpPacket* packet);
    // Hands the unit that starts with `packet` over as far as it goes.
    void forceHandoverFUPacket(CTalRtpPacket* packet);
    // Finds the run that contains `seq`. Returns 0, or 1 with all outputs false or 0: with a WARNING line
    // when `seq` is not stored, without one when its start is not known.
    int getFUPacketsInfoBySeq(unsigned short seq, bool& complete, unsigned short& start, unsigned short& end);
    // Rebuilds the NAL unit of a run and hands it over, up to the first gap.
    void deliveFUPacket(unsigned short start, unsigned short end, bool complete);
    // Returns the bytes of fragment data in a run, up to the first gap.
    unsigned int getFUPacketsPayloadSize(unsigned short start, unsigned short end) const;

    _uint8_t m_nalHeader;  // NAL unit header, or STAP-A header, of the unit being written

private:
    friend class CMMRTPSessionBase;

    TALRTP_LOCAL void makeOwnSinglePacket(_uint32_t timestamp, int size, const unsigned char* data,
                                          CTalRtpPacket& packet);
    TALRTP_LOCAL void makeOwnFuaPackets(_uint32_t timestamp, int size, const unsigned char* data,
                                        int pieceSize, int packetCount, CTalRtpPacket* packets);
    TALRTP_LOCAL stTalRtpDataInfo* updateOwnDataInfo(unsigned int timestamp, unsigned short seq, bool starts,
                                                     bool ends);
    TALRTP_LOCAL void dealOwnPacket(CTalRtpPacket* packet, unsigned int timestamp, unsigned short seq);
    TALRTP_LOCAL _uint64_t fragmentRunSize(unsigned short start, unsigned short end) const;
};

}  // namespace talrtp

#endif  // TALRTP_TALRTPSESSION_H

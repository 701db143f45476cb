// The classes that implement `ITalRTPSession`, for hosts that derive from them, and the XOR kernel.
//
// `CMMRTPSessionBase` holds the configuration, the sending operations and the receive pipeline:
//
//   InputReceivedData -> validate -> media packet: store, record, deal, retry FEC, age out
//                                 -> FEC packet:   try to rebuild, keep or drop, deal what was rebuilt
//
// and hands over every stored packet as it is. `CMMRTPSession4SVC`, the class that `TalCreateRTPSession`
// makes, replaces the payload writer and the delivery hooks by those of H.264 (RFC 6184): single NAL unit
// packets, STAP-A and FU-A.
//
// A derived class may read every protected member, and may change the receive lists and records, between
// calls and inside every hook: put packets, records and numbers in, take them out, set an entry to null or to
// another object. Every operation then answers as if it walked and searched the lists. The session owns what
// is in them; all of it is made by the global `new` and freed by the global `delete`. docs/hosts.md tells the
// rest.
//
// `isStartSeq` and `isEndSeq` are asked once for each packet, when it is stored, and again after a derived
// class changed a list. The order and width of the documented members are binary interface.

#ifndef TALRTP_TALRTPSESSION_H
#define TALRTP_TALRTPSESSION_H

#include <talrtp/ITalRTPSession.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpRecords.h>

namespace talrtp {

// Writes `src1[i]` XOR `src2[i]` to `dst[i]` for every i below `length`, which may be 0 or negative. Borrows
// all three; no alignment is needed. `dst` may be `src1`; other overlaps are not supported.
TALRTP_API void deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2, int length);

class CReceiveIndex;
class CSessionAccess;

// A session without knowledge of H.264: a packet carries one unit and is handed over as it arrives.
//
// Its virtual functions begin with those of `ITalRTPSession`; the order is binary interface.
class TALRTP_API CMMRTPSessionBase : public ITalRTPSession {
public:
    // Packets by sequence number, in plain numeric order: 0 comes before 65535.
    typedef CTalRtpPacketMap PacketMap;
    // Records by timestamp, in plain numeric order.
    typedef CTalRtpTSInfoMap TSInfoMap;

    // Makes a session with the defaults of `ITalRTPSession`. `pSink` is borrowed for the life of the session;
    // with null nothing is handed over. `sourceId` is the SSRC of the packets that the session makes.
    CMMRTPSessionBase(ITalRTPSessionSink* pSink, unsigned int sourceId);
    // Logs the statistics lines, then frees everything that the session holds. The sink is not called.
    ~CMMRTPSessionBase() override;
    CMMRTPSessionBase(const CMMRTPSessionBase&) = delete;
    CMMRTPSessionBase& operator=(const CMMRTPSessionBase&) = delete;

    // The operations of `ITalRTPSession`, which documents arguments, ownership and every result. For a
    // derived class the three media calls go through the hooks `setPacketHeader` and `setPacketPayload`.

    // Sets the payload types of media and of FEC packets.
    int SetPayloadType(unsigned long payloadType, unsigned long fecPayloadType) override;
    // Sets the kind of FEC.
    int SetFecType(unsigned long fecType) override;
    // Fills one packet with several units: one header, then each unit with a count of 0.
    int CreateStapaPacket(unsigned long timestamp, int nalCount, int* nal_len, unsigned char** nal_buf,
                          CTalRtpPacket* pRtpPacket) override;
    // Cuts one unit into packets: a header and a piece for each.
    int CreateFuaPackets(unsigned long timestamp, int nalSize, unsigned char* nal_buf, int packetCount,
                         CTalRtpPacket* pRtpPacket) override;
    // Fills one packet with one unit: a header, then the unit with a count of 1.
    int CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                           CTalRtpPacket* pRtpPacket) override;
    // Makes one XOR parity packet over packets that the mask selects.
    int CreateXorFecPackets(CTalRtpPacket* pPacket, int count, unsigned int mask,
                            CRTPFECPacket* pFecPacket) override;
    // Makes Reed-Solomon parity packets over a group.
    int CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                           int fecCount) override;
    // Takes in one datagram of `dataLen` bytes that arrived at `receivedTime`: counts, copies, validates,
    // routes by payload type.
    int InputReceivedData(unsigned char* data, int dataLen, unsigned long receivedTime) override;
    // Hands over the units of a timestamp as far as they go, each through `forceHandoverPacket`.
    int ForceHandover(unsigned long timestamp) override;

    // The free `random32`, with a seeding flag of its own.
    static unsigned int random32();
    // The free `deployXorProcess`: XORs `length` bytes of `src1` and `src2` into `dst`.
    static void deployXorProcess(unsigned char* dst, unsigned char* src1, unsigned char* src2, int length);

    // Orders sequence numbers across the wrap-around (RFC 3550, A.1): 0 when equal, 1 when `a` lies 1 to
    // 32768 ahead of `b`, else -1. At a distance of exactly 32768 both orders return 1.
    static int compareSeq(unsigned short a, unsigned short b);
    // The same for timestamps, with 1 when `a` lies up to 0x80000000 ahead of `b`.
    static int compareTS(unsigned int a, unsigned int b);

protected:
    // --- Sending ---

    // Resets `packet` (borrowed) and writes its RTP header: marker bit set, media payload type, next media
    // sequence number, SSRC. Returns 0, or -1 with an ERROR line for null.
    int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) override;
    // Writes one piece of payload. `index` counts from 1; `count` is 1 for a single NAL unit, 0 for a unit of
    // an aggregation packet, else the number of fragments. Borrows `data`, of `size` bytes, and `packet`.
    // This class accepts single units only. Returns 0, or -1 with an ERROR line for null and with a WARNING
    // line for any other `index` or `count`.
    int setPacketPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet) override;

    // --- Receiving: entry and bookkeeping ---

    // Returns whether `payloadType` is that of FEC packets.
    bool isFECPacket(unsigned int payloadType) const;
    // **Takes** a valid media packet: stores it, records it, deals it, retries FEC, ages out. A duplicate is
    // destroyed. Returns 0, or -1 with an ERROR line for null.
    int inputReceivedMediaPacket(CTalRtpPacket* packet);
    // **Lends** the media packet stored under `seq`, or null.
    CTalRtpPacket* getMediaPacketBySeq(unsigned short seq) const;
    // Records a stored media packet under its timestamp and updates the record of its unit, if the start of
    // that unit is known.
    void updateMediaDataInfo(unsigned int timestamp, unsigned short seq);
    // **Lends** the record, kept under `timestamp`, of the unit that contains `seq`; null when there is none.
    stTalRtpDataInfo* getMediaDataInfo(unsigned int timestamp, unsigned short seq);
    // Stores `timestamp` as the newest one and returns true, unless it is equal to the stored one or more
    // than 0x80000000 ahead of it.
    bool updateReceivedTS(unsigned int timestamp);
    // Logs up to two INFO lines: sender statistics if packets were made, receiver statistics if datagrams
    // arrived.
    void displayStatisticInfo() const;
    // Frees everything that the receive lists hold.
    void clearAllList();

    // --- Receiving: delivery ---

    // Hands over every unit that `packet` (borrowed), just stored, makes deliverable. Logs an ERROR line for
    // null.
    void dealPacket(CTalRtpPacket* packet) override;
    // Lends `packet` to the sink, counts its payload and marks its unit delivered. Does nothing for null or
    // without a sink.
    void deliverPacket(CTalRtpPacket* packet);
    // Hands over the unit that starts with `packet` (borrowed) as far as it goes. Logs an ERROR line for
    // null.
    void forceHandoverPacket(CTalRtpPacket* packet) override;
    // Frees every timestamp, with its packets, whose last packet is more than 5000 ms old. After the clock
    // stepped back, timestamps newer than now count as stale too.
    void checkAllLists();
    // Finds the start of the unit that contains `seq`. Returns false, with `startSeq` unchanged, when the
    // start is not stored.
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override;
    // Finds the end of the unit that starts at `startSeq`. Returns false when the end is not stored; `endSeq`
    // is then the last number that follows without a gap, if `startSeq` itself is stored.
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override;
    // Returns whether the packet stored under `seq` starts a unit.
    bool isStartSeq(unsigned short seq) override;
    // Returns whether the packet stored under `seq` ends a unit.
    bool isEndSeq(unsigned short seq) override;

    // --- Receiving: forward error correction ---

    // **Takes** an FEC packet: tries it, keeps it if it may still help, deals the packets that it rebuilt. A
    // duplicate is destroyed. Returns 0, or -1 with an ERROR line for null.
    int inputReceivedFECPacket(CTalRtpPacket* fecPacket);
    // Tries the stored FEC packets again, drops those that are spent, and deals the rebuilt packets.
    void recoverPacketWithFEC();
    // Tries one FEC packet (borrowed). Sets `keep` to whether it may still rebuild something.
    void recoverPacketWithFEC(CTalRtpPacket* fecPacket, bool& keep);
    // The same for an XOR FEC packet. A rebuilt packet goes into `m_recoverPacketList`.
    void recoverPacketWithXORFEC(CRTPFECPacket* fecPacket, bool& keep);
    // The same for a Reed-Solomon FEC packet and its group.
    void recoverPacketWithRSFEC(CRTPRSPacket* fecPacket, bool& keep);
    // Rebuilds media packet `seq` from an XOR FEC packet (borrowed) and every other packet that it protects.
    // **Returns owned** the packet. Returns null with an ERROR line for a null FEC packet, and without one
    // when the FEC packet is too short or the rebuilt length does not fit.
    CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) override;
    // **Lends** the stored FEC packet with that sequence number, or null.
    CTalRtpPacket* getFECPacketBySeq(unsigned short seq) const;
    // **Lends** the rebuilt media packet with that sequence number that is not dealt yet, or null.
    CTalRtpPacket* getRecoverPacketBySeq(unsigned short seq) const;
    // Records a stored FEC packet under its timestamp.
    void updateFECListInfo(unsigned int timestamp, unsigned short seq);
    // Removes that record.
    void removeFECInfoFromList(unsigned int timestamp, unsigned short seq);
    // Feeds rebuilt packets into the media path and tries FEC again, until nothing new is rebuilt.
    void dealRecoverPacketList();

    // --- State: order and width are binary interface ---

    ITalRTPSessionSink* m_pSink;    // borrowed; null while the session is destroyed
    _uint32_t m_sourceId;           // SSRC of the packets that this session makes
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
    bool m_isFirstReceived;         // no datagram arrived yet

    // The statistics, counted since the session was made. Bytes "by buffer size" count the capacity of a
    // packet object, `get_buffer_size()`, and not the bytes on the wire.

    _uint64_t m_createdMediaPacketNumber;        // media packets begun by the three sending calls
    _uint64_t m_createdFECPacketNumber;          // FEC packets made, of either kind
    _uint64_t m_receivedPacketNumber;            // every call of InputReceivedData
    _uint64_t m_receivedPacketBytes;             // of these, the lengths as passed in
    _uint64_t m_receivedMediaPacketNumber;       // valid media packets, duplicates included
    _uint64_t m_receivedValidMediaPacketNumber;  // stored media packets
    _uint64_t m_receivedValidMediaPacketBytes;   // of these, by buffer size
    _uint64_t m_receivedFECPacketNumber;         // valid FEC packets, duplicates included
    _uint64_t m_receivedValidFECPacketNumber;    // FEC packets without duplicates
    _uint64_t m_receivedValidFECPacketBytes;     // of these, by buffer size
    _uint64_t m_recoveredMediaPacketNumber;      // rebuilt media packets
    _uint64_t m_recoveredMediaPacketBytes;       // of these, by buffer size
    _uint64_t m_deliveredDataBytes;              // payload of every hand-over

private:
    // The library's sources have their steps in this class, so that none of them shows here.
    friend class CSessionAccess;

    CNodePool* m_pool;       // owned; the nodes of every list above
    CReceiveIndex* m_index;  // owned; finds the entries of the lists in constant time
};

// The session that `TalCreateRTPSession` makes: H.264 and H.264 SVC payloads (RFC 6184).
//
// A session of this very class calls none of its hooks, since nobody overrides them. For a derived class each
// packet made calls `setPacketHeader` and `setPacketPayload`, and each media packet received, in this order:
//
//   isEndSeq, isStartSeq   once it is stored
//   findStartSeq           the unit that it belongs to
//   findEndSeq             unless that unit has no start or was complete
//   dealPacket             calls findStartSeq for a fragment, and once more for each hand-over
class TALRTP_API CMMRTPSession4SVC : public CMMRTPSessionBase {
public:
    // Makes a session that hands over to `pSink` and sends as `sourceId`, both as in the base class.
    CMMRTPSession4SVC(ITalRTPSessionSink* pSink, unsigned int sourceId);
    // Leaves everything to the base class.
    ~CMMRTPSession4SVC() override;

protected:
    // --- Sending ---

    // Chooses the writer by `count`: 1 single, 0 aggregation, 2 or more fragmentation. Returns the writer's
    // result, or -1 with a WARNING line for a negative count.
    int setPacketPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet) override;
    // The writers borrow `data`, of `size` bytes, and `packet`. They return 0, or -1 with an ERROR line for
    // null.

    // Writes a whole NAL unit.
    int setSinglePayload(int size, unsigned char* data, CTalRtpPacket* packet);
    // Appends a NAL unit to a STAP-A payload, and keeps its header at the highest NRI so far.
    int setAUPayload(int index, int size, unsigned char* data, CTalRtpPacket* packet);
    // Writes fragment `index` of `count`. `data` of the first begins with the NAL unit's header byte, which
    // is not repeated in the payload.
    int setFUPayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet);

    // --- Receiving ---

    // The hooks of the base class, which documents arguments and results. Here they read the H.264 payload.

    // Hands over a single unit, each unit of an aggregation packet, or the unit that a fragment completed.
    void dealPacket(CTalRtpPacket* packet) override;
    // Hands over a single unit, all units of an aggregation packet, or a run of fragments up to its gap.
    void forceHandoverPacket(CTalRtpPacket* packet) override;
    // Walks back from a fragment to the packet that starts its unit.
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override;
    // Walks on from a start packet to the packet that ends its unit.
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override;
    // Returns whether the packet is no fragment, or the first one.
    bool isStartSeq(unsigned short seq) override;
    // Returns whether the packet is no fragment, or the last one.
    bool isEndSeq(unsigned short seq) override;

    // Hands over a single NAL unit.
    void deliveSinglePacket(CTalRtpPacket* packet);
    // Hands over each unit of an aggregation packet by itself, with a declared size that grows.
    void splitAUPacketEx(CTalRtpPacket* packet);
    // Hands over all units of an aggregation packet at once.
    void splitAUPacket(CTalRtpPacket* packet);
    // Hands over the unit of a fragment if the fragment, just stored, has completed it.
    void combineFUPacket(CTalRtpPacket* packet);
    // Hands over the unit that starts with `packet` as far as it goes.
    void forceHandoverFUPacket(CTalRtpPacket* packet);
    // Finds the run that contains `seq`. Returns 0; or 1, with all outputs false or 0, and with a WARNING
    // line when `seq` is not stored, without one when its start is not known.
    int getFUPacketsInfoBySeq(unsigned short seq, bool& complete, unsigned short& start, unsigned short& end);
    // Joins the fragments of a run, up to the first gap, and hands over the NAL unit.
    void deliveFUPacket(unsigned short start, unsigned short end, bool complete);
    // Returns the bytes of fragment data in a run, up to the first gap.
    unsigned int getFUPacketsPayloadSize(unsigned short start, unsigned short end) const;

    _uint8_t m_nalHeader;  // NAL unit header, or STAP-A header, of the unit that is being written

private:
    friend class CSessionAccess;
};

}  // namespace talrtp

#endif  // TALRTP_TALRTPSESSION_H

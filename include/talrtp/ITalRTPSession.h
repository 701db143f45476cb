// The RTP session as a host programs against it: the session interface, the host's sink and the two C entry
// points that create and destroy a session.
//
// A session carries one H.264 or H.264 SVC stream. The sending half fills packet objects that the host owns;
// the receiving half takes in every datagram of the RTP port, rebuilds lost packets from FEC, and lends whole
// NAL units to the sink. One object does both, or either. The host owns sockets, threads and clocks: nothing
// here waits, sends, or reads a clock.
//
// A session is used by one thread at a time, and all sessions of a process by one thread or behind one lock,
// because they share the cache of Reed-Solomon models.

#ifndef TALRTP_ITALRTPSESSION_H
#define TALRTP_ITALRTPSESSION_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

class CTalRtpPacket;
class CRTPFECPacket;

// Where received NAL units go. The host implements it and outlives the session with it. Virtual order is
// binary interface: never reorder.
class TALRTP_API ITalRTPSessionSink {
public:
    virtual ~ITalRTPSessionSink() {}

    // Takes one hand-over: a packet whose RTP header is that of the first received packet of the unit and
    // whose payload is one or more NAL units in byte-stream form, each behind the start code 00 00 00 01.
    // `get_packet_type()` is 0 when every unit in it is whole and 1 when one was cut short.
    // Lends `packet` until this returns. Called on the stack of `InputReceivedData` or `ForceHandover`; call
    // nothing of the session from here.
    //
    // The hand-overs of one aggregation packet (RFC 6184, 5.7.1), made on arrival, begin with their own unit
    // each, but declare a payload size that grows by every unit; the growth since the last one is the unit's
    // length with its start code. Behind a whole unit the type stays 0 for the rest of that packet.
    virtual void OnReceivedRTPPacket(CTalRtpPacket* packet) = 0;
};

// An RTP session. Made by `TalCreateRTPSession`. Virtual order is binary interface: never reorder.
class TALRTP_API ITalRTPSession {
public:
    virtual ~ITalRTPSession();

    // Sets the payload types of media and of FEC packets, 98 and 111 until then, from the next packet on.
    // Returns 0, or -1 with a WARNING line when both are equal, which changes nothing. The range is not
    // checked here: a value above 127 fails an assertion when the next packet is made.
    virtual int SetPayloadType(unsigned long payloadType, unsigned long fecPayloadType) = 0;

    // Sets the kind of FEC, `RTP_FEC_RS` until then, that is made and that received FEC packets are read as.
    // Returns 0, or -1 with a WARNING line for any other value than `RTP_FEC_XOR` and `RTP_FEC_RS`, which
    // changes nothing.
    virtual int SetFecType(unsigned long fecType) = 0;

    // Fills one packet with `nalCount` NAL units as a STAP-A (RFC 6184, 5.7.1).
    // `timestamp`: RTP timestamp, its low 32 bits are used. `nal_len`, `nal_buf`: `nalCount` sizes in bytes,
    // at most 65535 each, and as many pointers to NAL units without start code; borrowed. `pRtpPacket`:
    // borrowed; its buffer holds at least 13 bytes and 2 more than each unit's size. The marker bit is set.
    // Returns 0; -1 with an ERROR line when a pointer is null (a unit's own pointer included, which leaves
    // the packet filled with the units before it and adds a WARNING line). A packet that was begun has used
    // up its sequence number.
    virtual int CreateStapaPacket(unsigned long timestamp, int nalCount, int* nal_len,
                                  unsigned char** nal_buf, CTalRtpPacket* pRtpPacket) = 0;

    // Cuts one NAL unit into `packetCount` FU-A packets with consecutive sequence numbers (RFC 6184, 5.8).
    // `nal_buf`: `nalSize` bytes without start code; borrowed. `pRtpPacket`: an array of `packetCount` packet
    // objects, borrowed; each buffer holds at least 14 bytes and one piece, which is `nalSize` /
    // `packetCount` rounded up. Every packet but the last has the marker bit clear. A `packetCount` of 1
    // makes a single NAL unit packet. The host chooses a count, above 0, for which no piece is left empty.
    // Returns 0, or -1 with an ERROR line when a pointer is null.
    virtual int CreateFuaPackets(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                 int packetCount, CTalRtpPacket* pRtpPacket) = 0;

    // Fills one packet with one NAL unit as it is (RFC 6184, 5.6). `nal_buf`: `nalSize` bytes without start
    // code; borrowed. `pRtpPacket`: borrowed; its buffer holds at least 12 + `nalSize` bytes. The marker bit
    // is set. Returns 0, or -1 with an ERROR line when a pointer is null.
    virtual int CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                   CTalRtpPacket* pRtpPacket) = 0;

    // Makes one XOR parity packet (RFC 2733 header) over some of `count` media packets.
    // `pPacket`: an array of packet objects, borrowed. `mask`: packet i is protected when bit i modulo 32 is
    // set, bit 0 being the least significant. A selected packet whose sequence number is 24 or more past the
    // lowest one is left out with a WARNING line. `pFecPacket`: borrowed, overwritten; its buffer holds at
    // least 12 bytes more than the longest selected packet. It takes the next FEC sequence number, from a
    // counter apart from the media one. Returns 0; -1 with an ERROR line for a null pointer or when nothing
    // is selected; -2 with a WARNING line when the FEC type is not `RTP_FEC_XOR`. Unless 0 is returned, the
    // FEC packet is unchanged.
    virtual int CreateXorFecPackets(CTalRtpPacket* pPacket, int count, unsigned int mask,
                                    CRTPFECPacket* pFecPacket) = 0;

    // Makes `fecCount` Reed-Solomon parity packets over `count` media packets.
    // `pPacket`: an array of packet objects with consecutive sequence numbers, lowest first for a receiver
    // that is to rebuild them; borrowed. `count` + `fecCount` is at most 255. `pFecPacket`: an array of
    // `fecCount` packet objects, borrowed, overwritten; each buffer holds at least 20 bytes more than the
    // largest media packet. Returns 0; -1 with an ERROR line for a null pointer, a group too large or
    // sequence numbers with gaps; -2 with a WARNING line when the FEC type is not `RTP_FEC_RS`; 1 with an
    // ERROR line when there is no code of that shape, which leaves the FEC packets with headers but without
    // sequence numbers. Returns 0 also when a media packet exceeds `MAX_PACKET_SIZE`: the codec warns and the
    // parity is all zeros.
    virtual int CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                                   int fecCount) = 0;

    // Takes in one received datagram. `data`: `length` bytes, borrowed and copied. `arg`: the host's clock at
    // reception in milliseconds; it drives the ageing of what is held, 5000 ms after the last packet of a
    // timestamp. Everything that the datagram completes is handed to the sink before this returns. Returns 0
    // when it was taken (duplicates included); 1 when its payload type is neither of the two; -1 with an
    // ERROR line when `data` is null, when `length` is below 12 or when the bytes are no valid RTP packet; of
    // the last, one packet stays allocated for good. Any bytes are safe. See docs/hosts.md for what to keep
    // away from here: RTCP, STUN, DTLS, other sources.
    virtual int InputReceivedData(unsigned char* data, int length, unsigned long arg) = 0;

    // Hands over what is held of the RTP timestamp `arg` (low 32 bits) and was not handed over yet, as far as
    // each unit reaches from its first packet without a gap. For when a picture's time has come. Returns 0
    // when a unit was handed over, 1 when there was nothing to hand over.
    virtual int ForceHandover(unsigned long arg) = 0;

protected:
    // The hooks by which the session classes differ; `CMMRTPSessionBase` documents them.
    virtual int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) = 0;
    virtual int setPacketPayload(int index, int count, int size, unsigned char* data,
                                 CTalRtpPacket* packet) = 0;
    virtual CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) = 0;
    virtual void dealPacket(CTalRtpPacket* packet) = 0;
    virtual void forceHandoverPacket(CTalRtpPacket* packet) = 0;
    virtual bool findStartSeq(unsigned short seq, unsigned short& startSeq) = 0;
    virtual bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) = 0;
    virtual bool isStartSeq(unsigned short seq) = 0;
    virtual bool isEndSeq(unsigned short seq) = 0;
};

}  // namespace talrtp

extern "C" {

// Creates a session and stores it in `*ppSession`; the host **returns** it with `TalDestroyRTPSession`.
// `pSink` is borrowed for the life of the session; null means that nothing is handed over. `sourceId` is the
// SSRC of what the session sends. `version` is the RTP version: for any other than 2, `*ppSession` becomes
// null and a WARNING line is given. `ppSession` is not null.
TALRTP_API void TalCreateRTPSession(talrtp::ITalRTPSession** ppSession, talrtp::ITalRTPSessionSink* pSink,
                                    unsigned int sourceId, unsigned int version);

// Destroys a session made by `TalCreateRTPSession`, with everything that it holds; the sink is not called.
// Null is ignored.
TALRTP_API void TalDestroyRTPSession(talrtp::ITalRTPSession* pSession);

}  // extern "C"

#endif  // TALRTP_ITALRTPSESSION_H

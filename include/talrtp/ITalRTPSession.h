// The RTP session as a host programs against it: the session interface, the host's sink and the two C entry
// points that create and destroy a session.
//
// A session carries one H.264 or H.264 SVC stream. The sending half fills packet objects that the host owns;
// the receiving half takes in every datagram of the RTP port, rebuilds lost packets from FEC, and lends whole
// NAL units to the sink. One object does both, or either. The host owns sockets, threads and clocks: nothing
// here waits, sends, or reads a clock.
//
// Use a session from one thread at a time. It may move to another thread when the host orders the calls, and
// different sessions may be made, used and destroyed on different threads at the same time. Nothing here
// starts a thread or takes a lock.

#ifndef TALRTP_ITALRTPSESSION_H
#define TALRTP_ITALRTPSESSION_H

#include <talrtp/TalRtpDefs.h>

// The pure interfaces have no function to anchor a virtual table to; their tables are weak on purpose.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wweak-vtables"
#endif

namespace talrtp {

class CTalRtpPacket;
class CRTPFECPacket;

// Receives the NAL units of a session. The host implements it and keeps it alive longer than the session.
//
// The virtual order is binary interface: never reorder.
class TALRTP_API ITalRTPSessionSink {
public:
    virtual ~ITalRTPSessionSink() {}

    // Receives one hand-over. The RTP header of `packet` is that of the first received packet of the unit.
    // The payload is one or more NAL units in byte-stream form, each after the start code 00 00 00 01.
    // `get_packet_type()` is 0 when every unit in it is whole and 1 when one was cut short.
    // Lends `packet` until this returns. Called on the stack of `InputReceivedData` or `ForceHandover`; call
    // nothing of the session from here.
    //
    // An aggregation packet (RFC 6184, 5.7.1) causes one hand-over per unit when it arrives. Each begins with
    // its own unit, but declares the size of all units so far: the growth since the last hand-over is the
    // unit's length with its start code. Once one unit of the packet was complete, later hand-overs of it
    // report 0 as well, even if cut.
    virtual void OnReceivedRTPPacket(CTalRtpPacket* packet) = 0;
};

// An RTP session: makes RTP and FEC packets, and takes received ones in. `TalCreateRTPSession` makes it.
//
// The virtual order is binary interface: never reorder.
class TALRTP_API ITalRTPSession {
public:
    virtual ~ITalRTPSession();

    // Sets the types of media packets (`payloadType`) and of FEC packets (`fecPayloadType`) from the next
    // packet on. The defaults are 98 and 111. Returns 0, or -1 with a WARNING line when both are equal, which
    // changes nothing. The range is not checked here: a value above 127 fails an assertion when the next
    // packet is made.
    virtual int SetPayloadType(unsigned long payloadType, unsigned long fecPayloadType) = 0;

    // Sets the kind of FEC to `fecType`: the kind that the session makes, and as which it reads received FEC
    // packets. The default is `RTP_FEC_RS`. Returns 0, or -1 with a WARNING line for any other value than
    // `RTP_FEC_XOR` and `RTP_FEC_RS`, which changes nothing.
    virtual int SetFecType(unsigned long fecType) = 0;

    // Fills one packet with `nalCount` NAL units as a STAP-A (RFC 6184, 5.7.1).
    // `timestamp`: RTP timestamp, of which the low 32 bits are used. `nal_len`, `nal_buf`: `nalCount` sizes
    // in bytes, at most 65535 each, and as many pointers to NAL units without start code; borrowed.
    // `pRtpPacket`: borrowed; its buffer holds at least 13 bytes, and for each unit 2 bytes and its size. The
    // marker bit is set. Returns 0, or -1 with an ERROR line when a pointer is null. When the pointer of a
    // unit is null, the packet keeps the units before it, and a WARNING line follows. A packet that was begun
    // has used up its sequence number.
    virtual int CreateStapaPacket(unsigned long timestamp, int nalCount, int* nal_len,
                                  unsigned char** nal_buf, CTalRtpPacket* pRtpPacket) = 0;

    // Cuts one NAL unit into `packetCount` FU-A packets with consecutive sequence numbers (RFC 6184, 5.8).
    // `timestamp`: as above. `nal_buf`: `nalSize` bytes without start code; borrowed. `pRtpPacket`: an array
    // of `packetCount` packet objects, borrowed; each buffer holds at least 14 bytes and one piece, which is
    // `nalSize` / `packetCount` rounded up. The marker bit is set on the last packet and clear on the others.
    // A `packetCount` of 1 makes a single NAL unit packet. The host chooses a count above 0 for which no
    // piece is empty. Returns 0, or -1 with an ERROR line when a pointer is null.
    virtual int CreateFuaPackets(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                 int packetCount, CTalRtpPacket* pRtpPacket) = 0;

    // Fills one packet with one NAL unit as it is (RFC 6184, 5.6). `timestamp`: as above. `nal_buf`:
    // `nalSize` bytes without start code; borrowed. `pRtpPacket`: borrowed; its buffer holds at least 12 +
    // `nalSize` bytes. The marker bit is set. Returns 0, or -1 with an ERROR line when a pointer is null.
    virtual int CreateSinglePacket(unsigned long timestamp, int nalSize, unsigned char* nal_buf,
                                   CTalRtpPacket* pRtpPacket) = 0;

    // Makes one XOR parity packet (RFC 2733 header) over some of `count` media packets.
    // `pPacket`: an array of packet objects, borrowed. `mask`: packet i is protected when bit i modulo 32 is
    // set; bit 0 is the least significant. A selected packet whose sequence number is 24 or more past the
    // lowest one is left out with a WARNING line. `pFecPacket`: borrowed, overwritten; its buffer holds at
    // least 12 bytes more than the longest selected packet. It gets the next FEC sequence number; media
    // packets have a counter of their own. Returns 0; -1 with an ERROR line for a null pointer or when
    // nothing is selected; -2 with a WARNING line when the FEC type is not `RTP_FEC_XOR`. A call that returns
    // -1 or -2 leaves the FEC packet unchanged.
    virtual int CreateXorFecPackets(CTalRtpPacket* pPacket, int count, unsigned int mask,
                                    CRTPFECPacket* pFecPacket) = 0;

    // Makes `fecCount` Reed-Solomon parity packets over `count` media packets.
    // `pPacket`: an array of packet objects with consecutive sequence numbers; borrowed. Put the lowest
    // number first, or a receiver cannot rebuild them. `count` + `fecCount` is at most 255. `pFecPacket`: an
    // array of `fecCount` packet objects, borrowed, overwritten; each buffer holds at least 20 bytes more
    // than the largest media packet. Returns 0; -1 with an ERROR line for a null pointer, a group too large
    // or sequence numbers with gaps; -2 with a WARNING line when the FEC type is not `RTP_FEC_RS`; 1 with an
    // ERROR line when no code of that shape exists, which leaves the FEC packets with headers but without
    // sequence numbers. A media packet above `MAX_PACKET_SIZE` also returns 0: the codec logs a WARNING line
    // and the parity is all zeros.
    virtual int CreateRsFecPackets(CTalRtpPacket* pPacket, int count, CTalRtpPacket* pFecPacket,
                                   int fecCount) = 0;

    // Takes in one received datagram and hands every unit that it completes to the sink before this returns.
    // `data`: `length` bytes, borrowed and copied. `receivedTimeMs`: the host's clock at reception, in
    // milliseconds; packets age out 5000 ms after the last packet of their timestamp. Returns 0 when the
    // datagram was accepted, duplicates included; 1 when its payload type is neither of the two; -1 with an
    // ERROR line when `data` is null, when `length` is below 12 or when the bytes are no valid RTP packet; -1
    // without a line of its own when memory was refused, after which the session goes on. An invalid packet
    // of 12 bytes or more leaks its packet object (kept for compatibility; see docs/hosts.md). Any bytes are
    // safe. Keep RTCP, STUN, DTLS and other sources away from here; docs/hosts.md tells how.
    virtual int InputReceivedData(unsigned char* data, int length, unsigned long receivedTimeMs) = 0;

    // Hands over the units of an RTP timestamp that were not handed over yet, each from its first packet up
    // to the first gap. Call it when the picture has to be decoded. `timestamp`: of which the low 32 bits are
    // used. Returns 0 when a unit was handed over, 1 when there was nothing to hand over, -1 when memory was
    // refused: a later call hands over what is left.
    virtual int ForceHandover(unsigned long timestamp) = 0;

protected:
    // The hooks by which the session classes differ. A host does not call them; `CMMRTPSessionBase` documents
    // arguments and results.

    // Writes the RTP header of the next media packet.
    virtual int setPacketHeader(unsigned long timestamp, CTalRtpPacket* packet) = 0;
    // Writes one piece of payload.
    virtual int setPacketPayload(int index, int count, int size, unsigned char* data,
                                 CTalRtpPacket* packet) = 0;
    // Rebuilds one media packet from an XOR FEC packet.
    virtual CTalRtpPacket* recoverPacket(unsigned short seq, CRTPFECPacket* fecPacket) = 0;
    // Hands over the units that a stored packet makes deliverable.
    virtual void dealPacket(CTalRtpPacket* packet) = 0;
    // Hands over the unit that starts with a packet, as far as it goes.
    virtual void forceHandoverPacket(CTalRtpPacket* packet) = 0;
    // Finds the start of the unit that contains a number.
    virtual bool findStartSeq(unsigned short seq, unsigned short& startSeq) = 0;
    // Finds the end of the unit that starts at a number.
    virtual bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) = 0;
    // Returns whether a stored packet starts a unit.
    virtual bool isStartSeq(unsigned short seq) = 0;
    // Returns whether a stored packet ends a unit.
    virtual bool isEndSeq(unsigned short seq) = 0;
};

}  // namespace talrtp

extern "C" {

// Creates a session and stores it in `*ppSession`, which the host owns: destroy it with
// `TalDestroyRTPSession`. `pSink` is borrowed for the life of the session; with null nothing is handed over.
// `sourceId` is the SSRC of the packets that the session makes. `version` is the RTP version: for any other
// than 2, `*ppSession` becomes null and the call logs a WARNING line. `ppSession` is not null.
TALRTP_API void TalCreateRTPSession(talrtp::ITalRTPSession** ppSession, talrtp::ITalRTPSessionSink* pSink,
                                    unsigned int sourceId, unsigned int version);

// Destroys a session made by `TalCreateRTPSession`, with everything that it holds. **Takes** `pSession`; null
// is ignored. The sink is not called.
TALRTP_API void TalDestroyRTPSession(talrtp::ITalRTPSession* pSession);

}  // extern "C"

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif  // TALRTP_ITALRTPSESSION_H

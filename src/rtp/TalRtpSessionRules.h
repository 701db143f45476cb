// The answers that the session's path asks for: where a unit starts and ends, and how a packet's header and
// payload are written. There are two sets of them:
//
//   stStockRules   the library's class, *stock*: nobody overrides its hooks, so the answers are known
//   stHostRules    a derived class, a *host*: its virtual hooks are called, in the order that it may rely on
//
// The path itself is written once, as templates over the rules.

#ifndef TALRTP_SRC_TALRTPSESSIONRULES_H
#define TALRTP_SRC_TALRTPSESSIONRULES_H

#include "TalRtpSessionLists.h"
#include "receive/ReceiveIndex.h"
#include "wire/H264Payload.h"
#include "wire/PacketAccess.h"

namespace talrtp {

// **Lends** `session` as an object of the library's class; null when its class is a derived one, or the
// base class.
CMMRTPSession4SVC* stockSession(CMMRTPSessionBase& session);

// The library's class. `packet` is the one that was stored; sending asks for none.
struct CSessionAccess::stStockRules {
    static constexpr bool kAsksHooks = false;

    explicit stStockRules(CMMRTPSession4SVC& asked) : session(asked), head(nullptr, 0) {}
    // The library made the packet, so its sizes tell where the payload is.
    stStockRules(CMMRTPSession4SVC& asked, const CTalRtpPacket& packet)
        : session(asked), head(CPacketAccess::payload(packet), packet.get_payload_size()) {}

    // Only a derived class reaches the lists, so the stores need no look at them.
    CReceiveIndex& lists() const { return *session.m_index; }
    CReceiveIndex& listsFor(_uint32_t /*timestamp*/) const { return *session.m_index; }
    // The payload's first bytes answer these two without a look at the stores.
    bool starts(_uint16_t /*seq*/) const { return head.starts(); }
    bool ends(_uint16_t /*seq*/) const { return head.ends(); }
    // The media store has the runs of packets. A packet that is a unit by itself needs no run.
    bool findStart(_uint16_t seq, _uint16_t& start) const {
        start = seq;
        return head.starts() || session.m_index->media.findStart(seq, start);
    }
    bool findEnd(_uint16_t start, _uint16_t& end) const {
        end = start;
        return (head.starts() && head.ends()) || session.m_index->media.findEnd(start, end);
    }
    // The record of the unit tells whether a fragment completed it.
    void deal(CTalRtpPacket* packet, const stTalRtpDataInfo* unit) const {
        if (!head.isFragment()) {
            session.CMMRTPSession4SVC::dealPacket(packet);
        } else if (unit != nullptr && unit->complete) {
            session.deliveFUPacket(unit->startSeq,
                                   static_cast<_uint16_t>(unit->startSeq + unit->packetCount - 1), true);
        }
    }

    // The bytes of the capacity that no writer fills are zeroed once, by `writePayload`.
    void writeHeader(unsigned long timestamp, CTalRtpPacket* packet) const {
        CPacketAccess::clear(*packet);
        CSessionAccess::writeHeader(session, timestamp, *packet);
    }
    // Each piece has at least one byte.
    int writePayload(int index, int count, int size, const unsigned char* data, CTalRtpPacket* packet) const {
        if (count == 1) {
            unsigned char* const payload = CPacketAccess::beginPayload(*packet, size);
            session.m_nalHeader = data[0];
            appendBytes(payload, data, size);
        } else {
            unsigned char* const payload =
                CPacketAccess::beginPayload(*packet, fragmentPayloadSize(index, size));
            writeFragment(payload, index, count, size, data, session.m_nalHeader);
        }
        return 0;
    }

    CMMRTPSession4SVC& session;
    const stPayloadHead head;
};

// A derived class. Every answer is a virtual call.
struct CSessionAccess::stHostRules {
    static constexpr bool kAsksHooks = true;

    CReceiveIndex& lists() const { return CSessionAccess::lists(session); }
    CReceiveIndex& listsFor(_uint32_t timestamp) const {
        return CSessionAccess::listsFor(session, timestamp);
    }
    // A hook may look for the packet in the lists, so it is stored before these are called.
    bool starts(_uint16_t seq) const { return session.isStartSeq(seq); }
    bool ends(_uint16_t seq) const { return session.isEndSeq(seq); }
    // Both outputs are 0 before the call: a hook that finds something may leave its output alone.
    bool findStart(_uint16_t seq, _uint16_t& start) const { return session.findStartSeq(seq, start); }
    bool findEnd(_uint16_t start, _uint16_t& end) const { return session.findEndSeq(start, end); }
    // Looks up again what a hook may have changed.
    stTalRtpTSInfo* recordOf(_uint32_t timestamp) const {
        return listsFor(timestamp).records.find(timestamp);
    }
    // `dealPacket` looks the unit up again, by `findStartSeq`: hosts count on the call.
    void deal(CTalRtpPacket* packet, const stTalRtpDataInfo* /*unit*/) const { session.dealPacket(packet); }
    // The result is not used: a header that failed has its packet written all the same.
    void writeHeader(unsigned long timestamp, CTalRtpPacket* packet) const {
        session.setPacketHeader(timestamp, packet);
    }
    int writePayload(int index, int count, int size, unsigned char* data, CTalRtpPacket* packet) const {
        return session.setPacketPayload(index, count, size, data, packet);
    }

    CMMRTPSessionBase& session;
};

using stStockRules = CSessionAccess::stStockRules;
using stHostRules = CSessionAccess::stHostRules;

template <typename Rules>
stTalRtpDataInfo* CSessionAccess::record(const Rules& rules, _uint32_t timestamp, _uint16_t seq) {
    CTimestampRecords& records = rules.listsFor(timestamp).records;
    stTalRtpTSInfo* const record = records.noteMedia(timestamp, seq, rules.session.m_lastReceivedTime);
    return records.growUnitOf(record, seq, rules);
}

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPSESSIONRULES_H

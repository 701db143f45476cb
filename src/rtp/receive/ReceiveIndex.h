// The stores that belong to a session's documented lists, so that the work for one datagram does not grow
// with what was received before it. The lists stay the owners of everything; the stores find their entries.

#ifndef TALRTP_SRC_RECEIVE_RECEIVEINDEX_H
#define TALRTP_SRC_RECEIVE_RECEIVEINDEX_H

#include <talrtp/TalRtpRecords.h>

#include <vector>

#include "FecStore.h"
#include "Handover.h"
#include "MediaStore.h"
#include "OwnNodes.h"
#include "StepMeter.h"
#include "TimestampRecords.h"
#include "WindowSizes.h"
#include "memory/NodePool.h"

namespace talrtp {

class CReceiveIndex {
public:
    // Borrows all for its life. The lists are empty.
    CReceiveIndex(CNodePool* pool, CMediaStore::List& mediaList, CFecStore::List& fecList,
                  CTalRtpPacketMap& rebuiltList, CTimestampRecords::List& recordList)
        : media(mediaList, meter),
          records(recordList, media, pool, meter),
          fec(fecList, media.known(), meter),
          m_pool(*static_cast<CPagedNodePool*>(pool)),
          m_mediaList(mediaList),
          m_fecList(fecList),
          m_rebuiltList(rebuiltList),
          m_recordList(recordList) {}

    // Returns whether somebody else may have changed a list since the last look.
    bool isStale() const { return m_pool.isChanged(); }
    // Looks: returns whether the stores still know what the lists hold, as far as the numbers of nodes and
    // the entries that held null tell.
    bool isTrue() const;
    // Learns the lists anew; as `CMediaStore::rebuild`.
    void rebuild(bool keepsBounds);
    // Lets the next look find that the stores have to be rebuilt.
    void invalidate();
    // Destroys everything in the lists.
    void clear();
    // Returns whether the lists hold the available packets of `count` numbers that the stores know.
    bool isTrueFrom(_uint16_t first, unsigned int count) const;
    // Forgets which entries hold null, since some of them are gone.
    void dropNulls() {
        if (!m_nulls.empty()) {
            invalidate();
        }
    }
    // Returns whether an entry holds null, which only a host's class can have put there.
    bool hasNulls() const { return !m_nulls.empty() || m_mustRebuild; }

    stStepMeter meter;
    // Memory was refused since the host's call began, so that call fails.
    bool isShort = false;
    // The sink is being called: an exception is the host's own.
    bool isInSink = false;
    // The session's class is a host's, which may exchange packets in their entries. True until a public call
    // finds the library's class: a derived class may call protected functions first.
    bool isHost = true;
    // The hooks are being asked for the bounds of all packets, and have to be asked once more.
    bool isAsking = false;
    bool mustAskAgain = false;

    // A round of tries goes on in a session of the library's class: `windowSizes` remembers sizes.
    bool isInRound = false;

    // Notes that the session's class is the library's, before anything is stored.
    void setStock() {
        isHost = false;
        records.remember();
    }

    CMediaStore media;
    CTimestampRecords records;
    CFecStore fec;
    CHandoverBuffer handover;
    CWindowSizes windowSizes;
    // **Lends** the sizes that a try may use: none of before, except in a round.
    CWindowSizes& sizesForTry() {
        if (!isInRound) {
            windowSizes.forget();
        }
        return windowSizes;
    }

    // The steps of the media store that FEC packets wait for, with what these do then.

    // **Takes** a media packet under a number that has none; as `CMediaStore::add`.
    void addMedia(_uint16_t seq, CTalRtpPacket* packet, bool starts, bool ends) {
        if (media.add(seq, packet, starts, ends)) {
            fec.mediaArrived(seq);
        }
    }
    // Takes the media packet stored under `seq` out, if there is one; the caller **owns** it then.
    void releaseMedia(_uint16_t seq) {
        CTalRtpPacket* packet;
        if (media.release(seq, packet)) {
            records.closeUnit();
            fec.mediaLeft(seq);
        }
    }
    // Destroys the media packet stored under `seq`, if there is one, with its entry.
    void removeMedia(_uint16_t seq) {
        if (media.remove(seq)) {
            records.closeUnit();
            fec.mediaLeft(seq);
        } else if (hasNulls()) {
            eraseNull(m_mediaList, seq);
        }
    }
    // The same for an FEC packet.
    void removeFec(_uint16_t seq) {
        if (fec.find(seq) != nullptr) {
            fec.remove(seq);
        } else if (hasNulls()) {
            eraseNull(m_fecList, seq);
        }
    }
    // Takes `packet`, which was stored under `seq` and could not be recorded, out of its list and forgets its
    // note, if it is the last of its timestamp; the caller **owns** it then. Returns false when the list does
    // not hold it any more. Asks no hook, since one may have thrown just now.
    bool takeBack(_uint16_t seq, const CTalRtpPacket* packet, _uint32_t timestamp);
    // Notes that the packet of a number was rebuilt; as `CMediaStore::know`.
    void know(_uint16_t seq) {
        if (media.know(seq)) {
            fec.mediaArrived(seq);
        }
    }
    // The same for a packet that could not be stored. The next look does it if a list was changed.
    void knowAgain(_uint16_t seq);
    // Notes that a rebuilt packet is gone.
    void forget(_uint16_t seq) {
        if (media.forget(seq)) {
            fec.mediaLeft(seq);
        }
    }

private:
    template <typename List>
    void noteNulls(const List& list);
    void believe();
    void eraseNull(CTalRtpPacketMap& list, _uint16_t seq);

    CPagedNodePool& m_pool;
    CTalRtpPacketMap& m_mediaList;
    CTalRtpPacketMap& m_fecList;
    CTalRtpPacketMap& m_rebuiltList;
    const CTimestampRecords::List& m_recordList;
    std::vector<CTalRtpPacket* const*> m_nulls;  // the entries that hold null
    bool m_mustRebuild = false;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_RECEIVEINDEX_H

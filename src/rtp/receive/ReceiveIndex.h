// The stores that belong to a session's documented lists, so that the work for one datagram does not grow
// with what was received before it. The lists stay the owners of everything; the stores find their entries.

#ifndef TALRTP_SRC_RECEIVE_RECEIVEINDEX_H
#define TALRTP_SRC_RECEIVE_RECEIVEINDEX_H

#include <talrtp/TalRtpRecords.h>

#include "FecStore.h"
#include "Handover.h"
#include "MediaStore.h"
#include "StepMeter.h"
#include "TimestampRecords.h"

namespace talrtp {

class CReceiveIndex {
public:
    // Borrows all for its life. The lists are empty.
    CReceiveIndex(CNodePool* pool, CMediaStore::List& mediaList, CFecStore::List& fecList,
                  CTimestampRecords::List& recordList)
        : media(mediaList, meter),
          records(recordList, media, pool, meter),
          fec(fecList, media.known(), meter) {}

    stStepMeter meter;
    // Memory was refused since the host's call began, so that call fails.
    bool isShort = false;
    // The sink is being called: an exception is the host's own.
    bool isInSink = false;

    CMediaStore media;
    CTimestampRecords records;
    CFecStore fec;
    CHandoverBuffer handover;

    // The steps of the media store that FEC packets wait for, with what these do then.

    // **Takes** a media packet under a number that has none; as `CMediaStore::add`.
    void addMedia(_uint16_t seq, CTalRtpPacket* packet, bool starts, bool ends) {
        if (media.add(seq, packet, starts, ends)) {
            fec.mediaArrived(seq);
        }
    }
    // Destroys the media packet stored under `seq`, if there is one.
    void removeMedia(_uint16_t seq) {
        if (media.remove(seq)) {
            records.closeUnit();
            fec.mediaLeft(seq);
        }
    }
    // Notes that the packet of a number was rebuilt; as `CMediaStore::know`.
    void know(_uint16_t seq) {
        if (media.know(seq)) {
            fec.mediaArrived(seq);
        }
    }
    // Notes that a rebuilt packet is gone.
    void forget(_uint16_t seq) {
        if (media.forget(seq)) {
            fec.mediaLeft(seq);
        }
    }
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_RECEIVEINDEX_H

// All timestamps of a session, ordered by the time of their last packet:
//
//   oldest <-> ... <-> record filed last <-> ... <-> newest
//
// Ageing takes records from the oldest on. A search begins at the record filed last, so it takes no step
// while the host's clock runs forward, and few when it stepped back.

#ifndef TALRTP_SRC_RECEIVE_AGEORDER_H
#define TALRTP_SRC_RECEIVE_AGEORDER_H

#include <talrtp/TalRtpRecords.h>

#include "StepMeter.h"

namespace talrtp {

// A timestamp's record with its place in the list of timestamps and in the order of ageing.
struct stTalRtpTSRecord : stTalRtpTSInfo {
    stTalRtpTSRecord(_uint32_t rtpTimestamp, _uint64_t receivedTime, CNodePool* pool)
        : stTalRtpTSInfo(receivedTime, pool),
          timestamp(rtpTimestamp),
          strayFecNotes(0),
          older(nullptr),
          newer(nullptr) {}

    const _uint32_t timestamp;
    unsigned int strayFecNotes;  // FEC numbers in `fecSeqList` that no stored packet knows of
    CTalRtpTSInfoMap::iterator entry;
    stTalRtpTSRecord* older;
    stTalRtpTSRecord* newer;
};

class CAgeOrder {
public:
    explicit CAgeOrder(stStepMeter& meter) : m_meter(meter) {}

    // **Lend** the record at either end; null when there is none.
    stTalRtpTSRecord* oldest() const { return m_oldest; }
    stTalRtpTSRecord* newest() const { return m_newest; }

    // Files `record` by its update time, after others of the same time.
    void insert(stTalRtpTSRecord* record);
    // Takes a filed record out.
    void remove(stTalRtpTSRecord* record);
    // Gives a filed record the update time `time` and files it anew.
    void touch(stTalRtpTSRecord* record, _uint64_t time) {
        if (record == m_newest && record->updateTime <= time) {  // nearly always
            record->updateTime = time;
            m_lastFiled = record;
        } else if (record->updateTime != time) {
            remove(record);
            record->updateTime = time;
            insert(record);
        }
    }

private:
    stStepMeter& m_meter;
    stTalRtpTSRecord* m_oldest = nullptr;
    stTalRtpTSRecord* m_newest = nullptr;
    stTalRtpTSRecord* m_lastFiled = nullptr;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_AGEORDER_H

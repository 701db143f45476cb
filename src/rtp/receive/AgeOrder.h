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

class CAgeOrder {
public:
    explicit CAgeOrder(stStepMeter& meter) : m_meter(meter) {}

    // **Lend** the record at either end; null when there is none.
    stTalRtpTSInfo* oldest() const { return m_oldest; }
    stTalRtpTSInfo* newest() const { return m_newest; }

    // **Lend** the neighbour of a filed record; null at the end.
    static stTalRtpTSInfo* older(const stTalRtpTSInfo* record) { return record->m_older; }
    static stTalRtpTSInfo* newer(const stTalRtpTSInfo* record) { return record->m_newer; }

    // Files `record` by its update time, after others of the same time.
    void insert(stTalRtpTSInfo* record);
    // Takes a filed record out.
    void remove(stTalRtpTSInfo* record);
    // Gives a filed record the update time `time` and files it anew.
    void touch(stTalRtpTSInfo* record, _uint64_t time) {
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
    stTalRtpTSInfo* m_oldest = nullptr;
    stTalRtpTSInfo* m_newest = nullptr;
    stTalRtpTSInfo* m_lastFiled = nullptr;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_AGEORDER_H

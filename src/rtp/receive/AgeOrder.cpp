#include "AgeOrder.h"

namespace talrtp {

void CAgeOrder::insert(stTalRtpTSInfo* record) {
    stTalRtpTSInfo* before = m_lastFiled != nullptr ? m_lastFiled : m_newest;
    ++m_meter.steps;
    while (before != nullptr && before->updateTime > record->updateTime) {
        ++m_meter.steps;
        before = before->m_older;
    }
    while (before != nullptr && before->m_newer != nullptr &&
           before->m_newer->updateTime <= record->updateTime) {
        ++m_meter.steps;
        before = before->m_newer;
    }
    record->m_older = before;
    record->m_newer = before != nullptr ? before->m_newer : m_oldest;
    (record->m_older != nullptr ? record->m_older->m_newer : m_oldest) = record;
    (record->m_newer != nullptr ? record->m_newer->m_older : m_newest) = record;
    m_lastFiled = record;
}

void CAgeOrder::remove(stTalRtpTSInfo* record) {
    (record->m_older != nullptr ? record->m_older->m_newer : m_oldest) = record->m_newer;
    (record->m_newer != nullptr ? record->m_newer->m_older : m_newest) = record->m_older;
    if (m_lastFiled == record) {
        m_lastFiled = record->m_older != nullptr ? record->m_older : record->m_newer;
    }
}

}  // namespace talrtp

#include "AgeOrder.h"

namespace talrtp {

void CAgeOrder::insert(stTalRtpTSRecord* record) {
    stTalRtpTSRecord* before = m_lastFiled != nullptr ? m_lastFiled : m_newest;
    ++m_meter.steps;
    while (before != nullptr && before->updateTime > record->updateTime) {
        ++m_meter.steps;
        before = before->older;
    }
    while (before != nullptr && before->newer != nullptr && before->newer->updateTime <= record->updateTime) {
        ++m_meter.steps;
        before = before->newer;
    }
    record->older = before;
    record->newer = before != nullptr ? before->newer : m_oldest;
    (record->older != nullptr ? record->older->newer : m_oldest) = record;
    (record->newer != nullptr ? record->newer->older : m_newest) = record;
    m_lastFiled = record;
}

void CAgeOrder::remove(stTalRtpTSRecord* record) {
    (record->older != nullptr ? record->older->newer : m_oldest) = record->newer;
    (record->newer != nullptr ? record->newer->older : m_newest) = record->older;
    if (m_lastFiled == record) {
        m_lastFiled = record->older != nullptr ? record->older : record->newer;
    }
}

}  // namespace talrtp

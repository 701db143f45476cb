// Sessions whose protected members and operations a test may read and call. They override nothing.

#ifndef TALRTP_TESTS_PROBE_H
#define TALRTP_TESTS_PROBE_H

#include <talrtp/TalRtpSession.h>

namespace talrtp {
namespace test {

template <typename Session>
class Probe : public Session {
public:
    using Session::Session;

    using Session::checkAllLists;
    using Session::clearAllList;
    using Session::dealPacket;
    using Session::dealRecoverPacketList;
    using Session::deliverPacket;
    using Session::displayStatisticInfo;
    using Session::findEndSeq;
    using Session::findStartSeq;
    using Session::forceHandoverPacket;
    using Session::getFECPacketBySeq;
    using Session::getMediaDataInfo;
    using Session::getMediaPacketBySeq;
    using Session::getRecoverPacketBySeq;
    using Session::inputReceivedFECPacket;
    using Session::inputReceivedMediaPacket;
    using Session::isEndSeq;
    using Session::isFECPacket;
    using Session::isStartSeq;
    using Session::recoverPacket;
    using Session::recoverPacketWithFEC;
    using Session::recoverPacketWithRSFEC;
    using Session::recoverPacketWithXORFEC;
    using Session::removeFECInfoFromList;
    using Session::setPacketHeader;
    using Session::setPacketPayload;
    using Session::updateFECListInfo;
    using Session::updateMediaDataInfo;
    using Session::updateReceivedTS;

    using Session::m_createdFECPacketNumber;
    using Session::m_createdMediaPacketNumber;
    using Session::m_deliveredDataBytes;
    using Session::m_fecPacketList;
    using Session::m_fecPayloadType;
    using Session::m_fecSequenceNumber;
    using Session::m_fecType;
    using Session::m_firstReceivedTime;
    using Session::m_isFirstReceived;
    using Session::m_lastReceivedTime;
    using Session::m_mediaPacketList;
    using Session::m_payloadType;
    using Session::m_pSink;
    using Session::m_receivedFECPacketNumber;
    using Session::m_receivedMediaPacketNumber;
    using Session::m_receivedPacketBytes;
    using Session::m_receivedPacketNumber;
    using Session::m_receivedTS;
    using Session::m_receivedValidFECPacketBytes;
    using Session::m_receivedValidFECPacketNumber;
    using Session::m_receivedValidMediaPacketBytes;
    using Session::m_receivedValidMediaPacketNumber;
    using Session::m_recoveredMediaPacketBytes;
    using Session::m_recoveredMediaPacketNumber;
    using Session::m_recoverPacketList;
    using Session::m_sequenceNumber;
    using Session::m_sourceId;
    using Session::m_tsInfoList;

    // The record of one timestamp, or null.
    stTalRtpTSInfo* tsInfo(unsigned int timestamp) const {
        const auto found = m_tsInfoList.find(timestamp);
        return found == m_tsInfoList.end() ? nullptr : found->second;
    }

    // The record of the unit that starts at `startSeq`, or null.
    stTalRtpDataInfo* unitInfo(unsigned int timestamp, unsigned short startSeq) const {
        const stTalRtpTSInfo* const record = tsInfo(timestamp);
        if (record == nullptr) {
            return nullptr;
        }
        const auto found = record->dataInfoMap.find(startSeq);
        return found == record->dataInfoMap.end() ? nullptr : found->second;
    }
};

typedef Probe<CMMRTPSessionBase> BaseProbe;

class SvcProbe : public Probe<CMMRTPSession4SVC> {
public:
    using Probe<CMMRTPSession4SVC>::Probe;

    using CMMRTPSession4SVC::combineFUPacket;
    using CMMRTPSession4SVC::deliveFUPacket;
    using CMMRTPSession4SVC::deliveSinglePacket;
    using CMMRTPSession4SVC::forceHandoverFUPacket;
    using CMMRTPSession4SVC::getFUPacketsInfoBySeq;
    using CMMRTPSession4SVC::getFUPacketsPayloadSize;
    using CMMRTPSession4SVC::setAUPayload;
    using CMMRTPSession4SVC::setFUPayload;
    using CMMRTPSession4SVC::setSinglePayload;
    using CMMRTPSession4SVC::splitAUPacket;
    using CMMRTPSession4SVC::splitAUPacketEx;

    using CMMRTPSession4SVC::m_nalHeader;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_PROBE_H

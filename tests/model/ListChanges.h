// The changes that a derived class may make to the documented lists of its session between two calls. Each is
// made to the session and to the plain model.

#ifndef TALRTP_TESTS_MODEL_LISTCHANGES_H
#define TALRTP_TESTS_MODEL_LISTCHANGES_H

#include "model/ReceiveModel.h"
#include "model/Traffic.h"

#include <talrtp/talrtp.h>

#include <cstdint>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace talrtp {
namespace model {

// `Member` is a session whose lists can be reached.
template <typename Member>
class ListChanges {
public:
    typedef std::vector<std::unique_ptr<CTalRtpPacket>> Packets;

    // Borrows all for its life. The draw decides about everything. Packets that leave an entry for another
    // one go to `exchanged`: a session takes a packet at the address of the one that it knows for that one.
    ListChanges(Member& session, ReceiveModel& model, Packets& exchanged, std::uint64_t draw)
        : m_session(session), m_model(model), m_exchanged(exchanged), m_random(draw) {}

    // Makes one change, or none when what it would change is not there.
    void makeOne() {
        typedef void (ListChanges::*Change)();
        static const Change kChanges[] = {
            &ListChanges::removeMediaPacket, &ListChanges::removeFecPacket, &ListChanges::addMediaPacket,
            &ListChanges::addRebuiltPacket,  &ListChanges::exchangeMedia,   &ListChanges::exchangeFec,
            &ListChanges::removeRecord,      &ListChanges::addRecord,       &ListChanges::removeUnit,
            &ListChanges::addUnit,           &ListChanges::changeUnit,      &ListChanges::removeMediaNumber,
            &ListChanges::addMediaNumber,    &ListChanges::removeFecNumber, &ListChanges::addFecNumber};
        constexpr int kCount = sizeof kChanges / sizeof kChanges[0];
        (this->*kChanges[m_random.below(kCount)])();
    }

private:
    template <typename Container>
    auto any(Container& container) -> decltype(container.begin()) {
        return std::next(container.begin(), m_random.below(static_cast<int>(container.size())));
    }

    void removeMediaPacket() { removePacket(m_session.m_mediaPacketList, m_model.mediaPackets); }
    void removeFecPacket() { removePacket(m_session.m_fecPacketList, m_model.fecPackets); }

    template <typename List>
    void removePacket(List& list, ReceiveModel::PacketMap& model) {
        if (!model.empty()) {
            const std::uint16_t seq = any(model)->first;
            delete list.at(seq);
            list.erase(seq);
            model.erase(seq);
        }
    }

    // The bytes of a stored packet of a list, with another number.
    Bytes bytesLike(const PlainPacket& packet, std::uint16_t seq) {
        Bytes bytes = packet.head(packet.packetSize);
        bytes[2] = static_cast<unsigned char>(seq >> 8);
        bytes[3] = static_cast<unsigned char>(seq);
        return bytes;
    }
    static CTalRtpPacket* makePacket(Bytes& bytes) {
        return new CTalRtpPacket(bytes.data(), static_cast<int>(bytes.size()));
    }
    static PlainPacket makePlain(const Bytes& bytes, PacketKind kind) {
        return PlainPacket::fromBytes(bytes.data(), static_cast<int>(bytes.size()), kind);
    }
    // A number near a stored one.
    std::uint16_t numberNear(std::uint16_t seq) {
        return static_cast<std::uint16_t>(seq + m_random.between(-3, 3));
    }

    void addMediaPacket() {
        if (m_model.mediaPackets.empty()) {
            return;
        }
        const auto like = any(m_model.mediaPackets);
        const std::uint16_t seq = numberNear(like->first);
        if (m_model.mediaPackets.count(seq) == 0) {
            Bytes bytes = bytesLike(like->second, seq);
            m_session.m_mediaPacketList[seq] = makePacket(bytes);
            m_model.mediaPackets[seq] = makePlain(bytes, PacketKind::kMedia);
        }
    }

    void addRebuiltPacket() {
        if (m_model.mediaPackets.empty()) {
            return;
        }
        const auto like = any(m_model.mediaPackets);
        const std::uint16_t seq = numberNear(like->first);
        if (m_model.recoveredPackets.count(seq) == 0) {
            Bytes bytes = bytesLike(like->second, seq);
            m_session.m_recoverPacketList[seq] = makePacket(bytes);
            m_model.recoveredPackets[seq] = makePlain(bytes, PacketKind::kMedia);
        }
    }

    // Puts the bytes of another packet under the number of a stored one, into its entry.
    void exchangeMedia() {
        if (!m_model.mediaPackets.empty()) {
            const auto entry = any(m_model.mediaPackets);
            Bytes bytes = bytesLike(any(m_model.mediaPackets)->second, entry->first);
            CTalRtpPacket* packet = makePacket(bytes);
            std::swap(m_session.m_mediaPacketList.at(entry->first), packet);
            m_exchanged.emplace_back(packet);
            entry->second = makePlain(bytes, PacketKind::kMedia);
        }
    }

    void exchangeFec() {
        if (m_model.fecPackets.empty()) {
            return;
        }
        const auto entry = any(m_model.fecPackets);
        const PlainPacket& like = any(m_model.fecPackets)->second;
        Bytes bytes = bytesLike(like, entry->first);
        const int size = static_cast<int>(bytes.size());
        CTalRtpPacket* packet = nullptr;
        if (like.kind == PacketKind::kXorFec) {
            packet = new CRTPFECPacket(bytes.data(), size);
        } else {
            packet = new CRTPRSPacket(bytes.data(), size);
        }
        std::swap(m_session.m_fecPacketList.at(entry->first), packet);
        m_exchanged.emplace_back(packet);
        entry->second = makePlain(bytes, like.kind);
    }

    void removeRecord() {
        if (!m_model.timestamps.empty()) {
            const std::uint32_t timestamp = any(m_model.timestamps)->first;
            stTalRtpTSInfo* const record = m_session.m_tsInfoList.at(timestamp);
            for (const auto& unit : record->dataInfoMap) {
                delete unit.second;
            }
            delete record;
            m_session.m_tsInfoList.erase(timestamp);
            m_model.timestamps.erase(timestamp);
        }
    }

    void addRecord() {
        constexpr int kLongest = 6000;  // some of them are stale
        const std::uint32_t timestamp =
            m_model.mediaPackets.empty() ? 90000 : any(m_model.mediaPackets)->second.timestamp();
        if (m_model.timestamps.count(timestamp) != 0) {
            return;
        }
        stTalRtpTSInfo* const record = new stTalRtpTSInfo;
        TimestampInfo& plain = m_model.timestamps[timestamp];
        plain.createTime = m_model.lastReceivedTime;
        plain.updateTime = m_model.lastReceivedTime;
        const std::uint64_t age = static_cast<std::uint64_t>(m_random.below(kLongest));
        if (age < plain.updateTime) {
            plain.updateTime -= age;
        }
        record->createTime = plain.createTime;
        record->updateTime = plain.updateTime;
        m_session.m_tsInfoList[timestamp] = record;
    }

    void removeUnit() {
        const auto found = anyRecord();
        if (found != m_model.timestamps.end() && !found->second.dataInfoMap.empty()) {
            const std::uint16_t start = any(found->second.dataInfoMap)->first;
            auto& units = m_session.m_tsInfoList.at(found->first)->dataInfoMap;
            delete units.at(start);
            units.erase(start);
            found->second.dataInfoMap.erase(start);
        }
    }

    void addUnit() {
        const auto found = anyRecord();
        if (found == m_model.timestamps.end() || m_model.mediaPackets.empty()) {
            return;
        }
        const std::uint16_t start = any(m_model.mediaPackets)->first;
        if (found->second.dataInfoMap.count(start) == 0) {
            const DataInfo plain = {start, m_random.between(1, 4), m_random.percent(50),
                                    m_random.percent(20)};
            stTalRtpDataInfo* const unit = new stTalRtpDataInfo;
            unit->startSeq = plain.startSeq;
            unit->packetCount = plain.packetCount;
            unit->delivered = plain.delivered;
            unit->complete = plain.complete;
            m_session.m_tsInfoList.at(found->first)->dataInfoMap[start] = unit;
            found->second.dataInfoMap[start] = plain;
        }
    }

    void changeUnit() {
        const auto found = anyRecord();
        if (found != m_model.timestamps.end() && !found->second.dataInfoMap.empty()) {
            DataInfo& plain = any(found->second.dataInfoMap)->second;
            stTalRtpDataInfo& unit = *m_session.m_tsInfoList.at(found->first)->dataInfoMap.at(plain.startSeq);
            plain.delivered = unit.delivered = !plain.delivered;
        }
    }

    std::map<std::uint32_t, TimestampInfo>::iterator anyRecord() {
        return m_model.timestamps.empty() ? m_model.timestamps.end() : any(m_model.timestamps);
    }

    void removeMediaNumber() { removeNumber(&stTalRtpTSInfo::mediaSeqList, &TimestampInfo::mediaSeqList); }
    void removeFecNumber() { removeNumber(&stTalRtpTSInfo::fecSeqList, &TimestampInfo::fecSeqList); }
    void addMediaNumber() {
        addNumber(&stTalRtpTSInfo::mediaSeqList, &TimestampInfo::mediaSeqList, m_model.mediaPackets);
    }
    void addFecNumber() {
        addNumber(&stTalRtpTSInfo::fecSeqList, &TimestampInfo::fecSeqList, m_model.fecPackets);
    }

    typedef stTalRtpTSInfo::SeqList stTalRtpTSInfo::*SeqList;
    typedef std::list<std::uint16_t> TimestampInfo::*PlainSeqList;

    void removeNumber(SeqList list, PlainSeqList model) {
        const auto found = anyRecord();
        if (found != m_model.timestamps.end() && !(found->second.*model).empty()) {
            const int place = m_random.below(static_cast<int>((found->second.*model).size()));
            auto& numbers = m_session.m_tsInfoList.at(found->first)->*list;
            numbers.erase(std::next(numbers.begin(), place));
            (found->second.*model).erase(std::next((found->second.*model).begin(), place));
        }
    }

    void addNumber(SeqList list, PlainSeqList model, const ReceiveModel::PacketMap& packets) {
        const auto found = anyRecord();
        if (found != m_model.timestamps.end() && !packets.empty()) {
            const std::uint16_t seq = numberNear(any(packets)->first);
            (m_session.m_tsInfoList.at(found->first)->*list).push_back(seq);
            (found->second.*model).push_back(seq);
        }
    }

    Member& m_session;
    ReceiveModel& m_model;
    Packets& m_exchanged;
    Random m_random;
};

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_LISTCHANGES_H

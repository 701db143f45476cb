// A host's own session class: it inherits from the base session, with hooks of its own or
// without, calls the protected operations in any order, and sends as well as receives. The lists, the records
// and the counters have to fit to each other after each call, and to what the sink got.

#include "FuzzSupport.h"

#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace talrtp {
namespace fuzz {
namespace {

int s_traceMask = -1;

void checkLine(int level, const char* text, unsigned int length) {
    require(length == std::strlen(text) && std::strncmp(text, "[TAL] ", 6) == 0 && level >= 0 &&
                level <= s_traceMask,
            "a line has its length and its prefix, and is asked for");
}

class CountingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        readFully(packet->get_payload_ptr(), packet->get_payload_size());
        bytes += static_cast<std::uint64_t>(packet->get_payload_size());
        require(packet->get_packet_type() == 0 || isDirect, "a packet is handed over as a whole");
    }

    std::uint64_t bytes = 0;
    bool isDirect = false;  // `deliverPacket` is called by the host itself
};

// A unit reaches over as many packets as the first two payload bits say, where the session has units at all.
class OwnSession : public CMMRTPSessionBase {
public:
    OwnSession(ITalRTPSessionSink* sink, bool hasUnits) : CMMRTPSessionBase(sink, 5), m_hasUnits(hasUnits) {}

    using CMMRTPSessionBase::checkAllLists;
    using CMMRTPSessionBase::clearAllList;
    using CMMRTPSessionBase::dealPacket;
    using CMMRTPSessionBase::dealRecoverPacketList;
    using CMMRTPSessionBase::deliverPacket;
    using CMMRTPSessionBase::displayStatisticInfo;
    using CMMRTPSessionBase::forceHandoverPacket;
    using CMMRTPSessionBase::getFECPacketBySeq;
    using CMMRTPSessionBase::getMediaPacketBySeq;
    using CMMRTPSessionBase::getRecoverPacketBySeq;
    using CMMRTPSessionBase::inputReceivedFECPacket;
    using CMMRTPSessionBase::inputReceivedMediaPacket;
    using CMMRTPSessionBase::m_deliveredDataBytes;
    using CMMRTPSessionBase::m_fecPacketList;
    using CMMRTPSessionBase::m_fecSequenceNumber;
    using CMMRTPSessionBase::m_mediaPacketList;
    using CMMRTPSessionBase::m_receivedPacketNumber;
    using CMMRTPSessionBase::m_receivedTS;
    using CMMRTPSessionBase::m_recoverPacketList;
    using CMMRTPSessionBase::m_sequenceNumber;
    using CMMRTPSessionBase::m_tsInfoList;
    using CMMRTPSessionBase::recoverPacket;
    using CMMRTPSessionBase::recoverPacketWithFEC;
    using CMMRTPSessionBase::removeFECInfoFromList;
    using CMMRTPSessionBase::setPacketHeader;
    using CMMRTPSessionBase::setPacketPayload;
    using CMMRTPSessionBase::updateFECListInfo;
    using CMMRTPSessionBase::updateMediaDataInfo;
    using CMMRTPSessionBase::updateReceivedTS;

    bool isStartSeq(unsigned short seq) override {
        return m_hasUnits ? has(seq, 0x80) : CMMRTPSessionBase::isStartSeq(seq);
    }
    bool isEndSeq(unsigned short seq) override {
        return m_hasUnits ? has(seq, 0x40) : CMMRTPSessionBase::isEndSeq(seq);
    }
    bool findStartSeq(unsigned short seq, unsigned short& startSeq) override {
        if (!m_hasUnits) {
            return CMMRTPSessionBase::findStartSeq(seq, startSeq);
        }
        for (int i = 0; i < kLongestUnit && getMediaPacketBySeq(seq) != nullptr; ++i, --seq) {
            if (isStartSeq(seq)) {
                startSeq = seq;
                return true;
            }
        }
        return false;
    }
    bool findEndSeq(unsigned short startSeq, unsigned short& endSeq) override {
        if (!m_hasUnits) {
            return CMMRTPSessionBase::findEndSeq(startSeq, endSeq);
        }
        for (int i = 0; i < kLongestUnit && getMediaPacketBySeq(startSeq) != nullptr; ++i, ++startSeq) {
            endSeq = startSeq;
            if (isEndSeq(startSeq)) {
                return true;
            }
        }
        return false;
    }

private:
    static constexpr int kLongestUnit = 16;

    bool has(unsigned short seq, unsigned char bit) const {
        const CTalRtpPacket* const packet = getMediaPacketBySeq(seq);
        return packet != nullptr && packet->get_payload_size() > 0 &&
               (packet->get_payload_ptr()[0] & bit) != 0;
    }

    bool m_hasUnits;
};

// The trace mask as long as it lives.
class Trace {
public:
    explicit Trace(int mask) { s_traceMask = mask; }
    ~Trace() { s_traceMask = -1; }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
};

class Run {
public:
    explicit Run(InputReader& input)
        : m_trace(input.within(-1, 2)),
          m_input(input),
          m_hasSink(input.within(0, 7) != 7),
          m_session(new OwnSession(m_hasSink ? &m_sink : nullptr, input.flag())),
          m_fecType(input.flag() ? RTP_FEC_RS : RTP_FEC_XOR) {
        m_session->SetFecType(m_fecType);
        m_session->m_sequenceNumber = 65530;
        m_session->m_fecSequenceNumber = 65534;
    }

    void play() {
        while (m_input.size() > 0) {
            step();
            checkLists();
        }
    }

private:
    void step() {
        switch (m_input.within(0, 19)) {
            case 0:
                return create();
            case 1:
                return createAggregate();
            case 2:
                return createFragments();
            case 3:
                m_now += m_input.within(0UL, 7000UL) - m_input.within(0UL, 100UL);
                return;
            case 4:
                m_session->ForceHandover(aTimestamp());
                return;
            case 5:
                return forceOne();
            case 6:
                return deliverOne();
            case 7:
                return recoverOne();
            case 8:
                return parity();
            case 9:
                m_session->recoverPacketWithFEC();
                m_session->dealRecoverPacketList();
                return;
            case 10:
                return noteAgain();
            case 11:
                return passNulls();
            case 12:
                return updateTimestamp();
            case 13:
                m_session->displayStatisticInfo();
                return m_session->checkAllLists();
            case 14:
                return clear();
            case 15:
                return setFecType(m_input.within(0UL, 2UL));
            case 16:
                return takePacket();
            default:
                return receive();
        }
    }

    void setFecType(unsigned long fecType) {
        const bool isKnown = fecType <= RTP_FEC_RS;
        require(m_session->SetFecType(fecType) == (isKnown ? 0 : -1), "there are two kinds of FEC");
        m_fecType = isKnown ? fecType : m_fecType;
    }

    // --- Sending ---

    // A packet of the session's own, which arrives by `InputReceivedData`, or not at all.
    void create() {
        Bytes unit = m_input.bytes(m_input.within<std::size_t>(1, 40));
        unit.resize(std::max<std::size_t>(unit.size(), 1));
        CTalRtpPacket packet(100);
        const int size = static_cast<int>(unit.size());
        require(m_session->CreateSinglePacket(aTimestamp(), size, unit.data(), &packet) == 0,
                "the base session makes single packets");
        require(packet.get_packet_size() == 12 + size &&
                    std::equal(unit.begin(), unit.end(), packet.get_payload_ptr()),
                "a packet carries its unit");
        arrive(packet);
    }

    // The base session has no units within packets.
    void createAggregate() {
        unsigned char unit[] = {1, 2};
        unsigned char* pointers[] = {unit, m_input.flag() ? nullptr : unit};
        int sizes[] = {2, 2};
        CTalRtpPacket packet(100);
        const int count = m_input.within(0, 2);
        require(m_session->CreateStapaPacket(aTimestamp(), count, sizes, pointers, &packet) ==
                    (count == 0 ? 0 : -1),
                "the base session aggregates nothing");
        require(packet.get_payload_size() == 0, "the packet is left empty");
    }

    void createFragments() {
        unsigned char unit[] = {1, 2, 3, 4};
        CTalRtpPacket packet(100);
        const int count = m_input.within(1, 4);
        require(m_session->CreateFuaPackets(aTimestamp(), 4, unit, count, &packet) == (count == 1 ? 0 : -1),
                "the base session cuts nothing");
    }

    void arrive(CTalRtpPacket& packet) {
        const std::uint64_t before = m_session->m_receivedPacketNumber;
        require(m_session->InputReceivedData(packet.get_buffer(), packet.get_packet_size(), m_now) == 0,
                "its own packets are taken in");
        require(m_session->m_receivedPacketNumber == before + 1, "and counted");
    }

    // --- Receiving ---

    // Any bytes after a valid header.
    Bytes datagram(unsigned int payloadType) {
        const std::uint32_t words[] = {0x80U << 24 | payloadType << 16 | aNumber(), aTimestamp(), 5};
        Bytes bytes;
        for (const std::uint32_t word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                bytes.push_back(static_cast<unsigned char>(word >> shift));
            }
        }
        const Bytes payload = m_input.bytes(m_input.within<std::size_t>(0, 60));
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }

    void receive() {
        ExactBuffer bytes(datagram(m_input.within(0, 3) == 3 ? 111 : 98));
        require(m_session->InputReceivedData(bytes.data(), bytes.size(), m_now) == 0,
                "a valid packet is taken in");
    }

    // The operations that run after validation.
    void takePacket() {
        const unsigned int type = m_input.flag() ? 111 : 98;
        ExactBuffer bytes(datagram(type));
        if (type == 98) {
            auto packet = std::make_unique<CTalRtpPacket>(bytes.data(), bytes.size());
            require(m_session->inputReceivedMediaPacket(packet.release()) == 0, "a packet is taken");
        } else if (m_fecType == RTP_FEC_XOR) {
            auto packet = std::make_unique<CRTPFECPacket>(bytes.data(), bytes.size());
            require(m_session->inputReceivedFECPacket(packet.release()) == 0, "an XOR packet is taken");
        } else {
            auto packet = std::make_unique<CRTPRSPacket>(bytes.data(), bytes.size());
            require(m_session->inputReceivedFECPacket(packet.release()) == 0, "an RS packet is taken");
        }
    }

    void parity() {
        auto entry = m_session->m_mediaPacketList.find(aNumber());
        if (entry == m_session->m_mediaPacketList.end()) {
            return;
        }
        CTalRtpPacket& media = *entry->second;
        const int room = media.get_packet_size() + 20;
        if (m_fecType == RTP_FEC_XOR) {
            CRTPFECPacket packet(room);
            require(m_session->CreateXorFecPackets(&media, 1, 1, &packet) == 0, "XOR parity is made");
            arrive(packet);
        } else {
            CTalRtpPacket packet(room);
            require(m_session->CreateRsFecPackets(&media, 1, &packet, 1) == 0, "RS parity is made");
            arrive(packet);
        }
    }

    void forceOne() {
        if (CTalRtpPacket* const packet = m_session->getMediaPacketBySeq(aNumber())) {
            m_session->forceHandoverPacket(packet);
        }
    }

    void deliverOne() {
        if (CTalRtpPacket* const packet = m_session->getMediaPacketBySeq(aNumber())) {
            m_sink.isDirect = true;
            m_session->deliverPacket(packet);
            m_sink.isDirect = false;
        }
    }

    // Rebuilds a packet by hand, which stays the host's.
    void recoverOne() {
        const std::uint16_t seq = aNumber();
        for (const auto& entry : m_session->m_fecPacketList) {
            if (auto* const fec = dynamic_cast<CRTPFECPacket*>(entry.second)) {
                const std::unique_ptr<CTalRtpPacket> packet(m_session->recoverPacket(seq, fec));
                require(packet == nullptr || packet->get_sequence_number() == seq, "it has its number");
                return;
            }
        }
    }

    // Notes a stored packet once more, or takes the note of an FEC packet back.
    void noteAgain() {
        const std::uint16_t seq = aNumber();
        if (const CTalRtpPacket* const packet = m_session->getMediaPacketBySeq(seq)) {
            m_session->updateMediaDataInfo(packet->get_timestamp(), seq);
        }
        const std::uint16_t fecSeq = aNumber();
        if (const CTalRtpPacket* const packet = m_session->getFECPacketBySeq(fecSeq)) {
            m_session->removeFECInfoFromList(packet->get_timestamp(), fecSeq);
            m_session->updateFECListInfo(packet->get_timestamp(), fecSeq);
        }
    }

    void passNulls() {
        unsigned char byte = 1;
        CTalRtpPacket packet(20);
        bool keep = true;
        require(m_session->inputReceivedMediaPacket(nullptr) == -1, "no packet");
        require(m_session->inputReceivedFECPacket(nullptr) == -1, "no FEC packet");
        require(m_session->setPacketHeader(1, nullptr) == -1, "no packet for a header");
        require(m_session->setPacketPayload(1, 1, 1, nullptr, &packet) == -1, "no data");
        require(m_session->setPacketPayload(1, 1, 1, &byte, nullptr) == -1, "no packet for a payload");
        require(m_session->setPacketPayload(m_input.within(2, 3), 2, 1, &byte, &packet) == -1, "no piece");
        require(m_session->recoverPacket(1, nullptr) == nullptr, "nothing to rebuild from");
        m_session->dealPacket(nullptr);
        m_session->deliverPacket(nullptr);
        m_session->forceHandoverPacket(nullptr);
        m_session->recoverPacketWithFEC(nullptr, keep);
        require(!keep, "nothing is not kept");
    }

    // Any step, and those at the edges of half the circle.
    void updateTimestamp() {
        for (const std::uint32_t step : {m_input.any<std::uint32_t>(), 0U, 1U, 0x80000000U, 0x80000001U}) {
            const std::uint32_t before = m_session->m_receivedTS;
            const bool isNewer = step != 0 && step <= 0x80000000U;
            require(m_session->updateReceivedTS(before + step) == isNewer, "a newer timestamp is stored");
            require(m_session->m_receivedTS == (isNewer ? before + step : before), "and no other");
        }
    }

    void clear() {
        m_session->clearAllList();
        require(m_session->m_mediaPacketList.empty() && m_session->m_fecPacketList.empty() &&
                    m_session->m_recoverPacketList.empty() && m_session->m_tsInfoList.empty(),
                "nothing is left");
    }

    // --- The claims ---

    void checkLists() {
        require(!m_hasSink || m_session->m_deliveredDataBytes == m_sink.bytes,
                "the sink got what is counted");
        require(m_hasSink || m_session->m_deliveredDataBytes == 0, "without a sink nothing is delivered");
        require(m_session->m_recoverPacketList.empty(), "what was rebuilt is dealt");
        std::size_t noted = 0;
        for (const auto& entry : m_session->m_tsInfoList) {
            for (const auto& unit : entry.second->dataInfoMap) {
                require(unit.second->startSeq == unit.first && unit.second->packetCount >= 1,
                        "a unit is filed under its start");
            }
            noted += entry.second->mediaSeqList.size();
        }
        require(noted >= m_session->m_mediaPacketList.size(), "every packet is noted");
        for (const auto& entry : m_session->m_mediaPacketList) {
            require(entry.second->get_sequence_number() == entry.first, "a packet is filed under its number");
            require(m_session->getMediaPacketBySeq(entry.first) == entry.second, "and found by it");
            require(m_session->m_tsInfoList.count(entry.second->get_timestamp()) == 1,
                    "and its timestamp has a record");
        }
        for (const auto& entry : m_session->m_fecPacketList) {
            require(m_session->getFECPacketBySeq(entry.first) == entry.second, "an FEC packet is found");
        }
        const std::uint16_t seq = 65530;
        const bool isStored = m_session->m_mediaPacketList.count(seq) == 1;
        require((m_session->getMediaPacketBySeq(seq) != nullptr) == isStored, "only what is stored is found");
        require(m_session->getRecoverPacketBySeq(seq) == nullptr, "nothing waits to be dealt");
    }

    // One of a few numbers round the wrap-around, so that packets meet.
    std::uint16_t aNumber() { return static_cast<std::uint16_t>(m_input.within(0, 23) + 65524); }
    std::uint32_t aTimestamp() { return m_input.within(0U, 3U) * 1000 - 2000; }

    Trace m_trace;
    InputReader& m_input;
    bool m_hasSink;
    CountingSink m_sink;
    std::unique_ptr<OwnSession> m_session;
    unsigned long m_fecType;
    unsigned long m_now = 100000;
};

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int get_external_trace_mask(void) {
    return talrtp::fuzz::s_traceMask;
}

extern "C" void util_adapter_trace(int level, const char*, const char* text, unsigned int length) {
    talrtp::fuzz::checkLine(level, text, length);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    talrtp::fuzz::InputReader input(data, size);
    talrtp::fuzz::Run(input).play();
    return 0;
}

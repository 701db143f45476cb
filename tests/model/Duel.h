// The library's session and the plain model, side by side: both get the same calls, and what is visible of
// them afterwards is compared.
//
//   const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, kHasSink, kIsDerived);
//   EXPECT_EQ("", duel->play(action, true));
//   EXPECT_EQ("", duel->close());
//
// Nothing is put into words as long as both are alike, so that a fuzzer can play many calls in a second.

#ifndef TALRTP_TESTS_MODEL_DUEL_H
#define TALRTP_TESTS_MODEL_DUEL_H

#include "DocumentedLeak.h"
#include "Probe.h"
#include "RecordingSink.h"
#include "TraceCatcher.h"
#include "model/Action.h"
#include "model/ListChanges.h"
#include "model/ReceiveModel.h"

#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace talrtp {
namespace model {

constexpr unsigned int kSourceId = 4711;
constexpr std::size_t kPacketsCompared = 150;  // byte for byte after each call; above this, now and then
constexpr int kNowAndThen = 16;
constexpr int kShortestDatagram = 12;

// ---------------------------------------------------------------------------------------- What differs

template <typename Value>
std::string differ(const char* what, const Value& library, const Value& model) {
    if (library == model) {
        return std::string();
    }
    std::ostringstream out;
    out << what << ": library " << library << ", model " << model << "\n";
    return out.str();
}

// The difference with the place where it was found before it.
inline std::string at(const std::string& place, const std::string& difference) {
    return difference.empty() ? difference : place + ": " + difference;
}

// Compares bytes of the library, at `library`, with as many of the model.
inline std::string differInBytes(const char* what, const unsigned char* library, const Bytes& model) {
    if (model.empty() || std::memcmp(library, model.data(), model.size()) == 0) {
        return std::string();
    }
    std::size_t i = 0;
    while (library[i] == model[i]) {
        ++i;
    }
    return at(what, at("byte " + std::to_string(i), differ<int>("value", library[i], model[i])));
}

inline std::string differInHandOver(const test::Handover& library, const HandOver& model) {
    const std::string text =
        differ("packet type", library.packetType, model.packetType) +
        differ("packet size", library.packetSize, model.packetSize) +
        differ("payload size", static_cast<int>(library.payload.size()), model.payloadSize) +
        differ("buffer size", library.bufferSize, model.bufferSize) +
        differ("header size", library.header.size(), model.header.size()) +
        differ("payload bytes", library.payload.size(), model.payload.size());
    if (!text.empty()) {
        return text;
    }
    return differInBytes("header", library.header.data(), model.header) +
           differInBytes("payload", library.payload.data(), model.payload);
}

inline std::string differInHandOvers(const std::vector<test::Handover>& library,
                                     const std::vector<HandOver>& model) {
    std::string text = differ("hand-overs", library.size(), model.size());
    for (std::size_t i = 0; i < std::min(library.size(), model.size()) && text.empty(); ++i) {
        text = differInHandOver(library[i], model[i]);
        if (!text.empty()) {
            text = at("hand-over " + std::to_string(i), text);
        }
    }
    return text;
}

// Compares the text from `library` to `end`, where every pointer value stands for the "0xP" of the model.
inline bool isSameMessage(const char* library, const char* end, const std::string& model) {
    static const char kPointer[] = "0xP";
    static const std::size_t kPointerSize = sizeof kPointer - 1;
    std::size_t done = 0;
    for (std::size_t pointer = model.find(kPointer); pointer != std::string::npos;
         pointer = model.find(kPointer, done)) {
        const std::size_t before = pointer + 2 - done;
        if (static_cast<std::size_t>(end - library) < before ||
            std::memcmp(library, model.data() + done, before) != 0) {
            return false;
        }
        library += before;
        library += std::strspn(library, "0123456789abcdef");
        done = pointer + kPointerSize;
    }
    const std::size_t rest = model.size() - done;
    return static_cast<std::size_t>(end - library) == rest &&
           std::memcmp(library, model.data() + done, rest) == 0;
}

inline std::string differInLine(const test::TraceLine& library, const Line& model) {
    static const char* const kPrefixes[] = {
        "[TAL] ERROR: [TalRtp]: ", "[TAL] WARNING: [TalRtp]: ", "[TAL] INFO: [TalRtp]: "};
    const char* const prefix = kPrefixes[model.level];
    const std::size_t prefixSize = std::strlen(prefix);
    const std::string& text = library.text;
    const char* const begin = text.c_str();
    const std::size_t position = text.rfind("[src/rtp/");
    const char* const end =
        begin + (position == std::string::npos || text.back() != ']' ? text.size() : position);
    const bool isAlike = library.level == model.level && text.compare(0, prefixSize, prefix) == 0 &&
                         position != 0 && isSameMessage(begin + prefixSize, end, model.message) &&
                         library.tag == "TAL" && library.length == text.size();
    if (isAlike) {
        return std::string();
    }
    std::ostringstream out;
    out << "library " << library << ", model " << model.level << " " << model.message << "\n";
    return out.str();
}

inline std::string differInLines(const std::vector<test::TraceLine>& library,
                                 const std::vector<Line>& model) {
    for (std::size_t i = 0; i < std::min(library.size(), model.size()); ++i) {
        const std::string text = differInLine(library[i], model[i]);
        if (!text.empty()) {
            return at("line " + std::to_string(i), text);
        }
    }
    return differ("lines", library.size(), model.size());
}

inline bool isOfKind(CTalRtpPacket* packet, PacketKind kind) {
    const bool isXor = dynamic_cast<CRTPFECPacket*>(packet) != nullptr;
    const bool isRs = dynamic_cast<CRTPRSPacket*>(packet) != nullptr;
    return isXor == (kind == PacketKind::kXorFec) && isRs == (kind == PacketKind::kRsFec);
}

inline std::string differInPacket(CTalRtpPacket* library, const PlainPacket& model) {
    const std::string text = differ("packet size", library->get_packet_size(), model.packetSize) +
                             differ("payload size", library->get_payload_size(), model.payloadSize) +
                             differ("buffer size", library->get_buffer_size(), model.bufferSize) +
                             differ("packet type", library->get_packet_type(), model.packetType) +
                             differ("is of its kind", isOfKind(library, model.kind), true);
    if (!text.empty()) {
        return text;
    }
    const std::size_t size = static_cast<std::size_t>(model.packetSize);
    if (model.bytes.size() >= size && std::memcmp(library->get_buffer(), model.bytes.data(), size) == 0) {
        return std::string();
    }
    return differInBytes("packet", library->get_buffer(), model.head(model.packetSize));
}

template <typename PacketMap>
std::string differInPackets(const char* list, const PacketMap& library, const ReceiveModel::PacketMap& model,
                            bool comparesPackets) {
    std::string text = differ("packets", library.size(), model.size());
    auto expected = model.begin();
    for (auto actual = library.begin(); text.empty() && actual != library.end(); ++actual, ++expected) {
        if (actual->first != expected->first || actual->second == nullptr) {
            text = differ<int>("key", actual->first, expected->first) +
                   differ("null", actual->second == nullptr, false);
        } else if (comparesPackets) {
            text = differInPacket(actual->second, expected->second);
            if (!text.empty()) {
                text = at(std::to_string(expected->first), text);
            }
        }
    }
    return text.empty() ? text : at(list, text);
}

inline std::string differInUnit(const stTalRtpDataInfo* library, const DataInfo& model) {
    if (library == nullptr) {
        return "unit record is null\n";
    }
    return differ("unit startSeq", library->startSeq, model.startSeq) +
           differ("unit packetCount", library->packetCount, model.packetCount) +
           differ("unit delivered", library->delivered, model.delivered) +
           differ("unit complete", library->complete, model.complete);
}

template <typename SeqList>
std::string differInNumbers(const char* list, const SeqList& library, const std::list<std::uint16_t>& model) {
    const bool alike = std::equal(library.begin(), library.end(), model.begin(), model.end());
    return alike ? std::string() : std::string(list) + " differs\n";
}

inline std::string differInRecord(const stTalRtpTSInfo* library, const TimestampInfo& model) {
    if (library == nullptr) {
        return "record is null\n";
    }
    std::string text = differ("createTime", library->createTime, model.createTime) +
                       differ("updateTime", library->updateTime, model.updateTime) +
                       differ("units", library->dataInfoMap.size(), model.dataInfoMap.size()) +
                       differInNumbers("mediaSeqList", library->mediaSeqList, model.mediaSeqList) +
                       differInNumbers("fecSeqList", library->fecSeqList, model.fecSeqList);
    auto expected = model.dataInfoMap.begin();
    for (auto actual = library->dataInfoMap.begin(); text.empty() && expected != model.dataInfoMap.end();
         ++actual, ++expected) {
        text = differ("unit key", actual->first, expected->first) +
               differInUnit(actual->second, expected->second);
    }
    return text;
}

// ------------------------------------------------------------------------------------------------- A duel

class Duel {
public:
    virtual ~Duel() = default;

    virtual const ReceiveModel& model() const = 0;
    // Makes one call on both sides. Returns what differs afterwards, nothing when all is alike.
    virtual std::string play(const Action& action, bool comparesState) = 0;
    // Makes one change to the lists of both sides, as the draw decides. The session has to be a derived one.
    // Returns what differs afterwards.
    virtual std::string changeLists(std::uint64_t draw) = 0;
    // Destroys the session. Returns what differs in its last lines.
    virtual std::string close() = 0;
};

template <typename Session>
class DuelOf : public Duel {
public:
    // The library's session is of the library's class, which asks no hooks, or of a derived one.
    DuelOf(bool hasSink, SessionKind kind, bool isDerived) : m_trace(2), m_model(hasSink, kSourceId, kind) {
        ITalRTPSessionSink* const sink = hasSink ? &m_sink : nullptr;
        m_session.reset(isDerived ? new test::Probe<Session>(sink, kSourceId) : new Session(sink, kSourceId));
    }

    const ReceiveModel& model() const override { return m_model; }

    std::string play(const Action& action, bool comparesState) override {
        m_trace.clear();
        m_sink.handovers.clear();
        m_model.handOvers.clear();
        m_model.lines.clear();
        ++m_calls;
        std::string text = differInResult(action);
        text += differInLines(m_trace.lines(), m_model.lines);
        text += differInHandOvers(m_sink.handovers, m_model.handOvers);
        return comparesState ? text + differInState() : text;
    }

    std::string changeLists(std::uint64_t draw) override {
        ListChanges<Member>(static_cast<Member&>(*m_session), m_model, m_exchanged, draw).makeOne();
        return differInState();
    }

    std::string close() override {
        m_trace.clear();
        m_sink.handovers.clear();
        m_model.lines.clear();
        m_session.reset();
        m_model.close();
        return differInLines(m_trace.lines(), m_model.lines) +
               differ<std::size_t>("hand-overs of a session being destroyed", m_sink.handovers.size(), 0);
    }

private:
    typedef test::Probe<Session> Member;

    template <typename Value>
    const Value& read(Value CMMRTPSessionBase::*member) const {
        return (*m_session).*member;
    }

    std::string differInResult(const Action& action) {
        switch (action.kind) {
            case Action::kInput:
                return differInInput(action);
            case Action::kForceHandover:
                return differ("result", m_session->ForceHandover(action.first),
                              m_model.forceHandover(action.first));
            case Action::kSetPayloadType:
                return differ("result", m_session->SetPayloadType(action.first, action.second),
                              m_model.setPayloadType(action.first, action.second));
            case Action::kSetFecType:
                return differ("result", m_session->SetFecType(action.first),
                              m_model.setFecType(action.first));
            case Action::kSetMask:
                m_model.mask = static_cast<int>(static_cast<long>(action.first));
                m_trace.setMask(m_model.mask);
                return std::string();
        }
        return "unknown action\n";
    }

    // The bytes have a block of exactly their size, so that a sanitizer sees any access beyond them.
    std::string differInInput(const Action& action) {
        std::unique_ptr<unsigned char[]> block(new unsigned char[action.data.size()]);
        std::copy(action.data.begin(), action.data.end(), block.get());
        unsigned char* const data = action.isNull ? nullptr : block.get();
        const int model = m_model.inputReceivedData(data, action.length, action.time);
        std::unique_ptr<test::DocumentedLeak> leak;
        if (model == -1 && data != nullptr && action.length >= kShortestDatagram) {
            leak.reset(new test::DocumentedLeak);
        }
        const int library = m_session->InputReceivedData(data, action.length, action.time);
        return differ("result", library, model);
    }

    std::string differInState() {
        const std::size_t packets = m_model.mediaPackets.size() + m_model.fecPackets.size();
        const bool comparesPackets = packets <= kPacketsCompared || m_calls % kNowAndThen == 0;
        return differInSettings() + differInCounters() +
               differInPackets("media", read(&Member::m_mediaPacketList), m_model.mediaPackets,
                               comparesPackets) +
               differInPackets("FEC", read(&Member::m_fecPacketList), m_model.fecPackets, comparesPackets) +
               differInPackets("rebuilt", read(&Member::m_recoverPacketList), m_model.recoveredPackets,
                               comparesPackets) +
               differInRecords();
    }

    std::string differInSettings() const {
        return differ<std::uint64_t>("first time", read(&Member::m_firstReceivedTime),
                                     m_model.firstReceivedTime) +
               differ<std::uint64_t>("last time", read(&Member::m_lastReceivedTime),
                                     m_model.lastReceivedTime) +
               differ("first flag", read(&Member::m_isFirstReceived), m_model.isFirstReceived) +
               differ<std::uint32_t>("received timestamp", read(&Member::m_receivedTS), 0) +
               differ<std::uint32_t>("payload type", read(&Member::m_payloadType), m_model.payloadType) +
               differ<std::uint32_t>("FEC payload type", read(&Member::m_fecPayloadType),
                                     m_model.fecPayloadType) +
               differ<std::uint32_t>("FEC type", read(&Member::m_fecType), m_model.fecType);
    }

    std::string differInCounters() const {
        const Counters& model = m_model.counters;
        typedef std::uint64_t Count;
        return differ<Count>("received", read(&Member::m_receivedPacketNumber), model.receivedPackets) +
               differ<Count>("received bytes", read(&Member::m_receivedPacketBytes), model.receivedBytes) +
               differ<Count>("media", read(&Member::m_receivedMediaPacketNumber), model.receivedMedia) +
               differ<Count>("valid media", read(&Member::m_receivedValidMediaPacketNumber),
                             model.validMedia) +
               differ<Count>("valid media bytes", read(&Member::m_receivedValidMediaPacketBytes),
                             model.validMediaBytes) +
               differ<Count>("FEC", read(&Member::m_receivedFECPacketNumber), model.receivedFec) +
               differ<Count>("valid FEC", read(&Member::m_receivedValidFECPacketNumber), model.validFec) +
               differ<Count>("valid FEC bytes", read(&Member::m_receivedValidFECPacketBytes),
                             model.validFecBytes) +
               differ<Count>("recovered", read(&Member::m_recoveredMediaPacketNumber), model.recovered) +
               differ<Count>("recovered bytes", read(&Member::m_recoveredMediaPacketBytes),
                             model.recoveredBytes) +
               differ<Count>("delivered bytes", read(&Member::m_deliveredDataBytes), model.deliveredBytes);
    }

    std::string differInRecords() const {
        const auto& library = read(&Member::m_tsInfoList);
        std::string text = differ("timestamps", library.size(), m_model.timestamps.size());
        auto expected = m_model.timestamps.begin();
        for (auto actual = library.begin(); text.empty() && actual != library.end(); ++actual, ++expected) {
            text = differ("timestamp", actual->first, expected->first) +
                   differInRecord(actual->second, expected->second);
            if (!text.empty()) {
                text = "timestamp " + std::to_string(expected->first) + ": " + text;
            }
        }
        return text;
    }

    test::TraceCatcher m_trace;
    test::RecordingSink m_sink;
    ReceiveModel m_model;
    typename ListChanges<Member>::Packets m_exchanged;
    std::unique_ptr<Session> m_session;
    int m_calls = 0;
};

// `isDerived`: the session is of a derived class, whose hooks may be overridden, and not of its own.
inline std::unique_ptr<Duel> makeDuel(SessionKind kind, bool hasSink, bool isDerived) {
    if (kind == SessionKind::kBase) {
        return std::unique_ptr<Duel>(new DuelOf<CMMRTPSessionBase>(hasSink, kind, isDerived));
    }
    return std::unique_ptr<Duel>(new DuelOf<CMMRTPSession4SVC>(hasSink, kind, isDerived));
}

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_DUEL_H

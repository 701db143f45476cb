// Holds the library's receiving side against the plain model: both get the same calls, and after each one
// every hand-over, result, trace line, counter, list and record must be alike.
//
//   DifferentialTest                                  the normal run, 100,000 calls over all kinds of traffic
//   DifferentialTest --datagrams=5000000 --seed=7     the long one: more calls, another draw
//
// Options of GoogleTest select single kinds of traffic as usual. What fails prints its seed and its last
// calls.

#include "DocumentedLeak.h"
#include "TraceCatcher.h"
#include "model/ReceiveModel.h"
#include "model/Traffic.h"

#include <talrtp/talrtp.h>

#include <gtest/gtest.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace talrtp {
namespace model {
namespace {

constexpr unsigned int kSourceId = 4711;
constexpr int kKindsOfTraffic = 10;
constexpr int kSessionLength = 2500;           // datagrams until both sides start again
constexpr std::size_t kPacketsCompared = 150;  // byte for byte after each call; above this, now and then
constexpr int kNowAndThen = 16;
constexpr int kDerivedPercent = 50;
constexpr int kShortestDatagram = 12;

std::uint64_t g_datagrams = 100000;
std::uint64_t g_seed = 20240229;

HandOver copyOf(CTalRtpPacket& packet) {
    const int size = packet.get_payload_size();
    return {Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_header_size()),
            Bytes(packet.get_payload_ptr(), packet.get_payload_ptr() + size),
            packet.get_packet_type(),
            packet.get_packet_size(),
            size,
            packet.get_buffer_size()};
}

class RecordingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override { handOvers.push_back(copyOf(*packet)); }

    std::vector<HandOver> handOvers;
};

// A derived class that overrides nothing, and through which the state of any session can be read.
template <typename Session>
class Probe : public Session {
public:
    using Session::m_deliveredDataBytes;
    using Session::m_fecPacketList;
    using Session::m_fecPayloadType;
    using Session::m_fecType;
    using Session::m_firstReceivedTime;
    using Session::m_isFirstReceived;
    using Session::m_lastReceivedTime;
    using Session::m_mediaPacketList;
    using Session::m_payloadType;
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
    using Session::m_tsInfoList;

    explicit Probe(ITalRTPSessionSink* sink) : Session(sink, kSourceId) {}
};

// ---------------------------------------------------------------------------------------- What differs

template <typename Value>
std::string differ(const std::string& what, const Value& library, const Value& model) {
    if (library == model) {
        return std::string();
    }
    std::ostringstream out;
    out << what << ": library " << library << ", model " << model << "\n";
    return out.str();
}

std::string differInBytes(const std::string& what, const Bytes& library, const Bytes& model) {
    std::string text = differ(what + " size", library.size(), model.size());
    for (std::size_t i = 0; text.empty() && i < library.size(); ++i) {
        text = differ<int>(what + " byte " + std::to_string(i), library[i], model[i]);
    }
    return text;
}

std::string differInHandOver(const std::string& what, const HandOver& library, const HandOver& model) {
    return differ(what + " packet type", library.packetType, model.packetType) +
           differ(what + " packet size", library.packetSize, model.packetSize) +
           differ(what + " payload size", library.payloadSize, model.payloadSize) +
           differ(what + " buffer size", library.bufferSize, model.bufferSize) +
           differInBytes(what + " header", library.header, model.header) +
           differInBytes(what + " payload", library.payload, model.payload);
}

std::string differInHandOvers(const std::vector<HandOver>& library, const std::vector<HandOver>& model) {
    std::string text = differ("hand-overs", library.size(), model.size());
    for (std::size_t i = 0; i < std::min(library.size(), model.size()) && text.empty(); ++i) {
        text = differInHandOver("hand-over " + std::to_string(i), library[i], model[i]);
    }
    return text;
}

// The message with "0xP" for every pointer.
std::string withoutPointers(std::string message) {
    for (std::size_t at = message.find("0x"); at != std::string::npos; at = message.find("0x", at + 3)) {
        const std::size_t end = message.find_first_not_of("0123456789abcdef", at + 2);
        message.replace(at + 2, (end == std::string::npos ? message.size() : end) - at - 2, "P");
    }
    return message;
}

std::string describeLine(int level, const std::string& message) {
    return std::to_string(level) + " " + message;
}

std::string differInLines(const std::vector<test::TraceLine>& library, const std::vector<Line>& model) {
    static const char* const kPrefixes[] = {
        "[TAL] ERROR: [TalRtp]: ", "[TAL] WARNING: [TalRtp]: ", "[TAL] INFO: [TalRtp]: "};
    std::string text;
    for (std::size_t i = 0; i < std::max(library.size(), model.size()) && text.empty(); ++i) {
        const std::string actual = i < library.size()
                                       ? describeLine(library[i].level, withoutPointers(library[i].message()))
                                       : "none";
        const std::string expected =
            i < model.size() ? describeLine(model[i].level, model[i].message) : "none";
        text = differ("line " + std::to_string(i), actual, expected);
        if (text.empty()) {
            text = differ("prefix",
                          library[i].text.compare(0, std::strlen(kPrefixes[model[i].level]),
                                                  kPrefixes[model[i].level]),
                          0) +
                   differ<std::string>("tag", library[i].tag, "TAL") +
                   differ<std::size_t>("line length", library[i].length, library[i].text.size());
        }
    }
    return text;
}

bool isOfKind(CTalRtpPacket* packet, PacketKind kind) {
    const bool isXor = dynamic_cast<CRTPFECPacket*>(packet) != nullptr;
    const bool isRs = dynamic_cast<CRTPRSPacket*>(packet) != nullptr;
    return isXor == (kind == PacketKind::kXorFec) && isRs == (kind == PacketKind::kRsFec);
}

std::string differInPacket(const std::string& what, CTalRtpPacket* library, const PlainPacket& model) {
    const std::string text = differ(what + " packet size", library->get_packet_size(), model.packetSize) +
                             differ(what + " payload size", library->get_payload_size(), model.payloadSize) +
                             differ(what + " buffer size", library->get_buffer_size(), model.bufferSize) +
                             differ(what + " packet type", library->get_packet_type(), model.packetType) +
                             differ(what + " is of its kind", isOfKind(library, model.kind), true);
    if (!text.empty()) {
        return text;
    }
    const unsigned char* const buffer = library->get_buffer();
    const std::size_t size = static_cast<std::size_t>(model.packetSize);
    if (model.bytes.size() >= size && std::equal(buffer, buffer + size, model.bytes.begin())) {
        return std::string();
    }
    return differInBytes(what, Bytes(buffer, buffer + size), model.head(model.packetSize));
}

template <typename PacketMap>
std::string differInPackets(const char* list, const PacketMap& library, const ReceiveModel::PacketMap& model,
                            bool comparesPackets) {
    const std::string sizes = differ(std::string(list) + " packets", library.size(), model.size());
    auto expected = model.begin();
    for (auto actual = library.begin(); sizes.empty() && actual != library.end(); ++actual, ++expected) {
        if (actual->first != expected->first || actual->second == nullptr) {
            return differ<int>(std::string(list) + " key", actual->first, expected->first) +
                   differ(std::string(list) + " null", actual->second == nullptr, false);
        }
        if (comparesPackets) {
            const std::string text = differInPacket(list, actual->second, expected->second);
            if (!text.empty()) {
                return std::string(list) + " " + std::to_string(expected->first) + ": " + text;
            }
        }
    }
    return sizes;
}

std::string differInUnit(const stTalRtpDataInfo* library, const DataInfo& model) {
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

std::string differInRecord(const stTalRtpTSInfo* library, const TimestampInfo& model) {
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

// The library's session and the model, side by side.
class Duel {
public:
    virtual ~Duel() = default;

    virtual const ReceiveModel& model() const = 0;
    // Makes one call on both sides. Returns what differs afterwards, nothing when all is alike.
    virtual std::string play(const Action& action, bool comparesState) = 0;
    // Destroys the session. Returns what differs in its last lines.
    virtual std::string close() = 0;
};

template <typename Session>
class DuelOf : public Duel {
public:
    // The library's session is of its own class, which spares it virtual calls, or of a derived one.
    DuelOf(bool hasSink, SessionKind kind, bool isDerived) : m_trace(2), m_model(hasSink, kSourceId, kind) {
        ITalRTPSessionSink* const sink = hasSink ? &m_sink : nullptr;
        m_session.reset(isDerived ? new Probe<Session>(sink) : new Session(sink, kSourceId));
    }

    const ReceiveModel& model() const override { return m_model; }

    std::string play(const Action& action, bool comparesState) override {
        m_trace.clear();
        m_sink.handOvers.clear();
        m_model.handOvers.clear();
        m_model.lines.clear();
        ++m_calls;
        std::string text = differInResult(action);
        text += differInLines(m_trace.lines(), m_model.lines);
        text += differInHandOvers(m_sink.handOvers, m_model.handOvers);
        return comparesState ? text + differInState() : text;
    }

    std::string close() override {
        m_trace.clear();
        m_sink.handOvers.clear();
        m_model.lines.clear();
        m_session.reset();
        m_model.close();
        return differInLines(m_trace.lines(), m_model.lines) +
               differ<std::size_t>("hand-overs of a session being destroyed", m_sink.handOvers.size(), 0);
    }

private:
    typedef Probe<Session> Member;

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

    // The bytes lie alone in a block of their own size, so that a sanitizer sees any access behind them.
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
    RecordingSink m_sink;
    ReceiveModel m_model;
    std::unique_ptr<Session> m_session;
    int m_calls = 0;
};

std::unique_ptr<Duel> makeDuel(SessionKind kind, bool hasSink, bool isDerived) {
    if (kind == SessionKind::kBase) {
        return std::unique_ptr<Duel>(new DuelOf<CMMRTPSessionBase>(hasSink, kind, isDerived));
    }
    return std::unique_ptr<Duel>(new DuelOf<CMMRTPSession4SVC>(hasSink, kind, isDerived));
}

// ------------------------------------------------------------------------------------------------ The tests

// What a run met, so that a test can tell that its traffic did what it is for.
struct Met {
    std::uint64_t handOvers = 0;
    std::uint64_t recovered = 0;
    std::uint64_t refused = 0;
    std::uint64_t forced = 0;
    std::uint64_t agedOut = 0;
};

class DifferentialTest : public ::testing::Test {
protected:
    // Plays one kind of traffic, session after session.
    Met play(const Profile& profile) {
        Met met;
        Random random(g_seed * 1000003 + std::hash<std::string>()(profile.name));
        RecordProperty("seed", std::to_string(g_seed));
        for (std::uint64_t left = g_datagrams / kKindsOfTraffic; left > 0 && !HasFatalFailure();) {
            const std::uint64_t now = std::min<std::uint64_t>(left, kSessionLength);
            playSession(random, profile, static_cast<int>(now), met);
            left -= now;
        }
        return met;
    }

private:
    void playSession(Random& random, const Profile& profile, int datagrams, Met& met) {
        const std::unique_ptr<Duel> duel =
            makeDuel(profile.session, !random.percent(4), random.percent(kDerivedPercent));
        Traffic traffic(random, profile, duel->model());
        std::deque<std::string> lastCalls;
        while (datagrams > 0) {
            const Action action = traffic.next();
            const std::size_t recordsBefore = duel->model().timestamps.size();
            const std::string difference = duel->play(action, true);
            if (!difference.empty()) {
                lastCalls.push_back(action.describe());
                FAIL() << report(profile, difference, lastCalls);
            }
            lastCalls.push_back(action.describe());
            if (lastCalls.size() > 5) {
                lastCalls.pop_front();
            }
            count(action, *duel, recordsBefore, met);
            datagrams -= action.kind == Action::kInput ? 1 : 0;
        }
        met.recovered += duel->model().counters.recovered;
        ASSERT_EQ("", duel->close()) << "seed " << g_seed << ", " << profile.name;
    }

    static void count(const Action& action, const Duel& duel, std::size_t recordsBefore, Met& met) {
        const ReceiveModel& model = duel.model();
        met.handOvers += model.handOvers.size();
        met.forced += action.kind == Action::kForceHandover ? model.handOvers.size() : 0;
        met.agedOut += model.timestamps.size() < recordsBefore ? 1 : 0;
        for (const Line& line : model.lines) {
            met.refused += line.message.find("validate failed") != std::string::npos ? 1 : 0;
        }
    }

    static std::string report(const Profile& profile, const std::string& difference,
                              const std::deque<std::string>& lastCalls) {
        std::string text = "seed " + std::to_string(g_seed) + ", " + profile.name + "\n" + difference;
        for (const std::string& call : lastCalls) {
            text += "  " + call + "\n";
        }
        return text;
    }
};

// name, fec, lost, burst, delayed, farthest, repeated, decorated, forged, small world, forced, tick,
// clock jumps, changes, near wrap, session

TEST_F(DifferentialTest, CleanStream) {
    const Met met =
        play({"clean stream", FecUse::kXor, 0, 0, 0, 0, 0, 10, 0, 0, 2, 60, 0, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.handOvers, 0U);
    EXPECT_EQ(met.recovered, 0U);
}

TEST_F(DifferentialTest, LossyStreamWithXor) {
    const Met met =
        play({"lossy XOR", FecUse::kXor, 8, 1, 20, 12, 3, 10, 0, 0, 4, 60, 1, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
}

TEST_F(DifferentialTest, LossyStreamWithReedSolomon) {
    const Met met =
        play({"lossy RS", FecUse::kRs, 10, 1, 20, 12, 3, 10, 0, 0, 4, 60, 1, 0, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
}

TEST_F(DifferentialTest, HostileDatagrams) {
    const Met met = play(
        {"hostile", FecUse::kEither, 5, 1, 20, 12, 5, 20, 30, 25, 5, 60, 2, 10, false, SessionKind::kSvc});
    EXPECT_GT(met.refused, 0U);
    EXPECT_GT(met.handOvers, 0U);
}

TEST_F(DifferentialTest, SmallWorldWhereEverythingMeets) {
    const Met met = play({"small world", FecUse::kEither, 5, 1, 20, 12, 5, 20, 20, 96, 12, 150, 6, 8, false,
                          SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.forced, 0U);
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, NumbersAndTimestampsThatWrapAround) {
    const Met met = play(
        {"wrap-around", FecUse::kEither, 8, 1, 20, 12, 3, 10, 2, 30, 6, 60, 2, 3, true, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
}

TEST_F(DifferentialTest, ClockThatStepsBothWays) {
    const Met met = play(
        {"clock steps", FecUse::kEither, 8, 1, 20, 12, 3, 10, 2, 40, 6, 60, 30, 3, false, SessionKind::kSvc});
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, AgeingAndLateRetransmission) {
    const Met met = play(
        {"ageing", FecUse::kEither, 8, 1, 30, 150, 10, 10, 2, 10, 6, 150, 10, 3, false, SessionKind::kSvc});
    EXPECT_GT(met.agedOut, 0U);
}

TEST_F(DifferentialTest, MixedTraffic) {
    const Met met =
        play({"mixed", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8, 20, 5, 15, false, SessionKind::kSvc});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.refused, 0U);
}

TEST_F(DifferentialTest, SessionWithoutKnowledgeOfH264) {
    const Met met = play({"base session", FecUse::kEither, 8, 2, 25, 30, 8, 20, 10, 40, 8, 10, 5, 10, false,
                          SessionKind::kBase});
    EXPECT_GT(met.recovered, 0U);
    EXPECT_GT(met.agedOut, 0U);
}

// ----------------------------------------------------------------------------------------- Calls by hand

constexpr unsigned int kTimestamp = 0x1000;

Action input(int payloadType, int seq, const Bytes& payload, std::uint64_t time) {
    // clang-format off
    const Bytes header = {0x80, static_cast<unsigned char>(payloadType),
                          static_cast<unsigned char>(seq >> 8), static_cast<unsigned char>(seq),
                          0, 0, kTimestamp >> 8, 0,
                          1, 2, 3, 4};
    // clang-format on
    Bytes data(header.size() + payload.size());
    std::copy(payload.begin(), payload.end(), std::copy(header.begin(), header.end(), data.begin()));
    const int length = static_cast<int>(data.size());
    return {Action::kInput, std::move(data), false, length, time, 0, 0};
}

Action setFecType(unsigned long fecType) {
    return {Action::kSetFecType, Bytes(), false, 0, 0, fecType, 0};
}

Action forceHandover() {
    return {Action::kForceHandover, Bytes(), false, 0, 0, kTimestamp, 0};
}

TEST(DifferentialFecKindTest, StoredXorPacketCountsAsTheParityShardOfItsNumber) {
    // clang-format off
    const Bytes protectsTwo = {0, 200, 0, 0,     // base 200 | length
                               0, 0xc0, 0, 0,    // payload type | mask: 200 and 201
                               0, 0, 0, 0,       // timestamp
                               99};              // parity
    Bytes secondOfTwo = {0, 220, 0, 0,           // base 220 | length
                         1, 2, 2, 0};            // index | parity packets | media packets | reserved
    // clang-format on
    secondOfTwo.resize(8 + 20, 55);
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", duel->play(setFecType(RTP_FEC_XOR), true));
    ASSERT_EQ("", duel->play(input(111, 100, protectsTwo, 1000), true));
    ASSERT_EQ("", duel->play(setFecType(RTP_FEC_RS), true));
    EXPECT_EQ("", duel->play(input(111, 101, secondOfTwo, 1000), true));
    // Two shards for two packets: it is decoded, to lengths of 0, and not kept.
    EXPECT_EQ(duel->model().lines.at(0).message,
              "CMMRTPSessionBase::recoverPacketWithRSFEC recover seq number is differ with request, "
              "fecSeq = 101, fecIndex = 1, fecBaseSeq = 100, fecNum = 2, packetBaseSeq = 220, packetNum = 2");
    EXPECT_EQ(duel->model().fecPackets.count(101), 0U);
    EXPECT_EQ("", duel->close());
}

constexpr int kNumbers = 65536;
constexpr int kLastStored = 501;
constexpr std::uint8_t kMiddle = 0x05;
constexpr std::uint8_t kStart = 0x85;

Action fragment(int seq, std::uint8_t fuHeader, std::uint64_t time) {
    return input(98, seq, {0x7c, fuHeader, static_cast<unsigned char>(seq * 7)}, time);
}

// Stores a fragment under every number: every second one first, the others from above, so that runs stay
// short until the last.
std::string storeAllNumbers(Duel& duel, std::uint8_t lastFuHeader) {
    std::string text;
    for (int i = 1; i < kNumbers && text.empty(); i += 2) {
        text = duel.play(fragment(kLastStored + i, kMiddle, 1000), false);
    }
    for (int i = kNumbers - 2; i > 0 && text.empty(); i -= 2) {
        text = duel.play(fragment(kLastStored + i, kMiddle, 1000), false);
    }
    return text + duel.play(fragment(kLastStored, lastFuHeader, 1000), true);
}

TEST(DifferentialFullListTest, NoFragmentStartsAnywhere) {
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", storeAllNumbers(*duel, kMiddle));
    EXPECT_EQ("", duel->play(forceHandover(), true));
    EXPECT_EQ("", duel->play(fragment(77, kStart, 6000), true));
    EXPECT_EQ("", duel->play(fragment(77, kStart, 6001), true));
    EXPECT_EQ(duel->model().mediaPackets.size(), 1U);
    EXPECT_EQ("", duel->close());
}

TEST(DifferentialFullListTest, OneRunGoesAllTheWayRound) {
    const std::unique_ptr<Duel> duel = makeDuel(SessionKind::kSvc, true, false);
    ASSERT_EQ("", storeAllNumbers(*duel, kStart));
    EXPECT_EQ(duel->model().timestamps.at(kTimestamp).dataInfoMap.at(kLastStored).packetCount, kNumbers);
    EXPECT_EQ("", duel->play(forceHandover(), true));
    EXPECT_EQ(duel->model().handOvers.size(), 1U);
    EXPECT_EQ("", duel->close());
}

bool readOption(const std::string& argument, const std::string& name, std::uint64_t& value) {
    if (argument.compare(0, name.size(), name) != 0) {
        return false;
    }
    value = std::strtoull(argument.c_str() + name.size(), nullptr, 10);
    return true;
}

}  // namespace
}  // namespace model
}  // namespace talrtp

int main(int argc, char** argv) {
#ifdef __GLIBC__
    mallopt(M_PERTURB, 0xa5);  // so that a byte which nobody wrote is never 0 by chance
#endif
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (!talrtp::model::readOption(argv[i], "--datagrams=", talrtp::model::g_datagrams) &&
            !talrtp::model::readOption(argv[i], "--seed=", talrtp::model::g_seed)) {
            std::fprintf(stderr, "unknown option %s; there are --datagrams=N and --seed=N\n", argv[i]);
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}

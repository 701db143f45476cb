// Traffic from the network and calls of a host that a session has to survive, drawn at random but repeatable
// by seed.
//
// Datagrams come from two sources. A stream is made by a sending session with its own FEC, and passes a
// channel that loses, delays, repeats and forges. Beside it stand packets of a small world: forged from
// scratch within few numbers and timestamps, so that fragments, FEC groups and forced hand-overs meet all the
// time.

#ifndef TALRTP_TESTS_MODEL_TRAFFIC_H
#define TALRTP_TESTS_MODEL_TRAFFIC_H

#include "model/Action.h"
#include "model/PlainPacket.h"
#include "model/ReceiveModel.h"

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace talrtp {
namespace model {

class Random {
public:
    explicit Random(std::uint64_t seed) : m_engine(seed) {}

    std::uint64_t next() { return m_engine(); }
    // 0 .. limit - 1.
    int below(int limit) { return static_cast<int>(next() % static_cast<std::uint64_t>(limit)); }
    // low .. high.
    int between(int low, int high) { return low + below(high - low + 1); }
    bool percent(int chance) { return below(100) < chance; }
    bool perMille(int chance) { return below(1000) < chance; }
    Bytes bytes(int count);

private:
    std::mt19937_64 m_engine;
};

enum class FecUse { kNone, kXor, kRs, kEither };  // kEither: one of the two, drawn per session

// How one kind of traffic is made. Chances are in percent unless the name says otherwise.
struct Profile {
    const char* name;
    FecUse fec;
    int lost;
    int burst;  // of starting a run of lost packets
    int delayed;
    int farthest;  // by how many packets a delayed one may come late
    int repeated;
    int decorated;   // packets of the stream that carry CSRCs, an extension or padding
    int forged;      // datagrams of the stream that are changed on the way
    int smallWorld;  // datagrams that come from the small world
    int forced;      // forced hand-overs between two datagrams
    int tick;        // most milliseconds from one datagram to the next
    int clockJumpsPerMille;
    int changesPerMille;  // of payload types, FEC kind or trace mask
    bool nearWrap;        // numbers and timestamps start just below their largest value
    SessionKind session;
};

class SendingSession;

// A stream with its FEC, group by group.
class Stream {
public:
    Stream(Random& random, const Profile& profile, FecUse fec);
    ~Stream();

    // The datagrams of the next group: its media packets in order, then its FEC packets.
    std::vector<Bytes> nextGroup();
    void setFec(FecUse fec);
    void setPayloadTypes(unsigned long payloadType, unsigned long fecPayloadType);

private:
    struct Packets;

    int addUnit(int at);
    void decorate(int at);
    int addFec(int mediaCount, std::vector<Bytes>& out);

    Random& m_random;
    const Profile& m_profile;
    FecUse m_fec;
    std::uint32_t m_timestamp;
    std::unique_ptr<SendingSession> m_session;
    std::unique_ptr<Packets> m_packets;
};

class Traffic {
public:
    // Borrows all; `model` only to aim at what it holds.
    Traffic(Random& random, const Profile& profile, const ReceiveModel& model);

    Action next();

private:
    Action act(Action::Kind kind, unsigned long first = 0, unsigned long second = 0) const;
    Action change();
    Action input();
    void tickClock();
    unsigned long timestampToForce();

    Bytes fromChannel();
    void send(const Bytes& datagram);

    Bytes forge(Bytes datagram);
    void forgeHeader(Bytes& datagram);
    void forgePayload(Bytes& datagram);
    void forgeFecHeader(Bytes& datagram);

    Bytes fromSmallWorld();
    void moveSmallWorld();
    Bytes worldHeader(unsigned int payloadType, std::uint16_t seq);
    Bytes worldMedia();
    Bytes worldPayload();
    Bytes worldXorFec();
    Bytes worldRsFec();

    Random& m_random;
    const Profile& m_profile;
    const ReceiveModel& m_model;
    FecUse m_firstFec;
    Stream m_stream;
    std::multimap<std::uint64_t, Bytes> m_channel;  // by place in the order of arrival
    bool m_isFirst;
    std::uint64_t m_sent;
    int m_burstLeft;
    std::uint64_t m_now;
    std::uint16_t m_worldSeq;
    std::uint16_t m_worldFecSeq;
    std::uint32_t m_worldTimestamp;
};

}  // namespace model
}  // namespace talrtp

#endif  // TALRTP_TESTS_MODEL_TRAFFIC_H

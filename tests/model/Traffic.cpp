#include "model/Traffic.h"

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>

namespace talrtp {
namespace model {

namespace {

constexpr int kGroupCapacity = 32;
constexpr int kMostFec = 4;
constexpr int kMediaRoom = 1600;
constexpr int kFecRoom = 1700;
constexpr int kWorldWidth = 40;
constexpr int kWorldFecWidth = 24;
constexpr int kWorldTimestamps = 3;
constexpr std::size_t kInChannel = 40;

void overwrite(Bytes& data, std::size_t at, unsigned int value) {
    if (at < data.size()) {
        data[at] = static_cast<unsigned char>(value);
    }
}

void overwriteShort(Bytes& data, std::size_t at, unsigned int value) {
    overwrite(data, at, value >> 8);
    overwrite(data, at + 1, value);
}

void append(Bytes& out, const Bytes& more) {
    out.insert(out.end(), more.begin(), more.end());
}

void appendShort(Bytes& out, unsigned int value) {
    append(out, {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)});
}

void appendLong(Bytes& out, std::uint32_t value) {
    appendShort(out, value >> 16);
    appendShort(out, value & 0xffff);
}

Bytes bytesOf(CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

FecUse drawFec(Random& random, FecUse use) {
    if (use != FecUse::kEither) {
        return use;
    }
    return random.percent(50) ? FecUse::kXor : FecUse::kRs;
}

// Packet objects one after another, which is how the sending operations take them.
template <typename Packet>
class PacketArray {
public:
    PacketArray(int count, int bufferSize) : m_count(count), m_packets(m_allocator.allocate(count)) {
        for (int i = 0; i < count; ++i) {
            new (m_packets + i) Packet(bufferSize);
        }
    }
    ~PacketArray() {
        for (int i = 0; i < m_count; ++i) {
            m_packets[i].~Packet();
        }
        m_allocator.deallocate(m_packets, m_count);
    }
    PacketArray(const PacketArray&) = delete;
    PacketArray& operator=(const PacketArray&) = delete;

    Packet* at(int i) { return m_packets + i; }

private:
    std::allocator<Packet> m_allocator;
    int m_count;
    Packet* m_packets;
};

}  // namespace

Bytes Random::bytes(int count) {
    Bytes result(std::max(count, 0));
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < result.size(); ++i) {
        word = i % 8 == 0 ? next() : word >> 8;
        result[i] = static_cast<unsigned char>(word);
    }
    return result;
}

// ------------------------------------------------------------------------------------------------- Stream

class SendingSession : public CMMRTPSession4SVC {
public:
    SendingSession() : CMMRTPSession4SVC(nullptr, 0x1d5eed) {}

    void startAt(int seq, int fecSeq) {
        m_sequenceNumber = static_cast<unsigned short>(seq);
        m_fecSequenceNumber = static_cast<unsigned short>(fecSeq);
    }
};

struct Stream::Packets {
    PacketArray<CTalRtpPacket> media{kGroupCapacity, kMediaRoom};
    PacketArray<CRTPFECPacket> xorFec{kMostFec, kFecRoom};
    PacketArray<CTalRtpPacket> rsFec{kMostFec, kFecRoom};
};

Stream::Stream(Random& random, const Profile& profile, FecUse fec)
    : m_random(random),
      m_profile(profile),
      m_fec(fec),
      m_timestamp(profile.nearWrap ? 0xffff0000U : static_cast<std::uint32_t>(random.next())),
      m_session(new SendingSession),
      m_packets(new Packets) {
    if (profile.nearWrap) {
        m_session->startAt(65300 + random.below(200), 65400 + random.below(130));
    } else {
        m_session->startAt(random.below(65536), random.below(65536));
    }
    setFec(m_fec);
}

Stream::~Stream() = default;

void Stream::setFec(FecUse fec) {
    m_fec = fec;
    m_session->SetFecType(fec == FecUse::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
}

void Stream::setPayloadTypes(unsigned long payloadType, unsigned long fecPayloadType) {
    m_session->SetPayloadType(payloadType, fecPayloadType);
}

std::vector<Bytes> Stream::nextGroup() {
    const int wanted = m_random.between(1, 10);
    int count = 0;
    while (count < wanted) {
        const int made = addUnit(count);
        for (int i = count; i < count + made; ++i) {
            if (m_random.percent(m_profile.decorated)) {
                decorate(i);
            }
        }
        count += made;
    }
    std::vector<Bytes> out;
    for (int i = 0; i < count; ++i) {
        out.push_back(bytesOf(*m_packets->media.at(i)));
    }
    addFec(count, out);
    return out;
}

// Makes one NAL unit, or a few small ones, from packet `at` of the group on; returns how many packets it
// took.
int Stream::addUnit(int at) {
    if (m_random.percent(40)) {
        m_timestamp += 90 * static_cast<std::uint32_t>(m_random.between(1, 40));
    }
    CTalRtpPacket* const packet = m_packets->media.at(at);
    const int longest = m_random.percent(5) ? 1200 : 60;
    Bytes unit = m_random.bytes(m_random.between(1, longest));
    unit[0] = static_cast<unsigned char>((m_random.below(4) << 5) | m_random.between(1, 23));
    const int shape = m_random.below(10);
    if (shape < 4) {
        m_session->CreateSinglePacket(m_timestamp, static_cast<int>(unit.size()), unit.data(), packet);
        return 1;
    }
    if (shape < 6) {
        const int count = m_random.between(1, 5);
        std::vector<Bytes> units;
        std::vector<int> sizes;
        std::vector<unsigned char*> starts;
        for (int i = 0; i < count; ++i) {
            units.push_back(m_random.bytes(m_random.between(1, 30)));
            sizes.push_back(static_cast<int>(units.back().size()));
        }
        for (Bytes& each : units) {
            starts.push_back(each.data());
        }
        m_session->CreateStapaPacket(m_timestamp, count, sizes.data(), starts.data(), packet);
        return 1;
    }
    const int count = m_random.between(2, 12);
    append(unit, m_random.bytes(count * count));  // so that no piece is left empty
    m_session->CreateFuaPackets(m_timestamp, static_cast<int>(unit.size()), unit.data(), count, packet);
    return count;
}

// Adds what a sender may put around a payload: CSRCs, a header extension, padding.
void Stream::decorate(int at) {
    CTalRtpPacket& packet = *m_packets->media.at(at);
    const int size = packet.get_payload_size();
    if (m_random.percent(40)) {
        const int last = m_random.below(3);
        packet.set_contrib_source(last, static_cast<unsigned int>(m_random.next()));
        packet.set_payload_size(size);
    }
    if (m_random.percent(40)) {
        Bytes data = m_random.bytes(4 * m_random.between(1, 4));
        packet.set_extension(0xbede, data.data(), static_cast<int>(data.size()));
    }
    if (m_random.percent(40)) {
        const int padding = m_random.between(1, 8);
        packet.set_pad_flag(true);
        packet.set_payload_size(size + padding);
        packet.get_payload_ptr()[size + padding - 1] = static_cast<unsigned char>(padding);
    }
}

int Stream::addFec(int mediaCount, std::vector<Bytes>& out) {
    if (m_fec == FecUse::kNone) {
        return 0;
    }
    const int count = m_random.between(1, kMostFec);
    if (m_fec == FecUse::kXor) {
        for (int i = 0; i < count; ++i) {
            const unsigned int everyOne = (1U << std::min(mediaCount, 24)) - 1;
            const unsigned int some = static_cast<unsigned int>(m_random.next()) & everyOne;
            const unsigned int mask = i == 0 || some == 0 ? everyOne : some;
            m_session->CreateXorFecPackets(m_packets->media.at(0), mediaCount, mask, m_packets->xorFec.at(i));
            out.push_back(bytesOf(*m_packets->xorFec.at(i)));
        }
        return count;
    }
    m_session->CreateRsFecPackets(m_packets->media.at(0), mediaCount, m_packets->rsFec.at(0), count);
    for (int i = 0; i < count; ++i) {
        out.push_back(bytesOf(*m_packets->rsFec.at(i)));
    }
    return count;
}

// ------------------------------------------------------------------------------------------------ Traffic

Traffic::Traffic(Random& random, const Profile& profile, const ReceiveModel& model)
    : m_random(random),
      m_profile(profile),
      m_model(model),
      m_firstFec(drawFec(random, profile.fec)),
      m_stream(random, profile, m_firstFec),
      m_isFirst(true),
      m_sent(0),
      m_burstLeft(0),
      m_now(static_cast<std::uint64_t>(random.between(0, 1000000))) {
    moveSmallWorld();
}

Action Traffic::next() {
    if (m_isFirst) {
        m_isFirst = false;
        return act(Action::kSetFecType, m_firstFec == FecUse::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
    }
    if (m_random.perMille(m_profile.changesPerMille)) {
        return change();
    }
    if (m_random.percent(m_profile.forced)) {
        return act(Action::kForceHandover, timestampToForce());
    }
    return input();
}

Action Traffic::act(Action::Kind kind, unsigned long first, unsigned long second) const {
    return {kind, Bytes(), false, 0, m_now, first, second};
}

Action Traffic::change() {
    static const unsigned long kTypes[][2] = {{98, 111}, {98, 98}, {96, 97}, {111, 98}, {98, 99}, {0, 127}};
    switch (m_random.below(4)) {
        case 0: {
            const unsigned long* const types = kTypes[m_random.percent(60) ? 0 : m_random.below(6)];
            m_stream.setPayloadTypes(types[0], types[1]);
            return act(Action::kSetPayloadType, types[0], types[1]);
        }
        case 1:
            return act(Action::kSetFecType, static_cast<unsigned long>(m_random.below(4)));
        case 2: {
            const FecUse fec = m_random.percent(50) ? FecUse::kXor : FecUse::kRs;
            m_stream.setFec(fec);
            return act(Action::kSetFecType, fec == FecUse::kXor ? RTP_FEC_XOR : RTP_FEC_RS);
        }
        default:
            return act(Action::kSetMask,
                       static_cast<unsigned long>(m_random.percent(70) ? 2 : m_random.between(-1, 3)));
    }
}

Action Traffic::input() {
    tickClock();
    Action action = act(Action::kInput);
    action.data = m_random.percent(m_profile.smallWorld) ? fromSmallWorld() : fromChannel();
    action.length = static_cast<int>(action.data.size());
    if (m_profile.forged > 0 && m_random.perMille(3)) {
        action.isNull = m_random.percent(50);
        action.length = action.isNull ? m_random.between(-2, 40) : -m_random.below(20);
    }
    return action;
}

// Most steps are small. A jump aims at the edge of a record's age, leaps over it, or goes back.
void Traffic::tickClock() {
    m_now += static_cast<std::uint64_t>(m_random.below(m_profile.tick + 1));
    if (!m_random.perMille(m_profile.clockJumpsPerMille)) {
        return;
    }
    const int kind = m_random.below(6);
    if (kind < 3 && !m_model.timestamps.empty()) {
        auto record = m_model.timestamps.begin();
        std::advance(record, m_random.below(static_cast<int>(m_model.timestamps.size())));
        m_now = record->second.updateTime + 4999 + static_cast<std::uint64_t>(m_random.below(4));
    } else if (kind == 3) {
        m_now += static_cast<std::uint64_t>(m_random.between(1000, 7000));
    } else if (kind == 4) {
        m_now -= static_cast<std::uint64_t>(m_random.between(1, 3));
    } else {
        m_now = m_random.next() >> m_random.below(64);
    }
}

unsigned long Traffic::timestampToForce() {
    if (m_model.timestamps.empty() || m_random.percent(10)) {
        return m_random.next();
    }
    auto record = m_model.timestamps.begin();
    std::advance(record, m_random.below(static_cast<int>(m_model.timestamps.size())));
    const unsigned long above = m_random.percent(20) ? m_random.next() << 32 : 0;
    return record->first | above;
}

Bytes Traffic::fromChannel() {
    while (m_channel.size() < kInChannel + static_cast<std::size_t>(m_profile.farthest)) {
        for (const Bytes& datagram : m_stream.nextGroup()) {
            send(datagram);
        }
    }
    const Bytes datagram = m_channel.begin()->second;
    m_channel.erase(m_channel.begin());
    return m_random.percent(m_profile.forged) ? forge(datagram) : datagram;
}

void Traffic::send(const Bytes& datagram) {
    ++m_sent;
    if (m_burstLeft > 0 || m_random.percent(m_profile.burst)) {
        m_burstLeft = m_burstLeft > 0 ? m_burstLeft - 1 : m_random.between(1, 8);
        return;
    }
    if (m_random.percent(m_profile.lost)) {
        return;
    }
    const bool isDelayed = m_random.percent(m_profile.delayed);
    m_channel.insert(
        {m_sent + static_cast<std::uint64_t>(isDelayed ? m_random.below(m_profile.farthest + 1) : 0),
         datagram});
    if (m_random.percent(m_profile.repeated)) {
        m_channel.insert(
            {m_sent + static_cast<std::uint64_t>(m_random.below(m_profile.farthest + 1)), datagram});
    }
}

// ------------------------------------------------------------------------------------------------ Forging

Bytes Traffic::forge(Bytes datagram) {
    switch (m_random.below(8)) {
        case 0:
            datagram.resize(static_cast<std::size_t>(m_random.below(static_cast<int>(datagram.size()) + 1)));
            return datagram;
        case 1:
            append(datagram, m_random.bytes(m_random.between(1, m_random.perMille(20) ? 70000 : 40)));
            return datagram;
        case 2: {
            Bytes garbage = m_random.bytes(m_random.below(80));
            if (m_random.percent(70)) {
                overwrite(garbage, 0, 0x80U | static_cast<unsigned int>(m_random.below(64)));
                overwrite(garbage, 1, m_random.percent(50) ? m_model.payloadType : m_model.fecPayloadType);
            }
            return garbage;
        }
        case 3:
        case 4:
            forgeHeader(datagram);
            return datagram;
        case 5:
            forgeFecHeader(datagram);
            return datagram;
        case 6:
            forgePayload(datagram);
            return datagram;
        default:
            overwrite(datagram, static_cast<std::size_t>(m_random.below(40)),
                      static_cast<unsigned int>(m_random.below(256)));
            return datagram;
    }
}

void Traffic::forgeHeader(Bytes& datagram) {
    static const unsigned int kWords[] = {0, 1, 2, 5, 16382, 16383, 16384, 32767, 65535};
    switch (m_random.below(7)) {
        case 0:
            datagram[0] = static_cast<unsigned char>((datagram[0] & 0xf0) | m_random.below(16));
            return;
        case 1:
        case 2:  // an extension of any declared length over the bytes that follow
            datagram[0] |= 0x10;
            overwriteShort(datagram, static_cast<std::size_t>(14 + 4 * (datagram[0] & 0x0f)),
                           kWords[m_random.below(9)]);
            return;
        case 3:
            datagram[0] |= 0x20;
            datagram.back() = static_cast<unsigned char>(
                m_random.percent(50) ? m_random.below(3)
                                     : static_cast<int>(datagram.size()) - m_random.between(10, 16));
            return;
        case 4:
            datagram[1] = static_cast<unsigned char>(m_random.below(2) << 7 | m_random.between(70, 78));
            return;
        case 5:
            datagram[3] = static_cast<unsigned char>(datagram[3] + m_random.between(-4, 4));
            return;
        default:
            datagram[7] = static_cast<unsigned char>(m_random.below(256));
            return;
    }
}

// NAL unit types, fragment bits and the sizes of aggregated units.
void Traffic::forgePayload(Bytes& datagram) {
    static const unsigned int kSizes[] = {0, 0, 1, 2, 3, 40, 0xffff};
    switch (m_random.below(4)) {
        case 0:
            overwrite(datagram, 12, static_cast<unsigned int>(m_random.below(256)));
            return;
        case 1:
            overwrite(datagram, 12, m_random.percent(50) ? 28 : 24);
            return;
        case 2:
            overwrite(datagram, 13, static_cast<unsigned int>(m_random.below(256)));
            return;
        default:
            overwriteShort(datagram, 13, kSizes[m_random.below(7)]);
            return;
    }
}

// Any of the bytes that an XOR or a Reed-Solomon FEC header may hold, after an FEC payload type.
void Traffic::forgeFecHeader(Bytes& datagram) {
    datagram[1] = static_cast<unsigned char>(m_model.fecPayloadType);
    for (int changes = m_random.between(1, 3); changes > 0; --changes) {
        const int value = m_random.percent(50) ? m_random.below(6) : m_random.below(256);
        overwrite(datagram, static_cast<std::size_t>(m_random.between(12, 23)),
                  static_cast<unsigned int>(value));
    }
}

// -------------------------------------------------------------------------------------------- Small world

void Traffic::moveSmallWorld() {
    m_worldSeq = static_cast<std::uint16_t>(m_profile.nearWrap ? 65520 : m_random.below(65536));
    m_worldFecSeq = static_cast<std::uint16_t>(m_profile.nearWrap ? 65530 : m_random.below(65536));
    m_worldTimestamp = static_cast<std::uint32_t>(m_profile.nearWrap ? 0xfffffff0U : m_random.next());
}

Bytes Traffic::fromSmallWorld() {
    if (m_random.perMille(5)) {
        moveSmallWorld();
    }
    if (m_random.percent(75)) {
        return worldMedia();
    }
    return m_random.percent(50) == (m_model.fecType == RTP_FEC_RS) && m_random.percent(20) ? worldXorFec()
           : m_model.fecType == RTP_FEC_RS                                                 ? worldRsFec()
                                                                                           : worldXorFec();
}

Bytes Traffic::worldHeader(unsigned int payloadType, std::uint16_t seq) {
    const unsigned int marker = static_cast<unsigned int>(m_random.below(2)) << 7;
    Bytes out = {0x80, static_cast<unsigned char>(marker | (payloadType & 0x7f))};
    appendShort(out, seq);
    appendLong(out, m_worldTimestamp + 16 * static_cast<std::uint32_t>(m_random.below(kWorldTimestamps)));
    appendLong(out, 0x0dd5eed5);
    return out;
}

Bytes Traffic::worldMedia() {
    const int seq = m_worldSeq + m_random.below(kWorldWidth);
    Bytes out = worldHeader(m_model.payloadType, static_cast<std::uint16_t>(seq));
    if (m_random.percent(6)) {
        const int count = m_random.below(16);
        out[0] = static_cast<unsigned char>(out[0] | count);
        append(out, m_random.bytes(4 * count));
    }
    if (m_random.percent(10)) {
        out[0] |= 0x10;
        const int words = m_random.below(3);
        const bool isLongest = m_random.percent(50);  // its size in 16 bits is that of no extension at all
        appendShort(out, 0xbede);
        appendShort(out, isLongest ? 16383U : static_cast<unsigned int>(words));
        if (isLongest) {
            out.resize(out.size() - 4);
            static const unsigned char kTypes[] = {0x18, 0x7c, 0x65};
            static const unsigned char kBits[] = {0x00, 0x85, 0xc5};
            append(out,
                   {kTypes[m_random.below(3)], kBits[m_random.below(3)], 0x3f, 0xff});  // payload as well
        } else {
            append(out, m_random.bytes(4 * words));
        }
    }
    append(out, worldPayload());
    if (m_random.percent(5)) {
        out[0] |= 0x20;
        out.back() = 1;
    }
    return out;
}

Bytes Traffic::worldPayload() {
    Bytes payload = m_random.bytes(m_random.percent(10) ? m_random.below(3) : m_random.between(2, 40));
    const int shape = m_random.below(100);
    const unsigned int importance = static_cast<unsigned int>(m_random.below(8)) << 5;
    if (shape < 55) {
        overwrite(payload, 0, importance | 28);
        const unsigned int start = m_random.percent(25) ? 0x80 : 0;
        const unsigned int end = m_random.percent(25) ? 0x40 : 0;
        overwrite(payload, 1, start | end | static_cast<unsigned int>(m_random.below(64)));
    } else if (shape < 75) {
        overwrite(payload, 0, importance | static_cast<unsigned int>(m_random.between(1, 23)));
    } else if (shape < 92) {
        overwrite(payload, 0, importance | 24);
        for (std::size_t at = 1; at < payload.size();) {
            const int size = m_random.percent(15) ? 0 : m_random.below(12);
            overwriteShort(payload, at, static_cast<unsigned int>(size));
            at += 2 + static_cast<std::size_t>(size);
        }
    }
    return payload;  // whatever type the first byte gives in the remaining cases
}

Bytes Traffic::worldXorFec() {
    const int seq = m_worldFecSeq + m_random.below(kWorldFecWidth);
    Bytes out = worldHeader(m_model.fecPayloadType, static_cast<std::uint16_t>(seq));
    if (m_random.percent(20)) {
        out[0] = static_cast<unsigned char>(0x80 | m_random.below(64));
    }
    appendShort(out, static_cast<std::uint16_t>(m_worldSeq + m_random.between(-4, kWorldWidth)));
    appendShort(out,
                static_cast<unsigned int>(m_random.percent(90) ? m_random.below(48) : m_random.below(65536)));
    std::uint32_t mask = 0;
    for (int bits = m_random.percent(5) ? 0 : m_random.between(1, 5); bits > 0; --bits) {
        mask |= 0x800000U >> m_random.below(m_random.percent(80) ? 8 : 24);
    }
    appendLong(out, static_cast<std::uint32_t>(m_random.below(128)) << 24 | mask);
    const bool worldTime = m_random.percent(70);
    appendLong(out, worldTime ? m_worldTimestamp : static_cast<std::uint32_t>(m_random.next()));
    append(out, m_random.percent(5) ? Bytes() : worldPayload());
    append(out, m_random.bytes(m_random.below(60)));
    if (m_random.percent(4)) {
        out.resize(static_cast<std::size_t>(m_random.between(12, 26)), 0);
    }
    return out;
}

Bytes Traffic::worldRsFec() {
    const int fecCount = m_random.percent(90) ? m_random.between(1, 4) : m_random.below(256);
    const int mediaCount = m_random.percent(90) ? m_random.between(1, 5) : m_random.below(256);
    const int index = m_random.percent(90) ? m_random.below(std::max(fecCount, 1)) : m_random.below(256);
    const int seq = m_worldFecSeq + m_random.below(kWorldFecWidth);
    Bytes out = worldHeader(m_model.fecPayloadType, static_cast<std::uint16_t>(seq));
    appendShort(out, static_cast<std::uint16_t>(m_worldSeq + m_random.between(-4, kWorldWidth)));
    appendShort(out,
                static_cast<unsigned int>(m_random.percent(80) ? m_random.below(80) : m_random.below(65536)));
    append(out, {static_cast<unsigned char>(index), static_cast<unsigned char>(fecCount),
                 static_cast<unsigned char>(mediaCount), 0});
    append(out, m_random.bytes(m_random.percent(80) ? 80 : m_random.below(90)));
    if (m_random.percent(2)) {
        append(out, m_random.bytes(m_random.between(1512, 1528)));
    }
    if (m_random.percent(4)) {
        out.resize(static_cast<std::size_t>(m_random.between(12, 24)), 0);
    }
    return out;
}

}  // namespace model
}  // namespace talrtp

// Reads an input as a session and the calls that its host makes on it. The first byte tells the session, low
// bits first:
//
//   FEC type (1)  base session (1)  derived class (1)  without sink (1)  trace mask less -1 (2)
//
// Steps follow, until the input ends:
//
//   op 0  LENGTH(2) BYTES                 a datagram arrives
//   op 1  LENGTH(2) BYTES                 a datagram is lost
//   op 2  LENGTH(2) BYTES                 a datagram arrives twice
//   op 3  MILLISECONDS(2)                 the clock runs on
//   op 4  MILLISECONDS(2)                 the clock steps back
//   op 5                                  the timestamp of the last datagram is forced out
//   op 6  TIMESTAMP(4)                    that timestamp is forced out
//   op 7  MEDIA(1) FEC(1)                 the payload types change
//   op 8  TYPE(1)                         the FEC type changes
//   op 9  MASK(1)                         the trace mask changes
//   op 10 MEDIA(1) PARITY(1)              a sender's parity of that many packets of op 13 arrives
//   op 11 BASE(1) FIELDS(6) SIZE(1) BYTES an FEC packet arrives that protects whatever it says
//   op 12 LENGTH(1)                       no data, or less than an RTP header
//   op 13 ADVANCE(1) HOW(1) SIZE(1) BYTES a media packet arrives, is lost or arrives twice
//
// Numbers are big-endian. An op is taken modulo 16, one above 13 is op 13, and what an input lacks at its end
// counts as 0. With ops 10, 11 and 13 a few bytes make packets that fit to each other.
//
// A datagram that validation refuses leaves its packet allocated, as documented. It is left out here, since
// it would drown a real leak and fill the memory.

#ifndef TALRTP_FUZZ_SESSIONSCRIPT_H
#define TALRTP_FUZZ_SESSIONSCRIPT_H

#include <talrtp/talrtp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "TraceCatcher.h"
#include "model/Action.h"
#include "model/PlainPacket.h"

namespace talrtp {
namespace fuzz {

// Makes the parity that a sender would send. It is kept from input to input with its packets: all that
// matters of them is set anew.
class ParitySender : public CMMRTPSession4SVC {
public:
    static constexpr int kMostMedia = 24;
    static constexpr int kMostParity = 4;

    ParitySender() : CMMRTPSession4SVC(nullptr, 1) {}

    // Makes parity of `mediaCount` datagrams, at least one, with numbers from `fecSeq` on. Returns how many
    // packets there are of it, none when the datagrams are no group.
    int makeParity(const Bytes* media, int mediaCount, unsigned long fecType, int parityCount,
                   unsigned int payloadType, unsigned int fecPayloadType, std::uint16_t fecSeq) {
        const test::TraceCatcher silence(-1);
        SetFecType(fecType);
        SetPayloadType(payloadType, fecPayloadType);
        m_fecSequenceNumber = fecSeq;
        for (int i = 0; i < mediaCount; ++i) {
            unsigned char* const bytes = const_cast<unsigned char*>(media[i].data());
            m_media.first()[i].from_buffer(bytes, static_cast<int>(media[i].size()));
        }
        if (fecType == RTP_FEC_XOR) {
            m_xor.reset();
            return CreateXorFecPackets(m_media.first(), mediaCount, 0xffffffff, &m_xor) == 0 ? 1 : 0;
        }
        for (int i = 0; i < parityCount; ++i) {
            m_rs.first()[i].reset();
        }
        const int result = CreateRsFecPackets(m_media.first(), mediaCount, m_rs.first(), parityCount);
        return result == 0 ? parityCount : 0;
    }

    // **Lends** a packet that was made last, until the next are made.
    const CTalRtpPacket& parity(unsigned long fecType, int i) const {
        return fecType == RTP_FEC_XOR ? static_cast<const CTalRtpPacket&>(m_xor) : m_rs.first()[i];
    }

private:
    static constexpr int kRoom = 1500;

    // Empty packet objects in a row.
    class Packets {
    public:
        explicit Packets(std::size_t count)
            : m_count(count), m_packets(std::allocator<CTalRtpPacket>().allocate(count)) {
            for (std::size_t i = 0; i < m_count; ++i) {
                new (m_packets + i) CTalRtpPacket(kRoom);
            }
        }
        ~Packets() {
            for (std::size_t i = 0; i < m_count; ++i) {
                m_packets[i].~CTalRtpPacket();
            }
            std::allocator<CTalRtpPacket>().deallocate(m_packets, m_count);
        }
        Packets(const Packets&) = delete;
        Packets& operator=(const Packets&) = delete;

        CTalRtpPacket* first() const { return m_packets; }

    private:
        std::size_t m_count;
        CTalRtpPacket* m_packets;
    };

    Packets m_media{kMostMedia};
    Packets m_rs{kMostParity};
    CRTPFECPacket m_xor{kRoom};
};

// Values of one kind, whose memory stays for the values of the next round: an allocation costs more under a
// sanitizer than all else that a step of a script takes.
template <typename Value>
class Kept {
public:
    // **Lends** the next value, as a former round left it. Those lent before may move.
    Value& add() {
        if (m_count == m_values.size()) {
            m_values.emplace_back();
        }
        return m_values[m_count++];
    }
    void clear() { m_count = 0; }
    std::size_t size() const { return m_count; }
    Value* data() { return m_values.data(); }

private:
    std::vector<Value> m_values;
    std::size_t m_count = 0;
};

class SessionScript {
public:
    SessionScript(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {
        m_memory.sent.clear();
        m_memory.due.clear();
        const unsigned int flags = number(1);
        m_fecType = flags & 1;
        m_isBase = (flags & 2) != 0;
        m_isDerived = (flags & 4) != 0;
        m_hasSink = (flags & 8) == 0;
        setMask(flags >> 4);
        call(model::Action::kSetFecType, m_fecType);
    }

    bool isBase() const { return m_isBase; }
    bool isDerived() const { return m_isDerived; }
    bool hasSink() const { return m_hasSink; }

    // **Lends** the next call until this is called again; null at the end.
    const model::Action* next() {
        Kept<Action>& due = m_memory.due;
        if (m_given == due.size()) {
            due.clear();
            m_given = 0;
        }
        while (due.size() == 0 && m_next < m_end) {
            step(number(1) & 0x0f);
        }
        return m_given < due.size() ? due.data() + m_given++ : nullptr;
    }

private:
    typedef model::Action Action;

    // Memory of the scripts, which run one at a time.
    struct Memory {
        Kept<Bytes> sent;
        Kept<Action> due;
        Bytes datagram;  // of the step
        model::PlainPacket arriving;
    };

    static Memory& memory() {
        static Memory memory;
        return memory;
    }

    void step(unsigned int op) {
        switch (op) {
            case 0:
                return arrive(datagram());
            case 1:
                return lose(datagram());
            case 2:
                return arriveTwice(datagram());
            case 3:
                m_now += number(2);
                return;
            case 4:
                m_now -= number(2);
                return;
            case 5:
                return call(Action::kForceHandover, m_lastTimestamp);
            case 6:
                return call(Action::kForceHandover, number(4));
            case 7:
                return setPayloadTypes();
            case 8:
                m_fecType = number(1) & 1;
                return call(Action::kSetFecType, m_fecType);
            case 9:
                return setMask(number(1));
            case 10:
                return parity();
            case 11:
                return forgedFec();
            case 12:
                return tooShort();
            default:
                return media();
        }
    }

    void call(Action::Kind kind, unsigned long first, unsigned long second = 0) {
        Action& action = m_memory.due.add();
        action.kind = kind;
        action.time = m_now;
        action.first = first;
        action.second = second;
    }

    void input(const unsigned char* bytes, std::size_t size, bool isNull, int length) {
        Action& action = m_memory.due.add();
        action.kind = Action::kInput;
        action.data.assign(bytes, bytes + size);
        action.isNull = isNull;
        action.length = length;
        action.time = m_now;
    }

    void setMask(unsigned int bits) {
        const long mask = static_cast<long>(bits & 3) - 1;
        call(Action::kSetMask, static_cast<unsigned long>(mask));
    }

    void setPayloadTypes() {
        const unsigned int media = number(1) & 0x7f;
        const unsigned int fec = number(1) & 0x7f;
        if (media != fec) {
            m_payloadType = media;
            m_fecPayloadType = fec;
        }
        call(Action::kSetPayloadType, media, fec);
    }

    // --- What arrives ---

    void lose(const Bytes& bytes) {
        if (bytes.size() >= 8) {
            m_lastTimestamp =
                static_cast<unsigned int>(bytes[4]) << 24 | bytes[5] << 16 | bytes[6] << 8 | bytes[7];
        }
    }

    void arrive(const Bytes& bytes) {
        lose(bytes);
        if (!isRefused(bytes)) {
            input(bytes.data(), bytes.size(), false, static_cast<int>(bytes.size()));
        }
    }

    void arriveTwice(const Bytes& bytes) {
        arrive(bytes);
        arrive(bytes);
    }

    // Tells whether validation will refuse the datagram, once its packet is made.
    bool isRefused(const Bytes& bytes) {
        if (bytes.size() < kHeaderSize) {
            return false;
        }
        const bool isXor = m_fecType == RTP_FEC_XOR && (bytes[1] & 0x7fU) == m_fecPayloadType;
        m_memory.arriving.bytes = bytes;
        m_memory.arriving.packetSize = static_cast<int>(bytes.size());
        m_memory.arriving.kind = isXor ? model::PacketKind::kXorFec : model::PacketKind::kMedia;
        return m_memory.arriving.refusal() != model::Refusal::kNone;
    }

    // Null with a length of up to 127, or data of -4 to 11 bytes.
    void tooShort() {
        static const unsigned char kZeros[16] = {};
        const unsigned int length = number(1);
        const bool isNull = (length & 0x80) != 0;
        const int size = static_cast<int>(isNull ? length & 0x7f : length % 16) - (isNull ? 0 : 4);
        input(kZeros, static_cast<std::size_t>(isNull ? 0 : std::max(size, 0)), isNull, size);
    }

    // --- Packets ---

    // ADVANCE: how far the number is after the next one, signed.
    // HOW: arrives, is lost, arrives twice, is lost (2); timestamp stays, advances, goes back, stays (2);
    // extension (1); padding (1); a CSRC (1); marker (1).
    void media() {
        const unsigned int advance = number(1);
        const unsigned int how = number(1);
        m_sequence = static_cast<std::uint16_t>(m_sequence + 1 + static_cast<std::int8_t>(advance));
        const unsigned int step = how >> 2 & 3;
        m_timestamp += step == 1 ? kPicture : step == 2 ? 0 - kPicture : 0;
        Bytes& bytes = m_memory.sent.add();
        setHeader(bytes, 0x80 | (how & 0x30) | (how >> 6 & 1), (how & 0x80) | m_payloadType, m_sequence);
        appendSized(bytes);
        const unsigned int fate = how & 3;
        fate == 0 ? arrive(bytes) : fate == 2 ? arriveTwice(bytes) : lose(bytes);
    }

    // MEDIA: 1 to 24 packets, the latest ones. PARITY: Reed-Solomon packets less 1 (2); which are lost (4).
    void parity() {
        const int asked = 1 + static_cast<int>(number(1)) % ParitySender::kMostMedia;
        const unsigned int how = number(1);
        Kept<Bytes>& sent = m_memory.sent;
        const int mediaCount = std::min(asked, static_cast<int>(sent.size()));
        if (mediaCount == 0) {
            return;
        }
        // Made late: as long as no session is alive, the library keeps no Reed-Solomon models.
        static ParitySender sender;
        const int count =
            sender.makeParity(sent.data() + sent.size() - mediaCount, mediaCount, m_fecType,
                              1 + static_cast<int>(how & 3), m_payloadType, m_fecPayloadType, m_fecSequence);
        for (int i = 0; i < count; ++i) {
            if ((how >> (2 + i) & 1) == 0) {
                const CTalRtpPacket& parity = sender.parity(m_fecType, i);
                m_memory.datagram.assign(parity.get_buffer(), parity.get_buffer() + parity.get_packet_size());
                arrive(m_memory.datagram);
            }
        }
        m_fecSequence = static_cast<std::uint16_t>(m_fecSequence + count);
    }

    // BASE: counted from the last media packet, signed. FIELDS: those of the FEC header after the base, of
    // which XOR has a timestamp more.
    void forgedFec() {
        const unsigned int base = m_sequence + static_cast<unsigned int>(static_cast<std::int8_t>(number(1)));
        Bytes& bytes = m_memory.datagram;
        setHeader(bytes, 0x80, m_fecPayloadType, m_fecSequence++);
        bytes.push_back(static_cast<unsigned char>(base >> 8));
        bytes.push_back(static_cast<unsigned char>(base));
        append(bytes, 6);
        bytes.resize(kHeaderSize + 8 + (m_fecType == RTP_FEC_XOR ? 4 : 0), 0);
        appendSized(bytes);
        arrive(bytes);
    }

    void setHeader(Bytes& bytes, unsigned int flags, unsigned int type, unsigned int sequence) const {
        const std::uint32_t words[] = {flags << 24 | type << 16 | sequence, m_timestamp, 1};
        bytes.clear();
        for (const std::uint32_t word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                bytes.push_back(static_cast<unsigned char>(word >> shift));
            }
        }
    }

    // --- The input ---

    const Bytes& datagram() {
        m_memory.datagram.clear();
        append(m_memory.datagram, number(2));
        return m_memory.datagram;
    }

    // SIZE(1) BYTES; a size of 255 makes a large packet of it.
    void appendSized(Bytes& bytes) {
        const std::size_t before = bytes.size();
        const unsigned int size = number(1);
        append(bytes, size);
        if (size == 255) {
            bytes.resize(before + kLarge, 0x55);
        }
    }

    // Takes that many bytes, or what is left.
    void append(Bytes& bytes, std::size_t count) {
        const std::size_t size = std::min(count, static_cast<std::size_t>(m_end - m_next));
        bytes.insert(bytes.end(), m_next, m_next + size);
        m_next += size;
    }

    unsigned int number(int bytes) {
        unsigned int value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = value << 8 | (m_next < m_end ? *m_next++ : 0u);
        }
        return value;
    }

    static constexpr std::size_t kHeaderSize = 12;
    static constexpr std::size_t kLarge = 1400;
    static constexpr std::uint32_t kPicture = 3000;

    const std::uint8_t* m_next;
    const std::uint8_t* m_end;
    bool m_isBase;
    bool m_isDerived;
    bool m_hasSink;
    unsigned long m_fecType;
    unsigned int m_payloadType = 98;
    unsigned int m_fecPayloadType = 111;
    std::uint16_t m_sequence = 65530;
    std::uint16_t m_fecSequence = 65533;
    std::uint32_t m_timestamp = 0xfffff000;
    unsigned int m_lastTimestamp = 0;
    std::uint64_t m_now = 1000000;
    Memory& m_memory = memory();
    std::size_t m_given = 0;
};

}  // namespace fuzz
}  // namespace talrtp

#endif  // TALRTP_FUZZ_SESSIONSCRIPT_H

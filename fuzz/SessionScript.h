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

// Makes the parity that a sender would send. Kept from input to input: all that matters of it is set anew.
class ParitySender : public CMMRTPSession4SVC {
public:
    ParitySender() : CMMRTPSession4SVC(nullptr, 1) {}

    // The parity of the datagrams, at least one, with numbers from `fecSeq` on. None when the datagrams are
    // no group.
    std::vector<Bytes> parityOf(const std::vector<Bytes>& media, unsigned long fecType, int count,
                                unsigned int payloadType, unsigned int fecPayloadType, std::uint16_t fecSeq) {
        const test::TraceCatcher silence(-1);
        SetFecType(fecType);
        SetPayloadType(payloadType, fecPayloadType);
        m_fecSequenceNumber = fecSeq;
        const Packets packets(media);
        const int room = packets.longest() + 20;
        std::vector<Bytes> result;
        if (fecType == RTP_FEC_XOR) {
            CRTPFECPacket parity(room);
            if (CreateXorFecPackets(packets.first(), packets.count(), 0xffffffff, &parity) == 0) {
                result.push_back(bytesOf(parity));
            }
            return result;
        }
        const Packets parity(std::vector<Bytes>(static_cast<std::size_t>(count)), room);
        if (CreateRsFecPackets(packets.first(), packets.count(), parity.first(), count) == 0) {
            for (int i = 0; i < count; ++i) {
                result.push_back(bytesOf(parity.first()[i]));
            }
        }
        return result;
    }

private:
    // Packet objects in a row, over datagrams or empty.
    class Packets {
    public:
        explicit Packets(const std::vector<Bytes>& datagrams, int capacity = 0)
            : m_count(datagrams.size()), m_packets(std::allocator<CTalRtpPacket>().allocate(m_count)) {
            for (std::size_t i = 0; i < m_count; ++i) {
                const int size = static_cast<int>(datagrams[i].size());
                m_longest = std::max(m_longest, size);
                if (size == 0) {
                    new (m_packets + i) CTalRtpPacket(capacity);
                } else {
                    new (m_packets + i) CTalRtpPacket(const_cast<unsigned char*>(datagrams[i].data()), size);
                }
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
        int count() const { return static_cast<int>(m_count); }
        int longest() const { return m_longest; }

    private:
        std::size_t m_count;
        CTalRtpPacket* m_packets;
        int m_longest = 0;
    };

    static Bytes bytesOf(const CTalRtpPacket& packet) {
        return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
    }
};

class SessionScript {
public:
    SessionScript(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {
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
        if (m_given == m_due.size()) {
            m_due.clear();
            m_given = 0;
        }
        while (m_due.empty() && m_next < m_end) {
            step(number(1) & 0x0f);
        }
        return m_given < m_due.size() ? &m_due[m_given++] : nullptr;
    }

private:
    typedef model::Action Action;

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
        m_due.push_back({kind, Bytes(), false, 0, m_now, first, second});
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
            m_lastTimestamp = model::PlainPacket{bytes}.timestamp();
        }
    }

    void arrive(const Bytes& bytes) {
        lose(bytes);
        if (!isRefused(bytes)) {
            m_due.push_back({Action::kInput, bytes, false, static_cast<int>(bytes.size()), m_now, 0, 0});
        }
    }

    void arriveTwice(const Bytes& bytes) {
        arrive(bytes);
        arrive(bytes);
    }

    // Tells whether validation will refuse the datagram, once its packet is made.
    bool isRefused(const Bytes& bytes) const {
        if (bytes.size() < kHeaderSize) {
            return false;
        }
        const bool isXor = m_fecType == RTP_FEC_XOR && (bytes[1] & 0x7fU) == m_fecPayloadType;
        const model::PacketKind kind = isXor ? model::PacketKind::kXorFec : model::PacketKind::kMedia;
        return model::PlainPacket::fromBytes(bytes.data(), static_cast<int>(bytes.size()), kind).refusal() !=
               model::Refusal::kNone;
    }

    // Null with a length of up to 127, or data of -4 to 11 bytes.
    void tooShort() {
        const unsigned int length = number(1);
        const bool isNull = (length & 0x80) != 0;
        const int size = static_cast<int>(isNull ? length & 0x7f : length % 16) - (isNull ? 0 : 4);
        m_due.push_back({Action::kInput, Bytes(static_cast<std::size_t>(isNull ? 0 : std::max(size, 0))),
                         isNull, size, m_now, 0, 0});
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
        Bytes bytes = header(0x80 | (how & 0x30) | (how >> 6 & 1), (how & 0x80) | m_payloadType, m_sequence);
        append(bytes, sized());
        m_sent.push_back(bytes);
        const unsigned int fate = how & 3;
        fate == 0 ? arrive(bytes) : fate == 2 ? arriveTwice(bytes) : lose(bytes);
    }

    // MEDIA: 1 to 24 packets, the latest ones. PARITY: Reed-Solomon packets less 1 (2); which are lost (4).
    void parity() {
        const std::size_t mediaCount = std::min<std::size_t>(1 + number(1) % 24, m_sent.size());
        const unsigned int how = number(1);
        if (mediaCount == 0) {
            return;
        }
        static ParitySender sender;
        const std::vector<Bytes> group(m_sent.end() - static_cast<std::ptrdiff_t>(mediaCount), m_sent.end());
        const std::vector<Bytes> parities = sender.parityOf(group, m_fecType, 1 + static_cast<int>(how & 3),
                                                            m_payloadType, m_fecPayloadType, m_fecSequence);
        for (std::size_t i = 0; i < parities.size(); ++i) {
            if ((how >> (2 + i) & 1) == 0) {
                arrive(parities[i]);
            }
        }
        m_fecSequence = static_cast<std::uint16_t>(m_fecSequence + parities.size());
    }

    // BASE: counted from the last media packet, signed. FIELDS: those of the FEC header after the base, of
    // which XOR has a timestamp more.
    void forgedFec() {
        const unsigned int base = m_sequence + static_cast<unsigned int>(static_cast<std::int8_t>(number(1)));
        Bytes bytes = header(0x80, m_fecPayloadType, m_fecSequence++);
        append(bytes, {static_cast<unsigned char>(base >> 8), static_cast<unsigned char>(base)});
        append(bytes, take(6));
        bytes.resize(kHeaderSize + 8 + (m_fecType == RTP_FEC_XOR ? 4 : 0), 0);
        append(bytes, sized());
        arrive(bytes);
    }

    Bytes header(unsigned int flags, unsigned int type, unsigned int sequence) const {
        const std::uint32_t words[] = {flags << 24 | type << 16 | sequence, m_timestamp, 1};
        Bytes bytes;
        bytes.reserve(kHeaderSize);
        for (const std::uint32_t word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                bytes.push_back(static_cast<unsigned char>(word >> shift));
            }
        }
        return bytes;
    }

    static void append(Bytes& bytes, const Bytes& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
    }

    // --- The input ---

    Bytes datagram() { return take(number(2)); }

    // SIZE(1) BYTES; a size of 255 makes a large packet of it.
    Bytes sized() {
        const unsigned int size = number(1);
        Bytes bytes = take(size);
        if (size == 255) {
            bytes.resize(kLarge, 0x55);
        }
        return bytes;
    }

    Bytes take(std::size_t count) {
        const std::size_t size = std::min(count, static_cast<std::size_t>(m_end - m_next));
        const Bytes bytes(m_next, m_next + size);
        m_next += size;
        return bytes;
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
    std::vector<Bytes> m_sent;
    std::vector<Action> m_due;
    std::size_t m_given = 0;
};

}  // namespace fuzz
}  // namespace talrtp

#endif  // TALRTP_FUZZ_SESSIONSCRIPT_H

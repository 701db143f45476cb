// The stage on which the session tests play: a recording sink, a trace catcher, a session whose protected
// members can be read, and verbs that feed it.
//
//   at(1000);                                    // the host's clock, milliseconds
//   media(7);                                    // a datagram with a small NAL unit that tells its number
//   expectDelivered({7});                        // one hand-over, since the last look
//   expectLines({warning("CMMRTPSession4SVC::...")});   // every trace line, since the last look
//
// Packets and datagrams are written here field by field, so that no test believes what the library wrote.

#ifndef TALRTP_TESTS_SESSIONFIXTURE_H
#define TALRTP_TESTS_SESSIONFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpSession.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <new>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "DocumentedLeak.h"
#include "TraceCatcher.h"

namespace talrtp {
namespace test {

constexpr unsigned int kSourceId = 0x0a0b0c0d;  // SSRC of what the sessions under test send: 168496141
constexpr unsigned int kPeerId = 0x11223344;    // SSRC of what they receive
constexpr unsigned char kMediaType = 98;
constexpr unsigned char kFecType = 111;
constexpr unsigned int kTimestamp = 90000;

// --- Bytes ---------------------------------------------------------------------------------------------

typedef std::vector<unsigned char> Bytes;

inline Bytes join(std::initializer_list<Bytes> parts) {
    Bytes result;
    for (const Bytes& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

inline Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end = std::string::npos) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes.begin() + static_cast<std::ptrdiff_t>(std::min(end, bytes.size())));
}

// `size` bytes that differ from place to place and from one `seed` to the next.
inline Bytes pattern(std::size_t size, unsigned int seed) {
    Bytes result(size);
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<unsigned char>(seed * 31 + i * 7 + i / 256 + 1);
    }
    return result;
}

inline Bytes word16(unsigned int value) {
    return {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

inline Bytes word32(unsigned int value) {
    return join({word16(value >> 16), word16(value & 0xffff)});
}

inline Bytes bytesOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

inline Bytes payloadOf(const CTalRtpPacket& packet) {
    return Bytes(packet.get_payload_ptr(), packet.get_payload_ptr() + packet.get_payload_size());
}

// A pointer as a trace line prints it.
inline std::string printed(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%lx", reinterpret_cast<unsigned long>(pointer));
    return text;
}

// --- Datagrams -----------------------------------------------------------------------------------------

// An RTP datagram (RFC 3550, 5.1) without padding, extension or CSRCs; the marker bit is clear.
inline Bytes rtp(unsigned short seq, unsigned int timestamp, const Bytes& payload,
                 unsigned char payloadType = kMediaType) {
    return join({{0x80, payloadType}, word16(seq), word32(timestamp), word32(kPeerId), payload});
}

// A small single NAL unit that tells its packet's number.
inline Bytes unitOf(unsigned short seq) {
    return join({{0x41}, word16(seq), {0xa5}});
}

// A NAL unit as the sink gets it.
inline Bytes inByteStream(const Bytes& unit) {
    return join({{0x00, 0x00, 0x00, 0x01}, unit});
}

// A STAP-A payload (RFC 6184, 5.7.1) with the header 0x78: NRI 3, type 24.
inline Bytes aggregation(const std::vector<Bytes>& units) {
    Bytes result = {0x78};
    for (const Bytes& unit : units) {
        result = join({result, word16(static_cast<unsigned int>(unit.size())), unit});
    }
    return result;
}

constexpr unsigned char kStart = 0x80;
constexpr unsigned char kMiddle = 0x00;
constexpr unsigned char kEnd = 0x40;

// A FU-A payload (RFC 6184, 5.8) of a NAL unit with the header 0x65: NRI 3, type 5.
inline Bytes fragment(unsigned char flags, const Bytes& data) {
    return join({{0x7c, static_cast<unsigned char>(flags | 5)}, data});
}

// The fields of an XOR FEC datagram. Those that are not set are 0.
struct XorFec {
    unsigned short seq = 0;
    unsigned int timestamp = kTimestamp;
    unsigned char recoveredBits = 0;  // P, X and CC in the places of byte 0
    bool marker = false;
    unsigned short base = 0;
    unsigned short length = 0;
    unsigned char payloadType = 0;
    unsigned int mask = 0;
    unsigned int recoveredTimestamp = 0;
    Bytes parity;

    Bytes bytes() const {
        return join({{static_cast<unsigned char>(0x80 | recoveredBits),
                      static_cast<unsigned char>(kFecType | (marker ? 0x80 : 0))},
                     word16(seq),
                     word32(timestamp),
                     word32(kPeerId),
                     word16(base),
                     word16(length),
                     {payloadType, static_cast<unsigned char>(mask >> 16)},
                     word16(mask & 0xffff),
                     word32(recoveredTimestamp),
                     parity});
    }
};

// The fields of a Reed-Solomon FEC datagram.
struct RsFecFields {
    unsigned short seq = 0;
    unsigned int timestamp = kTimestamp;
    unsigned short base = 0;
    unsigned short length = 0;
    unsigned char index = 0;
    unsigned char count = 0;
    unsigned char mediaCount = 0;
    Bytes parity;

    Bytes bytes() const {
        return join({{0x80, kFecType},
                     word16(seq),
                     word32(timestamp),
                     word32(kPeerId),
                     word16(base),
                     word16(length),
                     {index, count, mediaCount, 0x00},
                     parity});
    }
};

// --- Trace lines ---------------------------------------------------------------------------------------

struct ExpectedLine {
    int level;
    std::string message;
    std::string file;  // how the source file's name begins; empty when the line has no position
};

inline std::ostream& operator<<(std::ostream& out, const ExpectedLine& line) {
    return out << line.level << " \"" << line.message << "\" from " << line.file;
}

constexpr char kSessionSources[] = "TalRtpSession";  // and its siblings, a stage each

inline ExpectedLine error(const std::string& message, const std::string& file = kSessionSources) {
    return {0, message, file};
}
inline ExpectedLine warning(const std::string& message, const std::string& file = kSessionSources) {
    return {1, message, file};
}
inline ExpectedLine info(const std::string& message, const std::string& file = kSessionSources) {
    return {2, message, file};
}

// The line that the session emits for every received FEC packet, after it was processed.
inline ExpectedLine fecArrived(unsigned int payloadType = kFecType) {
    const std::string type = std::to_string(payloadType);
    return error(
        "CMMRTPSessionBase::InputReceivedData payload type is FEC, but memomy alligned according to DATA. "
        "pHeader->ph_pt = " +
        type + ",  m_fecPayloadType  = " + type);
}

// Tells whether `text` is "[src/rtp/", a name that begins with `file`, ".cpp:", a line number and "]".
inline bool isPosition(const std::string& text, const std::string& file) {
    const std::string opening = "[src/rtp/" + file;
    const std::size_t dot = text.find(".cpp:");
    if (text.compare(0, opening.size(), opening) != 0 || dot == std::string::npos || text.back() != ']') {
        return false;
    }
    const std::string rest = text.substr(opening.size(), dot - opening.size());
    const std::string line = text.substr(dot + 5, text.size() - dot - 6);
    const auto isWord = [](unsigned char c) { return std::isalnum(c) != 0; };
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    return std::all_of(rest.begin(), rest.end(), isWord) && !line.empty() &&
           std::all_of(line.begin(), line.end(), isDigit);
}

MATCHER_P(IsLine, expected, testing::PrintToString(expected)) {
    static const char* const kWords[] = {"ERROR: ", "WARNING: ", "INFO: "};
    const TraceLine& line = arg;
    const std::string opening =
        std::string("[TAL] ") + kWords[expected.level] + "[TalRtp]: " + expected.message;
    if (line.level != expected.level || line.tag != "TAL" || line.length != line.text.size() ||
        line.text.compare(0, opening.size(), opening) != 0) {
        return false;
    }
    const std::string closing = line.text.substr(opening.size());
    return expected.file.empty() ? closing.empty() : isPosition(closing, expected.file);
}

// --- The host's side -----------------------------------------------------------------------------------

// One call of the sink, copied while the packet was lent.
struct Handover {
    unsigned short seq;
    unsigned int packetType;
    Bytes header;
    Bytes payload;
    CTalRtpPacket* packet;  // only to be compared
};

class RecordingSink : public ITalRTPSessionSink {
public:
    void OnReceivedRTPPacket(CTalRtpPacket* packet) override {
        unsigned char* const buffer = packet->get_buffer();
        handovers.push_back({packet->get_sequence_number(), packet->get_packet_type(),
                             Bytes(buffer, buffer + packet->get_header_size()), payloadOf(*packet), packet});
        if (onPacket) {
            onPacket(packet);
        }
    }

    std::vector<Handover> handovers;
    std::function<void(CTalRtpPacket*)> onPacket;
};

// A session class with its protected members in the open. Tests read the receive state, never write it.
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

// Packet objects one after the other, as the sending operations expect them.
template <typename Packet>
class PacketArray {
public:
    PacketArray(int count, int capacity)
        : m_count(count),
          m_packets(
              static_cast<Packet*>(::operator new(static_cast<std::size_t>(count) * sizeof(Packet) + 1))) {
        for (int i = 0; i < count; ++i) {
            new (m_packets + i) Packet(capacity);
        }
    }
    ~PacketArray() {
        for (int i = 0; i < m_count; ++i) {
            m_packets[i].~Packet();
        }
        ::operator delete(m_packets);
    }
    PacketArray(const PacketArray&) = delete;
    PacketArray& operator=(const PacketArray&) = delete;

    Packet& operator[](int i) { return m_packets[i]; }
    operator Packet*() { return m_packets; }

private:
    int m_count;
    Packet* m_packets;
};

// Media packets with consecutive numbers and the FEC packets over them, as a sending session makes them, of
// which the network loses some.
class Group {
public:
    Group(unsigned int fecType, unsigned short firstSeq, unsigned short firstFecSeq,
          const std::vector<Bytes>& units, int fecCount = 1, unsigned int timestamp = kTimestamp)
        : m_firstSeq(firstSeq) {
        const TraceCatcher silence(-1);
        SvcProbe sender(nullptr, kPeerId);
        sender.SetFecType(fecType);
        sender.m_sequenceNumber = firstSeq;
        sender.m_fecSequenceNumber = firstFecSeq;
        const int count = static_cast<int>(units.size());
        PacketArray<CTalRtpPacket> packets(count, 2000);
        for (int i = 0; i < count; ++i) {
            const Bytes& unit = units[static_cast<std::size_t>(i)];
            sender.CreateSinglePacket(timestamp, static_cast<int>(unit.size()),
                                      const_cast<unsigned char*>(unit.data()), &packets[i]);
            media.push_back(bytesOf(packets[i]));
        }
        if (fecType == RTP_FEC_XOR) {
            CRTPFECPacket parity(2000);
            sender.CreateXorFecPackets(packets, count, 0xffffffff, &parity);
            fec.push_back(bytesOf(parity));
        } else {
            PacketArray<CTalRtpPacket> parities(fecCount, 2100);
            sender.CreateRsFecPackets(packets, count, parities, fecCount);
            for (int i = 0; i < fecCount; ++i) {
                fec.push_back(bytesOf(parities[i]));
            }
        }
    }

    // The network loses the media packet with that number.
    void lose(unsigned short seq) { m_lost.insert(seq); }

    // The media packets that arrive, in order.
    std::vector<Bytes> arriving() const {
        std::vector<Bytes> result;
        for (std::size_t i = 0; i < media.size(); ++i) {
            if (m_lost.count(static_cast<unsigned short>(m_firstSeq + i)) == 0) {
                result.push_back(media[i]);
            }
        }
        return result;
    }

    std::vector<Bytes> media;
    std::vector<Bytes> fec;

private:
    unsigned short m_firstSeq;
    std::set<unsigned short> m_lost;
};

// Single NAL units, one for each number from `first` on.
inline std::vector<Bytes> unitsFrom(unsigned short first, int count) {
    std::vector<Bytes> result;
    for (int i = 0; i < count; ++i) {
        result.push_back(unitOf(static_cast<unsigned short>(first + i)));
    }
    return result;
}

// --- The fixture ---------------------------------------------------------------------------------------

// A hand-over that a test expects.
struct Delivery {
    unsigned short seq;
    Bytes payload;
    unsigned int packetType;
};

template <typename Session>
class SessionTest : public ::testing::Test {
protected:
    // The host's clock.
    void at(unsigned long ms) { now = ms; }
    // The timestamp of the media datagrams that follow.
    void picture(unsigned int ts) { timestamp = ts; }

    // Lets a datagram arrive, in a buffer of exactly its size.
    int receive(const Bytes& datagram) {
        Bytes exact(datagram);
        exact.shrink_to_fit();
        return session.InputReceivedData(exact.data(), static_cast<int>(exact.size()), now);
    }
    // The same for a datagram that validation refuses: its packet is left allocated.
    int receiveRefused(const Bytes& datagram) {
        const DocumentedLeak leak;
        return receive(datagram);
    }
    void receiveAll(const std::vector<Bytes>& datagrams) {
        for (const Bytes& datagram : datagrams) {
            receive(datagram);
        }
    }
    int media(unsigned short seq) { return media(seq, unitOf(seq)); }
    int media(unsigned short seq, const Bytes& payload) { return receive(rtp(seq, timestamp, payload)); }

    // The hand-overs since the last look: one whole unit of `media(seq)` for each number, in that order.
    void expectDelivered(const std::vector<unsigned short>& seqs) {
        std::vector<Delivery> expected;
        for (const unsigned short seq : seqs) {
            const bool isSvc = std::is_base_of<CMMRTPSession4SVC, Session>::value;
            expected.push_back({seq, isSvc ? inByteStream(unitOf(seq)) : unitOf(seq), 0});
        }
        expectHandovers(expected);
    }
    void expectHandovers(const std::vector<Delivery>& expected) {
        ASSERT_EQ(sink.handovers.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            SCOPED_TRACE("hand-over " + std::to_string(i));
            EXPECT_EQ(sink.handovers[i].seq, expected[i].seq);
            EXPECT_EQ(sink.handovers[i].payload, expected[i].payload);
            EXPECT_EQ(sink.handovers[i].packetType, expected[i].packetType);
        }
        sink.handovers.clear();
    }

    // The trace lines since the last look.
    void expectLines(const std::vector<ExpectedLine>& expected) {
        std::vector<testing::Matcher<const TraceLine&>> matchers;
        for (const ExpectedLine& line : expected) {
            matchers.push_back(IsLine(line));
        }
        EXPECT_THAT(trace.lines(), testing::ElementsAreArray(matchers));
        trace.clear();
    }

    TraceCatcher trace{2};
    RecordingSink sink;
    Session session{&sink, kSourceId};
    unsigned long now = 1000;
    unsigned int timestamp = kTimestamp;
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_SESSIONFIXTURE_H

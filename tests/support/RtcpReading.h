// The answers of all Get operations about a packet, and a second opinion on what they should be.
//
// A reading is a table from a getter's subject to its answer in print; a getter that fails has no entry. The
// second opinion looks at the bytes one at a time and shares nothing with the library.

#ifndef TALRTP_TESTS_RTCPREADING_H
#define TALRTP_TESTS_RTCPREADING_H

#include "RtcpVectors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

namespace talrtp {
namespace test {

typedef std::map<std::string, std::string> Reading;

// Fills the 24 bytes after a packet that GetReportBlock is pointed at.
constexpr unsigned char kBehind = 0x5b;

inline std::string hex(unsigned int value, int digits = 8) {
    char text[16];
    std::snprintf(text, sizeof(text), "%0*x", digits, value);
    return text;
}

inline std::string hex(const unsigned char* bytes, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += hex(bytes[i], 2);
    }
    return text;
}

inline std::string print(const _SenderInfo& info) {
    return hex(info.ntpTimestampMsw) + " " + hex(info.ntpTimestampLsw) + " " + hex(info.rtpTimestamp) + " " +
           hex(info.packetCount) + " " + hex(info.octetCount);
}

inline std::string print(const _ReportBlock& block) {
    return hex(block.ssrc) + " " + hex(block.fractionLost, 2) + " " + hex(block.cumulativeLost, 6) + " " +
           hex(block.extendedHighestSeq) + " " + hex(block.jitter) + " " + hex(block.lastSR) + " " +
           hex(block.delaySinceLastSR) + "; ";
}

inline std::string printItem(unsigned int ssrc, unsigned char type, const unsigned char* text, int length) {
    return hex(ssrc) + " " + hex(type, 2) + " " + hex(text, length) + "; ";
}

// Records each packet of a datagram and where it lies there.
class RecordingRtcpSink : public ITalRTCPStackSink {
public:
    void OnRtcpPacket(unsigned char* packet, int length) override {
        starts.push_back(packet);
        packets.push_back(Bytes(packet, packet + length));
    }

    std::vector<unsigned char*> starts;
    std::vector<Bytes> packets;
};

constexpr int kOffered = 31;  // array elements that readAll has room for

namespace reading {

inline void readBlocks(ITalRTCPStack& stack, const Bytes& bytes, Reading& reading) {
    Bytes roomy = bytes;
    roomy.insert(roomy.end(), 24, kBehind);
    ExactBuffer packet(roomy);
    _ReportBlock blocks[kOffered] = {};
    int count = kOffered;
    if (stack.GetReportBlock(packet.data(), static_cast<int>(bytes.size()), blocks, count) == 0) {
        std::string& text = reading["blocks"];
        for (int i = 0; i < count; ++i) {
            text += print(blocks[i]);
        }
    } else {
        EXPECT_EQ(kOffered, count);
        EXPECT_EQ(0U, blocks[0].ssrc);
    }
}

inline void readItems(ITalRTCPStack& stack, ExactBuffer& packet, Reading& reading) {
    _SdesItem items[kOffered];
    std::memset(static_cast<void*>(items), 0xcc, sizeof(items));
    int count = kOffered;
    if (stack.GetSdesItem(packet.data(), packet.size(), items, count) == 0) {
        std::string& text = reading["items"];
        for (int i = 0; i < count; ++i) {
            const _SdesItem& item = items[i];
            text += printItem(item.ssrc, item.type, item.data, item.length);
            EXPECT_EQ(0xcc, item.data[item.length]) << "only the text is written";
        }
    } else {
        EXPECT_EQ(kOffered, count);
        EXPECT_EQ(0xccccccccU, items[0].ssrc);
    }
}

inline void readSources(ITalRTCPStack& stack, ExactBuffer& packet, Reading& reading) {
    unsigned int ssrcs[kOffered] = {};
    int count = kOffered;
    if (stack.GetByeSsrc(packet.data(), packet.size(), ssrcs, count) == 0) {
        std::string& text = reading["sources"];
        for (int i = 0; i < count; ++i) {
            text += hex(ssrcs[i]) + "; ";
        }
    } else {
        EXPECT_EQ(kOffered, count);
        EXPECT_EQ(0U, ssrcs[0]);
    }
    unsigned int sender = 0x1badbad1, media = 0x2badbad2;
    if (stack.GetFBSsrc(packet.data(), packet.size(), sender, media) == 0) {
        reading["feedback sources"] = hex(sender) + " " + hex(media);
    } else {
        EXPECT_EQ(0x1badbad1U, sender);
        EXPECT_EQ(0x2badbad2U, media);
    }
}

// The three getters that lend a stretch of the packet.
template <class Getter>
void readStretch(ExactBuffer& packet, const char* name, Reading& reading, Getter getter) {
    unsigned char untouched = 0;
    unsigned char* start = &untouched;
    int length = -77;
    if (getter(packet.data(), packet.size(), start, length) == 0) {
        reading[name] = "at " + std::to_string(start - packet.data()) + ", " + std::to_string(length) + ": " +
                        hex(start, length);
    } else {
        EXPECT_EQ(&untouched, start) << name;
        EXPECT_EQ(-77, length) << name;
    }
}

}  // namespace reading

// Calls every getter on `bytes`, in a buffer of just their size.
inline Reading readAll(ITalRTCPStack& stack, const Bytes& bytes) {
    ExactBuffer packet(bytes);
    unsigned char* const buf = packet.data();
    const int len = packet.size();
    Reading reading;
    auto number = [&](const char* name, unsigned int value) {
        if (value != 0) {
            reading[name] = std::to_string(value);
        }
    };
    number("valid", stack.IsValidRtcpPacket(buf, len) ? 1 : 0);
    number("type", stack.GetRtcpPacketType(buf, len));
    const unsigned int ssrc = stack.GetRtcpPacketSsrc(buf, len);
    if (ssrc != 0) {
        reading["ssrc"] = hex(ssrc);
    }
    number("block count", stack.GetReportBlockCount(buf, len));
    number("item count", stack.GetSdesItemCount(buf, len));
    number("source count", stack.GetByeSsrcCount(buf, len));
    number("APP subtype", stack.GetAppSubType(buf, len));
    number("RTPFB type", stack.GetRTPFBSubType(buf, len));
    number("PSFB type", stack.GetPSFBSubType(buf, len));

    reading::readBlocks(stack, bytes, reading);
    _SenderInfo info = {};
    if (stack.GetReportSenderInfo(buf, len, &info) == 0) {
        reading["sender info"] = print(info);
    } else {
        EXPECT_EQ(0U, info.ntpTimestampMsw);
    }
    reading::readItems(stack, packet, reading);
    reading::readSources(stack, packet, reading);
    unsigned char name[4] = {0xcc, 0xcc, 0xcc, 0xcc};
    if (stack.GetAppName(buf, len, name) == 0) {
        reading["name"] = hex(name, 4);
    } else {
        EXPECT_EQ("cccccccc", hex(name, 4));
    }
    reading::readStretch(packet, "extension", reading,
                         [&](unsigned char* data, int size, unsigned char*& start, int& length) {
                             return stack.GetReportExtension(data, size, start, length);
                         });
    reading::readStretch(packet, "data", reading,
                         [&](unsigned char* data, int size, unsigned char*& start, int& length) {
                             return stack.GetAppData(data, size, start, length);
                         });
    reading::readStretch(packet, "FCI", reading,
                         [&](unsigned char* data, int size, unsigned char*& start, int& length) {
                             return stack.GetFBFCIData(data, size, start, length);
                         });
    return reading;
}

namespace reading {

// A packet in which every byte that was not received is 0.
class Received {
public:
    explicit Received(const Bytes& bytes, unsigned char behind = 0) : m_bytes(bytes), m_behind(behind) {}
    unsigned char byte(int at) const {
        return at < size() ? m_bytes[static_cast<std::size_t>(at)] : m_behind;
    }
    unsigned int word(int at) const {
        return byte(at) * 0x1000000U + byte(at + 1) * 0x10000U + byte(at + 2) * 0x100U + byte(at + 3);
    }
    Bytes stretch(int at, int count) const {
        Bytes bytes;
        for (int i = at; i < at + count; ++i) {
            bytes.push_back(byte(i));
        }
        return bytes;
    }
    int size() const { return static_cast<int>(m_bytes.size()); }
    int declared() const { return 4 * (byte(2) * 0x100 + byte(3)); }

private:
    Bytes m_bytes;
    unsigned char m_behind;
};

inline std::string stretch(const Received& packet, int at) {
    const int length = packet.size() - at;
    const Bytes bytes = packet.stretch(at, length);
    return "at " + std::to_string(at) + ", " + std::to_string(length) + ": " +
           hex(bytes.data(), static_cast<int>(bytes.size()));
}

inline std::string blocks(const Bytes& bytes, int at) {
    const Received packet(bytes, kBehind);
    std::string text;
    for (int i = 0; i < kOffered && at <= packet.size(); ++i, at += 24) {
        text += hex(packet.word(at)) + " " + hex(packet.byte(at + 4), 2) + " " +
                hex(packet.word(at + 4) % 0x1000000U, 6);
        for (int field = 8; field < 24; field += 4) {
            text += " " + hex(packet.word(at + field));
        }
        text += "; ";
    }
    return text;
}

inline std::string items(const Received& packet) {
    std::string text;
    int at = 4;
    for (int i = 0; i < kOffered && at < packet.size(); ++i) {
        const int length = packet.byte(at + 5);
        text +=
            printItem(packet.word(at), packet.byte(at + 4), packet.stretch(at + 6, length).data(), length);
        at += 6 + length;
        while (at % 4 != 0) {
            ++at;
        }
    }
    return text;
}

inline std::string sources(const Received& packet) {
    std::string text;
    for (int i = 0; i < kOffered && 4 + 4 * i < packet.size(); ++i) {
        text += hex(packet.word(4 + 4 * i)) + "; ";
    }
    return text;
}

}  // namespace reading

// The second opinion on the result of readAll.
inline Reading expectedReading(const Bytes& bytes) {
    Reading reading;
    const reading::Received packet(bytes);
    const int type = packet.byte(1);
    const int count = packet.byte(0) % 32;
    if (packet.byte(0) / 64 != 2 || type < 200 || type > 206 || packet.declared() > packet.size()) {
        return reading;
    }
    reading["valid"] = "1";
    reading["type"] = std::to_string(type);
    if (type != 202 && type != 203 && packet.word(4) != 0) {
        reading["ssrc"] = hex(packet.word(4));
    }
    static const std::map<int, const char*> kCountNames = {
        {200, "block count"}, {201, "block count"}, {202, "item count"}, {203, "source count"},
        {204, "APP subtype"}, {205, "RTPFB type"},  {206, "PSFB type"}};
    if (count != 0) {
        reading[kCountNames.at(type)] = std::to_string(count);
    }
    if (type == 200 || type == 201) {
        const int start = type == 200 ? 28 : 8;
        reading["blocks"] = reading::blocks(bytes, start);
        if (start + 24 * count < packet.size()) {
            reading["extension"] = reading::stretch(packet, start + 24 * count);
        }
    }
    if (type == 200 && packet.size() >= 28) {
        reading["sender info"] = hex(packet.word(8)) + " " + hex(packet.word(12)) + " " +
                                 hex(packet.word(16)) + " " + hex(packet.word(20)) + " " +
                                 hex(packet.word(24));
    }
    if (type == 202) {
        reading["items"] = reading::items(packet);
    }
    if (type == 203) {
        reading["sources"] = reading::sources(packet);
    }
    if (type == 204) {
        reading["name"] = hex(packet.stretch(8, 4).data(), 4);
        reading["data"] = reading::stretch(packet, 12);
    }
    if (type == 205 || type == 206) {
        reading["feedback sources"] = hex(packet.word(4)) + " " + hex(packet.word(8));
        reading["FCI"] = reading::stretch(packet, 12);
    }
    return reading;
}

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_RTCPREADING_H

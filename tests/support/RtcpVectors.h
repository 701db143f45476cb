// RTCP packets written out by hand, one per packet type and more where a type has shapes worth telling apart.
// Building must produce these bytes, and reading must accept them. All sources, texts and numbers are
// chosen so that no two bytes of one packet can be swapped unnoticed.

#ifndef TALRTP_TESTS_RTCPVECTORS_H
#define TALRTP_TESTS_RTCPVECTORS_H

#include <talrtp/ITalRTCPStack.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Bytes.h"

namespace talrtp {
namespace test {

// The bytes alone in a heap block of their own size, so that a sanitizer sees every read beyond.
class ExactBuffer {
public:
    explicit ExactBuffer(const Bytes& bytes) : m_data(new unsigned char[bytes.size()]), m_size(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), m_data.get());
    }
    unsigned char* data() { return m_data.get(); }
    int size() const { return static_cast<int>(m_size); }

private:
    std::unique_ptr<unsigned char[]> m_data;
    std::size_t m_size;
};

constexpr unsigned int kSsrc = 0x11223344;
constexpr unsigned int kMediaSsrc = 0x99aabbcc;

inline _SenderInfo senderInfo() {
    return {0xe1e2e3e4, 0x80000001, 0x00015f90, 0x00000102, 0x00030405};
}

inline _ReportBlock firstBlock() {
    return {0xa1a2a3a4, 0x40, 0x010203, 0x00051234, 0x00000077, 0xe3e48000, 0x00018000};
}

inline _ReportBlock secondBlock() {
    return {0xb1b2b3b4, 0xff, 0xfffffe, 0xfedcba98, 0x10203040, 0x50607080, 0x90a0b0c0};
}

// An item whose bytes after the text are rubbish, as a host's are.
inline _SdesItem sdesItem(unsigned int ssrc, unsigned char type, const std::string& text) {
    _SdesItem item;
    item.ssrc = ssrc;
    item.type = type;
    item.length = static_cast<unsigned char>(text.size());
    std::memset(item.data, 0xdd, sizeof(item.data));
    std::memcpy(item.data, text.data(), text.size());
    return item;
}

// clang-format off

inline Bytes senderReport() {
    return {
        0x81, 0xc8, 0x00, 0x0d,  // V=2 P=0 RC=1 | PT=200 SR | 13 words, this one included
        0x11, 0x22, 0x33, 0x44,  // SSRC of sender
        0xe1, 0xe2, 0xe3, 0xe4,  // NTP seconds
        0x80, 0x00, 0x00, 0x01,  // NTP fraction
        0x00, 0x01, 0x5f, 0x90,  // RTP timestamp 90000
        0x00, 0x00, 0x01, 0x02,  // 258 packets
        0x00, 0x03, 0x04, 0x05,  // 197637 bytes
        0xa1, 0xa2, 0xa3, 0xa4,  // SSRC of source
        0x40, 0x01, 0x02, 0x03,  // fraction lost 64/256 | 66051 lost
        0x00, 0x05, 0x12, 0x34,  // 5 cycles, sequence number 0x1234
        0x00, 0x00, 0x00, 0x77,  // jitter
        0xe3, 0xe4, 0x80, 0x00,  // last SR
        0x00, 0x01, 0x80, 0x00,  // 1.5 s since
    };
}

inline Bytes senderReportWithoutBlocks() {
    return {
        0x80, 0xc8, 0x00, 0x07,  // V=2 P=0 RC=0 | PT=200 SR | 7 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of sender
        0xe1, 0xe2, 0xe3, 0xe4,  // NTP seconds
        0x80, 0x00, 0x00, 0x01,  // NTP fraction
        0x00, 0x01, 0x5f, 0x90,  // RTP timestamp
        0x00, 0x00, 0x01, 0x02,  // packets
        0x00, 0x03, 0x04, 0x05,  // bytes
    };
}

inline Bytes receiverReport() {
    return {
        0x82, 0xc9, 0x00, 0x0e,  // V=2 P=0 RC=2 | PT=201 RR | 14 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of reporter
        0xa1, 0xa2, 0xa3, 0xa4,  // SSRC of source 1
        0x40, 0x01, 0x02, 0x03,  // fraction lost 64/256 | 66051 lost
        0x00, 0x05, 0x12, 0x34,  // 5 cycles, sequence number 0x1234
        0x00, 0x00, 0x00, 0x77,  // jitter
        0xe3, 0xe4, 0x80, 0x00,  // last SR
        0x00, 0x01, 0x80, 0x00,  // 1.5 s since
        0xb1, 0xb2, 0xb3, 0xb4,  // SSRC of source 2
        0xff, 0xff, 0xff, 0xfe,  // fraction lost 255/256 | 16777214 lost
        0xfe, 0xdc, 0xba, 0x98,  // extended highest sequence number
        0x10, 0x20, 0x30, 0x40,  // jitter
        0x50, 0x60, 0x70, 0x80,  // last SR
        0x90, 0xa0, 0xb0, 0xc0,  // delay since
    };
}

inline Bytes emptyReceiverReport() {
    return {
        0x80, 0xc9, 0x00, 0x02,  // V=2 P=0 RC=0 | PT=201 RR | 2 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of reporter
    };
}

// The texts have 6 and 2 bytes, so that both items end on a word: both sides see the same items.
inline Bytes sdes() {
    return {
        0x82, 0xca, 0x00, 0x06,  // V=2 P=0 SC=2 | PT=202 SDES | 6 words
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x01, 0x06, 0x61, 0x40,  // CNAME, 6 bytes, "a@
        0x62, 0x2e, 0x63, 0x64,  // b.cd"
        0x55, 0x66, 0x77, 0x88,  // SSRC
        0x02, 0x02, 0x78, 0x79,  // NAME, 2 bytes, "xy"
    };
}

// A text of 5 bytes: 15 bytes are written while the length field says 4 words.
inline Bytes sdesOfOddLength() {
    return {
        0x81, 0xca, 0x00, 0x04,  // V=2 P=0 SC=1 | PT=202 SDES | 4 words
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x01, 0x05, 0x68, 0x65,  // CNAME, 5 bytes, "he
        0x6c, 0x6c, 0x6f,        // llo"
    };
}

// Texts of 3 and 1 bytes: the second item begins immediately after the first, in the middle of a word.
inline Bytes sdesOffTheWords() {
    return {
        0x82, 0xca, 0x00, 0x05,  // V=2 P=0 SC=2 | PT=202 SDES | 5 words
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x01, 0x03, 0x61, 0x62,  // CNAME, 3 bytes, "ab
        0x63, 0x55, 0x66, 0x77,  // c" | SSRC ...
        0x88, 0x02, 0x01, 0x7a,  // ... | NAME, 1 byte, "z"
    };
}

inline Bytes bye() {
    return {
        0x83, 0xcb, 0x00, 0x04,  // V=2 P=0 SC=3 | PT=203 BYE | 4 words
        0x11, 0x22, 0x33, 0x44,  // SSRC 1
        0x55, 0x66, 0x77, 0x88,  // SSRC 2
        0x99, 0xaa, 0xbb, 0xcc,  // SSRC 3
    };
}

inline Bytes app() {
    return {
        0x95, 0xcc, 0x00, 0x05,  // V=2 P=0 subtype 21 | PT=204 APP | 5 words
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x54, 0x45, 0x53, 0x54,  // "TEST"
        0xd1, 0xd2, 0xd3, 0xd4,  // data
        0xd5, 0xd6, 0xd7, 0xd8,  // data
    };
}

// 5 bytes of data: 17 bytes are written while the length field says 5 words.
inline Bytes appOfOddLength() {
    return {
        0x95, 0xcc, 0x00, 0x05,  // V=2 P=0 subtype 21 | PT=204 APP | 5 words
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x54, 0x45, 0x53, 0x54,  // "TEST"
        0xd1, 0xd2, 0xd3, 0xd4,  // data
        0xd5,                    // data
    };
}

inline Bytes rtpFeedback() {
    return {
        0x81, 0xcd, 0x00, 0x04,  // V=2 P=0 FMT=1 generic NACK | PT=205 RTPFB | 4 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of packet sender
        0x99, 0xaa, 0xbb, 0xcc,  // SSRC of media source
        0x12, 0x34, 0x80, 0x01,  // packet 0x1234 and two of the 16 after it
    };
}

inline Bytes payloadFeedback() {
    return {
        0x84, 0xce, 0x00, 0x05,  // V=2 P=0 FMT=4 full intra request | PT=206 PSFB | 5 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of packet sender
        0x99, 0xaa, 0xbb, 0xcc,  // SSRC of media source
        0xc1, 0xc2, 0xc3, 0xc4,  // SSRC that is asked
        0x07, 0xc5, 0xc6, 0xc7,  // request number 7, reserved
    };
}

// Picture loss indication: no control information at all.
inline Bytes payloadFeedbackWithoutFci() {
    return {
        0x81, 0xce, 0x00, 0x03,  // V=2 P=0 FMT=1 PLI | PT=206 PSFB | 3 words
        0x11, 0x22, 0x33, 0x44,  // SSRC of packet sender
        0x99, 0xaa, 0xbb, 0xcc,  // SSRC of media source
    };
}

// clang-format on

// A packet and the call that builds it.
struct RtcpVector {
    std::string name;
    Bytes bytes;
    int neededCapacity;
    std::function<std::int64_t(ITalRTCPStack&, unsigned char* buf, int& len)> build;
};

// Every packet type, as the host asks for it.
inline std::vector<RtcpVector> rtcpVectors() {
    auto report = [](bool withInfo, std::vector<_ReportBlock> blocks) {
        return [=](ITalRTCPStack& stack, unsigned char* buf, int& len) mutable {
            _SenderInfo info = senderInfo();
            const int count = static_cast<int>(blocks.size());
            blocks.resize(blocks.size() + 1);  // the array is not null even when no block is sent
            const std::int64_t result =
                withInfo ? stack.CreateSenderReportPacket(kSsrc, &info, blocks.data(), count, buf, len)
                         : stack.CreateReceiverReportPacket(kSsrc, blocks.data(), count, buf, len);
            blocks.pop_back();
            return result;
        };
    };
    auto items = [](std::vector<_SdesItem> sdesItems) {
        return [=](ITalRTCPStack& stack, unsigned char* buf, int& len) mutable {
            return stack.CreateSdesPacket(sdesItems.data(), static_cast<int>(sdesItems.size()), buf, len);
        };
    };
    auto application = [](Bytes data) {
        return [=](ITalRTCPStack& stack, unsigned char* buf, int& len) mutable {
            unsigned char name[] = {'T', 'E', 'S', 'T'};
            return stack.CreateAppPacket(kSsrc, 21, name, data.data(), static_cast<int>(data.size()), buf,
                                         len);
        };
    };
    auto goodbye = [](ITalRTCPStack& stack, unsigned char* buf, int& len) {
        unsigned int ssrcs[] = {kSsrc, 0x55667788, kMediaSsrc};
        return stack.CreateByePacket(ssrcs, 3, buf, len);
    };
    auto nack = [](ITalRTCPStack& stack, unsigned char* buf, int& len) {
        unsigned char fci[] = {0x12, 0x34, 0x80, 0x01};
        return stack.CreateRTPFBPacket(kSsrc, kMediaSsrc, 1, fci, 4, buf, len);
    };
    auto intraRequest = [](ITalRTCPStack& stack, unsigned char* buf, int& len) {
        unsigned char fci[] = {0xc1, 0xc2, 0xc3, 0xc4, 0x07, 0xc5, 0xc6, 0xc7};
        return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 4, fci, 8, buf, len);
    };
    auto pictureLoss = [](ITalRTCPStack& stack, unsigned char* buf, int& len) {
        return stack.CreatePSFBPacket(kSsrc, kMediaSsrc, 1, nullptr, 0, buf, len);
    };
    return {
        {"SR", senderReport(), 52, report(true, {firstBlock()})},
        {"SR without blocks", senderReportWithoutBlocks(), 28, report(true, {})},
        {"RR", receiverReport(), 56, report(false, {firstBlock(), secondBlock()})},
        {"RR without blocks", emptyReceiverReport(), 8, report(false, {})},
        {"SDES", sdes(), 532, items({sdesItem(kSsrc, 1, "a@b.cd"), sdesItem(0x55667788, 2, "xy")})},
        {"SDES of odd length", sdesOfOddLength(), 268, items({sdesItem(kSsrc, 1, "hello")})},
        {"SDES off the words", sdesOffTheWords(), 532,
         items({sdesItem(kSsrc, 1, "abc"), sdesItem(0x55667788, 2, "z")})},
        {"BYE", bye(), 16, goodbye},
        {"APP", app(), 20, application({0xd1, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8})},
        {"APP of odd length", appOfOddLength(), 17, application({0xd1, 0xd2, 0xd3, 0xd4, 0xd5})},
        {"RTPFB", rtpFeedback(), 16, nack},
        {"PSFB", payloadFeedback(), 20, intraRequest},
        {"PSFB without FCI", payloadFeedbackWithoutFci(), 12, pictureLoss},
    };
}

// Calls entry `order`, from 1, of the virtual table of `object`, as a host does whose compiler never saw the
// class. A reference goes over as a pointer.
template <class Result, class... Args>
Result callEntry(void* object, int order, Args... args) {
    typedef Result (*Entry)(void*, Args...);
    void** table = *static_cast<void***>(object);
    return reinterpret_cast<Entry>(table[order - 1])(object, args...);
}

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_RTCPVECTORS_H

// RTCP packets of both wire forms, written out by hand from the diagrams of RFC 3550, RFC 4585 and RFC 5104,
// each with the record that it stands for. The writer must make these bytes of the record and the reader this
// record of the bytes.

#ifndef TALRTP_TESTS_KIT_KITRTCPVECTORS_H
#define TALRTP_TESTS_KIT_KITRTCPVECTORS_H

#include <talrtp/kit/Rtcp.h>

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Bytes.h"

namespace talrtp::kit::test {

using talrtp::test::Bytes;
using Packet = std::variant<SenderReport, ReceiverReport, SourceDescription, Bye, App, Nack, Pli, Fir,
                            Feedback, UnknownPacket>;

struct RtcpVector {
    std::string name;
    Form form;
    Packet record;
    Bytes bytes;
};

inline bool addTo(RtcpWriter& writer, const Packet& packet) {
    return std::visit(
        [&](const auto& record) {
            if constexpr (std::is_same_v<std::decay_t<decltype(record)>, UnknownPacket>) {
                return false;  // the writer has no such packet
            } else {
                return writer.add(record);
            }
        },
        packet);
}

inline Bytes bytesOf(const RtcpWriter& writer) {
    return Bytes(writer.bytes().begin(), writer.bytes().end());
}

// All packets that a read handed over, and its outcome.
struct ReadPackets {
    RtcpReadResult result;
    std::vector<Packet> packets;
};

// Reads a copy of just the size of `bytes`, so that a sanitizer sees every byte beyond.
inline ReadPackets readAll(Form form, const Bytes& bytes) {
    const Bytes exact(bytes);
    ReadPackets read;
    read.result =
        RtcpReader(form).read(exact, [&](const auto& record) { read.packets.emplace_back(record); });
    return read;
}

inline ReportBlock firstBlock() {
    return {0xa1a2a3a4, 0x40, 0x010203, 0x00051234, 0x77, 0xe3e48000, 0x00018000};
}

// Two packets more arrived than were expected.
inline ReportBlock secondBlock() {
    return {0xb1b2b3b4, 0xff, -2, 0xfedcba98, 0x10203040, 0x50607080, 0x90a0b0c0};
}

// clang-format off

// Both forms of a packet whose length field is their only difference: `bytes` is the form of RFC 3550.
inline void addBothForms(std::vector<RtcpVector>& vectors, const std::string& name, const Packet& record,
                         const Bytes& bytes) {
    vectors.push_back({name, Form::kRfc3550, record, bytes});
    Bytes native = bytes;
    ++native[3];
    vectors.push_back({name + ", native", Form::kNative, record, native});
}

inline void addReports(std::vector<RtcpVector>& vectors) {
    addBothForms(vectors, "SR with one block",
        SenderReport{0x11223344, 0xe1e2e3e480000001, 90000, 258, 197637, {firstBlock()}, {}}, {
        0x81, 0xc8, 0x00, 0x0c,  // V=2 P=0 RC=1 | PT=200 | 13 words less one
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
    });
    addBothForms(vectors, "SR without blocks",
        SenderReport{0x11223344, 0xe1e2e3e480000001, 90000, 258, 197637, {}, {}}, {
        0x80, 0xc8, 0x00, 0x06,
        0x11, 0x22, 0x33, 0x44,
        0xe1, 0xe2, 0xe3, 0xe4,
        0x80, 0x00, 0x00, 0x01,
        0x00, 0x01, 0x5f, 0x90,
        0x00, 0x00, 0x01, 0x02,
        0x00, 0x03, 0x04, 0x05,
    });
    addBothForms(vectors, "RR with two blocks",
        ReceiverReport{0x11223344, {firstBlock(), secondBlock()}, {}}, {
        0x82, 0xc9, 0x00, 0x0d,  // RC=2 | PT=201 | 14 words less one
        0x11, 0x22, 0x33, 0x44,
        0xa1, 0xa2, 0xa3, 0xa4,
        0x40, 0x01, 0x02, 0x03,
        0x00, 0x05, 0x12, 0x34,
        0x00, 0x00, 0x00, 0x77,
        0xe3, 0xe4, 0x80, 0x00,
        0x00, 0x01, 0x80, 0x00,
        0xb1, 0xb2, 0xb3, 0xb4,
        0xff, 0xff, 0xff, 0xfe,  // fraction lost 255/256 | -2 in 24 bits
        0xfe, 0xdc, 0xba, 0x98,
        0x10, 0x20, 0x30, 0x40,
        0x50, 0x60, 0x70, 0x80,
        0x90, 0xa0, 0xb0, 0xc0,
    });
    addBothForms(vectors, "RR without blocks", ReceiverReport{0x11223344, {}, {}},
        {0x80, 0xc9, 0x00, 0x01, 0x11, 0x22, 0x33, 0x44});
    addBothForms(vectors, "RR with an extension", ReceiverReport{0x11223344, {}, {0xde, 0xad, 0xbe, 0xef}},
        {0x80, 0xc9, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44, 0xde, 0xad, 0xbe, 0xef});
}

inline void addDescriptions(std::vector<RtcpVector>& vectors) {
    // The item ends on a word, so the null item takes a whole word of its own.
    vectors.push_back({"SDES whose item ends on a word", Form::kRfc3550,
        SourceDescription{{{0x11223344, {{kSdesCname, "a@b.cd"}}}}}, {
        0x81, 0xca, 0x00, 0x04,  // SC=1 | PT=202 | 5 words less one
        0x11, 0x22, 0x33, 0x44,  // SSRC
        0x01, 0x06, 0x61, 0x40,  // CNAME, 6 bytes, "a@
        0x62, 0x2e, 0x63, 0x64,  // b.cd"
        0x00, 0x00, 0x00, 0x00,  // end of the chunk
    }});
    vectors.push_back({"SDES of two chunks", Form::kRfc3550,
        SourceDescription{{{0x11223344, {{kSdesCname, "hello"}, {kSdesTool, "xy"}}},
                           {0x55667788, {{kSdesName, "z"}}}}}, {
        0x82, 0xca, 0x00, 0x06,  // SC=2 | PT=202 | 7 words less one
        0x11, 0x22, 0x33, 0x44,
        0x01, 0x05, 0x68, 0x65,  // CNAME, 5 bytes, "he
        0x6c, 0x6c, 0x6f, 0x06,  // llo" | TOOL,
        0x02, 0x78, 0x79, 0x00,  // 2 bytes, "xy" | end of the chunk
        0x55, 0x66, 0x77, 0x88,
        0x02, 0x01, 0x7a, 0x00,  // NAME, 1 byte, "z" | end of the chunk
    }});
    vectors.push_back({"SDES without items", Form::kRfc3550, SourceDescription{{{0x11223344, {}}}},
        {0x81, 0xca, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44, 0x00, 0x00, 0x00, 0x00}});
    vectors.push_back({"SDES of one item, native", Form::kNative,
        SourceDescription{{{0x11223344, {{kSdesCname, "hello"}}}}}, {
        0x81, 0xca, 0x00, 0x04,  // SC=1 | PT=202 | 4 words
        0x11, 0x22, 0x33, 0x44,
        0x01, 0x05, 0x68, 0x65,  // CNAME, 5 bytes, "he
        0x6c, 0x6c, 0x6f, 0x00,  // llo" | filled up
    }});
    vectors.push_back({"SDES of two sources, native", Form::kNative,
        SourceDescription{{{0x11223344, {{kSdesCname, "abc"}, {kSdesTool, "xy"}}},
                           {0x55667788, {{kSdesName, "z"}}}}}, {
        0x83, 0xca, 0x00, 0x08,  // three items | PT=202 | 8 words
        0x11, 0x22, 0x33, 0x44,
        0x01, 0x03, 0x61, 0x62,  // CNAME, 3 bytes, "ab
        0x63, 0x00, 0x00, 0x00,  // c" | filled up
        0x11, 0x22, 0x33, 0x44,  // the same source again
        0x06, 0x02, 0x78, 0x79,  // TOOL, 2 bytes, "xy"
        0x55, 0x66, 0x77, 0x88,
        0x02, 0x01, 0x7a, 0x00,  // NAME, 1 byte, "z" | filled up
    }});
}

inline void addOthers(std::vector<RtcpVector>& vectors) {
    addBothForms(vectors, "BYE of two sources", Bye{{0x11223344, 0x55667788}, std::nullopt},
        {0x82, 0xcb, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88});
    addBothForms(vectors, "BYE of no source", Bye{{}, std::nullopt}, {0x80, 0xcb, 0x00, 0x00});
    vectors.push_back({"BYE with a reason", Form::kRfc3550, Bye{{0x11223344}, "hello"}, {
        0x81, 0xcb, 0x00, 0x03,
        0x11, 0x22, 0x33, 0x44,
        0x05, 0x68, 0x65, 0x6c,  // 5 bytes, "hel
        0x6c, 0x6f, 0x00, 0x00,  // lo" | filled up
    }});
    addBothForms(vectors, "APP", App{5, 0x11223344, {{'T', 'E', 'S', 'T'}}, {1, 2, 3, 4}}, {
        0x85, 0xcc, 0x00, 0x03,  // subtype 5 | PT=204
        0x11, 0x22, 0x33, 0x44,
        0x54, 0x45, 0x53, 0x54,  // "TEST"
        0x01, 0x02, 0x03, 0x04,
    });
    addBothForms(vectors, "NACK of one entry", Nack{0x11223344, 0x99aabbcc, {0x1000, 0x1001, 0x1010}}, {
        0x81, 0xcd, 0x00, 0x03,  // FMT=1 | PT=205
        0x11, 0x22, 0x33, 0x44,  // SSRC of packet sender
        0x99, 0xaa, 0xbb, 0xcc,  // SSRC of media source
        0x10, 0x00, 0x80, 0x01,  // 0x1000 | bit 15: 16 later, bit 0: 1 later
    });
    addBothForms(vectors, "NACK across the wrap", Nack{0x11223344, 0x99aabbcc, {0xfffe, 0x0000, 0x000f}}, {
        0x81, 0xcd, 0x00, 0x04,
        0x11, 0x22, 0x33, 0x44,
        0x99, 0xaa, 0xbb, 0xcc,
        0xff, 0xfe, 0x00, 0x02,  // bit 1: 2 later
        0x00, 0x0f, 0x00, 0x00,  // 17 later, beyond the mask
    });
    addBothForms(vectors, "PLI", Pli{0x11223344, 0x99aabbcc},
        {0x81, 0xce, 0x00, 0x02, 0x11, 0x22, 0x33, 0x44, 0x99, 0xaa, 0xbb, 0xcc});
    addBothForms(vectors, "FIR", Fir{0x11223344, 0, {{0x99aabbcc, 7}}}, {
        0x84, 0xce, 0x00, 0x04,  // FMT=4 | PT=206
        0x11, 0x22, 0x33, 0x44,
        0x00, 0x00, 0x00, 0x00,  // unused
        0x99, 0xaa, 0xbb, 0xcc,  // the source that is asked
        0x07, 0x00, 0x00, 0x00,  // request 7 | reserved
    });
    addBothForms(vectors, "another feedback", Feedback{206, 15, 0x11223344, 0x99aabbcc, {1, 2, 3, 4}},
        {0x8f, 0xce, 0x00, 0x03, 0x11, 0x22, 0x33, 0x44, 0x99, 0xaa, 0xbb, 0xcc, 1, 2, 3, 4});
}

// clang-format on

inline std::vector<RtcpVector> rtcpVectors() {
    std::vector<RtcpVector> vectors;
    addReports(vectors);
    addDescriptions(vectors);
    addOthers(vectors);
    return vectors;
}

}  // namespace talrtp::kit::test

#endif  // TALRTP_TESTS_KIT_KITRTCPVECTORS_H

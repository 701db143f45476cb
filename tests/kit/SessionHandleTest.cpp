// The kit's reading of a session's documented members.

#include "RtpPackets.h"

#include <talrtp/ITalRTPSession.h>
#include <talrtp/kit/SessionHandle.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using talrtp::kit::SessionHandle;
using talrtp::test::Bytes;
using talrtp::test::rtp;
using talrtp::test::RtpFields;

void feed(SessionHandle& session, unsigned int first, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        RtpFields fields;
        fields.sequence = static_cast<std::uint16_t>(first + i);
        Bytes datagram = rtp(fields, {0x41, 0x80});
        session->InputReceivedData(datagram.data(), static_cast<int>(datagram.size()), 0);
    }
}

std::uint16_t firstOf(unsigned int first, unsigned int count) {
    SessionHandle session(nullptr, 7);
    feed(session, first, count);
    return session.firstMediaSequence();
}

TEST(SessionHandle, FirstNumberIsTheLowest) {
    EXPECT_EQ(firstOf(100, 1), 100);
    EXPECT_EQ(firstOf(100, 50), 100);
    EXPECT_EQ(firstOf(0, 10), 0);
    EXPECT_EQ(firstOf(0x7ff0, 0x20), 0x7ff0);
    EXPECT_EQ(firstOf(0xff00, 0x100), 0xff00);
}

TEST(SessionHandle, FirstNumberIsBeforeTheWrapAround) {
    EXPECT_EQ(firstOf(0xffff, 2), 0xffff);
    EXPECT_EQ(firstOf(65530, 12), 65530);
    EXPECT_EQ(firstOf(0x8001, 0x8000), 0x8001);  // the longest span: up to number 0
    EXPECT_EQ(firstOf(0xfff0, 0x8000), 0xfff0);
}

TEST(SessionHandle, FirstNumberIsFoundInAnyOrder) {
    SessionHandle session(nullptr, 7);
    feed(session, 3, 1);
    feed(session, 65535, 1);
    feed(session, 65533, 1);
    feed(session, 1, 1);
    EXPECT_EQ(session.firstMediaSequence(), 65533);
}

}  // namespace

// Shared by the tests of the receive stores: packets made by hand, and a session's lists without a session.

#ifndef TALRTP_TESTS_STOREFIXTURE_H
#define TALRTP_TESTS_STOREFIXTURE_H

#include <gtest/gtest.h>
#include <talrtp/TalRtpSession.h>

#include "memory/NodePool.h"
#include "receive/StepMeter.h"

namespace talrtp {
namespace test {

// A media packet of one payload byte. **Returns owned.**
inline CTalRtpPacket* makePacket(_uint16_t seq, _uint32_t timestamp = 9000) {
    CTalRtpPacket* const packet = new CTalRtpPacket(100);
    packet->set_sequence_number(seq);
    packet->set_timestamp(timestamp);
    packet->set_payload_size(1);
    return packet;
}

class StoreTest : public testing::Test {
protected:
    typedef CMMRTPSessionBase::PacketMap PacketMap;
    typedef CMMRTPSessionBase::TSInfoMap TSInfoMap;

    CPagedNodePool pool;
    stStepMeter meter;
    PacketMap mediaList{std::less<_uint16_t>(), PacketMap::allocator_type(&pool)};
    PacketMap fecList{std::less<_uint16_t>(), PacketMap::allocator_type(&pool)};
    TSInfoMap recordList{std::less<_uint32_t>(), TSInfoMap::allocator_type(&pool)};
};

}  // namespace test
}  // namespace talrtp

#endif  // TALRTP_TESTS_STOREFIXTURE_H

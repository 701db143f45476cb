// What a host may do between the documented lines: change a packet that it was lent, and bring packet classes
// of its own.

#include <malloc.h>

#include "SessionFixture.h"

namespace talrtp {
namespace test {
namespace {

using testing::SizeIs;

// --- Lent packets --------------------------------------------------------------------------------------

class LentPacketTest : public SessionTest<SvcProbe> {};

// The bytes of hand-overs are used again: a sink that makes the packet grow leaves other ones behind.
TEST_F(LentPacketTest, LargeUnitFitsItsHandOverAfterASinkHasMadeASmallOneGrow) {
    Bytes element = {0x10, 0xaa};
    bool fits = true;
    sink.onPacket = [&](CTalRtpPacket* packet) {
        const std::size_t capacity = static_cast<std::size_t>(packet->get_buffer_size());
        fits &= malloc_usable_size(packet->get_buffer()) >= capacity;
        if (packet->get_payload_size() < 100) {
            EXPECT_TRUE(packet->add_onebyte_extension_element(1, element.data(), 2));
        }
    };
    for (unsigned short seq = 10; seq < 40; seq = static_cast<unsigned short>(seq + 10)) {
        media(seq, fragment(kStart, pattern(20000, 1)));
        media(static_cast<unsigned short>(seq + 1), fragment(kEnd, pattern(20000, 2)));
        media(static_cast<unsigned short>(seq + 2));
    }
    EXPECT_TRUE(fits);
    EXPECT_THAT(sink.handovers, SizeIs(6));
}

}  // namespace
}  // namespace test
}  // namespace talrtp

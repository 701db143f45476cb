// Counters of a sender or receiver, at any time.

#ifndef TALRTP_KIT_STATISTICS_H
#define TALRTP_KIT_STATISTICS_H

#include <cstdint>

namespace talrtp::kit {

// The counters of one sender or receiver. Those of the other end stay 0.
struct Statistics {
    // The thirteen counters of the session, over every session of this sender or receiver. A rebuilt media
    // packet passes the media path too, so it counts as received there.
    std::uint64_t createdMediaPacketNumber = 0;        // media packets made
    std::uint64_t createdFECPacketNumber = 0;          // FEC packets made
    std::uint64_t receivedPacketNumber = 0;            // datagrams that reached the session
    std::uint64_t receivedPacketBytes = 0;             // their bytes
    std::uint64_t receivedMediaPacketNumber = 0;       // duplicates included
    std::uint64_t receivedValidMediaPacketNumber = 0;  // without duplicates
    std::uint64_t receivedValidMediaPacketBytes = 0;   // by buffer size
    std::uint64_t receivedFECPacketNumber = 0;         // duplicates included
    std::uint64_t receivedValidFECPacketNumber = 0;    // without duplicates
    std::uint64_t receivedValidFECPacketBytes = 0;     // by buffer size
    std::uint64_t recoveredMediaPacketNumber = 0;      // rebuilt by FEC
    std::uint64_t recoveredMediaPacketBytes = 0;       // by buffer size
    std::uint64_t deliveredDataBytes = 0;              // payload of every hand-over

    // Media packets, as the play-out saw them.
    std::uint64_t lostPackets = 0;     // neither arrived nor rebuilt when their picture was played or skipped
    std::uint64_t latePackets = 0;     // arrived after that
    std::uint64_t doubledPackets = 0;  // arrived again
    std::uint64_t rebuiltPackets = 0;  // rebuilt by FEC in time to be played

    // Datagrams that were refused before the session, by reason.
    std::uint64_t rtcpDatagrams = 0;         // RTCP
    std::uint64_t notRtpDatagrams = 0;       // STUN, DTLS, ZRTP, TURN, and bytes of no known kind
    std::uint64_t invalidDatagrams = 0;      // RTP with a header or padding that does not fit
    std::uint64_t otherSourceDatagrams = 0;  // another SSRC
    std::uint64_t unknownTypeDatagrams = 0;  // a payload type that is neither of the two
    std::uint64_t strayPackets = 0;  // fragments that belong to no unit, and numbers far off the stream

    // Pictures and units.
    std::uint64_t completePictures = 0;  // played with every packet and unit
    std::uint64_t cutPictures = 0;       // played with packets missing or a unit cut
    std::uint64_t skippedPictures = 0;   // nothing of them could be played
    std::uint64_t playedUnits = 0;       // units of played pictures
    std::uint64_t refusedUnits = 0;      // on sending: cannot be carried; on receiving: too late, or a repeat
    std::uint64_t restarts = 0;          // the sender began anew
    std::uint64_t sentPictures = 0;      // pictures of which a unit went out
    std::uint64_t sentUnits = 0;         // units sent
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_STATISTICS_H

// Where the fields of RTCP packets are, and how wide. One table per structure.

#ifndef TALRTP_SRC_WIRE_RTCPLAYOUT_H
#define TALRTP_SRC_WIRE_RTCPLAYOUT_H

namespace talrtp {

// Common header, and what follows it in each packet. Byte offsets in the margin. RFC 3550, 6; RFC 4585, 6.1.
//
//       0                   1                   2                   3
//       0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0  |V=2|P|  count  |  packet type  |        length in words        |
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//
//   SR     4  SSRC of sender      8  sender info (20 bytes)      28  report blocks (24 bytes each)
//   RR     4  SSRC of reporter    8  report blocks
//   SDES   4  items, back to back
//   BYE    4  SSRCs of sources
//   APP    4  SSRC                8  name (4 bytes)              12  data
//   RTPFB  4  SSRC of sender      8  SSRC of media source        12  feedback control information
//   PSFB   as RTPFB
//
// Compatibility: length counts the header word too, where RFC 3550 counts all words but one. Writer and
// reader share the rule, and hosts on both sides of a call rely on it.
constexpr int kRtcpFlagsOffset = 0;
constexpr int kTypeOffset = 1;
constexpr int kLengthOffset = 2;
constexpr int kLengthSize = 2;
constexpr int kRtcpHeaderSize = 4;

constexpr unsigned char kRtcpVersionMask = 0xc0;
constexpr int kRtcpVersionShift = 6;
constexpr unsigned char kVersion2 = 0x80;
constexpr unsigned char kRtcpPaddingMask = 0x20;
constexpr int kPaddingShift = 5;
constexpr unsigned char kCountMask = 0x1f;

constexpr int kRtcpWordSize = 4;
constexpr int kWordShift = 2;

constexpr unsigned int kTypeNone = 0;
constexpr unsigned int kTypeSenderReport = 200;
constexpr unsigned int kTypeReceiverReport = 201;
constexpr unsigned int kTypeSdes = 202;
constexpr unsigned int kTypeBye = 203;
constexpr unsigned int kTypeApp = 204;
constexpr unsigned int kTypeRtpFeedback = 205;
constexpr unsigned int kTypePayloadFeedback = 206;

constexpr int kSsrcOffset = 4;
constexpr int kSsrcSize = 4;
constexpr int kSenderInfoOffset = 8;
constexpr int kSenderReportBlocksOffset = 28;
constexpr int kReceiverReportBlocksOffset = 8;
constexpr int kAppNameOffset = 8;
constexpr int kAppNameSize = 4;
constexpr int kAppDataOffset = 12;
constexpr int kMediaSsrcOffset = 8;
constexpr int kFciOffset = 12;

// Sender info. RFC 3550, 6.4.1.
//
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0  |             NTP timestamp, most significant word              |
//   4  |             NTP timestamp, least significant word             |
//   8  |                         RTP timestamp                         |
//  12  |                     sender's packet count                     |
//  16  |                      sender's octet count                     |
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr int kNtpMswOffset = 0;
constexpr int kNtpLswOffset = 4;
constexpr int kRtpTimestampOffset = 8;
constexpr int kPacketCountOffset = 12;
constexpr int kOctetCountOffset = 16;
constexpr int kSenderInfoSize = 20;

// Report block. RFC 3550, 6.4.1.
//
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0  |                        SSRC of source                         |
//   4  | fraction lost |       cumulative number of packets lost       |
//   8  |           extended highest sequence number received           |
//  12  |                      interarrival jitter                      |
//  16  |                         last SR (LSR)                         |
//  20  |                   delay since last SR (DLSR)                  |
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr int kBlockSsrcOffset = 0;
constexpr int kLossOffset = 4;
constexpr int kHighestSeqOffset = 8;
constexpr int kJitterOffset = 12;
constexpr int kLastSrOffset = 16;
constexpr int kDelayOffset = 20;
constexpr int kReportBlockSize = 24;

constexpr int kFractionLostShift = 24;
constexpr unsigned int kCumulativeLostMask = 0xffffff;

// SDES item. Each carries its source, so there are no chunks of several items and no item that ends a chunk.
//
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
//   0  |                             SSRC                              |
//   4  |     type      |    length     |  text ...
//      +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
constexpr int kItemSsrcOffset = 0;
constexpr int kItemTypeOffset = 4;
constexpr int kItemLengthOffset = 5;
constexpr int kItemTextOffset = 6;
constexpr int kItemMaxSize = kItemTextOffset + 255;
// The room that a builder asks for per item, whatever its text.
constexpr int kItemRoom = 264;

}  // namespace talrtp

#endif  // TALRTP_SRC_WIRE_RTCPLAYOUT_H

// Everything of talrtp in one include, in C++11. README.md has the contract and the shortest examples.
//
// - ITalRTPSession.h: the session, which makes RTP and FEC packets and hands received NAL units over
// - ITalRTCPStack.h: the RTCP stack, which builds and reads packets
// - TalRtpPacket.h, TalRtpFecPacket.h: the packets that a session fills and lends
// - TalRtpTrace.h: the two C functions through which a host receives the diagnostics
// - TalTime.h: the time value with NTP fractions, and the stopwatch
// - RsFec.h: the Reed-Solomon code without packets, and the cache of its models
// - TalRtpSession.h, TalRtcpStack.h: the classes themselves, for hosts that derive from them
// - TalRtpRecords.h: the records of a session's timestamps and units, and the allocator of its lists
// - TalRtpDefs.h: limits, codes, byte order, the export macro

#ifndef TALRTP_TALRTP_H
#define TALRTP_TALRTP_H

#include <talrtp/ITalRTCPStack.h>
#include <talrtp/ITalRTPSession.h>
#include <talrtp/RsFec.h>
#include <talrtp/TalRtcpStack.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpRecords.h>
#include <talrtp/TalRtpSession.h>
#include <talrtp/TalRtpTrace.h>
#include <talrtp/TalTime.h>

#endif  // TALRTP_TALRTP_H

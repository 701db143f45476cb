// Everything of talrtp in one include. See README.md for the contract and the shortest send and receive
// examples.

#ifndef TALRTP_TALRTP_H
#define TALRTP_TALRTP_H

#include <talrtp/ITalRTCPStack.h>
#include <talrtp/ITalRTPSession.h>
#include <talrtp/RsFec.h>
#include <talrtp/TalRtcpStack.h>
#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/TalRtpPacket.h>
#include <talrtp/TalRtpSession.h>
#include <talrtp/TalRtpTrace.h>
#include <talrtp/TalTime.h>

#endif  // TALRTP_TALRTP_H

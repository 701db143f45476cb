// RTCP for a host: records of all packet types, a writer and a reader for both wire forms.
//
// Use Form::kRfc3550 with everybody else (ffmpeg, GStreamer, browsers, monitoring tools) and Form::kNative
// with a peer whose RTCP is built and read by this library's own stack. docs/rtcp.md tells both byte by byte.

#ifndef TALRTP_KIT_RTCP_H
#define TALRTP_KIT_RTCP_H

#include <talrtp/kit/RtcpPackets.h>
#include <talrtp/kit/RtcpReader.h>
#include <talrtp/kit/RtcpWriter.h>

#endif  // TALRTP_KIT_RTCP_H

// Session descriptions in files.

#ifndef TALRTP_HOST_SDPFILE_H
#define TALRTP_HOST_SDPFILE_H

#include <talrtp/kit/Sdp.h>

#include <string>

namespace talrtp::host {

// Throws CHostError when the file cannot be read or describes no H.264 stream.
kit::Sdp readSdpFile(const std::string& path);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_SDPFILE_H

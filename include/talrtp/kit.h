// Everything of the kit: the front door of the library for hosts. Needs C++17.

#ifndef TALRTP_KIT_H
#define TALRTP_KIT_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Datagram.h>
#include <talrtp/kit/Failure.h>
#include <talrtp/kit/Fec.h>
#include <talrtp/kit/ReceiverOptions.h>
#include <talrtp/kit/ReceptionReport.h>
#include <talrtp/kit/Rtcp.h>
#include <talrtp/kit/SenderOptions.h>
#include <talrtp/kit/SessionHandle.h>
#include <talrtp/kit/Statistics.h>
#include <talrtp/kit/Time.h>

#endif  // TALRTP_KIT_H

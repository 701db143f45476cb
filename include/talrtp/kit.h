// Everything of the kit: the front door of the library for hosts. Needs C++17.

#ifndef TALRTP_KIT_H
#define TALRTP_KIT_H

#include <talrtp/kit/AccessUnitSplitter.h>
#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/Base64.h>
#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Datagram.h>
#include <talrtp/kit/Demux.h>
#include <talrtp/kit/Failure.h>
#include <talrtp/kit/Fec.h>
#include <talrtp/kit/FecGrouping.h>
#include <talrtp/kit/Marker.h>
#include <talrtp/kit/MediaClock.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/Pacer.h>
#include <talrtp/kit/PacketArray.h>
#include <talrtp/kit/PacketHead.h>
#include <talrtp/kit/PackingPlan.h>
#include <talrtp/kit/Picture.h>
#include <talrtp/kit/PlayoutQueue.h>
#include <talrtp/kit/RbspReader.h>
#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/ReceiverOptions.h>
#include <talrtp/kit/ReceptionReport.h>
#include <talrtp/kit/Rtcp.h>
#include <talrtp/kit/Sdp.h>
#include <talrtp/kit/Sender.h>
#include <talrtp/kit/SenderOptions.h>
#include <talrtp/kit/SessionClock.h>
#include <talrtp/kit/SessionHandle.h>
#include <talrtp/kit/SourceFilter.h>
#include <talrtp/kit/Sps.h>
#include <talrtp/kit/StapUnitCutter.h>
#include <talrtp/kit/Statistics.h>
#include <talrtp/kit/Time.h>
#include <talrtp/kit/Trace.h>
#include <talrtp/kit/UnitRun.h>

#endif  // TALRTP_KIT_H

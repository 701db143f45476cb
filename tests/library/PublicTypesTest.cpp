// The types that hosts compile against, one by one: return types, const, constructors, records and members.
// Most of it is proved when this file compiles.

#include <talrtp/talrtp.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <type_traits>
#include <utility>

namespace talrtp {
namespace {

// Takes the overload of exactly this type; any other return type, argument or const does not compile.
template <typename Exact>
constexpr bool isOf(Exact /*function*/) {
    return true;
}

template <typename A, typename B>
constexpr bool isSame() {
    return std::is_same<A, B>::value;
}

using Buffer = unsigned char*;

// --- Constants and helpers -------------------------------------------------------------------------------

static_assert(isSame<decltype(RTP_FEC_XOR), const unsigned int>() && RTP_FEC_XOR == 0);
static_assert(isSame<decltype(RTP_FEC_RS), const unsigned int>() && RTP_FEC_RS == 1);
static_assert(isSame<decltype(MAX_PACKET_SIZE), const int>() && MAX_PACKET_SIZE == 1600);

static_assert(isSame<decltype(tal_swap), void(void*, int)>());
static_assert(isSame<decltype(tal_net_to_host_long), unsigned int(unsigned int)>());
static_assert(isSame<decltype(tal_net_to_host_short), unsigned short(unsigned short)>());
static_assert(isSame<decltype(tal_host_to_net_long), unsigned int(unsigned int)>());
static_assert(isSame<decltype(tal_host_to_net_short), unsigned short(unsigned short)>());
static_assert(isSame<decltype(random32), unsigned int()>());
static_assert(isSame<decltype(get_external_trace_mask), int()>());
static_assert(isSame<decltype(util_adapter_trace), void(int, const char*, const char*, unsigned int)>());

// Hosts pass the constants where a reference is taken.
TEST(PublicConstants, MayBeBoundToReferences) {
    EXPECT_EQ(std::min(1601, MAX_PACKET_SIZE), 1600);
    EXPECT_EQ(std::max(RTP_FEC_XOR, RTP_FEC_RS), 1u);
    EXPECT_EQ(std::min(PACKET_TYPE_PLAIN, PACKET_TYPE_UNITS), 0u);
}

// --- The packet ------------------------------------------------------------------------------------------

template <typename Result>
using PacketGetter = Result (CTalRtpPacket::*)() const;
template <typename Value>
using PacketSetter = void (CTalRtpPacket::*)(Value);

static_assert(isOf<PacketGetter<bool>>(&CTalRtpPacket::get_pad_flag));
static_assert(isOf<PacketGetter<bool>>(&CTalRtpPacket::get_extension_flag));
static_assert(isOf<PacketGetter<bool>>(&CTalRtpPacket::get_marker_flag));
static_assert(isOf<PacketGetter<unsigned int>>(&CTalRtpPacket::get_version));
static_assert(isOf<PacketGetter<unsigned int>>(&CTalRtpPacket::get_payload_type));
static_assert(isOf<PacketGetter<int>>(&CTalRtpPacket::get_contrib_src_count));
static_assert(isOf<PacketGetter<int>>(&CTalRtpPacket::get_header_size));
static_assert(isOf<PacketGetter<int>>(&CTalRtpPacket::get_packet_size));
static_assert(isOf<PacketGetter<int>>(&CTalRtpPacket::get_buffer_size));
static_assert(isOf<PacketGetter<int>>(&CTalRtpPacket::get_payload_size));
static_assert(isOf<PacketGetter<unsigned short>>(&CTalRtpPacket::get_sequence_number));
static_assert(isOf<PacketGetter<unsigned int>>(&CTalRtpPacket::get_timestamp));
static_assert(isOf<PacketGetter<unsigned int>>(&CTalRtpPacket::get_sync_source));
static_assert(isOf<unsigned int (CTalRtpPacket::*)(int) const>(&CTalRtpPacket::get_contrib_source));
static_assert(isOf<PacketGetter<Buffer>>(&CTalRtpPacket::get_buffer));
static_assert(isOf<PacketGetter<Buffer>>(&CTalRtpPacket::get_payload_ptr));
static_assert(isOf<PacketGetter<_packet_type_t>>(&CTalRtpPacket::get_packet_type));
static_assert(isOf<PacketGetter<char*>>(&CTalRtpPacket::operator char*));
static_assert(isOf<PacketGetter<const char*>>(&CTalRtpPacket::operator const char*));
static_assert(isOf<PacketGetter<bool>>(&CTalRtpPacket::validate));
static_assert(
    isOf<bool (CTalRtpPacket::*)(unsigned short, Buffer, int*) const>(&CTalRtpPacket::get_extension));

static_assert(isOf<PacketSetter<unsigned int>>(&CTalRtpPacket::set_version));
static_assert(isOf<PacketSetter<bool>>(&CTalRtpPacket::set_pad_flag));
static_assert(isOf<PacketSetter<bool>>(&CTalRtpPacket::set_extension_flag));
static_assert(isOf<PacketSetter<int>>(&CTalRtpPacket::set_contrib_src_count));
static_assert(isOf<PacketSetter<bool>>(&CTalRtpPacket::set_marker_flag));
static_assert(isOf<PacketSetter<unsigned int>>(&CTalRtpPacket::set_payload_type));
static_assert(isOf<PacketSetter<unsigned short>>(&CTalRtpPacket::set_sequence_number));
static_assert(isOf<PacketSetter<unsigned int>>(&CTalRtpPacket::set_timestamp));
static_assert(isOf<PacketSetter<unsigned int>>(&CTalRtpPacket::set_sync_source));
static_assert(isOf<PacketSetter<int>>(&CTalRtpPacket::set_payload_size));
static_assert(isOf<PacketSetter<_packet_type_t>>(&CTalRtpPacket::set_packet_type));
static_assert(isOf<void (CTalRtpPacket::*)(int, unsigned int)>(&CTalRtpPacket::set_contrib_source));
static_assert(isOf<void (CTalRtpPacket::*)(unsigned short, Buffer, int)>(&CTalRtpPacket::set_extension));
static_assert(isOf<void (CTalRtpPacket::*)(Buffer, int)>(&CTalRtpPacket::from_buffer));
static_assert(isOf<void (CTalRtpPacket::*)()>(&CTalRtpPacket::reset));

static_assert(isOf<unsigned int (*)(Buffer)>(&CTalRtpPacket::get_timestamp));
static_assert(isOf<void (*)(Buffer, unsigned int)>(&CTalRtpPacket::set_timestamp));
static_assert(isOf<unsigned short (*)(Buffer)>(&CTalRtpPacket::get_sequence_number));
static_assert(isOf<void (*)(Buffer, unsigned short)>(&CTalRtpPacket::set_sequence_number));
static_assert(isOf<unsigned int (*)(Buffer)>(&CTalRtpPacket::get_payload_type));
static_assert(isOf<unsigned int (*)(Buffer)>(&CTalRtpPacket::get_ssrc));
static_assert(isOf<int (*)(Buffer)>(&CTalRtpPacket::get_header_size));
static_assert(isOf<Buffer (*)(Buffer)>(&CTalRtpPacket::get_payload_ptr));
static_assert(isOf<Buffer (*)(unsigned short, Buffer, int)>(&CTalRtpPacket::get_extension));

static_assert(
    isOf<bool (*)(Buffer, int, unsigned char, Buffer&, int&)>(&CTalRtpPacket::get_onebyte_extension_element));
static_assert(isOf<bool (CTalRtpPacket::*)(unsigned char, Buffer&, int&) const>(
    &CTalRtpPacket::get_onebyte_extension_element));
static_assert(
    isOf<bool (CTalRtpPacket::*)(unsigned char, Buffer, int)>(&CTalRtpPacket::add_onebyte_extension_element));
static_assert(isOf<bool (CTalRtpPacket::*)(Buffer, Buffer*, int*, int)>(
    &CTalRtpPacket::add_onebyte_extension_elements));

// The constructors and the assignment of a packet class. No constructor is explicit; a copy is taken from an
// object that may be changed, never from a temporary one.
template <typename Packet>
constexpr bool isMadeAndCopiedAsDocumented() {
    return std::is_convertible<int, Packet>::value &&
           isSame<decltype(std::declval<void (&)(Packet)>()({Buffer(), 12})), void>() &&
           std::is_convertible<Packet&, Packet>::value &&
           !std::is_constructible<Packet, const Packet&>::value &&
           isSame<decltype(std::declval<Packet&>() = std::declval<const Packet&>()), Packet&>();
}
static_assert(isMadeAndCopiedAsDocumented<CTalRtpPacket>());
static_assert(isMadeAndCopiedAsDocumented<CRTPFECPacket>());
static_assert(isMadeAndCopiedAsDocumented<CRTPRSPacket>());

// --- The FEC packets -------------------------------------------------------------------------------------

template <typename Result>
using XorGetter = Result (CRTPFECPacket::*)() const;
template <typename Value>
using XorSetter = void (CRTPFECPacket::*)(Value);
template <typename Result>
using RsGetter = Result (CRTPRSPacket::*)() const;
template <typename Value>
using RsSetter = void (CRTPRSPacket::*)(Value);

static_assert(isOf<XorGetter<unsigned short>>(&CRTPFECPacket::get_fec_sequence_number_base));
static_assert(isOf<XorSetter<unsigned short>>(&CRTPFECPacket::set_fec_sequence_number_base));
static_assert(isOf<XorGetter<unsigned short>>(&CRTPFECPacket::get_fec_recover_length));
static_assert(isOf<XorSetter<unsigned short>>(&CRTPFECPacket::set_fec_recover_length));
static_assert(isOf<XorGetter<bool>>(&CRTPFECPacket::get_fec_extension_flag));
static_assert(isOf<XorSetter<bool>>(&CRTPFECPacket::set_fec_extension_flag));
static_assert(isOf<XorGetter<unsigned char>>(&CRTPFECPacket::get_fec_recover_payload_type));
static_assert(isOf<XorSetter<unsigned char>>(&CRTPFECPacket::set_fec_recover_payload_type));
static_assert(isOf<XorGetter<unsigned int>>(&CRTPFECPacket::get_fec_mask));
static_assert(isOf<XorSetter<unsigned int>>(&CRTPFECPacket::set_fec_mask));
static_assert(isOf<XorGetter<unsigned int>>(&CRTPFECPacket::get_fec_recover_timestamp));
static_assert(isOf<XorSetter<unsigned int>>(&CRTPFECPacket::set_fec_recover_timestamp));
static_assert(isOf<XorGetter<bool>>(&CRTPFECPacket::get_fec_recover_pad_flag));
static_assert(isOf<XorGetter<bool>>(&CRTPFECPacket::get_fec_recover_extension_flag));
static_assert(isOf<XorGetter<int>>(&CRTPFECPacket::get_fec_recover_contrib_src_count));
static_assert(isOf<XorGetter<bool>>(&CRTPFECPacket::get_fec_recover_marker_flag));

// The overrides are its own.
static_assert(isOf<unsigned int (CRTPFECPacket::*)(int) const>(&CRTPFECPacket::get_contrib_source));
static_assert(isSame<decltype(&CRTPFECPacket::get_header_size), XorGetter<int>>());
static_assert(isSame<decltype(&CRTPFECPacket::validate), XorGetter<bool>>());

static_assert(isOf<RsGetter<unsigned short>>(&CRTPRSPacket::get_rs_sequence_number_base));
static_assert(isOf<RsSetter<unsigned short>>(&CRTPRSPacket::set_rs_sequence_number_base));
static_assert(isOf<RsGetter<unsigned short>>(&CRTPRSPacket::get_rs_recover_length));
static_assert(isOf<RsSetter<unsigned short>>(&CRTPRSPacket::set_rs_recover_length));
static_assert(isOf<RsGetter<unsigned char>>(&CRTPRSPacket::get_rs_index));
static_assert(isOf<RsSetter<unsigned char>>(&CRTPRSPacket::set_rs_index));
static_assert(isOf<RsGetter<unsigned char>>(&CRTPRSPacket::get_rs_count));
static_assert(isOf<RsSetter<unsigned char>>(&CRTPRSPacket::set_rs_count));
static_assert(isOf<RsGetter<unsigned char>>(&CRTPRSPacket::get_rs_mask));
static_assert(isOf<RsSetter<unsigned char>>(&CRTPRSPacket::set_rs_mask));

// --- The codec -------------------------------------------------------------------------------------------

static_assert(offsetof(rs_param_, k) == 0 && isSame<decltype(rs_param_::k), int>());
static_assert(offsetof(rs_param_, n) == 4 && isSame<decltype(rs_param_::n), int>());
static_assert(offsetof(rs_param_, enc_matrix) == 8 && isSame<decltype(rs_param_::enc_matrix), Buffer>());

static_assert(isSame<decltype(m_bInited), bool>());
static_assert(isSame<decltype(gf_exp), const unsigned char[510]>());
static_assert(isSame<decltype(gf_log), const int[256]>());
static_assert(isSame<decltype(gf_mul_table), const unsigned char[256][256]>());
static_assert(isSame<decltype(gf_div_table), const unsigned char[256][256]>());

static_assert(isOf<int (*)()>(&CRsFec::InitRsCoding));
static_assert(isOf<rs_param_* (*)(int, int)>(&CRsFec::CreateRsModel));
static_assert(isOf<void (*)(rs_param_*)>(&CRsFec::DeleteRsModel));
static_assert(isOf<int (*)(rs_param_*, Buffer*, int, Buffer*)>(&CRsFec::Encode));
static_assert(isOf<int (*)(rs_param_*, Buffer*, int*, Buffer*)>(&CRsFec::Encode));
static_assert(isOf<int (*)(rs_param_*, Buffer*, int, int*, Buffer*, int*, int)>(&CRsFec::Decode));
static_assert(isOf<int (*)(rs_param_*, Buffer*, int*, int*, Buffer*, int*, int)>(&CRsFec::Decode));
static_assert(isSame<decltype(bld_dec_mat), int(rs_param_*, Buffer, int*)>());
static_assert(isSame<decltype(gf_addmul), void(Buffer, Buffer, unsigned char, int)>());
static_assert(isSame<decltype(gf_add), void(Buffer, Buffer, int)>());
static_assert(isSame<decltype(gf_divide), unsigned char(unsigned char, unsigned char)>());
static_assert(isSame<decltype(GetRsModel), rs_param_*(int, int)>());
static_assert(isSame<decltype(RsMapRetain), unsigned int()>());
static_assert(isSame<decltype(RsMapRelease), void()>());
static_assert(isSame<decltype(RsMapClear), void()>());

// --- The session -----------------------------------------------------------------------------------------

static_assert(isSame<decltype(TalCreateRTPSession),
                     void(ITalRTPSession**, ITalRTPSessionSink*, unsigned int, unsigned int)>());
static_assert(isSame<decltype(TalDestroyRTPSession), void(ITalRTPSession*)>());
static_assert(isSame<decltype(&ITalRTPSessionSink::OnReceivedRTPPacket),
                     void (ITalRTPSessionSink::*)(CTalRtpPacket*)>());
static_assert(std::has_virtual_destructor<ITalRTPSessionSink>::value);
static_assert(std::has_virtual_destructor<ITalRTPSession>::value);
static_assert(std::is_abstract<ITalRTPSession>::value);

static_assert(isSame<decltype(&ITalRTPSession::SetPayloadType),
                     int (ITalRTPSession::*)(unsigned long, unsigned long)>());
static_assert(isSame<decltype(&ITalRTPSession::SetFecType), int (ITalRTPSession::*)(unsigned long)>());
static_assert(isSame<decltype(&ITalRTPSession::CreateStapaPacket),
                     int (ITalRTPSession::*)(unsigned long, int, int*, Buffer*, CTalRtpPacket*)>());
static_assert(isSame<decltype(&ITalRTPSession::CreateFuaPackets),
                     int (ITalRTPSession::*)(unsigned long, int, Buffer, int, CTalRtpPacket*)>());
static_assert(isSame<decltype(&ITalRTPSession::CreateSinglePacket),
                     int (ITalRTPSession::*)(unsigned long, int, Buffer, CTalRtpPacket*)>());
static_assert(isSame<decltype(&ITalRTPSession::CreateXorFecPackets),
                     int (ITalRTPSession::*)(CTalRtpPacket*, int, unsigned int, CRTPFECPacket*)>());
static_assert(isSame<decltype(&ITalRTPSession::CreateRsFecPackets),
                     int (ITalRTPSession::*)(CTalRtpPacket*, int, CTalRtpPacket*, int)>());
static_assert(isSame<decltype(&ITalRTPSession::InputReceivedData),
                     int (ITalRTPSession::*)(Buffer, int, unsigned long)>());
static_assert(isSame<decltype(&ITalRTPSession::ForceHandover), int (ITalRTPSession::*)(unsigned long)>());

static_assert(isSame<decltype(&CMMRTPSessionBase::random32), unsigned int (*)()>());
static_assert(
    isSame<decltype(&CMMRTPSessionBase::deployXorProcess), void (*)(Buffer, Buffer, Buffer, int)>());
static_assert(isSame<decltype(deployXorProcess), void(Buffer, Buffer, Buffer, int)>());
static_assert(isSame<decltype(&CMMRTPSessionBase::compareSeq), int (*)(unsigned short, unsigned short)>());
static_assert(isSame<decltype(&CMMRTPSessionBase::compareTS), int (*)(unsigned int, unsigned int)>());
static_assert(std::is_constructible<CMMRTPSessionBase, ITalRTPSessionSink*, unsigned int>::value);
static_assert(std::is_constructible<CMMRTPSession4SVC, ITalRTPSessionSink*, unsigned int>::value);
static_assert(std::is_base_of<ITalRTPSession, CMMRTPSessionBase>::value);
static_assert(std::is_base_of<CMMRTPSessionBase, CMMRTPSession4SVC>::value);

// A map of the standard library in the plain order of its keys; the allocator is the library's choice.
template <typename Map, typename Key, typename Value>
constexpr bool isOrderedMap() {
    return isSame<Map, std::map<Key, Value, std::less<Key>, typename Map::allocator_type>>();
}
template <typename List>
constexpr bool isSeqList() {
    return isSame<List, std::list<unsigned short, typename List::allocator_type>>();
}

static_assert(isSame<decltype(stTalRtpDataInfo::startSeq), unsigned short>());
static_assert(isSame<decltype(stTalRtpDataInfo::packetCount), int>());
static_assert(isSame<decltype(stTalRtpDataInfo::delivered), bool>());
static_assert(isSame<decltype(stTalRtpDataInfo::complete), bool>());
static_assert(offsetof(stTalRtpDataInfo, startSeq) == 0 && offsetof(stTalRtpDataInfo, packetCount) == 4);
static_assert(offsetof(stTalRtpDataInfo, delivered) == 8 && offsetof(stTalRtpDataInfo, complete) == 9);

static_assert(isSame<decltype(stTalRtpTSInfo::createTime), std::uint64_t>());
static_assert(isSame<decltype(stTalRtpTSInfo::updateTime), std::uint64_t>());
static_assert(isOrderedMap<decltype(stTalRtpTSInfo::dataInfoMap), unsigned short, stTalRtpDataInfo*>());
static_assert(isSeqList<decltype(stTalRtpTSInfo::mediaSeqList)>());
static_assert(isSeqList<decltype(stTalRtpTSInfo::fecSeqList)>());

// Sees the members that a derived class of a host sees. They lie one after another in the documented order.
class MemberProbe : public CMMRTPSession4SVC {
public:
    static_assert(isSame<decltype(m_pSink), ITalRTPSessionSink*>());
    static_assert(isSame<decltype(m_sourceId), unsigned int>());
    static_assert(isSame<decltype(m_payloadType), unsigned int>());
    static_assert(isSame<decltype(m_fecPayloadType), unsigned int>());
    static_assert(isSame<decltype(m_fecType), unsigned int>());
    static_assert(isSame<decltype(m_sequenceNumber), unsigned short>());
    static_assert(isSame<decltype(m_fecSequenceNumber), unsigned short>());
    static_assert(isOrderedMap<decltype(m_mediaPacketList), unsigned short, CTalRtpPacket*>());
    static_assert(isOrderedMap<decltype(m_fecPacketList), unsigned short, CTalRtpPacket*>());
    static_assert(isOrderedMap<decltype(m_recoverPacketList), unsigned short, CTalRtpPacket*>());
    static_assert(isOrderedMap<decltype(m_tsInfoList), unsigned int, stTalRtpTSInfo*>());
    static_assert(isSame<decltype(m_receivedTS), unsigned int>());
    static_assert(isSame<decltype(m_firstReceivedTime), std::uint64_t>());
    static_assert(isSame<decltype(m_lastReceivedTime), std::uint64_t>());
    static_assert(isSame<decltype(m_isFirstReceived), bool>());
    static_assert(isSame<decltype(m_createdMediaPacketNumber), std::uint64_t>());
    static_assert(isSame<decltype(m_deliveredDataBytes), std::uint64_t>());
    static_assert(isSame<decltype(m_nalHeader), unsigned char>());
};

// --- The RTCP stack --------------------------------------------------------------------------------------

static_assert(isSame<decltype(TalCreateRTCPStack), void(ITalRTCPStack**)>());
static_assert(isSame<decltype(TalDestroyRTCPStack), void(ITalRTCPStack*)>());
static_assert(isSame<decltype(&ITalRTCPStackSink::OnRtcpPacket), void (ITalRTCPStackSink::*)(Buffer, int)>());
static_assert(std::has_virtual_destructor<ITalRTCPStackSink>::value);
static_assert(std::has_virtual_destructor<ITalRTCPStack>::value);
static_assert(std::is_abstract<ITalRTCPStack>::value);
static_assert(std::is_base_of<ITalRTCPStack, CTalRTCPStack>::value);

// All fields of the sender info are unsigned int, and so are those of a report block beside its bit-fields.
static_assert(isSame<decltype(_SenderInfo::ntpTimestampMsw), unsigned int>());
static_assert(offsetof(_SenderInfo, ntpTimestampLsw) == 4 && offsetof(_SenderInfo, rtpTimestamp) == 8);
static_assert(offsetof(_SenderInfo, packetCount) == 12 && offsetof(_SenderInfo, octetCount) == 16);
static_assert(isSame<decltype(_ReportBlock::fractionLost), unsigned int>());
static_assert(isSame<decltype(_ReportBlock::cumulativeLost), unsigned int>());
static_assert(offsetof(_ReportBlock, ssrc) == 0 && offsetof(_ReportBlock, extendedHighestSeq) == 8);
static_assert(offsetof(_ReportBlock, jitter) == 12 && offsetof(_ReportBlock, lastSR) == 16);
static_assert(offsetof(_ReportBlock, delaySinceLastSR) == 20);
static_assert(isSame<decltype(_SdesItem::data), unsigned char[256]>());
static_assert(offsetof(_SdesItem, ssrc) == 0 && offsetof(_SdesItem, type) == 4);
static_assert(offsetof(_SdesItem, length) == 5 && offsetof(_SdesItem, data) == 6);

// The operations that the interface and its class share.
template <typename Stack>
constexpr bool hasTheRtcpOperations() {
    using Code = std::int64_t;
    using Uint = unsigned int;
    using Uchar = unsigned char;
    using CountGetter = Uint (Stack::*)(Buffer, int);
    using RangeGetter = Code (Stack::*)(Buffer, int, Buffer&, int&);
    using FeedbackBuilder = Code (Stack::*)(Uint, Uint, Uchar, Buffer, int, Buffer, int&);

    return isOf<Code (Stack::*)(Uint, _SenderInfo*, _ReportBlock*, int, Buffer, int&)>(
               &Stack::CreateSenderReportPacket) &&
           isOf<Code (Stack::*)(Uint, _ReportBlock*, int, Buffer, int&)>(
               &Stack::CreateReceiverReportPacket) &&
           isOf<Code (Stack::*)(_SdesItem*, int, Buffer, int&)>(&Stack::CreateSdesPacket) &&
           isOf<Code (Stack::*)(Uint*, int, Buffer, int&)>(&Stack::CreateByePacket) &&
           isOf<Code (Stack::*)(Uint, Uchar, Buffer, Buffer, int, Buffer, int&)>(&Stack::CreateAppPacket) &&
           isOf<FeedbackBuilder>(&Stack::CreateRTPFBPacket) &&
           isOf<FeedbackBuilder>(&Stack::CreatePSFBPacket) &&
           isOf<Code (Stack::*)(Buffer*, int*, int, Buffer, int&)>(&Stack::CreateCompoundPacket) &&
           isOf<Code (Stack::*)(ITalRTCPStackSink*, Buffer, int)>(&Stack::InputReceivedRtcpData) &&
           isOf<bool (Stack::*)(Buffer, int)>(&Stack::IsValidRtcpPacket) &&
           isOf<CountGetter>(&Stack::GetRtcpPacketType) && isOf<CountGetter>(&Stack::GetRtcpPacketSsrc) &&
           isOf<CountGetter>(&Stack::GetReportBlockCount) &&
           isOf<Code (Stack::*)(Buffer, int, _ReportBlock*, int&)>(&Stack::GetReportBlock) &&
           isOf<Code (Stack::*)(Buffer, int, _SenderInfo*)>(&Stack::GetReportSenderInfo) &&
           isOf<RangeGetter>(&Stack::GetReportExtension) && isOf<CountGetter>(&Stack::GetSdesItemCount) &&
           isOf<Code (Stack::*)(Buffer, int, _SdesItem*, int&)>(&Stack::GetSdesItem) &&
           isOf<CountGetter>(&Stack::GetByeSsrcCount) &&
           isOf<Code (Stack::*)(Buffer, int, Uint*, int&)>(&Stack::GetByeSsrc) &&
           isOf<CountGetter>(&Stack::GetAppSubType) &&
           isOf<Code (Stack::*)(Buffer, int, Buffer)>(&Stack::GetAppName) &&
           isOf<RangeGetter>(&Stack::GetAppData) && isOf<CountGetter>(&Stack::GetRTPFBSubType) &&
           isOf<CountGetter>(&Stack::GetPSFBSubType) &&
           isOf<Code (Stack::*)(Buffer, int, Uint&, Uint&)>(&Stack::GetFBSsrc) &&
           isOf<RangeGetter>(&Stack::GetFBFCIData);
}
static_assert(hasTheRtcpOperations<ITalRTCPStack>());
static_assert(hasTheRtcpOperations<CTalRTCPStack>());

template <typename Value>
using FieldWriter = void (CTalRTCPStack::*)(Value, Buffer);
template <typename Value>
using FieldReader = Value (CTalRTCPStack::*)(Buffer);

static_assert(isOf<FieldWriter<unsigned char>>(&CTalRTCPStack::SetVersion));
static_assert(isOf<FieldWriter<bool>>(&CTalRTCPStack::SetPaddingFlag));
static_assert(isOf<FieldWriter<unsigned char>>(&CTalRTCPStack::SetPayloadCount));
static_assert(isOf<FieldWriter<unsigned char>>(&CTalRTCPStack::SetSubType));
static_assert(isOf<FieldWriter<unsigned char>>(&CTalRTCPStack::SetPayloadType));
static_assert(isOf<FieldWriter<unsigned int>>(&CTalRTCPStack::SetSyncSource));
static_assert(isOf<FieldWriter<unsigned short>>(&CTalRTCPStack::SetPacketLength));
static_assert(isOf<int (CTalRTCPStack::*)(_SenderInfo*, Buffer)>(&CTalRTCPStack::SetSenderInfo));
static_assert(isOf<int (CTalRTCPStack::*)(_ReportBlock*, Buffer)>(&CTalRTCPStack::SetReportBlock));
static_assert(isOf<int (CTalRTCPStack::*)(_SdesItem*, Buffer)>(&CTalRTCPStack::SetSdesItem));
static_assert(isOf<FieldReader<unsigned char>>(&CTalRTCPStack::GetVersion));
static_assert(isOf<FieldReader<unsigned char>>(&CTalRTCPStack::GetPaddingFlag));
static_assert(isOf<FieldReader<unsigned char>>(&CTalRTCPStack::GetPayloadCount));
static_assert(isOf<FieldReader<unsigned char>>(&CTalRTCPStack::GetSubType));
static_assert(isOf<FieldReader<unsigned char>>(&CTalRTCPStack::GetPayloadType));
static_assert(isOf<FieldReader<unsigned int>>(&CTalRTCPStack::GetSyncSource));
static_assert(isOf<FieldReader<unsigned short>>(&CTalRTCPStack::GetPacketLength));
static_assert(isOf<int (CTalRTCPStack::*)(Buffer, _SenderInfo*)>(&CTalRTCPStack::GetSenderInfo));
static_assert(isOf<int (CTalRTCPStack::*)(Buffer, _ReportBlock*)>(&CTalRTCPStack::GetReportBlock));
static_assert(isOf<int (CTalRTCPStack::*)(Buffer, _SdesItem*)>(&CTalRTCPStack::GetSdesItem));

// --- Time ------------------------------------------------------------------------------------------------

static_assert(isSame<decltype(&_time_t::getsecond), unsigned long (_time_t::*)() const>());
static_assert(isSame<decltype(&_time_t::getusecond), unsigned long (_time_t::*)() const>());
static_assert(isSame<decltype(&_time_t::getfraction), unsigned long (_time_t::*)() const>());
static_assert(isSame<decltype(&_time_t::frac2usec), unsigned long (*)(unsigned long)>());
static_assert(isSame<decltype(&_time_t::usec2frac), unsigned long (*)(unsigned long)>());
static_assert(isSame<decltype(&_time_t::set_by_sec_usec), void (_time_t::*)(unsigned long, unsigned long)>());
static_assert(isSame<decltype(&_time_t::set_by_sec_frac), void (_time_t::*)(unsigned long, unsigned long)>());
static_assert(isSame<decltype(&_time_t::operator+), _time_t& (_time_t::*)(double)>());
static_assert(isOf<_time_t& (_time_t::*)(double)>(&_time_t::operator-));
static_assert(isOf<double (_time_t::*)(_time_t) const>(&_time_t::operator-));
static_assert(isSame<decltype(&_time_t::operator==), bool (_time_t::*)(const _time_t&) const>());
static_assert(isSame<decltype(&_time_t::operator<), bool (_time_t::*)(const _time_t&) const>());
static_assert(isSame<decltype(&_time_t::now), _time_t (*)()>());
static_assert(std::is_default_constructible<_time_t>::value);
static_assert(std::is_constructible<_time_t, unsigned long, unsigned long>::value);
static_assert(std::is_copy_constructible<_time_t>::value && std::is_copy_assignable<_time_t>::value);
static_assert(std::has_virtual_destructor<_time_t>::value && sizeof(_time_t) == 24);

static_assert(isSame<decltype(&_timer_t::start), void (_timer_t::*)()>());
static_assert(isSame<decltype(&_timer_t::pause), void (_timer_t::*)()>());
static_assert(isSame<decltype(&_timer_t::stop), void (_timer_t::*)()>());
static_assert(isSame<decltype(&_timer_t::get_elapsed_time), double (_timer_t::*)() const>());
static_assert(isSame<decltype(&_timer_t::seek), void (_timer_t::*)(double)>());
static_assert(std::has_virtual_destructor<_timer_t>::value && sizeof(_timer_t) == 72);

}  // namespace
}  // namespace talrtp

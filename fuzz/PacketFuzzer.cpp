// Calls every getter and setter of a packet object over any bytes, and of its FEC views. `validate` has to
// agree with a plain reading of the bytes.

#include <talrtp/talrtp.h>

#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "TraceCatcher.h"
#include "model/PlainPacket.h"

namespace {

using talrtp::CRTPFECPacket;
using talrtp::CRTPRSPacket;
using talrtp::CTalRtpPacket;
using talrtp::fuzz::ExactBuffer;
using talrtp::fuzz::readFully;
using talrtp::fuzz::require;
using talrtp::model::PacketKind;
using talrtp::model::PlainPacket;
using talrtp::model::Refusal;

// Everything that a host reads of a packet before it knows whether to trust it.
void read(CTalRtpPacket& packet, PacketKind kind) {
    talrtp::test::TraceCatcher trace(1);
    const bool isValid = packet.validate();
    const PlainPacket plain = PlainPacket::fromBytes(packet.get_buffer(), packet.get_packet_size(), kind);
    require(isValid == (plain.refusal() == Refusal::kNone), "what the bytes allow is valid");
    const bool isOnRtpPort = plain.refusal() == Refusal::kReservedType && plain.markerFlag();
    require(trace.lines().size() == (isValid ? 0U : isOnRtpPort ? 2U : 1U), "a refusal has its lines");
    require(packet.get_header_size() == plain.headerSize(), "the header ends where the bytes say");
    const int headerSize = packet.get_header_size();
    require(headerSize >= 12, "a header has at least its fixed part");
    require(packet.get_packet_size() == headerSize + packet.get_payload_size(), "the sizes agree");
    require(!isValid || packet.get_payload_size() >= 0, "a valid packet holds its header");
    for (int i = 0; i < packet.get_contrib_src_count(); ++i) {
        packet.get_contrib_source(i);
    }
    unsigned char data[64] = {};
    int length = sizeof data;
    if (packet.get_extension(0xbede, data, &length)) {
        require(length >= 0 && length <= static_cast<int>(sizeof data),
                "no more is copied than there is room for");
    }
    if (isValid) {
        readFully(packet.get_payload_ptr(), packet.get_payload_size());
    }
}

void readFecFields(CTalRtpPacket& received) {
    CRTPFECPacket xorPacket(received.get_buffer(), received.get_packet_size());
    read(xorPacket, PacketKind::kXorFec);
    require(xorPacket.get_header_size() == 12, "no CSRC or extension counts in an FEC packet");
    xorPacket.set_fec_recover_payload_type(static_cast<unsigned char>(xorPacket.get_fec_mask()));
    xorPacket.get_fec_recover_timestamp();

    CRTPRSPacket rsPacket(received.get_buffer(), received.get_packet_size());
    rsPacket.set_rs_sequence_number_base(rsPacket.get_rs_recover_length());
    require(rsPacket.get_rs_sequence_number_base() == rsPacket.get_rs_recover_length(),
            "what is set is read");
}

// Copies keep every byte of the packet.
void copy(CTalRtpPacket& packet) {
    CTalRtpPacket copied(packet);
    CTalRtpPacket assigned(20);
    assigned = packet;
    require(copied.get_packet_size() == packet.get_packet_size(), "a copy has the packet's size");
    require(
        std::equal(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size(), copied.get_buffer()),
        "a copy has the packet's bytes");
    require(assigned.get_buffer_size() == packet.get_buffer_size(),
            "an assigned packet has the other's capacity");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 12) {
        return 0;
    }
    ExactBuffer bytes(data, static_cast<int>(size));
    CTalRtpPacket packet(bytes.data(), bytes.size());
    read(packet, PacketKind::kMedia);
    readFecFields(packet);
    copy(packet);
    return 0;
}

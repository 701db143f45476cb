// Collects the datagrams of a sender, and reads them back without the library: a plain depacketizer (RFC
// 6184, 5.6 to 5.8) and the groups that FEC packets name.

#ifndef TALRTP_TESTS_KIT_SENTSTREAM_H
#define TALRTP_TESTS_KIT_SENTSTREAM_H

#include <talrtp/TalRtpFecPacket.h>
#include <talrtp/kit/Datagram.h>
#include <talrtp/kit/Fec.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Bytes.h"

namespace talrtp::test {

struct SentDatagram {
    Bytes bytes;
    kit::Datagram told;  // its view is not valid any more

    bool marker() const { return (bytes[1] & 0x80) != 0; }
    Bytes payload() const { return Bytes(bytes.begin() + 12, bytes.end()); }
    std::uint16_t sequence() const { return static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]); }
    std::uint32_t timestamp() const {
        return static_cast<std::uint32_t>(bytes[4]) << 24 | static_cast<std::uint32_t>(bytes[5] << 16) |
               static_cast<std::uint32_t>(bytes[6] << 8) | bytes[7];
    }
};

struct SentStream {
    std::vector<SentDatagram> all;

    void operator()(const kit::Datagram& datagram) {
        all.push_back({Bytes(datagram.bytes.begin(), datagram.bytes.end()), datagram});
    }

    std::vector<SentDatagram> media() const { return only(false); }
    std::vector<SentDatagram> fec() const { return only(true); }

private:
    std::vector<SentDatagram> only(bool isFec) const {
        std::vector<SentDatagram> chosen;
        for (const SentDatagram& each : all) {
            if (each.told.isFec == isFec) {
                chosen.push_back(each);
            }
        }
        return chosen;
    }
};

// Returns the NAL units in media packets that are complete and in order.
inline std::vector<Bytes> depacketize(const std::vector<SentDatagram>& media) {
    std::vector<Bytes> units;
    for (const SentDatagram& each : media) {
        const Bytes payload = each.payload();
        const int type = payload[0] & 0x1f;
        if (type == 24) {
            for (std::size_t at = 1; at < payload.size();) {
                const std::size_t size = static_cast<std::size_t>(payload[at] << 8 | payload[at + 1]);
                const auto unit = payload.begin() + static_cast<std::ptrdiff_t>(at + 2);
                units.emplace_back(unit, unit + static_cast<std::ptrdiff_t>(size));
                at += 2 + size;
            }
        } else if (type == 28) {
            if ((payload[1] & 0x80) != 0) {
                units.push_back({static_cast<std::uint8_t>((payload[0] & 0xe0) | (payload[1] & 0x1f))});
            }
            units.back().insert(units.back().end(), payload.begin() + 2, payload.end());
        } else {
            units.push_back(payload);
        }
    }
    return units;
}

// The media packets that an FEC packet protects, by sequence number.
inline std::vector<std::uint16_t> protectedBy(const SentDatagram& fec, kit::FecScheme scheme) {
    std::vector<std::uint16_t> sequences;
    Bytes bytes = fec.bytes;
    if (scheme == kit::FecScheme::kXor) {
        const CRTPFECPacket packet(bytes.data(), static_cast<int>(bytes.size()));
        for (unsigned int i = 0; i < 24; ++i) {
            if ((packet.get_fec_mask() >> (23 - i) & 1) != 0) {
                sequences.push_back(static_cast<std::uint16_t>(packet.get_fec_sequence_number_base() + i));
            }
        }
        return sequences;
    }
    const CRTPRSPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    for (unsigned int i = 0; i < packet.get_rs_mask(); ++i) {
        sequences.push_back(static_cast<std::uint16_t>(packet.get_rs_sequence_number_base() + i));
    }
    return sequences;
}

}  // namespace talrtp::test

#endif  // TALRTP_TESTS_KIT_SENTSTREAM_H

// RTP packets for the tests of the receiving side, laid out byte by byte.

#ifndef TALRTP_TESTS_KIT_RTPPACKETS_H
#define TALRTP_TESTS_KIT_RTPPACKETS_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Picture.h>
#include <talrtp/kit/Receiver.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Bytes.h"

namespace talrtp::test {

constexpr std::uint32_t kSource = 0x11223344;
constexpr std::uint8_t kMediaType = 98;
constexpr std::uint8_t kFecType = 111;

struct RtpFields {
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    bool hasMarker = false;
    std::uint32_t ssrc = kSource;
    std::uint8_t type = kMediaType;
};

inline Bytes rtp(const RtpFields& fields, const Bytes& payload) {
    const auto byte = [](std::uint32_t value, int shift) {
        return static_cast<std::uint8_t>(value >> shift);
    };
    Bytes packet = {0x80,
                    static_cast<std::uint8_t>(fields.type | (fields.hasMarker ? 0x80 : 0)),
                    byte(fields.sequence, 8),
                    byte(fields.sequence, 0),
                    byte(fields.timestamp, 24),
                    byte(fields.timestamp, 16),
                    byte(fields.timestamp, 8),
                    byte(fields.timestamp, 0),
                    byte(fields.ssrc, 24),
                    byte(fields.ssrc, 16),
                    byte(fields.ssrc, 8),
                    byte(fields.ssrc, 0)};
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

// The payload of a STAP-A.
inline Bytes stapA(const std::vector<Bytes>& units) {
    Bytes payload = {0x78};
    for (const Bytes& unit : units) {
        payload.push_back(static_cast<std::uint8_t>(unit.size() >> 8));
        payload.push_back(static_cast<std::uint8_t>(unit.size()));
        payload.insert(payload.end(), unit.begin(), unit.end());
    }
    return payload;
}

// The payloads of `count` FU-A packets of a unit, which has at least `count` bytes after its header.
inline std::vector<Bytes> fragments(const Bytes& unit, std::size_t count) {
    std::vector<Bytes> payloads;
    std::size_t position = 1;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t size = (unit.size() - position) / (count - i);
        const unsigned int edges = (i == 0 ? 0x80U : 0U) | (i + 1 == count ? 0x40U : 0U);
        Bytes payload = {static_cast<std::uint8_t>((unit[0] & 0xe0U) | 28U),
                         static_cast<std::uint8_t>(edges | (unit[0] & 0x1fU))};
        payload.insert(payload.end(), unit.begin() + static_cast<std::ptrdiff_t>(position),
                       unit.begin() + static_cast<std::ptrdiff_t>(position + size));
        payloads.push_back(payload);
        position += size;
    }
    return payloads;
}

inline Bytes annexB(const std::vector<Bytes>& units) {
    Bytes bytes;
    for (const Bytes& unit : units) {
        bytes.insert(bytes.end(), {0, 0, 0, 1});
        bytes.insert(bytes.end(), unit.begin(), unit.end());
    }
    return bytes;
}

inline kit::TimePoint atMs(int milliseconds) {
    return kit::TimePoint() + std::chrono::milliseconds(milliseconds);
}

inline Bytes copyOf(kit::BytesView view) {
    return Bytes(view.begin(), view.end());
}

// A picture as it was lent, kept.
struct PlayedPicture {
    explicit PlayedPicture(const kit::Picture& picture)
        : timestamp(picture.timestamp()),
          ssrc(picture.ssrc()),
          first(static_cast<std::uint16_t>(picture.firstSequence())),
          last(static_cast<std::uint16_t>(picture.lastSequence())),
          bytes(copyOf(picture.annexB())),
          isComplete(picture.isComplete()),
          missing(picture.missingPackets()),
          rebuilt(picture.rebuiltPackets()) {
        for (std::size_t i = 0; i < picture.units().size(); ++i) {
            units.push_back(copyOf(picture.units()[i]));
            areWhole.push_back(picture.isUnitWhole(i));
        }
    }

    std::uint32_t timestamp;
    std::uint32_t ssrc;
    std::uint16_t first;
    std::uint16_t last;
    Bytes bytes;
    bool isComplete;
    std::size_t missing;
    std::size_t rebuilt;
    std::vector<Bytes> units;
    std::vector<bool> areWhole;
};

// A receiver that keeps the pictures that it plays.
class KeepingReceiver {
public:
    explicit KeepingReceiver(const kit::ReceiverOptions& options = {})
        : receiver(options, [this](const kit::Picture& picture) { pictures.emplace_back(picture); }) {}

    kit::PushResult push(const Bytes& datagram, int ms) { return receiver.push(datagram, atMs(ms)); }
    kit::PushResult push(const RtpFields& fields, const Bytes& payload, int ms) {
        return push(rtp(fields, payload), ms);
    }

    // The timestamps of the pictures played since the last call.
    std::vector<std::uint32_t> played() {
        std::vector<std::uint32_t> timestamps;
        for (; m_told < pictures.size(); ++m_told) {
            timestamps.push_back(pictures[m_told].timestamp);
        }
        return timestamps;
    }

    std::vector<PlayedPicture> pictures;
    kit::Receiver receiver;

private:
    std::size_t m_told = 0;
};

}  // namespace talrtp::test

#endif  // TALRTP_TESTS_KIT_RTPPACKETS_H

// A kit receiver under a script: streams of a kit sender, lost, repeated, late and mutated, datagrams laid
// out by the script, raw bytes, and a clock that leaps in both directions. Whatever arrives, pictures are
// played in order, each once, with units that match their bytes, and `poll` never asks to be called in the
// past.

#include "FuzzSupport.h"

#include <talrtp/kit/Receiver.h>
#include <talrtp/kit/Sender.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

namespace {

using talrtp::fuzz::Bytes;
using talrtp::fuzz::require;
using talrtp::kit::BytesView;
using talrtp::kit::Duration;
using talrtp::kit::FecScheme;
using talrtp::kit::Picture;
using talrtp::kit::Receiver;
using talrtp::kit::ReceiverOptions;
using talrtp::kit::Sender;
using talrtp::kit::SenderOptions;
using talrtp::kit::Statistics;
using talrtp::kit::TimePoint;

// The fuzzer's bytes, one after the other; zeros when they are used up.
class Script {
public:
    Script(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool isAtEnd() const { return m_at >= m_size; }
    std::uint8_t byte() { return m_at < m_size ? m_data[m_at++] : std::uint8_t{0}; }
    std::uint16_t word() { return static_cast<std::uint16_t>(byte() << 8 | byte()); }
    Bytes bytes(std::size_t count) {
        Bytes result;
        for (std::size_t i = 0; i < count; ++i) {
            result.push_back(byte());
        }
        return result;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

class ReceiverScript {
public:
    ReceiverScript(const std::uint8_t* data, std::size_t size)
        : m_script(data, size),
          m_receiver(readOptions(m_script), [this](const Picture& picture) { check(picture); }),
          m_sender(readSender(m_script), [this](const talrtp::kit::Datagram& datagram) {
              m_sent.emplace_back(datagram.bytes.begin(), datagram.bytes.end());
          }) {}

    void run() {
        while (!m_script.isAtEnd()) {
            step();
            checkCounts();
        }
        m_receiver.finish();
        checkCounts();
        require(!m_receiver.poll(m_now), "nothing waits after the end");
    }

private:
    static constexpr std::uint32_t kSource = 0x01020304;

    static FecScheme schemeOf(std::uint8_t flags) {
        return flags % 3 == 0 ? FecScheme::kNone : flags % 3 == 1 ? FecScheme::kXor : FecScheme::kReedSolomon;
    }

    ReceiverOptions readOptions(Script& script) {
        const std::uint8_t flags = script.byte();
        m_scheme = schemeOf(flags);
        ReceiverOptions options;
        options.fec = m_scheme;
        options.wait = std::chrono::milliseconds(4 * script.byte());
        options.sourceTimeout = std::chrono::milliseconds(8 * script.byte() + 1);
        if ((flags & 0x40) != 0) {
            options.ssrc = kSource;
        }
        if ((flags & 0x80) != 0) {
            options.parameterSets = {{0x67, 1, 2}, {0x68, 3}};
        }
        return options;
    }

    SenderOptions readSender(Script& script) const {
        SenderOptions options;
        options.ssrc = kSource;
        options.mtu = 100 + script.byte();
        options.firstSequence = script.word();
        options.firstFecSequence = script.word();
        if (m_scheme == FecScheme::kXor) {
            options.fec = talrtp::kit::Fec::xorParity(1 + script.byte() % 24);
        } else if (m_scheme == FecScheme::kReedSolomon) {
            options.fec = talrtp::kit::Fec::reedSolomon(1 + script.byte() % 20, 1 + script.byte() % 5);
        }
        return options;
    }

    void step() {
        switch (m_script.byte() % 12) {
            case 0:
                return sendPicture();
            case 1:
            case 2:
            case 3:
                return deliver(0);
            case 4:
                return deliver(m_script.byte());
            case 5:
                return lose();
            case 6:
                return mutate();
            case 7:
                return pushLaidOut();
            case 8:
                return push(m_script.bytes(m_script.byte()));
            case 9:
                return leap();
            case 10:
                return poll();
            default:
                return finishOrFlush();
        }
    }

    void sendPicture() {
        const std::uint8_t shape = m_script.byte();
        std::vector<Bytes> units;
        for (int i = 0; i <= shape % 6; ++i) {
            Bytes unit(1 + m_script.word() % 600, m_script.byte());
            unit[0] = i == 0 && (shape & 0x40) != 0 ? 0x67 : (shape & 0x80) != 0 ? 0x65 : 0x41;
            units.push_back(unit);
        }
        m_timestamp += static_cast<std::uint32_t>(static_cast<std::int8_t>(m_script.byte())) * 1500;
        m_sender.sendPicture(m_timestamp, units);
        while (m_sent.size() > 2000) {
            m_sent.pop_front();
        }
    }

    void deliver(std::size_t place) {
        if (m_sent.empty()) {
            return;
        }
        const auto at = m_sent.begin() + static_cast<std::ptrdiff_t>(place % m_sent.size());
        const Bytes datagram = *at;
        if (m_script.byte() % 16 != 0) {  // else it arrives once more later
            m_sent.erase(at);
        }
        push(datagram);
    }

    void lose() {
        if (!m_sent.empty()) {
            m_sent.pop_front();
        }
    }

    void mutate() {
        if (m_sent.empty()) {
            return;
        }
        Bytes& datagram = m_sent.front();
        datagram[m_script.word() % datagram.size()] = m_script.byte();
        if (m_script.byte() % 8 == 0) {
            datagram.resize(1 + m_script.word() % datagram.size());
        }
    }

    // A packet with the fields of the script, near the numbers of the stream.
    void pushLaidOut() {
        const std::uint8_t flags = m_script.byte();
        const std::uint16_t step = (flags & 1) != 0 ? m_script.word() : std::uint16_t{1};
        m_sequence = static_cast<std::uint16_t>(m_sequence + step);
        const std::uint32_t timestamp = m_timestamp + (flags & 2U);
        Bytes packet = {static_cast<std::uint8_t>((flags & 4) != 0 ? m_script.byte() : 0x80),
                        static_cast<std::uint8_t>((flags & 8) != 0 ? 98 | 0x80 : 98),
                        static_cast<std::uint8_t>(m_sequence >> 8),
                        static_cast<std::uint8_t>(m_sequence),
                        static_cast<std::uint8_t>(timestamp >> 24),
                        static_cast<std::uint8_t>(timestamp >> 16),
                        static_cast<std::uint8_t>(timestamp >> 8),
                        static_cast<std::uint8_t>(timestamp),
                        1,
                        2,
                        3,
                        static_cast<std::uint8_t>((flags & 16) != 0 ? 5 : 4)};
        constexpr std::uint8_t kHeads[][2] = {{0x41, 0x9a}, {0x7c, 0x85}, {0x7c, 0x05}, {0x7c, 0x45},
                                              {0x78, 0x00}, {0x67, 0x42}, {0x7c, 0xc5}, {0x00, 0x00}};
        const auto& head = kHeads[flags >> 5];
        packet.insert(packet.end(), {head[0], head[1]});
        const Bytes rest = m_script.bytes(m_script.byte() % 32);
        packet.insert(packet.end(), rest.begin(), rest.end());
        push(packet);
    }

    void push(const Bytes& datagram) {
        talrtp::fuzz::ExactBuffer exact(datagram);
        m_receiver.push(BytesView(exact.data(), static_cast<std::size_t>(exact.size())), m_now);
        const std::uint32_t ssrc = m_receiver.ssrc().value_or(0);
        m_beginnings += ssrc != m_ssrc ? 1 : 0;
        m_ssrc = ssrc;
    }

    void leap() {
        switch (const std::uint8_t kind = m_script.byte()) {
            case 0:
                m_now = TimePoint::max();
                break;
            case 1:
                m_now = TimePoint::min();
                break;
            case 2:
                m_now = TimePoint();
                break;
            default:
                const auto ms = std::chrono::milliseconds(static_cast<std::int8_t>(kind));
                const bool isInside = m_now < TimePoint::max() - std::chrono::hours(1) &&
                                      m_now > TimePoint::min() + std::chrono::hours(1);
                m_now = isInside ? m_now + ms * (m_script.byte() % 200) : TimePoint();
        }
    }

    void poll() {
        const auto next = m_receiver.poll(m_now);
        require(!next || *next > m_now || m_now == TimePoint::max(), "poll is next due in the future");
    }

    void finishOrFlush() {
        if (m_script.byte() % 4 == 0) {
            m_receiver.finish();
        } else {
            m_sender.flush();
        }
    }

    void check(const Picture& picture) {
        const bool isNewSource = picture.ssrc() != m_lastSsrc;
        if (!isNewSource && m_played > 0 && picture.firstSequence() <= m_last) {
            require(m_reset < m_beginnings + m_receiver.statistics().restarts, "pictures are in order");
            ++m_reset;
        }
        require(picture.firstSequence() <= picture.lastSequence(), "a picture has packets");
        m_lastSsrc = picture.ssrc();
        m_last = picture.lastSequence();
        ++m_played;
        m_units += picture.units().size();

        require(!picture.units().empty(), "a picture has units");
        Bytes joined;
        for (std::size_t i = 0; i < picture.units().size(); ++i) {
            const BytesView unit = picture.units()[i];
            require(!unit.empty(), "a unit has bytes");
            require(picture.isUnitWhole(i) || !picture.isComplete(), "a complete picture has whole units");
            joined.insert(joined.end(), {0, 0, 0, 1});
            joined.insert(joined.end(), unit.begin(), unit.end());
        }
        require(BytesView(joined) == picture.annexB(), "the units are the byte stream");
        require(picture.missingPackets() == 0 || !picture.isComplete(), "a complete picture misses nothing");
    }

    void checkCounts() {
        const Statistics counts = m_receiver.statistics();
        require(counts.completePictures + counts.cutPictures == m_played, "every picture counts");
        require(counts.playedUnits == m_units, "every unit counts");
    }

    Script m_script;
    FecScheme m_scheme = FecScheme::kNone;
    TimePoint m_now{};
    std::deque<Bytes> m_sent;
    std::uint32_t m_timestamp = 90000;
    std::uint16_t m_sequence = 0;

    std::uint32_t m_ssrc = 0;        // that the receiver is held to
    std::uint64_t m_beginnings = 0;  // times that it changed
    std::uint64_t m_reset = 0;       // times that numbers began anew
    std::uint32_t m_lastSsrc = 0;
    std::uint64_t m_last = 0;
    std::uint64_t m_played = 0;
    std::uint64_t m_units = 0;

    Receiver m_receiver;
    Sender m_sender;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ReceiverScript(data, size).run();
    return 0;
}

// Random RTCP records from a seed, such that the wire can carry them without loss in the form asked for.

#ifndef TALRTP_TESTS_KIT_KITRTCPRANDOM_H
#define TALRTP_TESTS_KIT_KITRTCPRANDOM_H

#include "KitRtcpVectors.h"
#include "SeededRandom.h"

namespace talrtp::kit::test {

class RandomRecords {
public:
    RandomRecords(Form form, unsigned int seed) : m_form(form), m_random(seed) {}

    std::size_t upTo(std::size_t most) { return m_random.between(0, static_cast<std::uint32_t>(most)); }
    std::uint32_t word() { return m_random.between(0, 0xffffffff); }
    std::uint8_t byte() { return static_cast<std::uint8_t>(m_random.between(0, 0xff)); }

    Bytes words(std::size_t most) {
        Bytes bytes(4 * upTo(most));
        for (std::uint8_t& value : bytes) {
            value = byte();
        }
        return bytes;
    }

    std::string text(std::size_t most) {
        std::string text(upTo(most), ' ');
        for (char& letter : text) {
            letter = static_cast<char>(byte());
        }
        return text;
    }

    std::vector<ReportBlock> blocks() {
        std::vector<ReportBlock> blocks(upTo(3) == 0 ? upTo(31) : upTo(2));
        for (ReportBlock& block : blocks) {
            block = {word(), byte(), static_cast<std::int32_t>(word()) >> 8, word(), word(), word(), word()};
        }
        return blocks;
    }

    // Sources that follow each other differ, so that the native form keeps their items apart.
    SourceDescription description() {
        SourceDescription description;
        std::uint32_t ssrc = word();
        for (std::size_t left = upTo(4); left > 0; --left) {
            SdesChunk chunk{ssrc++, {}};
            for (std::size_t items = upTo(3) + (m_form == Form::kNative ? 1 : 0); items > 0; --items) {
                chunk.items.push_back(
                    {static_cast<std::uint8_t>(1 + upTo(254)), text(upTo(5) == 0 ? 255 : 9)});
            }
            description.chunks.push_back(chunk);
        }
        return description;
    }

    Bye bye() {
        Bye bye;
        for (std::size_t left = upTo(31); left > 0; --left) {
            bye.ssrcs.push_back(word());
        }
        if (m_form == Form::kRfc3550 && upTo(1) == 0) {
            bye.reason = text(255);
        }
        return bye;
    }

    // In the order of the wire: numbers rise, across the wrap too.
    Nack nack() {
        Nack nack{word(), word(), {}};
        std::uint16_t number = static_cast<std::uint16_t>(word());
        for (std::size_t left = 1 + upTo(40); left > 0; --left) {
            nack.lost.push_back(number);
            number = static_cast<std::uint16_t>(number + 1 + upTo(upTo(5) == 0 ? 300 : 3));
        }
        return nack;
    }

    Fir fir() {
        Fir fir{word(), word(), {}};
        for (std::size_t left = 1 + upTo(3); left > 0; --left) {
            fir.entries.push_back({word(), byte()});
        }
        return fir;
    }

    Feedback feedback() {
        const std::uint8_t type = upTo(1) == 0 ? kRtcpTransportFeedback : kRtcpPayloadFeedback;
        return {type, static_cast<std::uint8_t>(5 + upTo(26)), word(), word(), words(8)};
    }

    Packet packet() {
        switch (upTo(8)) {
            case 0:
                return SenderReport{
                    word(),  (std::uint64_t{word()} << 32) | word(), word(), word(), word(), blocks(),
                    words(2)};
            case 1:
                return ReceiverReport{word(), blocks(), words(2)};
            case 2:
                return description();
            case 3:
                return bye();
            case 4:
                return App{static_cast<std::uint8_t>(upTo(31)), word(), {{'a', 'b', '\0', '\xff'}}, words(9)};
            case 5:
                return nack();
            case 6:
                return Pli{word(), word()};
            case 7:
                return fir();
            default:
                return feedback();
        }
    }

    std::vector<Packet> compound() {
        std::vector<Packet> packets;
        for (std::size_t left = 1 + upTo(5); left > 0; --left) {
            packets.push_back(packet());
        }
        return packets;
    }

private:
    Form m_form;
    talrtp::test::SeededRandom m_random;
};

}  // namespace talrtp::kit::test

#endif  // TALRTP_TESTS_KIT_KITRTCPRANDOM_H

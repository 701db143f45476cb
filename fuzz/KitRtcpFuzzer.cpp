// Datagrams through the kit's RTCP reader, in both forms. All records that it hands over are written again,
// and the reader must find the same records in the bytes that the writer makes.

#include "FuzzSupport.h"

#include <talrtp/kit/Rtcp.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace talrtp {
namespace fuzz {
namespace {

// The native form may lack the bytes that fill up the last word, and knows items of type 0. The writer fills
// up the one and refuses the other.
template <typename Record>
bool isRewritten(const Record& record) {
    if constexpr (std::is_same_v<Record, kit::App>) {
        return record.data.size() % 4 == 0;
    } else if constexpr (std::is_same_v<Record, kit::Feedback>) {
        return record.control.size() % 4 == 0;
    } else if constexpr (std::is_same_v<Record, kit::SourceDescription>) {
        for (const kit::SdesChunk& chunk : record.chunks) {
            for (const kit::SdesItem& item : chunk.items) {
                if (item.type == 0) {
                    return false;
                }
            }
        }
        return true;
    } else {
        return !std::is_same_v<Record, kit::UnknownPacket>;
    }
}

template <typename Record>
void checkRewritten(kit::Form form, const Record& record) {
    if constexpr (!std::is_same_v<Record, kit::UnknownPacket>) {
        kit::RtcpWriter writer(form);
        require(writer.add(record), "a record that was read can be written");
        bool isSame = false;
        const auto compare = [&](const auto& again) {
            if constexpr (std::is_same_v<std::decay_t<decltype(again)>, Record>) {
                isSame = again == record;
            }
        };
        const kit::RtcpReadResult result = kit::RtcpReader(form).read(writer.bytes(), compare);
        require(result && result.packets == 1, "what was written is read");
        require(isSame, "what was written is read as the same record");
    }
}

void readInForm(kit::Form form, kit::BytesView datagram) {
    std::size_t packets = 0;
    std::size_t unknown = 0;
    const kit::RtcpReadResult result = kit::RtcpReader(form).read(datagram, [&](const auto& record) {
        ++packets;
        unknown += std::is_same_v<std::decay_t<decltype(record)>, kit::UnknownPacket> ? 1 : 0;
        if (isRewritten(record)) {
            checkRewritten(form, record);
        }
    });
    require(packets == result.packets, "every packet is handed over once");
    require(unknown == result.unknown, "every unknown packet is counted");
    require(!result || packets > 0, "a whole datagram has packets");
    require(packets * 4 <= datagram.size() + 3, "packets have headers");
}

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp;
    fuzz::ExactBuffer buffer(data, static_cast<int>(size));
    const kit::BytesView datagram(buffer.data(), size);
    fuzz::readInForm(kit::Form::kRfc3550, datagram);
    fuzz::readInForm(kit::Form::kNative, datagram);
    return 0;
}

// One-byte header-extension elements: packets from the network are searched for every id, and elements of any
// content are appended, several times over. Earlier content must still be there afterwards.

#include "FuzzSupport.h"
#include "TraceCatcher.h"

#include <talrtp/TalRtpPacket.h>

#include <cstdint>

namespace talrtp {
namespace fuzz {
namespace {

constexpr int kFixedHeaderSize = 12;
constexpr int kExtensionHeaderSize = 4;

Bytes packetBytes(const CTalRtpPacket& packet) {
    return Bytes(packet.get_buffer(), packet.get_buffer() + packet.get_packet_size());
}

// The extension of a packet, read byte by byte.
struct Extension {
    int begin;  // the first byte of its header
    int end;    // the first byte behind its elements

    explicit Extension(const Bytes& packet) : begin(kFixedHeaderSize + 4 * (packet[0] & 0x0f)), end(begin) {
        if ((packet[0] & 0x10) != 0 && static_cast<int>(packet.size()) >= begin + kExtensionHeaderSize) {
            end = begin + kExtensionHeaderSize +
                  4 * (packet[static_cast<std::size_t>(begin) + 2] * 0x100 +
                       packet[static_cast<std::size_t>(begin) + 3]);
        }
    }
};

// The elements of a packet without the padding between them. Sets `isWhole` to whether none leaves the area.
Bytes compacted(const Bytes& packet, const Extension& extension, bool& isWhole) {
    Bytes elements;
    isWhole = true;
    int at = extension.begin + kExtensionHeaderSize;
    while (at < extension.end && isWhole) {
        const unsigned char header = packet[static_cast<std::size_t>(at)];
        const int size = header == 0 ? 1 : (header & 0x0f) + 2;
        isWhole = at + size <= extension.end;
        if (header != 0 && isWhole) {
            elements.insert(elements.end(), packet.begin() + at, packet.begin() + at + size);
        }
        at += size;
    }
    return elements;
}

void findEveryId(const CTalRtpPacket& packet) {
    const Bytes before = packetBytes(packet);
    // A buffer of the packet's own size, without the spare bytes that the packet object has behind.
    ExactBuffer bytes(before);
    for (int id = 0; id < 16; ++id) {
        unsigned char* element = nullptr;
        int length = -1;
        const bool isFound = CTalRtpPacket::get_onebyte_extension_element(
            bytes.data(), bytes.size(), static_cast<unsigned char>(id), element, length);
        if (isFound) {
            require(element >= bytes.data() && element + length <= bytes.data() + bytes.size(),
                    "an element lies wholly inside the packet");
            require(*element >> 4 == id && length == (*element & 0x0f) + 2,
                    "the element is the one asked for");
            readFully(element, length);
        } else {
            require(element == nullptr && length == -1, "a search in vain leaves its outputs alone");
        }
        unsigned char* own = nullptr;
        int ownLength = -1;
        require(
            packet.get_onebyte_extension_element(static_cast<unsigned char>(id), own, ownLength) == isFound,
            "the object finds what the bytes hold");
        require(!isFound || (own - packet.get_buffer() == element - bytes.data() && ownLength == length),
                "the object finds the same element");
    }
    require(packetBytes(packet) == before && bytes.bytes() == before, "a search changes nothing");
}

std::vector<Bytes> takeElements(InputReader& input) {
    std::vector<Bytes> elements(input.within<std::size_t>(0, 20));
    for (Bytes& element : elements) {
        // 0 and 18 are the lengths that are refused.
        const std::size_t length = input.within<std::size_t>(0, 18);
        element = input.bytes(length);
        element.resize(length, 0x21);
        element.reserve(1);
    }
    return elements;
}

void checkAppended(const Bytes& before, const CTalRtpPacket& packet, const std::vector<Bytes>& elements) {
    const Bytes after = packetBytes(packet);
    const Extension old(before), now(after);
    bool isWhole = true;
    Bytes area = (before[0] & 0x10) != 0 ? compacted(before, old, isWhole) : Bytes();
    if (!isWhole || old.end > static_cast<int>(before.size())) {
        return;  // elements beyond their area or a header beyond its packet: no result to hold it against
    }
    for (const Bytes& element : elements) {
        area.insert(area.end(), element.begin(), element.end());
    }
    area.resize((area.size() + 3) / 4 * 4, 0);
    const int areaSize = static_cast<int>(area.size());
    require(after[0] == (before[0] | 0x10), "X is set, the rest of the first byte stays");
    require(now.begin == old.begin && now.end == now.begin + kExtensionHeaderSize + areaSize,
            "length in words");
    require(std::equal(before.begin() + 1, before.begin() + old.begin, after.begin() + 1), "header stays");
    require(after[static_cast<std::size_t>(now.begin)] == 0xbe &&
                after[static_cast<std::size_t>(now.begin) + 1] == 0xde,
            "profile");
    require(std::equal(area.begin(), area.end(), after.begin() + now.begin + kExtensionHeaderSize),
            "old elements, new elements, padding at the end");
    require(Bytes(before.begin() + old.end, before.end()) == Bytes(after.begin() + now.end, after.end()),
            "the payload moves as a whole");
    require(packet.get_header_size() == now.end && packet.get_packet_size() <= packet.get_buffer_size(),
            "sizes follow");
}

void append(CTalRtpPacket& packet, std::vector<Bytes>& elements, bool isOneByOne) {
    const Bytes before = packetBytes(packet);
    std::vector<unsigned char*> starts;
    std::vector<int> lengths;
    bool isAcceptable = true;
    for (Bytes& element : elements) {
        starts.push_back(element.data());
        lengths.push_back(static_cast<int>(element.size()));
        isAcceptable = isAcceptable && !element.empty() && element.size() <= 17;
    }
    const bool isAdded = isOneByOne && elements.size() == 1
                             ? packet.add_onebyte_extension_element(0, starts[0], lengths[0])
                             : packet.add_onebyte_extension_elements(nullptr, starts.data(), lengths.data(),
                                                                     static_cast<int>(elements.size()));
    require(isAcceptable || !isAdded, "an element of no or of 18 bytes is refused");
    if (isAdded) {
        checkAppended(before, packet, elements);
    } else {
        require(packetBytes(packet) == before, "a refusal changes nothing");
    }
}

}  // namespace
}  // namespace fuzz
}  // namespace talrtp

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp::fuzz;
    InputReader input(data, size);
    const int rounds = input.within<int>(1, 4);
    std::vector<std::vector<Bytes>> appended;
    for (int i = 0; i < rounds; ++i) {
        appended.push_back(takeElements(input));
    }
    const bool isOneByOne = input.flag();
    Bytes bytes = input.rest();
    bytes.resize(std::max<std::size_t>(bytes.size(), kFixedHeaderSize), 0);

    talrtp::CTalRtpPacket packet(bytes.data(), static_cast<int>(bytes.size()));
    findEveryId(packet);
    for (std::vector<Bytes>& elements : appended) {
        append(packet, elements, isOneByOne);
        findEveryId(packet);
    }
    return 0;
}

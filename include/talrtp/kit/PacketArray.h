// Packet objects one after another in memory, as `CreateFuaPackets` and the FEC operations take them.

#ifndef TALRTP_KIT_PACKETARRAY_H
#define TALRTP_KIT_PACKETARRAY_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace talrtp::kit {

// An array of packet objects, each with room for the largest packet.
//
// `Packet`: CTalRtpPacket or a class derived from it. Its copy constructor takes a non-const reference and
// wants a filled packet, which rules std::vector out. A session checks no capacity, so every object is made
// with room for the largest packet.
template <typename Packet>
class PacketArray {
public:
    PacketArray() = default;

    // Makes `count` empty packets of `capacity` bytes each.
    PacketArray(std::size_t count, int capacity)
        : m_packets(count == 0 ? nullptr : std::allocator<Packet>().allocate(count)), m_room(count) {
        for (; m_count < count; ++m_count) {
            new (m_packets + m_count) Packet(capacity);
        }
    }

    // Takes the packets of the other array, which is empty afterwards.
    PacketArray(PacketArray&& other) noexcept { swap(other); }
    // Destroys its packets and takes those of the other array, which is empty afterwards.
    PacketArray& operator=(PacketArray&& other) noexcept {
        PacketArray taken(std::move(other));
        swap(taken);
        return *this;
    }
    PacketArray(const PacketArray&) = delete;
    PacketArray& operator=(const PacketArray&) = delete;

    ~PacketArray() {
        for (std::size_t i = m_count; i > 0; --i) {
            m_packets[i - 1].~Packet();
        }
        if (m_packets != nullptr) {
            std::allocator<Packet>().deallocate(m_packets, m_room);
        }
    }

    // **Lends** the first packet, or null when there is none.
    // Returns the first packet, as the operations of a session take it.
    Packet* data() { return m_packets; }
    // Returns the number of packets.
    std::size_t size() const { return m_count; }
    // Packet `i`, which lies below the size.
    Packet& operator[](std::size_t i) { return m_packets[i]; }
    // Packet `i`, which lies below the size, to read only.
    const Packet& operator[](std::size_t i) const { return m_packets[i]; }

private:
    void swap(PacketArray& other) noexcept {
        std::swap(m_packets, other.m_packets);
        std::swap(m_count, other.m_count);
        std::swap(m_room, other.m_room);
    }

    Packet* m_packets = nullptr;
    std::size_t m_count = 0;  // packets made
    std::size_t m_room = 0;   // packets that there is memory for
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PACKETARRAY_H

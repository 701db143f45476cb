// A contiguous array of packet objects, as `CreateFuaPackets` and the FEC operations take it: the session
// walks from one object to the next and checks no capacity, so every object is made with room for the largest
// packet.

#ifndef TALRTP_HOST_KIT_PACKETARRAY_H
#define TALRTP_HOST_KIT_PACKETARRAY_H

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace talrtp::kit {

// `Packet`: CTalRtpPacket or a class derived from it. Its copy constructor takes a non-const reference and
// wants a filled packet, which rules std::vector out.
template <typename Packet>
class CPacketArray {
public:
    CPacketArray() = default;

    // Makes `count` empty packets of `capacity` bytes each.
    CPacketArray(std::size_t count, int capacity)
        : m_packets(std::allocator<Packet>().allocate(count)), m_room(count) {
        for (; m_count < count; ++m_count) {
            new (m_packets + m_count) Packet(capacity);
        }
    }

    CPacketArray(CPacketArray&& other) noexcept { swap(other); }
    CPacketArray& operator=(CPacketArray&& other) noexcept {
        CPacketArray taken(std::move(other));
        swap(taken);
        return *this;
    }
    CPacketArray(const CPacketArray&) = delete;
    CPacketArray& operator=(const CPacketArray&) = delete;

    ~CPacketArray() {
        for (std::size_t i = m_count; i > 0; --i) {
            m_packets[i - 1].~Packet();
        }
        if (m_packets != nullptr) {
            std::allocator<Packet>().deallocate(m_packets, m_room);
        }
    }

    Packet* data() { return m_packets; }
    std::size_t size() const { return m_count; }
    Packet& operator[](std::size_t i) { return m_packets[i]; }

private:
    void swap(CPacketArray& other) noexcept {
        std::swap(m_packets, other.m_packets);
        std::swap(m_count, other.m_count);
        std::swap(m_room, other.m_room);
    }

    Packet* m_packets = nullptr;
    std::size_t m_count = 0;  // packets made
    std::size_t m_room = 0;   // packets that there is memory for
};

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_PACKETARRAY_H

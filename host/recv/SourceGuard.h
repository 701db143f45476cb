// Holds a port to the address of one sender, so that a flood from another address costs a comparison for each
// datagram and nothing else.

#ifndef TALRTP_HOST_RECV_SOURCEGUARD_H
#define TALRTP_HOST_RECV_SOURCEGUARD_H

#include "net/Address.h"

#include <talrtp/kit/Time.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>

namespace talrtp::host {

class CSourceGuard {
public:
    // After this silence of the sender another address may take its place.
    explicit CSourceGuard(std::chrono::milliseconds timeout) : m_timeout(timeout) {}

    // Tells whether a datagram from there may be looked at, and counts it unless so.
    bool admits(const Endpoint& from, kit::TimePoint now) {
        if (!m_held) {
            return true;
        }
        if (isSame(*m_held, from)) {
            m_lastHeard = now;
            return true;
        }
        if (now - m_lastHeard > m_timeout) {
            m_held.reset();
            m_candidate.reset();
            return true;
        }
        ++m_refused;
        return false;
    }

    // A datagram from there was one of the stream. The second one in a row makes the port hold to the
    // address.
    void confirm(const Endpoint& from, kit::TimePoint now) {
        if (m_held) {
            return;
        }
        if (m_candidate && isSame(*m_candidate, from)) {
            m_held = from;
            m_lastHeard = now;
        }
        m_candidate = from;
    }

    const std::optional<Endpoint>& held() const { return m_held; }
    std::uint64_t refused() const { return m_refused; }

private:
    // The system fills the unused bytes of an address with zeros.
    static bool isSame(const Endpoint& a, const Endpoint& b) {
        return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size()) == 0;
    }

    std::chrono::milliseconds m_timeout;
    std::optional<Endpoint> m_held;
    std::optional<Endpoint> m_candidate;
    kit::TimePoint m_lastHeard;
    std::uint64_t m_refused = 0;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_RECV_SOURCEGUARD_H

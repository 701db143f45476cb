// A model of a network that loses, doubles and delays datagrams. The same seed gives the same losses whatever
// is asked of doubling and delay, and the other way round.

#ifndef TALRTP_HOST_LOOPBACK_NETWORK_H
#define TALRTP_HOST_LOOPBACK_NETWORK_H

#include "loopback/Random.h"
#include "net/LossModel.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace talrtp::host {

struct NetworkOptions {
    double loss = 0;   // share of datagrams lost, 0 to 1
    double burst = 0;  // mean length of a run of losses, 1 or more; 0 for losses that do not hang together
    int reorder = 0;   // a datagram may arrive after this many that were sent later
    double duplicate = 0;  // share of datagrams that arrive twice, 0 to 1
    std::uint64_t seed = 1;
};

// The fate of the datagrams of one flow. sent = lost + those of which a copy arrived.
struct NetworkCounts {
    std::uint64_t sent = 0;
    std::uint64_t lost = 0;
    std::uint64_t duplicated = 0;  // arrived twice
    std::uint64_t reordered = 0;   // copies that arrived after a datagram sent later
};

class CNetwork {
public:
    enum Flow { kMedia, kFec, kFlowCount };
    using Datagram = std::vector<std::uint8_t>;
    using Receive = std::function<void(const Datagram&)>;

    // No datagram is delayed longer than this, however few follow it.
    static constexpr std::uint64_t kMaxDelayUs = 500000;

    explicit CNetwork(const NetworkOptions& options);

    // Sends a datagram at `nowUs`. Returns whether a copy of it will arrive.
    bool send(Flow flow, Datagram datagram, std::uint64_t nowUs);

    // Passes to `receive` the datagrams that arrived by `nowUs`, in order of arrival.
    void deliver(std::uint64_t nowUs, const Receive& receive);

    // Passes to `receive` all that is still under way.
    void deliverAll(const Receive& receive);

    const NetworkCounts& counts(Flow flow) const { return m_counts[flow]; }

private:
    // The time at which a copy arrives: with the datagram of that number, but after it if delayed; then in
    // order of sending.
    using Place = std::tuple<std::uint64_t, bool, std::uint64_t>;

    struct Copy {
        Flow flow;
        std::uint64_t number;  // of the datagram, counted from 0
        Datagram bytes;
    };

    void enqueue(Flow flow, Datagram datagram, std::uint64_t nowUs);
    void deliverOne(std::map<Place, Copy>::iterator copy, const Receive& receive);

    NetworkOptions m_options;
    CLossModel m_losses;
    CRandom m_duplicateRandom;
    CRandom m_delayRandom;
    std::uint64_t m_nextNumber = 0;
    std::uint64_t m_nextOrder = 0;
    std::uint64_t m_latestNumber = 0;  // the highest number that arrived
    std::map<Place, Copy> m_underWay;
    std::deque<std::pair<std::uint64_t, Place>> m_bySendTime;  // of m_underWay, and some that arrived already
    std::array<NetworkCounts, kFlowCount> m_counts;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_NETWORK_H

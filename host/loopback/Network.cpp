#include "loopback/Network.h"

namespace talrtp::host {

namespace {

// A generator of its own for each kind of event.
CRandom makeRandom(std::uint64_t seed, int event) {
    CRandom mixer(seed);
    std::uint64_t derived = 0;
    for (int i = 0; i <= event; ++i) {
        derived = mixer.next();
    }
    return CRandom(derived);
}

}  // namespace

CNetwork::CNetwork(const NetworkOptions& options)
    : m_options(options),
      m_losses(options.loss, options.burst, makeRandom(options.seed, 0)),
      m_duplicateRandom(makeRandom(options.seed, 1)),
      m_delayRandom(makeRandom(options.seed, 2)) {}

bool CNetwork::send(Flow flow, Datagram datagram, std::uint64_t nowUs) {
    NetworkCounts& counts = m_counts[flow];
    ++counts.sent;
    const bool isLost = m_losses.isNextLost();
    const bool isDuplicated = m_duplicateRandom.chance(m_options.duplicate);
    if (isLost) {
        ++counts.lost;
    } else {
        if (isDuplicated) {
            ++counts.duplicated;
            enqueue(flow, datagram, nowUs);
        }
        enqueue(flow, std::move(datagram), nowUs);
    }
    ++m_nextNumber;
    return !isLost;
}

void CNetwork::enqueue(Flow flow, Datagram datagram, std::uint64_t nowUs) {
    const std::uint64_t delay = m_delayRandom.upTo(static_cast<std::uint64_t>(m_options.reorder));
    const Place place(m_nextNumber + delay, delay > 0, m_nextOrder++);
    m_underWay.emplace(place, Copy{flow, m_nextNumber, std::move(datagram)});
    m_bySendTime.emplace_back(nowUs, place);
}

void CNetwork::deliver(std::uint64_t nowUs, const Receive& receive) {
    while (!m_underWay.empty() && std::get<0>(m_underWay.begin()->first) < m_nextNumber) {
        deliverOne(m_underWay.begin(), receive);
    }
    while (!m_bySendTime.empty() && m_bySendTime.front().first + kMaxDelayUs <= nowUs) {
        const auto copy = m_underWay.find(m_bySendTime.front().second);
        m_bySendTime.pop_front();
        if (copy != m_underWay.end()) {
            deliverOne(copy, receive);
        }
    }
}

void CNetwork::deliverAll(const Receive& receive) {
    while (!m_underWay.empty()) {
        deliverOne(m_underWay.begin(), receive);
    }
    m_bySendTime.clear();
}

void CNetwork::deliverOne(std::map<Place, Copy>::iterator copy, const Receive& receive) {
    const Copy arrived = std::move(copy->second);
    m_underWay.erase(copy);
    if (arrived.number < m_latestNumber) {
        ++m_counts[arrived.flow].reordered;
    } else {
        m_latestNumber = arrived.number;
    }
    receive(arrived.bytes);
}

}  // namespace talrtp::host

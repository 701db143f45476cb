// Tells the nodes that the library allocates and releases from those of anybody else.

#ifndef TALRTP_SRC_RECEIVE_OWNNODES_H
#define TALRTP_SRC_RECEIVE_OWNNODES_H

#include "StepMeter.h"
#include "memory/NodePool.h"

namespace talrtp {

// While one exists, all changes of nodes in a pool are the library's own. No two exist at a time.
class COwnNodes {
public:
    COwnNodes(const CNodePool* pool, stStepMeter& meter)
        : m_pool(*static_cast<const CPagedNodePool*>(pool)), m_meter(meter), m_before(m_pool.changes()) {}
    ~COwnNodes() { m_meter.nodes += m_pool.changes() - m_before; }
    COwnNodes(const COwnNodes&) = delete;
    COwnNodes& operator=(const COwnNodes&) = delete;

private:
    const CPagedNodePool& m_pool;
    stStepMeter& m_meter;
    const _uint64_t m_before;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_OWNNODES_H

// Tells the nodes that the library allocates and releases from those of anybody else.

#ifndef TALRTP_SRC_RECEIVE_OWNNODES_H
#define TALRTP_SRC_RECEIVE_OWNNODES_H

#include "memory/NodePool.h"

namespace talrtp {

// While one exists, all changes of nodes in a pool are the library's own. No two exist at a time.
class COwnNodes {
public:
    explicit COwnNodes(CNodePool* pool) : m_pool(*static_cast<CPagedNodePool*>(pool)) { m_pool.setOwn(true); }
    ~COwnNodes() { m_pool.setOwn(false); }
    COwnNodes(const COwnNodes&) = delete;
    COwnNodes& operator=(const COwnNodes&) = delete;

private:
    CPagedNodePool& m_pool;
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_OWNNODES_H

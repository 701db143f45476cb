// The node pool of a session: free lists by size over slabs that live as long as the session.

#include <talrtp/TalRtpSession.h>

#include <cstdlib>

#include "TalRtpSanitizers.h"

namespace talrtp {

namespace {

constexpr std::size_t kSlabSize = 64 * 1024;
constexpr std::size_t kSlabHeader = 16;  // the link to the slab before, padded to the alignment of the nodes

}  // namespace

struct CNodePool::FreeNode {
    FreeNode* next;
};

CNodePool::CNodePool() : m_free(), m_slabs(nullptr), m_slabCursor(nullptr), m_slabEnd(nullptr) {}

CNodePool::~CNodePool() {
    while (m_slabs != nullptr) {
        void* const before = *static_cast<void**>(m_slabs);
        std::free(m_slabs);
        m_slabs = before;
    }
}

void* CNodePool::take(std::size_t size) {
    const std::size_t index = (size + kGranularity - 1) / kGranularity;
    if (!kMayReuse || index >= kClasses) {
        return std::malloc(size);
    }
    if (FreeNode* const node = m_free[index]) {
        m_free[index] = node->next;
        return node;
    }
    const std::size_t rounded = index * kGranularity;
    if (static_cast<std::size_t>(m_slabEnd - m_slabCursor) < rounded) {
        void* const slab = std::malloc(kSlabSize);
        *static_cast<void**>(slab) = m_slabs;
        m_slabs = slab;
        m_slabCursor = static_cast<char*>(slab) + kSlabHeader;
        m_slabEnd = static_cast<char*>(slab) + kSlabSize;
    }
    void* const node = m_slabCursor;
    m_slabCursor += rounded;
    return node;
}

void CNodePool::give(void* node, std::size_t size) {
    const std::size_t index = (size + kGranularity - 1) / kGranularity;
    if (!kMayReuse || index >= kClasses) {
        std::free(node);
        return;
    }
    FreeNode* const freed = static_cast<FreeNode*>(node);
    freed->next = m_free[index];
    m_free[index] = freed;
}

}  // namespace talrtp

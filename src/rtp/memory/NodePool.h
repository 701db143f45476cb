// The node pool of a session: pages of nodes of one size each. A page begins at a multiple of the page size,
// so a node tells its page, and a page whose last node was returned serves another size or goes back to the
// heap.
//
//   m_stash[class] -> node -> node -> ...    returned last, still in the caches
//   m_free[class] -> node -> node -> ...     taken when the stash is empty; all of one page
//   page->returned -> node -> node -> ...    more than the stash has room for
//
// The stash holds at most one node for eight in use: enough for most of what ages out at once, so a steady
// flow touches no page. With no node in use it is empty and keeps no page.
//
// A page waits in m_open[class] once a quarter of its nodes were returned, and they move to m_free when that
// is empty. Without the quarter, a flow that takes as many nodes as it returns would find one node in each
// page.
//
// The first pages of a class are small: a session that keeps little takes little.

#ifndef TALRTP_SRC_MEMORY_NODEPOOL_H
#define TALRTP_SRC_MEMORY_NODEPOOL_H

#include <talrtp/TalRtpRecords.h>

#include <cstddef>

namespace talrtp {

// The pool that every session has; `CNodePool` is the part that hosts see.
class CPagedNodePool : public CNodePool {
public:
    // Makes an empty pool. Allocates nothing yet.
    CPagedNodePool();
    // Frees all memory of the pool. No node is in use any more.
    ~CPagedNodePool();

    // --- Who allocates and releases: the library, or somebody else who changes a list ---

    // Tells whether the library itself is at work.
    void setOwn(bool isOwn) { m_foreignStep = isOwn ? 0 : 1; }
    // Returns whether nodes were allocated or released by somebody else, or somebody doubts, since the last
    // `believe`.
    bool isChanged() const { return m_foreignChanges != 0; }
    bool isChangedForSure() const { return (m_foreignChanges & ~kDoubt) != 0; }
    void doubt() { m_foreignChanges |= kDoubt; }
    void believe() { m_foreignChanges = 0; }

private:
    friend class CNodePool;

    struct Node;
    struct Page;
    // The nodes that were returned last.
    struct Stash {
        Node* first;
        int room;  // nodes of the class that are in use, less eight for each node here: never negative
    };
    static constexpr std::size_t kGranularity = 16;
    static constexpr std::size_t kClasses = 16;  // nodes of up to 240 bytes; larger ones go through the heap

    void* takeNode(std::size_t size);
    void giveNode(void* node, std::size_t size);
    void giveFromStash(std::size_t index);
    void giveToPage(Node* node, std::size_t index);
    void refill(std::size_t index);
    Page* makePage(std::size_t index);
    void settle(Page* page);
    void givePage(Page* page);
    void link(Page* page);
    void unlink(Page* page);

    Stash m_stash[kClasses];             // the nodes to take next, by class
    Node* m_free[kClasses];              // the nodes to take after those: all of one page
    Page* m_open[kClasses];              // pages to take nodes from after that
    unsigned int m_pagesMade[kClasses];  // so far
    Page* m_spare;                       // pages without nodes in use
    unsigned int m_spareCount;
    static constexpr _uint64_t kDoubt = _uint64_t(1) << 63;  // a bit that no count reaches
    _uint64_t m_foreignChanges = 0;
    _uint64_t m_foreignStep = 1;  // 0 while the library is at work
};

}  // namespace talrtp

#endif  // TALRTP_SRC_MEMORY_NODEPOOL_H

// The node pool of a session: pages of nodes of one size each. A page begins at a multiple of its size, so a
// node tells its page, and a page whose last node came back serves another size or goes back to the heap.
//
//   m_stash[class] -> node -> node -> ...    those that came back last, still in the caches
//   m_free[class] -> node -> node -> ...     taken when the stash is empty; all of one page
//   page->returned -> node -> node -> ...    more than the stash has room for
//
// The stash holds at most one node for eight in use: enough for most of what ages out at once, so a steady
// flow touches no page. With no node in use it is empty and keeps no page.
//
// A page waits in m_open[class] once a quarter of its nodes came back, and they move to m_free when that is
// empty. Without the quarter, a flow that takes as many nodes as it gives would find one node in each page.

#include <talrtp/TalRtpSession.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "TalRtpSanitizers.h"

namespace talrtp {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kHeapHeader = 16;  // left to the heap, so that pages lie one behind the other
constexpr unsigned int kMaxSpare = 2;    // enough for what a steady flow frees and takes
constexpr unsigned int kOpenShare = 4;   // a page is open when one node in four came back
constexpr int kStashShare = 8;           // at most one node in the stash for eight in use

}  // namespace

struct CNodePool::Node {
    Node* next;
};

struct alignas(16) CNodePool::Page {
    Page* next;  // of the open pages of its class, or of the spare ones
    Page* previous;
    Node* returned;  // nodes that came back, one linked to the next
    std::size_t index;
    unsigned int used;      // nodes that are not among them
    unsigned int settleAt;  // the next value of `used` at which the page changes its place
    bool isOpen;

    // A page begins at a multiple of its size, so the address of a node tells it.
    static Page* of(void* node) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<Page*>(reinterpret_cast<std::uintptr_t>(node) & ~(kPageSize - 1));
    }
    static constexpr std::size_t room() { return kPageSize - kHeapHeader - sizeof(Page); }
    void free() {
        unpoison(nodes(), room());
        std::free(this);
    }
    char* nodes() { return reinterpret_cast<char*>(this + 1); }
};

CNodePool::CNodePool() : m_stash(), m_free(), m_open(), m_spare(nullptr), m_spareCount(0) {}

CNodePool::~CNodePool() {
    for (Node* const node : m_free) {
        if (node != nullptr) {
            Page::of(node)->free();
        }
    }
    while (Page* const page = m_spare) {
        m_spare = page->next;
        page->free();
    }
}

void* CNodePool::take(std::size_t size) {
    const std::size_t index = (size + kGranularity - 1) / kGranularity;
    if (index >= kClasses) {
        return ::operator new(size);
    }
    Stash& stash = m_stash[index];
    Node* node = stash.first;
    if (node != nullptr) {
        unpoison(node, index * kGranularity);
        stash.first = node->next;
        stash.room += 1 + kStashShare;
        return node;
    }
    if (m_free[index] == nullptr) {
        refill(index);
    }
    node = m_free[index];
    unpoison(node, index * kGranularity);
    m_free[index] = node->next;
    ++stash.room;
    return node;
}

void CNodePool::give(void* node, std::size_t size) {
    const std::size_t index = (size + kGranularity - 1) / kGranularity;
    if (index >= kClasses) {
        ::operator delete(node);
        return;
    }
    Node* const freed = static_cast<Node*>(node);
    Stash& stash = m_stash[index];
    if (stash.room > kStashShare) {
        freed->next = stash.first;
        stash.first = freed;
        stash.room -= 1 + kStashShare;
        poison(freed, index * kGranularity);
        return;
    }
    giveToPage(freed, index);
    if (--stash.room < 0) {
        giveFromStash(index);
    }
}

// Shrinks the stash, which holds a node or more, by one.
void CNodePool::giveFromStash(std::size_t index) {
    Stash& stash = m_stash[index];
    Node* const node = stash.first;
    unpoison(node, index * kGranularity);
    stash.first = node->next;
    stash.room += kStashShare;
    giveToPage(node, index);
}

// **Takes** a node of class `index` that is not in the stash.
void CNodePool::giveToPage(Node* node, std::size_t index) {
    Page* const page = Page::of(node);
    Node*& first = m_free[index];
    if (first != nullptr && Page::of(first) == page) {
        node->next = first;
        first = node;
        poison(node, index * kGranularity);
        return;
    }
    node->next = page->returned;
    page->returned = node;
    poison(node, index * kGranularity);
    if (--page->used == page->settleAt) {
        settle(page);
    }
}

// Makes nodes ready to be taken. Throws std::bad_alloc when memory is short.
void CNodePool::refill(std::size_t index) {
    Page* page = m_open[index];
    if (page != nullptr) {
        unlink(page);
    } else {
        page = makePage(index);
    }
    const unsigned int capacity = static_cast<unsigned int>(Page::room() / (index * kGranularity));
    m_free[index] = page->returned;
    page->returned = nullptr;
    page->used = capacity;
    page->settleAt = capacity - (capacity + kOpenShare - 1) / kOpenShare;
}

// **Lends** a page of which every node came back.
CNodePool::Page* CNodePool::makePage(std::size_t index) {
    Page* page = m_spare;
    if (page != nullptr) {
        m_spare = page->next;
        --m_spareCount;
        unpoison(page->nodes(), Page::room());
    } else {
        void* memory = nullptr;
        if (posix_memalign(&memory, kPageSize, kPageSize - kHeapHeader) != 0) {
            throw std::bad_alloc();
        }
        page = static_cast<Page*>(memory);
    }
    *page = Page{nullptr, nullptr, nullptr, index, 0, 0, false};
    const std::size_t nodeSize = index * kGranularity;
    std::size_t count = Page::room() / nodeSize;  // at least one
    do {
        --count;
        Node* const node = reinterpret_cast<Node*>(page->nodes() + count * nodeSize);
        node->next = page->returned;
        page->returned = node;
    } while (count > 0);
    poison(page->nodes(), Page::room());
    return page;
}

// Opens a page of which a quarter came back; puts one aside of which everything did.
void CNodePool::settle(Page* page) {
    if (page->used == 0) {
        if (page->isOpen) {
            unlink(page);
        }
        givePage(page);
        return;
    }
    page->settleAt = 0;
    link(page);
}

// **Takes** a page without nodes in use.
void CNodePool::givePage(Page* page) {
    if (m_spareCount == kMaxSpare) {
        page->free();
        return;
    }
    page->next = m_spare;
    m_spare = page;
    ++m_spareCount;
}

void CNodePool::link(Page* page) {
    Page*& first = m_open[page->index];
    page->next = first;
    page->previous = nullptr;
    page->isOpen = true;
    if (first != nullptr) {
        first->previous = page;
    }
    first = page;
}

void CNodePool::unlink(Page* page) {
    if (page->next != nullptr) {
        page->next->previous = page->previous;
    }
    (page->previous != nullptr ? page->previous->next : m_open[page->index]) = page->next;
    page->isOpen = false;
}

}  // namespace talrtp

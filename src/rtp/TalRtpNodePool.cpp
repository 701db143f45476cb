// The node pool of a session: pages of nodes of one size each. A page begins at a multiple of its size, so a
// node tells its page, and a page whose last node came back serves another size or goes back to the heap.

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

struct FreeNode {
    FreeNode* next;
};

}  // namespace

struct alignas(16) CNodePool::Page {
    Page* next;  // of the open pages of its class, or of the spare ones
    Page* previous;
    FreeNode* returned;  // nodes that came back, one linked to the next
    char* untouched;     // from here on no node was taken yet
    std::size_t nodeSize;
    unsigned int used;

    // A page begins at a multiple of its size, so the address of a node tells it.
    static Page* of(void* node) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<Page*>(reinterpret_cast<std::uintptr_t>(node) & ~(kPageSize - 1));
    }
    std::size_t index() const { return nodeSize / kGranularity; }
    void free() {
        unpoison(nodes(), static_cast<std::size_t>(end() - nodes()));
        std::free(this);
    }
    char* nodes() { return reinterpret_cast<char*>(this + 1); }
    char* end() { return reinterpret_cast<char*>(this) + kPageSize - kHeapHeader; }
    bool isFull() { return returned == nullptr && static_cast<std::size_t>(end() - untouched) < nodeSize; }
};

CNodePool::CNodePool() : m_open(), m_spare(nullptr), m_spareCount(0) {}

CNodePool::~CNodePool() {
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
    Page* page = m_open[index];
    if (page == nullptr) {
        page = takePage(index * kGranularity);
    }
    void* node = page->returned;
    if (node != nullptr) {
        unpoison(node, page->nodeSize);
        page->returned = page->returned->next;
    } else {
        node = page->untouched;
        page->untouched += page->nodeSize;
        unpoison(node, page->nodeSize);
    }
    ++page->used;
    if (page->isFull()) {
        unlink(page);
    }
    return node;
}

void CNodePool::give(void* node, std::size_t size) {
    if ((size + kGranularity - 1) / kGranularity >= kClasses) {
        ::operator delete(node);
        return;
    }
    Page* const page = Page::of(node);
    const bool wasFull = page->isFull();
    FreeNode* const freed = static_cast<FreeNode*>(node);
    freed->next = page->returned;
    page->returned = freed;
    poison(node, page->nodeSize);
    if (wasFull) {
        link(page);
    }
    if (--page->used == 0) {
        unlink(page);
        givePage(page);
    }
}

// **Lends** an open page of nodes of that size.
CNodePool::Page* CNodePool::takePage(std::size_t nodeSize) {
    Page* page = m_spare;
    if (page != nullptr) {
        m_spare = page->next;
        --m_spareCount;
    } else {
        void* memory = nullptr;
        if (posix_memalign(&memory, kPageSize, kPageSize - kHeapHeader) != 0) {
            throw std::bad_alloc();
        }
        page = static_cast<Page*>(memory);
        poison(page->nodes(), static_cast<std::size_t>(page->end() - page->nodes()));
    }
    *page = Page{nullptr, nullptr, nullptr, page->nodes(), nodeSize, 0};
    link(page);
    return page;
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
    Page*& first = m_open[page->index()];
    page->next = first;
    page->previous = nullptr;
    if (first != nullptr) {
        first->previous = page;
    }
    first = page;
}

void CNodePool::unlink(Page* page) {
    if (page->next != nullptr) {
        page->next->previous = page->previous;
    }
    (page->previous != nullptr ? page->previous->next : m_open[page->index()]) = page->next;
}

}  // namespace talrtp

#include "NodePool.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include "Sanitizers.h"

namespace talrtp {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kSmallPageSize = 1024;
constexpr unsigned int kSmallPages = 4;  // of a class, before the first that is not small
constexpr std::size_t kHeapHeader = 16;  // left to the heap, so that pages lie one after the other
constexpr unsigned int kMaxSpare = 2;    // enough for what a steady flow frees and takes
constexpr unsigned int kOpenShare = 4;   // a page is open when one node in four was returned
constexpr int kStashShare = 8;           // at most one node in the stash for eight in use

}  // namespace

struct CPagedNodePool::Node {
    Node* next;
};

struct alignas(16) CPagedNodePool::Page {
    Page* next;  // of the open pages of its class, or of the spare ones
    Page* previous;
    Node* returned;  // returned nodes, one linked to the next
    std::size_t index;
    std::size_t size;       // of all of it
    unsigned int used;      // nodes that are not among them
    unsigned int settleAt;  // the next value of `used` at which the page changes its place
    bool isOpen;

    // A page begins at a multiple of the page size, so the address of a node tells it.
    static Page* of(void* node) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        return reinterpret_cast<Page*>(reinterpret_cast<std::uintptr_t>(node) & ~(kPageSize - 1));
    }
    std::size_t room() const { return size - sizeof(Page); }
    unsigned int capacity() const { return static_cast<unsigned int>(room() / (index * kGranularity)); }
    void free() {
        unpoison(nodes(), room());
        std::free(this);
    }
    char* nodes() { return reinterpret_cast<char*>(this + 1); }
};

CPagedNodePool::CPagedNodePool()
    : m_stash(), m_free(), m_open(), m_pagesMade(), m_spare(nullptr), m_spareCount(0) {}

CPagedNodePool::~CPagedNodePool() {
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
    return static_cast<CPagedNodePool*>(this)->takeNode(size);
}

void CNodePool::give(void* node, std::size_t size) {
    static_cast<CPagedNodePool*>(this)->giveNode(node, size);
}

inline void* CPagedNodePool::takeNode(std::size_t size) {
    m_foreignChanges += m_foreignStep;
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

inline void CPagedNodePool::giveNode(void* node, std::size_t size) {
    m_foreignChanges += m_foreignStep;
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
void CPagedNodePool::giveFromStash(std::size_t index) {
    Stash& stash = m_stash[index];
    Node* const node = stash.first;
    unpoison(node, index * kGranularity);
    stash.first = node->next;
    stash.room += kStashShare;
    giveToPage(node, index);
}

// **Takes** a node of class `index` that is not in the stash.
void CPagedNodePool::giveToPage(Node* node, std::size_t index) {
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
void CPagedNodePool::refill(std::size_t index) {
    Page* page = m_open[index];
    if (page != nullptr) {
        unlink(page);
    } else {
        page = makePage(index);
    }
    const unsigned int capacity = page->capacity();
    m_free[index] = page->returned;
    page->returned = nullptr;
    page->used = capacity;
    page->settleAt = capacity - (capacity + kOpenShare - 1) / kOpenShare;
}

// **Lends** a page without nodes in use. Throws std::bad_alloc when memory is short.
CPagedNodePool::Page* CPagedNodePool::makePage(std::size_t index) {
    Page* page = m_spare;
    std::size_t size = (m_pagesMade[index] < kSmallPages ? kSmallPageSize : kPageSize) - kHeapHeader;
    if (page != nullptr) {
        m_spare = page->next;
        --m_spareCount;
        size = page->size;
        unpoison(page->nodes(), page->room());
    } else {
        void* memory = nullptr;
        if (posix_memalign(&memory, kPageSize, size) != 0) {
            throw std::bad_alloc();
        }
        page = static_cast<Page*>(memory);
    }
    *page = Page{nullptr, nullptr, nullptr, index, size, 0, 0, false};
    ++m_pagesMade[index];
    const std::size_t nodeSize = index * kGranularity;
    std::size_t count = page->capacity();  // at least one
    do {
        --count;
        Node* const node = reinterpret_cast<Node*>(page->nodes() + count * nodeSize);
        node->next = page->returned;
        page->returned = node;
    } while (count > 0);
    poison(page->nodes(), page->room());
    return page;
}

// Opens a page once a quarter of its nodes were returned, and sets it aside once all were.
void CPagedNodePool::settle(Page* page) {
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
void CPagedNodePool::givePage(Page* page) {
    if (m_spareCount == kMaxSpare) {
        page->free();
        return;
    }
    page->next = m_spare;
    m_spare = page;
    ++m_spareCount;
}

void CPagedNodePool::link(Page* page) {
    Page*& first = m_open[page->index];
    page->next = first;
    page->previous = nullptr;
    page->isOpen = true;
    if (first != nullptr) {
        first->previous = page;
    }
    first = page;
}

void CPagedNodePool::unlink(Page* page) {
    if (page->next != nullptr) {
        page->next->previous = page->previous;
    }
    (page->previous != nullptr ? page->previous->next : m_open[page->index]) = page->next;
    page->isOpen = false;
}

}  // namespace talrtp

// Tables over the 16-bit sequence numbers that cost as much as what is in them: pages of 64 numbers each,
// made when somebody needs them, and bits that tell which pages hold something.

#ifndef TALRTP_SRC_RECEIVE_NUMBERPAGES_H
#define TALRTP_SRC_RECEIVE_NUMBERPAGES_H

#include <talrtp/TalRtpDefs.h>

#include <cstddef>
#include <new>

namespace talrtp {

constexpr unsigned int kPageShift = 6;
constexpr unsigned int kPageNumbers = 1u << kPageShift;
constexpr unsigned int kPageCount = 65536 / kPageNumbers;

inline unsigned int pageOf(unsigned int number) {
    return number >> kPageShift;
}
inline unsigned int placeOf(unsigned int number) {
    return number & (kPageNumbers - 1);
}
inline _uint64_t bitOf(unsigned int number) {
    return _uint64_t(1) << placeOf(number);
}

// A set of pages. The lowest one from any page on is found in a constant number of steps.
class CPageBits {
public:
    bool isEmpty() const { return m_top == 0; }
    bool contains(unsigned int page) const { return (m_words[pageOf(page)] & bitOf(page)) != 0; }
    void insert(unsigned int page) {
        m_words[pageOf(page)] |= bitOf(page);
        m_top |= 1u << pageOf(page);
    }
    void erase(unsigned int page) {
        if ((m_words[pageOf(page)] &= ~bitOf(page)) == 0) {
            m_top &= ~(1u << pageOf(page));
        }
    }
    // Returns the lowest member that is not below `page`; kPageCount when there is none.
    unsigned int findUpward(unsigned int page) const {
        if (page >= kPageCount) {
            return kPageCount;
        }
        const unsigned int word = pageOf(page);
        if (const _uint64_t rest = m_words[word] >> placeOf(page)) {
            return page + static_cast<unsigned int>(__builtin_ctzll(rest));
        }
        const unsigned int words = m_top & ~((2u << word) - 1);
        if (words == 0) {
            return kPageCount;
        }
        const unsigned int next = static_cast<unsigned int>(__builtin_ctz(words));
        return next * kPageNumbers + static_cast<unsigned int>(__builtin_ctzll(m_words[next]));
    }

private:
    _uint64_t m_words[kPageCount / kPageNumbers] = {};
    unsigned int m_top = 0;  // the words that are not 0
};

// The pages of one kind. A page is there while somebody holds it and begins as `Page()`; it counts its
// `holders`. Up to `kSpares` pages that nobody holds any more are kept for the next numbers, so that a window
// of numbers that moves on stays in the memory that it began in.
template <typename Page, unsigned int kSpares>
class CPageTable {
public:
    CPageTable() = default;
    ~CPageTable() {
        for (Shelf* const shelf : m_shelves) {
            for (unsigned int i = 0; shelf != nullptr && i < kShelfPages; ++i) {
                delete shelf->pages[i];
            }
            delete shelf;
        }
        while (m_spareCount > 0) {
            delete m_spares[--m_spareCount];
        }
        while (m_spareShelfCount > 0) {
            delete m_spareShelves[--m_spareShelfCount];
        }
    }
    CPageTable(const CPageTable&) = delete;
    CPageTable& operator=(const CPageTable&) = delete;

    // **Lends** the page of a number; null when nobody holds it.
    Page* find(unsigned int number) const {
        const Shelf* const shelf = m_shelves[number / kShelfNumbers];
        return shelf != nullptr ? shelf->pages[pageOf(number) % kShelfPages] : nullptr;
    }
    // The page of a number; somebody holds it.
    Page& operator[](unsigned int number) const {
        return *m_shelves[number / kShelfNumbers]->pages[pageOf(number) % kShelfPages];
    }
    // Makes the page of a number if need be, for one holder more. False, with nothing changed, when memory is
    // short.
    bool hold(unsigned int number) {
        Page* page = find(number);
        if (page == nullptr && (page = make(number)) == nullptr) {
            return false;
        }
        ++page->holders;
        return true;
    }
    // One holder less.
    void release(unsigned int number) {
        Page& page = (*this)[number];
        if (--page.holders == 0) {
            takeOut(number);
        }
    }

private:
    static constexpr unsigned int kShelfPages = 32;
    static constexpr unsigned int kSpareShelves = 2;
    static constexpr unsigned int kShelfNumbers = kShelfPages * kPageNumbers;

    struct Shelf {
        Page* pages[kShelfPages];
        unsigned int used;
    };

    __attribute__((noinline)) Page* make(unsigned int number) {
        Shelf*& shelf = m_shelves[number / kShelfNumbers];
        if (shelf == nullptr && !makeSpareShelf()) {
            return nullptr;
        }
        Page* const page = takePage();
        if (page == nullptr) {
            return nullptr;
        }
        if (shelf == nullptr) {
            shelf = m_spareShelves[--m_spareShelfCount];
            // A window that moves on has two at times. The second comes with the first.
            if (m_shelfCount++ == 0) {
                makeSpareShelf();
            }
        }
        shelf->pages[pageOf(number) % kShelfPages] = page;
        ++shelf->used;
        return page;
    }

    // Makes sure that there is one. False when memory is short.
    bool makeSpareShelf() {
        if (m_spareShelfCount == 0) {
            Shelf* const shelf = new (std::nothrow) Shelf();
            if (shelf == nullptr) {
                return false;
            }
            m_spareShelves[m_spareShelfCount++] = shelf;
        }
        return true;
    }

    Page* takePage() {
        if (m_spareCount == 0) {
            return new (std::nothrow) Page();
        }
        Page* const page = m_spares[--m_spareCount];
        *page = Page();
        return page;
    }

    __attribute__((noinline)) void takeOut(unsigned int number) {
        Shelf*& shelf = m_shelves[number / kShelfNumbers];
        Page*& page = shelf->pages[pageOf(number) % kShelfPages];
        if (m_spareCount < kSpares) {
            m_spares[m_spareCount++] = page;
        } else {
            delete page;
        }
        page = nullptr;
        if (--shelf->used == 0) {
            if (m_spareShelfCount < kSpareShelves) {
                m_spareShelves[m_spareShelfCount++] = shelf;
            } else {
                delete shelf;
            }
            shelf = nullptr;
            --m_shelfCount;
        }
    }

    Shelf* m_shelves[kPageCount / kShelfPages] = {};
    Page* m_spares[kSpares] = {};
    unsigned int m_spareCount = 0;
    Shelf* m_spareShelves[kSpareShelves] = {};  // all of their pages are null
    unsigned int m_spareShelfCount = 0;
    unsigned int m_shelfCount = 0;
};

// Visits the numbers that are in a set, of `count` from `first` on in ascending order: `wordOf` tells the
// word of a page with its 64 numbers of the set. The visitor gets the page and the number, and may change the
// set.
template <typename Page, unsigned int kSpares, typename Word, typename Visit>
void visitNumbers(const CPageTable<Page, kSpares>& pages, _uint16_t first, unsigned int count, Word wordOf,
                  Visit visit) {
    const unsigned int end = first + count;
    for (unsigned int begin = first; begin < end; begin = (pageOf(begin) + 1) * kPageNumbers) {
        const Page* const page = pages.find(static_cast<_uint16_t>(begin));
        if (page == nullptr) {
            continue;
        }
        _uint64_t word = wordOf(*page) >> placeOf(begin);
        if (end - begin < kPageNumbers) {
            word &= bitOf(end - begin) - 1;
        }
        for (; word != 0; word &= word - 1) {
            visit(*page, static_cast<_uint16_t>(begin + static_cast<unsigned int>(__builtin_ctzll(word))));
        }
    }
}

// Records that are told by a 16-bit number each, the lowest that is free: as many as there are sequence
// numbers.
template <typename Record>
class CRecordStore {
public:
    static constexpr unsigned int kNone = 65536;

    CRecordStore() {
        for (unsigned int block = 0; block < kPageCount; ++block) {
            m_open.insert(block);
        }
    }
    ~CRecordStore() {
        for (unsigned int block = 0; block < m_room; ++block) {
            delete m_blocks[block];
        }
        delete m_spare;
        delete[] m_blocks;
    }
    CRecordStore(const CRecordStore&) = delete;
    CRecordStore& operator=(const CRecordStore&) = delete;

    Record& operator[](unsigned int id) const { return m_blocks[pageOf(id)]->records[placeOf(id)]; }

    // Keeps a record. Returns its number; kNone when memory is short.
    unsigned int take(const Record& record) {
        const unsigned int index = m_open.findUpward(0);
        if (index >= m_room && !grow()) {
            return kNone;
        }
        Block*& block = m_blocks[index];
        if (block == nullptr && !makeBlock(block)) {
            return kNone;
        }
        const unsigned int id =
            index * kPageNumbers + static_cast<unsigned int>(__builtin_ctzll(block->free));
        block->free &= block->free - 1;
        if (block->free == 0) {
            m_open.erase(index);
        }
        block->records[placeOf(id)] = record;
        return id;
    }
    void give(unsigned int id) {
        Block*& block = m_blocks[pageOf(id)];
        block->free |= bitOf(id);
        m_open.insert(pageOf(id));
        if (block->free == ~_uint64_t(0)) {
            delete m_spare;
            m_spare = block;
            block = nullptr;
        }
    }

private:
    static constexpr unsigned int kFirstRoom = 8;

    struct Block {
        _uint64_t free;
        Record records[kPageNumbers];
    };

    bool makeBlock(Block*& block) {
        block = m_spare != nullptr ? m_spare : new (std::nothrow) Block();
        m_spare = nullptr;
        if (block == nullptr) {
            return false;
        }
        block->free = ~_uint64_t(0);
        return true;
    }

    bool grow() {
        const unsigned int room = m_room == 0 ? kFirstRoom : 2 * m_room;
        Block** const blocks = new (std::nothrow) Block*[room]();
        if (blocks == nullptr) {
            return false;
        }
        for (unsigned int block = 0; block < m_room; ++block) {
            blocks[block] = m_blocks[block];
        }
        delete[] m_blocks;
        m_blocks = blocks;
        m_room = room;
        return true;
    }

    Block** m_blocks = nullptr;
    unsigned int m_room = 0;
    Block* m_spare = nullptr;
    CPageBits m_open;  // blocks with a free record, made or not
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_NUMBERPAGES_H

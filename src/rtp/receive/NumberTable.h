// Sets of 16-bit sequence numbers, and one slot for each number. A page holds both for 128 numbers in a row,
// so that one look into the table finds everything about a number:
//
//   page -> | 64 bits of each set | the next 64 | slots 0 .. 127 |
//
// A table without numbers holds no page. A page whose last number is released serves the next numbers, so
// that a window of numbers that moves on stays in the memory that it began in. One such page is kept.

#ifndef TALRTP_SRC_RECEIVE_NUMBERTABLE_H
#define TALRTP_SRC_RECEIVE_NUMBERTABLE_H

#include <talrtp/TalRtpDefs.h>

#include <memory>

namespace talrtp {

// The sets of a table. The first two are empty at first; the other two are full and hold every number without
// a page. The next and the previous member of any number are found in a constant number of steps, across the
// wrap-around from 65535 to 0.
class CNumberSets {
public:
    static constexpr unsigned int kNumbers = 65536;
    static constexpr unsigned int kSets = 4;
    static constexpr unsigned int kFull = 0xc;  // a bit for each set that is full at first

    CNumberSets(const CNumberSets&) = delete;
    CNumberSets& operator=(const CNumberSets&) = delete;

    bool isEmpty(unsigned int set) const {
        _uint64_t pages = 0;
        for (const _uint64_t word : m_pagesWith[set]) {
            pages |= word;
        }
        return pages == 0;
    }

    bool contains(unsigned int set, _uint16_t number) const {
        return (wordAt(set, number >> kWordShift) >> (number & kWordMask) & 1) != 0;
    }

    // Puts a number whose page is there into the sets whose bits are set in `members`, and takes it out of
    // the others.
    void assign(_uint16_t number, unsigned int members) {
        _uint64_t* const words = m_pages[number >> kPageShift]->words[number >> kWordShift & 1];
        const unsigned int position = number & kWordMask;
        const _uint64_t others = ~bit(number);
        bool isSummaryOld = false;
        for (unsigned int set = 0; set < kSets; ++set) {
            const _uint64_t before = words[set];
            const _uint64_t after = (before & others) | _uint64_t(members >> set & 1) << position;
            words[set] = after;
            isSummaryOld |= (before == 0) != (after == 0);
        }
        if (__builtin_expect(isSummaryOld, 0)) {
            summarize(number);
        }
    }

    // Returns the membership of the `count` numbers from `first` on, at most 64, bit 0 for `first`.
    _uint64_t window(unsigned int set, _uint16_t first, unsigned int count) const {
        const unsigned int word = first >> kWordShift;
        const unsigned int offset = first & kWordMask;
        _uint64_t bits = wordAt(set, word) >> offset;
        if (offset != 0) {
            bits |= wordAt(set, (word + 1) % kWords) << (kWordBits - offset);
        }
        return count < kWordBits ? bits & ((_uint64_t(1) << count) - 1) : bits;
    }

    // Returns how many of the `count` numbers from `first` on are members.
    unsigned int count(unsigned int set, _uint16_t first, unsigned int count) const {
        unsigned int members = 0;
        for (unsigned int done = 0; done < count; done += kWordBits) {
            const unsigned int rest = count - done;
            const _uint64_t bits =
                window(set, static_cast<_uint16_t>(first + done), rest < kWordBits ? rest : kWordBits);
            members += static_cast<unsigned int>(__builtin_popcountll(bits));
        }
        return members;
    }

    // Finds the lowest member that is not below `number`, without wrap-around; false when there is none.
    bool findUpward(unsigned int set, _uint16_t number, _uint16_t& found) const {
        unsigned int word = number >> kWordShift;
        if (const _uint64_t rest = wordAt(set, word) >> (number & kWordMask)) {
            found = static_cast<_uint16_t>(number + lowest(rest));
            return true;
        }
        if ((++word & 1) == 0 || wordAt(set, word) == 0) {
            unsigned int page = (word + 1) / 2;
            if (!findPageUpward(set, page)) {
                return false;
            }
            word = 2 * page;
            word += wordAt(set, word) == 0;
        }
        found = static_cast<_uint16_t>((word << kWordShift) + lowest(wordAt(set, word)));
        return true;
    }

    // Finds the highest member that is not above `number`, without wrap-around; false when there is none.
    bool findDownward(unsigned int set, _uint16_t number, _uint16_t& found) const {
        unsigned int word = number >> kWordShift;
        if (const _uint64_t rest = wordAt(set, word) << (kWordMask - (number & kWordMask))) {
            found = static_cast<_uint16_t>(number - kWordMask + highest(rest));
            return true;
        }
        if ((word & 1) == 0 || wordAt(set, --word) == 0) {
            unsigned int page = word / 2;
            if (!findPageDownward(set, page)) {
                return false;
            }
            word = 2 * page + 1;
            word -= wordAt(set, word) == 0;
        }
        found = static_cast<_uint16_t>((word << kWordShift) + highest(wordAt(set, word)));
        return true;
    }

    // The same across the wrap-around; false when the set is empty.
    bool findNext(unsigned int set, _uint16_t number, _uint16_t& found) const {
        return findUpward(set, number, found) || findUpward(set, 0, found);
    }
    bool findPrevious(unsigned int set, _uint16_t number, _uint16_t& found) const {
        return findDownward(set, number, found) || findDownward(set, kNumbers - 1, found);
    }

protected:
    static constexpr unsigned int kWordShift = 6;
    static constexpr unsigned int kWordBits = 1u << kWordShift;
    static constexpr unsigned int kWordMask = kWordBits - 1;
    static constexpr unsigned int kWords = kNumbers / kWordBits;
    static constexpr unsigned int kPageShift = 7;
    static constexpr unsigned int kPageNumbers = 1u << kPageShift;
    static constexpr unsigned int kPages = kNumbers / kPageNumbers;
    static constexpr _uint64_t kAll = ~_uint64_t(0);

    struct Head {
        _uint64_t words[kPageNumbers / kWordBits][kSets] = {{0, 0, kAll, kAll}, {0, 0, kAll, kAll}};
    };

    CNumberSets();
    ~CNumberSets();

    // **Lends** a page; null where no number is claimed.
    Head* page(unsigned int index) const { return m_pages[index]; }
    bool hasPages() const { return m_ownPages != nullptr; }
    // Puts a page into the table, or null. Throws std::bad_alloc for the first page when memory is short.
    void setPage(unsigned int index, Head* page);
    // Makes the sets as they are without a page.
    void clearSummary();

private:
    static constexpr unsigned int kSummaryWords = kPages / kWordBits;

    static _uint64_t bit(unsigned int position) { return _uint64_t(1) << (position & kWordMask); }
    static unsigned int lowest(_uint64_t bits) { return static_cast<unsigned int>(__builtin_ctzll(bits)); }
    static unsigned int highest(_uint64_t bits) {
        return kWordMask - static_cast<unsigned int>(__builtin_clzll(bits));
    }

    static _uint64_t wordAtFirst(unsigned int set) { return (kFull >> set & 1) != 0 ? kAll : 0; }
    _uint64_t wordAt(unsigned int set, unsigned int word) const {
        const Head* const page = m_pages[word / 2];
        return page != nullptr ? page->words[word & 1][set] : wordAtFirst(set);
    }
    // One call in 64 of a steady flow, so out of the way of the others.
    __attribute__((noinline)) void summarize(_uint16_t number);
    bool findPageUpward(unsigned int set, unsigned int& index) const;
    bool findPageDownward(unsigned int set, unsigned int& index) const;

    static Head* const kNoPages[kPages];

    Head* const* m_pages;  // `m_ownPages`, or `kNoPages` until there is a page
    std::unique_ptr<Head*[]> m_ownPages;
    _uint64_t m_pagesWith[kSets][kSummaryWords];  // a bit for each page that has members
};

// The sets of a table as one of them, for those that only read.
class CNumberSet {
public:
    CNumberSet(const CNumberSets& sets, unsigned int set) : m_sets(sets), m_set(set) {}

    bool contains(_uint16_t number) const { return m_sets.contains(m_set, number); }
    _uint64_t window(_uint16_t first, unsigned int count) const { return m_sets.window(m_set, first, count); }
    unsigned int count(_uint16_t first, unsigned int count) const {
        return m_sets.count(m_set, first, count);
    }

private:
    const CNumberSets& m_sets;
    const unsigned int m_set;
};

// The sets with their slots. A slot is `Slot()` until its number is claimed.
template <typename Slot>
class CNumberTable : public CNumberSets {
public:
    CNumberTable() = default;
    ~CNumberTable() {
        for (unsigned int index = 0; hasPages() && index < kPages; ++index) {
            delete pageAt(index);
        }
        delete m_spare;
    }

    // Releases all numbers.
    void clear() {
        for (unsigned int index = 0; hasPages() && index < kPages; ++index) {
            delete pageAt(index);
            setPage(index, nullptr);
        }
        clearSummary();
    }

    // For reading any slot.
    const Slot& peek(_uint16_t number) const {
        const Page* const page = pageAt(number >> kPageShift);
        return page != nullptr ? page->slots[number % kPageNumbers] : kNothing;
    }
    // For changing a claimed slot.
    Slot& operator[](_uint16_t number) { return pageAt(number >> kPageShift)->slots[number % kPageNumbers]; }

    // Makes sure that a number can be claimed, and what follows each claim. Throws std::bad_alloc, with
    // nothing changed, when memory is short.
    void reserve(_uint16_t number) {
        if (__builtin_expect(pageAt(number >> kPageShift) == nullptr, 0)) {
            makePage(number >> kPageShift);
        }
    }
    // Claims a reserved number: its page stays until it is released.
    void claim(_uint16_t number) { ++pageAt(number >> kPageShift)->claimed; }
    // Releases a claimed number, which is in the sets that are full at first then, and its slot is empty.
    void release(_uint16_t number) {
        Page* const page = pageAt(number >> kPageShift);
        assign(number, kFull);
        page->slots[number % kPageNumbers] = Slot();
        if (--page->claimed == 0) {
            delete m_spare;
            m_spare = page;
            setPage(number >> kPageShift, nullptr);
        }
    }

private:
    struct Page : Head {
        unsigned int claimed;
        Slot slots[kPageNumbers];
    };

    Page* pageAt(unsigned int index) const { return static_cast<Page*>(page(index)); }

    // Once in 128 numbers of a steady flow, so out of the way of the others.
    __attribute__((noinline)) void makePage(unsigned int index) {
        if (m_spare == nullptr) {
            m_spare = new Page();
        }
        setPage(index, m_spare);
        m_spare = nullptr;
    }

    static const Slot kNothing;

    Page* m_spare = nullptr;
};

template <typename Slot>
const Slot CNumberTable<Slot>::kNothing = Slot();

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_NUMBERTABLE_H

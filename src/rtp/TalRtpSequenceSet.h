// A set of 16-bit sequence numbers in which the next and the previous member of any number are found in a
// constant number of steps, across the wrap-around from 65535 to 0.

#ifndef TALRTP_SRC_TALRTPSEQUENCESET_H
#define TALRTP_SRC_TALRTPSEQUENCESET_H

#include <talrtp/TalRtpDefs.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

namespace talrtp {

// Three levels of 64-bit words: a bit of `m_leaves` is a number, a bit of `m_groups` marks a leaf word that
// is not 0, a bit of `m_top` marks a group word that is not 0.
class CSequenceSet {
public:
    static constexpr unsigned int kNumbers = 65536;

    // An empty set, or the set of all numbers.
    explicit CSequenceSet(bool full) {
        const int fill = full ? 0xff : 0;
        std::memset(m_leaves, fill, sizeof(m_leaves));
        std::memset(m_groups, fill, sizeof(m_groups));
        m_top = full ? (1u << kGroups) - 1 : 0;
    }

    bool isEmpty() const { return m_top == 0; }

    bool contains(unsigned short number) const {
        return (m_leaves[number >> kShift] >> (number & kMask) & 1) != 0;
    }

    // Returns whether the number was no member before.
    bool insert(unsigned short number) {
        const unsigned int leaf = number >> kShift;
        const _uint64_t before = m_leaves[leaf];
        m_leaves[leaf] = before | bit(number);
        if (__builtin_expect(before == 0, 0)) {
            markLeaf(leaf);
        }
        return (before & bit(number)) == 0;
    }

    void erase(unsigned short number) {
        const unsigned int leaf = number >> kShift;
        const _uint64_t rest = m_leaves[leaf] & ~bit(number);
        m_leaves[leaf] = rest;
        if (__builtin_expect(rest == 0, 0)) {
            unmarkLeaf(leaf);
        }
    }

    // Inserts or erases, without a branch on which of both.
    void set(unsigned short number, bool isMember) {
        const unsigned int leaf = number >> kShift;
        const _uint64_t before = m_leaves[leaf];
        const _uint64_t after = (before & ~bit(number)) | _uint64_t(isMember) << (number & kMask);
        m_leaves[leaf] = after;
        if (__builtin_expect((before == 0) != (after == 0), 0)) {
            isMember ? markLeaf(leaf) : unmarkLeaf(leaf);
        }
    }

    void clear() { *this = CSequenceSet(false); }

    // Finds the lowest member that is not below `number`, without wrap-around; false when there is none.
    bool findUpward(unsigned short number, unsigned short& found) const {
        const unsigned int leaf = number >> kShift;
        if (const _uint64_t rest = m_leaves[leaf] >> (number & kMask)) {
            found = static_cast<unsigned short>(number + lowest(rest));
            return true;
        }
        unsigned int group = leaf >> kShift;
        _uint64_t leaves = m_groups[group] & above(leaf);
        if (leaves == 0) {
            const unsigned int groups = m_top & ~((2u << group) - 1);
            if (groups == 0) {
                return false;
            }
            group = lowest(groups);
            leaves = m_groups[group];
        }
        const unsigned int next = (group << kShift) + lowest(leaves);
        found = static_cast<unsigned short>((next << kShift) + lowest(m_leaves[next]));
        return true;
    }

    // Finds the highest member that is not above `number`, without wrap-around; false when there is none.
    bool findDownward(unsigned short number, unsigned short& found) const {
        const unsigned int leaf = number >> kShift;
        if (const _uint64_t rest = m_leaves[leaf] & (above(number) ^ ~_uint64_t(0))) {
            found = static_cast<unsigned short>((leaf << kShift) + highest(rest));
            return true;
        }
        unsigned int group = leaf >> kShift;
        _uint64_t leaves = m_groups[group] & (bit(leaf) - 1);
        if (leaves == 0) {
            const unsigned int groups = m_top & ((1u << group) - 1);
            if (groups == 0) {
                return false;
            }
            group = highest(groups);
            leaves = m_groups[group];
        }
        const unsigned int next = (group << kShift) + highest(leaves);
        found = static_cast<unsigned short>((next << kShift) + highest(m_leaves[next]));
        return true;
    }

    // The same across the wrap-around; false when the set is empty.
    bool findNext(unsigned short number, unsigned short& found) const {
        return findUpward(number, found) || findUpward(0, found);
    }
    bool findPrevious(unsigned short number, unsigned short& found) const {
        return findDownward(number, found) || findDownward(kNumbers - 1, found);
    }

    // Returns the membership of the `count` numbers from `first` on, at most 64, bit 0 for `first`.
    _uint64_t window(unsigned short first, unsigned int count) const {
        const unsigned int leaf = first >> kShift;
        const unsigned int offset = first & kMask;
        _uint64_t bits = m_leaves[leaf] >> offset;
        if (offset != 0) {
            bits |= m_leaves[(leaf + 1) % kLeaves] << (kWordBits - offset);
        }
        return count < kWordBits ? bits & ((_uint64_t(1) << count) - 1) : bits;
    }

    // Returns how many of the `count` numbers from `first` on are members.
    unsigned int count(unsigned short first, unsigned int count) const {
        unsigned int members = 0;
        for (unsigned int done = 0; done < count; done += kWordBits) {
            const unsigned int rest = count - done;
            const _uint64_t bits =
                window(static_cast<unsigned short>(first + done), rest < kWordBits ? rest : kWordBits);
            members += static_cast<unsigned int>(__builtin_popcountll(bits));
        }
        return members;
    }

private:
    static constexpr unsigned int kShift = 6;
    static constexpr unsigned int kWordBits = 1u << kShift;
    static constexpr unsigned int kMask = kWordBits - 1;
    static constexpr unsigned int kLeaves = kNumbers / kWordBits;
    static constexpr unsigned int kGroups = kLeaves / kWordBits;

    // One call in 64 of a steady flow, so out of the way of the others.
    __attribute__((noinline)) void markLeaf(unsigned int leaf) {
        m_groups[leaf >> kShift] |= bit(leaf);
        m_top |= 1u << (leaf >> kShift);
    }
    __attribute__((noinline)) void unmarkLeaf(unsigned int leaf) {
        m_groups[leaf >> kShift] &= ~bit(leaf);
        if (m_groups[leaf >> kShift] == 0) {
            m_top &= ~(1u << (leaf >> kShift));
        }
    }

    static _uint64_t bit(unsigned int position) { return _uint64_t(1) << (position & kMask); }
    // The bits of a word that are higher than the one of `position`.
    static _uint64_t above(unsigned int position) { return ~(bit(position) | (bit(position) - 1)); }
    static unsigned int lowest(_uint64_t bits) { return static_cast<unsigned int>(__builtin_ctzll(bits)); }
    static unsigned int highest(_uint64_t bits) {
        return kMask - static_cast<unsigned int>(__builtin_clzll(bits));
    }

    _uint64_t m_leaves[kLeaves];
    _uint64_t m_groups[kGroups];
    unsigned int m_top;
};

// One slot for each number, `Slot()` until it is claimed. Slots come in pages; a page whose last slot is
// released serves the next numbers, so that a window of numbers that moves on stays in the memory that it
// began in. One such page is kept.
template <typename Slot, unsigned int kCount = CSequenceSet::kNumbers>
class CSlotTable {
public:
    CSlotTable() : m_spare(nullptr) { std::fill(std::begin(m_pages), std::end(m_pages), untouched()); }
    ~CSlotTable() {
        for (Page* const page : m_pages) {
            if (page != untouched()) {
                delete page;
            }
        }
        delete m_spare;
    }
    CSlotTable(const CSlotTable&) = delete;
    CSlotTable& operator=(const CSlotTable&) = delete;

    // For reading any slot.
    const Slot& peek(unsigned int number) const {
        return m_pages[number / kPageSlots]->slots[number % kPageSlots];
    }
    // For changing a claimed slot.
    Slot& operator[](unsigned int number) { return m_pages[number / kPageSlots]->slots[number % kPageSlots]; }
    // Makes sure that a slot can be claimed. Throws std::bad_alloc, with nothing changed, when memory is
    // short.
    void reserve(unsigned int number) {
        if (!tryReserve(number)) {
            throw std::bad_alloc();
        }
    }
    // The same; false when memory is short.
    bool tryReserve(unsigned int number) {
        Page*& page = m_pages[number / kPageSlots];
        return page != untouched() || makePage(page);
    }
    // Makes a slot one that may hold something. Throws as `reserve` does.
    Slot& claim(unsigned int number) {
        reserve(number);
        Page* const page = m_pages[number / kPageSlots];
        ++page->claimed;
        return page->slots[number % kPageSlots];
    }
    // Empties a claimed slot.
    void release(unsigned int number) {
        Page*& page = m_pages[number / kPageSlots];
        page->slots[number % kPageSlots] = Slot();
        if (--page->claimed == 0) {
            delete m_spare;
            m_spare = page;
            page = untouched();
        }
    }

private:
    static constexpr unsigned int kPageSlots = 128;

    struct Page {
        Slot slots[kPageSlots];
        unsigned int claimed;
    };

    // The page of slots that nobody claimed. Nobody writes to it.
    static Page* untouched() { return const_cast<Page*>(&kUntouched); }

    // False when memory is short.
    __attribute__((noinline)) bool makePage(Page*& page) {
        Page* const made = m_spare != nullptr ? m_spare : new (std::nothrow) Page();
        m_spare = nullptr;
        if (made == nullptr) {
            return false;
        }
        page = made;
        return true;
    }

    static const Page kUntouched;

    Page* m_pages[kCount / kPageSlots];
    Page* m_spare;
};

template <typename Slot, unsigned int kCount>
const typename CSlotTable<Slot, kCount>::Page CSlotTable<Slot, kCount>::kUntouched = Page();

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPSEQUENCESET_H

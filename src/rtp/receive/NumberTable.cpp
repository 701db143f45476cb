#include "NumberTable.h"

#include <algorithm>
#include <iterator>

namespace talrtp {

CNumberSets::Head* const CNumberSets::kNoPages[kPages] = {};

CNumberSets::CNumberSets() : m_pages(kNoPages) {
    clearSummary();
}

CNumberSets::~CNumberSets() = default;

void CNumberSets::clearSummary() {
    for (unsigned int set = 0; set < kSets; ++set) {
        std::fill(std::begin(m_pagesWith[set]), std::end(m_pagesWith[set]), wordAtFirst(set));
    }
}

void CNumberSets::setPage(unsigned int index, Head* page) {
    if (m_ownPages == nullptr) {
        m_ownPages = std::make_unique<Head*[]>(kPages);
        m_pages = m_ownPages.get();
    }
    m_ownPages[index] = page;
}

// Notes of which sets the page of a number has members.
void CNumberSets::summarize(_uint16_t number) {
    const unsigned int index = number >> kPageShift;
    const Head& page = *m_pages[index];
    for (unsigned int set = 0; set < kSets; ++set) {
        const bool hasMembers = (page.words[0][set] | page.words[1][set]) != 0;
        _uint64_t& summary = m_pagesWith[set][index / kWordBits];
        summary = hasMembers ? summary | bit(index) : summary & ~bit(index);
    }
}

// Finds the first page from `index` on that has members.
bool CNumberSets::findPageUpward(unsigned int set, unsigned int& index) const {
    if (index >= kPages) {
        return false;
    }
    unsigned int word = index / kWordBits;
    _uint64_t pages = m_pagesWith[set][word] & ~(bit(index) - 1);
    while (pages == 0) {
        if (++word == kSummaryWords) {
            return false;
        }
        pages = m_pagesWith[set][word];
    }
    index = word * kWordBits + lowest(pages);
    return true;
}

// Finds the last page before `index` that has members.
bool CNumberSets::findPageDownward(unsigned int set, unsigned int& index) const {
    unsigned int word = index / kWordBits;
    _uint64_t pages = m_pagesWith[set][word] & (bit(index) - 1);
    while (pages == 0) {
        if (word-- == 0) {
            return false;
        }
        pages = m_pagesWith[set][word];
    }
    index = word * kWordBits + highest(pages);
    return true;
}

}  // namespace talrtp

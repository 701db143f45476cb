#include "FecWaiting.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "NumberPages.h"
#include "Prefetch.h"

namespace talrtp {

namespace {

constexpr unsigned int kWordBits = 32;
constexpr unsigned int kReach = 255;  // the farthest that a packet of a group is from its first
constexpr short kNever = 1 << 14;     // the slack that groups which do not wait count for

// How many media packets come and leave before the memory of an idle session goes. A stream with parity files
// a packet after at most 255 of each.
constexpr unsigned int kMaxIdle = 4 * 256;

bool isTwoOrMore(_uint32_t bits) {
    return (bits & (bits - 1)) != 0;
}

// Returns a number that looks random, and is another one for each argument.
_uint32_t scramble(_uint32_t number) {
    number = (number ^ number >> 16) * 0x7feb352d;
    number = (number ^ number >> 15) * 0x846ca68b;
    return number ^ number >> 16;
}

// The trees are parted by the kind of their groups, which is the index of what belongs to a tree.
constexpr unsigned int kRs = 0;
constexpr unsigned int kXor = 1;
constexpr unsigned int kKinds = 2;

// FEC packets with the same numbers: a node of a treap over its media base. The number of a group stands for
// no group where it is its own neighbour or parent.
struct Group {
    _uint16_t left;
    _uint16_t right;
    _uint16_t base;         // of the media packets
    _uint16_t firstMember;  // FEC sequence number
    short pending : 15;     // Reed-Solomon: to be added to the slack of everything below
    _uint16_t isWaiting : 1;
    unsigned char mediaCount;  // 0: XOR
    unsigned char fecCount;

    struct Rs {
        _uint16_t next;      // of those whose parity packets begin at the same number
        _uint16_t previous;  // likewise
        _uint16_t fecBase;
        _uint16_t parent;
        // No media packet counts twice, so sums of changes stay within 255 either way.
        short slack;  // how many packets more it needs, without what ancestors are still to pass on
        short least;  // the smallest slack of the groups in this subtree that wait
    };
    // Media packets that groups protect: bit i is the packet base + i.
    struct Span {
        _uint32_t common;  // all of them
        _uint32_t any;     // at least one
    };
    // In the tree while it waits.
    struct Xor {
        _uint32_t window;  // what the group protects
        union {
            Span span;          // of this subtree
            _uint32_t nextDue;  // while all of it are taken out
        };
    };
    union {
        Rs rs;
        Xor exclusiveOr;
    };

    unsigned int kind() const { return mediaCount == 0 ? kXor : kRs; }
};
static_assert(sizeof(Group) == 24, "there may be one for each FEC number");

// The state of 64 media numbers. A group holds the pages of all its media packets, so that a number that
// leaves is noted without memory.
struct MediaPage {
    // By base.
    struct Trees {
        _uint64_t bases;  // that have a tree
        _uint16_t roots[kPageNumbers];
    };

    _uint64_t left;  // numbers that left, and are still counted as if they had not
    Trees trees[kKinds];
    unsigned int holders;
};

// The state of 64 FEC numbers. A filed packet holds its page.
struct FecPage {
    // One of the ring of the packets of a group.
    struct Member {
        _uint16_t group;
        _uint16_t next;
        _uint16_t previous;
    };

    _uint64_t filed;
    _uint64_t ready;
    _uint64_t bases;  // at which the parity packets of groups begin
    Member members[kPageNumbers];
    _uint16_t firstGroups[kPageNumbers];  // by base: the first of a list
    unsigned int holders;
};

}  // namespace

_uint32_t xorMaskWindow(_uint32_t mask) {
    // Turned round by bytes, by halves of these, by pairs and by single bits.
    _uint32_t window = __builtin_bswap32(mask << (kWordBits - kFecMaskBits));
    window = (window >> 4 & 0x0f0f0f0f) | (window & 0x0f0f0f0f) << 4;
    window = (window >> 2 & 0x33333333) | (window & 0x33333333) << 2;
    return (window >> 1 & 0x55555555) | (window & 0x55555555) << 1;
}

class CFecGroups {
public:
    CFecGroups(CNumberSet media, CNumberSet fec, _uint64_t& steps, unsigned int& readyCount);

    bool isEmpty() const { return m_filedCount == 0; }

    void addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t window);
    void addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
               unsigned int fecCount);
    void remove(_uint16_t fecSeq);
    void waitAgain(_uint16_t fecSeq);
    void prefetchGroup(_uint16_t fecSeq) const;
    bool findReady(_uint16_t seq, _uint16_t& found) const;

    void mediaArrived(_uint16_t seq);
    void mediaLeft(_uint16_t seq);
    void fecArrived(_uint16_t seq);

private:
    typedef CRecordStore<Group> Store;
    typedef _uint32_t Id;  // of a group
    static constexpr Id kNone = Store::kNone;

    // A group lies in five pages of media numbers at most.
    static constexpr unsigned int kSpareMediaPages = 6;
    static constexpr unsigned int kSpareFecPages = 3;

    // --- Members ---

    Id make(const Group& wanted);
    Id makeXor(const Group& wanted);
    Id makeRs(const Group& wanted);
    bool holdMedia(_uint16_t base, unsigned int count);
    void releaseMedia(_uint16_t base, unsigned int count);
    void releaseMediaPage(unsigned int page);
    void join(Id id, bool isNew, _uint16_t fecSeq);
    void freeGroup(Id id);
    void wait(Id id);
    void markReady(Id id);
    FecPage::Member& memberOf(_uint16_t fecSeq) { return m_fecPages[fecSeq].members[placeOf(fecSeq)]; }
    void setReady(FecPage& page, _uint16_t fecSeq);
    void unsetReady(_uint16_t fecSeq);

    // --- Reed-Solomon ---

    Id findRs(const Group& wanted) const;
    void waitRs(Id id);
    void countMedia(_uint16_t seq);
    void countFecOf(Id id, unsigned int distance);
    void countFec(Id id);
    void countBack(_uint16_t first, unsigned int count);
    void addAround(_uint16_t seq, int change);
    void linkFec(Id id);
    void unlinkFec(Id id);
    bool takeLeft(_uint16_t seq);

    // --- The tree ---

    Id left(Id id) const { return linkOf(id, m_groups[id].left); }
    Id right(Id id) const { return linkOf(id, m_groups[id].right); }
    _uint32_t priority(Id id) const { return scramble(m_secret + id); }
    static Id linkOf(Id id, _uint16_t link) { return link == id ? kNone : link; }
    template <unsigned int kKind>
    void setLeft(Id id, Id child) {
        m_groups[id].left = linkTo<kKind>(id, child);
    }
    template <unsigned int kKind>
    void setRight(Id id, Id child) {
        m_groups[id].right = linkTo<kKind>(id, child);
    }
    template <unsigned int kKind>
    _uint16_t linkTo(Id id, Id child);

    static _uint32_t rsKey(const Group& group);
    template <unsigned int kKind>
    bool isBefore(Id a, Id b) const;
    template <unsigned int kKind>
    Id root(_uint16_t base) const;
    template <unsigned int kKind>
    void setRoot(_uint16_t base, Id root);
    void add(Id id, int change);
    template <unsigned int kKind>
    void passOn(Id id);
    template <unsigned int kKind>
    void sumUp(Id id);
    void sumUpRs(Id id);
    void sumUpXor(Id id);
    // These call themselves once for each level. NOLINTBEGIN(misc-no-recursion)
    template <unsigned int kKind>
    void split(Id id, Id at, Id& below, Id& rest);
    template <unsigned int kKind>
    Id merge(Id below, Id rest);
    template <unsigned int kKind>
    Id insert(Id root, Id id);
    template <unsigned int kKind>
    Id erase(Id root, Id id);
    template <typename Change>
    void change(Id root, Id id, Change apply);
    // NOLINTEND(misc-no-recursion)
    void addToLonger(Id id, unsigned int distance, int change);
    void takeReady(Id id);

    // --- XOR ---

    Id findXor(_uint16_t base, _uint32_t window) const;
    _uint32_t missing(_uint16_t base) const;
    void waitXor(Id id);
    void takeReadyAround(_uint16_t seq);
    Id takeReady(Id id, _uint32_t missing);
    void takeAll(Id id);

    const CNumberSet m_media;
    const CNumberSet m_fec;
    _uint64_t& m_steps;
    unsigned int& m_readyCount;
    const _uint32_t m_secret;  // out of a sender's sight, so that nobody outside can guess the trees
    unsigned int m_filedCount = 0;
    unsigned int m_mostFecCount = 0;         // of the groups since nothing was filed
    unsigned int m_baseCounts[kKinds] = {};  // how many bases have a tree
    Store m_groups;
    CPageTable<MediaPage, kSpareMediaPages> m_mediaPages;
    CPageTable<FecPage, kSpareFecPages> m_fecPages;
    CPageBits m_leftPages;   // the media pages that note numbers that left
    CPageBits m_readyPages;  // the FEC pages with numbers that are ready
};

CFecGroups::CFecGroups(CNumberSet media, CNumberSet fec, _uint64_t& steps, unsigned int& readyCount)
    : m_media(media),
      m_fec(fec),
      m_steps(steps),
      m_readyCount(readyCount),
      m_secret(static_cast<_uint32_t>(reinterpret_cast<std::uintptr_t>(this) >> 4)) {}

// --- Members ---

void CFecGroups::addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t window) {
    if (!m_fecPages.hold(fecSeq)) {
        throw std::bad_alloc();
    }
    Id id = findXor(base, window);
    const bool isNew = id == kNone;
    if (isNew) {
        Group wanted = Group();
        wanted.base = base;
        wanted.exclusiveOr.window = window;
        id = makeXor(wanted);
    }
    join(id, isNew, fecSeq);
}

void CFecGroups::addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
                       unsigned int fecCount) {
    if (!m_fecPages.hold(fecSeq)) {
        throw std::bad_alloc();
    }
    Group wanted = Group();
    wanted.base = base;
    wanted.mediaCount = static_cast<unsigned char>(mediaCount);
    wanted.fecCount = static_cast<unsigned char>(fecCount);
    wanted.rs.fecBase = fecBase;
    Id id = findRs(wanted);
    const bool isNew = id == kNone;
    if (isNew) {
        id = makeRs(wanted);
    }
    join(id, isNew, fecSeq);
}

// Returns a group without members, in no tree; kNone when memory is short.
CFecGroups::Id CFecGroups::make(const Group& wanted) {
    const Id id = m_groups.take(wanted);
    if (id != kNone) {
        m_groups[id].left = static_cast<_uint16_t>(id);
        m_groups[id].right = static_cast<_uint16_t>(id);
    }
    return id;
}

CFecGroups::Id CFecGroups::makeXor(const Group& wanted) {
    if (!holdMedia(wanted.base, 1)) {
        return kNone;
    }
    const Id id = make(wanted);
    if (id == kNone) {
        releaseMedia(wanted.base, 1);
    }
    return id;
}

// The same for Reed-Solomon, in the tree of its base.
CFecGroups::Id CFecGroups::makeRs(const Group& wanted) {
    if (!m_fecPages.hold(wanted.rs.fecBase)) {
        return kNone;
    }
    if (holdMedia(wanted.base, wanted.mediaCount)) {
        const Id id = make(wanted);
        if (id != kNone) {
            m_groups[id].rs.least = kNever;
            setRoot<kRs>(wanted.base, insert<kRs>(root<kRs>(wanted.base), id));
            linkFec(id);
            m_mostFecCount = std::max<unsigned int>(m_mostFecCount, wanted.fecCount);
            return id;
        }
        releaseMedia(wanted.base, wanted.mediaCount);
    }
    m_fecPages.release(wanted.rs.fecBase);
    return kNone;
}

// Holds the pages of `count` media numbers. False, with none held, when memory is short.
bool CFecGroups::holdMedia(_uint16_t base, unsigned int count) {
    const unsigned int first = pageOf(base);
    const unsigned int end = pageOf(base + count - 1) + 1;
    for (unsigned int page = first; page < end; ++page) {
        if (!m_mediaPages.hold(page % kPageCount * kPageNumbers)) {
            while (page-- > first) {
                releaseMediaPage(page % kPageCount);
            }
            return false;
        }
    }
    return true;
}

void CFecGroups::releaseMedia(_uint16_t base, unsigned int count) {
    const unsigned int end = pageOf(base + count - 1) + 1;
    for (unsigned int page = pageOf(base); page < end; ++page) {
        releaseMediaPage(page % kPageCount);
    }
}

// A page that nobody holds covers no group, so what left there matters to none.
void CFecGroups::releaseMediaPage(unsigned int page) {
    const unsigned int number = page * kPageNumbers;
    if (m_mediaPages[number].holders == 1) {
        m_leftPages.erase(page);
    }
    m_mediaPages.release(number);
}

// Files a packet, whose page is held for it, with a group; throws where there is none.
void CFecGroups::join(Id id, bool isNew, _uint16_t fecSeq) {
    if (id == kNone) {
        m_fecPages.release(fecSeq);
        throw std::bad_alloc();
    }
    Group& group = m_groups[id];
    const _uint16_t next = isNew ? fecSeq : group.firstMember;
    const _uint16_t previous = isNew ? fecSeq : memberOf(next).previous;
    m_fecPages[fecSeq].filed |= bitOf(fecSeq);
    memberOf(fecSeq) = FecPage::Member{static_cast<_uint16_t>(id), next, previous};
    memberOf(previous).next = fecSeq;
    memberOf(next).previous = fecSeq;
    group.firstMember = fecSeq;
    ++m_filedCount;
    if (isNew) {
        wait(id);
    } else if (!group.isWaiting) {
        setReady(m_fecPages[fecSeq], fecSeq);
    }
}

void CFecGroups::remove(_uint16_t fecSeq) {
    FecPage* const page = m_fecPages.find(fecSeq);
    if (page == nullptr || (page->filed & bitOf(fecSeq)) == 0) {
        return;
    }
    const FecPage::Member member = memberOf(fecSeq);
    unsetReady(fecSeq);
    page->filed &= ~bitOf(fecSeq);
    if (--m_filedCount == 0) {
        m_mostFecCount = 0;
    }
    if (member.next == fecSeq) {
        freeGroup(member.group);
    } else {
        memberOf(member.previous).next = member.next;
        memberOf(member.next).previous = member.previous;
        m_groups[member.group].firstMember = member.next;
    }
    m_fecPages.release(fecSeq);
}

void CFecGroups::waitAgain(_uint16_t fecSeq) {
    const FecPage* const page = m_fecPages.find(fecSeq);
    if (page == nullptr || (page->filed & bitOf(fecSeq)) == 0) {
        return;
    }
    const Id id = memberOf(fecSeq).group;
    if (m_groups[id].isWaiting) {
        return;
    }
    _uint16_t member = fecSeq;
    do {
        ++m_steps;
        unsetReady(member);
        member = memberOf(member).next;
    } while (member != fecSeq);
    wait(id);
}

void CFecGroups::prefetchGroup(_uint16_t fecSeq) const {
    const FecPage* const page = m_fecPages.find(fecSeq);
    if (page != nullptr && (page->filed & bitOf(fecSeq)) != 0) {
        prefetch(&m_groups[page->members[placeOf(fecSeq)].group]);
    }
}

bool CFecGroups::findReady(_uint16_t seq, _uint16_t& found) const {
    unsigned int first = seq;
    const FecPage* page = m_fecPages.find(first);
    _uint64_t rest = page != nullptr ? page->ready >> placeOf(first) : 0;
    if (rest == 0) {
        first = m_readyPages.findUpward(pageOf(first) + 1) * kPageNumbers;
        if (first == kPageCount * kPageNumbers) {
            return false;
        }
        rest = m_fecPages[first].ready;
    }
    found = static_cast<_uint16_t>(first + static_cast<unsigned int>(__builtin_ctzll(rest)));
    return true;
}

void CFecGroups::freeGroup(Id id) {
    const Group group = m_groups[id];
    if (group.kind() == kXor) {
        if (group.isWaiting) {
            setRoot<kXor>(group.base, erase<kXor>(root<kXor>(group.base), id));
        }
        releaseMedia(group.base, 1);
    } else {
        setRoot<kRs>(group.base, erase<kRs>(root<kRs>(group.base), id));
        unlinkFec(id);
        m_fecPages.release(group.rs.fecBase);
        releaseMedia(group.base, group.mediaCount);
    }
    m_groups.give(id);
}

// Lets a group wait for as many packets as it lacks; one that lacks none is ready.
void CFecGroups::wait(Id id) {
    if (m_groups[id].kind() == kXor) {
        waitXor(id);
    } else {
        waitRs(id);
    }
    if (!m_groups[id].isWaiting) {
        markReady(id);
    }
}

void CFecGroups::markReady(Id id) {
    const _uint16_t first = m_groups[id].firstMember;
    _uint16_t member = first;
    do {
        ++m_steps;
        FecPage& page = m_fecPages[member];
        setReady(page, member);
        member = page.members[placeOf(member)].next;
    } while (member != first);
}

void CFecGroups::setReady(FecPage& page, _uint16_t fecSeq) {
    if (page.ready == 0) {
        m_readyPages.insert(pageOf(fecSeq));
    }
    m_readyCount += (page.ready & bitOf(fecSeq)) == 0;
    page.ready |= bitOf(fecSeq);
}

void CFecGroups::unsetReady(_uint16_t fecSeq) {
    FecPage& page = m_fecPages[fecSeq];
    m_readyCount -= (page.ready & bitOf(fecSeq)) != 0;
    page.ready &= ~bitOf(fecSeq);
    if (page.ready == 0) {
        m_readyPages.erase(pageOf(fecSeq));
    }
}

// --- Reed-Solomon ---

CFecGroups::Id CFecGroups::findRs(const Group& wanted) const {
    Id id = root<kRs>(wanted.base);
    while (id != kNone && rsKey(wanted) != rsKey(m_groups[id])) {
        ++m_steps;
        id = rsKey(wanted) < rsKey(m_groups[id]) ? left(id) : right(id);
    }
    return id;
}

void CFecGroups::waitRs(Id id) {
    const Group& group = m_groups[id];
    const unsigned int k = group.mediaCount;
    countBack(group.base, k);
    const unsigned int known = m_media.count(group.base, k) + m_fec.count(group.rs.fecBase, group.fecCount);
    if (known >= k) {
        return;
    }
    const short slack = static_cast<short>(k - known);
    change(root<kRs>(group.base), id, [slack](Group& waiting) {
        waiting.rs.slack = slack;
        waiting.isWaiting = true;
    });
}

void CFecGroups::mediaArrived(_uint16_t seq) {
    if (m_baseCounts[kXor] != 0) {
        takeReadyAround(seq);
    }
    if (m_baseCounts[kRs] != 0) {
        countMedia(seq);
    }
}

void CFecGroups::mediaLeft(_uint16_t seq) {
    MediaPage* const page = m_baseCounts[kRs] != 0 ? m_mediaPages.find(seq) : nullptr;
    if (page != nullptr) {
        page->left |= bitOf(seq);
        m_leftPages.insert(pageOf(seq));
    }
}

void CFecGroups::fecArrived(_uint16_t seq) {
    m_steps += kReach / kPageNumbers;
    const auto countFrom = [this, seq](const FecPage& page, _uint16_t fecBase) {
        countFecOf(page.firstGroups[placeOf(fecBase)], static_cast<_uint16_t>(seq - fecBase));
    };
    visitNumbers(
        m_fecPages, static_cast<_uint16_t>(seq + 1 - m_mostFecCount), m_mostFecCount,
        [](const FecPage& page) { return page.bases; }, countFrom);
}

// A packet that left and arrived again near a waiting group has changed nothing.
void CFecGroups::countMedia(_uint16_t seq) {
    const bool isCounted = takeLeft(seq);
    countBack(static_cast<_uint16_t>(seq - kReach), 2 * kReach + 1);
    if (!isCounted) {
        addAround(seq, -1);
    }
}

// Tells whether a number was noted as one that left. It is not any more.
bool CFecGroups::takeLeft(_uint16_t seq) {
    if (!m_leftPages.contains(pageOf(seq))) {
        return false;
    }
    _uint64_t& left = m_mediaPages[seq].left;
    const bool isNoted = (left & bitOf(seq)) != 0;
    left &= ~bitOf(seq);
    if (left == 0) {
        m_leftPages.erase(pageOf(seq));
    }
    return isNoted;
}

// Counts the media numbers back that left, of `count` from `first` on.
void CFecGroups::countBack(_uint16_t first, unsigned int count) {
    if (m_leftPages.isEmpty()) {
        return;
    }
    const auto countOneBack = [this](const MediaPage&, _uint16_t seq) {
        ++m_steps;
        takeLeft(seq);
        addAround(seq, 1);
    };
    visitNumbers(
        m_mediaPages, first, count, [](const MediaPage& page) { return page.left; }, countOneBack);
}

// Adds to the slack of every group that media packet `seq` belongs to.
void CFecGroups::addAround(_uint16_t seq, int change) {
    m_steps += kReach / kPageNumbers;
    const auto addFrom = [this, seq, change](const MediaPage& page, _uint16_t base) {
        const Id tree = page.trees[kRs].roots[placeOf(base)];
        addToLonger(tree, static_cast<_uint16_t>(seq - base), change);
        takeReady(tree);
    };
    visitNumbers(
        m_mediaPages, static_cast<_uint16_t>(seq - kReach), kReach + 1,
        [](const MediaPage& page) { return page.trees[kRs].bases; }, addFrom);
}

// Counts parity packet `distance` of the groups in a list.
void CFecGroups::countFecOf(Id id, unsigned int distance) {
    unsigned int groups = 0;
    while (id != kNone) {
        const Group& group = m_groups[id];
        ++groups;
        if (group.isWaiting && distance < group.fecCount) {
            countFec(id);
        }
        id = linkOf(id, group.rs.next);
    }
    m_steps += groups;
}

// Counts a parity packet of one group that waits. Those above it hear of it as far as their least slack
// changes.
void CFecGroups::countFec(Id id) {
    Group* group = &m_groups[id];
    int slack = --group->rs.slack;
    while (slack < group->rs.least) {
        group->rs.least = static_cast<short>(slack);
        if (group->rs.parent == id) {
            if (slack <= 0) {
                takeReady(id);
            }
            return;
        }
        ++m_steps;
        id = group->rs.parent;
        group = &m_groups[id];
        slack += group->pending;
    }
}

void CFecGroups::linkFec(Id id) {
    Group& group = m_groups[id];
    const unsigned int place = placeOf(group.rs.fecBase);
    FecPage& page = m_fecPages[group.rs.fecBase];
    const bool isOnly = (page.bases & bitOf(place)) == 0;
    group.rs.previous = static_cast<_uint16_t>(id);
    group.rs.next = isOnly ? static_cast<_uint16_t>(id) : page.firstGroups[place];
    m_groups[group.rs.next].rs.previous = static_cast<_uint16_t>(id);
    page.firstGroups[place] = static_cast<_uint16_t>(id);
    page.bases |= bitOf(place);
}

void CFecGroups::unlinkFec(Id id) {
    const Group& group = m_groups[id];
    const unsigned int place = placeOf(group.rs.fecBase);
    FecPage& page = m_fecPages[group.rs.fecBase];
    const Id next = linkOf(id, group.rs.next);
    const Id previous = linkOf(id, group.rs.previous);
    if (next != kNone) {
        m_groups[next].rs.previous = static_cast<_uint16_t>(previous != kNone ? previous : next);
    }
    if (previous != kNone) {
        m_groups[previous].rs.next = static_cast<_uint16_t>(next != kNone ? next : previous);
    } else if (next != kNone) {
        page.firstGroups[place] = static_cast<_uint16_t>(next);
    } else {
        page.bases &= ~bitOf(place);
    }
}

// --- The tree: a treap, in which no node has a higher priority than its parent ---
//
// The walks call themselves once for each level. Priorities are random and out of a sender's sight, so 65,536
// groups make some 40 levels. NOLINTBEGIN(misc-no-recursion)

// The order of the tree: by length, then by the other numbers.
_uint32_t CFecGroups::rsKey(const Group& group) {
    return _uint32_t(group.mediaCount) << 24 | _uint32_t(group.rs.fecBase) << 8 | group.fecCount;
}

// XOR groups that protect the same are apart by their ids: one may have been ready when the other was filed.
template <unsigned int kKind>
bool CFecGroups::isBefore(Id a, Id b) const {
    if (kKind == kRs) {
        return rsKey(m_groups[a]) < rsKey(m_groups[b]);
    }
    const _uint32_t windowA = m_groups[a].exclusiveOr.window;
    const _uint32_t windowB = m_groups[b].exclusiveOr.window;
    return windowA < windowB || (windowA == windowB && a < b);
}

template <unsigned int kKind>
CFecGroups::Id CFecGroups::root(_uint16_t base) const {
    const MediaPage* const page = m_mediaPages.find(base);
    const bool hasTree = page != nullptr && (page->trees[kKind].bases & bitOf(base)) != 0;
    return hasTree ? page->trees[kKind].roots[placeOf(base)] : kNone;
}

template <unsigned int kKind>
void CFecGroups::setRoot(_uint16_t base, Id root) {
    MediaPage::Trees& trees = m_mediaPages[base].trees[kKind];
    const bool hadTree = (trees.bases & bitOf(base)) != 0;
    if (root != kNone) {
        if (kKind == kRs) {
            m_groups[root].rs.parent = static_cast<_uint16_t>(root);
        }
        trees.roots[placeOf(base)] = static_cast<_uint16_t>(root);
        trees.bases |= bitOf(base);
        m_baseCounts[kKind] += !hadTree;
    } else {
        trees.bases &= ~bitOf(base);
        m_baseCounts[kKind] -= hadTree;
    }
}

// Returns the number for the link of a group to its child, and links it back.
template <unsigned int kKind>
_uint16_t CFecGroups::linkTo(Id id, Id child) {
    if (child == kNone) {
        return static_cast<_uint16_t>(id);
    }
    if (kKind == kRs) {
        m_groups[child].rs.parent = static_cast<_uint16_t>(id);
    }
    return static_cast<_uint16_t>(child);
}

// Adds to the slack of a whole subtree.
void CFecGroups::add(Id id, int change) {
    if (id != kNone) {
        Group& group = m_groups[id];
        Group::Rs& rs = group.rs;
        rs.slack = static_cast<short>(rs.slack + change);
        rs.least = static_cast<short>(rs.least + change);
        group.pending = static_cast<short>(group.pending + change);
    }
}

template <unsigned int kKind>
void CFecGroups::passOn(Id id) {
    if (kKind == kRs && m_groups[id].pending != 0) {
        const int pending = m_groups[id].pending;
        add(left(id), pending);
        add(right(id), pending);
        m_groups[id].pending = 0;
    }
}

template <unsigned int kKind>
void CFecGroups::sumUp(Id id) {
    if (kKind == kRs) {
        sumUpRs(id);
    } else {
        sumUpXor(id);
    }
}

void CFecGroups::sumUpRs(Id id) {
    Group& group = m_groups[id];
    short least = group.isWaiting ? group.rs.slack : kNever;
    for (const _uint16_t child : {group.left, group.right}) {
        if (child != id) {
            least = std::min(least, m_groups[child].rs.least);
        }
    }
    group.rs.least = least;
}

void CFecGroups::sumUpXor(Id id) {
    Group& group = m_groups[id];
    Group::Span span = {group.exclusiveOr.window, group.exclusiveOr.window};
    for (const _uint16_t child : {group.left, group.right}) {
        if (child != id) {
            const Group::Span& below = m_groups[child].exclusiveOr.span;
            span.common &= below.common;
            span.any |= below.any;
        }
    }
    group.exclusiveOr.span = span;
}

// Parts a subtree into the groups before `at` and the rest.
template <unsigned int kKind>
void CFecGroups::split(Id id, Id at, Id& below, Id& rest) {
    if (id == kNone) {
        below = kNone;
        rest = kNone;
        return;
    }
    passOn<kKind>(id);
    Id part;
    if (isBefore<kKind>(id, at)) {
        below = id;
        split<kKind>(right(id), at, part, rest);
        setRight<kKind>(id, part);
    } else {
        rest = id;
        split<kKind>(left(id), at, below, part);
        setLeft<kKind>(id, part);
    }
    sumUp<kKind>(id);
}

template <unsigned int kKind>
CFecGroups::Id CFecGroups::merge(Id below, Id rest) {
    if (below == kNone || rest == kNone) {
        return below != kNone ? below : rest;
    }
    if (priority(below) > priority(rest)) {
        passOn<kKind>(below);
        setRight<kKind>(below, merge<kKind>(right(below), rest));
        sumUp<kKind>(below);
        return below;
    }
    passOn<kKind>(rest);
    setLeft<kKind>(rest, merge<kKind>(below, left(rest)));
    sumUp<kKind>(rest);
    return rest;
}

// Returns the new root.
template <unsigned int kKind>
CFecGroups::Id CFecGroups::insert(Id root, Id id) {
    if (root == kNone || priority(root) < priority(id)) {
        Id below;
        Id rest;
        split<kKind>(root, id, below, rest);
        setLeft<kKind>(id, below);
        setRight<kKind>(id, rest);
        sumUp<kKind>(id);
        return id;
    }
    passOn<kKind>(root);
    if (isBefore<kKind>(id, root)) {
        setLeft<kKind>(root, insert<kKind>(left(root), id));
    } else {
        setRight<kKind>(root, insert<kKind>(right(root), id));
    }
    sumUp<kKind>(root);
    return root;
}

template <unsigned int kKind>
CFecGroups::Id CFecGroups::erase(Id root, Id id) {
    passOn<kKind>(root);
    if (root == id) {
        return merge<kKind>(left(root), right(root));
    }
    if (isBefore<kKind>(id, root)) {
        setLeft<kKind>(root, erase<kKind>(left(root), id));
    } else {
        setRight<kKind>(root, erase<kKind>(right(root), id));
    }
    sumUp<kKind>(root);
    return root;
}

// Applies a change to one group in the subtree of `root`.
template <typename Change>
void CFecGroups::change(Id root, Id id, Change apply) {
    ++m_steps;
    passOn<kRs>(root);
    if (root == id) {
        apply(m_groups[id]);
    } else {
        change(isBefore<kRs>(id, root) ? left(root) : right(root), id, apply);
    }
    sumUp<kRs>(root);
}

// Adds to the slack of the groups with more than `distance` media packets.
void CFecGroups::addToLonger(Id id, unsigned int distance, int change) {
    if (id == kNone) {
        return;
    }
    ++m_steps;
    passOn<kRs>(id);
    Group& group = m_groups[id];
    if (group.mediaCount > distance) {
        group.rs.slack = static_cast<short>(group.rs.slack + change);
        add(right(id), change);
        addToLonger(left(id), distance, change);
    } else {
        addToLonger(right(id), distance, change);
    }
    sumUp<kRs>(id);
}

// Marks the groups ready that lack nothing any more; they wait no longer.
void CFecGroups::takeReady(Id id) {
    if (id == kNone || m_groups[id].rs.least > 0) {
        return;
    }
    ++m_steps;
    passOn<kRs>(id);
    takeReady(left(id));
    takeReady(right(id));
    Group& group = m_groups[id];
    if (group.isWaiting && group.rs.slack <= 0) {
        group.isWaiting = false;
        markReady(id);
    }
    sumUp<kRs>(id);
}

// Takes the groups out of a subtree that lack one packet or none any more, and marks them ready. `missing`
// has bits as a window has. Returns the new root.
CFecGroups::Id CFecGroups::takeReady(Id id, _uint32_t missing) {
    if (id == kNone || isTwoOrMore(m_groups[id].exclusiveOr.span.common & missing)) {
        return id;
    }
    Group& group = m_groups[id];
    if (!isTwoOrMore(group.exclusiveOr.span.any & missing)) {
        takeAll(id);
        return kNone;
    }
    ++m_steps;
    prefetch(&m_groups[group.right]);
    const Id below = takeReady(left(id), missing);
    const Id rest = takeReady(right(id), missing);
    if (isTwoOrMore(group.exclusiveOr.window & missing)) {
        setLeft<kXor>(id, below);
        setRight<kXor>(id, rest);
        sumUp<kXor>(id);
        return id;
    }
    group.isWaiting = false;
    markReady(id);
    return merge<kXor>(below, rest);
}

// NOLINTEND(misc-no-recursion)

// Marks a whole subtree ready. Level by level, so that a group is in the caches when its turn comes: noting
// it among those due has touched it.
void CFecGroups::takeAll(Id id) {
    Id last = id;
    const auto append = [this, &last](Id due) {
        if (due != kNone) {
            m_groups[last].exclusiveOr.nextDue = due;
            last = due;
            m_groups[due].exclusiveOr.nextDue = kNone;
            const _uint16_t member = m_groups[due].firstMember;
            prefetch(&m_fecPages[member].ready);
            prefetch(&memberOf(member));
        }
    };
    m_groups[id].exclusiveOr.nextDue = kNone;
    while (id != kNone) {
        ++m_steps;
        append(left(id));
        append(right(id));
        m_groups[id].isWaiting = false;
        markReady(id);
        id = m_groups[id].exclusiveOr.nextDue;
    }
}

// --- XOR ---

CFecGroups::Id CFecGroups::findXor(_uint16_t base, _uint32_t window) const {
    Id id = root<kXor>(base);
    while (id != kNone && m_groups[id].exclusiveOr.window != window) {
        ++m_steps;
        id = window < m_groups[id].exclusiveOr.window ? left(id) : right(id);
    }
    return id;
}

// The packets from `base` on that are missing.
_uint32_t CFecGroups::missing(_uint16_t base) const {
    return ~static_cast<_uint32_t>(m_media.window(base, kFecMaskBits));
}

// Where too few packets are missing, the group does not wait.
void CFecGroups::waitXor(Id id) {
    ++m_steps;
    Group& group = m_groups[id];
    if (isTwoOrMore(group.exclusiveOr.window & missing(group.base))) {
        setLeft<kXor>(id, kNone);
        setRight<kXor>(id, kNone);
        group.isWaiting = true;
        setRoot<kXor>(group.base, insert<kXor>(root<kXor>(group.base), id));
    }
}

// Marks the groups ready that media packet `seq` was the last but one for.
void CFecGroups::takeReadyAround(_uint16_t seq) {
    const auto takeFrom = [this](const MediaPage& page, _uint16_t base) {
        setRoot<kXor>(base, takeReady(page.trees[kXor].roots[placeOf(base)], missing(base)));
    };
    visitNumbers(
        m_mediaPages, static_cast<_uint16_t>(seq + 1 - kFecMaskBits), kFecMaskBits,
        [](const MediaPage& page) { return page.trees[kXor].bases; }, takeFrom);
}

// --- What a session calls ---

CFecWaiting::CFecWaiting(CNumberSet media, CNumberSet fec, _uint64_t& steps)
    : m_media(media), m_fec(fec), m_steps(steps) {}

CFecWaiting::~CFecWaiting() = default;

CFecGroups& CFecWaiting::makeGroups() {
    if (m_groups == nullptr) {
        m_groups = std::make_unique<CFecGroups>(m_media, m_fec, m_steps, m_readyCount);
    }
    m_idle = 0;
    return *m_groups;
}

void CFecWaiting::rest() {
    if (++m_idle == kMaxIdle) {
        m_groups.reset();
    }
}

void CFecWaiting::addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask) {
    makeGroups().addXor(fecSeq, base, xorMaskWindow(mask));
}

void CFecWaiting::addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
                        unsigned int fecCount) {
    makeGroups().addRs(fecSeq, base, mediaCount, fecBase, fecCount);
}

void CFecWaiting::remove(_uint16_t fecSeq) {
    if (m_groups != nullptr) {
        m_groups->remove(fecSeq);
    }
}

void CFecWaiting::clear() {
    m_groups.reset();
    m_readyCount = 0;
}

bool CFecWaiting::findReady(_uint16_t seq, _uint16_t& found) const {
    return m_readyCount != 0 && m_groups->findReady(seq, found);
}

void CFecWaiting::waitAgain(_uint16_t fecSeq) {
    if (m_groups != nullptr) {
        m_groups->waitAgain(fecSeq);
    }
}

void CFecWaiting::prefetchGroup(_uint16_t fecSeq) const {
    if (m_groups != nullptr) {
        m_groups->prefetchGroup(fecSeq);
    }
}

void CFecWaiting::countMedia(_uint16_t seq) {
    if (m_groups->isEmpty()) {
        rest();
    } else {
        m_groups->mediaArrived(seq);
    }
}

void CFecWaiting::countMediaBack(_uint16_t seq) {
    if (m_groups->isEmpty()) {
        rest();
    } else {
        m_groups->mediaLeft(seq);
    }
}

void CFecWaiting::countFec(_uint16_t seq) {
    m_groups->fecArrived(seq);
}

}  // namespace talrtp

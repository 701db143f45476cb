#include "TalRtpFecWaiting.h"

#include <algorithm>
#include <cstdint>
#include <new>

namespace talrtp {

namespace {

// Multiplier and increment of a linear congruential generator over 32 bits.
constexpr _uint32_t kRandomFactor = 1664525;
constexpr _uint32_t kRandomStep = 1013904223;

constexpr _uint32_t kHashFactor = 2654435769;  // 2^32 over the golden ratio

}  // namespace

_uint32_t xorMaskWindow(_uint32_t mask) {
    _uint32_t window = 0;
    for (unsigned int i = 0; i < kXorMaskBits; ++i) {
        window |= (mask >> (kXorMaskBits - 1 - i) & 1) << i;
    }
    return window;
}

CFecWaiting::CFecWaiting(CNodePool* pool, const CSequenceSet& media, const CSequenceSet& fec,
                         _uint64_t& steps)
    : m_pool(pool),
      m_media(media),
      m_fec(fec),
      m_steps(steps),
      m_secret(static_cast<_uint32_t>(reinterpret_cast<std::uintptr_t>(this) >> 4)),
      m_random(m_secret),
      m_ready(false),
      m_bases(false),
      m_fecBases(false),
      m_left(false) {}

CFecWaiting::~CFecWaiting() = default;

// --- Members ---

void CFecWaiting::addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask) {
    const _uint32_t window = xorMaskWindow(mask);
    const unsigned int place = placeOf(base, window);
    m_members.reserve(fecSeq);
    m_xorGroups.reserve(place);
    XorGroup* const first = m_xorGroups.peek(place);
    XorGroup* group = first;
    while (group != nullptr && (group->base != base || group->window != window)) {
        ++m_steps;
        group = group->next;
    }
    if (group == nullptr) {
        group = make<XorGroup>(base);
        group->isXor = true;
        group->next = first;
        if (first != nullptr) {
            first->previous = group;
        }
        group->window = window;
        group->turn = (m_random >> 8) % kXorMaskBits;
        group->watches[0].group = group;
        group->watches[1].group = group;
        (first != nullptr ? m_xorGroups[place] : m_xorGroups.claim(place)) = group;
    }
    join(group, fecSeq);
}

void CFecWaiting::addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
                        unsigned int fecCount) {
    m_members.reserve(fecSeq);
    m_roots.reserve(base);
    m_fecGroups.reserve(fecBase);
    RsGroup wanted = RsGroup();
    wanted.base = base;
    wanted.fecBase = fecBase;
    wanted.mediaCount = static_cast<unsigned char>(mediaCount);
    wanted.fecCount = static_cast<unsigned char>(fecCount);
    RsGroup* group = findRs(wanted);
    if (group == nullptr) {
        group = make<RsGroup>(base);
        group->least = kNever;
        group->priority = m_random;
        group->fecBase = fecBase;
        group->mediaCount = wanted.mediaCount;
        group->fecCount = wanted.fecCount;
        setRoot(base, insert(m_roots.peek(base), group));
        linkFec(group);
    }
    join(group, fecSeq);
}

void CFecWaiting::remove(_uint16_t fecSeq) {
    const Member& member = m_members.peek(fecSeq);
    Group* const group = member.group;
    if (group == nullptr) {
        return;
    }
    if (member.previous != kNone) {
        m_members[static_cast<unsigned int>(member.previous)].next = member.next;
    } else {
        group->firstMember = member.next;
    }
    if (member.next != kNone) {
        m_members[static_cast<unsigned int>(member.next)].previous = member.previous;
    }
    m_members.release(fecSeq);
    m_ready.erase(fecSeq);
    if (group->firstMember == kNone) {
        freeGroup(group);
    }
}

void CFecWaiting::waitAgain(_uint16_t fecSeq) {
    Group* const group = m_members.peek(fecSeq).group;
    m_ready.erase(fecSeq);
    if (group == nullptr || group->isWaiting) {
        return;
    }
    for (int member = group->firstMember; member != kNone;
         member = m_members.peek(static_cast<unsigned int>(member)).next) {
        ++m_steps;
        m_ready.erase(static_cast<_uint16_t>(member));
    }
    wait(*group);
}

// **Returns** a group without members, from the pool.
template <typename Kind>
Kind* CFecWaiting::make(_uint16_t base) {
    Kind* const group = new (m_pool->take(sizeof(Kind))) Kind();
    m_random = m_random * kRandomFactor + kRandomStep;
    group->firstMember = kNone;
    group->base = base;
    return group;
}

void CFecWaiting::join(Group* group, _uint16_t fecSeq) {
    const int first = group->firstMember;
    m_members.claim(fecSeq) = Member{group, first, kNone};
    if (first != kNone) {
        m_members[static_cast<unsigned int>(first)].previous = fecSeq;
    }
    group->firstMember = fecSeq;
    if (first == kNone) {
        wait(*group);
    } else if (!group->isWaiting) {
        m_ready.insert(fecSeq);
    }
}

void CFecWaiting::freeGroup(Group* group) {
    if (group->isXor) {
        freeXor(static_cast<XorGroup*>(group));
    } else {
        freeRs(static_cast<RsGroup*>(group));
    }
}

void CFecWaiting::freeRs(RsGroup* group) {
    setRoot(group->base, erase(m_roots.peek(group->base), *group));
    if (m_bases.isEmpty() && !m_left.isEmpty()) {
        m_left.clear();
    }
    unlinkFec(group);
    m_pool->give(group, sizeof(RsGroup));
}

void CFecWaiting::freeXor(XorGroup* group) {
    if (group->isWaiting) {
        unlink(&group->watches[0]);
        unlink(&group->watches[1]);
    }
    const unsigned int place = placeOf(group->base, group->window);
    if (group->next != nullptr) {
        group->next->previous = group->previous;
    }
    if (group->previous != nullptr) {
        group->previous->next = group->next;
    } else if (group->next != nullptr) {
        m_xorGroups[place] = group->next;
    } else {
        m_xorGroups.release(place);
    }
    m_pool->give(group, sizeof(XorGroup));
}

// Lets a group wait for as many packets as it lacks; one that lacks none is ready.
void CFecWaiting::wait(Group& group) {
    if (group.isXor) {
        waitXor(static_cast<XorGroup&>(group));
    } else {
        waitRs(static_cast<RsGroup&>(group));
    }
    if (!group.isWaiting) {
        markReady(group);
    }
}

void CFecWaiting::markReady(const Group& group) {
    for (int fecSeq = group.firstMember; fecSeq != kNone;
         fecSeq = m_members.peek(static_cast<unsigned int>(fecSeq)).next) {
        ++m_steps;
        m_ready.insert(static_cast<_uint16_t>(fecSeq));
    }
}

// --- Reed-Solomon ---

CFecWaiting::RsGroup* CFecWaiting::findRs(const RsGroup& wanted) const {
    RsGroup* group = m_roots.peek(wanted.base);
    while (group != nullptr) {
        ++m_steps;
        if (isBefore(wanted, *group)) {
            group = group->left;
        } else if (isBefore(*group, wanted)) {
            group = group->right;
        } else {
            return group;
        }
    }
    return nullptr;
}

void CFecWaiting::waitRs(RsGroup& group) {
    const unsigned int k = group.mediaCount;
    countBack(group.base, k);
    const unsigned int known = m_media.count(group.base, k) + m_fec.count(group.fecBase, group.fecCount);
    if (known >= k) {
        return;
    }
    const int slack = static_cast<int>(k - known);
    change(m_roots.peek(group.base), group, [slack](RsGroup& waiting) {
        waiting.slack = slack;
        waiting.isWaiting = true;
    });
}

// A packet that left and came again near a waiting group has changed nothing.
void CFecWaiting::countMedia(_uint16_t seq) {
    const bool isCounted = m_left.contains(seq);
    m_left.erase(seq);
    countBack(static_cast<_uint16_t>(seq - kReach), 2 * kReach + 1);
    if (!isCounted) {
        addAround(seq, -1);
    }
}

// Counts the media numbers back that left, of `count` from `first` on.
void CFecWaiting::countBack(_uint16_t first, unsigned int count) {
    if (m_left.isEmpty()) {
        return;
    }
    _uint16_t seq;
    while (m_left.findNext(first, seq) && static_cast<_uint16_t>(seq - first) < count) {
        ++m_steps;
        m_left.erase(seq);
        addAround(seq, 1);
    }
}

// Adds to the slack of every group that media packet `seq` belongs to.
void CFecWaiting::addAround(_uint16_t seq, int change) {
    constexpr unsigned int kWindow = 64;
    for (unsigned int far = kReach + 1; far > 0; far -= kWindow) {
        const _uint16_t first = static_cast<_uint16_t>(seq + 1 - far);
        _uint64_t bases = m_bases.window(first, kWindow);
        ++m_steps;
        while (bases != 0) {
            const unsigned int i = static_cast<unsigned int>(__builtin_ctzll(bases));
            bases &= bases - 1;
            RsGroup* const root = m_roots.peek(static_cast<_uint16_t>(first + i));
            addToLonger(root, far - 1 - i, change);
            takeReady(root);
        }
    }
}

void CFecWaiting::countFec(_uint16_t seq) {
    for (unsigned int distance = 0; distance < kReach; ++distance) {
        const _uint16_t from = static_cast<_uint16_t>(seq - distance);
        _uint16_t base;
        if (!m_fecBases.findPrevious(from, base)) {
            return;
        }
        distance += static_cast<_uint16_t>(from - base);  // beyond the reach after a whole round
        if (distance >= kReach) {
            return;
        }
        for (RsGroup* group = m_fecGroups.peek(base); group != nullptr; group = group->next) {
            ++m_steps;
            if (group->isWaiting && distance < group->fecCount) {
                RsGroup* const root = m_roots.peek(group->base);
                change(root, *group, [](RsGroup& waiting) { --waiting.slack; });
                takeReady(root);
            }
        }
    }
}

void CFecWaiting::linkFec(RsGroup* group) {
    const _uint16_t base = group->fecBase;
    RsGroup* const first = m_fecGroups.peek(base);
    group->next = first;
    if (first != nullptr) {
        first->previous = group;
        m_fecGroups[base] = group;
    } else {
        m_fecGroups.claim(base) = group;
        m_fecBases.insert(base);
    }
}

void CFecWaiting::unlinkFec(RsGroup* group) {
    const _uint16_t base = group->fecBase;
    if (group->next != nullptr) {
        group->next->previous = group->previous;
    }
    if (group->previous != nullptr) {
        group->previous->next = group->next;
    } else if (group->next != nullptr) {
        m_fecGroups[base] = group->next;
    } else {
        m_fecGroups.release(base);
        m_fecBases.erase(base);
    }
}

// --- The tree: a treap, in which no node has a higher priority than its parent ---
//
// The walks call themselves once for each level. Priorities are random and out of a sender's sight, so 65,536
// groups make some 40 levels. NOLINTBEGIN(misc-no-recursion)

// The order of the tree: by length, then by the other numbers.
bool CFecWaiting::isBefore(const RsGroup& a, const RsGroup& b) {
    const auto key = [](const RsGroup& group) {
        return _uint32_t(group.mediaCount) << 24 | _uint32_t(group.fecBase) << 8 | group.fecCount;
    };
    return key(a) < key(b);
}

void CFecWaiting::setRoot(_uint16_t base, RsGroup* root) {
    RsGroup* const before = m_roots.peek(base);
    if (before == nullptr && root != nullptr) {
        m_roots.claim(base) = root;
        m_bases.insert(base);
    } else if (before != nullptr && root == nullptr) {
        m_roots.release(base);
        m_bases.erase(base);
    } else if (before != root) {
        m_roots[base] = root;
    }
}

// Adds to the slack of a whole subtree.
void CFecWaiting::add(RsGroup* group, int change) {
    if (group != nullptr) {
        group->slack += change;
        group->least += change;
        group->pending += change;
    }
}

void CFecWaiting::passOn(RsGroup* group) {
    if (group->pending != 0) {
        add(group->left, group->pending);
        add(group->right, group->pending);
        group->pending = 0;
    }
}

void CFecWaiting::sumUp(RsGroup* group) {
    int least = group->isWaiting ? group->slack : kNever;
    least = group->left != nullptr ? std::min(least, group->left->least) : least;
    group->least = group->right != nullptr ? std::min(least, group->right->least) : least;
}

// Parts a subtree into the groups before `at` and the rest.
void CFecWaiting::split(RsGroup* group, const RsGroup& at, RsGroup*& below, RsGroup*& rest) {
    if (group == nullptr) {
        below = nullptr;
        rest = nullptr;
        return;
    }
    passOn(group);
    if (isBefore(*group, at)) {
        below = group;
        split(group->right, at, group->right, rest);
    } else {
        rest = group;
        split(group->left, at, below, group->left);
    }
    sumUp(group);
}

CFecWaiting::RsGroup* CFecWaiting::merge(RsGroup* below, RsGroup* rest) {
    if (below == nullptr || rest == nullptr) {
        return below != nullptr ? below : rest;
    }
    if (below->priority >= rest->priority) {
        passOn(below);
        below->right = merge(below->right, rest);
        sumUp(below);
        return below;
    }
    passOn(rest);
    rest->left = merge(below, rest->left);
    sumUp(rest);
    return rest;
}

// Returns the new root.
CFecWaiting::RsGroup* CFecWaiting::insert(RsGroup* root, RsGroup* group) {
    if (root == nullptr || root->priority < group->priority) {
        split(root, *group, group->left, group->right);
        sumUp(group);
        return group;
    }
    passOn(root);
    RsGroup*& child = isBefore(*group, *root) ? root->left : root->right;
    child = insert(child, group);
    sumUp(root);
    return root;
}

CFecWaiting::RsGroup* CFecWaiting::erase(RsGroup* root, const RsGroup& group) {
    passOn(root);
    if (root == &group) {
        return merge(root->left, root->right);
    }
    RsGroup*& child = isBefore(group, *root) ? root->left : root->right;
    child = erase(child, group);
    sumUp(root);
    return root;
}

// Applies a change to one group in the subtree of `root`.
template <typename Change>
void CFecWaiting::change(RsGroup* root, RsGroup& group, Change apply) {
    ++m_steps;
    passOn(root);
    if (root == &group) {
        apply(group);
    } else {
        change(isBefore(group, *root) ? root->left : root->right, group, apply);
    }
    sumUp(root);
}

// Adds to the slack of the groups with more than `distance` media packets.
void CFecWaiting::addToLonger(RsGroup* group, unsigned int distance, int change) {
    if (group == nullptr) {
        return;
    }
    ++m_steps;
    passOn(group);
    if (group->mediaCount > distance) {
        group->slack += change;
        add(group->right, change);
        addToLonger(group->left, distance, change);
    } else {
        addToLonger(group->right, distance, change);
    }
    sumUp(group);
}

// Marks the groups ready that lack nothing any more; they wait no longer.
void CFecWaiting::takeReady(RsGroup* group) {
    if (group == nullptr || group->least > 0) {
        return;
    }
    ++m_steps;
    passOn(group);
    takeReady(group->left);
    takeReady(group->right);
    if (group->isWaiting && group->slack <= 0) {
        group->isWaiting = false;
        markReady(*group);
    }
    sumUp(group);
}

// NOLINTEND(misc-no-recursion)

// --- XOR ---

unsigned int CFecWaiting::placeOf(_uint16_t base, _uint32_t window) const {
    constexpr unsigned int kHashBits = 32;
    return ((window ^ m_secret) * kRandomFactor + base) * kHashFactor >> (kHashBits - kPlaceBits);
}

_uint32_t CFecWaiting::missing(const XorGroup& group) const {
    return group.window & ~static_cast<_uint32_t>(m_media.window(group.base, kXorMaskBits));
}

// Returns the place of one of `bits`, different from group to group, so that an arrival meets few groups;
// kNone when there is none.
int CFecWaiting::choose(const XorGroup& group, _uint32_t bits) {
    if (bits == 0) {
        return kNone;
    }
    const _uint32_t later = bits >> group.turn << group.turn;
    return __builtin_ctz(later != 0 ? later : bits);
}

// Watches two missing packets. Where there are not as many, or memory is short, the group does not wait: it
// is tried again with the next arrival.
void CFecWaiting::waitXor(XorGroup& group) {
    const _uint32_t bits = missing(group);
    ++m_steps;
    if ((bits & (bits - 1)) == 0) {
        return;
    }
    const int first = choose(group, bits);
    const int second = choose(group, bits & ~(_uint32_t(1) << first));
    if (!link(&group.watches[0], static_cast<_uint16_t>(group.base + first))) {
        return;
    }
    group.isWaiting = link(&group.watches[1], static_cast<_uint16_t>(group.base + second));
    if (!group.isWaiting) {
        unlink(&group.watches[0]);
    }
}

// Moves all watches of a number that arrived, of which `watch` is the first, to others that are missing.
void CFecWaiting::moveWatches(Watch* watch) {
    while (watch != nullptr) {
        ++m_steps;
        Watch* const following = watch->next;
        XorGroup& group = *watch->group;
        Watch& other = group.watches[watch == &group.watches[0] ? 1 : 0];
        const unsigned int otherPlace = static_cast<_uint16_t>(other.number - group.base);
        const int place = choose(group, missing(group) & ~(_uint32_t(1) << otherPlace));
        unlink(watch);
        if (place == kNone || !link(watch, static_cast<_uint16_t>(group.base + place))) {
            unlink(&other);
            group.isWaiting = false;
            markReady(group);
        }
        watch = following;
    }
}

// False, with nothing changed, when memory is short.
bool CFecWaiting::link(Watch* watch, _uint16_t number) {
    if (!m_watchesOf.tryReserve(number)) {
        return false;
    }
    Watch* const first = m_watchesOf.peek(number);
    watch->number = number;
    watch->previous = nullptr;
    watch->next = first;
    if (first != nullptr) {
        first->previous = watch;
        m_watchesOf[number] = watch;
    } else {
        m_watchesOf.claim(number) = watch;
    }
    return true;
}

void CFecWaiting::unlink(Watch* watch) {
    if (watch->next != nullptr) {
        watch->next->previous = watch->previous;
    }
    if (watch->previous != nullptr) {
        watch->previous->next = watch->next;
    } else if (watch->next != nullptr) {
        m_watchesOf[watch->number] = watch->next;
    } else {
        m_watchesOf.release(watch->number);
    }
}

}  // namespace talrtp

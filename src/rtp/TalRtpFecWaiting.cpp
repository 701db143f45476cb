#include "TalRtpFecWaiting.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <new>

namespace talrtp {

namespace {

// Multiplier and increment of a linear congruential generator over 32 bits.
constexpr _uint32_t kRandomFactor = 1664525;
constexpr _uint32_t kRandomStep = 1013904223;

constexpr unsigned int kWordBits = 32;

bool isTwoOrMore(_uint32_t bits) {
    return (bits & (bits - 1)) != 0;
}

}  // namespace

_uint32_t xorMaskWindow(_uint32_t mask) {
    // Turned round by bytes, by halves of these, by pairs and by single bits.
    _uint32_t window = __builtin_bswap32(mask << (kWordBits - kFecMaskBits));
    window = (window >> 4 & 0x0f0f0f0f) | (window & 0x0f0f0f0f) << 4;
    window = (window >> 2 & 0x33333333) | (window & 0x33333333) << 2;
    return (window >> 1 & 0x55555555) | (window & 0x55555555) << 1;
}

CFecWaiting::CFecWaiting(CNodePool* pool, const CSequenceSet& media, const CSequenceSet& fec,
                         _uint64_t& steps)
    : m_pool(pool),
      m_media(media),
      m_fec(fec),
      m_steps(steps),
      m_random(static_cast<_uint32_t>(reinterpret_cast<std::uintptr_t>(this) >> 4)),
      m_ready(false),
      m_bases(false),
      m_fecBases(false),
      m_left(false),
      m_xorBases(false) {}

CFecWaiting::~CFecWaiting() = default;

// --- Members ---

void CFecWaiting::addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask) {
    const _uint32_t window = xorMaskWindow(mask);
    m_members.reserve(fecSeq);
    m_xorRoots.reserve(base);
    XorGroup* group = findXor(base, window);
    if (group == nullptr) {
        group = make<XorGroup>(base);
        group->isXor = true;
        group->priority = m_random;
        group->window = window;
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
        group->hadMore = true;
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
        setRoot(group->base, erase(m_xorRoots.peek(group->base), *group));
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
    int fecSeq = group.firstMember;
    while (fecSeq != kNone) {
        ++m_steps;
        m_ready.insert(static_cast<_uint16_t>(fecSeq));
        fecSeq = group.hadMore ? m_members.peek(static_cast<unsigned int>(fecSeq)).next : kNone;
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
    constexpr unsigned int kWindow = 64;
    for (unsigned int far = kReach + 1; far > 0; far -= kWindow) {
        const _uint16_t first = static_cast<_uint16_t>(seq + 1 - far);
        _uint64_t bases = m_fecBases.window(first, kWindow);
        ++m_steps;
        while (bases != 0) {
            const unsigned int i = static_cast<unsigned int>(__builtin_ctzll(bases));
            bases &= bases - 1;
            countFecFrom(static_cast<_uint16_t>(first + i), far - 1 - i);
        }
    }
}

// Counts parity packet `distance` of the groups whose parity packets begin at `fecBase`.
void CFecWaiting::countFecFrom(_uint16_t fecBase, unsigned int distance) {
    for (RsGroup* group = m_fecGroups.peek(fecBase); group != nullptr; group = group->next) {
        ++m_steps;
        if (!group->isWaiting || distance >= group->fecCount) {
            continue;
        }
        RsGroup* const root = m_roots.peek(group->base);
        if (root == group && group->left == nullptr && group->right == nullptr) {
            group->least = --group->slack;
        } else {
            change(root, *group, [](RsGroup& waiting) { --waiting.slack; });
        }
        takeReady(root);
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

// Groups that protect the same are apart by their addresses: one may have been ready while the other came.
bool CFecWaiting::isBefore(const XorGroup& a, const XorGroup& b) {
    return a.window < b.window || (a.window == b.window && std::less<const XorGroup*>()(&a, &b));
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

void CFecWaiting::setRoot(_uint16_t base, XorGroup* root) {
    XorGroup* const before = m_xorRoots.peek(base);
    if (before == nullptr && root != nullptr) {
        m_xorRoots.claim(base) = root;
        m_xorBases.insert(base);
    } else if (before != nullptr && root == nullptr) {
        m_xorRoots.release(base);
        m_xorBases.erase(base);
    } else if (before != root) {
        m_xorRoots[base] = root;
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

void CFecWaiting::sumUp(XorGroup* group) {
    Span span = {group->window, group->window};
    for (const XorGroup* const child : {group->left, group->right}) {
        if (child != nullptr) {
            span.common &= child->span.common;
            span.any |= child->span.any;
        }
    }
    group->span = span;
}

// Parts a subtree into the groups before `at` and the rest.
template <typename Kind>
void CFecWaiting::split(Kind* group, const Kind& at, Kind*& below, Kind*& rest) {
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

template <typename Kind>
Kind* CFecWaiting::merge(Kind* below, Kind* rest) {
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
template <typename Kind>
Kind* CFecWaiting::insert(Kind* root, Kind* group) {
    if (root == nullptr || root->priority < group->priority) {
        split(root, *group, group->left, group->right);
        sumUp(group);
        return group;
    }
    passOn(root);
    Kind*& child = isBefore(*group, *root) ? root->left : root->right;
    child = insert(child, group);
    sumUp(root);
    return root;
}

template <typename Kind>
Kind* CFecWaiting::erase(Kind* root, const Kind& group) {
    passOn(root);
    if (root == &group) {
        return merge(root->left, root->right);
    }
    Kind*& child = isBefore(group, *root) ? root->left : root->right;
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

// Takes the groups out of a subtree that lack one packet or none any more, and marks them ready. `missing`
// and `arrived` are bits as in `window`. Returns the new root.
CFecWaiting::XorGroup* CFecWaiting::takeReady(XorGroup* group, _uint32_t missing) {
    if (group == nullptr || isTwoOrMore(group->span.common & missing)) {
        return group;
    }
    if (!isTwoOrMore(group->span.any & missing)) {
        takeAll(group);
        return nullptr;
    }
    ++m_steps;
    group->left = takeReady(group->left, missing);
    group->right = takeReady(group->right, missing);
    if (isTwoOrMore(group->window & missing)) {
        sumUp(group);
        return group;
    }
    group->isWaiting = false;
    markReady(*group);
    return merge(group->left, group->right);
}

// NOLINTEND(misc-no-recursion)

// Marks a whole subtree ready. Level by level, so that a group is in the caches when its turn comes: noting
// it among those due has touched it.
void CFecWaiting::takeAll(XorGroup* group) {
    XorGroup* last = group;
    const auto append = [&last](XorGroup* due) {
        if (due != nullptr) {
            last->nextDue = due;
            last = due;
            due->nextDue = nullptr;
        }
    };
    group->nextDue = nullptr;
    while (group != nullptr) {
        ++m_steps;
        append(group->left);
        append(group->right);
        group->isWaiting = false;
        markReady(*group);
        group = group->nextDue;
    }
}

// --- XOR ---

CFecWaiting::XorGroup* CFecWaiting::findXor(_uint16_t base, _uint32_t window) const {
    XorGroup* group = m_xorRoots.peek(base);
    while (group != nullptr && group->window != window) {
        ++m_steps;
        group = window < group->window ? group->left : group->right;
    }
    return group;
}

// The packets from `base` on that are missing.
_uint32_t CFecWaiting::missing(_uint16_t base) const {
    return ~static_cast<_uint32_t>(m_media.window(base, kFecMaskBits));
}

// Where too few packets are missing, or memory is short, the group does not wait: it is tried again with the
// next arrival.
void CFecWaiting::waitXor(XorGroup& group) {
    ++m_steps;
    if (isTwoOrMore(group.window & missing(group.base)) && m_xorRoots.tryReserve(group.base)) {
        group.left = nullptr;
        group.right = nullptr;
        group.isWaiting = true;
        setRoot(group.base, insert(m_xorRoots.peek(group.base), &group));
    }
}

// Marks the groups ready that media packet `seq` was the last but one for.
void CFecWaiting::takeReadyAround(_uint16_t seq) {
    const _uint16_t first = static_cast<_uint16_t>(seq + 1 - kFecMaskBits);
    _uint64_t bases = m_xorBases.window(first, kFecMaskBits);
    while (bases != 0) {
        const _uint16_t base = static_cast<_uint16_t>(first + __builtin_ctzll(bases));
        bases &= bases - 1;
        setRoot(base, takeReady(m_xorRoots.peek(base), missing(base)));
    }
}

}  // namespace talrtp

#include "TalRtpFecWaiting.h"

#include <algorithm>

namespace talrtp {

namespace {

constexpr unsigned int kXorSpare = 1;

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
      m_ready(false),
      m_sharedGroups(std::less<_uint64_t>(), GroupMap::allocator_type(pool)) {}

CFecWaiting::~CFecWaiting() = default;

void CFecWaiting::addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask) {
    Group* const group = static_cast<Group*>(m_pool->take(sizeof(Group)));
    *group = Group();
    group->mediaBase = base;
    group->mediaCount = kXorMaskBits;
    group->unprotected = ~xorMaskWindow(mask) & ((1u << kXorMaskBits) - 1);
    group->spare = kXorSpare;
    group->firstMember = kNone;
    join(group, fecSeq);
}

void CFecWaiting::addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
                        unsigned int fecCount) {
    Group wanted = Group();
    wanted.mediaBase = base;
    wanted.fecBase = fecBase;
    wanted.mediaCount = mediaCount;
    wanted.fecCount = fecCount;
    wanted.spare = fecCount;
    wanted.isShared = true;
    wanted.firstMember = kNone;
    Group*& group = m_sharedGroups[keyOf(wanted)];
    if (group == nullptr) {
        group = static_cast<Group*>(m_pool->take(sizeof(Group)));
        *group = wanted;
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
    if (group != nullptr && !group->isWaiting) {
        setWatches(group);
    }
}

_uint64_t CFecWaiting::keyOf(const Group& group) {
    return _uint64_t(group.mediaBase) << 48 | _uint64_t(group.fecBase) << 32 |
           _uint64_t(group.mediaCount) << 16 | group.fecCount;
}

void CFecWaiting::join(Group* group, _uint16_t fecSeq) {
    const int first = group->firstMember;
    m_members.claim(fecSeq) = Member{group, first, kNone};
    if (first != kNone) {
        m_members[static_cast<unsigned int>(first)].previous = fecSeq;
    }
    group->firstMember = fecSeq;
    if (first == kNone) {
        setWatches(group);
    } else if (!group->isWaiting) {
        m_ready.insert(fecSeq);
    }
}

void CFecWaiting::freeGroup(Group* group) {
    clearWatches(group);
    if (group->isShared) {
        m_sharedGroups.erase(keyOf(*group));
    }
    m_pool->give(group, sizeof(Group));
}

// Moves all watches of a number, of which `watch` is the first, to others that are missing.
void CFecWaiting::moveWatches(Watch* watch) {
    while (watch != nullptr) {
        ++m_steps;
        Watch* const following = watch->nextOfNumber;
        Group* const group = watch->group;
        const int position = nextMissing(*group, group->cursor);
        if (position != kNone) {
            unlinkFromNumber(watch);
            linkToNumber(watch, numberAt(*group, static_cast<unsigned int>(position)));
            group->cursor = static_cast<unsigned int>(position) + 1;
        } else {
            clearWatches(group);
            setWatches(group);
        }
        watch = following;
    }
}

// Watches the first missing positions, one more than may be missing. Where there are not as many, the group
// is ready.
void CFecWaiting::setWatches(Group* group) {
    unsigned int watched = 0;
    int position = nextMissing(*group, 0);
    while (position != kNone && watched <= group->spare) {
        ++m_steps;
        Watch* const watch = static_cast<Watch*>(m_pool->take(sizeof(Watch)));
        watch->group = group;
        watch->nextOfGroup = group->firstWatch;
        group->firstWatch = watch;
        linkToNumber(watch, numberAt(*group, static_cast<unsigned int>(position)));
        group->cursor = static_cast<unsigned int>(position) + 1;
        ++watched;
        position = nextMissing(*group, group->cursor);
    }
    group->isWaiting = watched > group->spare;
    if (!group->isWaiting) {
        clearWatches(group);
        markReady(group);
    }
}

void CFecWaiting::clearWatches(Group* group) {
    while (group->firstWatch != nullptr) {
        ++m_steps;
        Watch* const watch = group->firstWatch;
        group->firstWatch = watch->nextOfGroup;
        unlinkFromNumber(watch);
        m_pool->give(watch, sizeof(Watch));
    }
    group->isWaiting = false;
}

void CFecWaiting::markReady(const Group* group) {
    for (int fecSeq = group->firstMember; fecSeq != kNone;
         fecSeq = m_members.peek(static_cast<unsigned int>(fecSeq)).next) {
        ++m_steps;
        m_ready.insert(static_cast<_uint16_t>(fecSeq));
    }
}

// Returns the first position, not below `position`, whose packet is not at hand, or kNone.
int CFecWaiting::nextMissing(const Group& group, unsigned int position) const {
    constexpr unsigned int kWindow = 64;
    while (position < group.mediaCount + group.fecCount) {
        ++m_steps;
        const bool isMedia = position < group.mediaCount;
        const unsigned int end = isMedia ? group.mediaCount : group.mediaCount + group.fecCount;
        const unsigned int count = std::min(end - position, kWindow);
        const CSequenceSet& numbers = isMedia ? m_media : m_fec;
        _uint64_t missing = ~numbers.window(static_cast<_uint16_t>(numberAt(group, position)), count);
        if (isMedia && group.unprotected != 0) {
            missing &= ~(_uint64_t(group.unprotected) >> position);
        }
        if (count < kWindow) {
            missing &= (_uint64_t(1) << count) - 1;
        }
        if (missing != 0) {
            return static_cast<int>(position) + __builtin_ctzll(missing);
        }
        position += count;
    }
    return kNone;
}

CFecWaiting::Number CFecWaiting::numberAt(const Group& group, unsigned int position) {
    if (position < group.mediaCount) {
        return static_cast<_uint16_t>(group.mediaBase + position);
    }
    return kFirstFecNumber + static_cast<_uint16_t>(group.fecBase + position - group.mediaCount);
}

void CFecWaiting::linkToNumber(Watch* watch, Number number) {
    Watch* const first = m_watchesOf.peek(number);
    watch->number = number;
    watch->previousOfNumber = nullptr;
    watch->nextOfNumber = first;
    if (first != nullptr) {
        first->previousOfNumber = watch;
        m_watchesOf[number] = watch;
    } else {
        m_watchesOf.claim(number) = watch;
    }
}

void CFecWaiting::unlinkFromNumber(Watch* watch) {
    if (watch->nextOfNumber != nullptr) {
        watch->nextOfNumber->previousOfNumber = watch->previousOfNumber;
    }
    if (watch->previousOfNumber != nullptr) {
        watch->previousOfNumber->nextOfNumber = watch->nextOfNumber;
    } else if (watch->nextOfNumber != nullptr) {
        m_watchesOf[watch->number] = watch->nextOfNumber;
    } else {
        m_watchesOf.release(watch->number);
    }
}

}  // namespace talrtp

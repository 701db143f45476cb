// Which stored FEC packets may have something new to give.
//
// A FEC packet is kept while more of its group's packets are missing than its code can do without: 1 for XOR,
// the number of parity packets m for Reed-Solomon. Trying it again before enough of them came is in vain. So
// a group watches that many of its missing numbers and one more: as long as all of these are missing, it
// still waits. When a watched number arrives, the watch moves to another missing number; when there is none
// left, the group's FEC packets are marked ready. Each arrival therefore costs only the groups that watch it,
// and a watch moves forward over the group at most once.
//
// A number that leaves again (its timestamp aged out) only makes a group wait longer, so nothing is done
// then.

#ifndef TALRTP_SRC_TALRTPFECWAITING_H
#define TALRTP_SRC_TALRTPFECWAITING_H

#include <talrtp/TalRtpSession.h>

#include "TalRtpSequenceSet.h"

namespace talrtp {

// How many packets the mask of an XOR FEC packet covers.
constexpr unsigned int kXorMaskBits = 24;

// Turns such a mask round into the order of `CSequenceSet::window`: bit 0 for the first packet.
_uint32_t xorMaskWindow(_uint32_t mask);

class CFecWaiting {
public:
    // `media` and `fec` hold the numbers of the packets that are at hand; they are read whenever something
    // arrives.
    CFecWaiting(CNodePool* pool, const CSequenceSet& media, const CSequenceSet& fec, _uint64_t& steps);
    ~CFecWaiting();
    CFecWaiting(const CFecWaiting&) = delete;
    CFecWaiting& operator=(const CFecWaiting&) = delete;

    // Files a FEC packet just stored, by what it protects. `mask`: bit 23 - i for packet base + i.
    void addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask);
    // The same for parity of `mediaCount` packets from `base` on and `fecCount` parity packets from `fecBase`
    // on.
    void addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
               unsigned int fecCount);
    // Forgets a FEC packet, if it is filed.
    void remove(_uint16_t fecSeq);

    // A packet came to be at hand.
    void mediaArrived(_uint16_t seq) { arrived(seq); }
    void fecArrived(_uint16_t seq) { arrived(kFirstFecNumber + seq); }

    // The FEC numbers that are worth another try.
    const CSequenceSet& ready() const { return m_ready; }
    // Lets a FEC packet whose try was in vain wait again.
    void waitAgain(_uint16_t fecSeq);

private:
    // A number to wait for: a media sequence number, or kFirstFecNumber plus a FEC sequence number.
    typedef _uint32_t Number;
    static constexpr Number kFirstFecNumber = CSequenceSet::kNumbers;
    static constexpr Number kNumbers = 2 * CSequenceSet::kNumbers;
    static constexpr int kNone = -1;

    struct Watch;

    // The packets of one FEC group. Its positions are the protected media packets, then the parity packets.
    struct Group {
        _uint16_t mediaBase;
        _uint16_t fecBase;
        unsigned int mediaCount;
        unsigned int fecCount;
        _uint32_t unprotected;  // bit i: media packet i is not protected; XOR groups only
        unsigned int spare;     // how many may be missing
        bool isShared;          // filed under its key, for all parity packets of the group
        bool isWaiting;         // has its watches set
        unsigned int cursor;    // positions from here on are not watched
        Watch* firstWatch;
        int firstMember;  // FEC sequence number, or kNone
    };

    // A group's interest in one missing number; linked with the other watches of the number and of the group.
    struct Watch {
        Group* group;
        Number number;
        Watch* nextOfNumber;
        Watch* previousOfNumber;
        Watch* nextOfGroup;
    };

    struct Member {
        Group* group;  // null: not filed
        int next;
        int previous;
    };

    typedef std::map<_uint64_t, Group*, std::less<_uint64_t>,
                     CNodeAllocator<std::pair<const _uint64_t, Group*>>>
        GroupMap;

    static _uint64_t keyOf(const Group& group);

    void join(Group* group, _uint16_t fecSeq);
    void freeGroup(Group* group);

    void arrived(Number number) {
        if (Watch* const watch = m_watchesOf.peek(number)) {
            moveWatches(watch);
        }
    }
    void moveWatches(Watch* watch);
    void setWatches(Group* group);
    void clearWatches(Group* group);
    void markReady(const Group* group);

    int nextMissing(const Group& group, unsigned int position) const;
    static Number numberAt(const Group& group, unsigned int position);

    void linkToNumber(Watch* watch, Number number);
    void unlinkFromNumber(Watch* watch);

    CNodePool* m_pool;  // the groups and their watches
    const CSequenceSet& m_media;
    const CSequenceSet& m_fec;
    _uint64_t& m_steps;
    CSequenceSet m_ready;
    GroupMap m_sharedGroups;
    CSlotTable<Member> m_members;              // by FEC sequence number
    CSlotTable<Watch*, kNumbers> m_watchesOf;  // by number: the first one of its list
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPFECWAITING_H

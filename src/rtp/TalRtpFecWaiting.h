// Which stored FEC packets may have something new to give.
//
// A FEC packet is kept while more of its group's packets are missing than its code can do without: 1 for XOR,
// the number of parity packets m for Reed-Solomon. Trying it again before enough of them came is in vain. An
// arrival must not cost a look at every group that waits for its number either, for forged groups overlap as
// their senders like.
//
// Reed-Solomon groups lack a number of packets, their *slack*, and become ready when it reaches 0. The groups
// over one media base form a tree by their length k, in which each subtree knows its smallest slack. A media
// packet at distance d from a base lowers the slack of all groups there with k > d: the right part of the
// tree, noted at log(n) nodes. There are at most 255 such bases. A FEC packet is counted in each of its
// groups by itself: those begin at most 255 numbers before it, and each was filed for a FEC packet at most
// 255 numbers behind its begin, so there are at most 511.
//
// XOR groups protect any of 24 packets, and are ready when all but one of these are available. Those that
// wait over one base form a tree by what they protect, in which each subtree knows what all of it protect,
// and what any of it does. An arrival leaves out the subtrees that all protect two missing packets, and those
// that nobody of protects the one that arrived.
//
// A number that leaves again (its timestamp aged out) makes groups wait longer. Media numbers that left are
// counted back when something arrives near them; FEC numbers are not, so a group is then only tried too
// early.

#ifndef TALRTP_SRC_TALRTPFECWAITING_H
#define TALRTP_SRC_TALRTPFECWAITING_H

#include <talrtp/TalRtpSession.h>

#include "TalRtpPacketLayout.h"
#include "TalRtpSequenceSet.h"

namespace talrtp {

// Turns the mask of an XOR FEC packet round into the order of `CSequenceSet::window`: bit 0 for the first
// packet.
_uint32_t xorMaskWindow(_uint32_t mask);

class CFecWaiting {
public:
    // `media` and `fec` hold the numbers of the packets that are at hand; they are read whenever something
    // arrives.
    CFecWaiting(CNodePool* pool, const CSequenceSet& media, const CSequenceSet& fec, _uint64_t& steps);
    ~CFecWaiting();
    CFecWaiting(const CFecWaiting&) = delete;
    CFecWaiting& operator=(const CFecWaiting&) = delete;

    // Files a FEC packet just stored, by what it protects. Throws std::bad_alloc, with nothing changed, when
    // memory is short. `mask`: bit 23 - i for packet base + i.
    void addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask);
    // The same for parity of `mediaCount` packets from `base` on and `fecCount` parity packets from `fecBase`
    // on; both together are at most 256.
    void addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
               unsigned int fecCount);
    // Forgets a FEC packet, if it is filed.
    void remove(_uint16_t fecSeq);

    // A packet came to be at hand, or left. Of a FEC packet that is to be filed, this is told before.
    void mediaArrived(_uint16_t seq) {
        if (!m_xorBases.isEmpty()) {
            takeReadyAround(seq);
        }
        if (!m_bases.isEmpty()) {
            countMedia(seq);
        }
    }
    void mediaLeft(_uint16_t seq) {
        if (!m_bases.isEmpty()) {
            m_left.insert(seq);
        }
    }
    void fecArrived(_uint16_t seq) {
        if (!m_fecBases.isEmpty()) {
            countFec(seq);
        }
    }

    // The FEC numbers that are worth another try.
    const CSequenceSet& ready() const { return m_ready; }
    // Lets a FEC packet whose try was in vain wait again, and with it all that are filed for the same
    // numbers.
    void waitAgain(_uint16_t fecSeq);
    // Fetches into the caches what the removal of a FEC packet will touch.
    void prefetchGroup(_uint16_t fecSeq) const { __builtin_prefetch(m_members.peek(fecSeq).group, 1); }

private:
    static constexpr int kNone = -1;
    static constexpr int kNever = 1 << 29;  // the slack that groups which do not wait count for
    static constexpr unsigned int kReach = 255;

    // FEC packets with the same numbers.
    struct Group {
        int firstMember;  // FEC sequence number, or kNone
        _uint16_t base;   // of the media packets
        bool isXor : 1;
        bool hadMore : 1;  // than one member at a time; else nobody has to ask the first for others
        bool isWaiting;
    };
    // A node of the tree over its media base, which is a treap.
    struct RsGroup : Group {
        RsGroup* left;
        RsGroup* right;
        RsGroup* next;      // of those whose parity packets begin at the same number
        RsGroup* previous;  // likewise
        int slack;          // how many packets more it needs, without what ancestors are still to pass on
        int least;          // the smallest slack of the groups in this subtree that wait
        int pending;        // to be added to the slack of everything below
        _uint32_t priority;
        _uint16_t fecBase;
        unsigned char mediaCount;
        unsigned char fecCount;
    };
    // Media packets that groups protect: bit i is the packet base + i.
    struct Span {
        _uint32_t common;  // all of them
        _uint32_t any;     // at least one
    };
    // The same, and in the tree while it waits.
    struct XorGroup : Group {
        XorGroup* left;
        XorGroup* right;
        _uint32_t priority;
        _uint32_t window;  // what the group protects
        union {
            Span span;          // of this subtree
            XorGroup* nextDue;  // while all of it are taken out
        };
    };

    struct Member {
        Group* group;  // null: not filed
        int next;
        int previous;
    };

    // --- Members ---

    template <typename Kind>
    Kind* make(_uint16_t base);
    void join(Group* group, _uint16_t fecSeq);
    void freeGroup(Group* group);
    void freeRs(RsGroup* group);
    void freeXor(XorGroup* group);
    void wait(Group& group);
    void markReady(const Group& group);

    // --- Reed-Solomon ---

    RsGroup* findRs(const RsGroup& wanted) const;
    void waitRs(RsGroup& group);
    // Out of line, as the one for XOR: sessions without parity that waits call neither.
    __attribute__((noinline)) void countMedia(_uint16_t seq);
    void countFec(_uint16_t seq);
    void countFecFrom(_uint16_t fecBase, unsigned int distance);
    void countBack(_uint16_t first, unsigned int count);
    void addAround(_uint16_t seq, int change);
    void linkFec(RsGroup* group);
    void unlinkFec(RsGroup* group);

    // --- The tree ---

    static bool isBefore(const RsGroup& a, const RsGroup& b);
    static bool isBefore(const XorGroup& a, const XorGroup& b);
    void setRoot(_uint16_t base, RsGroup* root);
    void setRoot(_uint16_t base, XorGroup* root);
    static void add(RsGroup* group, int change);
    static void passOn(RsGroup* group);
    static void passOn(XorGroup*) {}
    static void sumUp(RsGroup* group);
    static void sumUp(XorGroup* group);
    // These call themselves once for each level. NOLINTBEGIN(misc-no-recursion)
    template <typename Kind>
    static void split(Kind* group, const Kind& at, Kind*& below, Kind*& rest);
    template <typename Kind>
    static Kind* merge(Kind* below, Kind* rest);
    template <typename Kind>
    static Kind* insert(Kind* root, Kind* group);
    template <typename Kind>
    static Kind* erase(Kind* root, const Kind& group);
    template <typename Change>
    void change(RsGroup* root, RsGroup& group, Change apply);
    // NOLINTEND(misc-no-recursion)
    void addToLonger(RsGroup* group, unsigned int distance, int change);
    void takeReady(RsGroup* group);

    // --- XOR ---

    XorGroup* findXor(_uint16_t base, _uint32_t window) const;
    _uint32_t missing(_uint16_t base) const;
    void waitXor(XorGroup& group);
    __attribute__((noinline)) void takeReadyAround(_uint16_t seq);
    XorGroup* takeReady(XorGroup* group, _uint32_t missing);
    void takeAll(XorGroup* group);

    CNodePool* m_pool;  // the groups
    const CSequenceSet& m_media;
    const CSequenceSet& m_fec;
    _uint64_t& m_steps;
    _uint32_t m_random;  // out of a sender's sight, so that nobody outside can guess the trees
    CSequenceSet m_ready;
    CSlotTable<Member> m_members;  // by FEC sequence number

    CSlotTable<RsGroup*> m_roots;      // by media base
    CSequenceSet m_bases;              // those that have a tree
    CSlotTable<RsGroup*> m_fecGroups;  // by the number at which the parity packets begin: the first of a list
    CSequenceSet m_fecBases;
    CSequenceSet m_left;  // media numbers that left, and are still counted as if they had not

    CSlotTable<XorGroup*> m_xorRoots;  // by media base
    CSequenceSet m_xorBases;           // those that have a tree
};

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPFECWAITING_H

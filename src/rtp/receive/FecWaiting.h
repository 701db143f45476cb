// The stored FEC packets that may rebuild something new.
//
// An FEC packet is kept while more of its group's packets are missing than its code can do without: 1 for
// XOR, the number of parity packets m for Reed-Solomon. Retrying earlier cannot succeed. An arrival must not
// cost a look at every group that waits for its number either, since the sender of forged groups chooses how
// they overlap.
//
// Reed-Solomon groups lack a number of packets, their *slack*, and become ready when it reaches 0. The groups
// over one media base form a tree by their length k, in which each subtree knows its smallest slack. A media
// packet at distance d from a base lowers the slack of all groups there with k > d: the right part of the
// tree, noted at log(n) nodes. There are at most 255 such bases. An FEC packet is counted in each of its
// groups by itself: those begin at most 255 numbers before it, and each was filed for an FEC packet at most
// 255 numbers after its begin, so there are at most 511. It is counted at the group itself, and above it only
// where it makes the smallest slack of a subtree smaller, which is seldom.
//
// XOR groups protect any of 24 packets, and are ready when all but one of these are available. The groups
// that wait over one base form a tree by the packets that they protect. Each subtree knows which packets all
// of its groups protect, and which at least one does. An arrival skips the subtrees in which all groups lack
// two packets, and those in which no group protects the packet that arrived.
//
// A number that leaves again (its timestamp aged out) makes groups wait longer. Media numbers that left are
// counted back when something arrives near them; FEC numbers are not, so a group is then only tried too
// early.
//
// A session pays for the groups that wait: the trees and the lists lie in pages that are allocated when a
// packet is filed, and all pages are freed once nothing was filed for a while.

#ifndef TALRTP_SRC_RECEIVE_FECWAITING_H
#define TALRTP_SRC_RECEIVE_FECWAITING_H

#include <talrtp/TalRtpRecords.h>

#include <memory>

#include "NumberTable.h"
#include "wire/PacketLayout.h"

namespace talrtp {

class CFecGroups;

// Turns the mask of an XOR FEC packet round into the order of `CNumberSet::window`: bit 0 for the first
// packet.
_uint32_t xorMaskWindow(_uint32_t mask);

class CFecWaiting {
public:
    // `media` and `fec` hold the numbers of the available packets. They are read whenever a packet arrives.
    CFecWaiting(CNumberSet media, CNumberSet fec, _uint64_t& steps);
    ~CFecWaiting();
    CFecWaiting(const CFecWaiting&) = delete;
    CFecWaiting& operator=(const CFecWaiting&) = delete;

    // Files an FEC packet just stored, by the packets that it protects. Throws std::bad_alloc, with nothing
    // changed, when memory is short. `mask`: bit 23 - i for packet base + i.
    void addXor(_uint16_t fecSeq, _uint16_t base, _uint32_t mask);
    // The same for parity of `mediaCount` packets, at least one, from `base` on and `fecCount` parity packets
    // from `fecBase` on; both together are at most 256.
    void addRs(_uint16_t fecSeq, _uint16_t base, unsigned int mediaCount, _uint16_t fecBase,
               unsigned int fecCount);
    // Forgets an FEC packet, if it is filed.
    void remove(_uint16_t fecSeq);
    // Forgets all.
    void clear();

    // A packet became available, or is not available any more. For an FEC packet that will be filed, call
    // this first.
    void mediaArrived(_uint16_t seq) {
        if (m_groups != nullptr) {
            countMedia(seq);
        }
    }
    void mediaLeft(_uint16_t seq) {
        if (m_groups != nullptr) {
            countMediaBack(seq);
        }
    }
    void fecArrived(_uint16_t seq) {
        if (m_groups != nullptr) {
            countFec(seq);
        }
    }

    // The FEC numbers that are worth another try.
    bool hasReady() const { return m_readyCount != 0; }
    // Finds the lowest of them that is not below `seq`, without wrap-around; false when there is none.
    bool findReady(_uint16_t seq, _uint16_t& found) const;
    // Lets an FEC packet wait again whose try failed, and with it all that are filed for the same numbers.
    void waitAgain(_uint16_t fecSeq);
    // Fetches the memory that the removal of an FEC packet will touch into the caches.
    void prefetchGroup(_uint16_t fecSeq) const;

private:
    // Out of line: sessions without parity call none of these.
    __attribute__((noinline)) void countMedia(_uint16_t seq);
    __attribute__((noinline)) void countMediaBack(_uint16_t seq);
    __attribute__((noinline)) void countFec(_uint16_t seq);
    CFecGroups& makeGroups();
    void rest();

    const CNumberSet m_media;
    const CNumberSet m_fec;
    _uint64_t& m_steps;
    std::unique_ptr<CFecGroups> m_groups;  // null until a packet is filed, and after a while without one
    unsigned int m_readyCount = 0;
    unsigned int m_idle = 0;  // media packets that arrived or left since nothing is filed
};

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_FECWAITING_H

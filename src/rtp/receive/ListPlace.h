#ifndef TALRTP_SRC_RECEIVE_LISTPLACE_H
#define TALRTP_SRC_RECEIVE_LISTPLACE_H

#include <talrtp/TalRtpDefs.h>

namespace talrtp {

// Returns the place of a new entry for `seq` in a list: before the next higher number. `set` of `slots` holds
// the numbers of the list, and each of their slots its entry.
template <typename List, typename Slots>
typename List::iterator placeFor(_uint16_t seq, List& list, const Slots& slots, unsigned int set) {
    if (list.empty() || list.rbegin()->first < seq) {
        return list.end();
    }
    _uint16_t higher;
    return slots.findUpward(set, seq, higher) ? slots.peek(higher).entry : list.end();
}

}  // namespace talrtp

#endif  // TALRTP_SRC_RECEIVE_LISTPLACE_H

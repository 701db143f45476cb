// The way from a session to the stores of its lists: by a look whether somebody else changed one.

#ifndef TALRTP_SRC_TALRTPSESSIONLISTS_H
#define TALRTP_SRC_TALRTPSESSIONLISTS_H

#include "TalRtpSessionAccess.h"
#include "receive/ReceiveIndex.h"

namespace talrtp {

constexpr _uint16_t kLastNumber = 0xffff;  // the next one is 0

// NOLINTNEXTLINE(misc-no-recursion): the rebuild in a hook asks no hooks
inline CReceiveIndex& CSessionAccess::lists(const CMMRTPSessionBase& session) {
    if (__builtin_expect(session.m_index->isStale(), 0)) {
        refreshLists(session);
    }
    return *session.m_index;
}

inline CReceiveIndex& CSessionAccess::listsIf(const CMMRTPSessionBase& session, bool isTrue) {
    if (__builtin_expect(!isTrue, 0)) {
        rebuildLists(session);
    }
    return *session.m_index;
}

inline CReceiveIndex& CSessionAccess::listsFor(const CMMRTPSessionBase& session, _uint32_t timestamp) {
    const CReceiveIndex& index = lists(session);
    return listsIf(session, !index.isHost || index.records.isTrueAt(timestamp));
}

inline CReceiveIndex& CSessionAccess::listsAround(const CMMRTPSessionBase& session, _uint16_t first,
                                                  unsigned int count) {
    const CReceiveIndex& index = lists(session);
    return listsIf(session, !index.isHost || index.isTrueFrom(first, count));
}

inline CReceiveIndex& CSessionAccess::listsForFec(const CMMRTPSessionBase& session) {
    const CReceiveIndex& index = lists(session);
    return listsIf(session, !index.isHost || index.fec.isTrue());
}

inline CTalRtpPacket* CSessionAccess::mediaPacket(const CMMRTPSessionBase& session, _uint16_t seq) {
    const CReceiveIndex& index = lists(session);
    return listsIf(session, !index.isHost || index.media.isTrue(seq)).media.find(seq);
}

}  // namespace talrtp

#endif  // TALRTP_SRC_TALRTPSESSIONLISTS_H

// The records that a session keeps of its timestamps and units, and the allocator of its lists. Hosts that
// derive from the session classes read them; the order and width of the documented members are binary
// interface.

#ifndef TALRTP_TALRTPRECORDS_H
#define TALRTP_TALRTPRECORDS_H

#include <talrtp/TalRtpDefs.h>
#include <talrtp/TalRtpPacket.h>

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <new>
#include <utility>

namespace talrtp {

// Keeps the nodes of a session's lists for reuse. In the steady state a packet then costs no allocation but
// its own. Each session owns one.
class TALRTP_API CNodePool {
public:
    CNodePool(const CNodePool&) = delete;
    CNodePool& operator=(const CNodePool&) = delete;

    // **Returns owned** room for `size` bytes, aligned for any type. Return it by `give` with the same size.
    // Throws std::bad_alloc when memory is short.
    void* take(std::size_t size);
    // **Takes** back a node that `take` returned for the same `size`. The pool keeps little of the memory
    // that no node uses.
    void give(void* node, std::size_t size);

protected:
    CNodePool() = default;
    ~CNodePool() = default;
};

// The allocator of the session's lists: one node at a time out of a `CNodePool`, or by the global operators
// where there is none. A host meets it only as a template argument of the lists below.
template <typename T>
class CNodeAllocator {
public:
    typedef T value_type;  // as an allocator has to name it

    // Allocates by the global operators.
    CNodeAllocator() : m_pool(nullptr) {}
    // Allocates from `pool`, borrowed, and alive as long as any node of it; by the global operators for null.
    explicit CNodeAllocator(CNodePool* pool) : m_pool(pool) {}
    // Allocates from the same pool as `other`.
    template <typename U>
    CNodeAllocator(const CNodeAllocator<U>& other) : m_pool(other.pool()) {}

    // **Returns owned** room for `count` objects.
    T* allocate(std::size_t count) {
        const std::size_t size = count * sizeof(T);
        return static_cast<T*>(m_pool != nullptr ? m_pool->take(size) : ::operator new(size));
    }
    // **Takes** back the room for `count` objects at `node`.
    void deallocate(T* node, std::size_t count) {
        if (m_pool != nullptr) {
            m_pool->give(node, count * sizeof(T));
        } else {
            ::operator delete(node);
        }
    }
    // **Lends** the pool, or null.
    CNodePool* pool() const { return m_pool; }

private:
    CNodePool* m_pool;
};

// Returns whether either allocator may release the other's nodes: both have the same pool.
template <typename T, typename U>
bool operator==(const CNodeAllocator<T>& a, const CNodeAllocator<U>& b) {
    return a.pool() == b.pool();
}
// Returns whether the pools differ.
template <typename T, typename U>
bool operator!=(const CNodeAllocator<T>& a, const CNodeAllocator<U>& b) {
    return !(a == b);
}

// The record of one received NAL unit: a run of packets from a start packet to an end packet. Made and
// deleted by the global operators.
struct stTalRtpDataInfo {
    _uint16_t startSeq = 0;    // sequence number of the start packet
    _int32_t packetCount = 1;  // packets from the start to the furthest one that follows without a gap
    bool delivered = false;    // handed over to the sink, whole or in part
    bool complete = false;     // the end packet was found; the record changes no more
};

struct stTalRtpTSInfo;
class CAgeOrder;
class CFecStore;
class CMediaStore;
class CTimestampRecords;

// Records by timestamp, in plain numeric order.
typedef std::map<_uint32_t, stTalRtpTSInfo*, std::less<_uint32_t>,
                 CNodeAllocator<std::pair<const _uint32_t, stTalRtpTSInfo*> > >
    CTalRtpTSInfoMap;

// The record of one RTP timestamp: the packets that are stored for it, and their units. Made and deleted by
// the global operators.
struct stTalRtpTSInfo {
    // Records of units by the number of their start packet, in plain numeric order.
    typedef std::map<_uint16_t, stTalRtpDataInfo*, std::less<_uint16_t>,
                     CNodeAllocator<std::pair<const _uint16_t, stTalRtpDataInfo*> > >
        DataInfoMap;
    // Sequence numbers in order of arrival.
    typedef std::list<_uint16_t, CNodeAllocator<_uint16_t> > SeqList;

    // Makes an empty record, of time 0, whose lists allocate by the global operators.
    stTalRtpTSInfo() : stTalRtpTSInfo(0, nullptr) {}
    // Makes an empty record of a timestamp whose first packet arrived at `receivedTime`, in milliseconds.
    // Borrows `pool`, which may be null, for the life of the record.
    stTalRtpTSInfo(_uint64_t receivedTime, CNodePool* pool)
        : createTime(receivedTime),
          updateTime(receivedTime),
          dataInfoMap(std::less<_uint16_t>(), DataInfoMap::allocator_type(pool)),
          mediaSeqList(SeqList::allocator_type(pool)),
          fecSeqList(SeqList::allocator_type(pool)) {}
    // Frees the lists, but not the records in `dataInfoMap`. The session notices.
    TALRTP_API ~stTalRtpTSInfo();
    stTalRtpTSInfo(const stTalRtpTSInfo&) = delete;
    stTalRtpTSInfo& operator=(const stTalRtpTSInfo&) = delete;

    _uint64_t createTime;     // receive time of the first packet, milliseconds
    _uint64_t updateTime;     // receive time of the latest packet, milliseconds
    DataInfoMap dataInfoMap;  // by start sequence number; owns the records
    SeqList mediaSeqList;     // stored media packets of this timestamp, in order of arrival
    SeqList fecSeqList;       // stored FEC packets of this timestamp, in order of arrival

private:
    friend class CAgeOrder;
    friend class CFecStore;
    friend class CMediaStore;
    friend class CTimestampRecords;

    CTimestampRecords* m_keeper = nullptr;  // knows the record; null: nobody does
    _uint32_t m_timestamp = 0;              // under which it is kept
    _uint32_t m_strayFecNotes = 0;          // FEC numbers in `fecSeqList` that no stored packet knows of
    CTalRtpTSInfoMap::iterator m_entry;     // in the session's list
    stTalRtpTSInfo* m_older = nullptr;      // in the order of ageing
    stTalRtpTSInfo* m_newer = nullptr;
};

// Packets by sequence number, in plain numeric order: 0 comes before 65535.
typedef std::map<_uint16_t, CTalRtpPacket*, std::less<_uint16_t>,
                 CNodeAllocator<std::pair<const _uint16_t, CTalRtpPacket*> > >
    CTalRtpPacketMap;

}  // namespace talrtp

#endif  // TALRTP_TALRTPRECORDS_H

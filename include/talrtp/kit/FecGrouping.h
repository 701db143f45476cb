// Chooses the groups of media packets that are protected together.
//
// Groups follow pictures: a group holds packets of one picture only, unless a picture has fewer than
// `kMinGroup` packets. Such a picture waits and is joined with the next, since FEC over one or two packets is
// not much else than sending them twice. A long run is cut into as few groups as the limits allow, of nearly
// equal size.
//
// XOR groups have an odd number of packets. The FEC packet holds the XOR of the payload types (RFC 2733),
// which is the payload type for an odd number of equal ones. Over an even group a packet would be rebuilt
// with the payload type 1.

#ifndef TALRTP_KIT_FECGROUPING_H
#define TALRTP_KIT_FECGROUPING_H

#include <talrtp/kit/Fec.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace talrtp::kit {

// Collects the media packets of pictures into groups.
class FecGrouping {
public:
    // A picture with fewer packets is joined with the next.
    static constexpr std::size_t kMinGroup = 3;

    // `fec`: one for which `check()` returns an empty string.
    explicit FecGrouping(const Fec& fec) : m_fec(fec) {}

    // Returns the most media packets that a group gets, 0 without FEC.
    std::size_t limit() const {
        const bool isEvenXor = m_fec.scheme == FecScheme::kXor && m_fec.maxMedia % 2 == 0;
        return static_cast<std::size_t>(isEvenXor ? m_fec.maxMedia - 1 : m_fec.maxMedia);
    }

    // Tells whether a run of `count` packets is to wait for the next picture before it is cut into groups.
    bool isTooFew(std::size_t count) const {
        return m_fec.scheme != FecScheme::kNone && count < std::min<std::size_t>(kMinGroup, limit());
    }

    // Cuts a run of `count` packets. Returns the sizes of its groups, in order; none without FEC.
    std::vector<std::size_t> cut(std::size_t count) const {
        std::vector<std::size_t> sizes;
        cut(count, sizes);
        return sizes;
    }

    // The same into `sizes`, which is overwritten and keeps its memory.
    void cut(std::size_t count, std::vector<std::size_t>& sizes) const {
        sizes.clear();
        if (m_fec.scheme == FecScheme::kNone || count == 0) {
            return;
        }
        std::size_t groups = (count - 1) / limit() + 1;
        if (m_fec.scheme == FecScheme::kReedSolomon) {
            cutEvenly(count, groups, sizes);
            return;
        }
        // As many odd numbers as make an even or odd sum, as the run is. Each group has one packet and a
        // number of pairs, and the pairs are shared out.
        groups += groups % 2 == count % 2 ? 0 : 1;
        cutEvenly((count - groups) / 2, groups, sizes);
        for (std::size_t& size : sizes) {
            size = 2 * size + 1;
        }
    }

private:
    static void cutEvenly(std::size_t count, std::size_t groups, std::vector<std::size_t>& sizes) {
        for (; groups > 0; --groups) {
            const std::size_t size = (count + groups - 1) / groups;
            sizes.push_back(size);
            count -= size;
        }
    }

    Fec m_fec;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_FECGROUPING_H

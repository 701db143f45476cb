// Groups the NAL units of a stream, in decoding order, into pictures: what is to carry one timestamp.
//
// A picture ends where the next one must begin (ITU-T H.264, 7.4.1.2.3), as far as that shows without
// decoding: once a picture has a slice, it ends before
//   - a delimiter, a parameter set, an SEI or another unit that stands before the first slice of a picture;
//   - a slice of the base layer that begins with macroblock 0;
//   - when it has no base layer, a layer slice with macroblock 0 whose layer is not above the last one.
// A prefix unit (type 14) goes with the slice that follows it.

#ifndef TALRTP_HOST_KIT_PICTUREGROUPER_H
#define TALRTP_HOST_KIT_PICTUREGROUPER_H

#include "kit/NalUnit.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace talrtp::kit {

using Picture = std::vector<NalUnit>;

class CPictureGrouper {
public:
    static constexpr std::size_t kDefaultMaxPictureSize = 64 * 1024 * 1024;

    // `maxPictureSize`: bytes after which a picture is ended anyway, so that a stream without recognisable
    // pictures is not collected whole.
    explicit CPictureGrouper(std::size_t maxPictureSize = kDefaultMaxPictureSize)
        : m_maxPictureSize(maxPictureSize) {}

    // Takes the next unit. Returns true when the units before it are a picture, which is moved into `done`.
    bool push(NalUnit unit, Picture& done) {
        const bool isFirst = startsPicture(unit) || m_size > m_maxPictureSize;
        if (nalType(unit) == kNalPrefix && m_hasSlice && !isFirst) {
            m_prefixes.push_back(std::move(unit));
            return false;
        }
        if (isFirst) {
            endPicture(done);
        }
        append(std::move(unit));
        return isFirst;
    }

    // Ends the stream. Returns true when units were left, which are moved into `done`.
    bool finish(Picture& done) {
        appendPrefixes();
        if (m_current.empty()) {
            return false;
        }
        endPicture(done);
        return true;
    }

private:
    bool startsPicture(const NalUnit& unit) const {
        const int type = nalType(unit);
        if (!m_hasSlice) {
            return false;
        }
        if (isBaseSlice(type)) {
            return startsAtFirstMacroblock(unit);
        }
        if (isLayerSlice(type)) {
            return !m_hasBaseSlice && startsAtFirstMacroblock(unit) && layerOf(unit) <= m_lastLayer;
        }
        return standsBeforeSlices(type);
    }

    // Types 6 to 9 and 15 to 18.
    static bool standsBeforeSlices(int type) {
        const bool isParameterSetOrSei = type >= kNalSei && type <= kNalDelimiter;
        const bool isReservedDelimiter = type >= kNalSubsetSps && type <= kNalLastReservedDelimiter;
        return isParameterSetOrSei || isReservedDelimiter;
    }

    // A number that grows with the layer: dependency_id and quality_id (ITU-T H.264, G.7.3.1.1).
    static int layerOf(const NalUnit& slice) {
        constexpr std::size_t kLayerOffset = 2;
        constexpr std::uint8_t kLayerMask = 0x7f;
        return slice.size() > kLayerOffset ? slice[kLayerOffset] & kLayerMask : 0;
    }

    void append(NalUnit unit) {
        appendPrefixes();
        const int type = nalType(unit);
        if (isLayerSlice(type)) {
            m_lastLayer = layerOf(unit);
        }
        m_hasBaseSlice = m_hasBaseSlice || isBaseSlice(type);
        m_hasSlice = m_hasSlice || isBaseSlice(type) || isLayerSlice(type);
        m_size += unit.size();
        m_current.push_back(std::move(unit));
    }

    void appendPrefixes() {
        for (NalUnit& prefix : m_prefixes) {
            m_size += prefix.size();
            m_current.push_back(std::move(prefix));
        }
        m_prefixes.clear();
    }

    void endPicture(Picture& done) {
        done = std::move(m_current);
        m_current.clear();
        m_hasSlice = false;
        m_hasBaseSlice = false;
        m_size = 0;
    }

    std::size_t m_maxPictureSize;
    Picture m_current;
    std::vector<NalUnit> m_prefixes;  // behind a slice, waiting for the slice that they belong to
    std::size_t m_size = 0;           // bytes in m_current
    bool m_hasSlice = false;
    bool m_hasBaseSlice = false;
    int m_lastLayer = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_PICTUREGROUPER_H

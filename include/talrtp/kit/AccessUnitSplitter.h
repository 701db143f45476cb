// Cuts a byte stream of NAL units, which arrives in chunks of any size, into access units: one picture each,
// with what belongs to it, which is what carries one RTP timestamp.
//
//   kit::AccessUnitSplitter splitter([&](const kit::AccessUnit& unit) { sender.sendPicture(ts, unit.units());
//   }); splitter.push(chunk);   // for each chunk splitter.finish();
//
// An access unit ends where the next one must begin (ITU-T H.264, 7.4.1.2.3), as far as that shows without
// decoding. Once it has a slice, it ends before
//   - a delimiter, a parameter set, an SEI or another unit that stands before the first slice of a picture;
//   - a slice of the base layer that begins with macroblock 0;
//   - when it has no base layer, a layer slice with macroblock 0 whose layer is not above the last one.
// A prefix unit (type 14) belongs to the slice that follows it.
//
// The first bytes of the next unit are enough, so that a live stream is not held up until that unit is whole.

#ifndef TALRTP_KIT_ACCESSUNITSPLITTER_H
#define TALRTP_KIT_ACCESSUNITSPLITTER_H

#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/Failure.h>
#include <talrtp/kit/NalUnit.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace talrtp::kit {

// One access unit, **lent** for the call.
class AccessUnit {
public:
    // The NAL units in decoding order, without start codes, none of them empty.
    const std::vector<BytesView>& units() const { return m_units; }

    // The bytes of the stream from the first unit's start code to the last unit's end.
    BytesView annexB() const { return m_bytes; }

private:
    friend class AccessUnitSplitter;

    std::vector<BytesView> m_units;
    BytesView m_bytes;
};

// Cuts a byte stream into access units and calls a sink with each.
class AccessUnitSplitter {
public:
    // Takes each access unit, within the `push` or `finish` that ended it. It must not call the splitter.
    using Take = std::function<void(const AccessUnit&)>;

    // The default of the largest unit, in bytes.
    static constexpr std::size_t kDefaultMaxUnit = 32 * 1024 * 1024;
    // The default of the largest access unit, in bytes.
    static constexpr std::size_t kDefaultMaxAccessUnit = 64 * 1024 * 1024;

    // `take`: called with each access unit. `maxUnit`: bytes of the longest unit that is taken; longer ones
    // are left out whole and counted. `maxAccessUnit`: bytes after which an access unit ends with the unit
    // that is being read, so that a stream without recognizable pictures is not collected whole. Both
    // together bound the memory.
    explicit AccessUnitSplitter(Take take, std::size_t maxUnit = kDefaultMaxUnit,
                                std::size_t maxAccessUnit = kDefaultMaxAccessUnit)
        : m_take(std::move(take)), m_maxUnit(maxUnit), m_maxAccessUnit(maxAccessUnit) {
        refuseUnlessEmpty(m_take ? "" : "an access unit splitter needs a function that takes the units");
    }

    // Takes the next bytes of the stream, any number. **Borrows** them for the call.
    void push(BytesView chunk) {
        while (!chunk.empty()) {
            const BytesView piece = chunk.subview(0, kPiece);
            const std::size_t zeros = piece.size() - trimZeros(piece).size();
            m_zeros = zeros == piece.size() ? m_zeros + zeros : zeros;
            m_bytes.insert(m_bytes.end(), piece.begin(), piece.end());
            scan();
            chunk = chunk.subview(piece.size());
        }
    }

    // Ends the stream: passes the last access unit on. The splitter then begins anew with the next bytes.
    void finish() {
        if (m_isInUnit) {
            endUnit(m_bytes.size());
        }
        passOn(0);
        m_bytes.clear();
        m_zeros = 0;
        m_scanned = 0;
        m_dropped = 0;
        m_isInUnit = false;
    }

    // Tells whether a start code was found so far; without one the bytes are no such stream.
    bool hasStartCode() const { return m_hasStartCode; }

    // Returns how many units were longer than allowed, and left out.
    std::uint64_t oversizeUnits() const { return m_oversizeUnits; }

    // Returns how many access units were ended because they grew too large.
    std::uint64_t cutAccessUnits() const { return m_cutAccessUnits; }

private:
    // Chunks are taken in pieces, so that the memory does not depend on their size.
    static constexpr std::size_t kPiece = 64 * 1024;
    static constexpr std::size_t kStartCodeZeros = 3;  // most zeros of a start code that are kept

    static constexpr std::size_t kMaxUnits = 65536;  // of one access unit

    // A unit: positions in m_bytes.
    struct Place {
        std::size_t code;  // of its start code
        std::size_t begin;
        std::size_t end;
    };

    void scan() {
        for (;;) {
            const std::size_t last = findStartCode(m_bytes, m_scanned);
            if (last == m_bytes.size()) {
                break;
            }
            m_hasStartCode = true;
            beginUnit(last);
        }
        m_scanned = m_bytes.size();
        if (m_isInUnit) {
            lookAhead();
            limitUnit();
        } else {
            dropFrom(m_dropped);
        }
        compact();
    }

    // `last`: the position of the 01 of a start code.
    void beginUnit(std::size_t last) {
        std::size_t code = last - 2;
        if (m_isInUnit) {
            endUnit(code);
        }
        const std::size_t least = m_isInUnit ? m_unit.begin : m_dropped;
        code -= code > least && m_bytes[code - 1] == 0 ? 1 : 0;
        if (!m_isInUnit) {
            m_bytes.erase(positionOf(m_dropped), positionOf(code));
            last -= code - m_dropped;
            code = m_dropped;
        }
        if (m_size > m_maxAccessUnit || m_units.size() >= kMaxUnits) {
            ++m_cutAccessUnits;
            passOn(0);
        }
        m_unit = {code, last + 1, last + 1};
        m_isInUnit = true;
        m_isLookedAt = false;
        m_scanned = last + 1;
    }

    // `end`: where the open unit ends, but for zeros that belong to the next start code.
    void endUnit(std::size_t end) {
        const BytesView unit = trimZeros(BytesView(m_bytes).subview(m_unit.begin, end - m_unit.begin));
        if (unit.empty()) {
            m_size += m_units.empty() ? 0 : end - m_unit.code;  // its start code stays among the bytes
            return;
        }
        m_isLookedAt = m_isLookedAt || decide(unit);
        if (unit.size() > m_maxUnit) {
            ++m_oversizeUnits;
            noteSlice(unit);
            m_isInUnit = false;
            // Without the zeros before, which would read as part of the next start code.
            m_dropped = trimZeros(BytesView(m_bytes).subview(0, m_unit.code)).size();
            return;
        }
        append(unit);
    }

    void append(BytesView unit) {
        const bool isPending = nalType(unit) == kNalPrefix && m_hasSlice;
        m_pendingPrefixes = isPending ? m_pendingPrefixes + 1 : 0;
        noteSlice(unit);
        m_size += unit.size();
        m_unit.end = m_unit.begin + unit.size();
        m_units.push_back(m_unit);
    }

    void noteSlice(BytesView unit) {
        const int type = nalType(unit);
        if (isLayerSlice(type)) {
            m_lastLayer = layerOf(unit);
        }
        m_hasBaseSlice = m_hasBaseSlice || isBaseSlice(type);
        m_hasSlice = m_hasSlice || isBaseSlice(type) || isLayerSlice(type);
    }

    // Decides, as soon as enough of the open unit is there, whether it begins an access unit. Zeros that may
    // belong to the next start code change nothing: a slice whose first bit is not set begins none.
    void lookAhead() {
        constexpr std::size_t kLayerHead = 5;  // header bytes and the first one of the slice header
        constexpr std::size_t kHead = 2;
        const BytesView head = BytesView(m_bytes).subview(m_unit.begin, kLayerHead);
        const int type = nalType(head);
        const std::size_t needed = isLayerSlice(type) ? kLayerHead : isBaseSlice(type) ? kHead : 1;
        m_isLookedAt = m_isLookedAt || (head.size() >= needed && decide(head));
    }

    // Passes the access unit on if `unit` begins the next one. Returns true.
    bool decide(BytesView unit) {
        if (startsAccessUnit(unit)) {
            passOn(m_pendingPrefixes);
        }
        return true;
    }

    bool startsAccessUnit(BytesView unit) const {
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
        return (type >= kNalSei && type <= kNalDelimiter) ||
               (type >= kNalSubsetSps && type <= kNalLastReservedDelimiter);
    }

    // Passes the units of the access unit on, all but the last `kept`, with which the next one begins.
    void passOn(std::size_t kept) {
        const std::size_t count = m_units.size() - kept;
        const BytesView bytes = m_bytes;
        m_access.m_units.clear();
        for (std::size_t i = 0; i < count; ++i) {
            m_access.m_units.push_back(bytes.subview(m_units[i].begin, m_units[i].end - m_units[i].begin));
        }
        m_access.m_bytes = BytesView();
        if (count > 0) {
            m_access.m_bytes = bytes.subview(m_units[0].code, m_units[count - 1].end - m_units[0].code);
        }
        m_units.erase(m_units.begin(), m_units.begin() + static_cast<std::ptrdiff_t>(count));
        m_pendingPrefixes = 0;
        m_hasSlice = false;
        m_hasBaseSlice = false;
        m_size = 0;
        for (const Place& unit : m_units) {
            m_size += unit.end - unit.begin;
        }
        if (count > 0) {
            m_take(m_access);
        }
    }

    // Drops the open unit once it is too long, and the zeros after it that no unit can hold.
    void limitUnit() {
        const std::size_t size = m_bytes.size() - m_unit.begin;
        if (size > m_maxUnit + m_zeros) {
            endUnit(m_bytes.size());
            dropFrom(m_dropped);
        } else if (size > m_maxUnit + kStartCodeZeros) {
            m_zeros -= size - (m_maxUnit + kStartCodeZeros);
            m_bytes.resize(m_unit.begin + m_maxUnit + kStartCodeZeros);
            m_scanned = m_bytes.size();
        }
    }

    // Forgets the bytes from `from` on, which belong to no unit, but zeros that may begin a start code.
    void dropFrom(std::size_t from) {
        m_zeros = std::min<std::size_t>(m_zeros, kStartCodeZeros);
        m_bytes.resize(from);
        m_bytes.insert(m_bytes.end(), m_zeros, 0);
        m_scanned = m_bytes.size();
        m_dropped = from;
    }

    // Forgets the bytes before the access unit when they are more than the others, which then move forward.
    void compact() {
        const std::size_t unused = !m_units.empty() ? m_units.front().code
                                   : m_isInUnit     ? m_unit.code
                                                    : m_dropped;
        if (unused == 0 || unused < m_bytes.size() - unused) {
            return;
        }
        m_bytes.erase(m_bytes.begin(), positionOf(unused));
        for (Place& unit : m_units) {
            unit = {unit.code - unused, unit.begin - unused, unit.end - unused};
        }
        if (m_isInUnit) {
            m_unit = {m_unit.code - unused, m_unit.begin - unused, m_unit.end - unused};
        } else {
            m_dropped -= unused;
        }
        m_scanned -= unused;
    }

    std::vector<std::uint8_t>::iterator positionOf(std::size_t position) {
        return m_bytes.begin() + static_cast<std::ptrdiff_t>(position);
    }

    Take m_take;
    std::size_t m_maxUnit;
    std::size_t m_maxAccessUnit;

    std::vector<std::uint8_t> m_bytes;  // the stream from the access unit's first start code on
    std::size_t m_zeros = 0;            // at the end of them
    std::size_t m_scanned = 0;          // no start code ends before
    std::size_t m_dropped = 0;          // outside of a unit: the bytes from here on belong to none
    bool m_isInUnit = false;
    Place m_unit = {0, 0, 0};   // the open unit
    bool m_isLookedAt = false;  // it is decided whether the open unit begins an access unit

    // The units of the access unit but the open one.
    std::vector<Place> m_units;
    std::size_t m_pendingPrefixes = 0;  // last ones of m_units, for the slice that follows
    std::size_t m_size = 0;             // their bytes, and those that were left out between them
    bool m_hasSlice = false;
    bool m_hasBaseSlice = false;
    int m_lastLayer = 0;

    AccessUnit m_access;
    bool m_hasStartCode = false;
    std::uint64_t m_oversizeUnits = 0;
    std::uint64_t m_cutAccessUnits = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_ACCESSUNITSPLITTER_H

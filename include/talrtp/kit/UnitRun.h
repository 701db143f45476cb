// NAL units one after the other, as a byte stream, in memory that is used again.

#ifndef TALRTP_KIT_UNITRUN_H
#define TALRTP_KIT_UNITRUN_H

#include <talrtp/kit/AnnexB.h>
#include <talrtp/kit/BytesView.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::kit {

// Each unit has the start code of four bytes.
constexpr std::size_t kStartCodeSize = sizeof(kStartCode);

// A byte stream with the places of its units.
class UnitRun {
public:
    // Copies a unit that begins with its start code; `isWhole` is kept with it. One without a byte of its own
    // is ignored.
    void append(BytesView unit, bool isWhole) {
        if (unit.size() > kStartCodeSize) {
            m_bytes.insert(m_bytes.end(), unit.begin(), unit.end());
            m_units.push_back({unit.size() - kStartCodeSize, isWhole});
        }
    }

    // The same for a unit without start code.
    void appendBare(BytesView unit) {
        const BytesView startCode(kStartCode);
        m_bytes.insert(m_bytes.end(), startCode.begin(), startCode.end());
        m_bytes.insert(m_bytes.end(), unit.begin(), unit.end());
        m_units.push_back({unit.size(), true});
    }

    // Forgets the units and keeps the memory.
    void clear() {
        m_bytes.clear();
        m_units.clear();
    }

    // Returns the number of units.
    std::size_t count() const { return m_units.size(); }
    // All units, each after its start code.
    BytesView annexB() const { return m_bytes; }
    // Returns the bytes for which there is memory.
    std::size_t capacity() const { return m_bytes.capacity(); }

    // Size of unit `i`, without start code, and whether it is whole.
    std::size_t sizeOf(std::size_t i) const { return m_units[i].size; }
    // Tells whether unit `i` arrived whole.
    bool isWhole(std::size_t i) const { return m_units[i].isWhole; }

private:
    struct Unit {
        std::size_t size;
        bool isWhole;
    };

    std::vector<std::uint8_t> m_bytes;
    std::vector<Unit> m_units;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_UNITRUN_H

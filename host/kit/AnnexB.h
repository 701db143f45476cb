// Byte streams of NAL units (ITU-T H.264, Annex B): a reader that needs no more memory than the longest unit,
// a writer, and a walk over the units of a byte string.
//
// A unit begins behind a start code 00 00 01. Zero bytes before a start code and at the end of the stream
// belong to no unit, which makes the four-byte start code 00 00 00 01 no special case.

#ifndef TALRTP_HOST_KIT_ANNEXB_H
#define TALRTP_HOST_KIT_ANNEXB_H

#include "kit/NalUnit.h"

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

namespace talrtp::kit {

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

// Finds units in bytes that come in pieces of any size.
class CAnnexBSplitter {
public:
    // `maxUnitSize`: bytes. A longer unit is cut off there and reported by `hasOversize`.
    explicit CAnnexBSplitter(std::size_t maxUnitSize) : m_maxUnitSize(maxUnitSize) {}

    // Takes the next byte. Returns true when it ends a unit, which `unit()` then lends until the next call.
    bool push(std::uint8_t byte) {
        if (m_isFinished) {
            m_unit.clear();
            m_isFinished = false;
        }
        if (byte == 0) {
            ++m_zeros;
            return false;
        }
        if (byte == 1 && m_zeros >= 2) {
            return pushStartCode();
        }
        if (m_hasStartCode) {
            appendWithZeros(byte);
        }
        m_zeros = 0;
        return false;
    }

    // Ends the stream. Returns true when that ends a unit.
    bool finish() {
        if (m_isFinished) {
            m_unit.clear();
        }
        m_isFinished = true;
        return !m_unit.empty();
    }

    NalUnit& unit() { return m_unit; }
    bool hasStartCode() const { return m_hasStartCode; }
    bool hasOversize() const { return m_hasOversize; }

private:
    bool pushStartCode() {
        m_hasStartCode = true;
        m_zeros = 0;
        m_isFinished = !m_unit.empty();
        return m_isFinished;
    }

    // The zeros before this byte turned out to stand inside the unit.
    void appendWithZeros(std::uint8_t byte) {
        if (m_zeros >= m_maxUnitSize || m_unit.size() >= m_maxUnitSize - m_zeros) {
            m_hasOversize = true;
            return;
        }
        m_unit.insert(m_unit.end(), m_zeros, 0);
        m_unit.push_back(byte);
    }

    std::size_t m_maxUnitSize;
    std::size_t m_zeros = 0;  // zero bytes seen since the last other byte
    bool m_hasStartCode = false;
    bool m_hasOversize = false;
    bool m_isFinished = false;  // m_unit was reported and is dropped by the next call
    NalUnit m_unit;
};

// Reads a stream unit by unit.
class CAnnexBReader {
public:
    static constexpr std::size_t kDefaultMaxUnitSize = 32 * 1024 * 1024;

    // Borrows `input` for the life of the reader.
    explicit CAnnexBReader(std::istream& input, std::size_t maxUnitSize = kDefaultMaxUnitSize)
        : m_input(input), m_splitter(maxUnitSize), m_chunk(kChunkSize) {}

    // Moves the next unit, never an empty one, into `unit`. Returns false, with `unit` unchanged, at the end.
    bool read(NalUnit& unit) {
        while (fill()) {
            while (m_next < m_end) {
                if (m_splitter.push(m_chunk[m_next++])) {
                    unit = std::move(m_splitter.unit());
                    return true;
                }
            }
        }
        if (m_isAtEnd) {
            return false;
        }
        m_isAtEnd = true;
        if (!m_splitter.finish()) {
            return false;
        }
        unit = std::move(m_splitter.unit());
        return true;
    }

    // Bytes taken from the stream so far.
    std::uint64_t position() const { return m_position; }
    bool hasStartCode() const { return m_splitter.hasStartCode(); }
    // A unit was longer than the reader takes, and what was read of it is not whole.
    bool hasOversize() const { return m_splitter.hasOversize(); }

private:
    static constexpr std::size_t kChunkSize = 64 * 1024;

    bool fill() {
        if (m_next < m_end) {
            return true;
        }
        m_input.read(reinterpret_cast<char*>(m_chunk.data()), static_cast<std::streamsize>(m_chunk.size()));
        m_next = 0;
        m_end = static_cast<std::size_t>(m_input.gcount());
        m_position += m_end;
        return m_end > 0;
    }

    std::istream& m_input;
    CAnnexBSplitter m_splitter;
    std::vector<std::uint8_t> m_chunk;
    std::size_t m_next = 0;
    std::size_t m_end = 0;
    std::uint64_t m_position = 0;
    bool m_isAtEnd = false;
};

// Writes units, each behind a four-byte start code.
class CAnnexBWriter {
public:
    // Borrows `output` for the life of the writer. Failures show in the stream's state.
    explicit CAnnexBWriter(std::ostream& output) : m_output(output) {}

    // `unit`: `size` bytes without start code; borrowed.
    void write(const std::uint8_t* unit, std::size_t size) {
        m_output.write(reinterpret_cast<const char*>(kStartCode), sizeof kStartCode);
        m_output.write(reinterpret_cast<const char*>(unit), static_cast<std::streamsize>(size));
    }

    void write(const NalUnit& unit) { write(unit.data(), unit.size()); }

private:
    std::ostream& m_output;
};

// Returns the units of a byte string, such as the payload of a hand-over that holds several.
inline std::vector<NalUnit> splitAnnexB(const std::uint8_t* bytes, std::size_t size) {
    std::vector<NalUnit> units;
    CAnnexBSplitter splitter(size + 1);
    for (std::size_t i = 0; i < size; ++i) {
        if (splitter.push(bytes[i])) {
            units.push_back(splitter.unit());
        }
    }
    if (splitter.finish()) {
        units.push_back(splitter.unit());
    }
    return units;
}

}  // namespace talrtp::kit

#endif  // TALRTP_HOST_KIT_ANNEXB_H

// One picture on its way to the decoder: the NAL units of an access unit, in decoding order.

#ifndef TALRTP_KIT_PICTURE_H
#define TALRTP_KIT_PICTURE_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/UnitRun.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talrtp::kit {

// Facts about a picture besides its units.
struct PictureFacts {
    std::uint32_t timestamp = 0;      // RTP timestamp
    std::uint32_t ssrc = 0;           // synchronization source
    std::uint64_t firstSequence = 0;  // counted on across the wrap-around
    std::uint64_t lastSequence = 0;   // likewise
    std::size_t missingPackets = 0;   // never arrived, not rebuilt
    std::size_t rebuiltPackets = 0;   // by FEC
    bool isComplete = false;          // as `Picture::isComplete` defines it
};

// A received picture. A `Receiver` **lends** it, with every view in it, for the duration of the call.
class Picture {
public:
    // RTP timestamp. It is the time of presentation: with B pictures it goes back and forth.
    // Returns the RTP timestamp of the packets.
    std::uint32_t timestamp() const { return m_facts.timestamp; }
    // Returns the synchronization source of the packets.
    std::uint32_t ssrc() const { return m_facts.ssrc; }

    // The sequence numbers from which to which the picture extends, counted on across the wrap-around. Their
    // low 16 bits are the numbers on the wire.
    std::uint64_t firstSequence() const { return m_facts.firstSequence; }
    // Returns the number of the last packet, likewise.
    std::uint64_t lastSequence() const { return m_facts.lastSequence; }

    // The units, without start codes. At least one. Parameter sets of the receiver's options come first when
    // they are played with this picture.
    const std::vector<BytesView>& units() const { return m_units; }

    // Tells whether unit `i`, below the number of units, is there from its first to its last byte. One that
    // is not was cut at its end.
    bool isUnitWhole(std::size_t i) const { return m_run.isWhole(i); }

    // All units, each after 00 00 00 01: an access unit as a decoder takes it.
    BytesView annexB() const { return m_run.annexB(); }

    // Tells whether every packet of the picture arrived or was rebuilt, by the sequence numbers from the last
    // picture's end to its own, and every unit is whole. The first picture of a stream has nothing before it
    // to count from: it is complete only when it begins as a picture begins.
    bool isComplete() const { return m_facts.isComplete; }
    // Sequence numbers of the picture that neither arrived nor were rebuilt.
    // Returns the number of packets that never arrived and were not rebuilt.
    std::size_t missingPackets() const { return m_facts.missingPackets; }
    // Returns the number of packets that FEC rebuilt.
    std::size_t rebuiltPackets() const { return m_facts.rebuiltPackets; }

private:
    friend class PictureMaker;

    PictureFacts m_facts;
    UnitRun m_run;
    std::vector<BytesView> m_units;
};

// Fills pictures. For the kit's own use.
class PictureMaker {
public:
    // Lends the facts of a picture.
    static PictureFacts& facts(Picture& picture) { return picture.m_facts; }
    // Lends the units of a picture.
    static UnitRun& run(Picture& picture) { return picture.m_run; }

    // Puts `parameterSets` before the units, unless there is a sequence parameter set among these.
    static void prepend(Picture& picture, const std::vector<std::vector<std::uint8_t>>& parameterSets) {
        close(picture);
        for (const BytesView& unit : picture.m_units) {
            if (nalType(unit) == kNalSps) {
                return;
            }
        }
        UnitRun run;
        for (const std::vector<std::uint8_t>& unit : parameterSets) {
            run.appendBare(unit);
        }
        std::size_t position = 0;
        for (std::size_t i = 0; i < picture.m_run.count(); ++i) {
            const std::size_t size = kStartCodeSize + picture.m_run.sizeOf(i);
            run.append(picture.m_run.annexB().subview(position, size), picture.m_run.isWhole(i));
            position += size;
        }
        std::swap(picture.m_run, run);
    }

    // Makes the views, once the units are there.
    static void close(Picture& picture) {
        picture.m_units.clear();
        std::size_t position = 0;
        for (std::size_t i = 0; i < picture.m_run.count(); ++i) {
            const std::size_t size = picture.m_run.sizeOf(i);
            picture.m_units.push_back(picture.m_run.annexB().subview(position + kStartCodeSize, size));
            position += kStartCodeSize + size;
        }
    }
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PICTURE_H

// Decides which picture is played when. It knows sequence numbers, timestamps, markers and units; it knows
// no session, no socket and no clock.
//
//   numbers    100   101   102   103   104   105   106   107
//   timestamp    T     T     T     T     U     U     U     V
//              SPS   PPS   slice  ...M  ...    ?    ...M  ...
//              '------ picture ------'  '- picture with -'
//                                        a gap at 105
//
// A picture is the run of sequence numbers from the end of the last one to the first marker, or to a change
// of the timestamp: that is decoding order. Timestamps are those of presentation and say nothing about order
// (RFC 6184, 5.1).
//
//   queue.note(head, now);        // for each media packet that arrived, before the session gets it
//   queue.addUnit(...);           // for each hand-over
//   queue.noteRebuilt(head, now); // for each packet that FEC rebuilt
//   while (queue.findDue(now, due)) {
//       if (due.needsForce) { session->ForceHandover(due.timestamp); }   // calls queue.addUnit(...)
//       if (queue.take(picture)) { play(picture); }
//   }
//
// A picture without a gap whose predecessors were played is due at once. A gap makes its picture, and those
// after it, wait; each gap waits from its own first sign. The work for a packet does not grow with history,
// and the memory is bounded in numbers and in bytes.

#ifndef TALRTP_KIT_PLAYOUTQUEUE_H
#define TALRTP_KIT_PLAYOUTQUEUE_H

#include <talrtp/kit/BytesView.h>
#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/PacketHead.h>
#include <talrtp/kit/Picture.h>
#include <talrtp/kit/Time.h>
#include <talrtp/kit/UnitRun.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace talrtp::kit {

// Keeps the facts of the packets that wait and decides which picture is due.
class PlayoutQueue {
public:
    // RFC 3550, A.1: a number up to this far ahead is a gap; beyond it the sender may have begun anew.
    static constexpr std::uint64_t kMaxDropout = 3000;
    // RFC 3550, A.1: a number up to this far below the next picture's is late.
    static constexpr std::uint64_t kMaxMisorder = 100;
    // Most sequence numbers that wait. A session asked for 16384 numbers still has them all, since it keeps
    // more (see `SessionClock`).
    static constexpr std::uint64_t kMaxWindow = 16384;
    // Most bytes of units that wait. A larger picture is played in parts.
    static constexpr std::size_t kMaxWaitingBytes = std::size_t{32} << 20;
    // A picture with a gap is still arriving when its last packet is not older than this.
    static constexpr std::chrono::milliseconds kStillArriving{50};
    // The end of a picture shows by the next one only, where markers do not tell it. After this silence the
    // sender is taken to pause.
    static constexpr std::chrono::milliseconds kSilence{500};

    // Where a packet with this number goes.
    enum class Verdict {
        kFresh,    // a number that was missing or new: for the session
        kLate,     // its picture was played: for the session, since it may help FEC
        kDoubled,  // the number is there already
        kStray,    // a fragment that belongs to no unit
        kFarOff,   // neither near the numbers expected nor a known late one
        kFull,     // take the first picture, due or not, and note the packet again
    };

    // The first picture in decoding order, when its time has come.
    struct Due {
        std::uint32_t timestamp = 0;  // RTP timestamp
        bool needsForce = false;      // units of it may still be in the session
    };

    // `wait`: how long a gap holds up play. `hasParameterSets`: a stream may begin with an IDR picture.
    // `firstSequence`: where the first picture begins, if that is known.
    PlayoutQueue(std::chrono::milliseconds wait, bool hasParameterSets,
                 std::optional<std::uint16_t> firstSequence = std::nullopt)
        : m_wait(wait), m_hasParameterSets(hasParameterSets), m_slots(kFirstSlots) {
        m_missing.reserve(kFirstSlots + 1);  // as long as the list gets unless thousands are missing
        if (firstSequence) {
            begin(*firstSequence, TimePoint());
            m_isStarted = true;
        }
    }

    // --- Packets ---

    // Begins with that number unless numbers are known: FEC may rebuild packets before the first one arrives.
    void beginAt(std::uint16_t sequence, TimePoint now) {
        if (!m_hasNumbers) {
            begin(sequence, now);
        }
    }

    // Notes a media packet that arrived at `now`, unless the verdict is kStray, kFarOff or kFull. Times never
    // step back from call to call.
    Verdict note(const PacketHead& head, TimePoint now) {
        beginAt(head.sequence, now);
        const std::uint64_t number = extend(head.sequence);
        const Verdict verdict = judge(head, number);
        if (verdict == Verdict::kFresh) {
            m_lastArrival = now;
            reachFor(number, now);
            fill(number, head, State::kArrived);
        } else if (verdict == Verdict::kLate && isKnown(number)) {
            describe(at(number), head, State::kArrived);  // so that it is known when it is repeated
        }
        return verdict;
    }

    // Notes a media packet that was rebuilt. Returns false, and does nothing, when its number is there or its
    // picture was played.
    bool noteRebuilt(const PacketHead& head, TimePoint now) {
        const std::uint64_t number = extend(head.sequence);
        const bool isTooFar = number > m_highest + kMaxDropout || number >= m_next + kMaxWindow;
        if (!m_hasNumbers || number < m_next || isTooFar || (number <= m_highest && isPresent(number))) {
            return false;
        }
        m_lastArrival = now;
        reach(number, now);
        fill(number, head, State::kRebuilt);
        return true;
    }

    // Calls `visit(sequence)` for each number that is missing in the window, in the order in which they were
    // missed, until it returns false. The visit may call `noteRebuilt`.
    template <typename Visit>
    void visitMissing(Visit visit) {
        compactMissing();
        // By index: `noteRebuilt` can add to the list.
        for (std::size_t i = 0; i < m_missing.size(); ++i) {  // NOLINT(modernize-loop-convert)
            if (isMissing(m_missing[i]) && !visit(static_cast<std::uint16_t>(m_missing[i]))) {
                return;
            }
        }
    }

    // The sequence number after the highest known.
    std::uint16_t sequenceAfterHighest() const { return static_cast<std::uint16_t>(m_highest + 1); }

    // --- Units ---

    // Takes unit `index` of the packet with that sequence number, with its start code, in the order in which
    // the session hands over; `index` is above 0 in aggregation packets only. `isWhole`: it is not cut. `now`
    // counts for numbers that the unit shows to be missing. Returns false, and drops it, when its picture was
    // played or the unit is there already.
    bool addUnit(std::uint16_t sequence, std::size_t index, BytesView unit, bool isWhole, TimePoint now) {
        beginAt(sequence, now);
        const std::uint64_t number = extend(sequence);
        if (number < m_next || number > m_highest + kMaxDropout || number >= m_next + kMaxWindow) {
            return false;
        }
        reach(number, now);  // a rebuilt packet is handed over before `noteRebuilt` tells of it
        Slot& slot = at(number);
        if (index == 0 && slot.unitsTaken > 0 && slot.isCut && isWhole) {
            releaseUnits(slot);  // cut by a picture of the same timestamp, whole now
        }
        if (index != slot.unitsTaken) {
            return false;
        }
        ++slot.unitsTaken;
        slot.isCut = slot.isCut || !isWhole;
        UnitRun& run = isNextInRow(number, slot, isWhole) ? joinRow(number, slot) : runOf(slot);
        run.append(unit, isWhole);
        m_waitingBytes += unit.size();
        return true;
    }

    // --- Pictures ---

    // Finds the first picture in decoding order if it is due at `now`.
    bool findDue(TimePoint now, Due& due) {
        const std::optional<TimePoint> time = dueTime();
        if (!time || *time > now) {
            return false;
        }
        describeFirst(due);
        return true;
    }

    // Finds the first picture in decoding order, due or not.
    bool findFirst(Due& due) {
        if (isEmpty()) {
            return false;
        }
        scan();
        describeFirst(due);
        return true;
    }

    // The time at which the first picture is due unless it is complete before; none when nothing waits for
    // a time.
    std::optional<TimePoint> dueTime() {
        if (isEmpty()) {
            return std::nullopt;
        }
        scan();
        if (m_isEndReached) {
            return isStartInDoubt() ? m_firstArrival + m_wait : TimePoint::min();
        }
        if (m_scanned > m_highest) {
            return silenceEnd();
        }
        const TimePoint given = at(m_scanned).noticed + m_wait;
        return isEndInSight() ? given : std::max(given, m_lastArrival + kStillArriving);
    }

    // Fills `picture` with the picture found last and goes on to the next. Returns false when there is
    // nothing to play of it; the facts are filled all the same.
    bool take(Picture& picture) {
        const bool isComplete = m_isExtentSound || isSound(m_extent);  // a forced hand-over may bring units
        PictureFacts& facts = PictureMaker::facts(picture);
        facts.timestamp = m_extent.timestamp;
        facts.firstSequence = m_next;
        facts.lastSequence = m_extent.last;
        facts.missingPackets = m_extent.missing;
        facts.rebuiltPackets = m_extent.rebuilt;
        facts.isComplete = isComplete && isStartSure(m_extent);
        gather(m_extent, PictureMaker::run(picture));
        moveTo(m_extent);
        return PictureMaker::run(picture).count() > 0;
    }

    // Tells whether no packet waits.
    bool isEmpty() const { return !m_hasNumbers || m_next > m_highest; }
    // Returns the payload bytes that wait.
    std::size_t waitingBytes() const { return m_waitingBytes; }

private:
    enum class State : std::uint8_t { kUnknown, kMissing, kArrived, kRebuilt };

    static constexpr std::size_t kNoRun = static_cast<std::size_t>(-1);
    static constexpr std::size_t kFirstSlots = 1024;
    // Extended numbers begin above this, so that numbers before the first one have room.
    static constexpr std::uint64_t kFirstCycle = 65536;

    // One sequence number.
    struct Slot {
        std::uint64_t number = 0;
        TimePoint noticed{};       // the first sign that it is missing
        std::size_t run = kNoRun;  // its units, while they wait for earlier ones
        std::uint32_t timestamp = 0;
        std::uint16_t unitCount = 0;  // by its payload
        std::size_t unitsTaken = 0;   // handed over
        State state = State::kUnknown;
        PayloadKind kind = PayloadKind::kEmpty;
        std::uint8_t padding = 0;
        bool hasMarker = false;
        bool isSound = true;
        bool isStray = false;  // a fragment after a packet that has no unit to carry on
        bool isCut = false;    // a unit of it was handed over in part
        bool isInRow = false;  // its units are in `m_row`
    };

    // Where the first picture ends, and what is in it.
    struct Extent {
        std::uint64_t last = 0;
        std::uint32_t timestamp = 0;
        std::size_t missing = 0;
        std::size_t rebuilt = 0;
        bool isEnded = false;       // by a marker or a change of the timestamp
        bool isHoleShared = false;  // a hole after it belongs to it or to the next, nobody knows
    };

    // --- Numbers and slots ---

    std::uint64_t extend(std::uint16_t sequence) const {
        const std::uint16_t distance = static_cast<std::uint16_t>(sequence - m_highest);
        return distance < 0x8000U ? m_highest + distance : m_highest - (0x10000U - distance);
    }

    std::size_t indexOf(std::uint64_t number) const {
        return static_cast<std::size_t>(number) & (m_slots.size() - 1);
    }
    Slot& at(std::uint64_t number) { return m_slots[indexOf(number)]; }
    const Slot& at(std::uint64_t number) const { return m_slots[indexOf(number)]; }

    // Tells whether the ring still knows the number. It does for all from `m_next` to `m_highest`.
    bool isKnown(std::uint64_t number) const { return at(number).number == number; }
    bool isPresent(std::uint64_t number) const {
        const Slot& slot = at(number);
        return slot.number == number && (slot.state == State::kArrived || slot.state == State::kRebuilt);
    }
    bool isMissing(std::uint64_t number) const {
        return number >= m_next && isKnown(number) && at(number).state == State::kMissing;
    }

    void begin(std::uint16_t sequence, TimePoint now) {
        m_hasNumbers = true;
        m_firstArrival = now;
        m_highest = kFirstCycle + sequence - 1U;  // `reach` makes the slot
        m_next = m_highest + 1;
        m_first = m_next;
        m_rowEnd = m_next;
        restartScan();
    }

    Verdict judge(const PacketHead& head, std::uint64_t number) const {
        if (number <= m_highest && isPresent(number)) {
            // The same number with another timestamp is no copy, but perhaps a sender that begins anew.
            return at(number).timestamp == head.timestamp ? Verdict::kDoubled : Verdict::kFarOff;
        }
        const bool isNear = number + kMaxMisorder >= m_next && number <= m_highest + kMaxDropout;
        if (!isNear && !isKnown(number)) {
            return Verdict::kFarOff;
        }
        if (isStray(head, number)) {
            return Verdict::kStray;
        }
        if (number < m_next && (m_isStarted || number + kMaxMisorder < m_first)) {
            return Verdict::kLate;
        }
        return isFullFor(number) ? Verdict::kFull : Verdict::kFresh;
    }

    bool isFullFor(std::uint64_t number) const {
        return !isEmpty() && (number >= m_next + kMaxWindow || m_waitingBytes > kMaxWaitingBytes);
    }

    // Tells whether a packet carries on a unit that the packet before it did not leave open. A session would
    // take such a fragment for a part of the unit before it and hand that over again.
    bool isStray(const PacketHead& head, std::uint64_t number) const {
        return continuesUnit(head.kind) && isPresent(number - 1) &&
               !canBeCarriedOn(at(number - 1), head.timestamp);
    }

    static bool canBeCarriedOn(const Slot& before, std::uint32_t timestamp) {
        return leavesUnitOpen(before.kind) && before.timestamp == timestamp && !before.isStray;
    }

    // Extends the window so that it has `number`, in either direction. New numbers count as missing.
    void reach(std::uint64_t number, TimePoint now) {
        if (number > m_highest) {
            growTo(number);
            while (m_highest < number) {
                addMissing(++m_highest, now);
            }
        }
        if (number < m_next) {  // before the first picture is played
            const std::uint64_t lowest = number;
            growTo(m_highest, lowest);
            for (std::uint64_t n = m_next; n > lowest;) {
                addMissing(--n, now);
            }
            m_next = lowest;
            m_rowEnd = lowest;
            restartScan();
        }
    }

    // The same for a number that arrived: it is nearly always the next one, and never missing.
    void reachFor(std::uint64_t number, TimePoint now) {
        if (number != m_highest + 1) {
            reach(number, now);
            return;
        }
        growTo(number);
        m_highest = number;
        beginSlot(number, now);
    }

    void beginSlot(std::uint64_t number, TimePoint now) {
        Slot& slot = at(number);
        slot = Slot();
        slot.number = number;
        slot.state = State::kMissing;
        slot.noticed = now;
    }

    void addMissing(std::uint64_t number, TimePoint now) {
        beginSlot(number, now);
        m_missing.push_back(number);
        if (m_missing.size() > 2 * m_missingAtCompaction + kFirstSlots) {
            compactMissing();
        }
    }

    // Keeps the list of missing numbers as short as the numbers are many.
    void compactMissing() {
        m_missing.erase(std::remove_if(m_missing.begin(), m_missing.end(),
                                       [this](std::uint64_t number) { return !isMissing(number); }),
                        m_missing.end());
        m_missingAtCompaction = m_missing.size();
    }

    void growTo(std::uint64_t highest) { growTo(highest, m_next); }

    void growTo(std::uint64_t highest, std::uint64_t lowest) {
        std::size_t size = m_slots.size();
        while (highest - lowest >= size) {
            size *= 2;
        }
        if (size == m_slots.size()) {
            return;
        }
        std::vector<Slot> old(size);
        old.swap(m_slots);
        for (const Slot& slot : old) {
            if (slot.state != State::kUnknown && slot.number + size > highest) {
                at(slot.number) = slot;
            }
        }
    }

    static void describe(Slot& slot, const PacketHead& head, State state) {
        slot.state = state;
        slot.timestamp = head.timestamp;
        slot.kind = head.kind;
        slot.unitCount = head.unitCount;
        slot.padding = head.padding;
        slot.hasMarker = head.hasMarker;
        slot.isSound = head.isSound;
    }

    void fill(std::uint64_t number, const PacketHead& head, State state) {
        Slot& slot = at(number);
        describe(slot, head, state);
        if (!m_isStarted && number == m_next) {
            m_beginsPicture = canBeginStream(head);
            m_firstUnitType = head.firstUnitType;
        }
        if (isPresent(number - 1)) {
            compareNeighbours(at(number - 1), slot);
            slot.isStray = continuesUnit(slot.kind) && !canBeCarriedOn(at(number - 1), slot.timestamp);
        }
        if (number < m_highest && isPresent(number + 1)) {
            compareNeighbours(slot, at(number + 1));
            markStrays(number);
        }
        m_hasMarkers = m_hasMarkers || slot.hasMarker;
        if (number < m_looked && m_isTimestampSeen) {
            m_isEndSeen = m_isEndSeen || endsPicture(slot) || slot.timestamp != m_lookedTimestamp;
        }
    }

    // A sender that sets the marker within pictures cannot tell their ends by it.
    void compareNeighbours(const Slot& before, const Slot& after) {
        if (m_areMarkersTrue && before.hasMarker && before.timestamp == after.timestamp) {
            m_areMarkersTrue = false;
            restartScan();
        }
    }

    // Marks the fragments after `number`, which arrived before it, when it does not leave a unit open for
    // them. Each is marked once.
    void markStrays(std::uint64_t number) {
        for (; number < m_highest && isPresent(number + 1); ++number) {
            Slot& next = at(number + 1);
            if (next.isStray || !continuesUnit(next.kind) || canBeCarriedOn(at(number), next.timestamp)) {
                return;
            }
            next.isStray = true;
        }
    }

    // --- The first picture ---

    bool endsPicture(const Slot& slot) const { return m_areMarkersTrue && slot.hasMarker; }

    void restartScan() {
        m_scanned = m_next;
        m_looked = m_next;
        m_isTimestampSeen = false;
        m_isEndSeen = false;
        m_isEndReached = false;
    }

    // Goes over the numbers that are there without a gap, up to the end of the first picture. Each number is
    // gone over once.
    void scan() {
        while (!m_isEndReached && m_scanned <= m_highest && isPresent(m_scanned)) {
            const Slot& slot = at(m_scanned);
            if (m_scanned > m_next && slot.timestamp != at(m_scanned - 1).timestamp) {
                m_isEndReached = true;
                return;
            }
            m_isEndReached = endsPicture(slot);
            ++m_scanned;
        }
    }

    // Tells whether a packet after the gap shows that the first picture is over. Each number is looked at
    // once; `fill` looks at those that arrive later.
    bool isEndInSight() {
        if (m_isEndSeen) {
            return true;
        }
        for (; m_looked <= m_highest; ++m_looked) {
            if (!isPresent(m_looked)) {
                continue;
            }
            const Slot& slot = at(m_looked);
            if (endsPicture(slot) || (m_isTimestampSeen && slot.timestamp != m_lookedTimestamp)) {
                return true;
            }
            m_isTimestampSeen = true;
            m_lookedTimestamp = slot.timestamp;
        }
        return false;
    }

    // The time for a picture of which nothing is missing so far. A sender whose markers are true tells its
    // end itself: a network that stalls in the middle of a picture must not cut it.
    std::optional<TimePoint> silenceEnd() const {
        if (m_hasMarkers && m_areMarkersTrue) {
            return std::nullopt;
        }
        return m_lastArrival + std::max<Duration>(m_wait, kSilence);
    }

    // Tells whether packets before the first one known may be on their way still.
    bool isStartInDoubt() const { return !m_isStarted && !(m_beginsPicture && isPresent(m_next)); }

    // Tells whether a stream can begin with that packet, so that nothing before it is missed.
    bool canBeginStream(const PacketHead& head) const {
        switch (head.firstUnitType) {
            case kNalSps:
            case kNalDelimiter:
                return true;
            case kNalIdrSlice:
                return m_hasParameterSets && head.isFirstSlice;
            case kNalSei:
            case kNalPps:
                return m_hasParameterSets;
            case kNalSlice:  // of no IDR picture, so nothing can be decoded before the next one anyway
                return head.isFirstSlice;
            default:
                return false;
        }
    }

    Extent measure() const {
        Extent extent;
        bool isAnyPresent = false;
        std::uint64_t number = m_next;
        for (; number <= m_highest; ++number) {
            if (!isPresent(number)) {
                continue;
            }
            const Slot& slot = at(number);
            if (isAnyPresent && slot.timestamp != extent.timestamp) {
                break;
            }
            isAnyPresent = true;
            extent.timestamp = slot.timestamp;
            extent.last = number;
            extent.rebuilt += slot.state == State::kRebuilt ? 1 : 0;
            if (endsPicture(slot)) {
                countMissing(extent, isAnyPresent);
                extent.isEnded = true;
                return extent;
            }
        }
        extent.isEnded = number <= m_highest;
        takeHole(extent, number);
        countMissing(extent, isAnyPresent);
        return extent;
    }

    // Of a hole before the next picture, at `next`, at least one number belongs to a picture without marker:
    // its last packet. When markers mean nothing, that number may belong to either.
    void takeHole(Extent& extent, std::uint64_t next) const {
        if (extent.isEnded && next > extent.last + 1) {
            ++extent.last;
            extent.isHoleShared = !m_areMarkersTrue || !m_hasMarkers;
        }
    }

    void countMissing(Extent& extent, bool isAnyPresent) const {
        if (!isAnyPresent) {
            extent.last = m_highest;
        }
        for (std::uint64_t number = m_scanned; number <= extent.last; ++number) {
            extent.missing += isPresent(number) ? 0 : 1;
        }
    }

    // Tells whether nothing is missing: numbers, fragments, units and the end.
    bool isSound(const Extent& extent) const {
        const bool isEndMissing = !extent.isEnded && m_hasMarkers && !at(extent.last).hasMarker;
        if (extent.missing > 0 || isEndMissing) {
            return false;
        }
        bool isOpen = false;
        for (std::uint64_t number = m_next; number <= extent.last; ++number) {
            const Slot& slot = at(number);
            const bool isContinuation = continuesUnit(slot.kind);
            const bool isPaddedInside = leavesUnitOpen(slot.kind) && slot.padding > 0;
            if (slot.kind == PayloadKind::kUnknown || !slot.isSound || slot.isStray || isPaddedInside ||
                isOpen != isContinuation || !hasAllUnits(slot)) {
                return false;
            }
            isOpen = leavesUnitOpen(slot.kind);
        }
        return !isOpen;
    }

    static bool hasAllUnits(const Slot& slot) {
        if (slot.kind == PayloadKind::kEmpty) {
            return true;
        }
        if (slot.kind == PayloadKind::kAggregate && slot.padding > 0) {
            return slot.unitsTaken >= slot.unitCount;  // the session takes the padding for more units
        }
        return slot.unitsTaken == slot.unitCount && !slot.isCut;
    }

    void describeFirst(Due& due) {
        m_extent = measure();
        m_isExtentSound = isSound(m_extent);
        due.timestamp = m_extent.timestamp;
        due.needsForce = !m_isExtentSound;
    }

    // --- Units ---

    // The run of a unit's numbers, from its first packet.
    struct Bracket {
        std::uint64_t last;
        bool isClosed;  // every fragment is there, up to the last one
        bool isCut;     // it ends at a gap
        std::uint8_t padding;
        bool isPaddedInside;
    };

    Bracket findBracket(std::uint64_t first) const {
        Bracket bracket{first, false, false, 0, false};
        for (std::uint64_t number = first; number <= m_highest && isPresent(number); ++number) {
            const Slot& slot = at(number);
            if (number > first &&
                (!continuesUnit(slot.kind) || slot.timestamp != at(first).timestamp || slot.isStray)) {
                return bracket;
            }
            bracket.last = number;
            bracket.padding = slot.padding;
            if (!leavesUnitOpen(slot.kind)) {
                bracket.isClosed = true;
                return bracket;
            }
            bracket.isPaddedInside = bracket.isPaddedInside || slot.padding > 0;
        }
        bracket.isCut = true;
        return bracket;
    }

    // Tells whether the unit goes right after the units of the first picture that are in their place. Nothing
    // does before the first picture was played, since earlier packets may still arrive.
    bool isNextInRow(std::uint64_t number, const Slot& slot, bool isWhole) const {
        if (!m_isStarted || !isWhole || slot.padding > 0 || !slot.isSound || !isPresent(number) ||
            slot.unitsTaken > slot.unitCount) {
            return false;
        }
        if (slot.unitsTaken > 1) {
            return slot.isInRow;
        }
        if (number != m_rowEnd || (number > m_next && !isSamePicture(number))) {
            return false;
        }
        if (slot.kind != PayloadKind::kFuStart) {
            return slot.kind == PayloadKind::kSingle || slot.kind == PayloadKind::kAggregate;
        }
        const Bracket bracket = findBracket(number);
        return bracket.isClosed && !bracket.isPaddedInside && bracket.padding == 0;
    }

    // Tells whether `number` belongs to the picture of the number before it.
    bool isSamePicture(std::uint64_t number) const {
        const Slot& before = at(number - 1);
        return before.timestamp == at(number).timestamp && !endsPicture(before);
    }

    // **Lends** the row, and moves its end past the packets of the unit.
    UnitRun& joinRow(std::uint64_t number, Slot& slot) {
        if (!slot.isInRow) {
            slot.isInRow = true;
            m_rowEnd = slot.kind == PayloadKind::kFuStart ? findBracket(number).last + 1 : number + 1;
        }
        return m_row;
    }

    // **Lends** the run in which the units of a packet wait.
    UnitRun& runOf(Slot& slot) {
        if (slot.run == kNoRun) {
            if (m_freeRuns.empty()) {
                m_freeRuns.push_back(m_runs.size());
                m_runs.emplace_back();
            }
            slot.run = m_freeRuns.back();
            m_freeRuns.pop_back();
        }
        return m_runs[slot.run];
    }

    void releaseUnits(Slot& slot) {
        if (slot.run != kNoRun) {
            UnitRun& run = m_runs[slot.run];
            m_waitingBytes -= std::min(m_waitingBytes, run.annexB().size());
            run.clear();
            if (run.capacity() > kMaxKeptRun) {
                run = UnitRun();
            }
            m_freeRuns.push_back(slot.run);
            slot.run = kNoRun;
        }
        slot.unitsTaken = 0;
        slot.isCut = false;
    }

    // Moves the units of the first picture into `run`, in order.
    void gather(const Extent& extent, UnitRun& run) {
        run.clear();
        std::swap(run, m_row);
        m_waitingBytes -= std::min(m_waitingBytes, run.annexB().size());
        for (std::uint64_t number = m_rowEnd; number <= extent.last; ++number) {
            Slot& slot = at(number);
            if (slot.run != kNoRun) {
                appendUnits(number, slot, run);
                releaseUnits(slot);
            }
        }
    }

    // Appends what is sure of the units of one packet.
    void appendUnits(std::uint64_t number, const Slot& slot, UnitRun& run) const {
        const UnitRun& waiting = m_runs[slot.run];
        if (slot.kind == PayloadKind::kAggregate) {
            appendAggregate(slot, waiting, run);
        } else if (waiting.count() == 1 && slot.unitCount == 1) {
            const Bracket bracket = findBracket(number);
            const BytesView bytes = waiting.annexB();
            const bool isWhole = bracket.isClosed && waiting.isWhole(0);
            if ((bracket.isClosed || bracket.isCut) && !bracket.isPaddedInside) {
                run.append(
                    bytes.subview(0, bytes.size() - std::min<std::size_t>(bracket.padding, bytes.size())),
                    isWhole);
            }
        }
    }

    // The units that the packet's own sizes announce: padding after them is read as units too.
    static void appendAggregate(const Slot& slot, const UnitRun& waiting, UnitRun& run) {
        const std::size_t count = std::min<std::size_t>(waiting.count(), slot.unitCount);
        std::size_t position = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t size = kStartCodeSize + waiting.sizeOf(i);
            const bool isLastCut = !slot.isSound && i + 1 == slot.unitCount;
            run.append(waiting.annexB().subview(position, size), waiting.isWhole(i) && !isLastCut);
            position += size;
        }
    }

    // Tells whether nothing before the first packet belongs to the picture. A picture with the timestamp of
    // the last one is the rest of that, which arrived after it had to be cut.
    bool isStartSure(const Extent& extent) const {
        const bool isRest = m_lastTimestamp == extent.timestamp;
        const bool isFirstSure = m_isStarted || m_firstUnitType != kNalSlice;
        return isFirstSure && !isStartInDoubt() && !m_isHoleInDoubt && !isRest;
    }

    void moveTo(const Extent& extent) {
        m_isStarted = true;
        m_lastTimestamp = extent.timestamp;
        m_isHoleInDoubt = extent.isHoleShared;
        m_next = extent.last + 1;
        m_highest = std::max(m_highest, extent.last);
        m_rowEnd = m_next;
        restartScan();
    }

    // Memory that an idle run keeps.
    static constexpr std::size_t kMaxKeptRun = 8192;

    std::chrono::milliseconds m_wait;
    bool m_hasParameterSets;

    std::vector<Slot> m_slots;  // a ring; its size is a power of two
    bool m_hasNumbers = false;
    std::uint64_t m_first = 0;    // the number that arrived first
    std::uint64_t m_next = 0;     // the number that begins the first picture
    std::uint64_t m_highest = 0;  // the highest number known
    std::vector<std::uint64_t> m_missing;
    std::size_t m_missingAtCompaction = 0;

    std::uint64_t m_scanned = 0;  // every number from `m_next` to here is there
    bool m_isEndReached = false;
    std::uint64_t m_looked = 0;  // numbers below were looked at for the end of a picture with a gap
    bool m_isTimestampSeen = false;
    bool m_isEndSeen = false;  // by a packet that arrived below `m_looked`
    std::uint32_t m_lookedTimestamp = 0;

    bool m_isStarted = false;  // nothing before `m_next` belongs to a picture that will be played
    std::optional<std::uint32_t> m_lastTimestamp;  // of the last picture taken
    bool m_beginsPicture = false;                  // a stream can begin with the packet at `m_next`
    std::uint8_t m_firstUnitType = 0;              // of that packet
    bool m_hasMarkers = false;                     // a marker was seen
    bool m_areMarkersTrue = true;                  // no picture went on after a marker
    bool m_isHoleInDoubt = false;                  // a hole before the first picture may be a part of it
    TimePoint m_firstArrival{};
    TimePoint m_lastArrival{};

    Extent m_extent;  // of the picture found last
    bool m_isExtentSound = false;

    UnitRun m_row;               // units of the first picture, from its first on, in order
    std::uint64_t m_rowEnd = 0;  // the number of the packet whose units come next in the row
    std::vector<UnitRun> m_runs;
    std::vector<std::size_t> m_freeRuns;
    std::size_t m_waitingBytes = 0;
};

}  // namespace talrtp::kit

#endif  // TALRTP_KIT_PLAYOUTQUEUE_H

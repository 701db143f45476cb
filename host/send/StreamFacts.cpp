#include "send/StreamFacts.h"

#include <talrtp/kit/NalUnit.h>
#include <talrtp/kit/Sps.h>

#include <algorithm>
#include <utility>

namespace talrtp::host {

namespace {

// A stream can state a rate that no camera has; such a statement counts as none.
std::optional<double> frameRateOf(kit::BytesView sps) {
    constexpr double kLeast = 1;
    constexpr double kMost = 1000;
    const std::optional<kit::SpsInfo> info = kit::readSps(sps);
    const std::optional<kit::FrameRate> rate = info ? info->frameRate() : std::nullopt;
    const bool isPlausible = rate && rate->perSecond() >= kLeast && rate->perSecond() <= kMost;
    return isPlausible ? std::optional<double>(rate->perSecond()) : std::nullopt;
}

void addSet(std::vector<std::vector<std::uint8_t>>& sets, kit::BytesView unit) {
    std::vector<std::uint8_t> bytes(unit.begin(), unit.end());
    if (std::find(sets.begin(), sets.end(), bytes) == sets.end()) {
        sets.push_back(std::move(bytes));
    }
}

}  // namespace

StreamFacts factsOf(const std::vector<kit::BytesView>& units) {
    StreamFacts facts;
    for (const kit::BytesView& unit : units) {
        const int type = kit::nalType(unit);
        if (type == kit::kNalSps || type == kit::kNalPps) {
            addSet(facts.parameterSets, unit);
        }
        if (type == kit::kNalSps && !facts.fps) {
            facts.fps = frameRateOf(unit);
        }
    }
    return facts;
}

}  // namespace talrtp::host

// The scripts of SessionFuzzer, on a receiving session and on the plain model of the tests: after each call
// every hand-over, result, trace line, counter, list and record must be alike. The model knows nothing of
// memory that is refused; AllocationFailureTest refuses it.

#include "SessionScript.h"
#include "model/Duel.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace talrtp;
    fuzz::SessionScript script(data, size);
    const std::unique_ptr<model::Duel> duel =
        model::makeDuel(script.isBase() ? model::SessionKind::kBase : model::SessionKind::kSvc,
                        script.hasSink(), script.isDerived());
    while (const model::Action* const action = script.next()) {
        const std::string difference = duel->play(*action, true);
        if (!difference.empty()) {
            fuzz::require(false, (action->describe() + "\n" + difference).c_str());
        }
    }
    const std::string difference = duel->close();
    fuzz::require(difference.empty(), difference.c_str());
    return 0;
}

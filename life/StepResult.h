#pragma once

#include <optional>
#include <string>

#include "life/ActivityRunner.h"

namespace KR {

enum class StepOutcome { done, refused, failed };

/// "done", "refused", "failed".
const char* stepOutcomeName(StepOutcome outcome);

/// What became of one step.
struct StepResult {
    StepOutcome outcome = StepOutcome::done;
    std::string reason;              ///< why it was refused or failed, or a remark on what was done
    std::optional<FocusId> started;  ///< the focus that it gave
};

}  // namespace KR

#pragma once

#include <cstdint>
#include <string>

#include "life/ActivityRunner.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Clock.h"

namespace KR {

/// How long a step, or a call that nobody limits, may take. Far above the grace time that an
/// activity has to stop (see KRBehaviorManager), and enough to say some sentences.
constexpr vo::Duration kDefaultDeadline = std::chrono::seconds(30);

/// Something that is not done because the rules of life forbid it, or because something else comes
/// first, in contrast to something that went wrong.
class LifeRefusal : public KRError {
public:
    using KRError::KRError;
};

/// Names a switch of focus that is being prepared; 0 for none.
using PreparationId = std::uint64_t;

/// Who brings a change about, and how long it may take.
struct Cause {
    std::string rule = {};  ///< "" for none: a person, or a program
    vo::Duration deadline = kDefaultDeadline;
    /// The switch that it is a part of the preparation of: no stop, then, of that one.
    PreparationId preparation = 0;
};

/// A wish to give an activity the focus.
struct FocusRequest {
    /// Flag: an activity that has the focus already is ended and started anew. Without it, such a
    /// request changes nothing.
    static constexpr std::int32_t kRestart = 0x1;

    std::string activity;
    std::int32_t flags = 0;
    std::string reason = {};
    bool autonomous = false;  ///< a rule's, which a block of autonomous focus refuses
    Cause cause = {};
};

}  // namespace KR

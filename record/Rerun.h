#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "life/Event.h"
#include "platform/vo/PackageInfo.h"
#include "record/RuleComparison.h"

namespace KR {

/// What other rules would have done with the senses of a recorded life: the same engine is given
/// the recorded writes of memory, at their times, and the new rules live on them.
///
/// What life/ writes itself (state, sleep, focus) comes from the new life. What it asks of services
/// and activities is answered as it was answered in the recording when the same was asked at about
/// the same time; otherwise as it was answered the last time before, and where it was never asked,
/// well. An activity ends when it ended in the recording, if it has the focus then.
///
/// There must be no other application in this process meanwhile.
class Rerun {
public:
    using Source = std::function<std::optional<Event>()>;
    /// Called with each event of the new life, in its order.
    using Sink = std::function<void(const Event& event)>;

    struct Options {
        /// Of the new rules; nothing for the recorded ones.
        std::optional<std::string> rules = {};
        std::string rulesPath = {};           ///< where they come from, for the new RunBegan
        std::vector<std::string> names = {};  ///< of the new rules, for the new RunBegan
        /// Nothing for the recorded ones, and their comings and goings.
        std::optional<std::vector<vo::PackageInfo>> packages = {};
    };
    struct Result {
        RuleComparison comparison;
        std::size_t assumed = 0;  ///< requests whose answer the recording does not have
    };

    Rerun(Source source, Options options, Sink sink);
    ~Rerun();
    Rerun(const Rerun&) = delete;
    Rerun& operator=(const Rerun&) = delete;

    /// To the end of the recording, or of monitoring. std::runtime_error for a recording that does
    /// not tell how it began.
    Result run();

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace KR

#pragma once

#include <map>
#include <string>
#include <vector>

#include "timeline/TimelineRenderer.h"

namespace KR {

/// Counts what happens in a run. Not thread-safe.
class RunStatistics {
public:
    /// Different texts of refusals, and of errors, that are kept apart. Reasons can hold anything,
    /// so a long run could have endless ones; the counts go on.
    static constexpr std::size_t kMaxTexts = 1000;

    void begin(const RunHeader& header);
    void count(const Event& event);
    RunSummary summary(vo::TimePoint end, bool interrupted) const;

private:
    void countStep(const StepEnded& step);
    void refuse(const std::string& text);
    void fail(const std::string& text);

    std::vector<std::string> rules_;
    vo::TimePoint start_{};
    std::map<std::string, RuleCount> counts_;
    std::map<std::string, std::size_t> refused_;
    std::map<std::string, std::size_t> errors_;
    std::size_t refusedCount_ = 0;
    std::size_t errorCount_ = 0;
};

}  // namespace KR

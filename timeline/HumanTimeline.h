#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "timeline/TimelineRenderer.h"

namespace KR {

/// The timeline for people: aligned, in colours if asked for.
///
/// A rule that is proposed every few seconds while its condition holds, and stopped every time by
/// the same reason, is shown once: again only after the robot's life (focus, state, sleep, block,
/// chains) has changed or the reason has.
class HumanTimeline : public TimelineRenderer {
public:
    using Sink = std::function<void(const std::string& text)>;

    HumanTimeline(Sink sink, bool colours) : sink_(std::move(sink)), colours_(colours) {}

    void begin(const RunHeader& header) override;
    void event(const Event& event) override;
    void end(const RunSummary& summary) override;

private:
    /// Escape sequences by what they are for.
    enum class Paint { none, dim, strong, rule, good, warn, bad, life };

    /// A hit of a periodic rule, which is shown with what follows.
    struct PendingHit {
        vo::TimePoint time;
        RuleProposed hit;
    };

    bool isRepetition(const Happening& what);
    void flushHit();

    void show(vo::TimePoint time, const KeyWritten& change);
    void show(vo::TimePoint time, const RuleProposed& hit);
    void show(vo::TimePoint time, const RuleResumed& resumed);
    void show(vo::TimePoint time, const RuleSkipped& skipped);
    void show(vo::TimePoint time, const RuleWaits& waits);
    void show(vo::TimePoint time, const RuleDropped& dropped);
    void show(vo::TimePoint time, const StepEnded& step);
    void show(vo::TimePoint time, const FocusChanged& focus);
    void show(vo::TimePoint time, const StateChanged& state);
    void show(vo::TimePoint time, const SleepChanged& sleep);
    void show(vo::TimePoint time, const FocusBlockChanged& block);
    void show(vo::TimePoint time, const ChainChanged& chain);
    /// The end of what ran is shown as its own event.
    void show(vo::TimePoint, const EverythingStopped&) {}
    void show(vo::TimePoint time, const PluginSwitched& plugin);
    /// The log itself stands on stderr.
    void show(vo::TimePoint, const ErrorReported&) {}
    void show(vo::TimePoint time, const RemarkMade& remark);
    void show(vo::TimePoint time, const CallMade& call);
    /// What decisions are made of.
    template <class Other>
    void show(vo::TimePoint /*time*/, const Other& /*other*/)
    {
    }

    void lifeLine(vo::TimePoint time, const std::string& rule, const std::string& text,
                  const std::string& reason = {});
    /// What became of a step or call; `remark` stands behind one that was not done.
    void outcomeLine(vo::TimePoint time, const std::string& indent, const std::string& text,
                     StepOutcome outcome, const std::string& reason,
                     const std::string& remark = {});
    void line(vo::TimePoint time, Paint paint, const std::string& mark, const std::string& text,
              const std::string& reason = {});
    void printTable(const RunSummary& summary);
    void printTexts(const std::string& title, std::size_t count,
                    const std::map<std::string, std::size_t>& texts, Paint paint);
    std::string painted(Paint paint, const std::string& text) const;

    // Constant after construction.
    const Sink sink_;
    const bool colours_;

    std::string lastDay_;
    std::string lastTime_;
    std::optional<PendingHit> pendingHit_;
    std::map<std::string, std::string> futile_;  ///< per rule, what stopped it the last time
};

}  // namespace KR

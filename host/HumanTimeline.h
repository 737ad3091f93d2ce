#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "host/TimelineEvent.h"

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
    void event(const TimelineEvent& event) override;
    void end(const RunSummary& summary) override;

private:
    /// Escape sequences by what they are for.
    enum class Paint { none, dim, strong, rule, good, warn, bad, life };

    bool isRepetition(const TimelineEvent& event);
    void flushHit();
    void print(const TimelineEvent& event);
    void printStep(const TimelineEvent& event);
    void printLife(const TimelineEvent& event);
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
    std::optional<TimelineEvent> pendingHit_;    ///< of a periodic rule: shown with what follows
    std::map<std::string, std::string> futile_;  ///< per rule, what stopped it the last time
};

}  // namespace KR

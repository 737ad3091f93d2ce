#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "life/Event.h"
#include "platform/vo/Clock.h"

namespace KR {

/// A run as trace events, the JSON that chrome://tracing and Perfetto open: a track each for the
/// rules, the activities, the plugins, and the keys whose writes had rules hit. An arrow leads from
/// such a write to the hit, and from there to the rule's next step.
///
/// Used by one thread at a time. Memory grows with the number of tracks only.
class ChromeTrace {
public:
    using Sink = std::function<void(const std::string& text)>;

    explicit ChromeTrace(Sink sink) : sink_(std::move(sink)) {}

    /// The next event of the run.
    void take(const Event& event);
    /// Ends what still goes on. Idempotent.
    void end();

private:
    enum class Group { rules = 1, activities, plugins, keys };
    struct Write {
        std::uint64_t number;
        std::string key;
        std::string value;
        vo::TimePoint time;
    };
    /// A hit that became known, and what it rests on.
    struct Hit {
        std::uint64_t flow = 0;  ///< 0 for none
        vo::TimePoint last;      ///< when the hit, or the step after it that ended last, was over
    };
    struct Track {
        std::int64_t number;
        bool isOpen = false;
        vo::TimePoint since{};
    };
    using TrackName = std::pair<Group, std::string>;

    void show(const KeyWritten& write);
    void show(const CheckerMoved& move);
    void show(const HitsFound& found);
    void show(const RuleProposed& hit);
    void show(const RuleResumed& resumed);
    void show(const RuleSkipped& skipped) { mark(skipped.rule.name, "skipped", skipped.reason); }
    void show(const RuleWaits& waits) { mark(waits.rule.name, "waits", waits.reason); }
    void show(const RuleDropped& dropped) { mark(dropped.rule.name, "dropped", dropped.reason); }
    void show(const StepEnded& step);
    void show(const FocusChanged& focus);
    void show(const PluginSwitched& plugin);
    template <class Other>
    void show(const Other& /*other*/)
    {
    }

    void mark(const std::string& rule, const std::string& text, const std::string& reason);
    void flow(const char* phase, std::uint64_t id, vo::TimePoint time, const TrackName& track);
    void open(const TrackName& name);
    void close(const TrackName& name);
    Track& track(const TrackName& name);
    struct Item;
    void write(const Item& item);
    std::int64_t sinceStart(vo::TimePoint time) const;

    const Sink sink_;

    std::optional<vo::TimePoint> start_;
    vo::TimePoint now_{};
    bool hasBegun_ = false;
    bool hasEnded_ = false;
    std::uint64_t flows_ = 0;
    std::uint64_t moved_ = 0;              ///< the last write before what time brought about
    std::deque<Write> writes_;             ///< that a hit may come of
    std::map<std::string, Write> causes_;  ///< by rule, of a hit that was found
    std::map<std::string, Hit> hits_;      ///< by rule, the latest one
    std::map<TrackName, Track> tracks_;
};

}  // namespace KR

#include "timeline/ChromeTrace.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/vo/Log.h"
#include "platform/vo/Printable.h"

namespace KR {

namespace {

using TraceJson = nlohmann::ordered_json;

/// Writes that are remembered until the hits that rest on them are told.
constexpr std::size_t kMaxWrites = 65536;
/// Viewers do not show a slice that takes no time.
constexpr vo::Duration kShortest{1};

}  // namespace

/// One trace event.
struct ChromeTrace::Item {
    const char* phase;
    std::string name;
    TrackName track;
    vo::TimePoint time;
    TraceJson more = TraceJson::object();
};

std::int64_t ChromeTrace::sinceStart(vo::TimePoint time) const
{
    return (time - start_.value_or(time)).count();
}

void ChromeTrace::write(const Item& item)
{
    const std::int64_t number = track(item.track).number;
    TraceJson json{{"name", item.name},
                   {"ph", item.phase},
                   {"ts", sinceStart(item.time)},
                   {"pid", static_cast<int>(item.track.first)},
                   {"tid", number}};
    json.update(item.more);
    sink_(",\n" + json.dump(-1, ' ', false, TraceJson::error_handler_t::replace));
}

/// Told to the viewer when it is needed first.
ChromeTrace::Track& ChromeTrace::track(const TrackName& name)
{
    static const std::map<Group, const char*> groups{{Group::rules, "Rules"},
                                                     {Group::activities, "Activities"},
                                                     {Group::plugins, "Plugins"},
                                                     {Group::keys, "Keys"}};
    if (!std::exchange(hasBegun_, true)) {
        sink_("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n{\"name\":\"run\",\"ph\":\"M\"}");
        for (const auto& [group, text] : groups)
            sink_(",\n" + TraceJson{{"name", "process_name"},
                                    {"ph", "M"},
                                    {"pid", static_cast<int>(group)},
                                    {"args", {{"name", text}}}}
                              .dump());
    }
    const auto found = tracks_.find(name);
    if (found != tracks_.end())
        return found->second;
    Track& made =
        tracks_.emplace(name, Track{static_cast<std::int64_t>(tracks_.size()) + 1}).first->second;
    write({"M", "thread_name", name, now_, {{"args", {{"name", name.second}}}}});
    return made;
}

void ChromeTrace::take(const Event& event)
{
    if (hasEnded_)
        return;
    now_ = event.time;
    if (!start_)
        start_ = now_;
    std::visit([this](const auto& each) { show(each); }, event.what);
    if (std::holds_alternative<RunEnded>(event.what))
        end();
}

void ChromeTrace::show(const KeyWritten& write)
{
    writes_.push_back({write.number, write.key,
                       vo::shortened(write.value.toDisplayString(), vo::kMaxLogTextBytes), now_});
    if (writes_.size() > kMaxWrites)
        writes_.pop_front();
}

void ChromeTrace::show(const CheckerMoved& move)
{
    moved_ = move.after;
}

void ChromeTrace::show(const HitsFound& found)
{
    while (!writes_.empty() && writes_.front().number < found.after)
        writes_.pop_front();
    for (const FoundHit& hit : found.hits) {
        causes_.erase(hit.rule);
        // Time brought about what is told after such a move.
        if (!writes_.empty() && writes_.front().number == found.after && found.after != moved_)
            causes_[hit.rule] = writes_.front();
    }
}

void ChromeTrace::show(const RuleProposed& hit)
{
    const TrackName rule{Group::rules, hit.rule.name};
    Hit latest{0, now_ + kShortest};
    const auto cause = causes_.find(hit.rule.name);
    if (cause != causes_.end()) {
        const Write& write = cause->second;
        const TrackName key{Group::keys, write.key};
        latest.flow = ++flows_;
        this->write({"X", write.value, key, write.time, {{"dur", kShortest.count()}}});
        flow("s", latest.flow, write.time, key);
    }
    write({"i", "hit", rule, now_, {{"s", "t"}, {"args", {{"before", hit.before}}}}});
    write({"X", "hit", rule, now_, {{"dur", kShortest.count()}}});
    if (latest.flow != 0)
        flow("t", latest.flow, now_, rule);
    if (cause != causes_.end())
        causes_.erase(cause);
    hits_[hit.rule.name] = latest;
}

void ChromeTrace::show(const RuleResumed& resumed)
{
    mark(resumed.rule.name, "resumed", {});
    hits_[resumed.rule.name].last = now_;
}

void ChromeTrace::mark(const std::string& rule, const std::string& text, const std::string& reason)
{
    write({"i", text, {Group::rules, rule}, now_, {{"s", "t"}, {"args", {{"reason", reason}}}}});
}

void ChromeTrace::show(const StepEnded& step)
{
    const TrackName rule{Group::rules, step.rule.name};
    Hit& hit = hits_[step.rule.name];
    // Where the slice before it ends, so that none lies upon another.
    const vo::TimePoint began = hit.last == vo::TimePoint() ? now_ : hit.last;
    const vo::Duration length = std::max(kShortest, now_ - began);
    write({"X",
           step.text,
           rule,
           began,
           {{"dur", length.count()},
            {"args",
             {{"step", step.type},
              {"outcome", stepOutcomeName(step.outcome)},
              {"reason", step.reason}}}}});
    if (hit.flow != 0)
        flow("f", hit.flow, began, rule);
    hit = {0, began + length};
}

void ChromeTrace::show(const FocusChanged& focus)
{
    if (!focus.previous.empty())
        close({Group::activities, focus.previous});
    if (!focus.activity.empty())
        open({Group::activities, focus.activity});
}

void ChromeTrace::show(const PluginSwitched& plugin)
{
    if (plugin.running)
        open({Group::plugins, plugin.plugin});
    else
        close({Group::plugins, plugin.plugin});
}

void ChromeTrace::flow(const char* phase, std::uint64_t id, vo::TimePoint time,
                       const TrackName& track)
{
    TraceJson more{{"cat", "cause"}, {"id", id}};
    // The arrow ends at the slice around its end, and not at the next one.
    if (*phase == 'f')
        more["bp"] = "e";
    write({phase, "cause", track, time, more});
}

void ChromeTrace::open(const TrackName& name)
{
    close(name);
    Track& opened = track(name);
    opened.isOpen = true;
    opened.since = now_;
}

void ChromeTrace::close(const TrackName& name)
{
    Track& closed = track(name);
    if (!std::exchange(closed.isOpen, false))
        return;
    const vo::Duration length = std::max(kShortest, now_ - closed.since);
    write({"X", name.second, name, closed.since, {{"dur", length.count()}}});
}

void ChromeTrace::end()
{
    if (std::exchange(hasEnded_, true))
        return;
    for (const auto& named : tracks_)
        close(named.first);
    sink_(hasBegun_ ? "\n]}\n" : "{\"traceEvents\":[]}\n");
}

}  // namespace KR

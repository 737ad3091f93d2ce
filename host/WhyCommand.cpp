#include "host/WhyCommand.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "explain/Explainer.h"
#include "explain/ExplanationJson.h"
#include "explain/ExplanationText.h"
#include "explain/ThingExplainer.h"
#include "host/ConfigurationCheck.h"
#include "host/Host.h"
#include "host/KnownRobot.h"
#include "host/Nearest.h"
#include "host/Output.h"
#include "host/Player.h"
#include "host/RecordedRun.h"
#include "host/RuleSources.h"
#include "host/RunCommand.h"
#include "host/StopRequest.h"
#include "robot/Scenario.h"
#include "robot/ScenarioTime.h"
#include "timeline/Text.h"

namespace KR {

namespace {

using WhyJson = nlohmann::ordered_json;

struct WhyOptions {
    std::string rule;
    std::string activity;
    std::string key;
    std::string recording;
    std::string scenario;
    std::string config;
    std::string packages;
    std::string at;
    std::vector<std::string> between;
    bool json = false;
};

/// A question, to which the events up to a time lead.
class Question {
public:
    virtual ~Question() = default;
    virtual void take(const Event& event) = 0;
    /// Whether the writes of a key may matter.
    virtual bool needs(std::string_view /*key*/) const { return true; }
    struct Answer {
        WhyJson json;
        std::string text;
        bool isKnown = true;  ///< there is what was asked for
    };
    virtual Answer answer(vo::TimePoint at, std::optional<vo::TimePoint> from) = 0;
};

std::string meantText(const std::string& text, const std::vector<std::string>& all)
{
    const std::string meant = nearestText(text, all);
    return meant.empty() ? "" : "\"" + meant + "\"";
}

class RuleQuestion : public Question {
public:
    RuleQuestion(const std::string& rule, const KeyCatalogue& keys)
        : explainer_(rule, readRuleSources, &keys)
    {
    }

    void take(const Event& event) override { explainer_.take(event); }
    bool needs(std::string_view key) const override { return explainer_.needs(key); }
    Answer answer(vo::TimePoint at, std::optional<vo::TimePoint> from) override
    {
        Explanation explanation = explainer_.answer(at, from);
        if (!explanation.source)
            explanation.didYouMean = meant(explanation.rule);
        Answer answer{jsonOf(explanation), {}, explanation.source.has_value()};
        answer.text = explanationText(answer.json, outputWidth());
        return answer;
    }

private:
    std::string meant(const std::string& name) const
    {
        std::vector<std::string> names;
        for (const RuleSource* source : explainer_.life().rules())
            names.push_back(source->rule.description);
        const std::string nearest = nearestText(name, names);
        if (nearest.empty())
            return {};
        const RuleSource& source = *explainer_.life().rule(nearest);
        return "\"" + nearest + "\"" +
               (source.file.empty() ? ""
                                    : " (" + source.file + ":" + std::to_string(source.line) + ")");
    }

    Explainer explainer_;
};

/// Of an activity or a key.
template <class Explainer, std::vector<std::string> (Explainer::*all)() const>
class ThingQuestion : public Question {
public:
    using Write = std::string (*)(const WhyJson&, std::size_t);

    template <class... Arguments>
    ThingQuestion(std::string kind, std::string name, Write write, Arguments&&... arguments)
        : kind_(std::move(kind)),
          name_(std::move(name)),
          write_(write),
          explainer_(name_, readRuleSources, std::forward<Arguments>(arguments)...)
    {
    }

    void take(const Event& event) override { explainer_.take(event); }
    Answer answer(vo::TimePoint at, std::optional<vo::TimePoint> from) override
    {
        const WhyJson json = explainer_.answer(at, from);
        if (!json.is_null())
            return {json, write_(json, outputWidth())};
        const std::string meant = meantText(name_, (explainer_.*all)());
        const std::string text = "There is no " + kind_ + " \"" + name_ + "\"." +
                                 (meant.empty() ? "" : " Did you mean " + meant + "?");
        WhyJson none = {{kind_, name_}, {"known", false}};
        if (!meant.empty())
            none["didYouMean"] = meant;
        return {none, printable(text) + "\n", false};
    }

private:
    const std::string kind_;
    const std::string name_;
    const Write write_;
    Explainer explainer_;
};

std::unique_ptr<Question> makeQuestion(const WhyOptions& options, const KeyCatalogue& keys)
{
    using Activity = ThingQuestion<ActivityExplainer, &ActivityExplainer::activities>;
    using Key = ThingQuestion<KeyExplainer, &KeyExplainer::keys>;
    if (!options.activity.empty())
        return std::make_unique<Activity>("activity", options.activity, activityText);
    if (!options.key.empty())
        return std::make_unique<Key>("key", options.key, keyText, &keys);
    return std::make_unique<RuleQuestion>(options.rule, keys);
}

/// The times that are asked about, in a life that begins at `start`.
struct Times {
    std::optional<vo::TimePoint> from;
    std::optional<vo::TimePoint> to;
};

vo::TimePoint timeFrom(const std::string& text, vo::TimePoint start)
{
    if (const auto time = parseDateTime(text))
        return *time;
    if (const auto time = parseDayTime(text))
        return midnightOf(start) + time->sinceFirstMidnight(1);
    return endFromText(text, start);
}

Times timesOf(const WhyOptions& options, vo::TimePoint start)
{
    Times times;
    if (!options.at.empty())
        times.to = timeFrom(options.at, start);
    if (options.between.empty())
        return times;
    if (options.between.size() != 2)
        throw UsageError("--between takes two times; the rule stands before it");
    times.from = timeFrom(options.between.front(), start);
    times.to = timeFrom(options.between.back(), start);
    if (*times.to < *times.from)
        throw UsageError("--between takes the earlier time first");
    return times;
}

std::string contentOfConfig(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What all that a robot can have publishes, whether it runs or not.
void addKnownKeys(KeyCatalogue& keys)
{
    const KnownRobot robot;
    for (const KeyCatalogue::Entry& entry : robot.keys().entries()) {
        for (const std::string& publisher : entry.publishers)
            keys.addPublished(entry.description, publisher);
    }
}

/// Plays a scenario up to the time that is asked about, and answers there.
Question::Answer askScenario(const WhyOptions& options)
{
    const Scenario scenario = loadScenario(options.scenario);
    const Times times = timesOf(options, scenario.start);
    const vo::TimePoint end = times.to.value_or(Player::endOf(scenario));
    const std::string config = configPath(options.config);
    requirePackagesFolder(options.packages);
    const ConfigurationReport report = inspectConfiguration(config);
    if (!report.failure.empty())
        throw std::runtime_error(report.failure);

    KeyCatalogue keys;
    addKnownKeys(keys);
    const std::unique_ptr<Question> question = makeQuestion(options, keys);
    const auto clock = std::make_shared<vo::VirtualClock>(scenario.start);
    EventStream events(clock);
    vo::Connection connection =
        events.happened.connect([&](const Event& event) { question->take(event); });
    events.publish(
        RunBegan{scenario.title, config, contentOfConfig(config), report.ruleNames(), {}, {}});
    Host host(clock, events, {config, options.packages, report.plugins, {}, {}, report.resume});
    clock->runPending();
    host.start();
    StopRequest stop;
    Player(host, *clock, events, stop, {}).play(scenario, end);
    events.flush();
    connection.disconnect();
    return question->answer(end, times.from);
}

/// Passes on what happened up to a time; where none is given, up to where the run was brought to
/// its end, as all that is no more from there on was not so before.
class Course {
public:
    Course(const WhyOptions& options, Question& question) : options_(options), question_(question)
    {
    }

    /// False when no later event matters.
    bool take(const Event& event)
    {
        if (!begin_)
            times_ = timesOf(options_, *(begin_ = event.time));
        if (times_.to && event.time > *times_.to)
            return false;
        const auto* const moved = std::get_if<CheckerMoved>(&event.what);
        if (moved && moved->kind == CheckerMove::Kind::started)
            passOnEnd();
        const bool stops = moved && moved->kind == CheckerMove::Kind::stopped;
        if (!times_.to && (stops || !end_.empty()))
            end_.push_back(event);
        else
            pass(event);
        return true;
    }

    Question::Answer answer()
    {
        const bool hasEnded = !end_.empty() && std::holds_alternative<RunEnded>(end_.back().what);
        if (hasEnded)
            last_ = end_.front().time;
        else
            passOnEnd();
        return question_.answer(times_.to.value_or(last_), times_.from);
    }

private:
    void passOnEnd()
    {
        for (const Event& event : std::exchange(end_, {}))
            pass(event);
    }
    void pass(const Event& event)
    {
        last_ = event.time;
        question_.take(event);
    }

    const WhyOptions& options_;
    Question& question_;
    std::optional<vo::TimePoint> begin_;
    Times times_;
    vo::TimePoint last_{};
    std::vector<Event> end_;  ///< what may be the run's end
};

int tell(const WhyOptions& options, const Question::Answer& answer)
{
    printOutput(options.json
                    ? answer.json.dump(2, ' ', false, WhyJson::error_handler_t::replace) + "\n"
                    : answer.text);
    return answer.isKnown ? 0 : 1;
}

int askRecording(const WhyOptions& options)
{
    constexpr int kUnreadable = 2;
    std::unique_ptr<RecordedRun> run;
    try {
        run = std::make_unique<RecordedRun>(options.recording);
    } catch (const std::runtime_error& e) {
        printError(e.what());
        return kUnreadable;
    }
    KeyCatalogue keys;
    addKnownKeys(keys);
    const std::unique_ptr<Question> question = makeQuestion(options, keys);
    Course course(options, *question);
    run->passOverKeys([&question](std::string_view key) { return question->needs(key); });
    for (auto event = run->next(); event && course.take(*event);)
        event = run->next();
    const int result = tell(options, course.answer());
    return run->isWhole() ? result : 1;
}

int ask(const WhyOptions& options)
{
    const int things = !options.rule.empty() + !options.activity.empty() + !options.key.empty();
    if (things != 1)
        throw UsageError("ask about one RULE, --activity or --key");
    if (options.recording.empty() && options.scenario.empty())
        throw UsageError("--recording or --scenario says what happened");
    // Recordings and scenarios tell their times in UTC. There is no other thread yet.
    ::setenv("TZ", "UTC0", 1);  // NOLINT(concurrency-mt-unsafe)
    vo::setLogLevel(vo::LogLevel::silent);
    return options.recording.empty() ? tell(options, askScenario(options)) : askRecording(options);
}

}  // namespace

void addWhyCommand(const Command& program)
{
    const Command why =
        program.add("why", "Tell why a rule acted, or why not, and what would have to change");
    const auto options = std::make_shared<WhyOptions>();
    why.text("RULE", options->rule, "", "The rule's Description");
    why.text("--activity", options->activity, "NAME", "Ask about an activity instead");
    why.text("--key", options->key, "KEY", "Ask about a memory key instead");
    const Option recording = why.text("--recording", options->recording, "FILE",
                                      "What `nimbra run --record` has written");
    Option scenario =
        why.text("--scenario", options->scenario, "FILE", "A scenario that is played up to then");
    scenario.excludes(recording);
    addConfig(why, options->config);
    addPackages(why, options->packages);
    const Option at =
        why.text("--at", options->at, "TIME", "The time that is asked about (default: the end)");
    why.texts("--between", options->between, "A B", "All that came of it between two times")
        .excludes(at);
    why.flag("--json", options->json, "Print one JSON object");
    why.perform([options] { return ask(*options); });
}

}  // namespace KR

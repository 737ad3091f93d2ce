#include <algorithm>
#include <filesystem>

#include "host/ConfigurationCheck.h"
#include "host/Player.h"
#include "host/RunCommand.h"
#include "host/StopRequest.h"
#include "record/EventCodec.h"
#include "record/Replay.h"
#include "record/Rerun.h"
#include "robot/RobotBody.h"
#include "robot/Scenario.h"
#include "tests/host/HostTest.h"

namespace KR {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

using Events = std::vector<Event>;

Replay::Source sourceOf(const Events& events)
{
    return [next = events.begin(), end = events.end()]() mutable -> std::optional<Event> {
        return next == end ? std::nullopt : std::optional(*next++);
    };
}

class ReplayTest : public HostTest {
protected:
    ReplayTest()
    {
        connection = stream.happened.connect([this](const Event& event) { kept.push_back(event); });
    }

    /// What the recording of a run of these rules is.
    Events record(const std::string& rules, const std::function<void()>& course)
    {
        start(rules);
        course();
        host->stop();
        stream.publish(RunEnded{});
        host.reset();
        auto& run = std::get<RunBegan>(kept.front().what);
        const auto& chains = robotChains();
        run.configText = contentOf(run.config);
        run.chains = {chains.begin(), chains.end()};
        return kept;
    }

    static ReplayResult replay(const Events& events)
    {
        std::size_t told = 0;
        return Replay(sourceOf(events),
                      [&](const Event& event) { EXPECT_EQ(event.number, events[told++].number); })
            .run();
    }
    static void expectSame(const Events& events)
    {
        const auto difference = replay(events).difference;
        if (difference)
            ADD_FAILURE() << difference->text << "\n"
                          << (difference->recorded ? encodeEvent(*difference->recorded) : "-")
                          << "\n"
                          << (difference->replayed ? encodeEvent(*difference->replayed) : "-");
    }

    Events kept;
    vo::Connection connection;
};

bool isDecision(const Event& event)
{
    return std::visit(
        Cases{[](const HitsFound&) { return true; }, [](const RuleProposed&) { return true; },
              [](const RuleSkipped&) { return true; }, [](const RuleWaits&) { return true; },
              [](const RuleResumed&) { return true; }, [](const StepEnded&) { return true; },
              [](const FocusChanged&) { return true; }, [](const RequestMade&) { return true; },
              [](const SleepChanged&) { return true; }, [](const TruthsRead&) { return true; },
              [](const TimerFired&) { return true; }, [](const ChainChanged&) { return true; },
              [](const auto&) { return false; }},
        event.what);
}

TEST_F(ReplayTest, demoDayIsTheSame)
{
    const std::filesystem::path data = NIMBRA_TEST_DATA;
    useDemoPackages();
    const Scenario scenario = loadScenario(data / "demo-day.scenario.yaml");
    clock->advance(scenario.start - clock->now());
    const std::string config = data / "autonomy.cfg";
    const auto& chains = robotChains();
    stream.publish(RunBegan{"", config, contentOf(config), {}, {}, {chains.begin(), chains.end()}});
    host.emplace(clock, stream,
                 Host::Options{config, packages, inspectConfiguration(config).plugins});
    clock->runPending();
    host->start();
    StopRequest stop;
    ASSERT_TRUE(Player(*host, *clock, stream, stop, {}).play(scenario, Player::endOf(scenario)));
    host->stop();
    stream.publish(RunEnded{});
    host.reset();
    expectSame(kept);
}

/// Rules with a hold, a rule list, a request, a timed freeze and one before an activity.
const std::string kRules =
    rule("Hold", "A'  for 2 s && 'B", focusOn("dialog:d")) +
    rule("Wait", "B",
         "ExecuteAfterActiveRules: [Hold], Action: SetState, "
         "ActionParameters: {State: interactive}") +
    rule("Call", "C",
         "Action: ApiCall, ActionParameters: {Module: KRLeds, Method: fade, "
         "Args: [eyes, 1.0, 1.0]}") +
    rule("Freeze", "C", "Action: FreezeChain, ActionParameters: {Chain: Head, Duration: 3}") +
    "- {Description: Before, Condition: \"'C'\", "
    "ExecuteBeforeActivityIfConditionTrue: true, Action: ApiCall, "
    "ActionParameters: {Module: KRNimbra, Method: setAsleep, Args: [true]}}\n";

TEST_F(ReplayTest, whateverIsMissingIsFoundAndACutEndIsNot)
{
    const Events life = record(kRules, [this] {
        for (const bool on : {true, false, true}) {
            for (const char* key : {"A", "C", "B"})
                raise(key, on);
            clock->advance(milliseconds(2500));
            host->life().stopFocus();
            host->life().setAsleep(false);
            clock->advance(seconds(4));
        }
    });
    expectSame(life);
    const ReplayResult whole = replay(life);
    EXPECT_GT(whole.decisions, 20U);
    const auto isEnd = [](const Event& event) {
        const auto* const monitoring = std::get_if<MonitoringSwitched>(&event.what);
        return monitoring && !monitoring->on;
    };
    // Of the last turn some may be left out: the life might have ended in the middle of it.
    const auto end = std::find_if(life.begin(), life.end(), isEnd) - life.begin();
    std::ptrdiff_t lastTurn = end;
    while (!std::holds_alternative<TimerFired>(life[static_cast<std::size_t>(lastTurn)].what))
        --lastTurn;
    std::ptrdiff_t decisions = 0;
    for (std::ptrdiff_t i = 0; i <= end; ++i) {
        const Event& event = life[static_cast<std::size_t>(i)];
        if (i > 0) {
            EXPECT_FALSE(replay({life.begin(), life.begin() + i}).difference) << i;
        }
        if (!isDecision(event) || i > lastTurn)
            continue;
        ++decisions;
        Events without = life;
        without.erase(without.begin() + i);
        EXPECT_TRUE(replay(without).difference) << encodeEvent(event);
    }
    EXPECT_GT(decisions, 25);
}

std::string fileOf(const std::string& rules)
{
    return "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\nAutonomousActions:\n" +
           rules;
}

const std::string kCall =
    "Action: ApiCall, ActionParameters: {Module: KRTextToSpeech, Method: say, Args: [hello]}";

TEST_F(ReplayTest, otherRulesFareAsTheyWouldHave)
{
    const std::string talk = rule("Talk", "A", focusOn("dialog:d"));
    const std::string call = rule("Call", "B", "SkipIfRulesActive: [Talk], " + kCall);
    const Events life = record(talk + call, [this] {
        for (int i = 0; i < 2; ++i) {
            raise("A", 1);
            clock->advance(seconds(2));
            raise("B", 1);
            clock->advance(seconds(2));
            host->life().stopFocus();
            raise("A", 0);
            raise("B", 0);
            clock->advance(seconds(2));
        }
    });
    const std::string skipped = "otherwise no longer: while active: Talk";
    const struct {
        std::string rules;
        std::vector<std::string> changes;
        std::string felt;
    } rows[] = {
        {talk + call, {}, ""},
        {call,
         {"Call " + skipped, "Call " + skipped, "Talk less there is no such rule",
          "Talk less there is no such rule"},
         "0 Talk SwitchFocus dialog:d"},
        {talk + rule("Call", "B' == 3 && !'A", kCall),
         {"Call less its condition is false: ('B' == 3) ('B' is 1); !'A' ('A' is 1)",
          "Call less its condition is false: ('B' == 3) ('B' is 1); !'A' ('A' is 1)"},
         ""},
        {talk + rule("Call", "B'  for 1 s && 'B", kCall),
         {"Call later its condition became true then", "Call later its condition became true then"},
         "3 Call ApiCall KRTextToSpeech.say(\"hello\")"},
        {rule("Talk", "A'  for 3 s && 'A", focusOn("dialog:d")) + call,
         {"Call " + skipped, "Call " + skipped, "Talk later its condition became true then",
          "Talk later its condition became true then"},
         "0 Talk SwitchFocus dialog:d"},
        {talk + call + rule("New", "B' == 1 && 'A", "Action: StopFocus"),
         {"New more its condition is reported there", "New more its condition is reported there"},
         "2 New StopFocus"},
    };
    for (const auto& row : rows) {
        Rerun::Options others;
        others.rules = fileOf(row.rules);
        const RuleComparison comparison =
            Rerun(sourceOf(life), others, [](const Event&) {}).run().comparison;
        std::vector<std::string> changes;
        for (const ComparedRule& each : comparison.rules) {
            for (const RuleChange& change : each.changes)
                changes.push_back(each.rule + " " + changeName(change.kind) + " " + change.gate);
        }
        EXPECT_EQ(changes, row.changes) << row.rules;
        EXPECT_EQ(comparison.isSame(), changes.empty());
        const auto start = life.front().time;
        const auto& felt = comparison.firstFelt;
        EXPECT_EQ(felt ? std::to_string((felt->time - start) / seconds(1)) + " " + felt->rule +
                             " " + felt->effect
                       : "",
                  row.felt)
            << row.rules;
    }
}

}  // namespace
}  // namespace KR

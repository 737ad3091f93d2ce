#include "life/ActionRunner.h"
#include "tests/life/LifeParts.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

/// An event in a few words.
struct Words {
    using Text = std::string;
    static Text join(Text kind, const std::vector<Text>& parts)
    {
        for (const Text& part : parts)
            kind += part.empty() ? "" : " " + part;
        return kind;
    }
    Text operator()(const RuleProposed& e) const { return join("hit", {e.rule.name, e.before}); }
    Text operator()(const RuleResumed& e) const { return join("resume", {e.rule.name}); }
    Text operator()(const RuleSkipped& e) const { return join("skip", {e.rule.name, e.reason}); }
    Text operator()(const RuleWaits& e) const { return join("wait", {e.rule.name, e.reason}); }
    Text operator()(const RuleDropped& e) const { return join("drop", {e.rule.name, e.reason}); }
    Text operator()(const StepEnded& e) const
    {
        return join("step", {e.rule.name, e.text, e.reason,
                             stepOutcomeName(e.outcome) + std::to_string(e.rest)});
    }
    Text operator()(const FocusChanged& e) const
    {
        return join("focus", {e.rule, e.activity, e.reason});
    }
    Text operator()(const FocusBlockChanged& e) const { return join("life", {e.rule}); }
    template <class Other>
    Text operator()(const Other&) const
    {
        return "";
    }
};

class ResponderTest : public testing::Test {
protected:
    ResponderTest()
    {
        platform.addService("Test", "call", [this](const std::string& what) { calls.at(what)(); });
        connection = parts.events.happened.connect([this](const Event& event) {
            EXPECT_EQ(event.number, ++lastEvent);
            const std::string line = std::visit(Words(), event.what);
            if (!line.empty())
                lines.push_back(line);
        });
        responder.setSuggestions([this](std::uint32_t mask) {
            std::list<AutonomousAction> result = suggested;
            result.remove_if([&](const auto& each) { return (each.synchronicity & mask) == 0; });
            return result;
        });
    }
    AutonomousAction rule(const std::string& name, const AutonomousActionItem& item)
    {
        AutonomousAction action;
        action.description = name;
        action.conditionId = ++lastCondition;
        action.synchronicity = ExecuteAnyTimeConditionEdgeTrue;
        action.items = {item};
        return action;
    }
    AutonomousAction waiting(const std::string& name, const std::string& after)
    {
        AutonomousAction action = rule(name, {ActionItemUnblockAutonomousFocus, {}});
        action.executeAfterActiveRules = {after};
        return action;
    }
    static AutonomousActionItem focusOn(const std::string& activity)
    {
        return {ActionItemSwitchFocus, {{"Activity", activity}}};
    }
    static AutonomousActionItem call(const std::string& what)
    {
        return {ActionItemApiCall,
                {{"Module", "Test"}, {"Method", "call"}, {"Args", KRValue::Array{what}}}};
    }
    std::vector<std::string> told()
    {
        platform.runPending();
        return std::exchange(lines, {});
    }

    VirtualPlatform platform;
    std::vector<std::string> lines;
    LifeParts parts{platform.broker};
    const boost::shared_ptr<LifeService> life = parts.life;
    Responder& responder = parts.responder;
    std::uint64_t lastEvent = 0;
    vo::Connection connection;
    std::map<std::string, std::function<void()>> calls;
    std::list<AutonomousAction> suggested;
    std::uint32_t lastCondition = 0;
};

TEST_F(ResponderTest, EndOfARuleWithoutFocusWakesAllThatWaitForIt)
{
    const std::list<AutonomousAction> late{waiting("b", "a"), waiting("c", "a"), waiting("d", "b")};
    suggested = {late.front(), late.back(), waiting("c", "a")};  // that one has another condition
    suggested.front().synchronicity = ExecuteAnyTimeConditionTrue;
    calls["meanwhile"] = [&] { responder.processActions(late, {}); };
    responder.processActions({rule("a", call("meanwhile"))}, {});
    EXPECT_EQ(lines.size(), 8U) << "they go when the action in progress has ended";
    EXPECT_THAT(told(), ElementsAre("hit a", "hit b", "wait b for the end of: a", "hit c",
                                    "wait c for the end of: a", "hit d",
                                    "step d UnblockAutonomousFocus done0",
                                    "step a ApiCall Test.call(\"meanwhile\") done0", "resume b",
                                    "step b UnblockAutonomousFocus done0",
                                    "drop c its condition is no longer true"));
}

TEST_F(ResponderTest, WaitsAgainWhileItsRuleIsActiveAnewAndIsForgottenWithAllThatWait)
{
    AutonomousAction a = rule("a", focusOn("x"));
    a.items.push_back({ActionItemUnblockAutonomousFocus, {}});
    AutonomousAction b = waiting("b", "a");
    b.items = {call("again")};
    const std::list<AutonomousAction> late{b, waiting("c", "a")};
    suggested = late;
    calls["again"] = [&] { responder.processActions({a}, {}); };
    responder.processActions({a}, {});
    responder.processActions(late, {});
    told();
    life->stopFocus();
    responder.processActions({a}, {});  // before the loop comes to those that may go
    EXPECT_THAT(told(), ElementsAre("focus", "hit a", "focus a x", "step a SwitchFocus x done1",
                                    "step a UnblockAutonomousFocus done0"));
    life->stopFocus();
    EXPECT_THAT(told(),
                ElementsAre("focus", "resume b", "hit a", "focus a x", "step a SwitchFocus x done1",
                            "step a UnblockAutonomousFocus done0",
                            "step b ApiCall Test.call(\"again\") done0", "resume c",
                            "wait c for the end of: a"));
    responder.processActions({b}, {});
    told();
    responder.processActions({rule("all", {ActionItemStopAll, {{"Reason", "enough"}}})}, {});
    EXPECT_THAT(told(), ElementsAre("hit all", "focus all enough", "drop c everything was stopped",
                                    "drop b everything was stopped", "step all StopAll done0"));
}

TEST_F(ResponderTest, RulesComeBeforeAnActivityButNotBeforeThemselvesNorBeforeTheirOwn)
{
    const AutonomousAction both = rule("both", focusOn("x"));
    AutonomousAction first = rule("first", focusOn("y"));
    first.synchronicity = ExecuteBeforeActivityIfConditionTrue;
    AutonomousAction skipped = rule("skipped", call("none"));
    skipped.skipIfRulesActive = {"first", "both", "late"};
    suggested = {both, rule("both", {ActionItemUnblockAutonomousFocus, {}}),
                 waiting("late", "both"), skipped};
    for (AutonomousAction& each : suggested)
        each.synchronicity |= ExecuteBeforeActivityIfConditionTrue;
    suggested.insert(std::next(suggested.begin(), 2), first);
    suggested.push_back(rule("any time", call("none")));
    responder.processActions({both}, {});
    EXPECT_THAT(told(),
                ElementsAre("hit both", "hit both x", "step both UnblockAutonomousFocus done0",
                            "hit first x", "focus first y", "step first SwitchFocus y done0",
                            "hit late x", "skip late cannot wait for: both", "hit skipped x",
                            "skip skipped while active: first, both", "focus both x",
                            "step both SwitchFocus x done0"));
    suggested = {first};
    life->switchFocus({"z", 0, "a person"});
    EXPECT_THAT(told(), ElementsAre("hit first z", "focus first y",
                                    "step first SwitchFocus y done0", "focus z a person"));
}

TEST_F(ResponderTest, EachCircleIsWarnedAboutOnce)
{
    std::list<AutonomousAction> actions;
    for (const auto& [name, after] : {std::pair("a", "b"), {"b", "a"}, {"c", "d"}, {"d", "c"}}) {
        actions.push_back(rule(name, {ActionItemUnblockAutonomousFocus, {}}));
        actions.back().executeAfterIfSimultaneouslyTrue = {after};
    }
    responder.processActions({actions.front(), *std::next(actions.begin())}, {});
    responder.processActions(actions, {});
    EXPECT_THAT(platform.log.lines(vo::LogLevel::warning),
                ElementsAre(HasSubstr("a after b after a"), HasSubstr("c after d after c")));
}

TEST_F(ResponderTest, StepsDoWhatTheirParametersSay)
{
    std::string sets;
    platform.addService("Eyes", "setConfigurationSet",
                        [&](const std::string& set) { sets += set; });
    const struct {
        std::int32_t type;
        std::map<std::string, KRValue> parameters;
        const char* result;  ///< how the step is described, why, and what comes of it
    } rows[] = {
        {1, {{"Activity", "x"}}, "SwitchFocus x done0"},
        {1, {{"Activity", "x"}, {"Flags", 0}}, "SwitchFocus x it has the focus already done0"},
        {1, {{"Activity", "x"}, {"Flags", 1}}, "SwitchFocus x done0"},
        {1, {{"Activity", "x"}, {"Flags", 8}}, "SwitchFocus x unknown flags 8 failed0"},
        {1, {}, "SwitchFocus ? the parameter Activity is missing failed0"},
        {2, {{"Reason", "enough"}}, "StopFocus done0"},
        {1, {{"Activity", "x"}, {"Reason", "why"}}, "SwitchFocus x done0"},
        {6,
         {{"State", "safeguard"}, {"Force", false}},
         "SetState safeguard 'x' has the focus and may not run in 'safeguard' refused0"},
        {6, {{"State", "disabled"}, {"Force", true}}, "SetState disabled, forced done0"},
        {6, {{"State", "solitary"}}, "SetState solitary leaving 'disabled' needs force refused0"},
        {6, {{"State", "solitary"}, {"Force", 1}}, "SetState solitary, forced done0"},
        {9, {{"Chain", "Head"}, {"Duration", 2}}, "FreezeChain Head for 2 s done0"},
        {9, {{"Chain", "Legs"}}, "FreezeChain Legs done0"},
        {9, {{"Chain", "Arms"}}, "FreezeChain Arms done0"},
        {9, {{"Chain", "Tail"}}, "FreezeChain Tail there is no chain 'Tail' failed0"},
        {10, {{"Chain", "Arms"}}, "UnfreezeChain Arms done0"},
        {4, {}, "BlockAutonomousFocus done0"},
        {1, {{"Activity", "x"}}, "SwitchFocus x autonomous focus is blocked refused0"},
        {5, {}, "UnblockAutonomousFocus done0"},
        {1, {{"Activity", "x"}}, "SwitchFocus x done0"},
        {7,
         {{"Module", "Eyes"}, {"ConfigurationSet", "day"}},
         "SetConfiguration Eyes \"day\" done0"},
        {8,
         {{"Module", "KRNimbra"}, {"Method", "getState"}},
         "ApiCall KRNimbra.getState() = \"solitary\" done0"},
        {8,
         {{"Module", "KRNimbra"}, {"Method", 7}},
         "ApiCall ? a call needs the text parameter Method failed0"},
        {8,
         {{"Module", "KRNimbra"}, {"Method", "getState"}, {"Deadline", 1}},
         "ApiCall KRNimbra.getState() = \"solitary\" done0"},
        {2, {{"Deadline", 0}}, "StopFocus the deadline must be 1 second or more failed0"},
        {11, {}, "step of type 11 there is no step type 11 failed0"},
    };
    for (const auto& row : rows) {
        responder.processActions({rule("r", {row.type, row.parameters})}, {});
        EXPECT_EQ(lines.back(), std::string("step r ") + row.result);
    }
    platform.advance(std::chrono::seconds(2));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Legs"));
    EXPECT_EQ(sets, "day");
    EXPECT_THAT(lines, testing::IsSupersetOf({"focus r enough", "focus r x why"}));
}

TEST_F(ResponderTest, StepThatIsRefusedOrFailsDropsTheRestOfItsActionOnly)
{
    std::list<AutonomousAction> actions{rule("fails", call("none")), rule("refused", focusOn("x")),
                                        rule("last", {ActionItemStopFocus, {}})};
    for (AutonomousAction& each : actions)
        each.items.push_back({ActionItemUnblockAutonomousFocus, {}});
    life->blockAutonomousFocus();
    lines.clear();
    responder.processActions(actions, {});
    EXPECT_THAT(told(),
                ElementsAre("hit fails", HasSubstr("failed1"), "hit refused",
                            HasSubstr("blocked refused1"), "hit last", "step last StopFocus done1",
                            "life last", "step last UnblockAutonomousFocus done0"));
}

/// A service's answer that comes late or never, beside one that comes at once.
TEST_F(ResponderTest, StepThatHangsStallsItsOwnRuleAndThoseThatNameItOnly)
{
    std::vector<vo::Promise<void>> answers;
    platform.addService("Slow", "m", [&] {
        answers.emplace_back();
        return answers.back().future();
    });
    const auto slow = [&](const std::string& name) {
        AutonomousAction action =
            rule(name, {ActionItemApiCall, {{"Module", "Slow"}, {"Method", "m"}}});
        action.items.push_back({ActionItemUnblockAutonomousFocus, {}});
        return action;
    };
    AutonomousAction follower = rule("follower", focusOn("f"));
    follower.executeAfterIfSimultaneouslyTrue = {"leader"};
    AutonomousAction skipped = rule("skipped", focusOn("s"));
    skipped.skipIfRulesActive = {"leader"};
    AutonomousAction brief = slow("brief");
    brief.items.front().parameters["Deadline"] = 2;
    const AutonomousAction late = waiting("late", "leader");
    suggested = {late, follower};
    const std::list<AutonomousAction> hits{slow("leader"), follower, skipped,
                                           late,           brief,    rule("quick", focusOn("q"))};
    responder.processActions(hits, {});
    EXPECT_THAT(told(),
                ElementsAre("hit leader", "hit follower", "wait follower for the end of: leader",
                            "hit skipped", "skip skipped while active: leader", "hit late",
                            "wait late for the end of: leader", "hit brief", "hit quick",
                            "focus quick q", "step quick SwitchFocus q done0"));
    platform.advance(std::chrono::seconds(2));
    EXPECT_THAT(
        told(),
        ElementsAre(HasSubstr("brief ApiCall Slow.m() it has not ended within 2 s failed1")));
    answers[1].setValue();  // too late, and harmless
    EXPECT_THAT(told(), IsEmpty());
    answers[0].setValue();
    EXPECT_THAT(told(), ElementsAre("step leader ApiCall Slow.m() done1",
                                    "step leader UnblockAutonomousFocus done0", "resume follower",
                                    "focus follower f", "step follower SwitchFocus f done0",
                                    "resume late", "step late UnblockAutonomousFocus done0"));
    responder.processActions({slow("leader")}, {});
    responder.processActions({late}, {});
    told();
    platform.advance(kDefaultDeadline);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("within 30 s failed1"), "resume late",
                                    "step late UnblockAutonomousFocus done0"));
}

TEST_F(ResponderTest, SwitchComesAfterWhatComesBeforeItUnlessSomethingStopsIt)
{
    vo::Promise<void> answer;
    platform.addService("Slow", "m", [&] { return answer.future(); });
    for (const char* name : {"first", "second"}) {
        suggested.push_back(rule(name, {ActionItemApiCall, {{"Module", "Slow"}, {"Method", "m"}}}));
        suggested.back().synchronicity = ExecuteBeforeActivityIfConditionTrue;
    }
    suggested.front().items.push_back({ActionItemStopFocus, {}});
    const auto begin = [&](const char* activity) {
        answer = {};
        responder.processActions({rule("r", focusOn(activity))}, {});
        return told();
    };
    begin("x");
    platform.advance(kDefaultDeadline - std::chrono::seconds(1));
    answer.setValue();
    EXPECT_THAT(told(),
                ElementsAre("step first ApiCall Slow.m() done1", "step first StopFocus done0",
                            "hit second x", "step second ApiCall Slow.m() done0", "focus r x",
                            "step r SwitchFocus x done0"))
        << "its own stop does not count";
    EXPECT_THAT(begin("y"), ElementsAre("hit r", "hit first y"));
    life->blockAutonomousFocus();
    platform.advance(kDefaultDeadline);
    EXPECT_THAT(told(), ElementsAre("life", HasSubstr("within 30 s failed1"), "hit second y"));
    answer.setValue();
    EXPECT_THAT(told(), ElementsAre("step second ApiCall Slow.m() done0",
                                    "step r SwitchFocus y autonomous focus is blocked refused0"));
    life->unblockAutonomousFocus();
    begin("z");
    life->stopAll();
    answer.setValue();
    EXPECT_THAT(told(),
                ElementsAre("step r SwitchFocus z it was cancelled by a stop refused0", "focus",
                            "step first ApiCall Slow.m() done1", "step first StopFocus done0"));
}

TEST_F(ResponderTest, OfWhatIsToBeDoneOnNewPluginsTheLastCounts)
{
    std::string done;
    responder.onPluginsChanged();
    responder.setPluginsChanged([&] { done += "a"; });
    responder.onPluginsChanged();
    responder.setPluginsChanged([&] {
        done += "b";
        responder.setPluginsChanged({});
    });
    responder.onPluginsChanged();
    responder.onPluginsChanged();
    EXPECT_EQ(done, "ab");
}

}  // namespace
}  // namespace KR

#include <fstream>
#include <iterator>

#include "explain/Explainer.h"
#include "explain/ExplanationJson.h"
#include "explain/ExplanationText.h"
#include "explain/ThingExplainer.h"
#include "host/ConfigurationCheck.h"
#include "host/Player.h"
#include "host/RuleSources.h"
#include "robot/Scenario.h"
#include "tests/host/HostTest.h"
#include "timeline/Text.h"

namespace KR {
namespace {

using namespace std::chrono_literals;

std::vector<RuleSource> readFile(const std::string& path, const std::string& /*content*/)
{
    std::ifstream file(path, std::ios::binary);
    return readRuleSources("my.cfg", {std::istreambuf_iterator<char>(file), {}});
}

/// "- {Description: name, Condition: "condition", rest}".
std::string whyRule(const std::string& name, const std::string& condition, const std::string& rest)
{
    return "- {Description: " + name + ", Condition: \"" + condition + "\", " + rest + "}\n";
}

/// A host whose rules are explained from the beginning.
class WhyTest : public HostTest {
protected:
    void live(const std::string& rules, const std::vector<std::string>& names)
    {
        for (const std::string& name : names)
            explainers_.emplace_back(std::make_unique<Explainer>(name, readFile, nullptr));
        connection_ = stream.happened.connect([this](const Event& event) {
            for (const auto& explainer : explainers_)
                explainer->take(event);
        });
        start(rules);
        const auto silent = std::make_shared<vo::ServiceObject>("Silent");
        silent->method("answer", [this] { return never_.future(); });
        vo::Application::current().session().registerService(silent);
    }
    /// "A=1 +5 B=0": keys that are raised, and seconds that pass.
    void happen(const std::string& what)
    {
        std::istringstream words(what);
        for (std::string word; words >> word;) {
            if (word[0] == '+')
                clock->advance(std::chrono::seconds(std::stoi(word.substr(1))));
            else if (word == "stop")
                host->stop();
            else
                raise(word.substr(0, 1), std::stoi(word.substr(2)));
        }
        stream.flush();
    }
    nlohmann::ordered_json why(std::size_t rule)
    {
        return jsonOf(explainers_[rule]->answer(clock->now()));
    }
    ~WhyTest() override { connection_.disconnect(); }

private:
    vo::Promise<int> never_;
    std::vector<std::unique_ptr<Explainer>> explainers_;
    vo::Connection connection_;
};

TEST_F(WhyTest, EachGateIsPassedOrSaysWhyNot)
{
    const std::string edge = "ExecuteAnyTimeConditionEdgeTrue: true, ";
    const std::string freeze = "Action: FreezeChain, ActionParameters: {Chain: Legs}";
    const std::string hang =
        "Action: ApiCall, ActionParameters: {Module: Silent, Method: answer}, Deadline: 9";
    const struct {
        std::string rule;
        std::string condition;
        std::string rest;
        std::string happens;  ///< before it is asked about, after what the rows above did
        std::string gate;     ///< the first that was not passed, or not yet; "" where it acted
        std::string evidence = {};
    } rows[] = {
        {"early", "'A'", edge + freeze, "", "condition", "\"why\":\"never written; nothing"},
        {"talk", "'A'", edge + focusOn("dialog:a"), "A=1", ""},
        {"again", "'A'", edge + freeze, "+20 A=1", ""},
        {"skipped", "'B'", edge + "SkipIfRulesActive: [other, talk], " + freeze, "B=1", "skip",
         R"("because":["talk"],"reasons":["while active: talk"])"},
        {"waits", "'C'", edge + "ExcuteAfterActiveRules: talk, " + freeze, "C=1", "wait",
         R"("because":["talk"])"},
        {"switches", "'D'", edge + focusOn("dialog:b"), "D=1", ""},
        {"waited", "'C'", edge + "ExcuteAfterActiveRules: talk, " + freeze, "", ""},
        {"not there", "'E'", edge + focusOn("p/none"), "E=1", "permission",
         "no behaviour 'p/none' is installed"},
        {"fails", "'F'", edge + "Action: ApiCall, ActionParameters: {Module: None, Method: m}",
         "F=1", "step", R"("outcome":"failed")"},
        {"hangs", "'G'", edge + hang, "G=1", "step", "is under way"},
        {"behind", "'G'", edge + "ExecuteAfterIfSimultaniouslyTrue: hangs, " + freeze, "", "order",
         R"("because":["hangs"])"},
        {"late", "'G'", edge + hang, "+9", "deadline", "has not ended within 9 s"},
        {"first", "'H'", edge + freeze, "H=1", "", "1st of 2"},
        {"second", "'H'", edge + "ExecuteAfterIfSimultaniouslyTrue: first, " + freeze, "", "",
         "2nd of 2"},
        {"held", "'I' for 5 s", edge + freeze, "I=1 +4", "condition",
         "\"due\":\"2024-10-04T00:00:"},
        {"held long enough", "'I' for 5 s", edge + freeze, "+1", "", "as time passed"},
        {"blocks", "'J'", edge + "Action: BlockAutonomousFocus", "J=1", ""},
        {"blocked", "'K'", edge + focusOn("dialog:c"), "K=1", "focus",
         "autonomous focus is blocked, by \\\"blocks\\\", step 1"},
        {"before", "'A'", "ExecuteBeforeActivityIfConditionTrue: true, " + freeze, "+20", "edge"},
        {"stays", "'A'", "ExecuteAnyTimeConditionTrue: true, " + freeze, "+1", ""},
        {"broken", "'A", edge + freeze, "", "registered", "my.cfg:"},
        {"empty", "'A'", "ExecuteAnyTimeConditionEdgeTrue: true", "", "loaded", "my.cfg:"},
        {"unwatched", "'A'", edge + freeze, "stop", "monitored", "not watched any more"},
    };
    std::string rules;
    std::vector<std::string> names{"nobody"};
    for (const auto& row : rows) {
        rules += whyRule(row.rule, row.condition, row.rest);
        names.push_back(row.rule);
    }
    live(rules, names);
    EXPECT_EQ(why(0)["gates"][0]["passed"], false);
    EXPECT_TRUE(why(0)["source"].is_null());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        happen(rows[i].happens);
        const nlohmann::ordered_json answer = why(i + 1);
        std::string gate;
        for (const auto& each : answer["gates"]) {
            EXPECT_TRUE(gate.empty() || each["passed"].is_null()) << rows[i].rule;
            if (gate.empty() && each["passed"] != true)
                gate = each["gate"];
        }
        EXPECT_EQ(answer["gates"].size(), 14U) << rows[i].rule;
        EXPECT_EQ(gate, rows[i].gate) << rows[i].rule;
        EXPECT_EQ(answer["acted"], gate.empty()) << rows[i].rule;
        EXPECT_THAT(answer.dump(), HasSubstr(rows[i].evidence)) << rows[i].rule;
        EXPECT_THAT(explanationText(answer, 100), HasSubstr("my.cfg:")) << rows[i].rule;
    }
}

/// Whether the parts of a tree make its whole what it is.
bool isConsistent(const TruthNode& node)
{
    const auto isTrue = [](const TruthNode& each) { return each.truth; };
    const auto& parts = node.children;
    const bool isRight =
        node.kind == "all"   ? node.truth == std::all_of(parts.begin(), parts.end(), isTrue)
        : node.kind == "any" ? node.truth == std::any_of(parts.begin(), parts.end(), isTrue)
        : node.kind == "not" ? node.truth != parts.front().truth
        : node.kind == "for" ? !node.truth || parts.front().truth
                             : true;
    return isRight && std::all_of(parts.begin(), parts.end(), isConsistent);
}

TEST_F(WhyTest, TreesOfTheDemoDayAreTrueWhenTheCheckerSaysSo)
{
    const std::filesystem::path data = NIMBRA_TEST_DATA;
    useDemoPackages();
    const Scenario scenario = loadScenario(data / "demo-day.scenario.yaml");
    clock->advance(scenario.start - clock->now());
    const std::string config = data / "autonomy.cfg";
    const ConfigurationReport report = inspectConfiguration(config);
    std::vector<std::string> names = report.ruleNames();
    names.emplace_back("Action swithFocus to behavior daydream/dream");
    std::map<std::string, std::unique_ptr<Explainer>> explainers;
    for (const std::string& name : names)
        explainers[name] = std::make_unique<Explainer>(name, readFile, nullptr);
    std::set<std::string> hit;
    std::set<std::string> read;
    std::uint64_t lastWrite = 0;
    std::uint64_t after = 0;
    std::size_t compared = 0;
    std::size_t different = 0;
    const auto compare = [&] {
        std::set<std::string> truths;
        for (const AutonomousAction& action : host->launchpad().getActionSuggestions(7))
            truths.insert(action.description);
        for (const auto& [name, explainer] : explainers) {
            const auto tree = explainer->treeAt(clock->now());
            ASSERT_TRUE(tree) << name;
            const bool isSame = tree->truth == (truths.count(name) > 0);
            // The checker may have yet to come to what was written since.
            ASSERT_TRUE(isSame || lastWrite > after) << name << isoTime(clock->now());
            different += isSame ? 0 : 1;
            ASSERT_TRUE(isConsistent(*tree)) << name;
            ++compared;
        }
    };
    const vo::Connection followed = stream.happened.connect([&](const Event& event) {
        for (const auto& [name, explainer] : explainers)
            explainer->take(event);
        if (const auto* const monitoring = std::get_if<MonitoringSwitched>(&event.what))
            read = {monitoring->keys.begin(), monitoring->keys.end()};
        const auto* const write = std::get_if<KeyWritten>(&event.what);
        if (write && read.count(write->key) > 0)
            lastWrite = write->number;
        if (const auto* const found = std::get_if<HitsFound>(&event.what)) {
            for (const FoundHit& each : found->hits)
                hit.insert(each.rule);
            after = found->after;
        }
        if (std::holds_alternative<HitsTaken>(event.what))
            compare();
    });
    stream.publish(RunBegan{{}, config, {}, names, {}, {}});
    host.emplace(clock, stream, Host::Options{config, packages, report.plugins});
    clock->runPending();
    host->start();
    StopRequest stop;
    ASSERT_TRUE(Player(*host, *clock, stream, stop, {}).play(scenario, Player::endOf(scenario)));
    stream.flush();
    const RuleSource* const dream = explainers[names.back()]->life().rule(names.back());
    ASSERT_NE(dream, nullptr);
    EXPECT_EQ(dream->rule.condition, host->launchpad().getAction(names.back()).condition);
    EXPECT_GE(hit.size(), 25U);
    EXPECT_GT(compared, 5000U);
    EXPECT_LE(different, 3U);
    host->stop();
}

}  // namespace
}  // namespace KR

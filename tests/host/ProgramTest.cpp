#include <csignal>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/TemporaryFolder.h"

/// The built program, run as people run it.
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kData = NIMBRA_TEST_DATA;
const std::string kDemo = std::string(NIMBRA_TEST_PROGRAM) + " run --config " + kData +
                          "/autonomy.cfg --scenario " + kData +
                          "/demo-day.scenario.yaml --as-fast-as-possible --packages ";

struct Result {
    int exitCode;
    std::string output;  ///< stdout and, where it is not turned elsewhere, stderr
};

Result shell(const std::string& command)
{
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> block{};
    for (std::size_t n; (n = std::fread(block.data(), 1, block.size(), pipe)) > 0;)
        output.append(block.data(), n);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), output};
}

Result nimbra(const std::string& arguments)
{
    return shell(std::string(NIMBRA_TEST_PROGRAM) + " " + arguments + " 2>&1");
}

class ProgramTest : public testing::Test {
protected:
    ProgramTest()
    {
        // No configuration of the machine's. There is no other thread yet.
        for (const char* folders : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS"})
            setenv(folders, folder.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    }

    /// Plays the demo day with the packages that `./dev run` gives it.
    Result demo(const std::string& options, const std::string& tail = "2>&1") const
    {
        namespace fs = std::filesystem;
        const std::string packages = folder.path() + "/packages/";
        fs::remove_all(packages);
        fs::copy(kData + "/packages", packages, fs::copy_options::recursive);
        for (const char* later : {"night-light", "storyteller"})
            fs::remove_all(packages + later);
        return shell("bash -c '" + kDemo + packages + " " + options + " " + tail + "'");
    }

    TemporaryFolder folder;
    const std::string config = folder.write("good.cfg", R"(
ConfigurationDescription: d
ConfigurationVersion: "2.0"
AutonomousActions:
- {Description: r, Condition: "'A'", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopFocus}
)");
    const std::string scenario = folder.write("s.yaml", R"(
Scenario: s
Start: 2026-11-21 06:00:00
Timeline:
- {At: "06:00:01", Raise: {A: 1}, Call: {Module: Nobody, Method: m}}
- {At: "06:01", Raise: {A: 2}}
)");
};

TEST_F(ProgramTest, DemoDayIsTheSameEveryTimeAndHitsEveryRule)
{
    const Result first = demo("--json");
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(demo("--json").output, first.output);

    const std::size_t last = first.output.rfind('\n', first.output.size() - 2) + 1;
    const auto summary = nlohmann::json::parse(first.output.substr(last));
    EXPECT_GE(summary["rules"].size(), 15U);
    EXPECT_THAT(summary["neverHit"], IsEmpty());
    EXPECT_EQ(summary["errorCount"], 0) << summary["errors"];
}

TEST_F(ProgramTest, DemoDayUsesAllStepTypesAndAllListsOfTheTimeline)
{
    const std::string output = demo("--json").output;
    for (const char* step :
         {"SwitchFocus", "StopFocus", "StopAll", "BlockAutonomousFocus", "UnblockAutonomousFocus",
          "SetState", "SetConfiguration", "ApiCall", "FreezeChain", "UnfreezeChain"})
        EXPECT_THAT(output, HasSubstr("\"step\":\"" + std::string(step) + "\"")) << step;
    // The last two are installed while the day goes on.
    for (const char* activity :
         {"daydream/dream", "run_dialog/talk", "storyteller/tell", "night-light/glow"})
        EXPECT_THAT(output, HasSubstr("\"activity\":\"" + std::string(activity) + "\""));
    for (const char* event : {"skip", "wait", "resume"})
        EXPECT_THAT(output, HasSubstr("\"event\":\"" + std::string(event) + "\"")) << event;
}

TEST_F(ProgramTest, RunEndsWithItsExitCode)
{
    struct Row {
        std::string arguments;
        int exitCode;
        const char* output;
    };
    const std::string run = "run --config " + config + " ";
    const std::string play = run + "--scenario " + scenario + " ";
    const Row rows[] = {
        {play + "--as-fast-as-possible", 0, "Errors: 1"},
        {play + "--speed 100000", 0, "Summary: 1 min 10 s of life"},
        {play + "--as-fast-as-possible --until 2s", 0, "Summary: 2.000 s of life"},
        {play + "--as-fast-as-possible --until 06:00:30", 0, "Summary: 30.000 s of life"},
        {play + "--as-fast-as-possible --until 06:00:01", 0, "Errors: 1"},  // that entry, too
        {play + "--until 05:59", 2, "not after the start"},
        {play + "--speed 0", 2, "0.001"},
        {play + "--speed nan", 2, "0.001"},
        {play + "--speed 2 --as-fast-as-possible", 2, "excludes"},
        {run + "--speed 2", 2, "requires"},
        {run + "--until 1y", 2, "is no time"},
        {"plugins --config " + config, 0,
         "_LaunchpadPluginBattery       solitary, interactive  yes      yes "},
        {"plugins --config " + config + " --packages " + config, 1, "nimbra: "},
        {run + "--until 2147483647d", 2, "366 days"},
        {run + "--until=-1d", 2, "not after the start"},
        {run + "--log-level loud", 2, "loud"},
        {"", 2, "subcommand"},
        {"--help", 0, "check"},
        {"run --until 1s", 1, "no tessel/autonomy.cfg"},
        {"run --until 1s --config " + folder.path() + "/missing", 1, "No such file"},
        {"run --until 1s --config " + scenario, 1, "ConfigurationVersion"},
        {run + "--scenario " + folder.path() + "/missing", 1, "No such file"},
        {run + "--scenario " + config, 1, "unknown key 'ConfigurationDescription'"},
    };
    for (const Row& row : rows) {
        const Result result = nimbra(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments << "\n" << result.output;
        EXPECT_THAT(result.output, HasSubstr(row.output)) << row.arguments;
    }
}

TEST_F(ProgramTest, OutputIsPlainWhenPipedAndMayBeCutShort)
{
    EXPECT_THAT(demo("--until 07:00").output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(demo("--until 07:00", "2>&1 | head -n 1; echo ${PIPESTATUS[0]}").output,
                HasSubstr("The last day of the year in the hall\n0\n"));
    EXPECT_EQ(demo("--until 07:00", "2>&1 >/dev/full").exitCode, 1);
}

/// Runs the program until its first line is there, sends it signals, all at once, and waits for its
/// end. What it printed after its first line.
Result signalled(std::vector<std::string> arguments, const std::vector<int>& signals)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    arguments.insert(arguments.begin(), NIMBRA_TEST_PROGRAM);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    close(ends[1]);
    std::array<char, 4096> block{};
    EXPECT_GT(read(ends[0], block.data(), block.size()), 0);
    kill(child, SIGSTOP);
    for (const int signal : signals)
        kill(child, signal);
    kill(child, SIGCONT);
    std::string output;
    for (ssize_t n; (n = read(ends[0], block.data(), block.size())) > 0;)
        output.append(block.data(), static_cast<std::size_t>(n));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), output};
}

/// Real time, as a signal comes from outside: whatever the program is doing, it ends in order.
TEST_F(ProgramTest, SignalEndsARunInOrder)
{
    const std::vector<std::string> live = {"run", "--config", config};
    const std::vector<std::string> play = {"run", "--config", config, "--scenario", scenario};
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const Result lived = signalled(live, {signal});
        EXPECT_EQ(lived.exitCode, 0) << signal;
        EXPECT_THAT(lived.output, HasSubstr("Summary")) << signal;
        const Result played = signalled(play, {signal});
        EXPECT_EQ(played.exitCode, 128 + signal);
        EXPECT_THAT(played.output, HasSubstr("Summary")) << signal;
    }
}

TEST_F(ProgramTest, SecondSignalEndsARunAtOnce)
{
    EXPECT_EQ(signalled({"run", "--config", config}, {SIGINT, SIGTERM}).exitCode, -SIGTERM);
}

TEST_F(ProgramTest, CheckNamesEveryFaultWithItsPlace)
{
    const std::string faulty = folder.write("faulty.cfg", R"(ConfigurationDescription: d
ConfigurationVersion: "2.0"
AutonomousActions:
- {Condition: "'A'"}
- {Description: b}
- {Description: c, Condition: "'A'"}
- {Description: d, Condition: "'A'", ExecuteAnyTimeConditionTrue: true}
- {Description: e, Condition: "'A'", ExecuteAnyTimeConditionTrue: true, Action: Dance}
- {Description: f, Condition: "'A'", ExecuteAnyTimeConditionTrue: maybe, Action: StopAll}
- {Description: g, Condition: "'A' &&", ExecuteAnyTimeConditionTrue: true, Action: StopAll}
- Description: h
  Condition: 'true == )'
  ExecuteAnyTimeConditionTrue: true
  SkipIfRulesActive: {a: b}
  Actions:
  - {}
  - Action: SetState
  - Action: SwitchFocus
  - {Action: SetConfiguration, ActionParameters: {ConfigurationSet: s}}
  - {Action: SetConfiguration, ActionParameters: {Module: m}}
  - Action: FreezeChain
  - Action: UnfreezeChain
  - Action: ApiCall
  - {Action: ApiCall, ActionParameters: {Module: m}}
  - Action: StopAll
- Description: i
  Condition: >-
    'A'
    || ||
  ExecuteAnyTimeConditionTrue: true
  ExcuteAfterActiveRules: [x, [y]]
  Action: StopAll
)");
    const Result result = nimbra("check " + faulty);
    EXPECT_EQ(result.exitCode, 1);
    std::vector<std::string> lines;
    std::istringstream in(result.output);
    for (std::string line; std::getline(in, line);) {
        ASSERT_EQ(line.rfind(faulty + ":", 0), 0U) << line;
        lines.push_back(line.substr(faulty.size() + 1));
    }
    EXPECT_THAT(
        lines,
        ElementsAre(
            "4:3: Found an action without Description, skipping",
            "5:3: Found an action without Condition, skipping: b",
            StartsWith("6:3: Found an action without execution synchronicity, skipping: c; "
                       "expected one of ExecuteAnyTimeConditionTrue, "),
            "7:3: No Action item or Actions list item, skipping: d",
            "8:3: e had no valid actions and was ignored",
            StartsWith("8:81: Found Action item with invalid type: Dance inside of: e, skipping "
                       "it; expected one of SwitchFocus, "),
            "9:67: bad conversion, expected true or false: loading stops here",
            HasSubstr("10:38: the condition of 'g' does not parse: expected"),
            HasSubstr("12:23: the condition of 'h' does not parse: expected"),
            "14:22: SkipIfRulesActive item must be a list or string. Ignoring it for: h",
            "16:5: Found Action item without type inside of: h, skipping it; expected a mapping "
            "with the key Action",
            "17:5: Found a SetState action without State parameter, skipping: SetState inside of: "
            "h",
            "18:5: Found a SwitchFocus action without Activity parameter, skipping: SwitchFocus "
            "inside of: h",
            "19:5: Found a SetConfiguration action without module parameter, skipping: "
            "SetConfiguration inside of: h",
            "20:5: Found a SetConfiguration action without ConfigurationSet parameter, skipping: "
            "SetConfiguration inside of: h",
            "21:5: Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: "
            "FreezeChain inside of: h",
            "22:5: Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: "
            "UnfreezeChain inside of: h",
            "23:5: Found an ApiCall action without ActionParameters, skipping: ApiCall inside of: "
            "h",
            HasSubstr("24:41: Skipping: ApiCall inside of: h: "),
            HasSubstr("27:14: the condition of 'i' does not parse: at its 1:8: expected"),
            "31:31: Itmes under ExcuteAfterActiveRules must be strings. Ignoring it for: i",
            "31:28: warning: no rule is called 'x'"));
}

TEST_F(ProgramTest, CheckIsQuietAboutGoodFilesAndSortsTheOthers)
{
    EXPECT_EQ(nimbra("check " + config + " " + kData + "/autonomy.cfg").exitCode, 0);
    const std::string a = folder.write("a.cfg", "x: [\n");
    const std::string b = folder.write("b.cfg", "ConfigurationVersion: \"3\"\n");
    const std::string c = folder.write("c.cfg", "");
    const Result result = nimbra("check " + c + " " + b + " " + a + " " + b);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_LT(result.output.find(a + ":"), result.output.find(b + ":1:1: "));
    EXPECT_LT(result.output.find(b + ":1:23: "), result.output.find(c + ":1:1: "));
    EXPECT_EQ(nimbra("check " + folder.path()).exitCode, 2);
    EXPECT_EQ(nimbra("check " + a + " " + folder.path() + "/missing").exitCode, 2);
}

}  // namespace

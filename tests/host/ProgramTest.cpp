#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <csignal>
#include <cstring>
#include <fstream>
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
        // Nothing of the machine's. There is no other thread yet.
        // NOLINTBEGIN(concurrency-mt-unsafe)
        for (const char* folders : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS"})
            setenv(folders, folder.path().c_str(), 1);
        unsetenv("COLUMNS");
        setenv("TERM", "xterm", 1);
        // NOLINTEND(concurrency-mt-unsafe)
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
- {At: "06:00:01", Raise: {A: 1, B: 2}, Call: {Module: Nobody, Method: m}}
- {At: "06:00:01", Say: Again, Raise: {B: 2, A: 0}}
- {At: "06:01", Raise: {A: 2}, Say: Last}
)");
};

TEST_F(ProgramTest, DemoDayIsTheSameEveryTimeAndHitsEveryRule)
{
    const Result first = demo("--json", "2>/dev/null");
    EXPECT_EQ(first.exitCode, 0);
    setenv("TZ", "Asia/Tokyo", 1);  // NOLINT(concurrency-mt-unsafe): as above
    EXPECT_EQ(demo("--json", "2>/dev/null").output, first.output);
    unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)

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

TEST_F(ProgramTest, ScenarioIsPlayedInItsOrderToTheEntryAtItsVeryEnd)
{
    const std::string play = "run --config " + config + " --scenario " + scenario +
                             " --as-fast-as-possible --log-level silent --until 06:01";
    const std::string output = nimbra(play + " | grep -v plugin").output;
    EXPECT_EQ(output, "s\n1 rule from " + config + R"(; times are UTC

Saturday, 21 November 2026

06:00:01        A                                       1
                B                                       2
              » ✗ Nobody.m() failed: no service named 'Nobody'
              ● r
                  ✓ StopFocus
              » Again
                A                                       0
06:01:00        A                                       2
              » Last
              ● r
                  ✓ StopFocus

Summary: 1 min 00 s of life, 2 hits of 1 rule

  hits  done  skipped  refused  failed  rule
     2     2        -        -       -  r

Never hit: 0
Refused: 0
Errors: 1
  1 × Nobody.m(): no service named 'Nobody'
)");
    const auto begin = std::chrono::steady_clock::now();
    std::string paced = play;
    boost::replace_all(paced, "--as-fast-as-possible", "--speed 500");
    EXPECT_EQ(nimbra(paced + " | grep -v plugin").output, output);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(120));
    const Result json = nimbra(play + " --json");
    EXPECT_EQ(json.exitCode, 0);
    EXPECT_THAT(json.output,
                testing::StartsWith(R"({"time":"2026-11-21T06:00:00.000000Z","event":"start",)"
                                    R"("scenario":"s","config":")" +
                                    config + R"(","rules":["r"]})"));
    EXPECT_THAT(json.output, HasSubstr(R"("event":"summary","interrupted":false,)"
                                       R"("rules":[{"rule":"r","hits":2,"done":2,"skipped":0,)"
                                       R"("refused":0,"failed":0}],"neverHit":[],)"
                                       R"("refusedCount":0,"refused":[],"errorCount":1,)"
                                       R"("errors":[{"text":"Nobody.m)"));
}

TEST_F(ProgramTest, CommandsEndWithTheirExitCode)
{
    struct Row {
        std::string arguments;
        int exitCode;
        std::string output;
    };
    const std::string run = "run --config " + config + " ";
    const std::string play = run + "--scenario " + scenario + " ";
    const std::string none = folder.path() + "/none";
    const std::string empty =
        folder.write("empty.yaml", "{Scenario: e, Start: 2026-11-21 06:00, Timeline: []}");
    folder.write("broken/x/package.yaml", "");
    const std::string broken = folder.path() + "/broken";
    const std::string useless = R"( --until "" --config "" --packages "" --scenario "")";
    const auto flip = [](const char* from, const char* to) {
        return std::string("- {Description: ") + to + ", Condition: \"'A' == " + from +
               "\", ExecuteAnyTimeConditionEdgeTrue: true, Action: ApiCall, ActionParameters: "
               "{Module: KRMemory, Method: raiseEvent, Args: [A, " +
               to + "]}}\n";
    };
    const std::string endless =
        folder.write("endless.cfg",
                     "ConfigurationDescription: d\nConfigurationVersion: 2\nAutonomousActions:\n" +
                         flip("1", "2") + flip("2", "1"));
    const Row rows[] = {
        {"run --config " + endless + " --as-fast-as-possible --scenario " + scenario, 1,
         ", at 06:00:01\n"},
        {run + "--until 1s --json", 0, "\"event\":\"start\",\"scenario\":null,"},
        {"permissions dialog:x --asleep --on-pod --state interactive --language French", 0,
         "In the state \"interactive\", asleep, on the charging station, speaking French:\n"
         "dialog:x  may run\n"},
        {"permissions --packages " + broken, 1, "package.yaml"},
        {run + "--json --as-fast-as-possible --scenario " + empty, 0, "\"neverHit\":[\"r\"]"},
        {"permissions dialog:x", 0,
         "In the state \"solitary\", awake, off the charging station, speaking English:\n"},
        {run + "--as-fast-as-possible --scenario " + empty, 0, "Summary: 10.000 s of life"},
        {play + "--speed 1000000000 --plugin PerceptionHeavy --plugin PerceptionHeavy", 0,
         "plugin _LaunchpadPluginPerceptionHeavy starts"},
        {play + "--speed 1000000001", 2, "0.001"},
        {play + "--speed 0.001 --until 05:59", 2, "not after the start"},
        {play + "--speed 0.0009", 2, "0.001"},
        {"run" + useless, 2, "must not be empty"},
        {play + "--preferences ''", 2, "--preferences: must not be empty"},
        {"keys --config ''", 2, "--config: must not be empty"},
        {play + "--until ''", 2, "--until: must not be empty"},
        {play + "--packages ''", 2, "--packages: must not be empty"},
        {play + "--packages " + none, 1, "there is no packages folder '" + none + "'"},
        {"plugins --packages " + none, 1, "there is no packages folder '" + none + "'"},
        {"permissions --packages " + none, 1, "there is no packages folder '" + none + "'"},
        {"package install " + kData + "/packages/power --packages " + none + "/x", 1,
         "'" + none + "/x' is no folder: No such file"},
        {"package install " + kData + "/packages/power --packages " + folder.path() + "/new", 0,
         "Made the packages folder " + folder.path() + "/new\nInstalled power"},
        {"chekc " + config, 2,
         "no command 'chekc'; did you mean 'check'?\n  there are: run, check"},
        {"package lits --packages x", 2, "no command 'lits'; did you mean 'list'?"},
        {"package", 2, "a command is missing\n  there are: install, remove, list, info"},
        {"--versoin", 2, "'--versoin' is not expected; did you mean '--version'?"},
        {"--version", 0, "nimbra 0."},
        {run + "--scenaro=x y", 2,
         "'--scenaro=x' is not expected; did you mean '--scenario'?\n  'y' is not expected\n"},
        {"run --until 1s", 0, "share/tessel/autonomy.cfg; times are UTC"},
        {"plugins", 0, "_LaunchpadPluginHumanTracked     solitary,    yes      yes "},
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
         "_LaunchpadPluginBattery       solitary,    yes      yes      Launchpad/BatteryLevel,\n"},
        {"plugins --config " + config + " --packages " + config, 1, "nimbra: "},
        {run + "--until 2147483647d", 2, "366 days"},
        {run + "--until=-1d", 2, "not after the start"},
        {run + "--log-level loud", 2, "loud"},
        {"", 2, "a command is missing\n  there are: run, check"},
        {"--help", 0, "check"},
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
    EXPECT_FALSE(std::filesystem::exists(none));

    const std::string installed = folder.write("tessel/autonomy.cfg", "");
    std::filesystem::copy_file(config, installed,
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_THAT(nimbra("run --until 1s").output, HasSubstr("1 rule from " + installed));
    // Alone, with no rules around it.
    std::filesystem::remove(installed);
    std::filesystem::copy_file(NIMBRA_TEST_PROGRAM, folder.path() + "/nimbra");
    const Result alone = shell(folder.path() + "/nimbra plugins 2>&1");
    EXPECT_EQ(alone.exitCode, 1);
    EXPECT_THAT(alone.output, HasSubstr("no autonomy.cfg in " + folder.path() + "/tessel, "));
    EXPECT_THAT(alone.output, HasSubstr("--config FILE"));
}

/// How many characters the longest line has.
std::size_t widthOf(const std::string& text)
{
    std::size_t widest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        widest = std::max(
            widest, static_cast<std::size_t>(std::count_if(line.begin(), line.end(), [](char c) {
                return (c & 0xC0) != 0x80 && c != '\r';
            })));
    return widest;
}

/// What a text holds but blanks, in whatever order.
std::string inkOf(std::string text)
{
    boost::erase_all(text, " ");
    boost::erase_all(text, "\r");
    boost::erase_all(text, "\n");
    std::sort(text.begin(), text.end());
    return text;
}

TEST_F(ProgramTest, ListsFitTheTerminalOrAHundredColumnsAndLoseNothing)
{
    const std::string packages = " --packages " + kData + "/packages";
    for (const std::string& command :
         {"keys --config " + config, std::string("plugins"), "permissions --on-pod" + packages,
          "package list" + packages, "package info run_dialog" + packages}) {
        const std::string program = std::string(NIMBRA_TEST_PROGRAM) + " " + command;
        const std::string wide = shell("COLUMNS=1000 " + program).output;
        for (const auto& [width, output] :
             {std::pair(100U, shell(program).output),
              {100U, shell("COLUMNS=0 " + program).output},
              {70U, shell("COLUMNS=70 " + program).output},
              {60U,
               shell("script -qec 'stty cols 60; " + program + "' /dev/null </dev/null").output}}) {
            EXPECT_LE(widthOf(output), width) << output;
            EXPECT_TRUE(inkOf(output) == inkOf(wide)) << width << "\n" << output;
        }
    }
}

TEST_F(ProgramTest, KeysAreListedWithWhatTheyHoldAndWhoUsesThem)
{
    const std::string text = nimbra("keys --config " + config).output;
    EXPECT_THAT(text, testing::StartsWith("A\n    published by nobody; read by rules\nDevice/"));
    for (const char* part : {"\nLaunchpad/BatteryLevel: integer, 1 to 5 (empty: -1)\n    fifth of "
                             "the charge; published "
                             "by _LaunchpadPluginBattery\n",
                             "\n    life state; published by KRNimbra; read by ContextPermission, "
                             "_LaunchpadPluginActivities\n",
                             "\nLaunchpad/Lifted: boolean (empty: none)\n"})
        EXPECT_THAT(text, HasSubstr(part));
    const std::string json = nimbra("keys --json --config " + config).output;
    for (const char* line :
         {R"({"key":"A","type":"any","publishers":[],"readers":["rules"],"meaning":""})",
          R"({"key":"Launchpad/BatteryStatus","type":"text","values":["Critical","Low","Half",)"
          R"("Full"],"empty":"None","publishers":["_LaunchpadPluginBattery"],"readers":[],)"
          R"("meaning":"charge in a word"})",
          R"("type":"integer","min":1.0,"max":5.0,"empty":-1,)"})
        EXPECT_THAT(json, HasSubstr(line));
}

TEST_F(ProgramTest, OutputIsPlainWhenPipedAndMayBeCutShort)
{
    EXPECT_THAT(demo("--until 07:00").output, Not(HasSubstr("\x1b")));
    const std::string onTerminal =
        " script -qec '" + kDemo + "/ --until 05:56' /dev/null </dev/null";
    EXPECT_THAT(shell(onTerminal).output, HasSubstr("\x1b[1mThe last day"));
    EXPECT_THAT(shell("NO_COLOR= " + onTerminal).output, HasSubstr("\x1b"));
    for (const char* plain : {"NO_COLOR=1", "TERM=dumb"})
        EXPECT_THAT(shell(plain + onTerminal).output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(demo("--until 07:00", "2>&1 | head -n 1; echo ${PIPESTATUS[0]}").output,
                HasSubstr("The last day of the year in the hall\n0\n"));
    EXPECT_EQ(demo("--until 07:00", "2>&1 >/dev/full").exitCode, 1);
}

TEST_F(ProgramTest, WhatBehavioursPrintIsShownUnlessLessIsAskedFor)
{
    EXPECT_THAT(demo("--until 08:01", "2>&1 >/dev/null").output,
                HasSubstr(" [info] [Behavior] power/leave-station: Two steps forward, off the"));
    EXPECT_EQ(demo("--until 08:01 --log-level error", "2>&1 >/dev/null").output, "");
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
        EXPECT_THAT(lived.output, HasSubstr(" hits of 1 rule\n")) << signal;
        const Result played = signalled(play, {signal});
        EXPECT_EQ(played.exitCode, 128 + signal);
        EXPECT_THAT(played.output, HasSubstr(" hits of 1 rule, interrupted\n")) << signal;
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
    // The steps as the documentation has them.
    std::ifstream docs(kData + "/../docs/autonomy-cfg.md");
    const std::string text{std::istreambuf_iterator<char>(docs), {}};
    const std::size_t steps = text.find("```yaml\nActions:") + std::strlen("```yaml\n");
    const std::string written =
        folder.write("docs.cfg",
                     "ConfigurationDescription: d\nConfigurationVersion: 2\nAutonomousActions:\n-\n"
                     "  Description: r\n  Condition: \"'Nimbra/Asleep'\"\n"
                     "  ExecuteAnyTimeConditionEdgeTrue: true\n  " +
                         boost::replace_all_copy(
                             text.substr(steps, text.find("```", steps) - steps), "\n", "\n  "));
    const Result documented = nimbra("check " + written);
    EXPECT_EQ(documented.output, "");
    EXPECT_EQ(documented.exitCode, 0);
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

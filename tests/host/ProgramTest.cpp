#include <boost/algorithm/string.hpp>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/wait.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

/// The built program, run as people run it.
namespace {

using testing::Not;
using testing::StartsWith;

const std::string kData = NIMBRA_TEST_DATA;
const std::string kHead =
    "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\nAutonomousActions:\n";
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
        for (const char* folders : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "folder"})
            setenv(folders, folder.path().c_str(), 1);
        for (const auto& [name, value] : {std::pair("config", config),
                                          {"scenario", scenario},
                                          {"data", kData},
                                          {"nimbra", std::string(NIMBRA_TEST_PROGRAM)}})
            setenv(name, value.c_str(), 1);
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
    const std::string good =
        kHead +
        "- {Description: r, Condition: \"'A'\", ExecuteAnyTimeConditionEdgeTrue: true, "
        "Action: StopFocus}\n";
    const std::string config = folder.write("good.cfg", good);
    const std::string scenario = folder.write("s.yaml", R"(
Scenario: s
Start: 2026-11-21 06:00:00
Timeline:
- {At: "06:00:01", Raise: {A: 1, B: 2}, Call: {Module: Nobody, Method: m}}
- {At: "06:00:01", Say: Again, Raise: {B: 2, A: 0}}
- {At: "06:01", Raise: {A: 2}, Say: Last}
)");
};

TEST_F(ProgramTest, DemoDayIsTheSameEveryTimeAndHitsEveryRuleWithAllThatARuleCanDo)
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
    for (const char* step :
         {"SwitchFocus", "StopFocus", "StopAll", "BlockAutonomousFocus", "UnblockAutonomousFocus",
          "SetState", "SetConfiguration", "ApiCall", "FreezeChain", "UnfreezeChain"})
        EXPECT_THAT(first.output, HasSubstr("\"step\":\"" + std::string(step) + "\""));
    // The last two are installed while the day goes on.
    for (const char* activity :
         {"daydream/dream", "run_dialog/talk", "storyteller/tell", "night-light/glow"})
        EXPECT_THAT(first.output, HasSubstr("\"activity\":\"" + std::string(activity) + "\""));
    for (const char* event : {"skip", "wait", "resume"})
        EXPECT_THAT(first.output, HasSubstr("\"event\":\"" + std::string(event) + "\""));
}

TEST_F(ProgramTest, ARecordedDemoDayIsShownAsItWasPlayed)
{
    for (const std::string file : {"$folder/day", "$folder/day.zst"}) {
        for (const std::string look : {"", " --json"}) {
            const Result played = demo("--record " + file + look, "2>/dev/null");
            EXPECT_EQ(played.exitCode, 0);
            const Result shown = nimbra("timeline " + file + look);
            EXPECT_EQ(shown.exitCode, 0);
            EXPECT_TRUE(shown.output == played.output) << shown.output.substr(0, 1000);
        }
    }
    // A part: the event at its end is the last one, and what came before it counts.
    const std::string part =
        nimbra("timeline $folder/day.zst --json --from 08:00 --until 08:00:10").output;
    EXPECT_THAT(part, StartsWith(R"({"time":"2026-12-31T08:00:00.000000Z","event":"start","scen)"));
    EXPECT_THAT(part,
                HasSubstr(R"("2026-12-31T08:00:10.000000Z","event":"key","key":"KRBattery/)"));
    EXPECT_THAT(part, HasSubstr(R"("2026-12-31T08:00:10.000000Z","event":"summary","inter)"));
    EXPECT_EQ(std::count(part.begin(), part.end(), '\n'), 7) << part;

    const auto trace =
        nlohmann::json::parse(nimbra("timeline $folder/day --format chrome").output)["traceEvents"];
    std::map<std::string, std::map<int, nlohmann::json>> arrows;
    std::map<std::pair<int, int>, std::int64_t> ends;
    for (const auto& each : trace) {
        const std::string phase = each["ph"];
        if (each.contains("id"))
            arrows[phase][each["id"]] = each;
        if (phase != "X" || each["pid"] == 4)
            continue;
        std::int64_t& end = ends[{each["pid"], each["tid"]}];
        EXPECT_GE(each["ts"], end) << each << " lies upon another";
        end = each["ts"].get<std::int64_t>() + each["dur"].get<std::int64_t>();
    }
    EXPECT_GE(arrows["f"].size(), 20U);
    EXPECT_EQ(arrows["s"].size(), arrows["t"].size());
    for (const auto& [id, end] : arrows["f"]) {
        EXPECT_EQ(arrows["s"][id]["pid"], 4);
        EXPECT_EQ(arrows["t"][id]["tid"], end["tid"]);
        EXPECT_LE(arrows["s"][id]["ts"], arrows["t"][id]["ts"]);
        EXPECT_LT(arrows["t"][id]["ts"], end["ts"]);
    }
}

TEST_F(ProgramTest, ARecordingThatIsNotWholeIsShownAndItsLossesAreTold)
{
    const std::string play =
        "run --config $config --scenario $scenario --as-fast-as-possible --record ";
    const std::string output = nimbra(play + "$folder/s").output;
    EXPECT_EQ(
        shell("sed -i '/\"Again\"/d' $folder/s; $nimbra timeline $folder/s 2>$folder/told").output,
        boost::replace_first_copy(output, "              » Again\n", ""));
    EXPECT_THAT(shell("cat $folder/told").output,
                testing::MatchesRegex("nimbra: .*/s:[0-9]+: line [0-9]+ is missing before it, at "
                                      "byte [0-9]+\n"));
    EXPECT_EQ(nimbra("timeline $folder/s").exitCode, 1);
    // What the disk refuses is told; the run goes on.
    const Result full = nimbra(play + "/dev/full");
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_THAT(full.output, HasSubstr("the recording ends here: /dev/full: No space left"));
    EXPECT_THAT(full.output, HasSubstr("2 hits of 1 rule\n"));
    EXPECT_EQ(shell("ulimit -f 1; $nimbra " + play + "$folder/small 2>&1 >/dev/null").exitCode, 1);
    EXPECT_THAT(nimbra("timeline $folder/small").output, HasSubstr("not closed"));

    // Killed, when the first line has come out; real time, as nothing else is killed.
    folder.write("killed", R"(
mkfifo $folder/pipe
$nimbra run --config $config --record $folder/pipe >/dev/null &
exec 3<$folder/pipe
read -u 3 line && kill -9 $! && (echo "$line"; cat <&3) >$folder/live
$nimbra timeline $folder/live 2>&1
)");
    const Result killed = shell("bash $folder/killed 2>&1");
    EXPECT_EQ(killed.exitCode, 1);
    EXPECT_THAT(killed.output, HasSubstr("Live\n1 rule from " + config));
    EXPECT_THAT(killed.output, HasSubstr("live: it was not closed: "));
    EXPECT_THAT(killed.output, HasSubstr(" hits of 1 rule, interrupted\n"));
}

TEST_F(ProgramTest, ALiveRunKeepsItsHistoryBesideItsRecordingAndLeavesNoOther)
{
    folder.write("history", R"(
mkdir $folder/tmp; export TMPDIR=$folder/tmp; run="$nimbra run --config $config --until 1s"
$run --record $folder/r --history $folder/h.zst >/dev/null &
exec 3< <($run); read -u 3 line; ls $TMPDIR/*; cat <&3 >/dev/null; wait; ls $TMPDIR
cmp <($nimbra timeline $folder/r) <($nimbra timeline $folder/h.zst) && echo same
TMPDIR=/none $run 2>&1 | grep -o 'hour is not kept')");
    EXPECT_EQ(shell("bash $folder/history 2>&1").output, "history.zst\nsame\nhour is not kept\n");
}

TEST_F(ProgramTest, ScenarioIsPlayedInItsOrderToTheEntryAtItsVeryEnd)
{
    const std::string play =
        "run --config $config --scenario $scenario --as-fast-as-possible --log-level silent"
        " --until 06:01";
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
    EXPECT_THAT(json.output, StartsWith(R"({"time":"2026-11-21T06:00:00.000000Z","event":"start",)"
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
    folder.write("empty.yaml", "{Scenario: e, Start: 2026-11-21 06:00, Timeline: []}");
    folder.write("broken/x/package.yaml", "");
    folder.write("endless.cfg", kHead + R"(
- {Description: a, Condition: "'A' == 1", ExecuteAnyTimeConditionEdgeTrue: true, Action: ApiCall,
   ActionParameters: {Module: KRMemory, Method: raiseEvent, Args: [A, 2]}}
- {Description: b, Condition: "'A' == 2", ExecuteAnyTimeConditionEdgeTrue: true, Action: ApiCall,
   ActionParameters: {Module: KRMemory, Method: raiseEvent, Args: [A, 1]}}
)");
    // The exit code, the arguments, and a part of what is printed, where "|" ends a line.
    std::istringstream rows(R"(
        1 run --config $folder/endless.cfg --as-fast-as-possible --scenario $scenario => , at 06:00:01|
        0 $run --until 1s --json => "event":"start","scenario":null,
        0 $run --json --as-fast-as-possible --scenario $folder/empty.yaml => "neverHit":["r"]
        0 $run --as-fast-as-possible --scenario $folder/empty.yaml => Summary: 10.000 s of life
        0 run --until 1s => share/tessel/autonomy.cfg; times are UTC
        2 $run --speed 2 => requires
        2 $run --log-level loud => loud
        2 $run --record-size 5M => --record-size requires --record
        2 $play --record $folder/r --record-size 1M => '1M' is too small for a recording: it takes 2M
        2 $play --record $folder/r --record-size 18446744073709551615K => is no size
        2 $play --history $folder/h => --scenario excludes --history
        2 $run --record $folder/r --history $folder/new/../r => --history and --record both name
        2 $play --record $folder/r --record-age 367d => '367d' is not from 1m to 366d
        0 $play --as-fast-as-possible --record $folder/r.zst --record-size 2M --record-age 1m => Summary: 1 min 10
        1 $play --as-fast-as-possible --record $config => good.cfg is no recording, so it is not overwritten
        2 timeline $config => good.cfg is no recording
        2 timeline $folder/r.zst --from 05:59 => '05:59' is not after the start
        2 timeline $folder/r.zst --format svg => svg
        2 timeline $folder/none => No such file
        2 $run --scenaro=x y => '--scenaro=x' is not expected; did you mean '--scenario'?|  'y' is
        1 run --config $folder/none --until 1s => No such file
        1 run --config $scenario --until 1s => ConfigurationVersion
        1 $run --scenario $config => unknown key 'ConfigurationDescription'
        0 $play --speed 1000000000 --plugin PerceptionHeavy --plugin PerceptionHeavy => PerceptionHeavy starts
        2 $play --speed 1000000001 => 0.001
        2 $play --speed 0.001 --until 05:59 => not after the start
        2 $play --speed 0.0009 => 0.001
        2 $play --speed nan => 0.001
        2 $play --speed 2 --as-fast-as-possible => excludes
        0 $play --speed 100000 => Summary: 1 min 10 s of life
        0 $play --as-fast-as-possible --until 06:00:01 => Errors: 1
        2 $play --until '' => --until: must not be empty
        2 $play --packages '' => --packages: must not be empty
        1 $play --packages $folder/none => there is no packages folder '$folder/none'
        1 plugins --packages $folder/none => there is no packages folder '$folder/none'
        1 permissions --packages $folder/none => there is no packages folder '$folder/none'
        1 permissions --packages $folder/broken => package.yaml
        0 permissions dialog:x => In the state "solitary", awake, off the charging station, speaking English:|
        0 permissions dialog:x --asleep --on-pod --state interactive --language French => "interactive", asleep, on the charging station, speaking French:|dialog:x  may run|
        1 package install $data/packages/power --packages $folder/none/x => '$folder/none/x' is no folder: No such file
        0 package install $data/packages/power --packages $folder/new => Made the packages folder $folder/new|
        0 plugins => _LaunchpadPluginHumanTracked     solitary,    yes      yes
        1 plugins --packages $config => nimbra:
        2 chekc $config => no command 'chekc'; did you mean 'check'?|  there are: run, timeline, replay, why
        2 package lits --packages x => no command 'lits'; did you mean 'list'?
        2 package => a command is missing|  there are: install, remove, list, info
        2 --versoin => '--versoin' is not expected; did you mean '--version'?
        0 $why r --at 06:00:11 => acted at 06:00:01|
        0 $why r --at 06:00:11.001 => did not act at 06:00:11.001|
        0 $why r --between 06:00:10 "2026-11-21 06:00:50" => last true until 06:00:01, for a moment|
        1 $why s => There is no rule "s".|
        1 $why --activity x => There is no activity "x".|
        0 $why --key A => A   2, since 06:01:00, written by scenario|
        2 $why r --at noon => 'noon' is no time
        2 $why r --between 06:00 => --between takes two times
        2 why r --key A --scenario $scenario => ask about one RULE, --activity or --key
        2 why r => --recording or --scenario says what happened
        2 why r --recording $config => no recording
        0 --version => nimbra 0.
        2  => a command is missing|  there are: run, timeline, replay, why
)");
    int exitCode = 0;
    for (std::string row; rows >> exitCode && std::getline(rows, row);) {
        boost::replace_all(row, "$play", "$run --scenario $scenario");
        boost::replace_all(row, "$run", "run --config $config");
        boost::replace_all(row, "$why", "why --config $config --scenario $scenario");
        const std::size_t arrow = row.find(" => ");
        const std::string printed =
            boost::replace_all_copy(row.substr(arrow + 4), "$folder", folder.path());
        const Result result = nimbra(row.substr(0, arrow));
        EXPECT_EQ(result.exitCode, exitCode) << row << "\n" << result.output;
        EXPECT_THAT(boost::replace_all_copy(result.output, "\n", "|"), HasSubstr(printed)) << row;
    }
    EXPECT_TRUE(rows.eof());
    EXPECT_FALSE(std::filesystem::exists(folder.path() + "/none"));

    const std::string installed = folder.write("tessel/autonomy.cfg", good);
    EXPECT_THAT(nimbra("run --until 1s").output, HasSubstr("1 rule from " + installed));
    // Alone, with no rules around it.
    std::filesystem::remove(installed);
    const Result alone = shell("cp $nimbra $folder; $folder/nimbra plugins 2>&1");
    EXPECT_EQ(alone.exitCode, 1);
    EXPECT_THAT(alone.output, HasSubstr("no autonomy.cfg in " + folder.path() + "/tessel, "));
    EXPECT_THAT(alone.output, HasSubstr("--config FILE"));
}

TEST_F(ProgramTest, WhyIsAnsweredTheSameFromARecordingAsFromItsScenario)
{
    EXPECT_EQ(demo("--record $folder/day.zst", ">/dev/null 2>&1").exitCode, 0);
    const std::pair<const char*, const char*> rows[] = {
        {"\"Greet who comes near\" --at 12:41:04", "by \\\"Give way at lunch\\\", step 2"},
        {"\"Be alone again\" --between 12:00 15:00", "\"acted\": true"},
        {"\"Action swithFocus to behavior storyteller/tell\" --at 16:20", "\"package\""},
        {"--key Launchpad/Hour", "_LaunchpadPluginTiming"},
        {"\"Ask for peace when pushed agian\" --at 12:42", "\"didYouMean\""}};
    for (const auto& [question, evidence] : rows) {
        const std::string why = "$nimbra why " + std::string(question) + " --json ";
        const Result recorded = shell(why + "--recording $folder/day.zst 2>&1");
        demo("--until 1s", ">/dev/null 2>&1");  // for its packages
        const Result played = shell(why +
                                    "--config $data/autonomy.cfg --packages $folder/packages "
                                    "--scenario $data/demo-day.scenario.yaml 2>&1");
        EXPECT_EQ(recorded.output, played.output) << question;
        EXPECT_EQ(recorded.exitCode, played.exitCode) << question;
        EXPECT_THAT(recorded.output, HasSubstr(evidence)) << question;
    }
}

TEST_F(ProgramTest, WhyIsAsTheDocumentationShowsIt)
{
    const std::string document = shell("cat $data/../docs/why.md").output;
    const std::size_t begin = document.find("ConfigurationDescription");
    folder.write("my.cfg", document.substr(begin, document.find("```", begin) - begin));
    const char* const rows[] = {
        "\"Smile at who looks\" --at 09:13 --config my.cfg",
        "\"Smile at who looks\" --at 09:12:13 --config my.cfg",
        "\"Smile at who looks\" --at 09:13 --config my.cfg",
        "\"Greet who comes near\" --at 12:41:04 --config data/autonomy.cfg"};
    for (const char* row : rows) {
        demo("--until 1s", ">/dev/null 2>&1");  // for its packages
        const Result result =
            shell("cd $folder; ln -sfn $data data; $nimbra why " + std::string(row) +
                  " --scenario data/demo-day.scenario.yaml --packages packages");
        const std::string shown = boost::replace_all_copy("\n" + result.output, "\n", "\n    ");
        const std::string plain = boost::replace_all_copy(shown, "\n    \n", "\n\n");
        EXPECT_THAT(document, HasSubstr(plain.substr(0, plain.size() - 4))) << row;
        if (row == rows[0])
            shell("sed -i 's/PerceptionHeavy/PerceptionHeavy, HumanTracked/' $folder/my.cfg");
    }
}

TEST_F(ProgramTest, ListsFitTheTerminalOrAHundredColumnsAndLoseNothing)
{
    // How wide the longest line is, and how much there is but blanks.
    const auto measured = [](const std::string& command) {
        std::istringstream numbers(shell(command +
                                         " >$folder/list; LC_ALL=C.UTF-8 wc -L <$folder/list;"
                                         " tr -d ' \\r\\n' <$folder/list | wc -c")
                                       .output);
        std::pair<std::size_t, std::size_t> result;
        numbers >> result.first >> result.second;
        return result;
    };
    for (const std::string command :
         {"keys --config $config", "plugins", "permissions --on-pod --packages $data/packages",
          "package list --packages $data/packages",
          "package info run_dialog --packages $data/packages"}) {
        const std::size_t ink = measured("COLUMNS=1000 $nimbra " + command).second;
        EXPECT_GT(ink, 100U) << command;
        for (const auto& [width, narrow] :
             {std::pair(100U, "$nimbra " + command),
              {100U, "COLUMNS=0 $nimbra " + command},
              {70U, "COLUMNS=70 $nimbra " + command},
              {60U, "script -qec 'stty cols 60; $nimbra " + command + "' /dev/null </dev/null"}}) {
            const auto [wide, held] = measured(narrow);
            EXPECT_LE(wide, width) << narrow;
            EXPECT_EQ(held, ink) << narrow;
        }
    }
}

TEST_F(ProgramTest, KeysAreListedWithWhatTheyHoldAndWhoUsesThem)
{
    // A condition that does not parse hides no other.
    const std::string keys = "keys --config " + folder.write("k.cfg", kHead + R"(
- {Description: b, Condition: "'B' &&", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopAll}
- {Description: a, Condition: "'A'", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopAll})");
    const std::string text = nimbra(keys).output;
    EXPECT_THAT(text, StartsWith("A\n    published by nobody; read by rules\nDevice/"));
    for (const char* part :
         {R"(
Launchpad/BatteryLevel: integer, 1 to 5 (empty: -1)
    fifth of the charge; published by _LaunchpadPluginBattery
)",
          "; published by KRNimbra; read by ContextPermission, _LaunchpadPluginActivities\n",
          "\nLaunchpad/Lifted: boolean (empty: none)\n"})
        EXPECT_THAT(text, HasSubstr(part));
    const std::string json = nimbra(keys + " --json").output;
    for (const char* line :
         {R"({"key":"A","type":"any","publishers":[],"readers":["rules"],"meaning":""})",
          R"("values":["Critical","Low","Half","Full"],"empty":"None","publishers":["_Launch)",
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
    EXPECT_EQ(demo("--until 08:01 --log-level error", "2>&1 >/dev/null").output, "");
    // Programs print in real time: this run goes on until the line has come.
    folder.write("leave.cfg", kHead +
                                  "- {Description: r, Condition: \"'TesselReady'\", "
                                  "ExecuteAnyTimeConditionEdgeTrue: true, Action: SwitchFocus, "
                                  "ActionParameters: {Activity: power/leave-station}}\n");
    folder.write("printed", R"(
coproc run { exec $nimbra run --config $folder/leave.cfg --packages $folder/packages 2>&1; }
pid=$run_PID
timeout 60 grep -m1 Behavior <&${run[0]}
kill -INT $pid
wait $pid
)");
    EXPECT_THAT(shell("bash $folder/printed").output,
                HasSubstr(" [info] [Behavior] power/leave-station: Two steps forward, off the"));
}

/// Real time, as a signal comes from outside: whatever the program is doing, it ends in order.
TEST_F(ProgramTest, SignalEndsARunInOrder)
{
    // Waits for the first line, and tells what comes after it.
    folder.write("signalled", R"(
coproc run { exec $nimbra run --config $config "${@:2}"; }
pid=$run_PID
exec 3<&${run[0]}
read -u 3 && kill -$1 $pid && cat <&3
wait $pid
)");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const std::string signalled = "bash $folder/signalled " + std::to_string(signal);
        const Result lived = shell(signalled);
        EXPECT_EQ(lived.exitCode, 0) << signal;
        EXPECT_THAT(lived.output, HasSubstr(" hits of 1 rule\n")) << signal;
        const Result played = shell(signalled + " --scenario $scenario");
        EXPECT_EQ(played.exitCode, 128 + signal);
        EXPECT_THAT(played.output, HasSubstr(" hits of 1 rule, interrupted\n")) << signal;
    }
}

TEST_F(ProgramTest, CheckNamesEveryFaultWithItsPlace)
{
    const std::string faulty = folder.write("faulty.cfg", kHead + R"(- {Description: b}
- {Description: c, Condition: "'A'"}
- {Description: d, Condition: "'A'", ExecuteAnyTimeConditionTrue: true}
- {Description: e, Condition: "'A'", ExecuteAnyTimeConditionTrue: true, Action: Dance}
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
  - Action: UnfreezeChain
  - Action: ApiCall
  - Action: StopAll
- Description: i
  Condition: >-
    'A'
    || ||
  ExecuteAnyTimeConditionTrue: true
  ExcuteAfterActiveRules: x
  Action: StopAll
)");
    const Result result = nimbra("check " + faulty);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(std::regex_replace(result.output, std::regex(faulty + ":|(one of \\w+).*"), "$1"),
              R"(4:3: Found an action without Condition, skipping: b
5:3: Found an action without execution synchronicity, skipping: c; expected one of ExecuteAnyTimeConditionTrue
6:3: No Action item or Actions list item, skipping: d
7:3: e had no valid actions and was ignored
7:81: Found Action item with invalid type: Dance inside of: e, skipping it; expected one of SwitchFocus
8:38: the condition of 'g' does not parse: expected a key, a literal, '!' or '(', found the end
10:23: the condition of 'h' does not parse: expected a key, a literal, '!' or '(', found ')'
12:22: SkipIfRulesActive item must be a list or string. Ignoring it for: h
14:5: Found Action item without type inside of: h, skipping it; expected a mapping with the key Action
15:5: Found a SetState action without State parameter, skipping: SetState inside of: h
16:5: Found a SwitchFocus action without Activity parameter, skipping: SwitchFocus inside of: h
17:5: Found a SetConfiguration action without module parameter, skipping: SetConfiguration inside of: h
18:5: Found a SetConfiguration action without ConfigurationSet parameter, skipping: SetConfiguration inside of: h
19:5: Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: UnfreezeChain inside of: h
20:5: Found an ApiCall action without ActionParameters, skipping: ApiCall inside of: h
23:14: the condition of 'i' does not parse: at its 1:8: expected a key, a literal, '!' or '(', found '||'
27:27: warning: no rule is called 'x'
)");
}

TEST_F(ProgramTest, CheckIsQuietAboutGoodFilesAndSortsTheOthers)
{
    EXPECT_EQ(nimbra("check " + config + " " + kData + "/autonomy.cfg").exitCode, 0);
    // The steps as the documentation has them.
    const std::string text = shell("cat $data/../docs/autonomy-cfg.md").output;
    const std::size_t steps = text.find("```yaml\nActions:") + std::strlen("```yaml\n");
    const std::string written = folder.write(
        "docs.cfg", kHead +
                        "-\n  Description: r\n  Condition: \"'Nimbra/Asleep'\"\n"
                        "  ExecuteAnyTimeConditionEdgeTrue: true\n  " +
                        boost::replace_all_copy(text.substr(steps, text.find("```", steps) - steps),
                                                "\n", "\n  "));
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

#include <boost/algorithm/string.hpp>
#include <csignal>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "host/PackageCommand.h"
#include "host/PackageDescription.h"
#include "host/PermissionsCommand.h"
#include "host/SignalWatch.h"
#include "host/StopRequest.h"
#include "tests/packages/TestPackages.h"
#include "tests/support/Testing.h"

/// The commands about packages, and the packages that come with the program.
namespace KR {
namespace {

namespace fs = std::filesystem;

const std::string kDemoPackages = NIMBRA_TEST_DATA "/packages";

struct Result {
    int exitCode;
    std::string out;
    std::string err;
};

Result nimbra(const std::string& arguments)
{
    CommandLine line("nimbra", "1", "", "");
    addPackageCommand(line.root());
    addPermissionsCommand(line.root());
    std::vector<std::string> words{"nimbra"};
    std::istringstream text(arguments);
    for (std::string word; text >> std::quoted(word);)
        words.push_back(word);
    std::vector<const char*> argv;
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Result result{};
    result.exitCode = line.run(static_cast<int>(argv.size()), argv.data());
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    return result;
}

struct PackageCommandTest : testing::Test {
    TemporaryFolder folder;
    const std::string packages = folder.path() + "/installed";
    const std::string in = " --packages " + packages + " ";
    const std::string scratch = folder.path() + "/scratch";

    PackageCommandTest()
    {
        fs::create_directory(scratch);
        ::setenv("TMPDIR", scratch.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
    }
    ~PackageCommandTest() override
    {
        ::unsetenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): one thread
    }
};

/// What a process of its own ends with: its exit code, or minus the signal that ended it.
int inAProcess(const std::function<int()>& work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(PackageCommandTest, signal_ends_a_look_into_an_archive_and_leaves_nothing)
{
    const std::string tar =
        writeTestArchive(folder.path() + "/large.tar", {{"x", std::string(07502200, 'x')}}, "ustar",
                         ARCHIVE_FILTER_NONE);
    // The size of the file becomes another one, whose digits have the same sum.
    std::fstream(tar, std::ios::in | std::ios::out).seekp(124) << "02770000000";
    fs::resize_file(tar, 02770002000);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EQ(inAProcess([&] {
                      sigset_t blocked;
                      ::sigemptyset(&blocked);
                      ::sigaddset(&blocked, signal);
                      ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
                      ::kill(::getpid(), signal);
                      return nimbra("package info " + tar).exitCode;
                  }),
                  128 + signal);
        EXPECT_TRUE(fs::is_empty(scratch));
    }
}

TEST(SignalWatchTest, first_signal_stays_and_a_terminal_that_closes_says_so_twice)
{
    const auto watched = [](const std::vector<int>& signals, void (*hangUp)(int) = SIG_DFL) {
        return inAProcess([&] {
            std::signal(SIGHUP, hangUp);
            StopRequest stop;
            const SignalWatch watch(stop);
            for (const int signal : signals) {
                ::kill(::getpid(), signal);
                if (signal != SIGHUP || hangUp != SIG_IGN)
                    stop.wait();
            }
            return stop.signal();
        });
    };
    EXPECT_EQ(watched({SIGHUP, SIGHUP}), SIGHUP);
    EXPECT_EQ(watched({SIGTERM, SIGHUP}), SIGTERM);
    EXPECT_EQ(watched({SIGHUP, SIGINT}), -SIGINT);
    EXPECT_EQ(watched({SIGTERM, SIGTERM}), -SIGTERM);
    EXPECT_EQ(watched({SIGHUP, SIGTERM}, SIG_IGN), SIGTERM) << "as under nohup";
}

TEST_F(PackageCommandTest, packages_come_and_go_and_what_fails_stops_nothing_else)
{
    const std::string p = writeTestPackage(folder, "p", "p", "1");
    const std::string p2 = writeTestPackage(folder, "p2", "p", "2");
    const std::string q = writeTestPackage(folder, "q", "q");
    const std::string wrong = writeTestPackage(folder, "wrong", "../x");
    const std::string archive = writeTestArchive(
        folder.path() + "/r.tgz", {{"r-1/package.yaml", testManifest("r")}, {"r-1/go/run", ""}});
    const std::string link = writeTestArchive(folder.path() + "/link.tgz",
                                              {{"link", "", AE_IFLNK, "/etc"}, {"link/x", ""}});
    const struct {
        std::string arguments;
        int exitCode;
        std::string out;
        const char* err;
    } rows[] = {
        {"package list", 2, "", "--packages is required"},
        {"package list" + in, 1, "", "there is no packages folder"},
        {"package remove p" + in, 1, "", "cannot remove 'p': "},
        {"package install " + p + " " + archive + in, 0, "Installed p\nInstalled r\n", ""},
        {"package install " + p2 + " " + q + in, 1, "Installed q\n", "'p' is installed already"},
        {"package install --upgrade " + p2 + in, 0, "Installed p\n", ""},
        {"package install " + link + in, 1, "", "'link' is a symbolic link"},
        {"package install " + wrong + in, 1, "", "wrong/package.yaml:2:7: the Uuid '../x'"},
        {"package install " + q + " --packages " + q + "/go/run", 1, "", "is no folder"},
        {"package list" + in, 0, "p        2        all        go\nq        1 ", ""},
        {"package list --json" + in, 0,
         R"({"uuid":"p","version":"2","languages":[],"behaviors":["go"]})"
         "\n{",
         ""},
        {"package info " + archive, 0, "r 1\n  in         ", ""},
        {"package info " + p + in, 0, "p 1\n  in         " + p, ""},
        {"package info p" + in, 0, "p 2\n  in         " + packages + "/p", ""},
        {"package info ../x" + in, 1, "", "neither an installed package nor a file"},
        {"package remove ../p q q r" + in, 1, "Removed q\nRemoved r\n", "cannot remove '../p'"},
    };
    for (const auto& row : rows) {
        const Result result = nimbra(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments;
        EXPECT_THAT(result.out, HasSubstr(row.out)) << row.arguments;
        EXPECT_THAT(result.err, HasSubstr(row.err)) << row.arguments;
        EXPECT_EQ(result.err.empty(), result.exitCode == 0) << row.arguments;
        EXPECT_TRUE(fs::is_empty(scratch)) << row.arguments;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(packages), fs::directory_iterator()), 1);

    fs::rename(packages + "/p", packages + "/x");
    const Result broken = nimbra("package list --json" + in);
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_EQ(broken.out, "");
    EXPECT_THAT(broken.err, HasSubstr("x' is no usable package: its package's uuid is 'p'"));
}

TEST_F(PackageCommandTest, info_tells_what_becomes_of_each_behaviour)
{
    folder.write("p/package.yaml", R"(
ConfigurationVersion: 1
Uuid: p
Version: 1
SupportedLanguages: [French]
Behaviors:
  - {Path: self, Nature: solitary, Permissions: [canRunOnPod, other], Conditions: {launchTrigger: "'A' &&"}}
  - {Path: plugin, Tags: {French: launcher}}
  - {Path: switched, UserRequestable: true}
  - {Path: faulty}
)");
    const std::string root = "nimbraLaunchpadPlugin";
    for (const auto& [behavior, content] :
         {std::pair("plugin", "<groups><group>solitary</group><group>g</group></groups>"),
          {"switched",
           "<groups><group>disabled</group></groups><conditions>"
           "<condition purpose='launchTrigger'>'B'</condition></conditions>"},
          {"faulty", "<"},
          {"self", ""}})
        folder.write("p/" + std::string(behavior) + "/" + root + ".xml",
                     "<" + root + ">" + content + "</" + root + ">");
    fs::permissions(folder.write("p/self/run", ""), fs::perms(0755));
    folder.write("p/plugin/run", "");

    const auto json =
        nlohmann::json::parse(nimbra("package info --json " + folder.path() + "/p").out);
    std::string told;
    for (const auto& behavior : json["behaviors"]) {
        std::string gap = "\n";
        for (const char* part :
             {"/key", "/becomes", "/requestable", "/startable", "/plugin/groups"}) {
            told +=
                gap + behavior.value(nlohmann::json::json_pointer(part), nlohmann::json()).dump();
            gap = " ";
        }
    }
    EXPECT_EQ(told, R"(
"p/self" "activity" false true null
"p/plugin" "plugin" true false ["solitary","g"]
"p/switched" "plugin" true false ["conditional"]
"p/faulty" "plugin" false false [])");
    const std::string text = nimbra("package info " + folder.path() + "/p").out;
    for (const char* part : {"languages  French", "canRunOnPod, other", "launchTrigger: 'A' &&",
                             "plugin/run is not executable", "there is no file faulty/run",
                             "faulty/nimbraLaunchpadPlugin.xml:1:"})
        EXPECT_THAT(text, HasSubstr(part));
}

TEST_F(PackageCommandTest, install_and_info_warn_of_what_is_installed_and_never_runs)
{
    // Descriptors, where "|" ends a line, "<>" and "</>" stand for the tags of the root and "<when"
    // for a launchTrigger and one more condition; and below each the warnings, without their file.
    const std::string expected =
        R"(<><groups><group>solitary</group><group>interactive</group></groups><x:note xmlns:x='u'><groups><a/></groups></x:note></>
<when purpose='terminationTrigger'>'B'</when>
<other><groups/></other>
  :1:1: the root element is 'other', so nothing is read; it has to be 'nimbraLaunchpadPlugin'
  : nothing starts the plugin: it has no launchTrigger and is in no group
<><conditions><condition purpose='terminationTrigger'>'A'</condition></conditions><groups><group>solitary</group></groups></>
  : nothing starts the plugin: it has no launchTrigger
<><groups>|  <group>solitary</group><group>interactiv</group>|<group>g</group></groups></>
  :3:26: the group 'interactiv' is never enabled, as no life state is called so; did you mean 'interactive'?
  :4:1: the group 'g' is never enabled, as no life state is called so
<><groups><group>disabled</group>|  <grup>x</grup></groups><condition/></>
  :3:3: the element 'grup' is skipped; did you mean 'group'?
  :3:26: the element 'condition' is skipped; did you mean 'conditions'?
<when purpose='launchTriger'>'B'</when>
  :3:2: nothing asks for conditions of the purpose 'launchTriger'; did you mean 'launchTrigger'?
<when>'B'</when>
  :3:2: the condition has no purpose
<when purpose='launchTrigger'>'B' ==</when>
  :3:2: the condition launchTrigger does not parse: at its 1:7: expected a key, a literal, '!' or '(', found the end
<><groups></>
  :2:32: the plugin descriptor cannot be read: Opening and ending tag mismatch.
)";
    const std::string p = writeTestPackage(folder, "p", "p");
    const std::string install = "package install --upgrade " + p + in;
    std::string told;
    std::istringstream lines(expected);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == ' ')
            continue;
        told += line + "\n";
        for (const auto& [brief, text] :
             {std::pair("<when",
                        "<><conditions><condition purpose='launchTrigger'>'A'</condition>|"
                        " <condition"),
              {"</when>", "</condition></conditions></>"},
              {"<>", "<nimbraLaunchpadPlugin>|"},
              {"</>", "</nimbraLaunchpadPlugin>"},
              {"|", "\n"}})
            boost::replace_all(line, brief, text);
        const std::string path = folder.write("p/go/nimbraLaunchpadPlugin.xml", line);
        const Result result = nimbra(install);
        EXPECT_EQ(result.exitCode, 0);
        told += boost::replace_all_copy(result.err, "nimbra: warning: " + path, "  ");
        const auto json = nlohmann::json::parse(nimbra("package info --json " + p).out);
        EXPECT_EQ(json["behaviors"][0]["problems"].size(),
                  std::count(result.err.begin(), result.err.end(), '\n'));
    }
    EXPECT_EQ(told, expected);
    fs::remove_all(p + "/go");
    fs::create_directory(p + "/go");
    folder.write("p/package.yaml",
                 testManifest("p") + "    Conditions: {launchTriger: \"'A'\", any: \"'B' &&\"}\n");
    EXPECT_EQ(boost::erase_all_copy(nimbra(install).err, "nimbra: warning: " + folder.path()),
              R"(nimbra: warning: p/go cannot be started: there is no file go/run
/p/package.yaml: the condition any of go does not parse: at its 1:7: expected a key, a literal, '!' or '(', found the end
/p/package.yaml: nothing asks for the condition 'launchTriger' of go; did you mean 'launchTrigger'?
)");
}

TEST_F(PackageCommandTest, permissions_name_what_holds_an_activity_back)
{
    const std::string demo = " --packages " + kDemoPackages + " ";
    const struct {
        std::string arguments;
        const char* out;
    } rows[] = {
        {"companion/greet" + demo, "companion/greet  may run\n"},
        {"companion/greet --on-pod" + demo,
         "may not run:  it may not run on the charging station;\n"
         "                               KRBattery/ConnectedToChargingStation is true\n"},
        {"power/leave-station --on-pod" + demo, "may run\n"},
        {"night-light/glow --asleep --on-pod" + demo, "may run\n"},
        {"power/leave-station --asleep" + demo, "Nimbra/Asleep is true\n"},
        {"daydream/dream --state interactive" + demo, "Nimbra/State is \"interactive\"\n"},
        {"storyteller/tell --language German" + demo, "it speaks English, French\n"},
        {"dialog:x --state disabled", "may run\n"},
        {"action:nobody --json", "\"allowed\":false,\"reasons\":[{\"violation\":\"error\""},
    };
    for (const auto& row : rows)
        EXPECT_THAT(nimbra("permissions " + row.arguments).out, HasSubstr(row.out))
            << row.arguments;
    EXPECT_THAT(nimbra("permissions --language Klingon" + demo).err, HasSubstr("is not installed"));
    EXPECT_THAT(nimbra("permissions x/y" + demo).err, HasSubstr("no behaviour 'x/y'"));
    EXPECT_THAT(nimbra("permissions").err, HasSubstr("--packages"));
}

}  // namespace
}  // namespace KR

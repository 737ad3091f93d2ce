// Programs live in real time, so these tests do too. They never wait for a time to pass, only for
// what a program does: a line that it prints, its end, or the end of a pipe that it holds.
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/kr/KRError.h"
#include "platform/packages/KRBehaviorManager.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "tests/support/Happenings.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using testing::Not;

struct KRBehaviorManagerTest : testing::Test {
    TemporaryFolder folder;
    vo::PackageInfo package{"pkg", folder.path()};
    Happenings lines;
    Happenings ends;
    vo::Connection connection;
    vo::LogCapture log;
    vo::LogListener listener{[this](const vo::LogRecord& record) {
        if (record.category == "Behavior")
            lines.add(record.text);
    }};
    std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    vo::Application application{clock};
    std::optional<KRBehaviorManager> manager;

    KRBehaviorManagerTest() { ::mkfifo(pipePath().c_str(), 0600); }
    /// Installs a behaviour whose program is a shell script.
    std::string install(const std::string& name, const std::string& script)
    {
        const auto file = folder.write(name + "/run", "#!/bin/sh\n" + script + "\n");
        ::chmod(file.c_str(), 0755);
        package.addBehavior(vo::BehaviorInfo(name));
        return "pkg/" + name;
    }
    /// The manager, from when on nothing more can be installed.
    KRBehaviorManager& make(vo::Duration grace = std::chrono::minutes(1))
    {
        KRBehaviorManager::Options options;
        options.grace = grace;
        manager.emplace(
            application.session(), clock,
            [this](auto& uuid) { return uuid == "pkg" ? std::optional(package) : std::nullopt; },
            options);
        connection =
            service().connect("onBehaviorEnded", [this](const std::string& key, int status) {
                ends.add(key + " " + std::to_string(status));
            });
        return *manager;
    }
    vo::AnyObject service() { return application.session().service("KRBehaviorManager"); }

    /// The beginning of a script that holds a pipe for as long as it or a descendant lives.
    std::string holdPipe() const { return "exec 9>'" + pipePath() + "'; "; }
    std::string pipePath() const { return folder.path() + "/pipe"; }
    /// Waits until nobody holds the pipe any more; returns what was written to it.
    static std::string readToEnd(std::ifstream& pipe)
    {
        return {std::istreambuf_iterator<char>(pipe), {}};
    }
};

TEST_F(KRBehaviorManagerTest, program_runs_in_its_packages_folder_and_in_a_group_of_its_own)
{
    const auto key = install("where",
                             "read -r nothing && echo input\necho \"folder=$(pwd -P)\"\n"
                             "read -r pid _ _ _ group _ < /proc/self/stat\n"
                             "echo group=$group; echo pid=$$; echo error >&2; printf rest; exit 3");
    make().startBehavior(key);
    EXPECT_EQ(ends.wait(key + " "), "3");
    EXPECT_EQ(lines.wait("folder="), std::filesystem::canonical(folder.path()));
    EXPECT_EQ(lines.wait("group="), lines.wait("pid="));
    EXPECT_EQ(lines.take(5).size(), 5U);  // no input
    EXPECT_EQ(log.lines(vo::LogLevel::info).back(), "Behavior/pkg/where: rest");
}

TEST_F(KRBehaviorManagerTest, what_cannot_run_is_refused_with_the_reason)
{
    install("good", "exit 0");
    ::chmod(folder.write("plain/run", "#!/bin/sh\n").c_str(), 0644);
    ::chmod(folder.write("garbage/run", "no program").c_str(), 0755);
    for (const auto* name : {"plain", "garbage", "missing"})
        package.addBehavior(vo::BehaviorInfo(name));
    make();
    const std::map<std::string, std::string> reasons = {
        {"other/good", "no behaviour 'other/good' is installed"},
        {"pkg/../good", "no behaviour"},
        {"pkg/missing", "has no program"},
        {"pkg/plain", "is not executable"},
        {"pkg/garbage", "Exec format error"}};
    for (const auto& [key, reason] : reasons) {
        SCOPED_TRACE(key);
        EXPECT_THAT(errorOf<KRError>([&, &name = key] {
                        manager->preloadBehavior(name);
                        manager->startBehavior(name);
                    }),
                    HasSubstr(reason));
        EXPECT_FALSE(manager->isBehaviorRunning(key));
        EXPECT_NO_THROW(manager->stopBehavior(key));
    }
    manager->startBehavior("pkg/good");
    EXPECT_EQ(ends.wait("pkg/good "), "0");
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

TEST_F(KRBehaviorManagerTest, stop_asks_the_program_and_waits_until_its_end_was_signalled)
{
    const auto polite =
        install("polite",
                "trap 'wait; echo bye; exit 7' TERM; sh -c 'trap \"echo child; exit\" TERM; "
                "echo ready; while :; do sleep 60 & wait; done' & wait");
    const auto other = install("other", "exec sleep 60");
    make();
    service().call("preloadBehavior", polite);
    service().call("startBehavior", polite);
    service().call("startBehavior", polite);  // runs already
    service().call("startBehavior", other);
    lines.wait("ready");
    EXPECT_THAT(service().call<std::vector<std::string>>("getRunningBehaviors"),
                ElementsAre(other, polite));
    std::atomic<bool> told{false};
    vo::Connection end =
        service().object()->connect("onBehaviorEnded", [&](const auto&) { told = true; });
    service().call("stopBehavior", polite);
    EXPECT_TRUE(told);
    end.disconnect();
    EXPECT_FALSE(service().call<bool>("isBehaviorRunning", polite));
    EXPECT_TRUE(service().call<bool>("isBehaviorRunning", other));
    EXPECT_EQ(ends.wait(polite + " "), "7");
    EXPECT_THAT(lines.take(3), ElementsAre("ready", "child", "bye"));
    manager.reset();  // stops the other one
    EXPECT_EQ(log.count(vo::LogLevel::info, "Behaviour 'pkg/other' was ended by signal 15"), 1U);
}

TEST_F(KRBehaviorManagerTest, program_killed_from_outside_no_longer_runs_and_can_start_again)
{
    const auto key = install("victim", holdPipe() + "echo $$ >&9; echo $PPID >&9; sleep 60 & wait");
    make();
    for (const bool killGuard : {false, true}) {
        SCOPED_TRACE(killGuard);
        manager->startBehavior(key);
        std::ifstream pipe(pipePath());
        pid_t program = 0;
        pid_t guard = 0;
        pipe >> program >> guard;
        ::kill(killGuard ? guard : program, SIGKILL);
        EXPECT_THAT(ends.take(1), ElementsAre(key + " -9"));
        EXPECT_FALSE(manager->isBehaviorRunning(key));
        EXPECT_EQ(readToEnd(pipe), "\n");
    }
    // Nobody had asked it to end.
    EXPECT_EQ(log.count(vo::LogLevel::warning, "Behaviour 'pkg/victim' was ended by signal 9"), 2U);
}

TEST_F(KRBehaviorManagerTest, start_during_a_stop_starts_anew_after_it)
{
    const auto key =
        install("slow", "trap 'echo stopping' TERM; echo $$; while :; do sleep 60 & wait; done");
    make(std::chrono::milliseconds(200));
    manager->startBehavior(key);
    const std::string first = lines.take(1).front();
    std::thread stop([&] { manager->stopBehavior(key); });
    lines.wait("stopping");
    manager->startBehavior(key);
    EXPECT_TRUE(manager->isBehaviorRunning(key));
    EXPECT_THAT(ends.take(1), ElementsAre(key + " -9"));
    stop.join();
    EXPECT_NE(lines.take(2).back(), first);
    EXPECT_EQ(manager->getRunningBehaviors(), std::vector<std::string>{key});
}

TEST_F(KRBehaviorManagerTest, output_is_cut_into_lines_and_what_is_too_much_is_counted)
{
    const auto zeros = [](int count) {
        return "head -c " + std::to_string(count) + " /dev/zero | tr '\\0' x; echo; ";
    };
    const auto key = install("loud", zeros(10'000) + zeros(4095) + "echo; seq 1 300");
    make().startBehavior(key);
    ends.wait(key + " 0");
    const std::size_t sizes[] = {4096, 4096, 10'000 - 2 * 4096, 4095, 0, 1};
    std::size_t logged = 0;
    std::size_t leftOut = 0;
    for (const auto& line : lines.take(1)) {
        const bool isNote = line.find(" lines left out") != std::string::npos;
        leftOut += isNote ? std::stoul(line) : 0;
        logged += isNote ? 0 : 1;
        EXPECT_TRUE(isNote || logged > std::size(sizes) || line.size() == sizes[logged - 1]);
    }
    EXPECT_EQ(logged + leftOut, 305U);
    EXPECT_LE(logged,
              KRBehaviorManager::kMaxLinesPerSecond *
                  (2 + std::chrono::duration_cast<std::chrono::seconds>(clock->uptime()).count()));
    EXPECT_THAT(log.lines(vo::LogLevel::warning), Not(IsEmpty()));
}

TEST_F(KRBehaviorManagerTest, no_behaviour_survives_its_host_however_that_ends)
{
    install("stay", holdPipe() + "trap '' INT TERM; setsid sleep 60 & echo ready >&9; sleep 60");
    for (const int signal : {SIGKILL, SIGINT}) {
        SCOPED_TRACE(signal);
        std::string program = NIMBRA_TEST_BEHAVIOR_HOST;
        std::string argument = folder.path();
        char* const arguments[] = {program.data(), argument.data(), nullptr};
        pid_t host = -1;
        ASSERT_EQ(::posix_spawn(&host, program.c_str(), nullptr, nullptr, arguments, environ), 0);
        std::ifstream pipe(pipePath());
        std::string line;
        std::getline(pipe, line);
        EXPECT_EQ(line, "ready");
        ::kill(host, signal);
        ::waitpid(host, nullptr, 0);
        EXPECT_EQ(readToEnd(pipe), "");  // ends when the last of them has gone
    }
}

}  // namespace
}  // namespace KR

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Session.h"
#include "platform/vo/Signal.h"

namespace KR {

class BehaviorProcess;
class IoThread;

/// Runs installed behaviours: the service "KRBehaviorManager".
///
/// A behaviour is a folder with an executable `run`, which is run in the folder of its package. It
/// runs from its start until its program ends, for whatever reason; then all that it started is
/// ended too. What it prints goes to the log, line by line, under its key. No behaviour survives
/// this object, nor this process, however that ends.
///
/// Behaviours are named by their key, package uuid, "/", path. Errors are KRError with the module
/// "KRBehaviorManager". Thread-safe; the operations below are the service's methods, by the same
/// names. The service has a signal besides, "onBehaviorEnded" (key, exit code or minus the number
/// of the signal that ended the program).
class KRBehaviorManager {
public:
    /// The installed package of a uuid, if there is one. Called with no lock held, on any thread.
    using FindPackage = std::function<std::optional<vo::PackageInfo>(const std::string& uuid)>;

    struct Options {
        /// Time that a program has to end when it is asked to, before it is killed. A robot's
        /// behaviour has to come to a standstill in it, and a caller waits for it.
        vo::Duration grace = std::chrono::seconds(2);
        /// The executable file of the guard (see BehaviorGuard.cpp).
        std::string guard = installedGuard();
    };

    /// Lines of one behaviour's output that are logged in a second; the rest is counted, and the
    /// number logged as a warning. Plenty for people, too few to fill a disk.
    static constexpr int kMaxLinesPerSecond = 100;
    /// The category of the log's lines that behaviours have printed.
    static constexpr const char* kOutputCategory = "Behavior";

    /// Registers the service in `session`, which outlives this. `clock` counts the grace time:
    /// programs live in real time, so it is the real clock even where the robot lives by another.
    KRBehaviorManager(vo::Session& session, std::shared_ptr<vo::Clock> clock,
                      FindPackage findPackage, Options options);
    KRBehaviorManager(vo::Session& session, std::shared_ptr<vo::Clock> clock,
                      FindPackage findPackage)
        : KRBehaviorManager(session, std::move(clock), std::move(findPackage), Options())
    {
    }
    /// Takes the service away and stops every behaviour, all at once.
    ~KRBehaviorManager();
    KRBehaviorManager(const KRBehaviorManager&) = delete;
    KRBehaviorManager& operator=(const KRBehaviorManager&) = delete;

    /// Checks that a behaviour can be run; KRError that says why it cannot.
    void preloadBehavior(const std::string& key) const;
    /// Starts a behaviour and returns when its program runs. One that runs is left as it is; one
    /// that is being stopped is waited for first. KRError when it cannot be run.
    void startBehavior(const std::string& key);
    /// Stops a behaviour and returns when nothing of it is left and its end has been signalled,
    /// which takes the grace time when its program does not end by itself. One that does not run is
    /// left as it is. Not to be called by a receiver of that signal on the signalling thread.
    void stopBehavior(const std::string& key);
    bool isBehaviorRunning(const std::string& key) const;
    /// Keys in ascending order.
    std::vector<std::string> getRunningBehaviors() const;

    /// Where the guard is installed: "libexec/nimbralaunchpad/nimbra-behavior-guard" under the
    /// prefix of the file that holds this code. "" when it is not there.
    static std::string installedGuard();

private:
    struct Entry {
        std::shared_ptr<BehaviorProcess> process;  ///< null while it is being started
        bool stopping = false;
    };
    using Entries = std::map<std::string, Entry>;

    void registerService(vo::Session& session);
    vo::PackageInfo findPackage(const std::string& key, const char* method) const;
    std::string checkedProgram(const vo::PackageInfo& package, const std::string& key,
                               const char* method) const;
    bool claimStart(const std::string& key);
    void abandonStart(const std::string& key);
    void run(const std::string& key);
    void stopAndWait(const std::vector<std::string>& keys);
    void onEnded(const std::string& key, int status);

    // Constant after construction.
    vo::Session& session_;
    const std::shared_ptr<vo::Clock> clock_;
    const FindPackage findPackage_;
    const Options options_;
    const std::shared_ptr<vo::Executor> graceTimer_;
    const std::shared_ptr<IoThread> io_;

    // Synchronised by themselves.
    vo::Signal<std::string, int> ended_;
    vo::Condition changed_;  ///< entries_ or telling_ changed

    mutable vo::Mutex mutex_;
    Entries entries_ VO_GUARDED_BY(mutex_);
    /// The behaviour whose end is being signalled; "" for none. One at a time: there is one thread.
    std::string telling_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR

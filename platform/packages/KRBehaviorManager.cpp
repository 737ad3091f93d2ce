#include "platform/packages/KRBehaviorManager.h"

#include <algorithm>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

#include "platform/kr/KRError.h"
#include "platform/packages/BehaviorProcess.h"
#include "platform/packages/IoThread.h"
#include "platform/vo/Log.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

namespace fs = std::filesystem;

namespace {

const vo::Logger behaviorManagerLog("KRBehaviorManager");
const vo::Logger outputLogger(KRBehaviorManager::kOutputCategory);

constexpr const char* kBehaviorService = "KRBehaviorManager";
constexpr const char* kProgram = "run";
constexpr const char* kGuardFile = "libexec/nimbralaunchpad/nimbra-behavior-guard";

[[noreturn]] void fail(const char* method, const std::string& text)
{
    throw KRError(kBehaviorService, method, text);
}

/// Logs what a behaviour prints, and of each second that has too much of it how much is left out.
class LineLog {
public:
    LineLog(std::string key, std::shared_ptr<vo::Clock> clock)
        : key_(std::move(key)), clock_(std::move(clock))
    {
    }

    void add(const std::string& line)
    {
        const auto now = clock_->uptime();
        if (now - begin_ >= std::chrono::seconds(1)) {
            endSecond();
            begin_ = now;
        }
        if (++lines_ <= KRBehaviorManager::kMaxLinesPerSecond)
            outputLogger.info(key_, line);
    }

    void endSecond()
    {
        const int leftOut = std::exchange(lines_, 0) - KRBehaviorManager::kMaxLinesPerSecond;
        if (leftOut > 0)
            outputLogger.warning(key_, std::to_string(leftOut) + " lines left out");
    }

private:
    const std::string key_;
    const std::shared_ptr<vo::Clock> clock_;
    vo::Duration begin_{};
    int lines_ = 0;
};

std::string describe(int status)
{
    return status < 0 ? "was ended by signal " + std::to_string(-status)
                      : "ended with exit code " + std::to_string(status);
}

}  // namespace

std::string KRBehaviorManager::installedGuard()
{
    // Libraries lie one to three folders below the prefix: lib, lib/<machine>, or, in a build tree,
    // somewhere below its root.
    constexpr int kMaxFoldersUp = 4;
    Dl_info info = {};
    if (::dladdr(reinterpret_cast<void*>(&KRBehaviorManager::installedGuard), &info) == 0)
        return {};
    std::error_code error;
    fs::path folder = fs::canonical(info.dli_fname, error).parent_path();
    for (int i = 0; i < kMaxFoldersUp && !folder.empty(); ++i, folder = folder.parent_path())
        if (fs::exists(folder / kGuardFile, error))
            return (folder / kGuardFile).string();
    return {};
}

KRBehaviorManager::KRBehaviorManager(vo::Session& session, std::shared_ptr<vo::Clock> clock,
                                     FindPackage findPackage, Options options)
    : session_(session),
      clock_(std::move(clock)),
      findPackage_(std::move(findPackage)),
      options_(std::move(options)),
      graceTimer_(clock_->makeExecutor("behaviour grace", vo::Clock::Threading::shared)),
      io_(IoThread::shared())
{
    registerService(session);
}

KRBehaviorManager::~KRBehaviorManager()
{
    session_.unregisterService(kBehaviorService);
    stopAndWait(getRunningBehaviors());
    graceTimer_->close();
    io_->call([] {});  // the news of the last end have been passed on
}

void KRBehaviorManager::registerService(vo::Session& session)
{
    auto object = std::make_shared<vo::ServiceObject>(kBehaviorService);
    object->method("preloadBehavior", [this](const std::string& key) { preloadBehavior(key); })
        .method("startBehavior", [this](const std::string& key) { startBehavior(key); })
        .method("stopBehavior", [this](const std::string& key) { stopBehavior(key); })
        .method("isBehaviorRunning",
                [this](const std::string& key) { return isBehaviorRunning(key); })
        .method("getRunningBehaviors", [this] { return getRunningBehaviors(); })
        .signal("onBehaviorEnded", ended_);
    session.registerService(object);
}

vo::PackageInfo KRBehaviorManager::findPackage(const std::string& key, const char* method) const
{
    const auto package = findPackage_(key.substr(0, key.find('/')));
    if (package)
        for (const auto& behavior : package->behaviors())
            if (vo::behaviorKey(*package, behavior) == key)
                return *package;
    fail(method, "no behaviour '" + key + "' is installed");
}

std::string KRBehaviorManager::checkedProgram(const vo::PackageInfo& package,
                                              const std::string& key, const char* method) const
{
    const auto path = key.substr(package.uuid().size() + 1);
    const auto program =
        fs::absolute(fs::path(package.path()) / fs::path(path).relative_path() / kProgram);
    std::error_code error;
    if (!fs::is_regular_file(program, error))
        fail(method, "behaviour '" + key + "' has no program: " + program.string());
    if (::access(program.c_str(), X_OK) != 0)
        fail(method,
             "the program of behaviour '" + key + "' is not executable: " + program.string());
    if (::access(options_.guard.c_str(), X_OK) != 0)
        fail(method, "the behaviour guard is not installed: '" + options_.guard + "'");
    return program.string();
}

void KRBehaviorManager::preloadBehavior(const std::string& key) const
{
    constexpr auto kMethod = "preloadBehavior";
    checkedProgram(findPackage(key, kMethod), key, kMethod);
}

void KRBehaviorManager::startBehavior(const std::string& key)
{
    if (!claimStart(key))
        return;
    try {
        run(key);
    } catch (const KRError&) {
        abandonStart(key);
        throw;
    } catch (const std::exception& e) {
        abandonStart(key);
        fail("startBehavior", "behaviour '" + key + "': " + e.what());
    }
}

/// True when the caller is to start the behaviour; false when it runs.
bool KRBehaviorManager::claimStart(const std::string& key)
{
    vo::Lock lock(mutex_);
    for (auto it = entries_.find(key); it != entries_.end(); it = entries_.find(key)) {
        if (it->second.process && !it->second.stopping)
            return false;
        changed_.wait(mutex_);
    }
    entries_[key] = {};
    return true;
}

void KRBehaviorManager::abandonStart(const std::string& key)
{
    vo::Lock lock(mutex_);
    entries_.erase(key);
    changed_.notifyAll();
}

void KRBehaviorManager::run(const std::string& key)
{
    constexpr auto kMethod = "startBehavior";
    const auto package = findPackage(key, kMethod);
    const auto program = checkedProgram(package, key, kMethod);
    const auto process =
        BehaviorProcess::start(io_->context(), {options_.guard, package.path(), program});
    {
        vo::Lock lock(mutex_);
        entries_[key].process = process;
        changed_.notifyAll();
    }
    behaviorManagerLog.info(kMethod, "Behaviour '" + key + "' runs");
    const auto lines = std::make_shared<LineLog>(key, clock_);
    process->watch({[lines](const std::string& line) { lines->add(line); },
                    [this, key, lines](int status) {
                        lines->endSecond();
                        onEnded(key, status);
                    }});
}

void KRBehaviorManager::stopBehavior(const std::string& key)
{
    stopAndWait({key});
}

void KRBehaviorManager::stopAndWait(const std::vector<std::string>& keys)
{
    std::vector<std::shared_ptr<BehaviorProcess>> processes;
    {
        vo::Lock lock(mutex_);
        for (const auto& key : keys) {
            auto it = entries_.find(key);
            for (; it != entries_.end() && !it->second.process; it = entries_.find(key))
                changed_.wait(mutex_);
            if (it == entries_.end())
                continue;
            it->second.stopping = true;
            processes.push_back(it->second.process);
        }
    }
    for (const auto& process : processes)
        process->terminate();
    const auto killing = graceTimer_->post(
        [processes] {
            for (const auto& process : processes)
                process->kill();
        },
        options_.grace);

    {
        vo::Lock lock(mutex_);
        const auto isLeft = [&](const auto& entry) {
            return std::count(processes.begin(), processes.end(), entry.second.process) != 0;
        };
        // Who starts a behaviour anew is not to hear of its earlier end after that.
        while (std::any_of(entries_.begin(), entries_.end(), isLeft) ||
               (!telling_.empty() && std::count(keys.begin(), keys.end(), telling_) != 0))
            changed_.wait(mutex_);
    }
    graceTimer_->cancel(killing);
}

bool KRBehaviorManager::isBehaviorRunning(const std::string& key) const
{
    vo::Lock lock(mutex_);
    const auto it = entries_.find(key);
    return it != entries_.end() && it->second.process;
}

std::vector<std::string> KRBehaviorManager::getRunningBehaviors() const
{
    vo::Lock lock(mutex_);
    std::vector<std::string> keys;
    for (const auto& [key, entry] : entries_)
        if (entry.process)
            keys.push_back(key);
    return keys;
}

void KRBehaviorManager::onEnded(const std::string& key, int status)
{
    bool stopping = false;
    {
        vo::Lock lock(mutex_);
        const auto it = entries_.find(key);
        stopping = it->second.stopping;
        entries_.erase(it);
        telling_ = key;
        changed_.notifyAll();
    }
    const std::string text = "Behaviour '" + key + "' " + describe(status);
    if (status == 0 || stopping)
        behaviorManagerLog.info("onEnded", text);
    else
        behaviorManagerLog.warning("onEnded", text);
    ended_(key, status);
    vo::Lock lock(mutex_);
    telling_.clear();
    changed_.notifyAll();
}

}  // namespace KR

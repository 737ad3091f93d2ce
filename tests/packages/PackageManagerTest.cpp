#include <atomic>
#include <condition_variable>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/kr/KRError.h"
#include "platform/packages/PackageManager.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "tests/packages/TestPackages.h"

namespace KR {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What was signalled, in order, as "+uuid version" and "-uuid version".
class Signals {
public:
    void follow(const vo::AnyObject& service)
    {
        const auto add = [this](const char* sign) {
            return [this, sign](const vo::PackageInfo& package) {
                const vo::Lock lock(mutex_);
                all_.push_back(sign + package.uuid() + " " + package.version());
                changed_.notify_all();
            };
        };
        service.connect("onPackageInstalled", add("+"));
        service.connect("onPackageRemoved", add("-"));
    }
    /// Waits for that many.
    std::vector<std::string> take(std::size_t count)
    {
        const vo::Lock lock(mutex_);
        while (all_.size() < count)
            changed_.wait(mutex_);
        return std::exchange(all_, {});
    }

private:
    vo::Mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<std::string> all_ VO_GUARDED_BY(mutex_);
};

// What the system notices of folders comes in real time, so the tests wait for it on the real
// clock.
struct PackageManagerTest : testing::Test {
    PackageManager& make()
    {
        PackageManager::Options options;
        options.settle = std::chrono::milliseconds(1);
        manager.emplace(application.session(), clock, packages, options);
        signals.follow(service());
        return *manager;
    }
    vo::AnyObject service() { return application.session().service("PackageManager"); }

    vo::LogCapture log;
    TemporaryFolder folder;
    const std::string packages = folder.path() + "/deep/packages";
    std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    vo::Application application{clock};
    Signals signals;
    std::optional<PackageManager> manager;
};

TEST_F(PackageManagerTest, service_installs_lists_upgrades_and_removes)
{
    make();
    const auto first = writeTestPackage(folder, "first", "p", "1");
    EXPECT_EQ(service().call<std::string>("install", first), "p");
    EXPECT_EQ(service().call<std::string>("upgrade", writeTestPackage(folder, "q", "q")), "q");
    const auto all = service().call<std::vector<vo::PackageInfo>>("packages");
    EXPECT_EQ(all.at(0).path(), packages + "/p");
    EXPECT_TRUE(service().call<bool>("hasPackage", std::string("p")));

    EXPECT_THROW(service().call("install", first), KRError);
    service().call("upgrade", writeTestPackage(folder, "second", "p", "2"));
    service().call("removePkg", std::string("p"));
    EXPECT_THROW(service().call("removePkg", std::string("p")), KRError);
    EXPECT_THAT(signals.take(5), ElementsAre("+p 1", "+q 1", "-p 1", "+p 2", "-p 2"));
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

TEST_F(PackageManagerTest, start_finds_what_is_usable_and_clears_what_was_left_over)
{
    writeTestPackage(folder, "deep/packages/good", "good");
    writeTestPackage(folder, "deep/packages/copy", "good");
    writeTestPackage(folder, "deep/packages/~new-123456", "half");
    folder.write("deep/packages/~old-123456/go/run", "rest");
    folder.write("deep/packages/newer/package.yaml", "ConfigurationVersion: 2\nUuid: newer\n");
    fs::create_directory(packages + "/none");
    fs::create_directory_symlink(packages + "/good", packages + "/link");
    make();
    ASSERT_EQ(manager->packages().size(), 1U);
    EXPECT_TRUE(manager->hasPackage("good"));
    EXPECT_FALSE(fs::exists(packages + "/~new-123456") || fs::exists(packages + "/~old-123456"));
    EXPECT_THAT(log.lines(vo::LogLevel::warning),
                ElementsAre(HasSubstr("copy' is left out: its package's uuid is 'good'"),
                            HasSubstr("package.yaml:1:23: ConfigurationVersion \"2\" is not"),
                            HasSubstr("there is no manifest")));
}

TEST_F(PackageManagerTest, changes_from_many_threads_leave_what_is_on_the_disk)
{
    make();
    std::map<std::string, int> balance;
    std::atomic<bool> alternates{true};
    const auto count = [&](int change) {
        return [&, change](const std::vector<vo::Value>& values) {
            int& now = balance[vo::fromValue<vo::PackageInfo>(values.at(0)).uuid()];
            now += change;
            alternates = alternates && (now == 0 || now == 1);
        };
    };
    service().object()->connect("onPackageInstalled", count(1));
    service().object()->connect("onPackageRemoved", count(-1));
    const auto first = writeTestPackage(folder, "a", "a");
    const auto second = writeTestPackage(folder, "b", "b");
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                manager->upgrade(t == 0 ? first : second);
                if (i % 3 == t)
                    manager->removePkg(t == 0 ? "a" : "b");
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_TRUE(alternates);
    for (const auto& [uuid, installed] : balance) {
        EXPECT_EQ(installed == 1, manager->hasPackage(uuid)) << uuid;
        EXPECT_EQ(installed == 1, fs::exists(packages + "/" + uuid)) << uuid;
    }
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

TEST_F(PackageManagerTest, changes_by_hand_and_by_other_processes_are_signalled)
{
    make();
    fs::rename(writeTestPackage(folder, "made", "p", "1"), packages + "/p");
    EXPECT_THAT(signals.take(1), ElementsAre("+p 1"));
    folder.write("deep/packages/p/package.yaml", testManifest("p", "1.5"));
    EXPECT_THAT(signals.take(2), ElementsAre("-p 1", "+p 1.5"));

    const PackageStore other(packages);
    other.install(writeTestPackage(folder, "next", "p", "2"), PackageStore::IfInstalled::replace);
    EXPECT_THAT(signals.take(2), ElementsAre("-p 1.5", "+p 2"));

    fs::create_directory(packages + "/q");
    folder.write("deep/packages/q/package.yaml", testManifest("q"));  // file by file
    EXPECT_THAT(signals.take(1), ElementsAre("+q 1"));

    fs::rename(packages + "/p", folder.path() + "/taken away");
    EXPECT_THAT(signals.take(1), ElementsAre("-p 2"));
    fs::remove_all(packages);
    EXPECT_THAT(signals.take(1), ElementsAre("-q 1"));
}

}  // namespace
}  // namespace KR

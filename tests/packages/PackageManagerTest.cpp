#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/kr/KRError.h"
#include "platform/packages/PackageManager.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "tests/packages/TestPackages.h"
#include "tests/support/Happenings.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

namespace fs = std::filesystem;

// What the system notices of folders comes in real time, so the tests wait for it on the real
// clock.
struct PackageManagerTest : testing::Test {
    PackageManager& make()
    {
        PackageManager::Options options;
        options.settle = std::chrono::milliseconds(1);
        manager.emplace(application.session(), clock, packages, options);
        for (const auto& [signal, sign] :
             {std::pair("onPackageInstalled", "+"), {"onPackageRemoved", "-"}})
            connections.push_back(
                service().connect(signal, [this, sign = sign](const vo::PackageInfo& package) {
                    signals.add(sign + package.uuid() + " " + package.version());
                }));
        return *manager;
    }
    vo::AnyObject service() { return application.session().service("PackageManager"); }

    vo::LogCapture log;
    TemporaryFolder folder;
    const std::string packages = folder.path() + "/deep/packages";
    std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    vo::Application application{clock};
    Happenings signals;  ///< "+uuid version" and "-uuid version"
    std::vector<vo::Connection> connections;
    std::optional<PackageManager> manager;
};

TEST_F(PackageManagerTest, service_installs_lists_upgrades_and_removes)
{
    make();
    const auto first = writeTestPackage(folder, "first", "p", "1");
    EXPECT_EQ(service().call<std::string>("install", first), "p");
    EXPECT_EQ(service().call<std::string>("upgrade", writeTestPackage(folder, "q", "q")), "q");
    const auto all = service().call<std::vector<vo::PackageInfo>>("packages");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].path(), packages + "/p");
    EXPECT_TRUE(service().call<bool>("hasPackage", std::string("p")));

    EXPECT_EQ(errorOf<KRError>([&] { service().call("install", first); }),
              "PackageManager::install: cannot install '" + first +
                  "': a package 'p' is installed already");
    service().call("upgrade", writeTestPackage(folder, "second", "p", "2"));
    service().call("removePkg", std::string("p"));
    EXPECT_THAT(errorOf<KRError>([&] { service().call("removePkg", std::string("p")); }),
                HasSubstr("cannot remove 'p': no package 'p' is installed"));
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
    EXPECT_FALSE(manager->hasPackage("copy") || manager->find("newer") || manager->find("link"));
    EXPECT_FALSE(fs::exists(packages + "/~new-123456") || fs::exists(packages + "/~old-123456"));
    EXPECT_THAT(log.lines(vo::LogLevel::warning),
                ElementsAre(HasSubstr("copy' is left out: its package's uuid is 'good'"),
                            HasSubstr("package.yaml:1:23: ConfigurationVersion \"2\" is not"),
                            HasSubstr("there is no manifest")));
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

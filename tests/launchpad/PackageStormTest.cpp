#include <atomic>
#include <future>

#include "platform/packages/PackageManager.h"
#include "tests/launchpad/LaunchpadTest.h"
#include "tests/packages/TestPackages.h"
#include "tests/support/Happenings.h"

namespace KR {
namespace {

TEST_F(LaunchpadThreads, packagesThatComeAndGoInAStorm_leaveTheActionsOfWhatIsInstalled)
{
    constexpr int kRounds =
        27;  // of each thread, which leaves installed what it does in the last 3
    constexpr int kPulses = 100;
    folder.write("tessel/autonomy.cfg", kOneAction);
    application.session().registerService(std::make_shared<vo::ServiceObject>("KRAnimationPlayer"));
    PackageManager manager(application.session(), clock, folder.path() + "/installed");
    Happenings hitsOfA;
    Happenings otherHits;
    responder.onCall = [&] {
        for (const std::string& name : responder.calls.back())
            (name == "a" ? hitsOfA : otherHits).add(name);
    };
    NimbraLaunchpad launchpad(broker, nullptr, &responder);
    launchpad.startMonitoringConditions();

    const auto install = [&](const std::string& uuid, const std::string& key) {
        const std::string source = writeTestPackage(folder, uuid, uuid);
        folder.write(uuid + "/" + kPackageManifestFile,
                     testManifest(uuid) + "    Conditions: {launchTrigger: \"'" + key + "'\"}\n");
        manager.install(source);
    };
    std::atomic<int> changing{2};
    const auto change = [&](const std::string& name) {
        for (int i = 0; i < kRounds; ++i) {
            const std::string uuid = name + std::to_string(i % 5);
            install(uuid, "K");
            if (i < kRounds - 3)
                manager.removePkg(uuid);
        }
        --changing;
    };
    auto first = std::async(std::launch::async, change, "p");
    auto second = std::async(std::launch::async, change, "q");
    do {
        for (int i = 0; i < 2 * kPulses; ++i)
            broker->memory().raiseEvent("K", i % 2);
        EXPECT_EQ(hitsOfA.take(kPulses).size(), std::size_t{kPulses});
    } while (changing > 0);
    first.get();
    second.get();

    // Changes are told in order: when the last one has its effect, all have.
    install("last", "Last");
    broker->memory().raiseEvent("Last", 1);
    otherHits.wait("Action swithFocus to behavior last/go");
    launchpad.stopMonitoringConditions();
    Names expected{"a"};
    for (const vo::PackageInfo& package : manager.packages())
        expected.push_back("Action swithFocus to behavior " + package.uuid() + "/go");
    Names names;
    NimbraLaunchpadTestAccess access{launchpad};
    for (const auto& [id, action] : access.actions())
        names.push_back(action.description);
    EXPECT_EQ(names.size(), 1U + 2 * 3 + 1);
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(expected));
    EXPECT_EQ(access.conditions().size(), names.size());
    EXPECT_THAT(log.lines(vo::LogLevel::warning), testing::IsEmpty());
}

}  // namespace
}  // namespace KR

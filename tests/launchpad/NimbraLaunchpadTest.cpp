#include "launchpad/NimbraLaunchpad.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

constexpr const char* kExport = "getAutonomousActions";

TEST_F(LaunchpadTest, missingParts_areLoggedAndLeftOut)
{
    EXPECT_EQ(
        logged(),
        R"(error NimbraLaunchpad: Can't load default config file: : : No such file or directory
error _initAddModulePlugin: Could not load plugin: HardwareInfoKRProxy::KRProxy: no service named 'KRRobotModel'
error _initAddModulePlugin: Could not load plugin: BatteryKRProxy::KRProxy: no service named 'KRBattery'
error _initAddModulePlugin: Could not load plugin: PostureKRProxy::KRProxy: no service named 'KRRobotPosture'
error NimbraLaunchpad: Cannot load the main interactive activity module: no service named 'applauncher_module'
)");
    EXPECT_EQ(access.plugins().size(), 3U);
    EXPECT_THROW(NimbraLaunchpad({}, nullptr, nullptr), std::invalid_argument);
    platform.addService("empty", kExport, [] { return std::list<AutonomousAction>(); });
    launchpad->loadModule("empty");
    EXPECT_EQ(logged(), "info loadModule: 0 autonomous actions loaded from empty\n");
    EXPECT_THROW(launchpad->loadModule("missing"), std::runtime_error);
}

TEST_F(LaunchpadTest, defaultFileAndThenTheModule_areLoaded)
{
    folder.write("tessel/autonomy.cfg", kOneAction);
    AutonomousAction exported;
    exported.condition = "'K'";
    exported.conditionId = 1;  // the module's own, which the configured action has here
    platform.addService("applauncher_module", kExport, [=] {
        return std::list{exported, exported};
    });
    launchpad.reset();
    NimbraLaunchpad fresh(platform.broker, nullptr, &responder);

    auto& actions = NimbraLaunchpadTestAccess{fresh}.actions();
    ASSERT_THAT(actions, ElementsAre(testing::Key(2), testing::Key(3), testing::Key(4)));
    EXPECT_EQ(actions[2].origin, "LifeConfig");
    for (const unsigned id : {3, 4}) {
        EXPECT_EQ(actions[id].origin, "Module.applauncher_module");
        EXPECT_EQ(actions[id].conditionId, id - 1);
    }
}

TEST_F(LaunchpadTest, queries_answerInIdOrder)
{
    access.add("b", "'K' == 1", 0x5);
    const unsigned first = access.add("a", "'K' == 1", 0x2);
    access.add("a", "'K' == 2", 0x7);
    raiseK(1);
    EXPECT_TRUE(launchpad->getActionSuggestions(7).empty()) << "nothing was evaluated yet";
    launchpad->checkConditions();

    const std::pair<int, Names> rows[] = {{0, {}},    {1, {"b"}},       {2, {"a"}},
                                          {5, {"b"}}, {-1, {"b", "a"}}, {8, {}}};
    for (const auto& [mask, names] : rows)
        EXPECT_EQ(namesOf(launchpad->getActionSuggestions(mask)), names) << mask;
    EXPECT_EQ(launchpad->getAction("a").conditionId, first);
    EXPECT_EQ(errorOf<std::runtime_error>([&] { launchpad->getAction("A"); }),
              "action not found with description: A");
}

}  // namespace
}  // namespace KR

#include <filesystem>
#include <map>
#include <set>

#include "host/ConfigurationCheck.h"
#include "host/Player.h"
#include "host/StopRequest.h"
#include "robot/Scenario.h"
#include "tests/host/HostTest.h"

namespace KR {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

/// Whether a day on one robot can show more than one value.
bool canVary(const KeyDescription& key)
{
    return key.key != "Launchpad/RobotType" && !(key.min && key.min == key.max);
}

/// A fall, among others, stops the battery's plugin, which then forgets that the charger charges.
TEST(DemoDayTest, robotStaysOnItsChargerAfterItsBatteryPluginWasStopped)
{
    const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint(hours(24 * 20000)));
    std::string told;
    Timeline timeline(
        clock, std::make_unique<JsonTimeline>([&](const std::string& line) { told += line; }));
    Host host(clock, timeline, {std::string(NIMBRA_TEST_DATA) + "/autonomy.cfg", {}});
    clock->runPending();
    host.start();
    const vo::AnyObject battery = vo::import("KRBattery");
    battery.call<void>("setCharge", 10.0);
    battery.call<void>("connectCharger", true);
    clock->advance(seconds(61));
    for (const char* state : {"safeguard", "solitary"})
        host.life().setState(state);
    told.clear();
    clock->advance(seconds(20));
    EXPECT_EQ(host.memory().getData("Launchpad/BatteryIsCharging"), KRValue(0));
    EXPECT_EQ(host.memory().getData("Launchpad/BatteryLevel"), KRValue(1));
    EXPECT_THAT(told, testing::Not(testing::HasSubstr("Charge when the battery is low")));
    host.stop();
}

TEST(DemoDayTest, everyKeyOfTheRobotIsSeenPublishedAndTakesMoreThanOneValue)
{
    const std::filesystem::path data = NIMBRA_TEST_DATA;
    TemporaryFolder folder;
    const std::string packages = folder.path() + "/packages";
    std::filesystem::create_directory(packages);
    for (const char* package : {"companion", "daydream", "power", "run_dialog"})
        std::filesystem::copy(data / "packages" / package, packages + "/" + package,
                              std::filesystem::copy_options::recursive);
    const Scenario scenario = loadScenario(data / "demo-day.scenario.yaml");
    const auto clock = std::make_shared<vo::VirtualClock>(scenario.start);
    std::map<std::string, std::set<std::string>> values;
    Timeline timeline(clock, std::make_unique<JsonTimeline>([&](const std::string& line) {
                          const auto event = nlohmann::json::parse(line);
                          if (event["event"] == "key")
                              values[event["key"]].insert(event["value"].dump());
                      }));
    const std::string config = data / "autonomy.cfg";
    Host host(clock, timeline,
              {config, packages, vo::LogLevel::warning, inspectConfiguration(config).plugins});
    std::vector<std::string> keys;
    for (const KeyCatalogue::Entry& entry : host.keys().entries())
        keys.push_back(entry.description.key);
    clock->runPending();
    host.start(keys);
    StopRequest stop;
    ASSERT_TRUE(Player(host, *clock, timeline, stop, {}).play(scenario, Player::endOf(scenario)));

    for (const KeyCatalogue::Entry& entry : host.keys().entries()) {
        const KeyDescription& key = entry.description;
        const std::string beginning = key.key.substr(0, key.key.find('*'));
        if (entry.publishers.empty() || !canVary(key))
            continue;
        EXPECT_FALSE(host.memory().getDataList(beginning).empty()) << key.key;
        if (beginning == key.key) {
            EXPECT_GE(values[key.key].size(), 2U) << key.key;
        }
    }
    host.stop();
}

}  // namespace
}  // namespace KR

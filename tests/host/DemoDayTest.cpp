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

using std::chrono::seconds;

using DemoDayTest = HostTest;

/// Whether a day on one robot can show more than one value.
bool canVary(const KeyDescription& key)
{
    return key.key != "Launchpad/RobotType" && !(key.min && key.min == key.max);
}

/// A fall, among others, stops the battery's plugin, which then forgets that the charger charges.
TEST_F(DemoDayTest, robotStaysOnItsChargerAfterItsBatteryPluginWasStopped)
{
    timeline.follow(stream);
    host.emplace(clock, stream, Host::Options{NIMBRA_TEST_DATA "/autonomy.cfg", {}});
    clock->runPending();
    host->start();
    const vo::AnyObject battery = vo::import("KRBattery");
    battery.call<void>("setCharge", 10.0);
    battery.call<void>("connectCharger", true);
    clock->advance(seconds(61));
    for (const char* state : {"safeguard", "solitary"})
        host->life().setState(state);
    told();
    clock->advance(seconds(20));
    EXPECT_EQ(host->memory().getData("Launchpad/BatteryIsCharging"), KRValue(0));
    EXPECT_EQ(host->memory().getData("Launchpad/BatteryLevel"), KRValue(1));
    EXPECT_THAT(
        told(),
        testing::Not(testing::Contains(testing::HasSubstr("Charge when the battery is low"))));
    host->stop();
}

TEST_F(DemoDayTest, robotMindsTheSecondPushAndBelievesAnAbsenceAfterAMinute)
{
    const std::string config = NIMBRA_TEST_DATA "/autonomy.cfg";
    timeline.follow(stream);
    host.emplace(clock, stream, Host::Options{config, {}, inspectConfiguration(config).plugins});
    clock->runPending();
    host->start();
    clock->advance(seconds(10));
    const vo::AnyObject world = vo::import("KRWorld");
    const auto hitsIn = [this](int time, const std::string& rule) {
        clock->advance(seconds(time));
        const std::vector<std::string> all = told();
        return std::count(all.begin(), all.end(), "hit " + rule);
    };
    // So many seconds after the push before; the second one is taken for the same.
    const std::pair<int, int> pushes[] = {{61, 0}, {5, 0}, {40, 1}, {30, 1}, {20, 0}, {61, 0}};
    for (const auto& [pause, isMinded] : pushes) {
        clock->advance(seconds(pause - 1));
        world.call<void>("push", "left");
        EXPECT_EQ(hitsIn(1, "Ask for peace when pushed again"), isMinded) << pause;
    }

    // Who is out of sight counts for some seconds more.
    const std::pair<int, int> absences[] = {{60, 0}, {60, 0}, {70, 1}};
    for (const auto& [absence, isBelieved] : absences) {
        world.call<void>("enter", "Anna", 2.0, 0.0);
        clock->advance(seconds(5));
        world.call<void>("leave", "Anna");
        EXPECT_EQ(hitsIn(absence, "Be alone again"), isBelieved) << absence;
    }
    host->stop();
}

TEST_F(DemoDayTest, everyKeyOfTheRobotIsSeenPublishedAndTakesMoreThanOneValue)
{
    const std::filesystem::path data = NIMBRA_TEST_DATA;
    useDemoPackages();
    const Scenario scenario = loadScenario(data / "demo-day.scenario.yaml");
    clock->advance(scenario.start - clock->now());
    const std::string config = data / "autonomy.cfg";
    host.emplace(clock, stream,
                 Host::Options{config, packages, inspectConfiguration(config).plugins});
    std::map<std::string, std::set<std::string>> values;
    const vo::Connection writes = stream.happened.connect([&](const Event& event) {
        if (const auto* const write = std::get_if<KeyWritten>(&event.what))
            values[write->key].insert(write->value.toDisplayString());
    });
    clock->runPending();
    host->start();
    StopRequest stop;
    ASSERT_TRUE(Player(*host, *clock, stream, stop, {}).play(scenario, Player::endOf(scenario)));
    stream.flush();
    for (const KeyCatalogue::Entry& entry : host->keys().entries()) {
        const KeyDescription& key = entry.description;
        const std::string beginning = key.key.substr(0, key.key.find('*'));
        if (entry.publishers.empty() || !canVary(key))
            continue;
        EXPECT_FALSE(host->memory().getDataList(beginning).empty()) << key.key;
        if (beginning == key.key) {
            EXPECT_GE(values[key.key].size(), 2U) << key.key;
        }
    }
    host->stop();
}

}  // namespace
}  // namespace KR

#include <boost/algorithm/string/erase.hpp>

#include "plugins/builtin/HumanTrackedPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

struct HumanTrackedPluginTest : SenseTest<HumanTrackedPlugin> {
    FakeService zones{platform, "KREngagementZones", "subscribe/1 unsubscribe/1 isProcessing"};
    FakeService gaze{platform, "KRGazeAnalysis", "isProcessing"};
    const std::string kPulse = "SameTrackedHuman=0 SameTrackedHuman=1 ";
    const std::string kNobody = "SameTrackedHuman=0 " + data("-1.0", "0", "0");
    const std::string kEmpty = "SameTrackedHuman=none " + data("none", "none", "none");

    void SetUp() override
    {
        zones.set("isProcessing", true);
        gaze.set("isProcessing", true);
        make();
        follow("SameTrackedHuman " + boost::erase_all_copy(data("", "", ""), "="));
        person(3, 1.5F, 1, 0);
        person(5, 2, 2, true);
    }
    std::string track(const KRValue& id) { return write("KRBasicAwareness/HumanTracked", id); }
    std::string update() { return write("PeoplePerception/PopulationUpdated"); }
    void person(int id, const KRValue& distance, const KRValue& zone, const KRValue& looking)
    {
        const std::string key = "PeoplePerception/Person/" + std::to_string(id);
        write(key + "/Distance", distance);
        write(key + "/EngagementZone", zone);
        write(key + "/IsLookingAtRobot", looking);
    }
    static std::string data(const std::string& distance, const std::string& zone,
                            const std::string& looking)
    {
        return "DistanceOfTrackedHuman=" + distance + " ZoneOfTrackedHuman=" + zone +
               " TrackedHumanIsLookingAtRobot=" + looking;
    }
};

TEST_F(HumanTrackedPluginTest, new_person_gives_a_pulse_and_the_same_one_none)
{
    EXPECT_EQ(track(3), "");
    EXPECT_EQ(start(), kPulse + data("1.5", "1", "0"));
    EXPECT_EQ(start(), "");
    EXPECT_EQ(track(5), kPulse + data("2.0", "2", "1"));
    EXPECT_EQ(update(), data("2.0", "2", "1"));
    EXPECT_EQ(inTurn({track(-1), update()}), kNobody + " " + kNobody);
    EXPECT_EQ(track(5), data("2.0", "2", "1"));  // remembered over nobody
    zones.calls.clear();
    EXPECT_EQ(inTurn({stop(), update(), track(3)}), kEmpty);
    EXPECT_EQ(zones.calls, "unsubscribe:\"_LaunchpadPluginHumanTracked\"");
    track(5);
    EXPECT_EQ(start(), kPulse + data("2.0", "2", "1"));  // forgotten
    EXPECT_THAT(zones.calls,
                testing::EndsWith(" subscribe:\"_LaunchpadPluginHumanTracked\" isProcessing"));
    expectComplaint("none");
}

TEST_F(HumanTrackedPluginTest, what_cannot_be_had_of_a_person_is_empty_by_itself)
{
    EXPECT_EQ(start(), kNobody);  // no tracked id was ever written
    expectComplaint("warning LaunchpadPluginHumanTracked/xCheckForTrackedHuman: Cannot get data: ");
    EXPECT_EQ(track(4), kPulse + data("none", "none", "none"));
    person(4, "far", 2, KRValue());
    EXPECT_EQ(update(), data("none", "2", "none"));
    person(4, -1e300, 1.5, 0);
    EXPECT_EQ(update(), data("-1e+300", "none", "0"));
    for (const KRValue& id : {KRValue("3"), KRValue(std::int64_t{1} << 40), KRValue()})
        EXPECT_EQ(track(id), kNobody) << id;
}

TEST_F(HumanTrackedPluginTest, needs_its_services_for_zone_and_looking_but_not_to_stop)
{
    track(3);
    start();
    gaze.set("isProcessing", false);
    EXPECT_EQ(update(), data("1.5", "1", "none"));
    zones.die();
    EXPECT_EQ(track(-1), "SameTrackedHuman=0 " + data("-1.0", "none", "none"));
    expectComplaint("warning LaunchpadPluginHumanTracked/xCheckForTrackedHuman: Cannot get data: ");
    EXPECT_EQ(stop(), kEmpty);
    expectComplaint("warning LaunchpadPluginHumanTracked/_stopPlugin: Cannot unsubscribe: ");
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_THROW(start(), KRError);
}

}  // namespace KR

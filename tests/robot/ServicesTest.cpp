#include <boost/algorithm/string/replace.hpp>
#include <cmath>

#include "plugins/builtin/HardwareInfoPlugin.h"
#include "tests/robot/RobotTest.h"

namespace KR {

using ServicesTest = RobotTest<HardwareInfoPlugin>;

TEST_F(ServicesTest, lights_fade_evenly_from_what_they_are)
{
    play(R"(KRLeds.getIntensity [eyes] -> 0.0;      KRLeds.getConfigurationSet -> "";
            KRLeds.fade [eyes, 1.0, 10.0];          wait 2.5; KRLeds.getIntensity [eyes] -> 0.25;
            KRLeds.fade [eyes, 0.75, 2.0];          KRLeds.getIntensity [eyes] -> 0.25; wait 1;
            KRLeds.getIntensity [eyes] -> 0.5;      KRLeds.getIntensity [ears] -> 0.0;
            wait 8; KRLeds.getIntensity [eyes] -> 0.75;
            KRLeds.fade [ears, 1.0, 3600.0];        KRLeds.fade [feet, 0.5, 0.0];
            KRLeds.getIntensity [feet] -> 0.5;      wait 1800; KRLeds.getIntensity [ears] -> 0.5;
            KRLeds.setConfigurationSet [night];     KRLeds.getIntensity [ears] -> 0.1;
            KRLeds.setConfigurationSet [alert];     KRLeds.getIntensity [chest] -> 1.0;
            KRLeds.setConfigurationSet [day])");
    expectRefused(R"(KRLeds.fade [ears, -0.01, 1.0]; KRLeds.fade [ears, 1.01, 1];
                     KRLeds.fade [ears, .nan, 1.0];  KRLeds.fade [ears, 1, -0.1];
                     KRLeds.fade [ears, 1, 3600.1];  KRLeds.fade [nose, 1, 1];
                     KRLeds.getIntensity [nose];     KRLeds.setConfigurationSet [noon])");
    for (const std::string group : {"chest", "ears", "eyes", "feet"})
        play("KRLeds.getIntensity [" + group + "] -> 0.8; wait 5");
    play("KRLeds.getConfigurationSet -> \"day\"");
}

TEST_F(ServicesTest, battery_drains_and_charges_linearly_at_its_rates)
{
    play(R"('Device/SubDeviceList/Battery/Charge/Sensor/Status' -> 0;
            KRBattery.getBatteryCharge -> 100; KRBattery.isChargerConnected -> false; wait 3600;
            KRBattery.getBatteryCharge -> 80;  KRBattery.setDischargeRate [10]; wait 3600;
            KRBattery.getBatteryCharge -> 70;  KRBattery.setCharge [19.99];
            KRBattery.getBatteryCharge -> 19;  wait 1800; KRBattery.connectCharger [true];
            wait 1800; KRBattery.getBatteryCharge -> 34;  KRBattery.setChargeRate [2]; wait 7200;
            KRBattery.getBatteryCharge -> 38;  KRBattery.isChargerConnected -> true;
            wait 200000;                       KRBattery.getBatteryCharge -> 100;
            KRBattery.setCharge [0];           KRBattery.getBatteryCharge -> 0;
            KRBattery.setCharge [100])");
    expectRefused(R"(KRBattery.setCharge [-0.1]; KRBattery.setCharge [100.1];
                     KRBattery.setCharge [.nan]; KRBattery.setChargeRate [-1];
                     KRBattery.setDischargeRate [-1])");
    play(R"('Device/SubDeviceList/Battery/Charge/Sensor/Status' -> 128;
            'KRBattery/ConnectedToChargingStation' -> true;
            KRBattery.connectCharger [false];  wait 7200; KRBattery.getBatteryCharge -> 80;
            wait 200000;                       KRBattery.getBatteryCharge -> 0;
            'Device/SubDeviceList/Battery/Charge/Sensor/Status' -> 0;
            'KRBattery/ConnectedToChargingStation' -> false)");
}

TEST_F(ServicesTest, settings_are_what_was_last_accepted)
{
    // The first of those that are accepted is what a new robot has.
    const struct {
        std::string service, name, accepted, refused;
    } rows[] = {
        {"KRAudioDevice", "OutputVolume", "50 0 100", "-1 101"},
        {"KRAudioDevice", "ConfigurationSet", R"("" "night" "day")", "alert"},
        {"KRTextToSpeech", "Language",
         R"("English" "French" "German" "Italian" "Japanese" "English" "Spanish")", R"(Latin "")"},
        {"KREngagementZones", "FirstLimitDistance", "1.5 0.0 100.0 3.0", "-0.1 100.1 .nan"},
        {"KREngagementZones", "SecondLimitDistance", "2.5 0.0 100.0 4.0", "-0.1 100.1 .inf"},
        {"KREngagementZones", "LimitAngle", "90.0 0.0 360.0", "-0.1 360.1 .nan"},
        {"KRPeoplePerception", "MaximumDetectionRange", "3.5 0.1 100.0", "0.09 100.1 .nan"},
        {"KRPeoplePerception", "TimeBeforePersonDisappears", "3.0 0.0 3600.0", "-0.1 3600.1"}};
    for (const auto& [service, name, accepted, refused] : rows) {
        const auto get = service + ".get" + name + " -> ";
        const auto set = service + ".set" + name + " [";
        const auto values = words(accepted);
        play(get + values[0]);
        for (std::size_t i = 1; i < values.size(); ++i)
            play(set + values[i] + "];" + get + values[i]);
        for (const auto& value : words(refused))
            play(set + value + "] -> refused;" + get + values.back());
    }
    play(R"(KREngagementZones.getFirstLimitDistance -> 3.0; KRAudioDevice.getOutputVolume -> 60;
            KREngagementZones.getSecondLimitDistance -> 4.0;
            KRAudioDevice.setConfigurationSet [night];      KRAudioDevice.getOutputVolume -> 30;
            KRTextToSpeech.locale -> "Spanish";      KRBasicAwareness.isAwarenessRunning -> true;
            KRBasicAwareness.stopAwareness;          KRBasicAwareness.isAwarenessRunning -> false;
            KRBasicAwareness.startAwareness;         KRBasicAwareness.isAwarenessRunning -> true;
            KRAnimationPlayer._declarePathForTagsPermanently [b];
            KRAnimationPlayer._declarePathForTagsPermanently [a];
            KRAnimationPlayer._declarePathForTagsPermanently [b];
            KRAnimationPlayer._declarePathForTagsPermanently [""] -> refused;
            KRAnimationPlayer.getDeclaredPathsForTags -> ["b", "a"];
            KRRobotModel._getRobotType -> 0;         KRRobotModel._getRobotTypeString -> "brixa")");
}

TEST_F(ServicesTest, chains_have_the_joints_of_their_limbs_in_order)
{
    const auto limb = [](const char* side, const std::string& joints) {
        return boost::replace_all_copy(joints, "*", side);
    };
    const std::string arm = "*ShoulderPitch *ShoulderRoll *ElbowYaw *ElbowRoll *WristYaw *Hand";
    const std::string leg = " *HipYawPitch *HipRoll *HipPitch *KneePitch *AnklePitch *AnkleRoll ";
    const std::pair<const char*, std::string> rows[] = {
        {"Arms", limb("L", arm + " ") + limb("R", arm)},
        {"Body", "HeadYaw HeadPitch " + limb("L", arm + leg) + limb("R", leg.substr(1) + arm)},
        {"RHand", "RHand"}};
    for (const auto& [part, joints] : rows)
        EXPECT_EQ(platform.broker->getProxy("KRMotion")
                      ->call<std::vector<std::string>>("getBodyNames", std::string(part)),
                  words(joints));
    play(R"(KRMotion.getBodyNames [Tail] -> refused; KRRobotPosture.getPostureList -> ["Crouch", )"
         R"("LyingBack", "LyingBelly", "Sit", "SitRelax", "Stand", "StandInit", "StandZero"])");
}

TEST_F(ServicesTest, dialog_has_one_topic_and_tells_which_the_other_person_ended)
{
    std::string ended;
    const auto dialog = platform.broker->session().service("dialog");
    const vo::Connection end =
        dialog.connect("onEnded", [&](const std::string& topic) { ended += topic + " "; });
    play(R"('KRDialog/Topic' -> ""; dialog.end; dialog.start [a]; dialog.start [b]; dialog.stop [a];
            dialog.stop [""]; dialog.start [""] -> refused; 'KRDialog/Topic' -> "b";
            dialog.stop [b]; dialog.end; wait 0; 'KRDialog/Topic' -> "")");
    EXPECT_EQ(ended, "");
    play(R"(dialog.start [c]; dialog.start [d]; dialog.end; dialog.end; wait 0;
            'KRDialog/Topic' -> "";
            KRTextToSpeech.say [Hello]; 'KRTextToSpeech/CurrentSentence' -> "Hello")");
    EXPECT_EQ(ended, "d ");
}

TEST_F(ServicesTest, memory_holds_what_its_keys_are_described_to_hold)
{
    for (const auto& step : steps(R"(wait 0; KREngagementZones.subscribe [test];
             KRMovementDetection.subscribe [test]; KRWavingDetection.subscribe [test];
             KRGazeAnalysis.subscribe [test]; enter [Anna, 1, 0]; enter [Ben, 3, 1];
             wave [Ben, 2]; push [left]; lift [true]; fall [front]; heat [Head, 150]; leave [Anna];
             KRRobotPosture.goToPosture [SitRelax, 1]; KRBattery.connectCharger [true];
             dialog.start [a]; KRGazeAnalysis.unsubscribe [test];
             KREngagementZones.unsubscribe [test])")) {
        play(step);
        expectDescribedValues();
        platform.advance(seconds(1));
        expectDescribedValues();
    }
}

}  // namespace KR

#include "robot/Robot.h"

#include <vector>

#include "robot/Body.h"
#include "robot/KRAnimationPlayer.h"
#include "robot/KRAudioDevice.h"
#include "robot/KRBasicAwareness.h"
#include "robot/KRDialog.h"
#include "robot/KREngagementZones.h"
#include "robot/KRGazeAnalysis.h"
#include "robot/KRLeds.h"
#include "robot/KRMotion.h"
#include "robot/KRMovementDetection.h"
#include "robot/KRPeoplePerception.h"
#include "robot/KRPreferenceManager.h"
#include "robot/KRRobotModel.h"
#include "robot/KRRobotPosture.h"
#include "robot/KRTextToSpeech.h"
#include "robot/KRWavingDetection.h"
#include "robot/KRWorld.h"
#include "robot/MachineBattery.h"
#include "robot/Senses.h"
#include "robot/SimulatedBattery.h"

namespace KR {

struct Robot::Parts {
    std::shared_ptr<Body> body;
    std::shared_ptr<Senses> senses;
    std::vector<boost::shared_ptr<KRModule>> services;
    std::unique_ptr<SimulatedBattery> simulatedBattery;
    std::unique_ptr<MachineBattery> machineBattery;
};

Robot::Robot(const boost::shared_ptr<KRBroker>& broker, const Options& options)
    : parts_(std::make_unique<Parts>())
{
    parts_->body = std::make_shared<Body>(broker);
    parts_->senses = std::make_shared<Senses>(broker);
    const auto& body = parts_->body;
    const auto& senses = parts_->senses;
    parts_->services = {
        KRModule::createModule<KRAnimationPlayer>(broker),
        KRModule::createModule<KRLeds>(broker),
        KRModule::createModule<KRAudioDevice>(broker),
        KRModule::createModule<KRTextToSpeech>(broker),
        KRModule::createModule<KRDialog>(broker),
        KRModule::createModule<KRRobotModel>(broker),
        KRModule::createModule<KRRobotPosture>(broker, body),
        KRModule::createModule<KRMotion>(broker),
        KRModule::createModule<KRPreferenceManager>(broker, options.preferences),
        KRModule::createModule<KRPeoplePerception>(broker, senses),
        KRModule::createModule<KREngagementZones>(broker, senses),
        KRModule::createModule<KRMovementDetection>(broker, senses),
        KRModule::createModule<KRWavingDetection>(broker, senses),
        KRModule::createModule<KRGazeAnalysis>(broker, senses),
        KRModule::createModule<KRBasicAwareness>(broker, senses),
        KRModule::createModule<KRWorld>(broker, senses, body),
    };
    if (MachineBattery::isThere(options.powerSupplies))
        parts_->machineBattery = std::make_unique<MachineBattery>(broker, options.powerSupplies);
    else
        parts_->simulatedBattery = std::make_unique<SimulatedBattery>(broker);
}

Robot::~Robot() = default;

Body& Robot::body()
{
    return *parts_->body;
}

}  // namespace KR

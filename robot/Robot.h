#pragma once

#include <boost/shared_ptr.hpp>

#include "robot/KRAudioDevice.h"
#include "robot/KRLeds.h"
#include "robot/KRRobotPosture.h"
#include "robot/KRTextToSpeech.h"
#include "robot/SimulatedBattery.h"

namespace KR {

/// The simulated robot: its services, registered for as long as it lives.
struct Robot {
    explicit Robot(const boost::shared_ptr<KRBroker>& broker)
        : leds(KRModule::createModule<KRLeds>(broker)),
          audio(KRModule::createModule<KRAudioDevice>(broker)),
          voice(KRModule::createModule<KRTextToSpeech>(broker)),
          posture(KRModule::createModule<KRRobotPosture>(broker)),
          battery(broker)
    {
    }

    boost::shared_ptr<KRLeds> leds;
    boost::shared_ptr<KRAudioDevice> audio;
    boost::shared_ptr<KRTextToSpeech> voice;
    boost::shared_ptr<KRRobotPosture> posture;
    SimulatedBattery battery;
};

}  // namespace KR

#pragma once

#include "robot/KRExtractor.h"

namespace KR {

/// Whatever moves around the robot.
class KRMovementDetection : public KRExtractor {
public:
    static constexpr const char* kName = "KRMovementDetection";

    KRMovementDetection(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);
};

}  // namespace KR

#pragma once

#include "robot/KRExtractor.h"

namespace KR {

/// Whether people look at the robot.
class KRGazeAnalysis : public KRExtractor {
public:
    static constexpr const char* kName = "KRGazeAnalysis";

    KRGazeAnalysis(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);
};

}  // namespace KR

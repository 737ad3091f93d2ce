#pragma once

#include "robot/KRExtractor.h"

namespace KR {

/// Who is around the robot.
class KRPeoplePerception : public KRExtractor {
public:
    static constexpr const char* kName = "KRPeoplePerception";

    KRPeoplePerception(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);

    /// In metres, 0.1 to 100: how far off people are seen.
    void setMaximumDetectionRange(double metres);
    double getMaximumDetectionRange() const;
    /// In seconds, 0 to 3600: for how long somebody who is no longer seen counts as there.
    void setTimeBeforePersonDisappears(double seconds);
    double getTimeBeforePersonDisappears() const;
};

}  // namespace KR

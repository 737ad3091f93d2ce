#pragma once

#include "robot/KRExtractor.h"

namespace KR {

/// In which of three zones around the robot people are, and movements: see EngagementLimits.
class KREngagementZones : public KRExtractor {
public:
    static constexpr const char* kName = "KREngagementZones";

    KREngagementZones(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);

    /// Where zone 1 ends, and zone 2, in metres, 0 to 100. A second limit below the first leaves
    /// zone 2 empty.
    void setFirstLimitDistance(double metres);
    double getFirstLimitDistance() const;
    void setSecondLimitDistance(double metres);
    double getSecondLimitDistance() const;
    /// How wide both are, in degrees, 0 to 360, half of it to either side.
    void setLimitAngle(double degrees);
    double getLimitAngle() const;
};

}  // namespace KR

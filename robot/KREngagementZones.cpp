#include "robot/KREngagementZones.h"

namespace KR {

KREngagementZones::KREngagementZones(const boost::shared_ptr<KRBroker>& broker,
                                     std::shared_ptr<Senses> senses)
    : KRExtractor(broker, kName, std::move(senses), Senses::Extractor::zones)
{
    using This = KREngagementZones;
    setModuleDescription("In which zones people and movements are");
    bindMethod("setFirstLimitDistance", &This::setFirstLimitDistance, this, "Where zone 1 ends",
               {{"metres", "0 to 100"}});
    bindMethod("getFirstLimitDistance", &This::getFirstLimitDistance, this, "In metres");
    bindMethod("setSecondLimitDistance", &This::setSecondLimitDistance, this, "Where zone 2 ends",
               {{"metres", "0 to 100"}});
    bindMethod("getSecondLimitDistance", &This::getSecondLimitDistance, this, "In metres");
    bindMethod("setLimitAngle", &This::setLimitAngle, this, "How wide zones 1 and 2 are",
               {{"degrees", "0 to 360"}});
    bindMethod("getLimitAngle", &This::getLimitAngle, this, "In degrees");
}

void KREngagementZones::setFirstLimitDistance(double metres)
{
    checkRange(metres, 0, 100, "setFirstLimitDistance");
    senses_->set([&](Senses::Settings& settings) { settings.limits.firstDistance = metres; });
}

double KREngagementZones::getFirstLimitDistance() const
{
    return senses_->settings().limits.firstDistance;
}

void KREngagementZones::setSecondLimitDistance(double metres)
{
    checkRange(metres, 0, 100, "setSecondLimitDistance");
    senses_->set([&](Senses::Settings& settings) { settings.limits.secondDistance = metres; });
}

double KREngagementZones::getSecondLimitDistance() const
{
    return senses_->settings().limits.secondDistance;
}

void KREngagementZones::setLimitAngle(double degrees)
{
    checkRange(degrees, 0, 360, "setLimitAngle");
    senses_->set([&](Senses::Settings& settings) { settings.limits.angle = degrees; });
}

double KREngagementZones::getLimitAngle() const
{
    return senses_->settings().limits.angle;
}

}  // namespace KR

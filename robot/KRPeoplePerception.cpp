#include "robot/KRPeoplePerception.h"

namespace KR {

KRPeoplePerception::KRPeoplePerception(const boost::shared_ptr<KRBroker>& broker,
                                       std::shared_ptr<Senses> senses)
    : KRExtractor(broker, kName, std::move(senses), Senses::Extractor::people)
{
    using This = KRPeoplePerception;
    setModuleDescription("Who is around the robot");
    bindMethod("setMaximumDetectionRange", &This::setMaximumDetectionRange, this,
               "How far off people are seen", {{"metres", "0.1 to 100"}});
    bindMethod("getMaximumDetectionRange", &This::getMaximumDetectionRange, this, "In metres");
    bindMethod("setTimeBeforePersonDisappears", &This::setTimeBeforePersonDisappears, this,
               "For how long somebody who is no longer seen counts as there",
               {{"seconds", "0 to 3600"}});
    bindMethod("getTimeBeforePersonDisappears", &This::getTimeBeforePersonDisappears, this,
               "In seconds");
}

void KRPeoplePerception::setMaximumDetectionRange(double metres)
{
    checkRange(metres, 0.1, 100, "setMaximumDetectionRange");
    senses_->set([&](Senses::Settings& settings) { settings.detectionRange = metres; });
}

double KRPeoplePerception::getMaximumDetectionRange() const
{
    return senses_->settings().detectionRange;
}

void KRPeoplePerception::setTimeBeforePersonDisappears(double seconds)
{
    checkRange(seconds, 0, 3600, "setTimeBeforePersonDisappears");
    senses_->set([&](Senses::Settings& settings) { settings.secondsBeforeDisappearing = seconds; });
}

double KRPeoplePerception::getTimeBeforePersonDisappears() const
{
    return senses_->settings().secondsBeforeDisappearing;
}

}  // namespace KR

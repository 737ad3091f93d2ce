#include "robot/KRMovementDetection.h"

namespace KR {

KRMovementDetection::KRMovementDetection(const boost::shared_ptr<KRBroker>& broker,
                                         std::shared_ptr<Senses> senses)
    : KRExtractor(broker, kName, std::move(senses), Senses::Extractor::movements)
{
    setModuleDescription("Whatever moves around the robot");
}

}  // namespace KR

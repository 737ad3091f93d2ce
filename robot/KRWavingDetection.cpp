#include "robot/KRWavingDetection.h"

namespace KR {

KRWavingDetection::KRWavingDetection(const boost::shared_ptr<KRBroker>& broker,
                                     std::shared_ptr<Senses> senses)
    : KRExtractor(broker, kName, std::move(senses), Senses::Extractor::waves)
{
    setModuleDescription("People who wave");
}

}  // namespace KR

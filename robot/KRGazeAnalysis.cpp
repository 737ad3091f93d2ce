#include "robot/KRGazeAnalysis.h"

namespace KR {

KRGazeAnalysis::KRGazeAnalysis(const boost::shared_ptr<KRBroker>& broker,
                               std::shared_ptr<Senses> senses)
    : KRExtractor(broker, kName, std::move(senses), Senses::Extractor::gazes)
{
    setModuleDescription("Whether people look at the robot");
}

}  // namespace KR

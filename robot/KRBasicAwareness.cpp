#include "robot/KRBasicAwareness.h"

namespace KR {

KRBasicAwareness::KRBasicAwareness(const boost::shared_ptr<KRBroker>& broker,
                                   std::shared_ptr<Senses> senses)
    : KRModule(broker, kName), senses_(std::move(senses))
{
    setModuleDescription("Follows one of the people around the robot");
    bindMethod("startAwareness", &KRBasicAwareness::startAwareness, this,
               "Starts to follow people");
    bindMethod("stopAwareness", &KRBasicAwareness::stopAwareness, this, "Follows nobody");
    bindMethod("isAwarenessRunning", &KRBasicAwareness::isAwarenessRunning, this,
               "Whether it follows people");
}

bool KRBasicAwareness::isAwarenessRunning() const
{
    return senses_->settings().awareness;
}

void KRBasicAwareness::setRunning(bool running)
{
    senses_->set([=](Senses::Settings& settings) { settings.awareness = running; });
}

}  // namespace KR

#include "robot/KRExtractor.h"

#include "platform/kr/KRError.h"

namespace KR {

KRExtractor::KRExtractor(const boost::shared_ptr<KRBroker>& broker, const std::string& name,
                         std::shared_ptr<Senses> senses, Senses::Extractor extractor)
    : KRModule(broker, name), senses_(std::move(senses)), extractor_(extractor)
{
    bindMethod("subscribe", &KRExtractor::subscribe, this, "Has it work for somebody",
               {{"subscriber", "who"}});
    bindMethod("unsubscribe", &KRExtractor::unsubscribe, this, "Has it work for somebody no longer",
               {{"subscriber", "who"}});
    bindMethod("isProcessing", &KRExtractor::isProcessing, this, "Whether it works");
}

void KRExtractor::subscribe(const std::string& subscriber)
{
    senses_->subscribe(extractor_, subscriber);
}

void KRExtractor::unsubscribe(const std::string& subscriber)
{
    senses_->unsubscribe(extractor_, subscriber);
}

bool KRExtractor::isProcessing() const
{
    return senses_->isProcessing(extractor_);
}

void KRExtractor::checkRange(double value, double min, double max, const char* method) const
{
    // Written so that NaN is refused too.
    if (!(value >= min && value <= max))
        throw KRError(getName(), method,
                      std::to_string(value) + " is not from " + std::to_string(min) + " to " +
                          std::to_string(max));
}

}  // namespace KR

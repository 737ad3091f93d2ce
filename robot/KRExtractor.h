#pragma once

#include <memory>
#include <string>

#include "platform/kr/KRModule.h"
#include "robot/Senses.h"

namespace KR {

/// Base of the services that extract something from what the robot perceives, each for as long as
/// somebody is subscribed to it. Senses tells what they write. Thread-safe. Errors are KRError.
class KRExtractor : public KRModule {
public:
    /// One subscriber, however often it asks.
    void subscribe(const std::string& subscriber);
    /// Does nothing for one who is not subscribed.
    void unsubscribe(const std::string& subscriber);
    bool isProcessing() const;

protected:
    KRExtractor(const boost::shared_ptr<KRBroker>& broker, const std::string& name,
                std::shared_ptr<Senses> senses, Senses::Extractor extractor);

    /// KRError for a value that is not from `min` to `max`, NaN among them.
    void checkRange(double value, double min, double max, const char* method) const;

    // Constant after construction.
    const std::shared_ptr<Senses> senses_;

private:
    const Senses::Extractor extractor_;
};

}  // namespace KR

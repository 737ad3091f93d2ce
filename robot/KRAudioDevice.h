#pragma once

#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The loudspeaker of the simulated robot. Thread-safe. Errors are KRError.
class KRAudioDevice : public KRModule {
public:
    static constexpr const char* kName = "KRAudioDevice";

    explicit KRAudioDevice(const boost::shared_ptr<KRBroker>& broker);

    /// In percent, 0 to 100.
    void setOutputVolume(int percent);
    int getOutputVolume() const;

    /// "day" (volume 60) or "night" (volume 30).
    void setConfigurationSet(const std::string& name);
    /// The set that was last asked for; "" before the first.
    std::string getConfigurationSet() const;

private:
    mutable vo::Mutex mutex_;
    int volume_ VO_GUARDED_BY(mutex_) = 50;
    std::string set_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR

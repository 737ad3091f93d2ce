#pragma once

#include <map>
#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The lights of the simulated robot, in groups: "chest", "ears", "eyes", "feet".
///
/// Thread-safe. Errors are KRError.
class KRLeds : public KRModule {
public:
    static constexpr const char* kName = "KRLeds";

    explicit KRLeds(const boost::shared_ptr<KRBroker>& broker);

    /// Brings a group to an intensity, 0 (off) to 1 (full), evenly in so many seconds (0 or more).
    void fade(const std::string& group, double intensity, double seconds);
    /// The intensity that a group has now.
    double getIntensity(const std::string& group) const;

    /// "day", "night" or "alert": sets every group at once.
    void setConfigurationSet(const std::string& name);
    /// The set that was last asked for; "" before the first.
    std::string getConfigurationSet() const;

private:
    struct Light {
        double from = 0;
        double to = 0;
        vo::Duration begin{};  ///< uptime
        vo::Duration length{};
    };
    double intensityNow(const Light& light) const;

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    mutable vo::Mutex mutex_;
    std::map<std::string, Light> groups_ VO_GUARDED_BY(mutex_);
    std::string set_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR

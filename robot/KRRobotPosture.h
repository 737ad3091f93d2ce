#pragma once

#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The posture that the simulated robot was told to take. Thread-safe. Errors are KRError.
class KRRobotPosture : public KRModule {
public:
    static constexpr const char* kName = "KRRobotPosture";

    explicit KRRobotPosture(const boost::shared_ptr<KRBroker>& broker);

    /// Takes one of the postures "Stand", "StandInit", "StandZero", "Crouch", "Sit", "SitRelax",
    /// "LyingBelly" and "LyingBack", at a speed above 0 and up to 1.
    void goToPosture(const std::string& posture, double speed);
    /// The posture last taken; "Stand" at first.
    std::string getPosture() const;

private:
    mutable vo::Mutex mutex_;
    std::string posture_ VO_GUARDED_BY(mutex_) = "Stand";
};

}  // namespace KR

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/kr/KRModule.h"
#include "robot/Body.h"

namespace KR {

/// The posture of the simulated robot; see Body. Thread-safe. Errors are KRError.
class KRRobotPosture : public KRModule {
public:
    static constexpr const char* kName = "KRRobotPosture";

    KRRobotPosture(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Body> body);

    /// Starts to take one of getPostureList(), at a speed above 0 and up to 1.
    void goToPosture(const std::string& posture, double speed);
    /// The posture, and its family, "Standing", "Crouching", "Sitting", "LyingBelly" or
    /// "LyingBack"; "Unknown" on the way from one to another.
    std::string getPosture() const;
    std::string getPostureFamily() const;
    std::vector<std::string> getPostureList() const;

private:
    // Constant after construction.
    const std::shared_ptr<Body> body_;
};

}  // namespace KR

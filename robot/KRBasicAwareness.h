#pragma once

#include <memory>

#include "platform/kr/KRModule.h"
#include "robot/Senses.h"

namespace KR {

/// Follows one of the people around the robot, whose id it writes to the memory key
/// "KRBasicAwareness/HumanTracked"; see Senses. It runs from the start on. Thread-safe.
class KRBasicAwareness : public KRModule {
public:
    static constexpr const char* kName = "KRBasicAwareness";

    KRBasicAwareness(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);

    void startAwareness() { setRunning(true); }
    void stopAwareness() { setRunning(false); }
    bool isAwarenessRunning() const;

private:
    void setRunning(bool running);

    // Constant after construction.
    const std::shared_ptr<Senses> senses_;
};

}  // namespace KR

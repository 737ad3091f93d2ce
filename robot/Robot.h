#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

#include "platform/kr/KRBroker.h"

namespace KR {

class Body;
class KRModule;

/// The simulated robot: its body, the world around it, and its services, registered for as long as
/// it lives. Thread-safe.
class Robot {
public:
    struct Options {
        /// The file that preferences are kept in; empty for none.
        std::string preferences;
        /// A folder of power supplies, as the kernel has it. Where there is a battery in it, that
        /// is the robot's. Empty for the simulated battery in any case.
        std::string powerSupplies;
    };

    Robot(const boost::shared_ptr<KRBroker>& broker, const Options& options);
    explicit Robot(const boost::shared_ptr<KRBroker>& broker) : Robot(broker, Options()) {}
    ~Robot();
    Robot(const Robot&) = delete;
    Robot& operator=(const Robot&) = delete;

    Body& body();

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

}  // namespace KR

#pragma once

#include <cstdint>
#include <string>

#include "platform/kr/KRModule.h"

namespace KR {

/// Which robot this is. Thread-safe.
class KRRobotModel : public KRModule {
public:
    static constexpr const char* kName = "KRRobotModel";

    explicit KRRobotModel(const boost::shared_ptr<KRBroker>& broker);

    /// 0: it stands on two feet that feel the ground, so that lifting can be told. The simulated
    /// robot is of no other type.
    std::int32_t getRobotType() const { return 0; }
    std::string getRobotTypeString() const { return "brixa"; }
};

}  // namespace KR

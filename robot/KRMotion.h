#pragma once

#include <string>
#include <vector>

#include "platform/kr/KRModule.h"

namespace KR {

/// The joints of the simulated robot. Thread-safe. Errors are KRError.
class KRMotion : public KRModule {
public:
    static constexpr const char* kName = "KRMotion";

    explicit KRMotion(const boost::shared_ptr<KRBroker>& broker);

    /// The joints of a chain ("Body" for all); of a joint, that joint.
    std::vector<std::string> getBodyNames(const std::string& name) const;
};

}  // namespace KR

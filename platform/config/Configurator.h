#pragma once

#include <boost/shared_ptr.hpp>

namespace YAML {
class Node;
}

namespace KR {

class KRBroker;

/// What configuration files of the life service and its libraries have in common.
class Configurator {
public:
    /// Checks that "ConfigurationVersion" of `document`, "major" or "major.minor" in decimal
    /// digits, is at most that of major `supportedVersion`; any minor will do. Throws
    /// YamlError, naming the file's version and the supported one, when it is absent, is no
    /// version, or its major is above. Thread-safe. `broker` may be null.
    static void verifyConfigFileVersionCompatible(const boost::shared_ptr<KRBroker>& broker,
                                                  const YAML::Node& document, int supportedVersion);
};

}  // namespace KR

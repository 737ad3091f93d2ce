#pragma once

#include <string>
#include <vector>

#include "host/CommandLine.h"
#include "platform/packages/PackageStore.h"

namespace KR {

/// Adds the command `nimbra package` with its own commands. They return 0; 1 when something could
/// not be done, which goes to stderr, as warnings of what is installed and will not run do; 128 +
/// signal when a signal came between.
void addPackageCommand(const Command& program);

/// The packages of a packages folder, and for each folder in it that is no usable package why.
struct PackageFolder {
    std::vector<vo::PackageInfo> packages;  ///< in ascending order of uuid
    std::vector<std::string> problems;
};

/// Reads a packages folder and changes nothing. std::runtime_error when it is not there.
PackageFolder readPackageFolder(const std::string& folder);

}  // namespace KR

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/vo/PackageInfo.h"

namespace KR {

/// The file of a package that says what the package is, in the package's own folder.
constexpr const char* kPackageManifestFile = "package.yaml";
/// Newest major version of manifests that is understood.
constexpr int kPackageManifestVersion = 1;

/// Largest manifest: hundreds of behaviours with long conditions fit in it.
constexpr std::size_t kMaxManifestBytes = std::size_t{1024} * 1024;
/// Behaviours of one package, and entries of any list in a manifest: far beyond real packages.
constexpr std::size_t kMaxManifestEntries = 1000;
/// Longest single text; the longest ones are conditions.
constexpr std::size_t kMaxManifestTextBytes = std::size_t{16} * 1024;

/// One thing that is wrong with a manifest.
struct PackageManifestProblem {
    std::size_t line;    ///< from 1; 0 when it has no place in the file
    std::size_t column;  ///< from 1; 0 likewise
    std::string text;
};

/// Raised for a manifest that is not there, is too large, or is wrong; with everything that is
/// wrong with it. what() has a line for each, "<file>:<line>:<column>: <text>".
class PackageManifestError : public std::runtime_error {
public:
    /// `problems` are in order and not empty.
    PackageManifestError(const std::string& file, std::vector<PackageManifestProblem> problems);

    const std::vector<PackageManifestProblem>& problems() const { return problems_; }

private:
    std::vector<PackageManifestProblem> problems_;
};

/// Reads the manifest of the package in a folder; the package's path is that folder as given.
/// PackageManifestError when it is not usable.
///
///     ConfigurationVersion: 1
///     Uuid: greeter                       # see uuidProblem()
///     Version: 1.2.0
///     SupportedLanguages: [English]       # optional; without it, every language
///     Behaviors:                          # optional
///       - Path: hello                     # folder inside the package, see packagePathProblem()
///         Nature: interactive             # optional, as is all that follows
///         Permissions: [canRunOnPod]
///         UserRequestable: true
///         Conditions:                     # by name; one text or a list of them
///           launchTrigger: "'Launchpad/PeopleCount' > 0"
///         Tags:                           # by language; one text or a list of them
///           English: [launcher]
///
/// Other keys are refused. Conditions are taken as they are: whether one parses is its user's
/// business, and no other behaviour's. Thread-safe.
vo::PackageInfo readPackageManifest(const std::string& folder);

}  // namespace KR

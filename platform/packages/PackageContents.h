#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace KR {

/// Files and folders of one package: hundreds of times those of a real one, and few enough to be
/// made and removed in seconds.
constexpr std::size_t kMaxPackageEntries = 10'000;
/// Bytes of one package when it is unpacked: sounds and pictures of many behaviours fit in it.
constexpr std::uintmax_t kMaxPackageBytes = std::uintmax_t{512} * 1024 * 1024;

struct PackageLimits {
    std::size_t entries = kMaxPackageEntries;
    std::uintmax_t bytes = kMaxPackageBytes;
    /// What the number of bytes is, for the error that names it.
    std::string bytesAre = "the most that a package may have";
};

/// The files and folders of one package, by name and size: who fills it learns what may not be in a
/// package, or is too much for one, before anything is written.
///
/// Every function throws std::runtime_error for what is refused, and changes nothing then. Not
/// thread-safe.
class PackageContents {
public:
    explicit PackageContents(PackageLimits limits) : limits_(std::move(limits)) {}

    /// Adds a folder, and those that it lies in. One that is there already does no harm. Returns
    /// those that are new, from the outside in.
    std::vector<std::string> addFolder(const std::string& path);
    /// Adds an empty file. Returns the folders that are new with it, from the outside in.
    std::vector<std::string> addFile(const std::string& path);
    /// Adds to the bytes of the files.
    void addBytes(std::uintmax_t more);

    /// The folder that holds everything else; "" when there is none.
    std::string outerFolder() const;

private:
    void check(const std::string& path) const;
    std::vector<std::string> newFoldersTo(const std::string& path, std::size_t more);

    const PackageLimits limits_;
    std::uintmax_t bytes_ = 0;
    std::set<std::string> folders_;
    std::set<std::string> files_;
};

}  // namespace KR

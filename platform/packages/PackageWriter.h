#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "platform/packages/FileDescriptor.h"

namespace KR {

/// Files and folders of one package: hundreds of times those of a real one, and few enough to be
/// made and removed in seconds.
constexpr std::size_t kMaxPackageEntries = 10'000;
/// Bytes of one package when it is unpacked: sounds and pictures of many behaviours fit in it.
constexpr std::uintmax_t kMaxPackageBytes = std::uintmax_t{512} * 1024 * 1024;
/// Bytes that an install leaves free on the disk, for those who log and save on it.
constexpr std::uintmax_t kDiskReserveBytes = std::uintmax_t{64} * 1024 * 1024;

struct PackageLimits {
    std::size_t entries = kMaxPackageEntries;
    std::uintmax_t bytes = kMaxPackageBytes;
};

/// Writes the files of a package into a new folder, within limits: whatever the package's source
/// says, nothing lands outside of the folder, replaces a file, is a link or a device, or exceeds
/// the limits.
///
/// Every function throws std::runtime_error, std::system_error where the disk refused. What was
/// written until then stays. Not thread-safe.
class PackageWriter {
public:
    /// Told of each change to the disk before it is made; what it throws prevents the change.
    using BeforeStep = std::function<void(const std::string& step)>;

    /// `folder` exists and is empty.
    PackageWriter(std::string folder, const PackageLimits& limits, BeforeStep beforeStep);

    /// Makes a folder and those that it lies in. One that was made before is left as it is.
    void addFolder(const std::string& path);
    /// Begins a file of at least this many bytes, and makes the folders that it lies in.
    void beginFile(const std::string& path, bool executable, std::uintmax_t announcedBytes = 0);
    /// Adds to the file that was begun.
    void write(const char* data, std::size_t size);
    /// Ends the file, which then is on the disk for good.
    void endFile();

    /// Makes the folders' entries last, too.
    void syncFolders() const;

private:
    void check(const std::string& path) const;
    void checkBytes(std::uintmax_t more) const;
    void makeFoldersOf(const std::string& path);
    void makeFolder(const std::string& path);
    void countEntry();
    std::string target(const std::string& path) const { return folder_ + "/" + path; }

    // Constant after construction.
    const std::string folder_;
    PackageLimits limits_;
    const BeforeStep beforeStep_;

    std::size_t entries_ = 0;
    std::uintmax_t bytes_ = 0;
    std::set<std::string> folders_;
    std::set<std::string> files_;
    FileDescriptor file_;
    std::string path_;  ///< of the file that was begun
};

}  // namespace KR

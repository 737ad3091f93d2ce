#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/packages/FileDescriptor.h"
#include "platform/packages/PackageContents.h"

namespace KR {

/// Bytes that an install leaves free on the disk, for those who log and save on it: this many, and
/// on a small disk a sixteenth of it.
constexpr std::uintmax_t kDiskReserveBytes = std::uintmax_t{64} * 1024 * 1024;
constexpr std::uintmax_t kSmallDiskReserveShare = 16;

/// Writes the files of a package into a new folder, within limits: whatever the package's source
/// says, nothing lands outside of the folder, replaces a file, is a link or a device, or exceeds
/// the limits.
///
/// Every function throws std::runtime_error, std::system_error where the disk refused. What was
/// written until then stays. Not thread-safe.
class PackageWriter {
public:
    /// Told of each step, reading or changing the disk, before it is made; what it throws prevents
    /// the step.
    using BeforeStep = std::function<void(const std::string& step)>;

    /// `folder` exists and is empty; `disk` is what it lies on.
    PackageWriter(std::string folder, const PackageLimits& limits,
                  const std::filesystem::space_info& disk, BeforeStep beforeStep);

    /// What may be written in all.
    const PackageLimits& limits() const { return limits_; }
    const BeforeStep& beforeStep() const { return beforeStep_; }

    /// Makes a folder and those that it lies in. One that was made before is left as it is.
    void addFolder(const std::string& path);
    /// Begins a file, and makes the folders that it lies in.
    void beginFile(const std::string& path, bool executable);
    /// Adds to the file that was begun.
    void write(const char* data, std::size_t size);
    void endFile();

    /// Makes all that was written last.
    void sync() const;

private:
    void makeFolders(const std::vector<std::string>& paths) const;
    std::string target(const std::string& path) const { return folder_ + "/" + path; }

    // Constant after construction.
    const std::string folder_;
    const PackageLimits limits_;
    const BeforeStep beforeStep_;

    PackageContents contents_;
    FileDescriptor file_;
    std::string path_;  ///< of the file that was begun
};

}  // namespace KR

#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/packages/FileDescriptor.h"
#include "platform/packages/PackageWriter.h"
#include "platform/vo/PackageInfo.h"

namespace KR {

/// Installed packages on disk: one folder a package in the packages folder, named by its uuid.
///
/// Changes are all or nothing. A new package is staged in a folder beside the others, brought to
/// the disk, and moved into its place in one step; a package that is replaced changes places with
/// the new one in that same step, and one that is removed is moved aside first. Whenever this
/// process, or the machine, is stopped, the packages folder holds the old package or the new one,
/// and at worst a folder "~new-..." or "~old-..." besides, which is no package's name and which
/// clearLeftovers() removes.
///
/// Thread-safe, and safe against other processes: changes hold an advisory lock on the packages
/// folder. Errors are std::runtime_error, std::system_error where the disk refused.
class PackageStore {
public:
    enum class IfInstalled { refuse, replace };

    struct Options {
        PackageLimits limits = {};
        /// Told of each step before it is made; what it throws fails the operation before the
        /// package is in its place, and is logged after it. For who interrupts operations, and for
        /// tests.
        PackageWriter::BeforeStep beforeStep = [](const std::string&) {};
        /// Whether changes are brought to the disk. What is to be looked at and thrown away need
        /// not be.
        bool lasts = true;
        /// What the disk of a folder holds, and can take. Tests have disks of their own.
        std::function<std::filesystem::space_info(const std::string& folder)> diskOf =
            [](const std::string& folder) { return std::filesystem::space(folder); };
    };

    /// Nothing is read or written before the first operation.
    PackageStore(std::string folder, Options options);
    explicit PackageStore(std::string folder) : PackageStore(std::move(folder), Options()) {}

    const std::string& folder() const { return folder_; }
    /// Where the package of a uuid is, or would be.
    std::string path(const std::string& uuid) const { return folder_ + "/" + uuid; }

    /// Installs from a folder or an archive (see unpackPackageArchive), which stays as it is;
    /// returns the package's uuid. An error leaves everything as it was.
    std::string install(const std::string& source, IfInstalled ifInstalled) const;
    void remove(const std::string& uuid) const;
    /// Removes what operations that were cut off have left, and waits for those in progress. What
    /// cannot be removed is logged.
    void clearLeftovers() const;

    /// Names of the folders that may hold packages, in ascending order.
    std::vector<std::string> folders() const;
    /// The package in the folder of that name. What is no usable package is an error: it has no
    /// usable manifest, or its uuid is another name.
    vo::PackageInfo package(const std::string& name) const;

private:
    FileDescriptor lock() const;
    void fill(PackageWriter& writer, const std::string& source) const;
    void checkTaken(const std::string& uuid, IfInstalled ifInstalled) const;
    void finish(const FileDescriptor& packages, const std::string& uuid) const;

    // Constant after construction.
    const std::string folder_;
    const Options options_;
};

}  // namespace KR

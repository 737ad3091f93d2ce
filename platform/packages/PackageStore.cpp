#include "platform/packages/PackageStore.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/packages/PackageArchive.h"
#include "platform/packages/PackageManifest.h"
#include "platform/packages/PackageNames.h"
#include "platform/vo/Log.h"

namespace KR {

namespace fs = std::filesystem;

namespace {

const vo::Logger packageStoreLog("PackageManager");

// Uuids do not hold a tilde.
constexpr char kLeftoverMark = '~';
constexpr const char* kNewPrefix = "~new-";
constexpr const char* kOldPrefix = "~old-";

constexpr std::size_t kReadBytes = std::size_t{64} * 1024;

bool beginsWith(const std::string& text, const char* prefix)
{
    return text.rfind(prefix, 0) == 0;
}

/// Removes a folder and what it holds, read-only folders among it. The error is empty when nothing
/// is left.
std::error_code removeTree(const fs::path& folder)
{
    std::error_code error;
    if (fs::remove_all(folder, error); !error)
        return error;
    const auto options = fs::directory_options::skip_permission_denied;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, error);
    for (fs::recursive_directory_iterator at(folder, options, error), end; !error && at != end;
         at.increment(error)) {
        if (at->symlink_status(error).type() == fs::file_type::directory)
            fs::permissions(at->path(), fs::perms::owner_all, fs::perm_options::add, error);
    }
    error.clear();
    fs::remove_all(folder, error);
    return error;
}

/// A folder with a name of its own, gone with its scope, whatever it holds by then.
class StagingFolder {
public:
    StagingFolder(const std::string& parent, const char* prefix)
        : path_(parent + "/" + prefix + "XXXXXX")
    {
        if (!::mkdtemp(path_.data()))
            failWithErrno(parent);
    }
    ~StagingFolder()
    {
        const std::error_code error = removeTree(path_);
        if (error)
            packageStoreLog.warning("clear", path_ + " cannot be removed: " + error.message());
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void copyFile(const std::string& source, const std::string& path, PackageWriter& writer)
{
    // Whatever the entry has become since it was listed.
    const FileDescriptor file(
        ::open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC), source);
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0)
        failWithErrno(source);
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error("the path " + inQuotes(path) + " is no regular file");

    writer.beginFile(path, (status.st_mode & S_IXUSR) != 0);
    std::array<char, kReadBytes> block;
    while (true) {
        const auto size = ::read(file.get(), block.data(), block.size());
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            failWithErrno(source);
        if (size == 0)
            break;
        writer.write(block.data(), static_cast<std::size_t>(size));
    }
    writer.endFile();
}

/// The whole folder is looked at before anything is written.
void copyFolder(const std::string& source, PackageWriter& writer)
{
    PackageContents contents(writer.limits());
    std::vector<std::pair<std::string, fs::file_type>> entries;
    for (const auto& entry : fs::recursive_directory_iterator(source)) {
        const std::string path = entry.path().lexically_relative(source).string();
        const auto type = entry.symlink_status().type();
        if (type == fs::file_type::directory) {
            contents.addFolder(path);
        } else if (type == fs::file_type::regular) {
            contents.addFile(path);
            contents.addBytes(entry.file_size());
        } else {
            throw std::runtime_error("the path " + inQuotes(path) +
                                     " is a link or a special file; packages have files and "
                                     "folders only");
        }
        entries.emplace_back(path, type);
    }
    for (const auto& [path, type] : entries) {
        if (type == fs::file_type::directory)
            writer.addFolder(path);
        else
            copyFile((fs::path(source) / path).string(), path, writer);
    }
}

/// Each behaviour is a folder of the package.
void checkBehaviors(const vo::PackageInfo& package)
{
    std::string missing;
    for (const auto& behavior : package.behaviors()) {
        std::error_code error;
        if (!fs::is_directory(fs::path(package.path()) / behavior.path(), error))
            missing += (missing.empty() ? "" : "\n") +
                       ("the behaviour " + inQuotes(behavior.path())) + " has no folder";
    }
    if (!missing.empty())
        throw std::runtime_error(missing);
}

/// Errors name the manifest where the user finds it.
vo::PackageInfo readStaged(const std::string& staging, const std::string& source)
{
    try {
        return readPackageManifest(staging);
    } catch (const PackageManifestError& e) {
        throw PackageManifestError((fs::path(source) / kPackageManifestFile).string(),
                                   e.problems());
    }
}

void movePath(const std::string& from, const std::string& to, unsigned flags)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) != 0)
        failWithErrno(to);
}

}  // namespace

PackageStore::PackageStore(std::string folder, Options options)
    : folder_(std::move(folder)), options_(std::move(options))
{
}

/// The packages folder, locked while it is open.
FileDescriptor PackageStore::lock() const
{
    FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder_);
    while (::flock(folder.get(), LOCK_EX) != 0) {
        if (errno != EINTR)
            failWithErrno(folder_);
    }
    return folder;
}

std::string PackageStore::install(const std::string& source, IfInstalled ifInstalled) const
{
    const FileDescriptor packages = lock();
    options_.beforeStep("make the staging folder");
    const StagingFolder staging(folder_, kNewPrefix);
    if (::chmod(staging.path().c_str(), 0755) != 0)
        failWithErrno(staging.path());
    PackageWriter writer(staging.path(), options_.limits, options_.diskOf(staging.path()),
                         options_.beforeStep);
    fill(writer, source);

    const vo::PackageInfo package = readStaged(staging.path(), source);
    checkBehaviors(package);
    checkTaken(package.uuid(), ifInstalled);
    if (options_.lasts)
        writer.sync();
    const std::string target = path(package.uuid());
    const bool replaces = fs::exists(fs::symlink_status(target));
    options_.beforeStep("move the package to its place");
    movePath(staging.path(), target, replaces ? RENAME_EXCHANGE : RENAME_NOREPLACE);
    finish(packages, package.uuid());
    return package.uuid();
}

void PackageStore::fill(PackageWriter& writer, const std::string& source) const
{
    std::error_code error;
    const fs::path path = fs::canonical(source, error);
    if (error)
        throw std::system_error(error, inQuotes(source));
    if (!fs::is_directory(path)) {
        if (!fs::is_regular_file(path))
            throw std::runtime_error(source + " is neither a folder nor a file");
        unpackPackageArchive(path.string(), writer);
        return;
    }
    const fs::path packages = fs::canonical(folder_);
    if (std::mismatch(path.begin(), path.end(), packages.begin(), packages.end()).first ==
        path.end())
        throw std::runtime_error(source + " holds the packages folder");
    copyFolder(path.string(), writer);
}

void PackageStore::checkTaken(const std::string& uuid, IfInstalled ifInstalled) const
{
    if (ifInstalled == IfInstalled::refuse && fs::exists(fs::symlink_status(path(uuid))))
        throw std::runtime_error("a package " + inQuotes(uuid) + " is installed already");
}

void PackageStore::remove(const std::string& uuid) const
{
    const std::string target = path(uuid);
    const FileDescriptor packages = lock();
    if (!uuidProblem(uuid).empty() || !fs::is_directory(fs::symlink_status(target)))
        throw std::runtime_error("no package " + inQuotes(uuid) + " is installed");
    options_.beforeStep("make a folder aside");
    const StagingFolder aside(folder_, kOldPrefix);
    options_.beforeStep("move the package aside");
    movePath(target, aside.path(), 0);
    finish(packages, uuid);
}

/// The change is made; it cannot fail any more.
void PackageStore::finish(const FileDescriptor& packages, const std::string& uuid) const
{
    try {
        if (options_.lasts) {
            options_.beforeStep("sync the packages folder");
            syncToDisk(packages, folder_);
        }
        options_.beforeStep("remove what is left");
    } catch (const std::exception& e) {
        packageStoreLog.warning("finish",
                                "After a change of package " + inQuotes(uuid) + ": " + e.what());
    }
}

void PackageStore::clearLeftovers() const
{
    const FileDescriptor packages = lock();
    std::vector<fs::path> leftovers;
    for (const auto& entry : fs::directory_iterator(folder_)) {
        const std::string name = entry.path().filename().string();
        if (beginsWith(name, kNewPrefix) || beginsWith(name, kOldPrefix))
            leftovers.push_back(entry.path());
    }
    for (const auto& leftover : leftovers) {
        const std::error_code error = removeTree(leftover);
        if (error)
            packageStoreLog.warning("clearLeftovers",
                                    leftover.string() + " cannot be removed: " + error.message());
        else
            packageStoreLog.info("clearLeftovers",
                                 leftover.string() + " was left over and is removed");
    }
}

std::vector<std::string> PackageStore::folders() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) {
        std::string name = entry.path().filename().string();
        std::error_code error;
        if (name.front() != kLeftoverMark && fs::is_directory(entry.symlink_status(error)))
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

vo::PackageInfo PackageStore::package(const std::string& name) const
{
    vo::PackageInfo found = readPackageManifest(path(name));
    if (found.uuid() != name)
        throw std::runtime_error("its package's uuid is " + inQuotes(found.uuid()) +
                                 ", not the folder's name");
    return found;
}

}  // namespace KR

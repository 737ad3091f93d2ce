#include "platform/packages/PackageWriter.h"

#include <algorithm>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <utility>

#include "platform/packages/PackageNames.h"

namespace KR {

namespace {

std::uintmax_t usableBytes(const std::string& folder)
{
    struct statvfs disk = {};
    if (::statvfs(folder.c_str(), &disk) != 0)
        failWithErrno(folder);
    const auto available = static_cast<std::uintmax_t>(disk.f_bavail) * disk.f_frsize;
    if (available <= kDiskReserveBytes)
        throw std::system_error(ENOSPC, std::generic_category(), folder);
    return available - kDiskReserveBytes;
}

}  // namespace

PackageWriter::PackageWriter(std::string folder, const PackageLimits& limits, BeforeStep beforeStep)
    : folder_(std::move(folder)), limits_(limits), beforeStep_(std::move(beforeStep))
{
    limits_.bytes = std::min(limits_.bytes, usableBytes(folder_));
}

void PackageWriter::check(const std::string& path) const
{
    const std::string problem = packagePathProblem(path);
    if (!problem.empty())
        throw std::runtime_error("the path " + quoted(path) + " " + problem);
    if (files_.count(path))
        throw std::runtime_error("the path " + quoted(path) + " is there twice");
}

void PackageWriter::checkBytes(std::uintmax_t more) const
{
    if (more > limits_.bytes - bytes_)
        throw std::runtime_error("its files have more than " + std::to_string(limits_.bytes) +
                                 " bytes, which is the limit or what the disk has to spare");
}

void PackageWriter::countEntry()
{
    if (++entries_ > limits_.entries)
        throw std::runtime_error("it has more than " + std::to_string(limits_.entries) +
                                 " files and folders");
}

void PackageWriter::addFolder(const std::string& path)
{
    check(path);
    makeFoldersOf(path);
    makeFolder(path);
}

void PackageWriter::makeFoldersOf(const std::string& path)
{
    for (auto end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1))
        makeFolder(path.substr(0, end));
}

void PackageWriter::makeFolder(const std::string& path)
{
    if (folders_.count(path))
        return;
    if (files_.count(path))
        throw std::runtime_error("the path " + quoted(path) + " is both a file and a folder");
    countEntry();
    beforeStep_("make folder " + path);
    if (::mkdir(target(path).c_str(), 0755) != 0)
        failWithErrno(target(path));
    folders_.insert(path);
}

void PackageWriter::beginFile(const std::string& path, bool executable,
                              std::uintmax_t announcedBytes)
{
    check(path);
    if (folders_.count(path))
        throw std::runtime_error("the path " + quoted(path) + " is both a file and a folder");
    checkBytes(announcedBytes);
    makeFoldersOf(path);
    countEntry();
    beforeStep_("make file " + path);
    file_ = FileDescriptor(
        ::open(target(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
               executable ? 0755 : 0644),
        target(path));
    path_ = path;
    files_.insert(path);
}

void PackageWriter::write(const char* data, std::size_t size)
{
    checkBytes(size);
    bytes_ += size;
    beforeStep_("write to " + path_);
    while (size > 0) {
        const auto written = ::write(file_.get(), data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            failWithErrno(target(path_));
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void PackageWriter::endFile()
{
    beforeStep_("sync file " + path_);
    syncToDisk(file_, target(path_));
    file_ = FileDescriptor();
}

void PackageWriter::syncFolders() const
{
    beforeStep_("sync folders");
    const auto sync = [](const std::string& folder) {
        syncToDisk(
            FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder),
            folder);
    };
    for (const std::string& path : folders_)
        sync(target(path));
    sync(folder_);
}

}  // namespace KR

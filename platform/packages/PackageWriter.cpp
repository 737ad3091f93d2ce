#include "platform/packages/PackageWriter.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace KR {

namespace {

/// The limits, or what the disk has to spare when that is less.
PackageLimits within(PackageLimits limits, const std::filesystem::space_info& disk)
{
    const auto reserve = std::min(kDiskReserveBytes, disk.capacity / kSmallDiskReserveShare);
    const auto spare = disk.available - std::min(reserve, disk.available);
    if (spare < limits.bytes) {
        limits.bytes = spare;
        limits.bytesAre = "what the disk can take: " + std::to_string(disk.available) +
                          " bytes are free, and " + std::to_string(reserve) + " have to stay free";
    }
    return limits;
}

}  // namespace

PackageWriter::PackageWriter(std::string folder, const PackageLimits& limits,
                             const std::filesystem::space_info& disk, BeforeStep beforeStep)
    : folder_(std::move(folder)),
      limits_(within(limits, disk)),
      beforeStep_(std::move(beforeStep)),
      contents_(limits_)
{
}

void PackageWriter::addFolder(const std::string& path)
{
    makeFolders(contents_.addFolder(path));
}

void PackageWriter::makeFolders(const std::vector<std::string>& paths) const
{
    for (const std::string& path : paths) {
        beforeStep_("make folder " + path);
        if (::mkdir(target(path).c_str(), 0755) != 0)
            failWithErrno(target(path));
    }
}

void PackageWriter::beginFile(const std::string& path, bool executable)
{
    makeFolders(contents_.addFile(path));
    beforeStep_("make file " + path);
    file_ = FileDescriptor(
        ::open(target(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
               executable ? 0755 : 0644),
        target(path));
    path_ = path;
}

void PackageWriter::write(const char* data, std::size_t size)
{
    contents_.addBytes(size);
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
    file_ = FileDescriptor();
}

/// The whole file system at once: file by file, thousands of them take as many turns of the disk.
void PackageWriter::sync() const
{
    beforeStep_("sync the files");
    const FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC),
                                folder_);
    if (::syncfs(folder.get()) != 0)
        failWithErrno(folder_);
}

}  // namespace KR

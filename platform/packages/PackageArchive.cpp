#include "platform/packages/PackageArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/packages/PackageNames.h"
#include "platform/packages/PackageWriter.h"

namespace KR {

namespace {

/// What is read and written at a time.
constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;

constexpr const char* kUnreadable = "the archive cannot be read";

using Archive = std::unique_ptr<archive, decltype(&archive_read_free)>;

[[noreturn]] void fail(archive* source, const std::string& what)
{
    const char* const reason = archive_error_string(source);
    throw std::runtime_error(what + ": " + (reason ? reason : "unknown error"));
}

/// Only what packages come in: every other format is one more parser of foreign bytes.
Archive open(const std::string& path)
{
    Archive source(archive_read_new(), &archive_read_free);
    archive* const a = source.get();
    if (!a)
        throw std::bad_alloc();
    archive_read_support_filter_gzip(a);
    archive_read_support_filter_bzip2(a);
    archive_read_support_filter_xz(a);
    archive_read_support_filter_zstd(a);
    archive_read_support_format_tar(a);
    archive_read_support_format_zip(a);
    if (archive_read_open_filename(a, path.c_str(), kBlockBytes) != ARCHIVE_OK)
        fail(a, kUnreadable);
    return source;
}

/// The entry's path as bytes in UTF-8, whatever the locale of this process is.
std::string pathOf(archive_entry* entry)
{
    const char* path = archive_entry_pathname_utf8(entry);
    if (!path)
        path = archive_entry_pathname(entry);
    if (!path)
        throw std::runtime_error("an entry of it has a name that cannot be read");
    return path;
}

/// Archivers write "./a/b" for what they found in ".", and "a/" for folders.
std::string withoutAdornment(std::string path, bool isFolder)
{
    while (path.compare(0, 2, "./") == 0)
        path.erase(0, 2);
    if (isFolder && !path.empty() && path != "/" && path.back() == '/')
        path.pop_back();
    return isFolder && path == "." ? std::string() : path;
}

const char* kindName(archive_entry* entry)
{
    if (archive_entry_hardlink(entry))
        return "hard link";
    switch (archive_entry_filetype(entry)) {
        case AE_IFLNK:
            return "symbolic link";
        case AE_IFCHR:
        case AE_IFBLK:
            return "device";
        case AE_IFIFO:
            return "pipe";
        case AE_IFSOCK:
            return "socket";
        default:
            return "special file";
    }
}

void copyData(archive* source, PackageWriter& writer, std::vector<char>& block,
              const std::string& path)
{
    while (true) {
        const auto size = archive_read_data(source, block.data(), block.size());
        if (size == 0)
            return;
        if (size < 0)
            fail(source, "the content of " + quoted(path) + " cannot be read");
        writer.write(block.data(), static_cast<std::size_t>(size));
    }
}

void unpackEntry(archive* source, archive_entry* entry, PackageWriter& writer,
                 std::vector<char>& block)
{
    const auto type = archive_entry_filetype(entry);
    const bool isFolder = type == AE_IFDIR;
    const std::string path = withoutAdornment(pathOf(entry), isFolder);
    if (archive_entry_hardlink(entry) || (type != AE_IFREG && !isFolder))
        throw std::runtime_error("the path " + quoted(path) + " is a " + kindName(entry) +
                                 "; packages have files and folders only");
    if (isFolder) {
        // The package's own folder is there already.
        if (!path.empty())
            writer.addFolder(path);
        return;
    }
    const auto size = archive_entry_size_is_set(entry) ? archive_entry_size(entry) : 0;
    writer.beginFile(path, (archive_entry_perm(entry) & 0100) != 0,
                     size > 0 ? static_cast<std::uintmax_t>(size) : 0);
    copyData(source, writer, block, path);
    writer.endFile();
}

}  // namespace

void unpackPackageArchive(const std::string& path, PackageWriter& writer)
{
    const Archive source = open(path);
    std::vector<char> block(kBlockBytes);
    archive_entry* entry = nullptr;
    while (true) {
        const int result = archive_read_next_header(source.get(), &entry);
        if (result == ARCHIVE_EOF)
            return;
        // A warning is about a name that is foreign to the locale, which does not concern us.
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN)
            fail(source.get(), kUnreadable);
        unpackEntry(source.get(), entry, writer, block);
    }
}

}  // namespace KR

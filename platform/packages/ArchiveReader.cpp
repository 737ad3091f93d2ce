#include "platform/packages/ArchiveReader.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

#include "platform/packages/PackageNames.h"

namespace KR {

namespace {

/// What is read at a time.
constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;
/// What an archive spends on an entry besides its content: the headers of the longest path.
constexpr std::uintmax_t kMaxHeaderBytes = 4096;
/// What it spends on itself: its end, filled up to whatever the archiver writes at a time.
constexpr std::uintmax_t kMaxPaddingBytes = std::uintmax_t{1024} * 1024;

constexpr const char* kUnreadable = "the archive cannot be read";

/// By which bytes at the beginning of a file its compression is known.
struct Compression {
    std::string_view begin;
    int filter;
};

constexpr std::array<Compression, 4> kCompressions{{
    {"\x1f\x8b", ARCHIVE_FILTER_GZIP},
    {"BZh", ARCHIVE_FILTER_BZIP2},
    {{"\xfd"
      "7zXZ\0",
      6},
     ARCHIVE_FILTER_XZ},
    {"\x28\xb5\x2f\xfd", ARCHIVE_FILTER_ZSTD},
}};

/// Of the file; ARCHIVE_FILTER_NONE for one that is not compressed.
int compressionOf(const FileDescriptor& file, const std::string& path)
{
    std::array<char, 8> bytes{};
    const auto size = ::pread(file.get(), bytes.data(), bytes.size(), 0);
    if (size < 0)
        failWithErrno(path);
    const std::string_view begin(bytes.data(), static_cast<std::size_t>(size));
    for (const Compression& compression : kCompressions) {
        if (begin.substr(0, compression.begin.size()) == compression.begin)
            return compression.filter;
    }
    return ARCHIVE_FILTER_NONE;
}

using Archive = std::unique_ptr<archive, decltype(&archive_read_free)>;

Archive makeArchive()
{
    Archive made(archive_read_new(), &archive_read_free);
    if (!made)
        throw std::bad_alloc();
    return made;
}

[[noreturn]] void fail(archive* source, const std::string& what)
{
    const char* const reason = archive_error_string(source);
    throw std::runtime_error(what + ": " + (reason ? reason : "unknown error"));
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

}  // namespace

/// The archive's format, read from the file or from what its compression unpacks to. libarchive
/// would undo one compression after the other, and look for every kind of each: so there are two
/// readers, one that knows one compression and no format, and one that knows formats only. Between
/// them every byte is counted.
class ArchiveReader::Source {
public:
    Source(const std::string& path, const PackageLimits& limits)
        : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path),
          contentBytes_(limits.bytes),
          leftBytes_((limits.entries + 1) * kMaxHeaderBytes + kMaxPaddingBytes),
          maxBytes_(leftBytes_ + contentBytes_)
    {
        struct stat status = {};
        if (::fstat(file_.get(), &status) != 0)
            failWithErrno(path);
        if (static_cast<std::uintmax_t>(status.st_size) > maxBytes_)
            throw std::runtime_error("the archive has more than " + std::to_string(maxBytes_) +
                                     " bytes");
        const int filter = compressionOf(file_, path);
        if (filter != ARCHIVE_FILTER_NONE)
            openCompressed(filter);
        openFormat();
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    archive* get() const { return format_.get(); }

    /// Null at the end. Before the first one nothing but headers can have been of use.
    archive_entry* next()
    {
        archive_entry* entry = nullptr;
        const int result = archive_read_next_header(get(), &entry);
        if (result == ARCHIVE_EOF)
            return nullptr;
        // A warning is about a name that is foreign to the locale, which does not concern us.
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN)
            fail(get(), kUnreadable);
        leftBytes_ += std::exchange(contentBytes_, 0);
        return entry;
    }

private:
    void openCompressed(int filter)
    {
        archive* const a = compressed_.get();
        archive_read_support_format_raw(a);
        archive_entry* whole = nullptr;
        if (archive_read_append_filter(a, filter) != ARCHIVE_OK ||
            archive_read_open_fd(a, file_.get(), kBlockBytes) != ARCHIVE_OK ||
            archive_read_next_header(a, &whole) != ARCHIVE_OK)
            fail(a, kUnreadable);
        isCompressed_ = true;
    }

    /// Only what packages come in: every other format is one more parser of foreign bytes.
    void openFormat()
    {
        archive* const a = get();
        archive_read_support_format_tar(a);
        archive_read_support_format_zip(a);
        archive_read_set_callback_data(a, this);
        archive_read_set_read_callback(a, readBytes);
        if (!isCompressed_)
            archive_read_set_seek_callback(a, seek);
        if (archive_read_open1(a) != ARCHIVE_OK)
            fail(a, kUnreadable);
    }

    static la_ssize_t readBytes(archive* a, void* self, const void** block)
    {
        return static_cast<Source*>(self)->readBytes(a, block);
    }

    la_ssize_t readBytes(archive* a, const void** block)
    {
        const la_ssize_t size = isCompressed_ ? unpack(a, block) : readFile(a, block);
        if (size > 0 && static_cast<std::uintmax_t>(size) > leftBytes_) {
            archive_set_error(a, E2BIG, "it unpacks to more than it may have of files");
            return -1;
        }
        leftBytes_ -= static_cast<std::uintmax_t>(std::max<la_ssize_t>(size, 0));
        return size;
    }

    la_ssize_t unpack(archive* a, const void** block) const
    {
        std::size_t size = 0;
        la_int64_t offset = 0;
        const int result = archive_read_data_block(compressed_.get(), block, &size, &offset);
        if (result == ARCHIVE_EOF)
            return 0;
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN)
            return static_cast<la_ssize_t>(size);
        archive_set_error(a, archive_errno(compressed_.get()), "%s",
                          archive_error_string(compressed_.get()));
        return -1;
    }

    la_ssize_t readFile(archive* a, const void** block)
    {
        *block = block_.data();
        const auto size = ::read(file_.get(), block_.data(), block_.size());
        if (size < 0)
            archive_set_error(a, errno, "%s", std::generic_category().message(errno).c_str());
        return size;
    }

    static la_int64_t seek(archive* /*a*/, void* self, la_int64_t offset, int whence)
    {
        const auto place = ::lseek(static_cast<Source*>(self)->file_.get(), offset, whence);
        return place < 0 ? ARCHIVE_FATAL : place;
    }

    const FileDescriptor file_;
    std::uintmax_t contentBytes_;  ///< to be added to those that are left
    std::uintmax_t leftBytes_;
    const std::uintmax_t maxBytes_;
    bool isCompressed_ = false;
    std::array<char, kBlockBytes> block_ = {};
    const Archive compressed_ = makeArchive();
    const Archive format_ = makeArchive();
};

ArchiveReader::ArchiveReader(const std::string& path, const PackageLimits& limits,
                             PackageWriter::BeforeStep beforeStep)
    : beforeStep_(std::move(beforeStep)),
      source_(std::make_unique<Source>(path, limits)),
      block_(kBlockBytes, '\0')
{
}

ArchiveReader::~ArchiveReader() = default;

std::optional<ArchiveEntry> ArchiveReader::next()
{
    beforeStep_("read an entry");
    archive_entry* const entry = source_->next();
    if (!entry)
        return std::nullopt;
    const auto type = archive_entry_filetype(entry);
    const bool isFolder = type == AE_IFDIR;
    path_ = withoutAdornment(pathOf(entry), isFolder);
    if (archive_entry_hardlink(entry) || (type != AE_IFREG && !isFolder))
        throw std::runtime_error("the path " + inQuotes(path_) + " is a " + kindName(entry) +
                                 "; packages have files and folders only");
    const auto size = archive_entry_size_is_set(entry) ? archive_entry_size(entry) : la_int64_t{0};
    return ArchiveEntry{path_, isFolder, (archive_entry_perm(entry) & 0100) != 0,
                        size > 0 ? static_cast<std::uintmax_t>(size) : 0};
}

std::string_view ArchiveReader::content()
{
    beforeStep_("read of " + path_);
    const auto size = archive_read_data(source_->get(), block_.data(), block_.size());
    if (size < 0)
        fail(source_->get(), "the content of " + inQuotes(path_) + " cannot be read");
    return {block_.data(), static_cast<std::size_t>(size)};
}

}  // namespace KR

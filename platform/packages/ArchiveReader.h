#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/packages/PackageWriter.h"

namespace KR {

/// A file or folder in an archive.
struct ArchiveEntry {
    std::string path;  ///< "" for the folder that the archive was made of
    bool isFolder;
    bool isExecutable;
    std::uintmax_t announcedBytes;  ///< of its content; 0 when the archive does not say
};

/// Reads an archive of outside origin, entry by entry: tar, plain or compressed with gzip, bzip2,
/// xz or zstd, or zip.
///
/// The compression is told by its first bytes and undone once. What it unpacks to is an archive or
/// refused: a file that unpacks to itself is not followed. What is unpacked in all is bounded by
/// the limits, and so are time and memory.
///
/// Every function throws std::runtime_error for an archive that is damaged, of another kind or too
/// large, naming the entry for one that is no file or folder (links and devices among them). Not
/// thread-safe.
class ArchiveReader {
public:
    /// `beforeStep` is told before each entry and block of content.
    ArchiveReader(const std::string& path, const PackageLimits& limits,
                  PackageWriter::BeforeStep beforeStep);
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    /// The next entry; none after the last.
    std::optional<ArchiveEntry> next();
    /// The next of the entry's content, until the next call; "" at its end.
    std::string_view content();

private:
    class Source;

    const PackageWriter::BeforeStep beforeStep_;
    const std::unique_ptr<Source> source_;
    std::string block_;
    std::string path_;  ///< of the present entry
};

}  // namespace KR

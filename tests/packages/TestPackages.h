#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/packages/PackageManifest.h"
#include "tests/support/TemporaryFolder.h"

inline std::string testManifest(const std::string& uuid, const std::string& version = "1")
{
    return "ConfigurationVersion: 1\nUuid: " + uuid + "\nVersion: " + version +
           "\nBehaviors:\n  - Path: go\n";
}

/// Writes a package with one behaviour, "go", into a folder of that name; returns its path.
inline std::string writeTestPackage(const TemporaryFolder& parent, const std::string& folder,
                                    const std::string& uuid, const std::string& version = "1")
{
    const auto run = parent.write(folder + "/go/run", "#!/bin/sh\necho " + version + "\n");
    std::filesystem::permissions(run, std::filesystem::perms(0700));
    parent.write(folder + "/" + KR::kPackageManifestFile, testManifest(uuid, version));
    return parent.path() + "/" + folder;
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Every file below a folder, with its content.
inline std::map<std::string, std::string> filesBelow(const std::string& folder)
{
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file())
            files[entry.path().lexically_relative(folder).string()] = readFile(entry.path());
    }
    return files;
}

struct TestEntry {
    std::string path;
    std::string content = {};
    unsigned type = AE_IFREG;
    std::string link = {};  ///< target of a hard link, or of a symbolic one
    unsigned mode = 04755;
};

/// Writes an archive, compressed or not; returns its path. The format "raw" is the content of the
/// one entry that it has.
inline std::string writeTestArchive(const std::string& path, const std::vector<TestEntry>& entries,
                                    const char* format = "gnutar",
                                    int compression = ARCHIVE_FILTER_GZIP)
{
    archive* const out = archive_write_new();
    archive_write_set_format_by_name(out, format);
    archive_write_add_filter(out, compression);
    if (archive_write_open_filename(out, path.c_str()) != ARCHIVE_OK)
        throw std::runtime_error(archive_error_string(out));
    for (const auto& given : entries) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, given.path.c_str());
        archive_entry_set_filetype(entry, given.type);
        archive_entry_set_perm(entry, given.mode);
        // Who writes a zip on the fly knows the size of a file after its content only.
        if (format != std::string("zip"))
            archive_entry_set_size(entry, static_cast<la_int64_t>(given.content.size()));
        if (given.type == AE_IFLNK)
            archive_entry_set_symlink(entry, given.link.c_str());
        else if (!given.link.empty())
            archive_entry_set_hardlink(entry, given.link.c_str());
        if (archive_write_header(out, entry) < ARCHIVE_WARN)
            throw std::runtime_error(archive_error_string(out));
        archive_write_data(out, given.content.data(), given.content.size());
        archive_entry_free(entry);
    }
    archive_write_close(out);
    archive_write_free(out);
    return path;
}

#include "platform/packages/PackageArchive.h"

#include <algorithm>

#include "platform/packages/ArchiveReader.h"
#include "platform/packages/PackageContents.h"
#include "platform/packages/PackageWriter.h"

namespace KR {

namespace {

/// What the archive holds, when all of it may be in a package.
PackageContents contentsOf(const std::string& path, const PackageWriter& writer)
{
    PackageContents contents(writer.limits());
    ArchiveReader archive(path, writer.limits(), writer.beforeStep());
    while (const auto entry = archive.next()) {
        if (entry->isFolder) {
            if (!entry->path.empty())
                contents.addFolder(entry->path);
            continue;
        }
        contents.addFile(entry->path);
        contents.addBytes(entry->announcedBytes);
        // A zip tells the size of a file after its content, if it tells the truth at all.
        std::uintmax_t announced = entry->announcedBytes;
        for (auto block = archive.content(); !block.empty(); block = archive.content()) {
            const auto known = std::min<std::uintmax_t>(announced, block.size());
            announced -= known;
            contents.addBytes(block.size() - known);
        }
    }
    return contents;
}

}  // namespace

void unpackPackageArchive(const std::string& path, PackageWriter& writer)
{
    const std::string outer = contentsOf(path, writer).outerFolder();
    const std::string begin = outer.empty() ? "" : outer + "/";
    ArchiveReader archive(path, writer.limits(), writer.beforeStep());
    while (const auto entry = archive.next()) {
        // The package's own folder is there already.
        if (entry->isFolder && (entry->path.empty() || entry->path == outer))
            continue;
        const bool isInside = entry->path.compare(0, begin.size(), begin) == 0;
        const std::string inside = entry->path.substr(isInside ? begin.size() : 0);
        if (entry->isFolder) {
            writer.addFolder(inside);
            continue;
        }
        writer.beginFile(inside, entry->isExecutable);
        for (auto block = archive.content(); !block.empty(); block = archive.content())
            writer.write(block.data(), block.size());
        writer.endFile();
    }
}

}  // namespace KR

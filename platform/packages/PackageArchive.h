#pragma once

#include <string>

namespace KR {

class PackageWriter;

/// Unpacks an archive whose top folder is the package: tar (plain, or compressed with gzip, bzip2,
/// xz or zstd) or zip.
///
/// std::runtime_error, naming the entry, for one that is no file or folder (links and devices
/// among them), for what the writer refuses, and for an archive that is damaged or of another kind;
/// what came before is written by then. Memory and time are bounded by the writer's limits.
/// Thread-safe for different writers.
void unpackPackageArchive(const std::string& path, PackageWriter& writer);

}  // namespace KR

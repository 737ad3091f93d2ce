#pragma once

#include <string>

namespace KR {

class PackageWriter;

/// Unpacks an archive (see ArchiveReader) whose top folder is the package, or holds nothing but the
/// package's folder.
///
/// The whole archive is looked at before anything is written: std::runtime_error for what the
/// reader or the writer refuses. Memory and time are bounded by the writer's limits. Thread-safe
/// for different writers.
void unpackPackageArchive(const std::string& path, PackageWriter& writer);

}  // namespace KR

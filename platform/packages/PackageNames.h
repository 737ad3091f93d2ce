#pragma once

#include <cstddef>
#include <string>

/// @file
/// What packages, and the files in them, may be called.

namespace KR {

/// A uuid names a folder; file systems take 255 bytes, of which this leaves room for a suffix.
constexpr std::size_t kMaxUuidBytes = 200;
/// Longest path inside a package, and the most folders in it: with the packages folder before it,
/// a path stays well below the 4096 bytes of a system call.
constexpr std::size_t kMaxPackagePathBytes = 1024;
constexpr std::size_t kMaxPackagePathDepth = 32;

/// Whether a text is UTF-8 without control characters, tabs and line ends excepted.
bool isReadableText(const std::string& text);

/// A text of outside origin for a message: in single quotes, cut to a sensible length, with every
/// byte that is not readable as "\xNN".
std::string inQuotes(const std::string& text);

/// Why a text cannot be the uuid of a package; "" when it can. It is the name of a folder and the
/// first part of behaviour keys: letters, digits, ".", "_" and "-" of ASCII, but not "." or "..".
std::string uuidProblem(const std::string& uuid);

/// Why a text cannot be the path of a file or folder of a package; "" when it can. It is relative,
/// without a slash at its end, and stays inside of the package.
std::string packagePathProblem(const std::string& path);

}  // namespace KR

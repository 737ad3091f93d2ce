#pragma once

#include <cstddef>
#include <string>

#include "platform/config/YamlError.h"

namespace YAML {
class Node;
}

namespace KR {

/// Deepest nesting of a file's collections, several times what any of our formats has; it bounds
/// the stack that walking a document uses.
constexpr std::size_t kMaxYamlFileDepth = 100;
/// Nodes that a file may have with its aliases written out. A node costs some 500 bytes once
/// it is in memory, a rule of a configuration has some twenty of them.
constexpr std::size_t kMaxYamlFileNodes = 1'000'000;
/// Bytes of one collection in brackets, one text or one comment. The parser keeps all tokens of a
/// collection in brackets until it ends, some 250 bytes for each byte of the file at worst.
constexpr std::size_t kMaxYamlPieceBytes = 2UL * 1024 * 1024;

/// Reads the first document of a file, with bounded work whatever the file holds: no node is built
/// before its size, its nesting, and what its aliases amount to are known to be within bounds.
///
/// Throws YamlFileError: of YAML::BadFile when there is no regular file that can be read or it is
/// larger than `maxBytes`; of YAML::ParserException, which knows line and column, when it is no
/// YAML, is nested too deeply, refers to a node from inside of that node, is larger than `maxBytes`
/// or kMaxYamlFileNodes with its aliases written out, or has a piece larger than
/// kMaxYamlPieceBytes. Thread-safe.
YAML::Node loadYamlFile(const std::string& path, std::size_t maxBytes);

/// Where a file goes on after its first document, which loadYamlFile() has read; no place for one
/// that does not. Thread-safe.
YamlPlace endOfYamlDocument(const std::string& path, std::size_t maxBytes);

}  // namespace KR

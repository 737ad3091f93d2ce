#pragma once

#include <cstddef>
#include <string>

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

/// Reads the first document of a file, with bounded work whatever the file holds: no node is built
/// before its size, its nesting, and what its aliases amount to are known to be within bounds. The
/// parser keeps the tokens of a whole line in brackets, some 250 bytes for each byte of the file at
/// worst, so `maxBytes` is to be a few megabytes at most.
///
/// Throws, with the path in the text, YAML::BadFile when there is no regular file that can be read
/// or it is larger than `maxBytes`; YAML::ParserException, which knows line and column, when it is
/// no YAML, is nested too deeply, refers to a node from inside of that node, or is larger than
/// `maxBytes` or kMaxYamlFileNodes with its aliases written out. Thread-safe.
YAML::Node loadYamlFile(const std::string& path, std::size_t maxBytes);

}  // namespace KR

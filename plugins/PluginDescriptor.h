#pragma once

#include <cstddef>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>

namespace KR {

/// What the descriptor file of a behaviour plugin says, in document order. A plain value.
struct PluginDescriptor {
    /// Far beyond any descriptor written by hand; keeps a hostile file from costing memory.
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024;
    /// A descriptor is three elements deep; elements that are skipped may be deeper. The parser's
    /// tree is taken down by recursion, which this keeps off the end of the stack.
    static constexpr int kMaxDepth = 32;
    /// Characters that one entity may expand to. With the bound on the file's size it bounds the
    /// whole text.
    static constexpr int kMaxEntityCharacters = 1024;

    std::list<std::string> groups;
    std::list<std::pair<std::string, std::string>> conditions;  ///< purpose, text
};

/// Why a descriptor cannot be read, and where; line and column are 0 when the file as a whole is
/// at fault.
class PluginDescriptorError : public std::runtime_error {
public:
    PluginDescriptorError(long long line, long long column, const std::string& message)
        : std::runtime_error(message), line_(line), column_(column)
    {
    }
    long long line() const { return line_; }
    long long column() const { return column_; }

private:
    long long line_;
    long long column_;
};

/// Reads a descriptor file; PluginDescriptorError when it is no regular file, passes a bound, or
/// is not well formed. Nothing but this file is ever read. A document with another root element
/// gives an empty descriptor. Thread-safe.
PluginDescriptor readPluginDescriptor(const std::string& path);

}  // namespace KR

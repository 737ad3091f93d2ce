#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "platform/kr/KRValue.h"

namespace KR {

/// Preferences: by domain, by key.
using Preferences = std::map<std::string, std::map<std::string, KRValue>>;

/// A file of preferences, in JSON: {"domain": {"key": value}}. Values are bools, ints, finite
/// floats, texts and arrays of them. A value is used by one thread at a time.
///
/// A write is whole or not at all (see DurableFile.h).
class PreferenceFile {
public:
    /// Largest file that is read or written. A preference is a word or a number.
    static constexpr std::size_t kMaxBytes = std::size_t{4} * 1024 * 1024;
    /// Deepest nesting of arrays in a value.
    static constexpr int kMaxDepth = 32;

    explicit PreferenceFile(std::string path) : path_(std::move(path)) {}

    /// What the file holds; nothing when it is not there. One that is damaged is set aside under
    /// its name with ".damaged" after it, and reported in the log, and counts as not there.
    /// std::runtime_error when it cannot be read, or not set aside.
    Preferences read() const;
    /// std::runtime_error when it cannot be written, or what text() raises.
    void write(const Preferences& preferences) const;

    /// What a file of these preferences holds; std::exception for a value that a file cannot hold,
    /// a text that is not UTF-8, and more than kMaxBytes.
    static std::string text(const Preferences& preferences);

private:
    const std::string path_;
};

}  // namespace KR

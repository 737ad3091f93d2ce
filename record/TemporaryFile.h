#pragma once

#include <string>

namespace KR {

/// A file that is there as long as this is, and that nobody else can read.
class TemporaryFile {
public:
    /// std::system_error when it cannot be written.
    explicit TemporaryFile(const std::string& content);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace KR

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

/// A folder of one test's own, gone with it.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = testing::TempDir() + "nimbra-XXXXXX";
        if (!::mkdtemp(name.data()))
            throw std::runtime_error("no temporary folder: " + name);
        path_ = name;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

    /// Writes a file, and the folders that it lies in; returns its path.
    std::string write(const std::string& file, const std::string& content) const
    {
        const auto target = std::filesystem::path(path_) / file;
        std::filesystem::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary) << content;
        return target.string();
    }

private:
    std::string path_;
};

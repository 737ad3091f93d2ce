#include "platform/packages/DurableFile.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "platform/packages/FileDescriptor.h"

namespace KR {

namespace fs = std::filesystem;

namespace {

void writeAll(const FileDescriptor& file, const std::string& text, const std::string& path)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const auto size = ::write(file.get(), text.data() + written, text.size() - written);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0)
            failWithErrno(path);
        written += static_cast<std::size_t>(size);
    }
    syncToDisk(file, path);
}

}  // namespace

bool readDurableFile(const std::string& path, std::size_t maxBytes, const vo::Logger& log,
                     const std::function<void(const std::string& text)>& parse)
{
    if (!fs::exists(path))
        return false;
    // Opening a pipe would wait for its writer.
    if (!fs::is_regular_file(path))
        throw std::runtime_error(path + " is no regular file");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        failWithErrno(path);
    try {
        if (fs::file_size(path) > maxBytes)
            throw std::runtime_error("it is larger than " + std::to_string(maxBytes) + " bytes");
        parse(std::string(std::istreambuf_iterator<char>(file), {}));
        return true;
    } catch (const std::exception& e) {
        const std::string aside = path + ".damaged";
        fs::rename(path, aside);
        log.error("read", path + " is damaged, and is now " + aside + ": " + e.what());
        return false;
    }
}

void writeDurableFile(const std::string& path, const std::string& text)
{
    const std::string temporary = path + ".new";
    {
        const FileDescriptor file(
            ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644),
            temporary);
        writeAll(file, text, temporary);
    }
    fs::rename(temporary, path);
    const fs::path folder = fs::absolute(path).parent_path();
    syncToDisk(FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder),
               folder);
}

}  // namespace KR

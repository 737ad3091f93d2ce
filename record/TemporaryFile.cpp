#include "record/TemporaryFile.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace KR {

TemporaryFile::TemporaryFile(const std::string& content)
    : path_((std::filesystem::temp_directory_path() / "nimbra-XXXXXX").string())
{
    const auto fail = [this] {
        throw std::system_error(errno, std::generic_category(), "cannot write " + path_);
    };
    const int file = ::mkstemp(path_.data());
    if (file < 0)
        fail();
    std::size_t written = 0;
    while (written < content.size()) {
        const ssize_t count = ::write(file, content.data() + written, content.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            const int error = errno;
            ::close(file);
            ::unlink(path_.c_str());
            errno = error;
            fail();
        }
        written += static_cast<std::size_t>(count);
    }
    ::close(file);
}

TemporaryFile::~TemporaryFile()
{
    ::unlink(path_.c_str());
}

}  // namespace KR

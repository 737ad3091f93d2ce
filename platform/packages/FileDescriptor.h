#pragma once

#include <cerrno>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace KR {

/// Raises what a system call said, about something, as std::system_error.
[[noreturn]] inline void failWithErrno(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// An open file, closed at the end of the scope.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// The result of an open(); std::system_error about `what` when that failed.
    FileDescriptor(int fd, const std::string& what) : fd_(fd)
    {
        if (fd < 0)
            failWithErrno(what);
    }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }

    int get() const { return fd_; }

private:
    int fd_ = -1;
};

/// Makes what was written to an open file, or the entries of an open folder, last.
inline void syncToDisk(const FileDescriptor& file, const std::string& what)
{
    if (::fsync(file.get()) != 0)
        failWithErrno(what);
}

}  // namespace KR

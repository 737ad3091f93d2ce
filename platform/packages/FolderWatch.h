#pragma once

#include <array>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <functional>
#include <memory>
#include <string>
#include <sys/inotify.h>

#include "platform/packages/IoThread.h"

namespace KR {

/// Notices that the entries of folders change, whoever changes them: an entry appears, disappears,
/// or has been written; or the folder itself goes. What lies deeper is not watched.
///
/// Thread-safe. The callback comes on the IoThread until the destructor has returned; it throws
/// nothing.
class FolderWatch {
public:
    /// `changed` gets the name of the entry, "" where it is not known or the folder itself is
    /// meant. std::system_error when the system has no more watches to give.
    explicit FolderWatch(std::function<void(const std::string& entry)> changed);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// From now on watches this folder, as long as it exists; nothing changes for one that is
    /// watched. std::system_error when it cannot be.
    void watch(const std::string& folder);

private:
    void read();
    void report(std::size_t size) const;

    // Constant after construction.
    const std::function<void(const std::string&)> changed_;
    const std::shared_ptr<IoThread> io_ = IoThread::shared();
    boost::asio::posix::stream_descriptor inotify_;
    // Used on the thread only.
    alignas(inotify_event) std::array<char, 4096> buffer_ = {};
};

}  // namespace KR

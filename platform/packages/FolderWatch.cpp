#include "platform/packages/FolderWatch.h"

#include <boost/asio/buffer.hpp>
#include <utility>

#include "platform/packages/FileDescriptor.h"

namespace KR {

namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                                   IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

int openInotify()
{
    const int fd = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd < 0)
        failWithErrno("inotify");
    return fd;
}

}  // namespace

FolderWatch::FolderWatch(std::function<void(const std::string&)> changed)
    : changed_(std::move(changed)), inotify_(io_->context(), openInotify())
{
    io_->call([this] { read(); });
}

FolderWatch::~FolderWatch()
{
    io_->call([this] { inotify_.close(); });
    io_->call([] {});  // a report that was ready then has been made
}

void FolderWatch::watch(const std::string& folder)
{
    // native_handle() does not change, and the kernel takes watches from any thread.
    const auto flags = kChanges | IN_ONLYDIR | IN_DONT_FOLLOW;
    if (::inotify_add_watch(inotify_.native_handle(), folder.c_str(), flags) < 0)
        failWithErrno(folder);
}

void FolderWatch::read()
{
    inotify_.async_read_some(boost::asio::buffer(buffer_),
                             [this](const boost::system::error_code& error, std::size_t size) {
                                 if (error)
                                     return;
                                 report(size);
                                 read();
                             });
}

void FolderWatch::report(std::size_t size) const
{
    for (std::size_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(buffer_.data() + at);
        changed_(event->len > 0 ? event->name : "");
        at += sizeof(inotify_event) + event->len;
    }
}

}  // namespace KR

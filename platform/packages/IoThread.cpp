#include "platform/packages/IoThread.h"

#include <boost/asio/post.hpp>
#include <future>

#include "platform/vo/Mutex.h"

namespace KR {

std::shared_ptr<IoThread> IoThread::shared()
{
    static vo::Mutex mutex;
    static std::weak_ptr<IoThread> present;
    const vo::Lock lock(mutex);
    std::shared_ptr<IoThread> thread = present.lock();
    if (!thread) {
        thread.reset(new IoThread);
        present = thread;
    }
    return thread;
}

IoThread::IoThread()
    : work_(boost::asio::make_work_guard(context_)), thread_([this] { context_.run(); })
{
}

IoThread::~IoThread()
{
    work_.reset();
    thread_.join();
}

void IoThread::call(const std::function<void()>& function)
{
    std::promise<void> done;
    boost::asio::post(context_, [&] {
        function();
        done.set_value();
    });
    done.get_future().wait();
}

}  // namespace KR

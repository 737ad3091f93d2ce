#pragma once

#include <exception>
#include <functional>
#include <string>

#include "platform/vo/Clock.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Future.h"

namespace KR {

/// "it has not ended within 30 s".
std::string overdueText(vo::Duration deadline);
/// The same as the KRError of a method.
std::exception_ptr overdueError(vo::Duration deadline, const std::string& module,
                                const std::string& method);

/// Calls `expire` on the event loop when the future runs for longer than that. What has ended
/// already, or ends at the very deadline before the loop comes to it, is in time.
template <class T>
void expireAfter(const vo::Future<T>& future, vo::Duration deadline, std::function<void()> expire)
{
    if (!future.isRunning())
        return;
    const vo::Future<void> timer =
        vo::getEventLoop()->async(std::move(expire), static_cast<std::uint64_t>(deadline.count()));
    future.then([timer](const vo::Future<T>&) { timer.cancel(); });
}

/// Fails a promise that has not been kept by then.
template <class T>
void failAfter(const vo::Promise<T>& promise, vo::Duration deadline, const std::string& module,
               const std::string& method)
{
    expireAfter(promise.future(), deadline, [promise, deadline, module, method] {
        promise.setError(overdueError(deadline, module, method));
    });
}

}  // namespace KR

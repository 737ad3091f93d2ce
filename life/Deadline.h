#pragma once

#include <exception>
#include <functional>
#include <string>

#include "platform/kr/KRError.h"
#include "platform/vo/Clock.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Future.h"

namespace KR {

/// "it has not ended within 30 s".
std::string overdueText(vo::Duration deadline);

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
        promise.setError(std::make_exception_ptr(KRError(module, method, overdueText(deadline))));
    });
}

/// Why a future has ended without a value.
template <class T>
std::exception_ptr errorOf(const vo::Future<T>& ended)
{
    try {
        ended.value();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

}  // namespace KR

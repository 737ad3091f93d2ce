#include "platform/kr/KRProxy.h"

#include <future>

#include "platform/kr/KRBroker.h"

namespace KR {

KRProxy::KRProxy(const KRBroker& broker, const std::string& service)
    : service_(service), object_(broker.session().findService(service)), clock_(broker.clock())
{
    if (!object_)
        throw KRError("KRProxy", "KRProxy", "no service named '" + service + "'");
}

vo::Value KRProxy::answerWithin(vo::Duration limit, const std::string& method,
                                std::vector<vo::Value> arguments) const
{
    {
        const vo::Lock lock(mutex_);
        if (!overdue_.expired())
            throw KRError(service_, method, "an earlier call has not been answered yet");
    }
    const auto call = std::make_shared<std::packaged_task<vo::Value()>>(
        [service = object_.object(), method, arguments = std::move(arguments)] {
            return service->call(method, arguments);
        });
    std::future<vo::Value> answer = call->get_future();
    // Alive as long as the work is.
    auto token = std::make_shared<char>();
    const std::weak_ptr<void> running = token;
    if (!clock_->runWithin(limit, [call, token = std::move(token)] { (*call)(); })) {
        const vo::Lock lock(mutex_);
        overdue_ = running;
        throw KRError(service_, method,
                      "no answer within " + std::to_string(limit.count() / 1000) + " ms");
    }
    try {
        return answer.get();
    } catch (const KRError&) {
        throw;
    } catch (const std::exception& e) {
        throw KRError(service_, method, e.what());
    }
}

}  // namespace KR

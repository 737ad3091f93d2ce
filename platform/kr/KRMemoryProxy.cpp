#include "platform/kr/KRMemoryProxy.h"

#include <utility>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"

namespace KR {

KRMemoryProxy::KRMemoryProxy(boost::shared_ptr<KRBroker> broker) : broker_(std::move(broker))
{
    if (!broker_)
        throw KRError("KRMemoryProxy", "KRMemoryProxy", "there is no broker");
}

KRMemoryProxy::KRMemoryProxy(boost::shared_ptr<KRBroker> broker, const std::string& writer)
    : KRMemoryProxy(std::move(broker))
{
    writer_ = broker_->memory().writer(writer);
}

KRValue KRMemoryProxy::getData(const std::string& key) const
{
    return broker_->memory().getData(key);
}

KRValue KRMemoryProxy::getListData(const std::vector<std::string>& keys) const
{
    return broker_->memory().getListData(keys);
}

std::vector<std::string> KRMemoryProxy::getDataList(const std::string& prefix) const
{
    return broker_->memory().getDataList(prefix);
}

KRValue KRMemoryProxy::getEventHistory(const std::string& key) const
{
    return broker_->memory().getEventHistory(key);
}

void KRMemoryProxy::declareEvent(const std::string& key, const std::string& declarer) const
{
    broker_->memory().declareEvent(key, declarer);
}

void KRMemoryProxy::raiseEvent(const std::string& key, const KRValue& value) const
{
    broker_->memory().raiseEvent(key, value, writer_);
}

void KRMemoryProxy::subscribeToMicroEvent(const std::string& key, const std::string& module,
                                          const std::string& message,
                                          const std::string& method) const
{
    broker_->memory().subscribeToMicroEvent(key, module, message, method);
}

void KRMemoryProxy::unsubscribeToMicroEvent(const std::string& key, const std::string& module) const
{
    broker_->memory().unsubscribeToMicroEvent(key, module);
}

}  // namespace KR

#include "platform/kr/KRBroker.h"

#include <boost/make_shared.hpp>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRProxy.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

boost::shared_ptr<KRBroker> KRBroker::create(vo::Application& application, const std::string& name)
{
    return boost::shared_ptr<KRBroker>(new KRBroker(application, name));
}

KRBroker::KRBroker(vo::Application& application, const std::string& name)
    : name_(name),
      application_(application),
      memory_(std::make_unique<KRMemory>(application)),
      keys_(std::make_unique<KeyCatalogue>())
{
    try {
        session().registerService(memory_->serviceObject());
    } catch (const std::runtime_error& e) {
        throw KRError("KRBroker", "create", e.what());
    }
}

KRBroker::~KRBroker()
{
    session().unregisterService(memory_->serviceObject()->name());
}

boost::shared_ptr<KRProxy> KRBroker::getProxy(const std::string& service) const
{
    return boost::make_shared<KRProxy>(*this, service);
}

}  // namespace KR

#include "platform/kr/KRProxy.h"

#include "platform/kr/KRBroker.h"

namespace KR {

KRProxy::KRProxy(const KRBroker& broker, const std::string& service)
    : service_(service), object_(broker.session().findService(service))
{
    if (!object_)
        throw KRError("KRProxy", "KRProxy", "no service named '" + service + "'");
}

}  // namespace KR

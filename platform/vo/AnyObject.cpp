#include "platform/vo/AnyObject.h"

#include <stdexcept>

namespace vo {

ServiceObject& AnyObject::checked() const
{
    if (!object_)
        throw std::runtime_error("This object is null");
    return *object_;
}

AnyObject Convert<AnyObject>::from(const Value& v)
{
    return AnyObject(detail::content<std::shared_ptr<ServiceObject>>(v, "object"));
}

}  // namespace vo

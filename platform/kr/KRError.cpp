#include "platform/kr/KRError.h"

#include <utility>

namespace KR {

KRError::KRError(std::string module, std::string method, std::string description)
    : module_(std::move(module)),
      method_(std::move(method)),
      description_(std::move(description)),
      text_(module_ + "::" + method_ + ": " + description_)
{
}

}  // namespace KR

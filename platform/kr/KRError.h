#pragma once

#include <exception>
#include <string>

namespace KR {

/// An error of the platform or of a module: who raised it, in which operation, and why.
///
/// what() is "module::method: description". A plain value, copied freely.
class KRError : public std::exception {
public:
    KRError(std::string module, std::string method, std::string description);

    const std::string& getModuleName() const { return module_; }
    const std::string& getMethodName() const { return method_; }
    const std::string& getDescription() const { return description_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string module_;
    std::string method_;
    std::string description_;
    std::string text_;
};

}  // namespace KR

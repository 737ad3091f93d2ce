#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/config/YamlValue.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/AnyObject.h"

namespace YAML {
class Node;
}

namespace KR {

/// A call of a service's method that was written down as data:
///
///     Module: KRLeds            # text, required
///     Method: fade              # text, required
///     Args: [eyes, 0.5, true]   # sequence, optional
///
/// Args become values as yamlToKRValue() says. Anything else (null, a mapping or a tag in Args,
/// another key) is refused with YamlError, which says what is wrong and where.
///
/// A plain value.
class ApiWrapper {
public:
    /// Values that one call may hold, nested ones included: far beyond any real call, and a bound
    /// on what aliases of aliases can expand to.
    static constexpr std::size_t kMaxArguments = kMaxYamlValues;
    /// Deepest nesting of arrays, Args itself included.
    static constexpr std::size_t kMaxArgumentDepth = kMaxYamlDepth;

    /// The keys that a call may have.
    static constexpr const char* kKeys[] = {"Module", "Method", "Args"};

    explicit ApiWrapper(const YAML::Node& node);
    /// The reverse of exportAutonomousActionParameters; std::runtime_error for a map that lacks
    /// a parameter, has another one, or one of another type.
    explicit ApiWrapper(const std::map<std::string, KRValue>& parameters);

    const std::string& module() const { return module_; }
    const std::string& method() const { return method_; }
    const std::vector<KRValue>& arguments() const { return arguments_; }

    /// "Module" and "Method" as texts, and "Args" as an array, present when it was given.
    std::map<std::string, KRValue> exportAutonomousActionParameters() const;

    /// Finds a service by name in the current application's session; std::runtime_error when there
    /// is none.
    static vo::AnyObject importModule(const std::string& name);

private:
    std::string module_;
    std::string method_;
    std::vector<KRValue> arguments_;
    bool hasArguments_ = false;
};

}  // namespace KR

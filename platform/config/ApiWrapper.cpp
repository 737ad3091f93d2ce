#include "platform/config/ApiWrapper.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlError.h"
#include "platform/config/YamlValue.h"
#include "platform/vo/Session.h"

namespace KR {
namespace {

constexpr const char* kModule = ApiWrapper::kKeys[0];
constexpr const char* kMethod = ApiWrapper::kKeys[1];
constexpr const char* kArgs = ApiWrapper::kKeys[2];

/// A name is a text however it looks: an unquoted 5 is the name "5".
std::string readName(const YAML::Node& call, const char* key)
{
    const YAML::Node node = call[key];
    if (!node.IsDefined())
        throw YamlError(call, std::string("the call has no ") + key);
    if (!node.IsScalar() || node.Scalar().empty())
        throw YamlError(node, std::string(key) + " must be a text that is not empty");
    return node.Scalar();
}

void refuseOtherKeys(const YAML::Node& call)
{
    for (const auto& entry : call) {
        const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : std::string();
        if (key != kModule && key != kMethod && key != kArgs)
            throw YamlError(entry.first,
                            "a call has Module, Method and Args, but no \"" + key + "\"");
    }
}

/// Whether there is a value in every place.
bool isWhole(const KRValue::Array& values)
{
    return std::all_of(values.begin(), values.end(), [](const KRValue& value) {
        return value.isArray() ? isWhole(value.toArray()) : value.isValid();
    });
}

std::string takeName(const std::map<std::string, KRValue>& parameters, const char* key)
{
    const auto it = parameters.find(key);
    if (it == parameters.end() || !it->second.isString() || it->second.toString().empty())
        throw std::runtime_error(std::string("a call needs the text parameter ") + key);
    return it->second.toString();
}

}  // namespace

ApiWrapper::ApiWrapper(const YAML::Node& node)
{
    if (!node.IsDefined() || !node.IsMap())
        throw YamlError(node, "a call is a mapping with Module, Method and Args");
    refuseOtherKeys(node);
    module_ = readName(node, kModule);
    method_ = readName(node, kMethod);
    const YAML::Node args = node[kArgs];
    if (!args.IsDefined())
        return;
    if (!args.IsSequence())
        throw YamlError(args, "Args must be a sequence");
    arguments_ = yamlToKRValue(args).toArray();
    if (!isWhole(arguments_))
        throw YamlError(args, "an argument must not be null");
    hasArguments_ = true;
}

ApiWrapper::ApiWrapper(const std::map<std::string, KRValue>& parameters)
    : module_(takeName(parameters, kModule)), method_(takeName(parameters, kMethod))
{
    const auto args = parameters.find(kArgs);
    hasArguments_ = args != parameters.end();
    if (parameters.size() != (hasArguments_ ? 3U : 2U))
        throw std::runtime_error("a call has the parameters Module, Method and Args only");
    if (!hasArguments_)
        return;
    if (!args->second.isArray())
        throw std::runtime_error("the parameter Args of a call must be an array");
    arguments_ = args->second.toArray();
}

std::map<std::string, KRValue> ApiWrapper::exportAutonomousActionParameters() const
{
    std::map<std::string, KRValue> parameters{{kModule, module_}, {kMethod, method_}};
    if (hasArguments_)
        parameters[kArgs] = KRValue(arguments_);
    return parameters;
}

vo::AnyObject ApiWrapper::importModule(const std::string& name)
{
    return vo::import(name);
}

}  // namespace KR

#include "platform/vo/PackageInfo.h"

#include <algorithm>

namespace vo {

namespace {

template <class Container>
void addOnce(Container& container, const std::string& text)
{
    if (std::find(container.begin(), container.end(), text) == container.end())
        container.push_back(text);
}

}  // namespace

bool BehaviorInfo::hasPermission(const std::string& name) const
{
    return std::find(permissions_.begin(), permissions_.end(), name) != permissions_.end();
}

void BehaviorInfo::addPermission(const std::string& name)
{
    addOnce(permissions_, name);
}

std::list<std::string> BehaviorInfo::conditions(const std::string& name) const
{
    const auto found = conditions_.find(name);
    return found == conditions_.end() ? std::list<std::string>() : found->second;
}

void BehaviorInfo::addCondition(const std::string& name, const std::string& text)
{
    conditions_[name].push_back(text);
}

void BehaviorInfo::addTag(const std::string& language, const std::string& tag)
{
    addOnce(languagesToTags_[language], tag);
}

void PackageInfo::addSupportedLanguage(const std::string& language)
{
    addOnce(supportedLanguages_, language);
}

std::string behaviorKey(const PackageInfo& package, const BehaviorInfo& behavior)
{
    return package.uuid() + "/" + behavior.path();
}

}  // namespace vo

#pragma once

#include <list>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/vo/Convert.h"

namespace vo {

/// What is known of one behaviour of an installed package. A plain value.
class BehaviorInfo {
public:
    /// Permission names.
    static constexpr const char* k_permCanRunOnPod = "canRunOnPod";
    static constexpr const char* k_permCanRunInSleep = "canRunInSleep";

    BehaviorInfo() = default;
    explicit BehaviorInfo(std::string path) : path_(std::move(path)) {}

    /// Folder of the behaviour inside its package, without a slash at either end.
    const std::string& path() const { return path_; }

    /// "solitary", "interactive", or another nature; "" when none is declared.
    const std::string& nature() const { return nature_; }
    void setNature(const std::string& nature) { nature_ = nature; }

    bool hasPermission(const std::string& name) const;
    /// In order of declaration.
    const std::vector<std::string>& permissions() const { return permissions_; }
    void addPermission(const std::string& name);

    /// The condition texts declared under a name ("launchTrigger", "terminationTrigger", ...), in
    /// order of declaration; none for an unknown name.
    std::list<std::string> conditions(const std::string& name) const;
    /// All of them, by name.
    const std::map<std::string, std::list<std::string>>& conditions() const { return conditions_; }
    void addCondition(const std::string& name, const std::string& text);

    /// The tags of each language, in order of declaration.
    const std::map<std::string, std::list<std::string>>& languagesToTags() const
    {
        return languagesToTags_;
    }
    void addTag(const std::string& language, const std::string& tag);

    /// Whether a user may ask for this behaviour.
    bool isUserRequestable() const { return userRequestable_; }
    void setUserRequestable(bool requestable) { userRequestable_ = requestable; }

private:
    friend struct Struct<BehaviorInfo>;

    std::string path_;
    std::string nature_;
    std::vector<std::string> permissions_;
    std::map<std::string, std::list<std::string>> conditions_;
    std::map<std::string, std::list<std::string>> languagesToTags_;
    bool userRequestable_ = false;
};

/// What is known of an installed package. A plain value.
class PackageInfo {
public:
    PackageInfo() = default;
    PackageInfo(std::string uuid, std::string path) : uuid_(std::move(uuid)), path_(std::move(path))
    {
    }

    /// The package's unique name.
    const std::string& uuid() const { return uuid_; }
    /// The package's folder on disk.
    const std::string& path() const { return path_; }
    const std::string& version() const { return version_; }
    void setVersion(const std::string& version) { version_ = version; }

    /// Languages the package speaks; empty for one that works in every language.
    const std::list<std::string>& supportedLanguages() const { return supportedLanguages_; }
    void addSupportedLanguage(const std::string& language);

    const std::list<BehaviorInfo>& behaviors() const { return behaviors_; }
    void addBehavior(BehaviorInfo behavior) { behaviors_.push_back(std::move(behavior)); }

private:
    friend struct Struct<PackageInfo>;

    std::string uuid_;
    std::string path_;
    std::string version_;
    std::list<std::string> supportedLanguages_;
    std::list<BehaviorInfo> behaviors_;
};

/// The name by which a behaviour is known everywhere: package uuid, "/", behaviour path.
std::string behaviorKey(const PackageInfo& package, const BehaviorInfo& behavior);

template <>
struct Struct<BehaviorInfo> {
    static constexpr const char* name = "BehaviorInfo";
    static constexpr auto fields()
    {
        using B = BehaviorInfo;
        return std::make_tuple(field("path", &B::path_), field("nature", &B::nature_),
                               field("permissions", &B::permissions_),
                               field("conditions", &B::conditions_),
                               field("languagesToTags", &B::languagesToTags_),
                               field("userRequestable", &B::userRequestable_));
    }
};

template <>
struct Struct<PackageInfo> {
    static constexpr const char* name = "PackageInfo";
    static constexpr auto fields()
    {
        using P = PackageInfo;
        return std::make_tuple(field("uuid", &P::uuid_), field("path", &P::path_),
                               field("version", &P::version_),
                               field("supportedLanguages", &P::supportedLanguages_),
                               field("behaviors", &P::behaviors_));
    }
};

}  // namespace vo

#include "platform/packages/PackageManifest.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "platform/config/Configurator.h"
#include "platform/config/YamlFile.h"
#include "platform/kr/KRBroker.h"
#include "platform/packages/PackageNames.h"

namespace KR {

namespace {

constexpr const char* kVersionKey = "ConfigurationVersion";

std::string describe(const std::string& file, const std::vector<PackageManifestProblem>& problems)
{
    std::string text;
    for (const auto& problem : problems) {
        text += text.empty() ? file : "\n" + file;
        if (problem.line != 0)
            text += ":" + std::to_string(problem.line) + ":" + std::to_string(problem.column);
        text += ": " + problem.text;
    }
    return text;
}

/// Makes a package of a manifest's document, and notes what is wrong with it.
class Reader {
public:
    vo::PackageInfo read(const YAML::Node& document, const std::string& folder);

    std::vector<PackageManifestProblem> takeProblems() { return std::move(problems_); }

private:
    using Fields = std::map<std::string, YAML::Node>;
    using TakeText = std::function<void(const std::string&)>;

    void note(const YAML::Node& node, const std::string& text);
    Fields fields(const YAML::Node& node, const std::string& what,
                  std::initializer_list<const char*> known = {});
    std::string text(const YAML::Node& node, const std::string& what);
    std::string requiredText(const YAML::Node& parent, const Fields& fields, const char* key);
    void texts(const YAML::Node& node, const std::string& what, const TakeText& take);
    void optionalTexts(const Fields& fields, const char* key, const TakeText& take);
    void textsByName(const Fields& parent, const char* key,
                     const std::function<void(const std::string&, const std::string&)>& take);
    void readVersion(const YAML::Node& document);
    void readBehaviors(const Fields& fields, vo::PackageInfo& package);
    vo::BehaviorInfo readBehavior(const YAML::Node& node);

    std::vector<PackageManifestProblem> problems_;
    std::set<std::string> paths_;  ///< of the behaviours read so far
};

void Reader::note(const YAML::Node& node, const std::string& text)
{
    const YAML::Mark mark = node.IsDefined() ? node.Mark() : YAML::Mark::null_mark();
    if (mark.is_null())
        problems_.push_back({0, 0, text});
    else
        problems_.push_back({static_cast<std::size_t>(mark.line) + 1,
                             static_cast<std::size_t>(mark.column) + 1, text});
}

/// The entries of a mapping. `known` keys are the only ones, where there are any.
Reader::Fields Reader::fields(const YAML::Node& node, const std::string& what,
                              std::initializer_list<const char*> known)
{
    Fields result;
    if (!node.IsMap()) {
        note(node, what + " must be a mapping");
        return result;
    }
    if (node.size() > kMaxManifestEntries) {
        note(node, what + " has more than " + std::to_string(kMaxManifestEntries) + " entries");
        return result;
    }
    for (const auto& entry : node) {
        const std::string key = text(entry.first, "a key of " + what);
        const bool isKnown =
            known.size() == 0 || std::find(known.begin(), known.end(), key) != known.end();
        if (!isKnown && !key.empty())
            note(entry.first, what + " has no " + inQuotes(key));
        if (!result.emplace(key, entry.second).second)
            note(entry.first, what + " has " + inQuotes(key) + " twice");
    }
    return result;
}

/// A text is one however it looks: an unquoted 1.10 is the text "1.10". "" when it was refused.
std::string Reader::text(const YAML::Node& node, const std::string& what)
{
    if (!node.IsScalar() || node.Scalar().empty())
        note(node, what + " must be a text that is not empty");
    else if (node.Scalar().size() > kMaxManifestTextBytes)
        note(node, what + " is longer than " + std::to_string(kMaxManifestTextBytes) + " bytes");
    else if (!isReadableText(node.Scalar()))
        note(node, what + " is not readable text in UTF-8: " + inQuotes(node.Scalar()));
    else
        return node.Scalar();
    return {};
}

std::string Reader::requiredText(const YAML::Node& parent, const Fields& fields, const char* key)
{
    const auto field = fields.find(key);
    if (field != fields.end())
        return text(field->second, key);
    note(parent, std::string("there is no ") + key);
    return {};
}

/// One text, or a list of them.
void Reader::texts(const YAML::Node& node, const std::string& what, const TakeText& take)
{
    if (!node.IsSequence()) {
        const std::string only = text(node, what);
        if (!only.empty())
            take(only);
        return;
    }
    if (node.size() > kMaxManifestEntries) {
        note(node, what + " has more than " + std::to_string(kMaxManifestEntries) + " entries");
        return;
    }
    for (const YAML::Node& element : node) {
        const std::string one = text(element, "an entry of " + what);
        if (!one.empty())
            take(one);
    }
}

void Reader::optionalTexts(const Fields& fields, const char* key, const TakeText& take)
{
    const auto field = fields.find(key);
    if (field != fields.end())
        texts(field->second, key, take);
}

void Reader::textsByName(const Fields& parent, const char* key,
                         const std::function<void(const std::string&, const std::string&)>& take)
{
    const auto field = parent.find(key);
    if (field == parent.end())
        return;
    for (const auto& [name, node] : fields(field->second, key))
        texts(node, inQuotes(name) + " of " + key,
              [&take, &name = name](const std::string& one) { take(name, one); });
}

void Reader::readVersion(const YAML::Node& document)
{
    try {
        Configurator::verifyConfigFileVersionCompatible(nullptr, document, kPackageManifestVersion);
    } catch (const std::runtime_error& e) {
        const YAML::Node version = document[kVersionKey];
        note(version.IsDefined() ? version : document, e.what());
    }
}

vo::PackageInfo Reader::read(const YAML::Node& document, const std::string& folder)
{
    if (!document.IsMap()) {
        note(document, "a manifest is a mapping");
        return {};
    }
    // What a newer manifest means by its other entries is not known.
    readVersion(document);
    if (!problems_.empty())
        return {};

    const Fields entries =
        fields(document, "a manifest",
               {kVersionKey, "Uuid", "Version", "SupportedLanguages", "Behaviors"});
    const std::string uuid = requiredText(document, entries, "Uuid");
    const std::string problem = uuid.empty() ? std::string() : uuidProblem(uuid);
    if (!problem.empty())
        note(entries.at("Uuid"), "the Uuid " + inQuotes(uuid) + " " + problem);
    vo::PackageInfo package(uuid, folder);
    package.setVersion(requiredText(document, entries, "Version"));
    optionalTexts(entries, "SupportedLanguages",
                  [&](const std::string& language) { package.addSupportedLanguage(language); });
    readBehaviors(entries, package);
    return package;
}

void Reader::readBehaviors(const Fields& fields, vo::PackageInfo& package)
{
    const auto field = fields.find("Behaviors");
    if (field == fields.end())
        return;
    const YAML::Node& behaviors = field->second;
    if (!behaviors.IsSequence()) {
        note(behaviors, "Behaviors must be a sequence");
    } else if (behaviors.size() > kMaxManifestEntries) {
        note(behaviors,
             "there are more than " + std::to_string(kMaxManifestEntries) + " behaviours");
    } else {
        for (const YAML::Node& behavior : behaviors)
            package.addBehavior(readBehavior(behavior));
    }
}

vo::BehaviorInfo Reader::readBehavior(const YAML::Node& node)
{
    const Fields entries =
        fields(node, "a behaviour",
               {"Path", "Nature", "Permissions", "UserRequestable", "Conditions", "Tags"});
    if (entries.empty()) {
        if (node.IsMap() && node.size() == 0)
            note(node, "there is no Path");
        return {};
    }
    const std::string path = requiredText(node, entries, "Path");
    const std::string problem = path.empty() ? std::string() : packagePathProblem(path);
    if (!problem.empty())
        note(entries.at("Path"), "the Path " + inQuotes(path) + " " + problem);
    else if (!path.empty() && !paths_.insert(path).second)
        note(entries.at("Path"), "the Path " + inQuotes(path) + " is that of an earlier behaviour");

    vo::BehaviorInfo behavior(path);
    if (entries.count("Nature"))
        behavior.setNature(text(entries.at("Nature"), "Nature"));
    optionalTexts(entries, "Permissions",
                  [&](const std::string& name) { behavior.addPermission(name); });
    if (const auto requestable = entries.find("UserRequestable"); requestable != entries.end()) {
        const YAML::Node& flag = requestable->second;
        const std::string value = flag.IsScalar() ? flag.Scalar() : std::string();
        if (value != "true" && value != "false")
            note(flag, "UserRequestable must be true or false");
        behavior.setUserRequestable(value == "true");
    }
    textsByName(entries, "Conditions", [&](const std::string& name, const std::string& condition) {
        behavior.addCondition(name, condition);
    });
    textsByName(entries, "Tags", [&](const std::string& language, const std::string& tag) {
        behavior.addTag(language, tag);
    });
    return behavior;
}

/// The document, or PackageManifestError.
YAML::Node load(const std::string& file)
{
    std::error_code error;
    if (!std::filesystem::exists(file, error) && !error)
        throw PackageManifestError(file, {{0, 0, "there is no manifest"}});
    try {
        return loadYamlFile(file, kMaxManifestBytes);
    } catch (const YAML::ParserException& e) {
        throw PackageManifestError(file,
                                   {{yamlPlace(e.mark).line, yamlPlace(e.mark).column, e.msg}});
    } catch (const YAML::Exception& e) {
        throw PackageManifestError(file, {{0, 0, e.msg}});
    }
}

}  // namespace

PackageManifestError::PackageManifestError(const std::string& file,
                                           std::vector<PackageManifestProblem> problems)
    : std::runtime_error(describe(file, problems)), problems_(std::move(problems))
{
}

vo::PackageInfo readPackageManifest(const std::string& folder)
{
    const std::string file = (std::filesystem::path(folder) / kPackageManifestFile).string();
    const YAML::Node document = load(file);
    Reader reader;
    vo::PackageInfo package = reader.read(document, folder);
    auto problems = reader.takeProblems();
    if (!problems.empty())
        throw PackageManifestError(file, std::move(problems));
    return package;
}

}  // namespace KR

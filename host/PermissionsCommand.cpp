#include "host/PermissionsCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/Output.h"
#include "host/PackageCommand.h"
#include "host/RunCommand.h"
#include "host/Table.h"
#include "life/AppLauncher.h"
#include "life/PermissionText.h"
#include "permission/ContextPermission.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/SharedKeys.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/packages/PackageNames.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"
#include "robot/KRTextToSpeech.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;

struct PermissionsOptions {
    std::string activity;  ///< empty for every behaviour of the packages
    std::string packages;
    std::string state = "solitary";
    bool asleep = false;
    bool onPod = false;
    std::string language = "English";
    bool json = false;
};

/// The reasons against an activity: the name, and in words with what it comes from.
using Reasons = std::vector<std::pair<std::string, std::string>>;

/// What a logged line tells of the error behind it.
std::string causeOf(const std::string& line)
{
    static constexpr std::string_view kBefore = "because of error: ";
    const auto before = line.find(kBefore);
    return before == std::string::npos ? line : line.substr(before + kBefore.size());
}

/// A robot of which nothing is there but the context that was asked for.
class Context {
public:
    explicit Context(const PermissionsOptions& options) : context_{options.state, options.language}
    {
        try {
            voice_->setLanguage(options.language);
        } catch (const KRError& e) {
            throw UsageError(e.getDescription());
        }
        KRMemory& memory = broker_->memory();
        memory.raiseEvent(keys::kState, options.state);
        memory.raiseEvent(keys::kAsleep, options.asleep);
        memory.raiseEvent(keys::kOnPod, options.onPod);
        permission_.emplace(broker_, &behaviors_, nullptr);
        permission_->connectSignals();
    }

    void install(const vo::PackageInfo& package)
    {
        permission_->onBehaviorsInstalled(package, package.behaviors());
    }

    Reasons reasons(const std::string& activity) const
    {
        std::string error;
        const vo::LogListener listener(
            [&](const vo::LogRecord& record) { error = causeOf(record.text); });
        Reasons result;
        for (const std::string& violation : permission_->checkPermissionViolations(activity)) {
            result.emplace_back(violation, violation == "error"
                                               ? "its permissions cannot be found out: " + error
                                               : permissionText(violation, context_) + "; " +
                                                     origin(activity, violation));
        }
        return result;
    }

private:
    /// The part of the context that a violation comes from.
    std::string origin(const std::string& activity, const std::string& violation) const
    {
        if (violation == "language")
            return "it speaks " + listText(behaviors_.packageSupportedLanguages(activity));
        if (violation == "nature")
            return keys::kState + std::string(" is \"") + context_.state + "\"";
        const bool isSleep = violation == vo::BehaviorInfo::k_permCanRunInSleep;
        return std::string(isSleep ? keys::kAsleep : keys::kOnPod) + " is true";
    }

    const PermissionContext context_;
    // Nothing happens by itself, so its time stands still.
    vo::Application application_{std::make_shared<vo::VirtualClock>(vo::TimePoint())};
    boost::shared_ptr<KRBroker> broker_ = KRBroker::create(application_);
    boost::shared_ptr<KRTextToSpeech> voice_ = KRModule::createModule<KRTextToSpeech>(broker_);
    boost::shared_ptr<AppLauncher> launcher_ = KRModule::createModule<AppLauncher>(broker_);
    BehaviorsCache behaviors_;
    std::optional<ContextPermission> permission_;
};

std::string heading(const PermissionsOptions& options)
{
    return tableText(
        {{"In the state \"" + options.state + "\", " + (options.asleep ? "asleep" : "awake") +
          (options.onPod ? ", on the charging station" : ", off the charging station") +
          ", speaking " + options.language + ":"}});
}

bool isBehavior(const std::string& activity)
{
    return !BehaviorsCache::hasActivityPrefixes({"dialog:", "action:"}, activity);
}

std::vector<std::string> keysOf(const std::vector<vo::PackageInfo>& packages)
{
    std::vector<std::string> keys;
    for (const vo::PackageInfo& package : packages)
        for (const vo::BehaviorInfo& behavior : package.behaviors())
            keys.push_back(vo::behaviorKey(package, behavior));
    return keys;
}

/// The activities that are asked for.
std::vector<std::string> askedFor(const PermissionsOptions& options, const PackageFolder& folder)
{
    std::vector<std::string> keys = keysOf(folder.packages);
    if (options.activity.empty())
        return keys;
    if (isBehavior(options.activity) && std::count(keys.begin(), keys.end(), options.activity) == 0)
        throw std::runtime_error("no behaviour " + inQuotes(options.activity) +
                                 " is installed in " + inQuotes(options.packages));
    return {options.activity};
}

std::string answerJson(const std::string& activity, const Reasons& reasons)
{
    Json list = Json::array();
    for (const auto& [violation, text] : reasons)
        list.push_back({{"violation", violation}, {"text", text}});
    const Json json{
        {"activity", activity}, {"allowed", reasons.empty()}, {"reasons", std::move(list)}};
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// A row for each reason.
void addAnswer(const std::string& activity, const Reasons& reasons, std::vector<TableRow>& rows)
{
    if (reasons.empty())
        rows.push_back({printable(activity), "may run", ""});
    for (const auto& [violation, text] : reasons) {
        const bool isFirst = &text == &reasons.front().second;
        rows.push_back(
            {isFirst ? printable(activity) : "", isFirst ? "may not run:" : "", printable(text)});
    }
}

int showPermissions(const PermissionsOptions& options)
{
    // What is logged is told with the reasons.
    vo::setLogLevel(vo::LogLevel::silent);
    PackageFolder folder;
    if (!options.packages.empty())
        folder = readPackageFolder(options.packages);
    else if (options.activity.empty() || isBehavior(options.activity))
        throw UsageError("behaviours are looked for in a packages folder; give it by --packages");

    Context context(options);
    for (const vo::PackageInfo& package : folder.packages)
        context.install(package);
    std::vector<TableRow> rows;
    std::string lines;
    for (const std::string& activity : askedFor(options, folder)) {
        const Reasons reasons = context.reasons(activity);
        addAnswer(activity, reasons, rows);
        lines += answerJson(activity, reasons);
    }
    printOutput(options.json ? lines : heading(options) + tableText(rows));
    for (const std::string& problem : folder.problems)
        printError(problem);
    return folder.problems.empty() ? 0 : 1;
}

}  // namespace

void addPermissionsCommand(const Command& program)
{
    const Command command = program.add(
        "permissions", "Tell which activities may run in a context, and why the others may not");
    const auto options = std::make_shared<PermissionsOptions>();
    command.text("ACTIVITY", options->activity, "",
                 "A behaviour (UUID/PATH), dialog:TOPIC or action:MODULE (default: every "
                 "behaviour)");
    command.text("--packages", options->packages, "DIR", "Folder of the installed packages");
    command.text("--state", options->state, "S", "Life state")
        .showDefault()
        .oneOf({"disabled", "safeguard", "solitary", "interactive"});
    command.flag("--asleep", options->asleep, "The robot sleeps");
    command.flag("--on-pod", options->onPod, "The robot is on its charging station");
    command.text("--language", options->language, "L", "What the robot speaks").showDefault();
    command.flag("--json", options->json, "Print one JSON object a line");
    command.perform([options] { return showPermissions(*options); });
}

}  // namespace KR

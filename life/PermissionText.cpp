#include "life/PermissionText.h"

#include "platform/vo/PackageInfo.h"

namespace KR {

namespace {

std::string answer(const vo::Session& session, const char* service, const char* method)
{
    try {
        return session.service(service).call<std::string>(method);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace

PermissionContext presentContext(const vo::Session& session)
{
    return {answer(session, "KRNimbra", "getState"), answer(session, "KRTextToSpeech", "locale")};
}

std::string permissionText(const std::string& reason, const PermissionContext& context)
{
    if (reason == "language") {
        return "language: it does not speak " +
               (context.language.empty() ? "the robot's language" : context.language);
    }
    if (reason == "nature") {
        if (context.state == "disabled" || context.state == "safeguard")
            return "nature: no activity may run in the state " + context.state;
        return "nature: it needs the state solitary";
    }
    if (reason == vo::BehaviorInfo::k_permCanRunOnPod)
        return "it may not run on the charging station";
    if (reason == vo::BehaviorInfo::k_permCanRunInSleep)
        return "it may not run in sleep";
    if (reason == "error")
        return "error: its permissions cannot be found out; the log says why";
    return reason;
}

std::string permissionTexts(const std::vector<std::string>& reasons,
                            const PermissionContext& context)
{
    std::string texts;
    for (const std::string& reason : reasons)
        texts += (texts.empty() ? "" : "; ") + permissionText(reason, context);
    return texts;
}

}  // namespace KR

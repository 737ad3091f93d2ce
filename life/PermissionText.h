#pragma once

#include <string>
#include <vector>

#include "platform/vo/Session.h"

namespace KR {

/// What an activity's permissions were checked against, as far as words name it.
struct PermissionContext {
    std::string state;     ///< life state
    std::string language;  ///< the robot speaks; empty when nobody knows
};

/// The present context, as the services of a session tell it. What cannot be asked stays empty.
PermissionContext presentContext(const vo::Session& session);

/// A reason against an activity (see ContextPermission) in words: "language" becomes "language: it
/// does not speak French". A reason that is not known stays as it is.
std::string permissionText(const std::string& reason, const PermissionContext& context);

/// Several, separated by "; ".
std::string permissionTexts(const std::vector<std::string>& reasons,
                            const PermissionContext& context);

}  // namespace KR

#include "launchpad/AutonomousAction.h"

#include <cstddef>
#include <iterator>

namespace KR {
namespace {

/// By value of ActionItemType.
constexpr const char* kNames[] = {"",
                                  "SwitchFocus",
                                  "StopFocus",
                                  "StopAll",
                                  "BlockAutonomousFocus",
                                  "UnblockAutonomousFocus",
                                  "SetState",
                                  "SetConfiguration",
                                  "ApiCall",
                                  "FreezeChain",
                                  "UnfreezeChain"};
constexpr std::int32_t kTypes = std::size(kNames);
static_assert(kTypes == ActionItemUnfreezeChain + 1);

}  // namespace

const char* actionItemTypeName(std::int32_t type)
{
    return type >= 0 && type < kTypes ? kNames[type] : "";
}

ActionItemType actionItemTypeFromName(const std::string& name)
{
    for (std::int32_t type = ActionItemSwitchFocus; type < kTypes; ++type) {
        if (name == kNames[type])
            return static_cast<ActionItemType>(type);
    }
    return ActionItemNone;
}

}  // namespace KR

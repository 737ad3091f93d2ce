#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Convert.h"

namespace KR {

/// What a step does. Hosts receive the numbers, so they are fixed: "ApiCall" stays 8.
enum ActionItemType : std::int32_t {
    ActionItemNone = 0,
    ActionItemSwitchFocus = 1,
    ActionItemStopFocus = 2,
    ActionItemStopAll = 3,
    ActionItemBlockAutonomousFocus = 4,
    ActionItemUnblockAutonomousFocus = 5,
    ActionItemSetState = 6,
    ActionItemSetConfiguration = 7,
    ActionItemApiCall = 8,
    ActionItemFreezeChain = 9,
    ActionItemUnfreezeChain = 10
};

/// When an action may be proposed; bits of AutonomousAction::synchronicity.
enum ExecutionSynchronicity : std::uint32_t {
    ExecuteAnyTimeConditionTrue = 0x1,          ///< at any time while its condition is true
    ExecuteAnyTimeConditionEdgeTrue = 0x2,      ///< when its condition becomes true
    ExecuteBeforeActivityIfConditionTrue = 0x4  ///< before an activity starts, if it is true then
};

/// One step of an action. A plain value.
struct AutonomousActionItem {
    std::int32_t type = ActionItemNone;  ///< a value of ActionItemType
    /// Named parameters; an optional one that was not given is absent.
    std::map<std::string, KRValue> parameters;
};

/// The unit that the launchpad proposes to its host: when this condition holds, in this manner, do
/// these steps. A plain value, copied freely.
///
/// The three rule lists hold descriptions of other actions. The launchpad only carries them; their
/// meaning is the host's.
struct AutonomousAction {
    std::string description;  ///< the name, unique in practice
    std::string origin;       ///< who made it: "LifeConfig", "Module.<name>" or "Package"
    std::vector<AutonomousActionItem> items;  ///< in order; not empty for an accepted action
    std::string condition;                    ///< in the condition checker's language
    std::uint32_t conditionId = 0;            ///< with the checker; 0 while it is not registered
    std::uint32_t synchronicity = 0;          ///< bits of ExecutionSynchronicity
    /// To run after these, when the conditions became true at the same moment.
    std::vector<std::string> executeAfterIfSimultaneouslyTrue;
    /// To run when the activity of these has ended.
    std::vector<std::string> executeAfterActiveRules;
    /// Not to run while one of these is active.
    std::vector<std::string> skipIfRulesActive;
};

/// The name by which configuration files know an item type ("SwitchFocus"); "" for
/// ActionItemNone and for a number that is no type.
const char* actionItemTypeName(std::int32_t type);

/// The type of that name; ActionItemNone for an unknown one.
ActionItemType actionItemTypeFromName(const std::string& name);

}  // namespace KR

template <>
struct vo::Struct<KR::AutonomousActionItem> {
    static constexpr const char* name = "AutonomousActionItem";
    static constexpr auto fields()
    {
        using Item = KR::AutonomousActionItem;
        return std::make_tuple(field("type", &Item::type), field("parameters", &Item::parameters));
    }
};

template <>
struct vo::Struct<KR::AutonomousAction> {
    static constexpr const char* name = "AutonomousAction";
    static constexpr auto fields()
    {
        using Action = KR::AutonomousAction;
        return std::make_tuple(
            field("description", &Action::description), field("origin", &Action::origin),
            field("items", &Action::items), field("condition", &Action::condition),
            field("conditionId", &Action::conditionId),
            field("synchronicity", &Action::synchronicity),
            field("executeAfterIfSimultaneouslyTrue", &Action::executeAfterIfSimultaneouslyTrue),
            field("executeAfterActiveRules", &Action::executeAfterActiveRules),
            field("skipIfRulesActive", &Action::skipIfRulesActive));
    }
};

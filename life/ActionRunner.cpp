#include "life/ActionRunner.h"

#include <stdexcept>

#include "platform/config/ApiWrapper.h"

namespace KR {

namespace {

const KRValue* find(const AutonomousActionItem& item, const char* name)
{
    const auto it = item.parameters.find(name);
    return it == item.parameters.end() ? nullptr : &it->second;
}

const KRValue& required(const AutonomousActionItem& item, const char* name)
{
    const KRValue* value = find(item, name);
    if (!value)
        throw std::runtime_error(std::string("the parameter ") + name + " is missing");
    return *value;
}

std::string optionalText(const AutonomousActionItem& item, const char* name)
{
    const KRValue* value = find(item, name);
    return value ? value->toString() : std::string();
}

std::optional<std::int32_t> optionalInt(const AutonomousActionItem& item, const char* name)
{
    const KRValue* value = find(item, name);
    return value ? std::optional(value->toInt32()) : std::nullopt;
}

StepResult switchFocus(LifeService& life, const AutonomousActionItem& item)
{
    FocusRequest request;
    request.activity = required(item, "Activity").toString();
    request.flags = optionalInt(item, "Flags").value_or(0);
    request.reason = optionalText(item, "Reason");
    request.autonomous = true;
    StepResult result;
    result.started = life.switchFocus(request);
    if (!result.started)
        result.reason = "it has the focus already";
    return result;
}

/// A parameter as a person would write it, whatever its type.
std::string shown(const AutonomousActionItem& item, const char* name)
{
    const KRValue* value = find(item, name);
    if (!value)
        return "?";
    return value->isString() ? value->toString() : value->toDisplayString();
}

}  // namespace

const char* stepOutcomeName(StepOutcome outcome)
{
    switch (outcome) {
        case StepOutcome::done:
            return "done";
        case StepOutcome::refused:
            return "refused";
        case StepOutcome::failed:
            return "failed";
    }
    return "";
}

StepResult attempt(const std::function<StepResult()>& deed)
{
    try {
        return deed();
    } catch (const LifeRefusal& e) {
        return {StepOutcome::refused, e.getDescription(), {}};
    } catch (const KRError& e) {
        return {StepOutcome::failed, e.getDescription(), {}};
    } catch (const std::exception& e) {
        return {StepOutcome::failed, e.what(), {}};
    } catch (...) {
        return {StepOutcome::failed, "unknown error", {}};
    }
}

StepResult callResult(const ApiWrapper& call)
{
    const KRValue result = call.execute();
    return {StepOutcome::done, result.isValid() ? "= " + result.toDisplayString() : "", {}};
}

StepResult ActionRunner::run(const AutonomousActionItem& item) const
{
    return attempt([&] { return carryOut(item); });
}

StepResult ActionRunner::carryOut(const AutonomousActionItem& item) const
{
    switch (item.type) {
        case ActionItemSwitchFocus:
            return switchFocus(life_, item);
        case ActionItemStopFocus:
            life_.stopFocus(optionalText(item, "Reason"));
            return {};
        case ActionItemStopAll:
            life_.stopAll(optionalText(item, "Reason"));
            return {};
        case ActionItemBlockAutonomousFocus:
            life_.blockAutonomousFocus();
            return {};
        case ActionItemUnblockAutonomousFocus:
            life_.unblockAutonomousFocus();
            return {};
        case ActionItemSetState: {
            const KRValue* force = find(item, "Force");
            life_.setState(required(item, "State").toString(), force && force->toBool());
            return {};
        }
        case ActionItemSetConfiguration:
            ApiWrapper::importModule(required(item, "Module").toString())
                .call<void>("setConfigurationSet", required(item, "ConfigurationSet").toString());
            return {};
        case ActionItemApiCall:
            return callResult(ApiWrapper(item.parameters));
        case ActionItemFreezeChain:
            life_.freezeChain(required(item, "Chain").toString(), optionalInt(item, "Duration"));
            return {};
        case ActionItemUnfreezeChain:
            life_.unfreezeChain(required(item, "Chain").toString());
            return {};
        default:
            throw std::runtime_error("there is no step type " + std::to_string(item.type));
    }
}

std::string describeCall(const ApiWrapper& call)
{
    std::string text = call.module() + "." + call.method() + "(";
    const char* separator = "";
    for (const KRValue& argument : call.arguments()) {
        text += separator + argument.toDisplayString();
        separator = ", ";
    }
    return text + ")";
}

std::string describeStep(const AutonomousActionItem& item)
{
    const std::string name = actionItemTypeName(item.type);
    switch (item.type) {
        case ActionItemSwitchFocus:
            return name + " " + shown(item, "Activity");
        case ActionItemSetState: {
            const KRValue* force = find(item, "Force");
            return name + " " + shown(item, "State") + (force && force->isTrue() ? ", forced" : "");
        }
        case ActionItemSetConfiguration:
            return name + " " + shown(item, "Module") + " \"" + shown(item, "ConfigurationSet") +
                   "\"";
        case ActionItemApiCall:
            try {
                return name + " " + describeCall(ApiWrapper(item.parameters));
            } catch (const std::exception&) {
                return name + " ?";  // running it will tell what is wrong
            }
        case ActionItemFreezeChain:
            return name + " " + shown(item, "Chain") +
                   (find(item, "Duration") ? " for " + shown(item, "Duration") + " s" : "");
        case ActionItemUnfreezeChain:
            return name + " " + shown(item, "Chain");
        default:
            return name.empty() ? "step of type " + std::to_string(item.type) : name;
    }
}

}  // namespace KR

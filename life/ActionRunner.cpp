#include "life/ActionRunner.h"

#include <stdexcept>

#include "life/LifeService.h"
#include "life/Turns.h"
#include "platform/config/ApiWrapper.h"
#include "platform/kr/KRError.h"

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

constexpr const char* kDeadline = "Deadline";

vo::Future<StepResult> ended(const StepResult& result)
{
    const vo::Promise<StepResult> promise;
    promise.setValue(result);
    return promise.future();
}

vo::Future<StepResult> doneAfter(const vo::Future<void>& future)
{
    return resultOf(future, [](const vo::Future<void>& end) {
        end.value();
        return StepResult();
    });
}

/// The call that a step is; its deadline is none of the call's parameters.
ApiWrapper callOf(const AutonomousActionItem& item)
{
    std::map<std::string, KRValue> parameters = item.parameters;
    parameters.erase(kDeadline);
    return ApiWrapper(parameters);
}

std::vector<vo::Value> argumentsOf(const ApiWrapper& call)
{
    std::vector<vo::Value> arguments;
    arguments.reserve(call.arguments().size());
    for (const KRValue& argument : call.arguments())
        arguments.push_back(vo::toValue(argument));
    return arguments;
}

/// One of memory's kinds; an error for what is none.
vo::Value memoryValue(const vo::Value& value)
{
    return vo::toValue(vo::fromValue<KRValue>(value));
}

StepResult callResult(const vo::Future<vo::Value>& end)
{
    const auto result = vo::fromValue<KRValue>(end.value());
    return {StepOutcome::done, result.isValid() ? "= " + result.toDisplayString() : "", {}};
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

StepResult attempt(const std::function<StepResult()>& step)
{
    try {
        return step();
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

vo::Future<StepResult> makeCall(const ApiWrapper& call)
{
    vo::Future<vo::Value> begun;
    const StepResult failure = attempt([&] {
        begun = ApiWrapper::importModule(call.module())
                    .object()
                    ->start(call.method(), argumentsOf(call));
        return StepResult();
    });
    return begun.isValid() ? resultOf(begun, callResult) : ended(failure);
}

Cause causeOf(const AutonomousActionItem& item, const std::string& rule)
{
    Cause cause;
    cause.rule = rule;
    if (const auto seconds = optionalInt(item, kDeadline)) {
        if (*seconds < 1)
            throw std::runtime_error("the deadline must be 1 second or more");
        cause.deadline = std::chrono::seconds(*seconds);
    }
    return cause;
}

FocusRequest focusRequestOf(const AutonomousActionItem& item, const Cause& cause)
{
    return {required(item, "Activity").toString(), optionalInt(item, "Flags").value_or(0),
            optionalText(item, "Reason"), true, cause};
}

vo::Future<StepResult> ActionRunner::run(const AutonomousActionItem& item, const Cause& cause) const
{
    vo::Future<StepResult> begun;
    const StepResult failure = attempt([&] {
        begun = begin(item, cause);
        return StepResult();
    });
    return begun.isValid() ? begun : ended(failure);
}

vo::Future<StepResult> ActionRunner::begin(const AutonomousActionItem& item,
                                           const Cause& cause) const
{
    switch (item.type) {
        case ActionItemStopFocus:
            return doneAfter(focus_.stopFocus(optionalText(item, "Reason"), cause));
        case ActionItemStopAll:
            return doneAfter(focus_.stopAll(optionalText(item, "Reason"), cause));
        case ActionItemSetState: {
            const KRValue* force = find(item, "Force");
            return doneAfter(focus_.setState(required(item, "State").toString(),
                                             force && force->toBool(), cause));
        }
        case ActionItemSetConfiguration:
            return configure(item, cause);
        case ActionItemApiCall:
            return call(item, cause);
        default:
            change(item, cause.rule);
            return ended({});
    }
}

/// The steps that take no time.
void ActionRunner::change(const AutonomousActionItem& item, const std::string& rule) const
{
    switch (item.type) {
        case ActionItemBlockAutonomousFocus:
            return status_.setAutonomousFocusBlocked(true, rule);
        case ActionItemUnblockAutonomousFocus:
            return status_.setAutonomousFocusBlocked(false, rule);
        case ActionItemFreezeChain:
            return chains_.freeze(required(item, "Chain").toString(), optionalInt(item, "Duration"),
                                  rule);
        case ActionItemUnfreezeChain:
            return chains_.unfreeze(required(item, "Chain").toString(), rule);
        default:
            throw std::runtime_error("there is no step type " + std::to_string(item.type));
    }
}

vo::Future<StepResult> ActionRunner::configure(const AutonomousActionItem& item,
                                               const Cause& cause) const
{
    const std::string module = required(item, "Module").toString();
    const std::string set = required(item, "ConfigurationSet").toString();
    return resultOf(requests_.make(describeStep(item),
                                   [&] {
                                       return calls_.call(ApiWrapper::importModule(module),
                                                          "setConfigurationSet", {vo::toValue(set)},
                                                          cause.deadline);
                                   }),
                    [](const vo::Future<vo::Value>& end) {
                        end.value();
                        return StepResult();
                    });
}

/// Of what a rule changes of its own life, nobody outside is asked.
vo::Future<StepResult> ActionRunner::changeLife(const ApiWrapper& call, const Cause& cause) const
{
    const vo::Promise<vo::Value> promise;
    turns_.inside([&] {
        ApiWrapper::importModule(call.module())
            .object()
            ->start(call.method(), argumentsOf(call))
            .then([promise](const vo::Future<vo::Value>& ended) { promise.endAs(ended); });
    });
    failAfter(turns_, promise, cause.deadline, call.module(), call.method());
    return resultOf(promise.future(), callResult);
}

vo::Future<StepResult> ActionRunner::call(const AutonomousActionItem& item,
                                          const Cause& cause) const
{
    const ApiWrapper call = callOf(item);
    const std::vector<KRValue>& arguments = call.arguments();
    // Sleep has no step of its own. Asked for here, its change is told as this rule's.
    if (call.module() == "KRNimbra" && call.method() == "setAsleep" && arguments.size() == 1 &&
        arguments[0].isBool()) {
        status_.setAsleep(arguments[0].toBool(), cause.rule);
        return ended({});
    }
    if (call.module() == LifeService::kName && LifeService::isChange(call.method()))
        return changeLife(call, cause);
    return resultOf(requests_.make(describeCall(call),
                                   [&] {
                                       return calls_
                                           .call(ApiWrapper::importModule(call.module()),
                                                 call.method(), argumentsOf(call), cause.deadline)
                                           .map(memoryValue);
                                   }),
                    callResult);
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
                return name + " " + describeCall(callOf(item));
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

#include "record/LifeCall.h"

#include <functional>
#include <map>
#include <stdexcept>

#include "life/FocusRequest.h"
#include "life/LifeService.h"
#include "platform/kr/KRError.h"

namespace KR {

namespace {

using Arguments = KRValue::Array;
using Call = std::function<void(LifeService&, const Arguments&)>;

std::optional<std::int32_t> optionalInt(const KRValue& value)
{
    return value.isValid() ? std::optional(value.toInt32()) : std::nullopt;
}

const std::map<std::string, Call>& calls()
{
    static const std::map<std::string, Call> kCalls{
        {"setState",
         [](LifeService& life, const Arguments& a) {
             life.setState(a.at(0).toString(), a.at(1).toBool());
         }},
        {"setAsleep",
         [](LifeService& life, const Arguments& a) { life.setAsleep(a.at(0).toBool()); }},
        {"switchFocus",
         [](LifeService& life, const Arguments& a) {
             life.switchFocus(
                 {a.at(0).toString(), a.at(1).toInt32(), a.at(2).toString(), a.at(3).toBool()});
         }},
        {"stopFocus",
         [](LifeService& life, const Arguments& a) { life.stopFocus(a.at(0).toString()); }},
        {"stopAll",
         [](LifeService& life, const Arguments& a) { life.stopAll(a.at(0).toString()); }},
        {"blockAutonomousFocus",
         [](LifeService& life, const Arguments&) { life.blockAutonomousFocus(); }},
        {"unblockAutonomousFocus",
         [](LifeService& life, const Arguments&) { life.unblockAutonomousFocus(); }},
        {"freezeChain",
         [](LifeService& life, const Arguments& a) {
             life.freezeChain(a.at(0).toString(), optionalInt(a.at(1)));
         }},
        {"unfreezeChain",
         [](LifeService& life, const Arguments& a) { life.unfreezeChain(a.at(0).toString()); }}};
    return kCalls;
}

}  // namespace

void callLife(LifeService& life, const LifeAsked& asked)
{
    const auto call = calls().find(asked.method);
    if (call == calls().end())
        throw std::runtime_error("the life service has no method '" + asked.method + "'");
    call->second(life, asked.arguments);
}

void keepPromise(const vo::Promise<vo::Value>& promise, const Answer& answer)
{
    const char* const service = LifeService::kName;
    switch (answer.kind) {
        case Answer::Kind::value:
            promise.setValue(vo::toValue(answer.value));
            break;
        case Answer::Kind::refusal:
            promise.setError(std::make_exception_ptr(LifeRefusal(service, "", answer.text)));
            break;
        case Answer::Kind::failure:
            promise.setError(std::make_exception_ptr(KRError(service, "", answer.text)));
            break;
    }
}

}  // namespace KR

#include "platform/kr/KRModule.h"

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Log.h"
#include "platform/vo/Session.h"

namespace KR {

namespace {

const vo::Logger moduleLog("KRModule");

}  // namespace

KRModule::KRModule(boost::shared_ptr<KRBroker> broker, const std::string& name)
    : broker_(std::move(broker)), name_(name), object_(std::make_shared<vo::ServiceObject>(name))
{
    if (!broker_)
        throw KRError(name_, "KRModule", "there is no broker");
}

KRModule::~KRModule() = default;

std::string KRModule::getModuleDescription() const
{
    const vo::Lock lock(mutex_);
    return description_;
}

void KRModule::setModuleDescription(const std::string& description)
{
    const vo::Lock lock(mutex_);
    description_ = description;
}

void KRModule::registerModule()
{
    try {
        broker_->session().registerService(object_);
    } catch (const std::runtime_error& e) {
        throw KRError(name_, "createModule", e.what());
    }
    {
        const vo::Lock lock(mutex_);
        state_ = State::registered;
    }
    init();
}

void KRModule::exit()
{
    bool wasRegistered = false;
    {
        const vo::Lock lock(mutex_);
        wasRegistered = state_ == State::registered;
        state_ = State::exited;
    }
    if (wasRegistered)
        broker_->session().unregisterService(name_);
    object_->close();  // whoever comes second waits for the calls in progress as well
    broker_->memory().endSubscriptions(*object_);
}

bool KRModule::isRegistered() const
{
    const vo::Lock lock(mutex_);
    return state_ == State::registered;
}

// The derived class's exit() runs while the derived class is still whole, and once: a module that
// was told to exit before, or that never got registered, has nothing to release there.
void KRModule::Retire::operator()(KRModule* module) const
{
    try {
        if (module->isRegistered())
            module->exit();
    } catch (const std::exception& e) {
        moduleLog.error("exit", module->name_ + ": " + e.what());
    } catch (...) {
        moduleLog.error("exit", module->name_ + ": unknown error");
    }
    module->KRModule::exit();
    delete module;
}

std::string KRModule::describe(const std::string& description,
                               const std::vector<ParameterInfo>& parameters)
{
    std::string text = description;
    for (const ParameterInfo& parameter : parameters)
        text += "\n" + parameter.name + ": " + parameter.description;
    return text;
}

}  // namespace KR

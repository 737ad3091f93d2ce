#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

/// A parameter of a bound method, for those who list a module's methods.
struct ParameterInfo {
    std::string name;
    std::string description;
};

/// Base of everything that the platform knows as a module: a named object whose bound methods
/// shared memory and other modules call.
///
/// Made by createModule, which registers it as a service under its name, and owned by the shared
/// pointer that it returns. When the last owner lets go, the module is first taken out of the
/// session and its calls in progress are waited for, and only then destroyed: a module that is
/// destroyed is never called back again.
///
/// A derived class's own operations are as thread-safe as it says; those of this class are.
class KRModule {
public:
    virtual ~KRModule();
    KRModule(const KRModule&) = delete;
    KRModule& operator=(const KRModule&) = delete;

    /// Makes a module of class M from (broker, arguments...), which is how its constructor takes
    /// them, registers it, and calls its init(). What the constructor or init() throws leaves this,
    /// and nothing stays registered; so does a name that is taken (KRError).
    template <class M, class... Args>
    static boost::shared_ptr<M> createModule(boost::shared_ptr<KRBroker> broker, Args&&... args)
    {
        boost::shared_ptr<M> module(new M(broker, std::forward<Args>(args)...), Retire());
        module->registerModule();
        return module;
    }

    const std::string& getName() const { return name_; }
    const boost::shared_ptr<KRBroker>& getParentBroker() const { return broker_; }
    std::string getModuleDescription() const;

    /// Called once by createModule, when the module is registered: from here on it can subscribe
    /// to memory. The base does nothing.
    virtual void init() {}
    /// Called before the module is dropped, by the last owner's letting go if by nobody earlier:
    /// the base takes it out of the session, ends its memory subscriptions, and waits for its
    /// calls in progress (not for one that this is called from). Idempotent.
    virtual void exit();

protected:
    /// The module does not register itself here: nothing may call it before it is whole.
    KRModule(boost::shared_ptr<KRBroker> broker, const std::string& name);

    void setModuleDescription(const std::string& description);

    /// Binds a member function as a method of the module under `name`. For the constructor.
    template <class M, class R, class... Args>
    void bindMethod(const std::string& name, R (M::*function)(Args...), M* self,
                    const std::string& description,
                    const std::vector<ParameterInfo>& parameters = {})
    {
        bind<Args...>(name, function, self, describe(description, parameters));
    }
    template <class M, class R, class... Args>
    void bindMethod(const std::string& name, R (M::*function)(Args...) const, const M* self,
                    const std::string& description,
                    const std::vector<ParameterInfo>& parameters = {})
    {
        bind<Args...>(name, function, self, describe(description, parameters));
    }

    /// Publishes a signal under `name`, and a property that others can read and follow. Both are
    /// members of the module. For the constructor.
    template <class... Args>
    void bindSignal(const std::string& name, vo::Signal<Args...>& signal)
    {
        object_->signal(name, signal);
    }
    template <class T>
    void bindProperty(const std::string& name, vo::Property<T>& property)
    {
        object_->readOnlyProperty(name, property);
    }

private:
    struct Retire {
        void operator()(KRModule* module) const;
    };

    /// exit() leads to `exited` from either of the others; that is final.
    enum class State { made, registered, exited };

    template <class... Args, class Function, class M>
    void bind(const std::string& name, Function function, M* self, const std::string& description)
    {
        auto call = [self, function](std::decay_t<Args>... args) {
            return (self->*function)(std::move(args)...);
        };
        object_->method(name, std::move(call), description);
    }

    void registerModule();
    bool isRegistered() const;
    static std::string describe(const std::string& description,
                                const std::vector<ParameterInfo>& parameters);

    // Constant after construction.
    boost::shared_ptr<KRBroker> broker_;
    std::string name_;
    std::shared_ptr<vo::ServiceObject> object_;

    mutable vo::Mutex mutex_;
    std::string description_ VO_GUARDED_BY(mutex_);
    State state_ VO_GUARDED_BY(mutex_) = State::made;
};

}  // namespace KR

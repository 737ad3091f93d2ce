#pragma once

#include <fstream>
#include <functional>
#include <string>

#include "bench/Harness.h"
#include "bench/TemporaryFolder.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Application.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Session.h"
#include "platform/vo/Signal.h"

namespace bench {

/// A launchpad on the real clock with actions of three steps, whose conditions read 64 keys in all,
/// and a responder that is told of every dispatch.
///
/// Key i of eight has four actions for "Low", described "i Low 0" and so on, and four for "High";
/// each has a guard among the other keys. The checker's thread runs on one core, the event loop's
/// on another.
class LiveLaunchpad : public KR::NimbraLaunchpadResponder {
public:
    using Dispatch =
        std::function<void(const std::list<KR::AutonomousAction>&, const KR::PersistentValues&)>;

    static constexpr std::size_t kKeys = 64;
    static constexpr std::size_t kTriggers = 8;
    static constexpr std::size_t kActionsPerChange = 4;

    LiveLaunchpad(unsigned checkersCore, unsigned loopsCore, std::size_t keys = kKeys,
                  const KR::LaunchpadObserver& observer = {})
        : application_((pinToCore(loopsCore), vo::makeRealClock())),
          broker_(KR::KRBroker::create(application_))
    {
        packages_->signal("onPackageInstalled", never_).signal("onPackageRemoved", never_);
        packages_->method("packages", [] { return std::vector<vo::PackageInfo>(); });
        packages_->method("hasPackage", [](const std::string&) { return false; });
        animations_->method("_declarePathForTagsPermanently", [](const std::string&) {});
        application_.session().registerService(packages_);
        application_.session().registerService(animations_);
        for (std::size_t i = kTriggers; i < keys; ++i)
            memory().raiseEvent(guard(i), false);
        pinToCore(checkersCore);
        launchpad_ =
            std::make_unique<KR::NimbraLaunchpad>(broker_, nullptr, this, std::nullopt, observer);
        launchpad_->loadConfigFile(writeConfiguration(keys));
        launchpad_->startMonitoringConditions();
    }
    ~LiveLaunchpad() override
    {
        launchpad_->exit();
        launchpad_.reset();
        packages_->close();
        animations_->close();
    }

    const boost::shared_ptr<KR::KRBroker>& broker() { return broker_; }
    KR::KRMemory& memory() { return broker_->memory(); }
    static std::string trigger(std::size_t i) { return "Sense/Trigger" + std::to_string(i); }
    /// Called on the event loop. To be set while nothing is on its way.
    Dispatch onDispatch;

private:
    static std::string guard(std::size_t i) { return "Sense/Guard" + std::to_string(i); }

    void processActions(const std::list<KR::AutonomousAction>& actions,
                        const KR::PersistentValues& values) override
    {
        if (onDispatch)
            onDispatch(actions, values);
    }
    void onPluginsChanged() override {}

    std::string writeConfiguration(std::size_t keys) const
    {
        std::string path = folder_.path() + "/bench.cfg";
        std::ofstream out(path);
        out << "ConfigurationDescription: bench\nConfigurationVersion: \"2.0\"\n"
               "AutonomousActions:\n";
        std::size_t nextGuard = kTriggers;
        for (std::size_t i = 0; i < kTriggers; ++i)
            for (const char* value : {"Low", "High"})
                for (std::size_t j = 0; j < kActionsPerChange; ++j)
                    writeAction(out, i, value, j, nextGuard, keys);
        return path;
    }
    /// The guards are shared out among the actions, each to one of them at least.
    static void writeAction(std::ostream& out, std::size_t i, const char* value, std::size_t j,
                            std::size_t& nextGuard, std::size_t keys)
    {
        const std::size_t actions = kTriggers * 2 * kActionsPerChange;
        const std::size_t share = (keys - kTriggers + actions - 1) / actions;
        out << "  - Description: \"" << i << ' ' << value << ' ' << j << "\"\n"
            << "    Condition: \"'" << trigger(i) << "'==\\\"" << value << "\\\"";
        for (std::size_t n = 0; n < share; ++n) {
            out << " && !'" << guard(nextGuard) << "'";
            nextGuard = nextGuard + 1 < keys ? nextGuard + 1 : kTriggers;
        }
        out << "\"\n"
               "    ExecuteAnyTimeConditionEdgeTrue: true\n"
               "    Actions:\n"
               "      - {Action: StopAll, ActionParameters: {Reason: a sense has changed}}\n"
               "      - {Action: SetState, ActionParameters: {State: solitary}}\n"
               "      - {Action: SwitchFocus, ActionParameters: {Activity: package/activity}}\n";
    }

    TemporaryFolder folder_;
    vo::Application application_;
    boost::shared_ptr<KR::KRBroker> broker_;
    vo::Signal<vo::PackageInfo> never_;
    const std::shared_ptr<vo::ServiceObject> packages_ =
        std::make_shared<vo::ServiceObject>("PackageManager");
    const std::shared_ptr<vo::ServiceObject> animations_ =
        std::make_shared<vo::ServiceObject>("KRAnimationPlayer");
    std::unique_ptr<KR::NimbraLaunchpad> launchpad_;
};

}  // namespace bench

#include "launchpad/PackageChanges.h"

#include <exception>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/vo/Application.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/Executor.h"
#include "platform/vo/PackageInfo.h"

namespace KR {

/// But for the gate, used by the signal queue alone, once it is connected.
struct PackageChanges::State {
    struct Change {
        vo::PackageInfo package;
        bool installed;
    };

    State(Receiver function, Failed onFailure)
        : receiver(std::move(function)), failed(std::move(onFailure))
    {
    }

    void onChange(const vo::PackageInfo& package, bool installed)
    {
        if (held)
            held->push_back({package, installed});
        else
            receiver(package, installed);
    }
    void receiveHeld(std::vector<vo::PackageInfo> packages);

    const Receiver receiver;
    const Failed failed;
    std::optional<std::vector<Change>> held{std::in_place};
    vo::CallbackGate gate;  ///< passed by the end of the holding back
};

/// A package that is there as it was told needs nothing. Any other is taken away first, and what is
/// not there need not be taken away.
void PackageChanges::State::receiveHeld(std::vector<vo::PackageInfo> packages)
{
    std::map<std::string, vo::PackageInfo> present;
    for (vo::PackageInfo& package : packages)
        present[package.uuid()] = std::move(package);
    const auto receive = [this](const vo::PackageInfo& package, bool installed) {
        if (gate.isClosed())
            return;
        try {
            receiver(package, installed);
        } catch (const std::exception& e) {
            failed(e.what());
        } catch (...) {
            failed("unknown exception");
        }
    };
    const std::vector<Change> changes = std::move(*held);
    held.reset();
    for (const auto& [package, installed] : changes) {
        const auto known = present.find(package.uuid());
        if (known != present.end()) {
            if (installed && vo::toValue(known->second) == vo::toValue(package))
                continue;
            receive(known->second, false);
            present.erase(known);
        }
        if (installed) {
            receive(package, true);
            present[package.uuid()] = package;
        }
    }
}

PackageChanges::PackageChanges(const vo::AnyObject& packageManager, Receiver receiver,
                               Failed failed)
    : state_(std::make_shared<State>(std::move(receiver), std::move(failed))),
      installed_(follow(packageManager, "onPackageInstalled", true)),
      removed_(follow(packageManager, "onPackageRemoved", false))
{
}

vo::Connection PackageChanges::follow(const vo::AnyObject& packageManager, const char* signal,
                                      bool installed)
{
    return packageManager.connect(signal,
                                  [state = state_, installed](const vo::PackageInfo& package) {
                                      state->onChange(package, installed);
                                  });
}

PackageChanges::~PackageChanges()
{
    state_->gate.close();
}

/// In its turn on the signal queue: what was reported up to now is held back, what is reported
/// later is not.
void PackageChanges::release(std::vector<vo::PackageInfo> present)
{
    vo::Application::current().signalExecutor().post(
        [state = state_, present = std::move(present)]() mutable {
            const vo::CallbackGate::Pass pass(state->gate);
            if (pass)
                state->receiveHeld(std::move(present));
        });
}

}  // namespace KR

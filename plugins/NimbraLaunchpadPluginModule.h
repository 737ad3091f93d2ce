#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/kr/KRMemoryProxy.h"
#include "platform/kr/KRModule.h"
#include "platform/kr/KRValue.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/vo/Future.h"
#include "plugins/NimbraLaunchpadPlugin.h"

namespace KR {

/// Base of the built-in plugins: a plugin that is a module too, so that shared memory can call it
/// back, and that publishes its data under keys of one form, "Launchpad/" and the datum's name.
///
/// A derived class, in its constructor, sets its groups, binds the methods that memory is to call,
/// and declares its events; `_startPlugin` subscribes and raises, `_stopPlugin` unsubscribes,
/// cancels its timers, and raises "empty" values, so that no condition sees stale data.
///
/// Made by KRModule::createModule. The operations here are thread-safe and hold no lock; their
/// memory errors (KRError) reach the caller. Memory's callbacks come on platform threads: a derived
/// class guards its own state.
class NimbraLaunchpadPluginModule : public NimbraLaunchpadPlugin, public KRModule {
public:
    /// First part of every key that a built-in plugin publishes.
    static const std::string fLaunchPadPrefix;

    /// `name` is the plugin's and the module's name. Logs and passes on what keeps it from
    /// reaching shared memory.
    NimbraLaunchpadPluginModule(boost::shared_ptr<KRBroker>& broker, const std::string& name);

    /// Takes the module out of the session and ends its subscriptions.
    void exit() override;

    /// The full keys that this plugin may write, in the order in which it described them.
    std::vector<std::string> getPublishedKeys() const { return publishedKeys_; }

    /// The full key of a datum: "Launchpad/" and its name, which is used unchanged.
    std::string xAddLaunchpadPrefix(std::string name) const;
    /// Declares a datum's key as an event of this module.
    void xDeclareLaunchpadEvent(std::string name);
    /// Tells the platform of a datum, whose name stands in the place of the key, and what it is
    /// while there is nothing to tell. For the constructor, as declaring is.
    void xDescribe(KeyDescription datum);
    /// Tells the platform that this plugin reads a key.
    void xReads(const std::string& key);
    /// Writes a datum.
    void xRaiseLaunchpadEvent(std::string name, KRValue value) const;
    /// Writes the empty value of a datum that was described.
    void xRaiseEmpty(const std::string& name) const;
    /// Has the bound method `callback` called for every write of the key `event` (which gets no
    /// prefix).
    void xSubscribeMicroEvent(std::string event, std::string callback);
    void xUnsubscribeMicroEvent(std::string event);
    /// The element count of an array of at least `expected` elements; KRError for anything else.
    unsigned int xCheckDataSize(const KRValue& value, unsigned int expected) const;
    /// Seconds (not negative) in whole microseconds, computed in single precision: about seven
    /// digits are kept.
    std::uint64_t xGetDelayUSec(float seconds);
    /// Asks for cancellation and does not wait; an invalid future is left alone.
    void xTryCancelFuture(vo::Future<void> future);

protected:
    // The plugin's, not the module's.
    using NimbraLaunchpadPlugin::mutex_;
    using NimbraLaunchpadPlugin::name_;

    // Constant after construction.
    boost::shared_ptr<KRMemoryProxy> memoryProxy_;

private:
    // Constant after construction.
    std::vector<std::string> publishedKeys_;
    std::map<std::string, KRValue> emptyValues_;  ///< by name
};

}  // namespace KR

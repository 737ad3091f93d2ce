#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/vo/AnyObject.h"
#include "platform/vo/Connection.h"

namespace vo {
class PackageInfo;
}

namespace KR {

/// What the service "PackageManager" tells of packages that are installed and removed, from before
/// somebody has read what is there:
///
///     holding back --release()--> following
///
/// Whoever reports a change never waits. The receiver runs on the platform's signal queue, one
/// change at a time and in order. It may destroy this, and then is not called again.
class PackageChanges {
public:
    using Receiver = std::function<void(const vo::PackageInfo& package, bool installed)>;
    using Failed = std::function<void(const std::string& error)>;

    /// Connects to the signals, and holds their changes back. Throws when it cannot. `failed` is
    /// told when the receiver fails with a change that was held back, and the others go on; with a
    /// later one it is the signal queue that logs it.
    PackageChanges(const vo::AnyObject& packageManager, Receiver receiver, Failed failed);
    /// Disconnects. Waits for the receiver, except when it is destroyed by it.
    ~PackageChanges();
    PackageChanges(const PackageChanges&) = delete;
    PackageChanges& operator=(const PackageChanges&) = delete;

    /// Has the changes that were held back received, and from then on every change as it comes.
    /// `present` is what was read meanwhile: which of those changes it shows already nobody knows,
    /// so they are received such that in the end there is what they say, once. To be called once.
    void release(std::vector<vo::PackageInfo> present);

private:
    struct State;

    vo::Connection follow(const vo::AnyObject& packageManager, const char* signal, bool installed);

    // Constant after construction. The state is shared with the signal queue.
    const std::shared_ptr<State> state_;
    const vo::Connection installed_;
    const vo::Connection removed_;
};

}  // namespace KR

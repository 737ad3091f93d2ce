#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/packages/PackageStore.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/NotificationQueue.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Session.h"
#include "platform/vo/Signal.h"

namespace KR {

class FolderWatch;

/// The installed packages of a robot: the service "PackageManager".
///
/// The packages folder is the truth: each folder in it with a manifest (see readPackageManifest)
/// whose uuid is the folder's name is an installed package. One that appears, disappears or gets
/// another manifest, by these operations, by another process or by hand, is noticed and signalled.
/// A folder that is no usable package is left out, and a warning tells why.
///
/// The service's methods are "packages", "hasPackage", "removePkg", "install" and "upgrade"; its
/// signals are "onPackageInstalled" and "onPackageRemoved", each with a vo::PackageInfo. For every
/// package the two alternate, and a package that is replaced is first removed, then installed. A
/// signal comes when packages() shows the change already, on a changing thread with no lock held:
/// before the operation that makes the change returns, unless another thread is just telling of
/// earlier changes and so tells of this one too.
///
/// Errors are KRError with the module "PackageManager". Thread-safe.
class PackageManager {
public:
    struct Options {
        /// Time without another change after which a folder that changes by hand is looked at: a
        /// copy in progress is not half a package.
        vo::Duration settle = std::chrono::milliseconds(500);
        PackageStore::Options store = {};
    };

    /// Makes the packages folder when it is not there (KRError when it cannot), clears leftovers,
    /// and registers the service in `session`, which outlives this.
    PackageManager(vo::Session& session, const std::shared_ptr<vo::Clock>& clock,
                   const std::string& folder, Options options);
    PackageManager(vo::Session& session, const std::shared_ptr<vo::Clock>& clock,
                   const std::string& folder)
        : PackageManager(session, clock, folder, Options())
    {
    }
    /// Takes the service away. The packages stay.
    ~PackageManager();
    PackageManager(const PackageManager&) = delete;
    PackageManager& operator=(const PackageManager&) = delete;

    /// In ascending order of uuid.
    std::vector<vo::PackageInfo> packages() const;
    bool hasPackage(const std::string& uuid) const;
    std::optional<vo::PackageInfo> find(const std::string& uuid) const;

    /// Installs from a folder or an archive; returns the package's uuid. All or nothing, even if
    /// the process dies half-way. A uuid that is installed already is refused.
    std::string install(const std::string& source);
    /// The same, but replaces the package of that uuid, if there is one.
    std::string upgrade(const std::string& source);
    void removePkg(const std::string& uuid);

private:
    /// What tells whether a package's folder is as it was when it was read.
    struct Stamp {
        std::uintmax_t folder = 0;  ///< 0 when it is not there
        std::uintmax_t manifest = 0;
        std::int64_t written = 0;
        std::int64_t changed = 0;

        bool operator==(const Stamp& other) const
        {
            return folder == other.folder && manifest == other.manifest &&
                   written == other.written && changed == other.changed;
        }
    };
    struct Entry {
        Stamp stamp;
        std::optional<vo::PackageInfo> package;  ///< none when the folder is no usable package
    };
    using Entries = std::map<std::string, Entry>;
    /// What is to be logged once no lock is held.
    using Notes = std::vector<std::string>;
    struct Change {
        bool installed;
        vo::PackageInfo package;
    };

    std::string installAs(const std::string& source, PackageStore::IfInstalled ifInstalled,
                          const char* method);
    void registerService(vo::Session& session);
    void startWatching();
    void onFolderChanged(const std::string& entry);
    void watch(const std::string& folder) const;
    static Stamp stampOf(const std::string& folder);
    std::optional<vo::PackageInfo> read(const std::string& name, const Stamp& stamp,
                                        Notes& notes) const;
    void rescan();
    Entries scan(Notes& notes) const VO_REQUIRES(mutex_);
    void noteChanges(const Entries& found) VO_REQUIRES(mutex_);
    void deliver();

    // Constant after construction.
    vo::Session& session_;
    const PackageStore store_;
    const vo::Duration settle_;
    const std::shared_ptr<vo::Clock> clock_;  ///< outlives the executor
    const std::shared_ptr<vo::Executor> executor_;

    // Synchronised by themselves.
    vo::NotificationQueue<Change> notifications_;
    vo::Signal<vo::PackageInfo> installed_;
    vo::Signal<vo::PackageInfo> removed_;

    /// Held while the packages folder is read, so that of two scans the later one sees more.
    mutable vo::Mutex mutex_;
    Entries entries_ VO_GUARDED_BY(mutex_);

    // Used on the watch's thread only.
    vo::Executor::TaskId pendingScan_ = 0;
    /// Constant after construction; null when the system has no watches. The first to go.
    std::unique_ptr<FolderWatch> watch_;
};

}  // namespace KR

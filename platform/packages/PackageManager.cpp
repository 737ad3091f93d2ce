#include "platform/packages/PackageManager.h"

#include <filesystem>
#include <sys/stat.h>
#include <utility>

#include "platform/kr/KRError.h"
#include "platform/packages/FolderWatch.h"
#include "platform/packages/PackageManifest.h"
#include "platform/packages/PackageNames.h"
#include "platform/vo/Log.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

namespace fs = std::filesystem;

namespace {

const vo::Logger packageManagerLog("PackageManager");

constexpr const char* kServiceName = "PackageManager";

std::string madeFolder(const std::string& folder)
{
    std::error_code error;
    const fs::path path = fs::absolute(folder);
    fs::create_directories(path, error);
    if (!fs::is_directory(path))
        throw KRError(kServiceName, "PackageManager",
                      path.string() + " is no folder: " +
                          (error ? error.message() : std::string("it is something else")));
    return fs::canonical(path).string();  // a link cannot be watched
}

std::int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * INT64_C(1'000'000'000) + time.tv_nsec;
}

std::string describe(const vo::PackageInfo& package)
{
    return "Package '" + package.uuid() + "' " + package.version();
}

}  // namespace

PackageManager::PackageManager(vo::Session& session, const std::shared_ptr<vo::Clock>& clock,
                               const std::string& folder, Options options)
    : session_(session),
      store_(madeFolder(folder), std::move(options.store)),
      settle_(options.settle),
      clock_(clock),
      executor_(clock->makeExecutor("packages", vo::Clock::Threading::shared))
{
    try {
        store_.clearLeftovers();
    } catch (const std::exception& e) {
        packageManagerLog.warning("PackageManager",
                                  std::string("Leftovers are not cleared: ") + e.what());
    }
    startWatching();
    rescan();
    registerService(session);
}

PackageManager::~PackageManager()
{
    session_.unregisterService(kServiceName);
    // No scan runs from now on, and none that the watch asks for until it goes.
    executor_->close();
}

void PackageManager::registerService(vo::Session& session)
{
    using Text = const std::string&;
    auto object = std::make_shared<vo::ServiceObject>(kServiceName);
    object
        ->method(
            "packages", [this] { return packages(); }, "The installed packages.")
        .method(
            "hasPackage", [this](Text uuid) { return hasPackage(uuid); },
            "Whether a package is installed.")
        .method(
            "removePkg", [this](Text uuid) { removePkg(uuid); }, "Removes a package.")
        .method(
            "install", [this](Text source) { return install(source); },
            "Installs a package from a folder or an archive.")
        .method(
            "upgrade", [this](Text source) { return upgrade(source); },
            "Installs a package, in the place of the one with its uuid.")
        .signal("onPackageInstalled", installed_)
        .signal("onPackageRemoved", removed_);
    session.registerService(object);
}

std::vector<vo::PackageInfo> PackageManager::packages() const
{
    std::vector<vo::PackageInfo> all;
    const vo::Lock lock(mutex_);
    for (const auto& [name, entry] : entries_) {
        if (entry.package)
            all.push_back(*entry.package);
    }
    return all;
}

bool PackageManager::hasPackage(const std::string& uuid) const
{
    return find(uuid).has_value();
}

std::optional<vo::PackageInfo> PackageManager::find(const std::string& uuid) const
{
    const vo::Lock lock(mutex_);
    const auto found = entries_.find(uuid);
    return found == entries_.end() ? std::nullopt : found->second.package;
}

std::string PackageManager::install(const std::string& source)
{
    return installAs(source, PackageStore::IfInstalled::refuse, "install");
}

std::string PackageManager::upgrade(const std::string& source)
{
    return installAs(source, PackageStore::IfInstalled::replace, "upgrade");
}

std::string PackageManager::installAs(const std::string& source,
                                      PackageStore::IfInstalled ifInstalled, const char* method)
{
    std::string uuid;
    try {
        uuid = store_.install(source, ifInstalled);
    } catch (const std::exception& e) {
        throw KRError(kServiceName, method, "cannot install " + inQuotes(source) + ": " + e.what());
    }
    rescan();
    return uuid;
}

void PackageManager::removePkg(const std::string& uuid)
{
    try {
        store_.remove(uuid);
    } catch (const std::exception& e) {
        throw KRError(kServiceName, "removePkg",
                      "cannot remove " + inQuotes(uuid) + ": " + e.what());
    }
    rescan();
}

void PackageManager::startWatching()
{
    try {
        watch_ = std::make_unique<FolderWatch>(
            [this](const std::string& entry) { onFolderChanged(entry); });
    } catch (const std::exception& e) {
        packageManagerLog.warning("startWatching",
                                  std::string("Changes by hand are not noticed: ") + e.what());
    }
}

void PackageManager::onFolderChanged(const std::string& entry)
{
    if (!entry.empty() && entry.front() == '~')
        return;  // an operation in progress
    executor_->cancel(pendingScan_);
    pendingScan_ = executor_->post([this] { rescan(); }, settle_);
}

void PackageManager::watch(const std::string& folder) const
{
    if (!watch_)
        return;
    try {
        watch_->watch(folder);
    } catch (const std::exception& e) {
        packageManagerLog.verbose("watch", std::string("Changes are not noticed: ") + e.what());
    }
}

PackageManager::Stamp PackageManager::stampOf(const std::string& folder)
{
    struct stat status = {};
    Stamp stamp;
    if (::stat(folder.c_str(), &status) == 0)
        stamp.folder = status.st_ino;
    if (::stat((folder + "/" + kPackageManifestFile).c_str(), &status) == 0) {
        stamp.manifest = status.st_ino;
        stamp.written = nanoseconds(status.st_mtim);
        stamp.changed = nanoseconds(status.st_ctim);
    }
    return stamp;
}

/// The package in a folder, or nothing when it is not usable, and a note that says why. A folder
/// that is another by now needs none: it is scanned again.
std::optional<vo::PackageInfo> PackageManager::read(const std::string& name, const Stamp& stamp,
                                                    Notes& notes) const
{
    std::string problem;
    try {
        return store_.package(name);
    } catch (const std::exception& e) {
        problem = e.what();
    }
    if (stampOf(store_.path(name)) == stamp)
        notes.push_back("Folder " + inQuotes(store_.path(name)) + " is left out: " + problem);
    return std::nullopt;
}

void PackageManager::rescan()
{
    Notes notes;
    {
        const vo::Lock lock(mutex_);
        try {
            Entries found = scan(notes);
            noteChanges(found);
            entries_ = std::move(found);
        } catch (const std::exception& e) {
            notes.push_back(std::string("The packages cannot be listed: ") + e.what());
        }
    }
    for (const std::string& note : notes)
        packageManagerLog.warning("rescan", note);
    deliver();
}

/// What is in the packages folder. A folder is watched before it is read: what changes after the
/// reading is noticed.
PackageManager::Entries PackageManager::scan(Notes& notes) const
{
    Entries found;
    watch(store_.folder());
    std::error_code error;
    if (!fs::exists(store_.folder(), error) && !error) {
        notes.push_back("The packages folder has gone: " + store_.folder());
        return found;
    }
    for (const std::string& name : store_.folders()) {
        watch(store_.path(name));
        const Stamp stamp = stampOf(store_.path(name));
        if (stamp.folder == 0)
            continue;  // gone since it was listed
        const auto known = entries_.find(name);
        if (known != entries_.end() && known->second.stamp == stamp)
            found.insert(*known);
        else
            found.insert({name, {stamp, read(name, stamp, notes)}});
    }
    return found;
}

void PackageManager::noteChanges(const Entries& found)
{
    const auto isIn = [](const Entries& entries, const Entries::value_type& entry) {
        const auto same = entries.find(entry.first);
        return same != entries.end() && same->second.stamp == entry.second.stamp;
    };
    for (const auto& entry : entries_) {
        if (entry.second.package && !isIn(found, entry))
            notifications_.add({false, *entry.second.package});
    }
    for (const auto& entry : found) {
        if (entry.second.package && !isIn(entries_, entry))
            notifications_.add({true, *entry.second.package});
    }
}

void PackageManager::deliver()
{
    notifications_.deliver([this](const Change& change) {
        packageManagerLog.info("deliver", describe(change.package) +
                                              (change.installed ? " is installed" : " is removed"));
        if (change.installed)
            installed_(change.package);
        else
            removed_(change.package);
    });
}

}  // namespace KR

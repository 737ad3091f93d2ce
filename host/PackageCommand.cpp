#include "host/PackageCommand.h"

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/Output.h"
#include "host/PackageDescription.h"
#include "host/SignalWatch.h"
#include "host/StopRequest.h"
#include "host/Table.h"
#include "platform/packages/PackageManifest.h"
#include "platform/packages/PackageNames.h"

namespace KR {

namespace {

namespace fs = std::filesystem;

using Json = nlohmann::ordered_json;

struct PackageOptions {
    std::string packages;               ///< the packages folder
    std::vector<std::string> subjects;  ///< sources or uuids
    std::string subject;                ///< a source or uuid
    bool upgrade = false;
    bool json = false;
};

/// A signal came.
class Interrupted : public std::runtime_error {
public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// A store whose operations a signal ends, with everything as it was.
PackageStore interruptible(const std::string& folder, const StopRequest& stop,
                           PackageStore::Options options = {})
{
    options.beforeStep = [&stop](const std::string&) {
        if (stop.isRequested())
            throw Interrupted();
    };
    return {folder, options};
}

/// A folder for what is not to stay, gone with its scope.
class ScratchFolder {
public:
    ScratchFolder() : path_((fs::temp_directory_path() / "nimbra-XXXXXX").string())
    {
        if (!::mkdtemp(path_.data()))
            failWithErrno(path_);
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

/// What is installed first makes the folder, but not those that it lies in, and says so: its name
/// may have been misspelt.
void makeFolder(const std::string& folder)
{
    std::error_code error;
    if (fs::create_directory(folder, error))
        printOutput("Made the packages folder " + folder + "\n");
    std::error_code unseen;
    if (!fs::is_directory(folder, unseen))
        throw std::runtime_error(inQuotes(folder) + " is no folder" +
                                 (error ? ": " + error.message() : ""));
}

/// Does one thing after another, whether or not it fails, until a signal comes.
int forEach(const std::vector<std::string>& subjects, const char* verb, const StopRequest& stop,
            const std::function<std::string(const std::string&)>& change)
{
    int exitCode = 0;
    for (const std::string& subject : subjects) {
        std::string done;
        try {
            done = change(subject) + "\n";
        } catch (const std::exception& e) {
            printError(std::string("cannot ") + verb + " " + inQuotes(subject) + ": " + e.what());
            exitCode = 1;
        }
        printOutput(done);
        if (stop.isRequested())
            return 128 + stop.signal();
    }
    return exitCode;
}

/// Tells what is installed and will not work as somebody may expect. `source` is where it came
/// from.
void warnOf(const vo::PackageInfo& package, const std::string& source)
{
    for (const BehaviorDescription& behavior : describeBehaviors(package)) {
        if (!behavior.programProblem.empty())
            printError("warning: " + behavior.key +
                       " cannot be started: " + behavior.programProblem);
        for (const std::string& problem : behavior.problems)
            printError("warning: " + (fs::path(source) / problem).string());
    }
}

int installPackages(const PackageOptions& options)
{
    StopRequest stop;
    const SignalWatch signals(stop);
    makeFolder(options.packages);
    const PackageStore store = interruptible(options.packages, stop);
    store.clearLeftovers();
    const auto ifInstalled =
        options.upgrade ? PackageStore::IfInstalled::replace : PackageStore::IfInstalled::refuse;
    return forEach(options.subjects, "install", stop, [&](const std::string& source) {
        const std::string uuid = store.install(source, ifInstalled);
        warnOf(store.package(uuid), source);
        return "Installed " + uuid;
    });
}

int removePackages(const PackageOptions& options)
{
    StopRequest stop;
    const SignalWatch signals(stop);
    const PackageStore store = interruptible(options.packages, stop);
    return forEach(options.subjects, "remove", stop, [&](const std::string& uuid) {
        store.remove(uuid);
        return "Removed " + uuid;
    });
}

int listPackages(const PackageOptions& options)
{
    const PackageFolder found = readPackageFolder(options.packages);
    std::vector<TableRow> rows{{"package", "version", "languages", "behaviours"}};
    std::string lines;
    for (const vo::PackageInfo& package : found.packages) {
        std::vector<std::string> paths;
        for (const vo::BehaviorInfo& behavior : package.behaviors())
            paths.push_back(behavior.path());
        rows.push_back({printable(package.uuid()), printable(package.version()),
                        listText(package.supportedLanguages(), "all"), listText(paths)});
        const Json json{{"uuid", package.uuid()},
                        {"version", package.version()},
                        {"languages", package.supportedLanguages()},
                        {"behaviors", paths}};
        lines += json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    }
    printOutput(options.json ? lines : tableText(rows));
    for (const std::string& problem : found.problems)
        printError(problem);
    return found.problems.empty() ? 0 : 1;
}

/// An archive is looked at where nobody uses it, with everything that an install would refuse.
std::string describeArchive(const std::string& source, const StopRequest& stop,
                            std::string (*render)(const vo::PackageInfo&, const std::string&))
{
    const ScratchFolder scratch;
    PackageStore::Options options;
    options.lasts = false;
    const PackageStore store = interruptible(scratch.path(), stop, options);
    return render(store.package(store.install(source, PackageStore::IfInstalled::refuse)), source);
}

int showPackage(const PackageOptions& options)
{
    const std::string& subject = options.subject;
    const auto render = options.json ? packageJson : packageText;
    StopRequest stop;
    const SignalWatch signals(stop);
    const PackageStore store(options.packages);
    const bool isInstalled = !options.packages.empty() && uuidProblem(subject).empty() &&
                             fs::exists(fs::symlink_status(store.path(subject)));
    try {
        if (isInstalled)
            printOutput(render(store.package(subject), store.path(subject)));
        else if (fs::is_directory(subject))
            printOutput(render(readPackageManifest(subject), subject));
        else if (fs::exists(subject))
            printOutput(describeArchive(subject, stop, render));
        else
            throw std::runtime_error("it is neither an installed package nor a file or folder");
    } catch (const Interrupted&) {
        return 128 + stop.signal();
    } catch (const std::exception& e) {
        printError("cannot read " + inQuotes(subject) + ": " + e.what());
        return 1;
    }
    return 0;
}

Option addFolder(const Command& command, PackageOptions& options)
{
    return command.text("--packages", options.packages, "DIR", "Folder of the installed packages");
}

}  // namespace

void addPackageCommand(const Command& program)
{
    const Command package = program.add("package", "Install, remove and look at packages");
    const auto options = std::make_shared<PackageOptions>();
    const auto add = [&](const char* name, const char* description,
                         int (*perform)(const PackageOptions&)) {
        const Command command = package.add(name, description);
        command.perform([perform, options] { return perform(*options); });
        return command;
    };
    const auto addJson = [&](const Command& command) {
        command.flag("--json", options->json, "Print one JSON object a line");
    };

    const Command install = add("install", "Install packages", installPackages);
    install.texts("SOURCE", options->subjects, "", "Folders or archives (tar or zip)").required();
    install.flag("--upgrade", options->upgrade,
                 "Replace packages of the same uuid, which are refused otherwise");
    addFolder(install, *options).required();

    const Command remove = add("remove", "Remove packages", removePackages);
    remove.texts("UUID", options->subjects, "", "Installed packages").required();
    addFolder(remove, *options).required();

    const Command list = add("list", "List the installed packages", listPackages);
    addFolder(list, *options).required();
    addJson(list);

    const Command info =
        add("info", "Tell what becomes of the behaviours of a package", showPackage);
    info.text("UUID|SOURCE", options->subject, "", "An installed package, or a folder or archive")
        .required();
    addFolder(info, *options);
    addJson(info);
}

PackageFolder readPackageFolder(const std::string& folder)
{
    std::error_code error;
    if (!fs::is_directory(folder, error))
        throw std::runtime_error("there is no packages folder " + inQuotes(folder) +
                                 (error ? ": " + error.message() : ""));
    const PackageStore store(folder);
    PackageFolder found;
    for (const std::string& name : store.folders()) {
        try {
            found.packages.push_back(store.package(name));
        } catch (const std::exception& e) {
            found.problems.push_back(inQuotes(store.path(name)) +
                                     " is no usable package: " + e.what());
        }
    }
    return found;
}

}  // namespace KR

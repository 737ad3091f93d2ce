#include "platform/vo/Path.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace vo::path {

namespace {

namespace fs = std::filesystem;

/// The variable as an absolute path; empty when it is unset, empty or relative.
fs::path absoluteFromEnvironment(const char* variable)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody writes it while threads run
    const char* const text = std::getenv(variable);
    const fs::path path(text ? text : "");
    return path.is_absolute() ? path : fs::path();
}

fs::path userFolder()
{
    fs::path configured = absoluteFromEnvironment("XDG_CONFIG_HOME");
    if (!configured.empty())
        return configured;
    const fs::path home = absoluteFromEnvironment("HOME");
    return home.empty() ? fs::path() : home / ".config";
}

std::vector<fs::path> systemFolders()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
    const char* const configured = std::getenv("XDG_CONFIG_DIRS");
    std::istringstream entries(configured && *configured ? configured : "/etc/xdg");
    std::vector<fs::path> folders;
    for (std::string entry; std::getline(entries, entry, ':');) {
        if (fs::path(entry).is_absolute())
            folders.emplace_back(entry);
    }
    return folders;
}

bool holdsLibraries(const fs::path& folder)
{
    const fs::path name = folder.filename();
    return name == "lib" || name == "lib64" || name == "bin";
}

/// The folder above the lib folder from which this code was loaded (bin, in a program that it is
/// linked into); lib may have a folder of the machine's kind below it. Empty when it lies
/// elsewhere, as in a build folder.
fs::path prefixOfLibrary()
{
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&prefixOfLibrary), &library) == 0 ||
        !library.dli_fname)
        return {};
    std::error_code error;
    const fs::path file = fs::canonical(library.dli_fname, error);
    if (error)
        return {};
    const fs::path folder = file.parent_path();
    if (holdsLibraries(folder))
        return folder.parent_path();
    if (holdsLibraries(folder.parent_path()))
        return folder.parent_path().parent_path();
    return {};
}

fs::path installPrefix()
{
    fs::path configured = absoluteFromEnvironment("NIMBRA_PREFIX");
    return configured.empty() ? prefixOfLibrary() : configured;
}

/// A relative path that stays below the folder it starts from.
void checkInside(const char* what, const std::string& text)
{
    const fs::path normal = fs::path(text).lexically_normal();
    if (normal.empty() || normal.is_absolute() || *normal.begin() == ".." || normal == ".")
        throw std::invalid_argument(std::string(what) + " '" + text + "' leaves the folder");
}

}  // namespace

std::vector<std::string> confFolders(const std::string& application, bool excludeUserWritable)
{
    checkInside("application", application);
    std::vector<fs::path> bases = systemFolders();
    if (const fs::path user = userFolder(); !excludeUserWritable && !user.empty())
        bases.insert(bases.begin(), user);
    if (const fs::path prefix = installPrefix(); !prefix.empty())
        bases.push_back(prefix / "share");

    std::vector<std::string> folders;
    folders.reserve(bases.size());
    for (const fs::path& base : bases)
        folders.push_back((base / application).string());
    return folders;
}

std::string findConf(const std::string& application, const std::string& filename,
                     bool excludeUserWritable)
{
    checkInside("file", filename);
    for (const std::string& folder : confFolders(application, excludeUserWritable)) {
        const fs::path file = fs::path(folder) / filename;
        std::error_code ignored;
        if (fs::is_regular_file(file, ignored))
            return file.string();
    }
    return {};
}

}  // namespace vo::path

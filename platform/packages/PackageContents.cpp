#include "platform/packages/PackageContents.h"

#include <stdexcept>

#include "platform/packages/PackageNames.h"

namespace KR {

void PackageContents::check(const std::string& path) const
{
    const std::string problem = packagePathProblem(path);
    if (!problem.empty())
        throw std::runtime_error("the path " + inQuotes(path) + " " + problem);
    if (files_.count(path))
        throw std::runtime_error("the path " + inQuotes(path) + " is there twice");
}

std::vector<std::string> PackageContents::addFolder(const std::string& path)
{
    check(path);
    return newFoldersTo(path + "/", 0);
}

std::vector<std::string> PackageContents::addFile(const std::string& path)
{
    check(path);
    if (folders_.count(path))
        throw std::runtime_error("the path " + inQuotes(path) + " is both a file and a folder");
    auto added = newFoldersTo(path, 1);
    files_.insert(path);
    return added;
}

/// Adds the folders that a path names before its last slash, if there is room for `more` entries
/// besides.
std::vector<std::string> PackageContents::newFoldersTo(const std::string& path, std::size_t more)
{
    std::vector<std::string> added;
    for (auto end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
        std::string folder = path.substr(0, end);
        if (files_.count(folder))
            throw std::runtime_error("the path " + inQuotes(folder) +
                                     " is both a file and a folder");
        if (!folders_.count(folder))
            added.push_back(std::move(folder));
    }
    if (files_.size() + folders_.size() + added.size() + more > limits_.entries)
        throw std::runtime_error("it has more than " + std::to_string(limits_.entries) +
                                 " files and folders");
    folders_.insert(added.begin(), added.end());
    return added;
}

void PackageContents::addBytes(std::uintmax_t more)
{
    if (more > limits_.bytes - bytes_)
        throw std::runtime_error("its files have more than " + std::to_string(limits_.bytes) +
                                 " bytes, which is " + limits_.bytesAre);
    bytes_ += more;
}

std::string PackageContents::outerFolder() const
{
    if (folders_.empty())
        return {};
    const std::string outer = folders_.begin()->substr(0, folders_.begin()->find('/'));
    const std::string begin = outer + "/";
    for (const auto* paths : {&folders_, &files_}) {
        for (const std::string& path : *paths) {
            if (path != outer && path.compare(0, begin.size(), begin) != 0)
                return {};
        }
    }
    return outer;
}

}  // namespace KR

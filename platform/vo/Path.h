#pragma once

#include <string>
#include <vector>

namespace vo::path {

/// The folders in which configuration of `application` is looked for, best first. Each is named
/// after the application and lies in the user's folder ($XDG_CONFIG_HOME or ~/.config), in the
/// system's ($XDG_CONFIG_DIRS or /etc/xdg), and in the install prefix's share folder (that of the
/// installed library, or $NIMBRA_PREFIX where it is set). As the XDG base directories of version
/// 0.8 have it, relative entries of the variables are ignored. With `excludeUserWritable` the
/// user's own folder is passed over. A name that is empty or leaves these folders raises
/// std::invalid_argument.
std::vector<std::string> confFolders(const std::string& application, bool excludeUserWritable);

/// The first existing file `filename` in those folders, or an empty text when there is none. It may
/// hold slashes but not leave the folder (std::invalid_argument).
std::string findConf(const std::string& application, const std::string& filename,
                     bool excludeUserWritable = false);

}  // namespace vo::path

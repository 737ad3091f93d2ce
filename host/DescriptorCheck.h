#pragma once

#include <string>
#include <vector>

namespace KR {

/// What is wrong with the plugin descriptor in a file, in the order of the file, each as
/// "<name>:<line>:<column>: <text>": what keeps it from being read, and what is read without a word
/// and has no effect, as elements, groups and purposes that nobody knows. `name` is the file's for
/// who reads that.
std::vector<std::string> checkDescriptor(const std::string& file, const std::string& name);

}  // namespace KR

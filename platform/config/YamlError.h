#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace YAML {
class Node;
struct Mark;
}  // namespace YAML

namespace KR {

/// A place in a YAML file.
struct YamlPlace {
    std::size_t line = 0;    ///< from 1; 0 when there is none
    std::size_t column = 0;  ///< from 1
};

YamlPlace yamlPlace(const YAML::Mark& mark);
/// No place for a node that is not there or came from no file.
YamlPlace yamlPlace(const YAML::Node& node);

/// The one form in which problems of files are told: "path:line:column: problem", or without a
/// place "path: problem".
std::string textInFile(const std::string& path, const YamlPlace& place, const std::string& problem);

/// Something that is wrong in a YAML document. what() is the problem alone: the document does not
/// know its file.
class YamlError : public std::runtime_error {
public:
    YamlError(const YAML::Node& node, const std::string& problem)
        : std::runtime_error(problem), place_(yamlPlace(node))
    {
    }

    const YamlPlace& place() const { return place_; }

private:
    YamlPlace place_;
};

/// An error of the YAML library, `Base`, which knows its file: what() is what textInFile() makes of
/// path, mark and msg.
template <class Base>
class YamlFileError : public Base {
public:
    YamlFileError(const std::string& path, const Base& error)
        : Base(error), text_(textInFile(path, yamlPlace(error.mark), error.msg))
    {
    }

    const char* what() const noexcept override { return text_.what(); }

private:
    std::runtime_error text_;  ///< a text that can be copied without failing
};

}  // namespace KR

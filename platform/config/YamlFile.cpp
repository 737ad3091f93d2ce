#include "platform/config/YamlFile.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>
#include <vector>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace KR {
namespace {

/// Follows what a document is made of and throws when it exceeds its bounds.
class Bounds : public YAML::EventHandler {
public:
    explicit Bounds(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    void OnDocumentStart(const YAML::Mark&) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override
    {
        add(mark, anchor, {1, 0});
    }
    void OnScalar(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                  const std::string& value) override
    {
        add(mark, anchor, {1, value.size()});
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override
    {
        const auto target = anchors_.find(anchor);
        if (target == anchors_.end())
            throw YAML::ParserException(mark, "the alias refers to a node that it is inside of");
        add(mark, YAML::NullAnchor, target->second);
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value) override
    {
        open(mark, anchor);
    }
    void OnSequenceEnd() override { close(); }
    void OnMapStart(const YAML::Mark& mark, const std::string&, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value) override
    {
        open(mark, anchor);
    }
    void OnMapEnd() override { close(); }

private:
    /// What a node amounts to with its aliases written out.
    struct Size {
        std::size_t nodes;
        std::size_t bytes;
    };
    struct Collection {
        YAML::Mark mark;
        YAML::anchor_t anchor;
        Size size;
    };

    void open(const YAML::Mark& mark, YAML::anchor_t anchor)
    {
        if (open_.size() == kMaxYamlFileDepth)
            throw YAML::ParserException(mark,
                                        "nested deeper than " + std::to_string(kMaxYamlFileDepth));
        open_.push_back({mark, anchor, {1, 0}});
    }

    void close()
    {
        const Collection closed = open_.back();
        open_.pop_back();
        add(closed.mark, closed.anchor, closed.size);
    }

    void add(const YAML::Mark& mark, YAML::anchor_t anchor, const Size& size)
    {
        if (anchor != YAML::NullAnchor)
            anchors_[anchor] = size;
        if (open_.empty())
            return;
        Size& sum = open_.back().size;
        sum.nodes += size.nodes;
        sum.bytes += size.bytes;
        if (sum.nodes > kMaxYamlFileNodes)
            throw YAML::ParserException(mark, "more than " + std::to_string(kMaxYamlFileNodes) +
                                                  " nodes, aliases written out");
        if (sum.bytes > maxBytes_)
            throw YAML::ParserException(
                mark, "more than " + std::to_string(maxBytes_) + " bytes, aliases written out");
    }

    const std::size_t maxBytes_;
    std::vector<Collection> open_;            ///< those that we are inside of, outermost first
    std::map<YAML::anchor_t, Size> anchors_;  ///< of the nodes that have ended
};

[[noreturn]] void failToRead(const std::string& path, const std::string& reason)
{
    throw YAML::BadFile(path + ": " + reason);
}

std::string readFile(const std::string& path, std::size_t maxBytes)
{
    // Asked before opening: opening a pipe would wait for its writer.
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error)
        failToRead(path, error.message());
    if (!std::filesystem::is_regular_file(status))
        failToRead(path, "not a regular file");

    std::ifstream in(path, std::ios::binary);
    if (!in)
        failToRead(path, std::generic_category().message(errno));
    std::string text;
    std::array<char, 65536> block;
    do {
        in.read(block.data(), block.size());
        text.append(block.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > maxBytes)
            failToRead(path, "larger than " + std::to_string(maxBytes) + " bytes");
    } while (in);
    if (in.bad())
        failToRead(path, "reading failed");
    return text;
}

}  // namespace

YAML::Node loadYamlFile(const std::string& path, std::size_t maxBytes)
{
    const std::string text = readFile(path, maxBytes);
    try {
        std::istringstream in(text);
        Bounds bounds(maxBytes);
        YAML::Parser(in).HandleNextDocument(bounds);
        return YAML::Load(text);
    } catch (const YAML::Exception& e) {
        throw YAML::ParserException(e.mark, path + ": " + e.msg);
    }
}

}  // namespace KR

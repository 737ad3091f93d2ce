#include "platform/config/YamlFile.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace KR {
namespace {

/// The text of a file, as the parser takes it. Throws when the parser takes too much of it without
/// getting anywhere: it is gathering tokens then.
class MeteredText : public std::stringbuf {
public:
    explicit MeteredText(const std::string& text) : std::stringbuf(text, std::ios::in) {}

    /// The parser has come to this place.
    void advance(const YAML::Mark& mark)
    {
        mark_ = mark;
        taken_ = 0;
    }

protected:
    std::streamsize xsgetn(char* to, std::streamsize count) override
    {
        const std::streamsize got = std::stringbuf::xsgetn(to, count);
        taken_ += static_cast<std::size_t>(got);
        if (taken_ > kMaxYamlPieceBytes)
            throw YAML::ParserException(mark_, "after this, more than " +
                                                   std::to_string(kMaxYamlPieceBytes) +
                                                   " bytes of one collection in brackets, text or "
                                                   "comment");
        return got;
    }

private:
    YAML::Mark mark_;
    std::size_t taken_ = 0;
};

/// Follows what a document is made of and throws when it exceeds its bounds.
class Bounds : public YAML::EventHandler {
public:
    Bounds(MeteredText& text, std::size_t maxBytes) : text_(text), maxBytes_(maxBytes) {}

    void OnDocumentStart(const YAML::Mark& mark) override
    {
        if (std::exchange(begun_, true))
            throw YAML::ParserException(mark, "a second document");
    }
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
        text_.advance(mark);
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
        text_.advance(mark);
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

    MeteredText& text_;
    const std::size_t maxBytes_;
    bool begun_ = false;
    std::vector<Collection> open_;            ///< those that we are inside of, outermost first
    std::map<YAML::anchor_t, Size> anchors_;  ///< of the nodes that have ended
};

[[noreturn]] void failToRead(const std::string& path, const std::string& reason)
{
    YAML::BadFile error(reason);
    error.msg = reason;
    throw YamlFileError<YAML::BadFile>(path, error);
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
        MeteredText metered(text);
        std::istream in(&metered);
        Bounds bounds(metered, maxBytes);
        YAML::Parser(in).HandleNextDocument(bounds);
        return YAML::Load(text);
    } catch (const YAML::Exception& e) {
        throw YamlFileError<YAML::ParserException>(path, YAML::ParserException(e.mark, e.msg));
    }
}

YamlPlace endOfYamlDocument(const std::string& path, std::size_t maxBytes)
{
    MeteredText metered(readFile(path, maxBytes));
    std::istream in(&metered);
    Bounds bounds(metered, maxBytes);
    YAML::Parser parser(in);
    parser.HandleNextDocument(bounds);
    try {
        parser.HandleNextDocument(bounds);
        return {};
    } catch (const YAML::Exception& e) {
        return yamlPlace(e.mark);
    }
}

}  // namespace KR

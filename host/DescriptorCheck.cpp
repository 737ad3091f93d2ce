#include "host/DescriptorCheck.h"

#include <QStringList>
#include <QXmlStreamReader>
#include <algorithm>
#include <fstream>
#include <iterator>

#include "host/Nearest.h"
#include "platform/conditions/ConditionParser.h"
#include "plugins/PluginDescriptor.h"

namespace KR {

namespace {

constexpr const char* kRoot = "nimbraLaunchpadPlugin";
const std::vector<std::string> kLifeStates = {"disabled", "safeguard", "solitary", "interactive"};
const std::vector<std::string> kPurposes = {"launchTrigger", "terminationTrigger"};

bool isOneOf(const std::string& text, const std::vector<std::string>& known)
{
    return std::find(known.begin(), known.end(), text) != known.end();
}

/// Walks a descriptor that can be read.
class DescriptorCheck {
public:
    DescriptorCheck(const QByteArray& bytes, const std::string& name)
        : name_(name), lines_(QString::fromUtf8(bytes).split('\n')), reader_(bytes)
    {
        reader_.setNamespaceProcessing(false);
        reader_.setEntityExpansionLimit(PluginDescriptor::kMaxEntityCharacters);
    }

    std::vector<std::string> run()
    {
        while (!reader_.atEnd()) {
            const Place begin = placeOfTag();
            switch (reader_.readNext()) {
                case QXmlStreamReader::StartElement:
                    open(begin);
                    break;
                case QXmlStreamReader::Characters:
                    text_ += reader_.text().toString().toStdString();
                    break;
                case QXmlStreamReader::EndElement:
                    close();
                    break;
                default:
                    break;
            }
        }
        return std::move(problems_);
    }

private:
    struct Place {
        qint64 line;
        qint64 column;
    };

    /// A tag begins where what is before it has ended, which the reader may have passed by a few
    /// characters.
    Place placeOfTag() const
    {
        const QString line = lines_.value(static_cast<int>(reader_.lineNumber()) - 1);
        const auto begin = line.lastIndexOf('<', static_cast<int>(reader_.columnNumber()));
        return {reader_.lineNumber(), (begin < 0 ? reader_.columnNumber() : begin) + 1};
    }

    void note(const Place& place, const std::string& text)
    {
        problems_.push_back(name_ + ":" + std::to_string(place.line) + ":" +
                            std::to_string(place.column) + ": " + text);
    }

    void open(const Place& place)
    {
        const std::string element = reader_.qualifiedName().toString().toStdString();
        const std::vector<std::string> known = knownElements();
        elements_.push_back(element);
        if (elements_.size() == 3) {
            place_ = place;
            text_.clear();
            purpose_ = reader_.attributes().value("purpose").toString().toStdString();
        }
        // What another tool keeps in the file has a prefix of its own.
        const bool isForeign = element.find(':') != std::string::npos;
        if (known.empty() || isOneOf(element, known) || (isForeign && elements_.size() > 1))
            return;
        note(place, elements_.size() == 1
                        ? "the root element is '" + element +
                              "', so nothing is read; it has to be '" + kRoot + "'"
                        : "the element '" + element + "' is skipped" + didYouMean(element, known));
    }

    /// Those that are read at this place; none when nothing is.
    std::vector<std::string> knownElements() const
    {
        if (elements_.empty())
            return {kRoot};
        if (elements_.front() != kRoot)
            return {};
        if (elements_.size() == 1)
            return {"groups", "conditions"};
        if (elements_.size() > 2)
            return {};
        if (elements_.back() == "groups")
            return {"group"};
        if (elements_.back() == "conditions")
            return {"condition"};
        return {};
    }

    void close()
    {
        const bool isRead = elements_.size() == 3 && elements_.front() == kRoot;
        if (isRead && elements_[1] == "groups" && elements_[2] == "group")
            checkGroup();
        if (isRead && elements_[1] == "conditions" && elements_[2] == "condition")
            checkCondition();
        elements_.pop_back();
    }

    void checkGroup()
    {
        if (!isOneOf(text_, kLifeStates))
            note(place_, "the group '" + text_ +
                             "' is never enabled, as no life state is called so" +
                             didYouMean(text_, kLifeStates));
    }

    void checkCondition()
    {
        if (purpose_.empty())
            note(place_, "the condition has no purpose");
        else if (!isOneOf(purpose_, kPurposes))
            note(place_, "nothing asks for conditions of the purpose '" + purpose_ + "'" +
                             didYouMean(purpose_, kPurposes));
        try {
            parseCondition(text_);
        } catch (const ConditionSyntaxError& e) {
            note(place_, "the condition " + purpose_ + " does not parse: at its " + e.what());
        }
    }

    const std::string name_;
    const QStringList lines_;
    QXmlStreamReader reader_;
    std::vector<std::string> problems_;
    std::vector<std::string> elements_;  ///< that are open, from the outside in
    Place place_ = {0, 0};               ///< of the present group or condition
    std::string purpose_;
    std::string text_;
};

}  // namespace

std::vector<std::string> checkDescriptor(const std::string& file, const std::string& name)
{
    try {
        readPluginDescriptor(file);
    } catch (const PluginDescriptorError& e) {
        const std::string place =
            e.line() == 0 ? "" : ":" + std::to_string(e.line()) + ":" + std::to_string(e.column());
        return {name + place + ": the plugin descriptor cannot be read: " + e.what()};
    }
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    return DescriptorCheck(QByteArray::fromStdString(bytes), name).run();
}

}  // namespace KR

#include "host/KeyCheck.h"

#include <algorithm>
#include <limits>
#include <set>

#include "host/Nearest.h"
#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

using Kind = Expression::Kind;

/// What somebody publishes.
std::vector<std::string> publishedKeys(const KeyCatalogue& keys)
{
    std::vector<std::string> published;
    for (const KeyCatalogue::Entry& entry : keys.entries()) {
        if (!entry.publishers.empty())
            published.push_back(entry.description.key);
    }
    return published;
}

bool isNumeric(const KRValue& value)
{
    return value.isNumber() || value.isBool();
}

/// The least and the greatest number that a key can hold.
std::pair<double, double> boundsOf(const KeyDescription& key)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    std::pair<double, double> bounds{key.min.value_or(-kInfinity), key.max.value_or(kInfinity)};
    if (key.type == KeyDescription::Type::boolean)
        bounds = {0, 1};
    if (key.empty && isNumeric(*key.empty)) {
        const double empty =
            key.empty->isBool() ? double(key.empty->toBool()) : key.empty->toFloat();
        bounds = {std::min(bounds.first, empty), std::max(bounds.second, empty)};
    }
    return bounds;
}

/// Whether `key <kind> literal` can ever be other than it is for an unknown key.
bool canMatter(const KeyDescription& key, Kind kind, const KRValue& literal)
{
    using Type = KeyDescription::Type;
    if (kind == Kind::equal || kind == Kind::notEqual)
        return key.canHold(literal);
    if (key.type == Type::any || key.type == Type::list)
        return true;
    if (key.type == Type::text || !isNumeric(literal))
        return (key.type == Type::text) == literal.isString();
    const auto [least, most] = boundsOf(key);
    const double number = literal.isBool() ? double(literal.toBool()) : literal.toFloat();
    switch (kind) {
        case Kind::less:
            return least < number;
        case Kind::lessEqual:
            return least <= number;
        case Kind::greater:
            return most > number;
        default:
            return most >= number;
    }
}

class KeyDoubts {
public:
    explicit KeyDoubts(const KeyCatalogue& keys) : keys_(keys) {}

    void inspect(const Expression& expression)
    {
        if (expression.kind == Kind::key || expression.kind == Kind::age)
            inspectKey(expression.key);
        if (expression.kind >= Kind::equal) {
            const auto& [left, right] = std::tie(expression.operands[0], expression.operands[1]);
            if (left.kind == Kind::key && right.kind == Kind::literal)
                inspectComparison(left.key, expression.kind, right.value);
            else if (left.kind == Kind::literal && right.kind == Kind::key)
                inspectComparison(right.key, mirrored(expression.kind), left.value);
        }
        for (const Expression& operand : expression.operands)
            inspect(operand);
    }

    std::vector<KeyDoubt> take() { return std::move(doubts_); }

private:
    void inspectKey(const std::string& key)
    {
        const auto entry = keys_.find(key);
        if (entry && !entry->publishers.empty())
            return;
        add(key, "nobody publishes '" + key + "'" + didYouMean(key, publishedKeys(keys_)));
    }

    void inspectComparison(const std::string& key, Kind kind, const KRValue& literal)
    {
        const auto entry = keys_.find(key);
        if (!entry || entry->publishers.empty() || canMatter(entry->description, kind, literal))
            return;
        add(key, "'" + key + "' is never " + phrase(kind) + literal.toDisplayString() + ": it is " +
                     entry->description.describeValues());
    }

    static std::string phrase(Kind kind)
    {
        switch (kind) {
            case Kind::less:
                return "less than ";
            case Kind::lessEqual:
                return "as little as ";
            case Kind::greater:
                return "more than ";
            case Kind::greaterEqual:
                return "as much as ";
            default:
                return "";
        }
    }

    void add(const std::string& key, const std::string& text)
    {
        if (texts_.insert(text).second)
            doubts_.push_back({key, text});
    }

    const KeyCatalogue& keys_;
    std::set<std::string> texts_;
    std::vector<KeyDoubt> doubts_;
};

}  // namespace

std::vector<KeyDoubt> keyDoubts(const Expression& condition, const KeyCatalogue& keys)
{
    KeyDoubts doubts(keys);
    doubts.inspect(condition);
    return doubts.take();
}

}  // namespace KR

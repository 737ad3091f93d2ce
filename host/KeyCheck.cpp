#include "host/KeyCheck.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <set>

namespace KR {

namespace {

using Kind = Expression::Kind;

/// Insertions, deletions and replacements of bytes that turn one text into the other
/// (Levenshtein's distance, row by row).
std::size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({replaced, row[j] + 1, row[j - 1] + 1}));
        }
    }
    return row.back();
}

/// The published key that somebody may have meant; "" when none is near.
std::string nearestKey(const std::string& key, const KeyCatalogue& keys)
{
    std::string nearest;
    std::size_t least = std::max<std::size_t>(2, key.size() / 5) + 1;
    for (const KeyCatalogue::Entry& entry : keys.entries()) {
        if (entry.publishers.empty())
            continue;
        const std::size_t distance = editDistance(key, entry.description.key);
        if (distance < least) {
            least = distance;
            nearest = entry.description.key;
        }
    }
    return nearest;
}

Kind mirrored(Kind kind)
{
    switch (kind) {
        case Kind::less:
            return Kind::greater;
        case Kind::lessEqual:
            return Kind::greaterEqual;
        case Kind::greater:
            return Kind::less;
        case Kind::greaterEqual:
            return Kind::lessEqual;
        default:
            return kind;
    }
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

class Doubts {
public:
    explicit Doubts(const KeyCatalogue& keys) : keys_(keys) {}

    void inspect(const Expression& expression)
    {
        if (expression.kind == Kind::key)
            inspectKey(expression.key);
        if (expression.operands.size() == 2) {
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
        const std::string meant = nearestKey(key, keys_);
        add(key, "nobody publishes '" + key + "'" +
                     (meant.empty() ? "" : "; did you mean '" + meant + "'?"));
    }

    void inspectComparison(const std::string& key, Kind kind, const KRValue& literal)
    {
        if (kind == Kind::conjunction || kind == Kind::disjunction)
            return;
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
    Doubts doubts(keys);
    doubts.inspect(condition);
    return doubts.take();
}

}  // namespace KR

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionParser.h"

namespace KR {

namespace {

using Kind = Expression::Kind;

std::string quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        if (c == '\n')
            quoted += "\\n";
        else if (c == '\t')
            quoted += "\\t";
        else
            quoted += c;
    }
    return quoted + '"';
}

/// In whole numbers of the largest unit that allows it.
std::string textOf(vo::Duration duration)
{
    constexpr std::pair<const char*, vo::Duration> kUnits[] = {
        {" h", std::chrono::hours(1)},
        {" min", std::chrono::minutes(1)},
        {" s", std::chrono::seconds(1)},
        {" ms", std::chrono::milliseconds(1)}};
    for (const auto& [name, unit] : kUnits) {
        if (duration.count() % unit.count() == 0)
            return std::to_string(duration / unit) + name;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld.%03lld ms",
                  static_cast<long long>(duration.count() / 1000),
                  static_cast<long long>(duration.count() % 1000));
    return text.data();
}

const char* operatorOf(Kind kind)
{
    switch (kind) {
        case Kind::conjunction:
            return " && ";
        case Kind::disjunction:
            return " || ";
        case Kind::equal:
            return " == ";
        case Kind::notEqual:
            return " != ";
        case Kind::less:
            return " < ";
        case Kind::lessEqual:
            return " <= ";
        case Kind::greater:
            return " > ";
        default:
            return " >= ";
    }
}

bool isComparison(Kind kind)
{
    return kind >= Kind::equal;
}

class Writer {
public:
    explicit Writer(bool isCanonical) : isCanonical_(isCanonical) {}

    std::string write(const Expression& expression) const
    {
        const std::vector<Expression>& operands = expression.operands;
        switch (expression.kind) {
            case Kind::literal:
                return expression.value.isString() ? quoted(expression.value.toString())
                                                   : expression.value.toDisplayString();
            case Kind::key:
                return "'" + expression.key + "'";
            case Kind::duration:
                return textOf(expression.duration);
            case Kind::age:
                return "age('" + expression.key + "')";
            case Kind::count:
                return "count(" + write(operands[0]) + ", " + textOf(expression.duration) + ")";
            case Kind::negation:
                return "!" + write(operands[0]);
            case Kind::hold:
                return "(" + write(operands[0]) + " for " + textOf(expression.duration) + ")";
            default:
                return several(expression);
        }
    }

private:
    std::string several(const Expression& expression) const
    {
        Kind kind = expression.kind;
        std::vector<std::string> texts;
        for (const Expression& operand : expression.operands)
            texts.push_back(write(operand));
        // A measure stands left.
        if (isCanonical_ && !expression.operands[0].isMeasure()) {
            if (isComparison(kind) && texts[1] < texts[0])
                kind = mirrored(kind);
            std::sort(texts.begin(), texts.end());
        }
        const std::string between = kind == Kind::within
                                        ? " within " + textOf(expression.duration) + " of "
                                        : operatorOf(kind);
        std::string text = "(" + texts[0];
        for (std::size_t i = 1; i < texts.size(); ++i)
            text += between + texts[i];
        return text + ")";
    }

    const bool isCanonical_;
};

}  // namespace

std::string textOf(const Expression& expression)
{
    return Writer(false).write(expression);
}

std::string canonicalTextOf(const Expression& expression)
{
    return Writer(true).write(expression);
}

bool isTimed(const Expression& expression)
{
    switch (expression.kind) {
        case Kind::age:
        case Kind::count:
        case Kind::hold:
        case Kind::within:
            return true;
        default:
            return std::any_of(expression.operands.begin(), expression.operands.end(), isTimed);
    }
}

}  // namespace KR

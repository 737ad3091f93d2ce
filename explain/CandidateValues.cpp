#include "explain/CandidateValues.h"

#include <algorithm>
#include <cmath>

#include "explain/ConditionRehearsal.h"
#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

using Kind = Expression::Kind;

/// Next to a number as people write it: 1 beside a whole one, 0.1 beside 1.2.
double stepBeside(double value)
{
    double step = 1;
    for (int digits = 0; digits < 6 && std::abs(value / step - std::round(value / step)) > 1e-6;
         ++digits)
        step /= 10;
    return step;
}

}  // namespace

CandidateValues::CandidateValues(const Expression& expression, const ConditionPart& condition,
                                 const KeyCatalogue* catalogue)
{
    // What is written anew is young, though it is the same.
    for (const auto& [key, part] : keysIn(condition)) {
        if (part->kind == ConditionPart::Kind::key && part->value.isValid())
            add(key, part->value);
    }
    collect(expression, condition);
    for (auto& [key, literals] : literals_)
        addNeighbours(key);
    // As often as a chain of keys is long; those of three are rare.
    for (int i = 0; i < 2; ++i) {
        for (const auto& [key, others] : compared_) {
            for (const std::string& other : others) {
                for (const KRValue& value : std::vector<KRValue>(values_[other]))
                    add(key, value);
            }
        }
    }
    for (const auto& [key, part] : keysIn(condition))
        addDescribed(key, part->kind == ConditionPart::Kind::key ? part->value : KRValue(),
                     catalogue);
}

void CandidateValues::collect(const Expression& expression, const ConditionPart& part)
{
    const std::vector<Expression>& operands = expression.operands;
    if (expression.kind >= Kind::equal && !operands.front().isMeasure()) {
        for (const int i : {0, 1}) {
            const Expression& other = operands[1 - i];
            if (operands[i].kind != Kind::key)
                continue;
            const std::string& key = operands[i].key;
            if (other.kind == Kind::literal) {
                addCompared(key, other.value);
            } else if (other.kind == Kind::key) {
                compared_[key].push_back(other.key);
                if (part.parts[1 - i].value.isValid())
                    addCompared(key, part.parts[1 - i].value);
            } else {
                addCompared(key, true);
                addCompared(key, false);
            }
        }
    }
    for (std::size_t i = 0; i < operands.size(); ++i)
        collect(operands[i], part.parts[i]);
}

void CandidateValues::addCompared(const std::string& key, const KRValue& literal)
{
    add(key, literal);
    literals_[key].push_back(literal);
}

/// Beside each number, between two of them, and around a text. Below 1 there is 0, which is false,
/// and so one more.
void CandidateValues::addNeighbours(const std::string& key)
{
    constexpr std::int64_t kFar = std::int64_t{1} << 62;
    std::vector<double> numbers;
    for (const KRValue& literal : literals_[key]) {
        if (literal.isString()) {
            addAround(key, literal.toString());
        } else if (literal.isInt() && std::abs(literal.toInt()) >= kFar) {
            continue;
        } else if (literal.isInt() || literal.isBool()) {
            for (const int step : {1, -1, -2})
                add(key, literal.toInt() + step);
        } else if (literal.isFloat() && std::isfinite(literal.toFloat())) {
            const double value = literal.toFloat();
            numbers.push_back(value);
            add(key, value + stepBeside(value));
            add(key, value - stepBeside(value));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    for (std::size_t i = 1; i < numbers.size(); ++i)
        add(key, (numbers[i] + numbers[i - 1]) / 2);
}

void CandidateValues::addAround(const std::string& key, std::string text)
{
    add(key, text + "+");
    add(key, "");
    if (text.empty() || text.back() <= '!' || text.back() > '~')
        return;
    --text.back();
    add(key, text);
}

void CandidateValues::addDescribed(const std::string& key, const KRValue& now,
                                   const KeyCatalogue* catalogue)
{
    std::vector<KRValue>& values = values_[key];
    const auto entry = catalogue ? catalogue->find(key) : std::nullopt;
    const bool isDescribed = entry && !entry->publishers.empty();
    if (isDescribed) {
        const KeyDescription& description = entry->description;
        for (const KRValue& value : description.values)
            add(key, value);
        for (const auto& bound : {description.min, description.max}) {
            if (bound && description.type == KeyDescription::Type::integer)
                add(key, static_cast<std::int64_t>(*bound));
            else if (bound)
                add(key, *bound);
        }
        if (description.empty && description.empty->isValid())
            add(key, *description.empty);
    }
    // A truth, in the manner of what it holds.
    const bool isInt =
        now.isNumber() || (isDescribed && entry->description.type == KeyDescription::Type::integer);
    for (const int truth : {1, 0})
        add(key, isInt ? KRValue(truth) : KRValue(truth == 1));
    if (isDescribed) {
        const auto cannot = [&](const KRValue& value) {
            return !entry->description.canHold(value) && entry->description.empty != value;
        };
        values.erase(std::remove_if(values.begin(), values.end(), cannot), values.end());
    }
    if (values.size() > kMost)
        values.resize(kMost);
}

/// 1, 1.0 and true are the same to a condition.
void CandidateValues::add(const std::string& key, const KRValue& value)
{
    std::vector<KRValue>& values = values_[key];
    const auto isSame = [&](const KRValue& known) { return holds(Kind::equal, known, value); };
    if (std::none_of(values.begin(), values.end(), isSame))
        values.push_back(value);
}

}  // namespace KR

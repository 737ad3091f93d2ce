#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// A condition text that does not parse. what() is "LINE:COLUMN: expected X, found Y"; lines and
/// columns start at 1, columns count bytes.
class ConditionSyntaxError : public std::runtime_error {
public:
    ConditionSyntaxError(std::size_t line, std::size_t column, const std::string& problem);
    std::size_t line() const { return line_; }
    std::size_t column() const { return column_; }
    /// what() without the place.
    const std::string& problem() const { return problem_; }

private:
    std::size_t line_;
    std::size_t column_;
    std::string problem_;
};

/// Longest condition text that is parsed. The longest that people and generators write are a few
/// hundred bytes; beyond this a text is a mistake, refused before any work is done on it.
constexpr std::size_t kMaxConditionBytes = std::size_t{64} * 1024;
/// Deepest nesting of parentheses and negations, and again of comparisons whose left side is a
/// comparison; far beyond what a person can read. It bounds the stack that parsing and evaluating
/// use.
constexpr std::size_t kMaxConditionDepth = 200;

/// Longest duration that a condition can name, some eleven years.
constexpr vo::Duration kMaxConditionDuration = std::chrono::hours(100'000);
/// Most instants that one count has to remember.
constexpr unsigned kMaxConditionCount = 1000;

/// A parsed condition. Of a comparison with `age` or `count` that stands left, and what it is
/// compared with, a duration or a whole number, stands right.
struct Expression {
    enum class Kind : std::uint8_t {
        literal,
        key,
        duration,
        age,          // of a key
        count,        // one operand, within a duration
        negation,     // one operand
        hold,         // one operand, for a duration
        within,       // two operands, a duration apart
        conjunction,  // two or more
        disjunction,  // two or more
        equal,        // the rest: two operands
        notEqual,
        less,
        lessEqual,
        greater,
        greaterEqual
    };

    Kind kind;
    KRValue value;    ///< of a literal
    std::string key;  ///< of a key, and of an age
    std::vector<Expression> operands;
    vo::Duration duration{};  ///< of what has one

    /// Whether it is a number of its own kind, which is compared with literals only.
    bool isMeasure() const { return kind == Kind::age || kind == Kind::count; }
};

/// Parses a condition; ConditionSyntaxError when it does not parse.
Expression parseCondition(const std::string& text);

/// The keys that a condition reads, each once, in order of first appearance.
std::vector<std::string> keysOf(const Expression& expression);

/// Whether it speaks of time.
bool isTimed(const Expression& expression);

/// A condition that says the same, in one way of writing: equal expressions have equal texts.
std::string textOf(const Expression& expression);
/// The same with the operands of what is symmetric in one order, too.
std::string canonicalTextOf(const Expression& expression);

}  // namespace KR

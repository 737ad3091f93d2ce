#include "platform/conditions/ConditionParser.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionLexer.h"

namespace KR {

ConditionSyntaxError::ConditionSyntaxError(std::size_t line, std::size_t column,
                                           const std::string& problem)
    : std::runtime_error(std::to_string(line) + ":" + std::to_string(column) + ": " + problem),
      line_(line),
      column_(column),
      problem_(problem)
{
}

namespace {

using Kind = Expression::Kind;

constexpr const char* kOperand = "a key, a literal, '!' or '('";

bool isNumber(const Token& token)
{
    return token.kind == TokenKind::literal && token.value.isNumber();
}

/// Nothing for what is no unit of time.
std::optional<vo::Duration> unitOf(const Token& token)
{
    constexpr std::pair<const char*, vo::Duration> kUnits[] = {{"ms", std::chrono::milliseconds(1)},
                                                               {"s", std::chrono::seconds(1)},
                                                               {"min", std::chrono::minutes(1)},
                                                               {"h", std::chrono::hours(1)}};
    for (const auto& [name, unit] : kUnits) {
        if (token.kind == TokenKind::word && token.text == name)
            return unit;
    }
    return std::nullopt;
}

/// Neither a measure nor a duration, which say nothing before they are compared.
bool hasTruth(const Expression& expression)
{
    return !expression.isMeasure() && expression.kind != Kind::duration;
}

/// Recursive descent, one function a level of precedence; chains of one operator are loops.
class Parser {
public:
    explicit Parser(const std::string& text) : lexer_(text), token_(lexer_.next()) {}

    Expression parse();

private:
    using Level = Expression (Parser::*)();

    Expression disjunction();
    Expression conjunction();
    Expression timed();
    Expression equality();
    Expression relation();
    Expression operand();
    Expression literal();
    Expression age();
    Expression count();
    vo::Duration duration();
    vo::Duration duration(const Token& number);
    void compareMeasure(Expression& comparison, const Token& left, const Token& right) const;
    bool isWord(const char* word) const
    {
        return token_.kind == TokenKind::word && token_.text == word;
    }
    void expect(TokenKind kind, const char* expected);
    Expression flat(Level level, TokenKind separator, Expression::Kind kind);
    Expression leftToRight(Level level, TokenKind first, TokenKind last);
    Expression nested(Level level);
    void advance() { token_ = lexer_.next(); }

    ConditionLexer lexer_;
    Token token_;
    std::size_t depth_ = 0;    ///< of parentheses and negations that are open
    std::size_t chained_ = 0;  ///< in the expression that was read last, in one another
};

Expression Parser::parse()
{
    Expression whole = disjunction();
    if (token_.kind != TokenKind::end)
        lexer_.fail(token_.begin, "an operator or the end", lexer_.describe(token_));
    return whole;
}

Expression Parser::disjunction()
{
    return flat(&Parser::conjunction, TokenKind::disjunction, Kind::disjunction);
}

Expression Parser::conjunction()
{
    return flat(&Parser::timed, TokenKind::conjunction, Kind::conjunction);
}

Expression Parser::timed()
{
    Expression left = equality();
    std::size_t chained = chained_;
    while (isWord("for") || isWord("within")) {
        if (++chained > kMaxConditionDepth)
            lexer_.fail(token_.begin,
                        "at most " + std::to_string(kMaxConditionDepth) +
                            " 'for' and 'within' chained in one another",
                        "more");
        Expression whole{isWord("for") ? Kind::hold : Kind::within, {}, {}, {}};
        advance();
        whole.duration = duration();
        whole.operands.push_back(std::move(left));
        if (whole.kind == Kind::within) {
            if (!isWord("of"))
                lexer_.fail(token_.begin, "'of'", lexer_.describe(token_));
            advance();
            whole.operands.push_back(equality());
            chained = std::max(chained, chained_);
        }
        left = std::move(whole);
    }
    chained_ = chained;
    return left;
}

Expression Parser::equality()
{
    Expression whole = leftToRight(&Parser::relation, TokenKind::equal, TokenKind::notEqual);
    if (!hasTruth(whole))
        lexer_.fail(token_.begin, "a comparison", lexer_.describe(token_));
    return whole;
}

Expression Parser::relation()
{
    return leftToRight(&Parser::operand, TokenKind::less, TokenKind::greaterEqual);
}

Expression Parser::flat(Level level, TokenKind separator, Expression::Kind kind)
{
    Expression first = (this->*level)();
    if (token_.kind != separator)
        return first;
    Expression whole{kind, {}, {}, {}};
    whole.operands.push_back(std::move(first));
    std::size_t chained = chained_;
    while (token_.kind == separator) {
        advance();
        whole.operands.push_back((this->*level)());
        chained = std::max(chained, chained_);
    }
    chained_ = chained;
    return whole;
}

Expression Parser::leftToRight(Level level, TokenKind first, TokenKind last)
{
    const Token leftToken = token_;
    Expression left = (this->*level)();
    std::size_t chained = chained_;
    for (bool chain = false; token_.kind >= first && token_.kind <= last; chain = true) {
        // Each further comparison puts what is there one level deeper.
        if (chain && ++chained > kMaxConditionDepth)
            lexer_.fail(token_.begin,
                        "at most " + std::to_string(kMaxConditionDepth) +
                            " comparisons chained in one another",
                        "more");
        const int offset = static_cast<int>(token_.kind) - static_cast<int>(TokenKind::equal);
        const int kind = static_cast<int>(Kind::equal) + offset;
        Expression whole{static_cast<Expression::Kind>(kind), {}, {}, {}};
        whole.operands.reserve(2);
        whole.operands.push_back(std::move(left));
        advance();
        const Token rightToken = token_;
        whole.operands.push_back((this->*level)());
        compareMeasure(whole, leftToken, rightToken);
        chained = std::max(chained, chained_);
        left = std::move(whole);
    }
    chained_ = chained;
    return left;
}

/// Puts a measure that is compared to the left, and refuses what it cannot be compared with.
void Parser::compareMeasure(Expression& comparison, const Token& left, const Token& right) const
{
    std::vector<Expression>& operands = comparison.operands;
    const Token* literal = &right;
    const bool isMirrored = operands[1].isMeasure() && (operands[0].kind == Kind::literal ||
                                                        operands[0].kind == Kind::duration);
    if (isMirrored) {
        std::swap(operands[0], operands[1]);
        comparison.kind = mirrored(comparison.kind);
        literal = &left;
    }
    const auto fail = [this](const Token& place, const std::string& expected) {
        lexer_.fail(place.begin, expected, lexer_.describe(place));
    };
    if (operands[0].kind == Kind::age) {
        if (operands[1].kind != Kind::duration)
            fail(*literal, "a duration such as 2 s");
    } else if (operands[0].kind == Kind::count) {
        const bool isOfNext =
            comparison.kind != Kind::less && comparison.kind != Kind::greaterEqual;
        const auto most = static_cast<std::int64_t>(kMaxConditionCount) - (isOfNext ? 1 : 0);
        const KRValue& number = operands[1].value;
        if (operands[1].kind != Kind::literal || !number.isInt() || number.toInt() < 0 ||
            number.toInt() > most)
            fail(*literal, "a whole number from 0 to " + std::to_string(most));
    } else if (operands[0].kind == Kind::duration) {
        fail(left, "a value: only an age is compared with a duration");
    } else if (operands[1].kind == Kind::duration) {
        fail(right, "a value: only an age is compared with a duration");
    } else if (operands[1].isMeasure()) {
        fail(right, kOperand);
    }
}

Expression Parser::operand()
{
    switch (token_.kind) {
        case TokenKind::literal:
            return literal();
        case TokenKind::key: {
            chained_ = 0;
            Expression key{Kind::key, {}, std::move(token_.text), {}};
            advance();
            return key;
        }
        case TokenKind::word:
            if (isWord("age"))
                return age();
            if (isWord("count"))
                return count();
            lexer_.fail(token_.begin, kOperand, lexer_.describe(token_));
        case TokenKind::negation: {
            const std::size_t place = token_.begin;
            Expression negation{Kind::negation, {}, {}, {}};
            negation.operands.push_back(nested(&Parser::operand));
            if (!hasTruth(negation.operands.front()))
                lexer_.fail(place, "parentheses around the comparison that is negated", "'!'");
            return negation;
        }
        case TokenKind::open: {
            Expression inner = nested(&Parser::disjunction);
            if (token_.kind != TokenKind::close)
                lexer_.fail(token_.begin, "an operator or ')'", lexer_.describe(token_));
            advance();
            return inner;
        }
        default:
            lexer_.fail(token_.begin, kOperand, lexer_.describe(token_));
    }
}

Expression Parser::literal()
{
    chained_ = 0;
    Token token = std::move(token_);
    advance();
    if (isNumber(token) && unitOf(token_)) {
        Expression duration{Kind::duration, {}, {}, {}};
        duration.duration = this->duration(token);
        return duration;
    }
    return {Kind::literal, std::move(token.value), {}, {}};
}

/// age('Key')
Expression Parser::age()
{
    chained_ = 0;
    advance();
    expect(TokenKind::open, "'('");
    if (token_.kind != TokenKind::key)
        lexer_.fail(token_.begin, "a key", lexer_.describe(token_));
    Expression age{Kind::age, {}, std::move(token_.text), {}};
    advance();
    expect(TokenKind::close, "')'");
    return age;
}

/// count(condition, 60 s)
Expression Parser::count()
{
    advance();
    if (token_.kind != TokenKind::open)
        lexer_.fail(token_.begin, "'('", lexer_.describe(token_));
    Expression count{Kind::count, {}, {}, {}};
    count.operands.push_back(nested(&Parser::disjunction));
    expect(TokenKind::comma, "an operator or ','");
    count.duration = duration();
    expect(TokenKind::close, "')'");
    return count;
}

vo::Duration Parser::duration()
{
    const Token number = token_;
    if (!isNumber(number))
        lexer_.fail(number.begin, "a duration such as 10 s", lexer_.describe(number));
    advance();
    return duration(number);
}

/// Of this number and the unit that follows.
vo::Duration Parser::duration(const Token& number)
{
    const auto unit = unitOf(token_);
    if (!unit)
        lexer_.fail(token_.begin, "a unit: ms, s, min or h", lexer_.describe(token_));
    const long double count = number.value.isInt()
                                  ? static_cast<long double>(number.value.toInt())
                                  : static_cast<long double>(number.value.toFloat());
    const long double length = std::round(count * static_cast<long double>(unit->count()));
    if (length < 1)
        lexer_.fail(number.begin, "a duration of 0.001 ms or more", lexer_.describe(number));
    if (length > static_cast<long double>(kMaxConditionDuration.count()))
        lexer_.fail(number.begin, "a duration of at most 100000 h", lexer_.describe(number));
    advance();
    return vo::Duration(static_cast<vo::Duration::rep>(length));
}

void Parser::expect(TokenKind kind, const char* expected)
{
    if (token_.kind != kind)
        lexer_.fail(token_.begin, expected, lexer_.describe(token_));
    advance();
}

Expression Parser::nested(Level level)
{
    if (++depth_ > kMaxConditionDepth)
        lexer_.fail(
            token_.begin,
            "at most " + std::to_string(kMaxConditionDepth) + " nested parentheses and negations",
            "more");
    advance();
    Expression inner = (this->*level)();
    --depth_;
    return inner;
}

void collectKeys(const Expression& expression, std::unordered_set<std::string>& seen,
                 std::vector<std::string>& keys)
{
    const bool reads = expression.kind == Kind::key || expression.kind == Kind::age;
    if (reads && seen.insert(expression.key).second)
        keys.push_back(expression.key);
    for (const Expression& operand : expression.operands)
        collectKeys(operand, seen, keys);
}

}  // namespace

Expression parseCondition(const std::string& text)
{
    return Parser(text).parse();
}

std::vector<std::string> keysOf(const Expression& expression)
{
    std::unordered_set<std::string> seen;
    std::vector<std::string> keys;
    collectKeys(expression, seen, keys);
    return keys;
}

}  // namespace KR

#include "platform/conditions/ConditionParser.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

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

/// Recursive descent, one function a level of precedence; chains of one operator are loops.
class Parser {
public:
    explicit Parser(const std::string& text) : lexer_(text), token_(lexer_.next()) {}

    Expression parse();

private:
    using Level = Expression (Parser::*)();

    Expression disjunction();
    Expression conjunction();
    Expression equality();
    Expression relation();
    Expression operand();
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
    return flat(&Parser::conjunction, TokenKind::disjunction, Expression::Kind::disjunction);
}

Expression Parser::conjunction()
{
    return flat(&Parser::equality, TokenKind::conjunction, Expression::Kind::conjunction);
}

Expression Parser::equality()
{
    return leftToRight(&Parser::relation, TokenKind::equal, TokenKind::notEqual);
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
        const int kind = static_cast<int>(Expression::Kind::equal) + offset;
        Expression whole{static_cast<Expression::Kind>(kind), {}, {}, {}};
        whole.operands.reserve(2);
        whole.operands.push_back(std::move(left));
        advance();
        whole.operands.push_back((this->*level)());
        chained = std::max(chained, chained_);
        left = std::move(whole);
    }
    chained_ = chained;
    return left;
}

Expression Parser::operand()
{
    switch (token_.kind) {
        case TokenKind::literal: {
            chained_ = 0;
            Expression literal{Expression::Kind::literal, std::move(token_.value), {}, {}};
            advance();
            return literal;
        }
        case TokenKind::key: {
            chained_ = 0;
            Expression key{Expression::Kind::key, {}, std::move(token_.key), {}};
            advance();
            return key;
        }
        case TokenKind::negation: {
            Expression negation{Expression::Kind::negation, {}, {}, {}};
            negation.operands.push_back(nested(&Parser::operand));
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
            lexer_.fail(token_.begin, "a key, a literal, '!' or '('", lexer_.describe(token_));
    }
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
    if (expression.kind == Expression::Kind::key && seen.insert(expression.key).second)
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

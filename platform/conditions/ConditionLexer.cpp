#include "platform/conditions/ConditionLexer.h"

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/conditions/ConditionParser.h"

namespace KR {

namespace {

/// Longest piece of the text that an error message repeats.
constexpr std::size_t kMaxQuotedBytes = 40;

std::string byteName(char c)
{
    char name[] = "byte 0x00";
    std::snprintf(name, sizeof name, "byte 0x%02X", static_cast<unsigned char>(c));
    return name;
}

bool isControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isWord(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_';
}

using Utf8 = boost::locale::utf::utf_traits<char>;

}  // namespace

ConditionLexer::ConditionLexer(const std::string& text) : text_(text)
{
    if (text_.size() > kMaxConditionBytes)
        fail(0, "at most " + std::to_string(kMaxConditionBytes) + " bytes",
             std::to_string(text_.size()));
    checkUtf8();
}

void ConditionLexer::checkUtf8() const
{
    for (auto at = text_.begin(); at != text_.end();) {
        const auto begin = at;
        if (!boost::locale::utf::is_valid_codepoint(Utf8::decode(at, text_.end())))
            fail(static_cast<std::size_t>(begin - text_.begin()), "a character in UTF-8",
                 byteName(*begin));
    }
}

std::size_t ConditionLexer::endOfCharacter(std::size_t place) const
{
    auto at = text_.begin() + static_cast<std::ptrdiff_t>(place);
    Utf8::decode(at, text_.end());
    return static_cast<std::size_t>(at - text_.begin());
}

std::string ConditionLexer::characterAt(std::size_t place) const
{
    if (place == text_.size())
        return "the end";
    if (isControl(text_[place]))
        return byteName(text_[place]);
    return "'" + text_.substr(place, endOfCharacter(place) - place) + "'";
}

std::string ConditionLexer::describe(const Token& token) const
{
    if (token.kind == TokenKind::key)
        return "a key";
    if (token.value.isString())
        return "a text";
    const std::size_t length = token.end - token.begin;
    if (length <= 1 || token.kind == TokenKind::end)
        return characterAt(token.begin);
    return length > kMaxQuotedBytes ? "a long word" : "'" + text_.substr(token.begin, length) + "'";
}

void ConditionLexer::fail(std::size_t place, const std::string& expected,
                          const std::string& found) const
{
    std::size_t line = 1;
    std::size_t lineBegin = 0;
    for (std::size_t i = 0; i < place; ++i) {
        if (text_[i] == '\n') {
            ++line;
            lineBegin = i + 1;
        }
    }
    throw ConditionSyntaxError(line, place - lineBegin + 1,
                               "expected " + expected + ", found " + found);
}

Token ConditionLexer::next()
{
    while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')
        ++at_;
    Token token;
    token.begin = at_;
    if (atEnd()) {
        token.kind = TokenKind::end;
    } else if (const auto kind = symbol()) {
        token.kind = *kind;
    } else if (peek() == '\'') {
        readKey(token);
    } else if (peek() == '"') {
        readText(token);
    } else if (isDigit(peek()) || peek() == '-') {
        readNumber(token);
    } else {
        readWord(token);
    }
    token.end = at_;
    return token;
}

std::optional<TokenKind> ConditionLexer::symbol()
{
    struct Symbol {
        std::string_view text;
        TokenKind kind;
    };
    // The longer of two that begin alike stands first.
    static constexpr Symbol kSymbols[] = {
        {"&&", TokenKind::conjunction}, {"||", TokenKind::disjunction},
        {"==", TokenKind::equal},       {"!=", TokenKind::notEqual},
        {"<=", TokenKind::lessEqual},   {">=", TokenKind::greaterEqual},
        {"<", TokenKind::less},         {">", TokenKind::greater},
        {"!", TokenKind::negation},     {"(", TokenKind::open},
        {")", TokenKind::close},        {",", TokenKind::comma}};
    for (const Symbol& symbol : kSymbols) {
        if (text_.compare(at_, symbol.text.size(), symbol.text) == 0) {
            at_ += symbol.text.size();
            return symbol.kind;
        }
    }
    for (const char half : {'&', '|', '='}) {
        if (peek() == half)
            fail(at_, "'" + std::string(2, half) + "'", "'" + std::string(1, half) + "'");
    }
    return std::nullopt;
}

bool ConditionLexer::skipDigits()
{
    const std::size_t begin = at_;
    while (isDigit(peek()))
        ++at_;
    return at_ > begin;
}

template <class Number>
KRValue ConditionLexer::convert(const Token& token, const char* expected) const
{
    Number number{};
    const auto result = std::from_chars(text_.data() + token.begin, text_.data() + at_, number);
    if (result.ec != std::errc())
        fail(token.begin, expected,
             text_.substr(token.begin, std::min(at_ - token.begin, kMaxQuotedBytes)));
    return number;
}

void ConditionLexer::readNumber(Token& token)
{
    bool whole = true;
    if (peek() == '-')
        ++at_;
    if (!skipDigits())
        fail(at_, "a digit after '-'", characterAt(at_));
    if (peek() == '.') {
        whole = false;
        ++at_;
        if (!skipDigits())
            fail(at_, "a digit after '.'", characterAt(at_));
    }
    if (peek() == 'e' || peek() == 'E') {
        whole = false;
        at_ += peek(1) == '-' || peek(1) == '+' ? 2 : 1;
        if (!skipDigits())
            fail(at_, "the digits of an exponent", characterAt(at_));
    }
    token.kind = TokenKind::literal;
    token.value = whole ? convert<std::int64_t>(token, "an integer of 64 bits")
                        : convert<double>(token, "a number in the range of a float");
}

void ConditionLexer::readWord(Token& token)
{
    while (isWord(peek()))
        ++at_;
    token.text = text_.substr(token.begin, at_ - token.begin);
    token.kind = TokenKind::word;
    if (token.text.empty()) {
        token.kind = TokenKind::unknown;
        at_ = endOfCharacter(at_);
    } else if (token.text == "true" || token.text == "false") {
        token.kind = TokenKind::literal;
        token.value = token.text == "true";
    }
}

void ConditionLexer::readKey(Token& token)
{
    for (++at_; !atEnd() && peek() != '\''; ++at_) {
        if (isControl(peek()))
            fail(at_, "a key without control characters", byteName(peek()));
    }
    if (atEnd())
        fail(token.begin, "a ' that closes this key", "the end");
    token.kind = TokenKind::key;
    token.text = text_.substr(token.begin + 1, at_ - token.begin - 1);
    ++at_;
    if (token.text.empty())
        fail(token.begin, "a key", "an empty one");
}

void ConditionLexer::readText(Token& token)
{
    std::string content;
    for (++at_; !atEnd() && peek() != '"'; ++at_)
        content += peek() == '\\' ? readEscape() : peek();
    if (atEnd())
        fail(token.begin, "a \" that closes this text", "the end");
    ++at_;
    token.kind = TokenKind::literal;
    token.value = std::move(content);
}

char ConditionLexer::readEscape()
{
    ++at_;
    switch (peek()) {
        case '"':
        case '\\':
            return peek();
        case 'n':
            return '\n';
        case 't':
            return '\t';
        default:
            fail(at_, "\", \\, n or t after a \\", characterAt(at_));
    }
}

}  // namespace KR

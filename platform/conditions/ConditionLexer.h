#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "platform/kr/KRValue.h"

namespace KR {

/// What a piece of a condition text is. The comparisons stand in the order of Expression::Kind.
enum class TokenKind {
    end,
    open,
    close,
    comma,
    negation,
    conjunction,
    disjunction,
    equal,
    notEqual,
    less,
    lessEqual,
    greater,
    greaterEqual,
    literal,
    key,
    word,    ///< what it means depends on where it stands
    unknown  ///< a character that means nothing
};

/// Begin and end are offsets in the text.
struct Token {
    TokenKind kind = TokenKind::end;
    std::size_t begin = 0;
    std::size_t end = 0;
    KRValue value;     ///< of a literal
    std::string text;  ///< of a key, or the word
};

/// Cuts a condition text into tokens. A text that is too long or not in UTF-8, and a token that is
/// broken in itself, are ConditionSyntaxError. Keeps a reference to the text.
class ConditionLexer {
public:
    explicit ConditionLexer(const std::string& text);

    Token next();

    /// What a token is, for the "found" of an error.
    std::string describe(const Token& token) const;
    /// Raises ConditionSyntaxError for the place with this offset.
    [[noreturn]] void fail(std::size_t place, const std::string& expected,
                           const std::string& found) const;

private:
    char peek(std::size_t ahead = 0) const
    {
        return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
    }
    bool atEnd() const { return at_ == text_.size(); }
    void checkUtf8() const;
    std::string characterAt(std::size_t place) const;
    std::size_t endOfCharacter(std::size_t place) const;
    bool skipDigits();
    std::optional<TokenKind> symbol();
    void readNumber(Token& token);
    void readWord(Token& token);
    void readKey(Token& token);
    void readText(Token& token);
    char readEscape();
    template <class Number>
    KRValue convert(const Token& token, const char* expected) const;

    const std::string& text_;
    std::size_t at_ = 0;
};

}  // namespace KR

#include "explain/TruthTree.h"

#include <tuple>
#include <utility>

#include "platform/conditions/ConditionLexer.h"
#include "platform/conditions/ConditionParser.h"

namespace KR {

namespace {

using Kind = Expression::Kind;

/// Finds the parts of a condition in its text. The parser has read it before, so what a part begins
/// and ends with comes in the order of the parts.
class PartPlaces {
public:
    struct Place {
        std::size_t first = 0;  ///< token
        std::size_t last = 0;
    };

    explicit PartPlaces(const std::string& text)
    {
        ConditionLexer lexer(text);
        for (Token token = lexer.next(); token.kind != TokenKind::end; token = lexer.next())
            tokens_.push_back(std::move(token));
    }

    /// The next token of that kind, from which on the search goes on.
    std::size_t next(TokenKind kind, const char* word = nullptr)
    {
        while (at_ + 1 < tokens_.size() &&
               (tokens_[at_].kind != kind || (word && tokens_[at_].text != word)))
            ++at_;
        return at_++;
    }
    bool isNextLiteral() const
    {
        std::size_t i = at_;
        while (i < tokens_.size() && tokens_[i].kind != TokenKind::literal &&
               tokens_[i].kind != TokenKind::word)
            ++i;
        return i < tokens_.size() && tokens_[i].kind == TokenKind::literal;
    }

    /// With as many parentheses closed as opened.
    std::pair<std::size_t, std::size_t> rangeOf(Place place) const
    {
        int open = 0;
        for (std::size_t i = place.first; i <= place.last; ++i) {
            open += tokens_[i].kind == TokenKind::open ? 1 : 0;
            open -= tokens_[i].kind == TokenKind::close ? 1 : 0;
            for (; open < 0 && place.first > 0; --place.first)
                open += tokens_[place.first - 1].kind == TokenKind::open ? 1 : 0;
        }
        for (; open > 0 && place.last + 1 < tokens_.size(); ++place.last)
            open -= tokens_[place.last + 1].kind == TokenKind::close ? 1 : 0;
        return {tokens_[place.first].begin, tokens_[place.last].end};
    }

private:
    std::vector<Token> tokens_;
    std::size_t at_ = 0;
};

const char* nameOf(ConditionPart::Kind kind)
{
    static constexpr const char* kNames[] = {"literal", "key", "duration",  "age",
                                             "count",   "not", "for",       "within",
                                             "all",     "any", "comparison"};
    return kNames[static_cast<std::size_t>(kind)];
}

class TreeMaker {
public:
    TreeMaker(const std::string& condition, const TreeFacts& facts)
        : condition_(condition), facts_(facts), places_(condition)
    {
    }

    TruthNode make(const Expression& expression, const ConditionPart& part)
    {
        TruthNode node;
        fill(node, expression, part);
        return node;
    }

private:
    PartPlaces::Place locate(const Expression& expression, const ConditionPart& part,
                             TruthNode& node)
    {
        const auto single = [](std::size_t token) { return PartPlaces::Place{token, token}; };
        switch (expression.kind) {
            case Kind::literal:
                return single(places_.next(TokenKind::literal));
            case Kind::key:
                return single(places_.next(TokenKind::key));
            case Kind::duration:
                return {places_.next(TokenKind::literal), places_.next(TokenKind::word)};
            case Kind::age: {
                const std::size_t first = places_.next(TokenKind::word, "age");
                return {first, places_.next(TokenKind::key)};
            }
            case Kind::count: {
                const std::size_t first = places_.next(TokenKind::word, "count");
                addChild(expression, part, 0, node);
                places_.next(TokenKind::literal);
                return {first, places_.next(TokenKind::word)};
            }
            case Kind::negation: {
                const std::size_t first = places_.next(TokenKind::negation);
                return {first, addChild(expression, part, 0, node).last};
            }
            case Kind::hold: {
                const std::size_t first = addChild(expression, part, 0, node).first;
                places_.next(TokenKind::word, "for");
                places_.next(TokenKind::literal);
                return {first, places_.next(TokenKind::word)};
            }
            default:
                return locateSeveral(expression, part, node);
        }
    }

    PartPlaces::Place locateSeveral(const Expression& expression, const ConditionPart& part,
                                    TruthNode& node)
    {
        // A measure stands left in the expression, wherever it is written.
        const bool isMirrored = expression.operands.front().isMeasure() && places_.isNextLiteral();
        if (isMirrored) {
            const PartPlaces::Place first = addChild(expression, part, 1, node);
            return {first.first, addChild(expression, part, 0, node).last};
        }
        PartPlaces::Place place = addChild(expression, part, 0, node);
        for (std::size_t i = 1; i < expression.operands.size(); ++i) {
            if (expression.kind == Kind::within)
                places_.next(TokenKind::word, "of");
            place.last = addChild(expression, part, i, node).last;
        }
        return place;
    }

    /// Literals and durations have a place, but are no children.
    PartPlaces::Place addChild(const Expression& expression, const ConditionPart& part,
                               std::size_t index, TruthNode& node)
    {
        const Expression& operand = expression.operands[index];
        if (operand.kind == Kind::literal || operand.kind == Kind::duration) {
            TruthNode none;
            return locate(operand, part.parts[index], none);
        }
        TruthNode child;
        const PartPlaces::Place place = fill(child, operand, part.parts[index]);
        node.children.push_back(std::move(child));
        return place;
    }

    PartPlaces::Place fill(TruthNode& node, const Expression& expression, const ConditionPart& part)
    {
        using PartKind = ConditionPart::Kind;
        node.kind = nameOf(part.kind);
        node.truth = part.isTrue();
        node.due = part.due;
        node.instants = part.instants;
        const PartPlaces::Place place = locate(expression, part, node);
        std::tie(node.from, node.to) = places_.rangeOf(place);
        node.text = condition_.substr(node.from, node.to - node.from);
        if (part.kind == PartKind::key || part.kind == PartKind::age)
            describeKey(part, node);
        else if (part.kind != PartKind::count)
            node.since = facts_.since(textOf(expression));
        return place;
    }

    void describeKey(const ConditionPart& part, TruthNode& node) const
    {
        node.key = part.key;
        node.value = part.value;
        node.isKnown = part.value.isValid();
        node.written = part.written;
        const KeyFacts facts = facts_.key(part.key, node.isKnown);
        if (part.kind == ConditionPart::Kind::key)
            node.since = facts.since;
        node.writer = facts.writer;
        node.why = facts.why;
    }

    const std::string& condition_;
    const TreeFacts& facts_;
    PartPlaces places_;
};

}  // namespace

TruthNode makeTruthTree(const std::string& condition, const ConditionPart& part,
                        const TreeFacts& facts)
{
    return TreeMaker(condition, facts).make(parseCondition(condition), part);
}

}  // namespace KR


#include "platform/conditions/ConditionParser.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

std::string repeated(const std::string& piece, std::size_t times)
{
    std::string text;
    for (std::size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

/// The structure of an expression, every operation in brackets: "[op operand operand]".
std::string structureOf(const Expression& e)
{
    static constexpr const char* kNames[] = {
        "",   "",   "",   "age", "count", "!",  "for", "within",
        "&&", "||", "==", "!=",  "<",     "<=", ">",   ">="};
    if (e.kind == Expression::Kind::literal)
        return e.value.toDisplayString();
    if (e.kind == Expression::Kind::key)
        return e.key;
    if (e.kind == Expression::Kind::duration)
        return std::to_string(e.duration.count());
    std::string text = std::string("[") + kNames[static_cast<int>(e.kind)];
    if (e.kind == Expression::Kind::age)
        text += " " + e.key;
    if (e.duration != vo::Duration::zero())
        text += " " + std::to_string(e.duration.count());
    for (const Expression& operand : e.operands)
        text += " " + structureOf(operand);
    return text + "]";
}

std::string problemOf(const std::string& text)
{
    return errorOf<ConditionSyntaxError>([&] { parseCondition(text); });
}

TEST(ConditionParser, BindsLikeC)
{
    const std::pair<const char*, const char*> rows[] = {
        {"'A' || 'B' && 'C'", "[|| A [&& B C]]"},
        {"('A' || 'B') && 'C'", "[&& [|| A B] C]"},
        {"'A' && 'B' && 'C' || 'D' || 'E'", "[|| [&& A B C] D E]"},
        {"!'A' == true", "[== [! A] true]"},
        {"\t'A'\r\n<='B'>2 ", "[> [<= A B] 2]"},
        {"'A'&&!'B'||'C'!=\"x\"", "[|| [&& A [! B]] [!= C \"x\"]]"},
        // What speaks of time lies between equality and conjunction.
        {"'A' == 1 for 10 s && 'B'", "[&& [for 10000000 [== A 1]] B]"},
        {"!'A' for 1.5min for 2ms", "[for 2000 [for 90000000 [! A]]]"},
        {"'A' within 1 h of 'B' == 1 within 0.001 ms of 'C'",
         "[within 1 [within 3600000000 A [== B 1]] C]"},
        {"age('A') < 2 s == true", "[== [< [age A] 2000000] true]"},
        {"2.5 ms >= age( 'A' )", "[<= [age A] 2500]"},
        {"count('A' || 'B', 60 s) >= 3 && 1000 > count('A', 1 s)",
         "[&& [>= [count 60000000 [|| A B]] 3] [< [count 1000000 A] 1000]]"},
    };
    for (const auto& [text, structure] : rows)
        EXPECT_EQ(structureOf(parseCondition(text)), structure) << text;
}

TEST(ConditionParser, ReadsLiteralsAndKeysExactly)
{
    const std::pair<const char*, KRValue> rows[] = {
        {"9223372036854775807", std::int64_t{9223372036854775807}},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"-2.5e-3", -0.0025},
        {R"("a\"b\\c\nd\te")", "a\"b\\c\nd\te"},
        {"\"it's\nü\"", "it's\nü"},
    };
    for (const auto& [text, value] : rows)
        EXPECT_EQ(parseCondition(text).value, value) << text;
    EXPECT_THAT(keysOf(parseCondition("'B' == 'A' && !('C' < 'A') || 'B'")),
                ::testing::ElementsAre("B", "A", "C"));
    EXPECT_EQ(parseCondition("'Größe \"x\" \\n && 1'").key, "Größe \"x\" \\n && 1");
}

TEST(ConditionParser, RefusedTextsNameThePlaceAndWhatWasExpected)
{
    const std::pair<std::string, std::string> rows[] = {
        {"", "1:1: expected a key, a literal, '!' or '(', found the end"},
        {"'A' &&\n  == 1", "2:3: expected a key, a literal, '!' or '(', found '=='"},
        {"'A' 'B'", "1:5: expected an operator or the end, found a key"},
        {"'ü' and 'B'", "1:6: expected an operator or the end, found 'and'"},
        {"('A' 5)", "1:6: expected an operator or ')', found '5'"},
        {"'A' & 'B'", "1:5: expected '&&', found '&'"},
        {"''", "1:1: expected a key, found an empty one"},
        {"1 < 'A", "1:5: expected a ' that closes this key, found the end"},
        {"'A\n'", "1:3: expected a key without control characters, found byte 0x0A"},
        {"\"b\\\"", "1:1: expected a \" that closes this text, found the end"},
        {R"("\q")", "1:3: expected \", \\, n or t after a \\, found 'q'"},
        {"\"b\\", "1:4: expected \", \\, n or t after a \\, found the end"},
        {"'A' for 10 sec", "1:12: expected a unit: ms, s, min or h, found 'sec'"},
        {"'A' for -1 s", "1:9: expected a duration of 0.001 ms or more, found '-1'"},
        {"'A' for 0 h", "1:9: expected a duration of 0.001 ms or more, found '0'"},
        {"'A' for 100000.1 h", "1:9: expected a duration of at most 100000 h, found '100000.1'"},
        {"'A' for 9223372036854775807 h",
         "1:9: expected a duration of at most 100000 h, found '9223372036854775807'"},
        {"'A' within 5 s 'B'", "1:16: expected 'of', found a key"},
        {"age('A')", "1:9: expected a comparison, found the end"},
        {"!age('A') < 2 s",
         "1:1: expected parentheses around the comparison that is negated, found '!'"},
        {"age('A') < 2", "1:12: expected a duration such as 2 s, found '2'"},
        {"'A' < age('B')", "1:7: expected a key, a literal, '!' or '(', found 'age'"},
        {"'A' < 2 s", "1:7: expected a value: only an age is compared with a duration, found '2'"},
        {"count('A') > 1", "1:10: expected an operator or ',', found ')'"},
        {"count('A', 1 s) > 1000", "1:19: expected a whole number from 0 to 999, found '1000'"},
        {"1001 <= count('A', 1 s)", "1:1: expected a whole number from 0 to 1000, found '1001'"},
        {"count('A', 1 s) >= 1.5", "1:20: expected a whole number from 0 to 1000, found '1.5'"},
        {"1e+", "1:4: expected the digits of an exponent, found the end"},
        {"1.e5", "1:3: expected a digit after '.', found 'e'"},
        {"9223372036854775808", "1:1: expected an integer of 64 bits, found 9223372036854775808"},
        {"1e999", "1:1: expected a number in the range of a float, found 1e999"},
        {std::string("'A'\0", 4), "1:4: expected an operator or the end, found byte 0x00"},
        {"'A'\n== \"\xff\"", "2:5: expected a character in UTF-8, found byte 0xFF"},
        {"'\xc3", "1:2: expected a character in UTF-8, found byte 0xC3"},
        {"'\x7f'", "1:2: expected a key without control characters, found byte 0x7F"},
        {std::string(40, 'x'),
         "1:1: expected a key, a literal, '!' or '(', found '" + std::string(40, 'x') + "'"},
        {std::string(41, 'x'), "1:1: expected a key, a literal, '!' or '(', found a long word"},
    };
    for (const auto& [text, error] : rows)
        EXPECT_EQ(problemOf(text), error) << text;
}

TEST(ConditionParser, SizeAndDepthAreBoundedButFlatChainsMayBeLong)
{
    const std::string tooDeep =
        "1:201: expected at most 200 nested parentheses and negations, found more";
    EXPECT_EQ(problemOf(repeated("(", 10000) + "'A'" + repeated(")", 10000)), tooDeep);
    EXPECT_EQ(problemOf(repeated("!", 10000) + "'A'"), tooDeep);
    const std::string chain = "1" + repeated("<1", 201);
    const std::string tooLong =
        "expected at most 200 comparisons chained in one another, found more";
    EXPECT_EQ(problemOf(chain + repeated("<1", 10000)), "1:404: " + tooLong);
    EXPECT_EQ(problemOf("1 == (2 || " + chain + ") == 1"), "1:417: " + tooLong);
    EXPECT_EQ(problemOf(std::string(kMaxConditionBytes + 1, '(')),
              "1:1: expected at most 65536 bytes, found 65537");

    const std::string held = "'A'" + repeated(" for 1 s", 200);
    EXPECT_EQ(problemOf(held + repeated(" within 1 s of 'A'", 1000)),
              "1:1605: expected at most 200 'for' and 'within' chained in one another, found more");
    EXPECT_EQ(problemOf("'A' within 1 s of (" + held + ")"), "none")
        << "the chain is no longer by what it is within";
    EXPECT_EQ(problemOf(repeated("count(", 10000) + "'A'"), "1:1206: " + tooDeep.substr(7));

    EXPECT_EQ(problemOf(repeated("(", 200) + "'A'" + repeated(")", 200)), "none");
    EXPECT_EQ(problemOf(repeated("!", 200) + "'A' && " + repeated("!", 200) + "'A'"), "none");
    EXPECT_EQ(problemOf("1 == (2 || " + chain + ")" + repeated(" && " + chain, 100)), "none");
    EXPECT_EQ(problemOf("'A'" + std::string(kMaxConditionBytes - 3, ' ')), "none");
    EXPECT_EQ(parseCondition("'A'" + repeated("&&'B'", 10000)).operands.size(), 10001U);
}

}  // namespace
}  // namespace KR

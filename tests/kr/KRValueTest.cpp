#include <cmath>
#include <functional>
#include <limits>

#include "platform/kr/KRError.h"
#include "platform/kr/KRValue.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
const KRValue::Binary kBytes{0x00, 0xff};

TEST(KRValue, ConversionWithoutExactMeaningIsRefused)
{
    const struct {
        std::function<void()> call;
        std::string text;
    } kRows[] = {
        {[] { KRValue().toBool(); }, "KRValue::toBool: expected bool, got none"},
        {[] { KRValue(1.5).toInt(); }, "KRValue::toInt: expected int, got float"},
        {[] { KRValue(kTwoTo63).toInt(); }, "KRValue::toInt: expected int, got float"},
        {[] { KRValue(std::int64_t{1} << 31).toInt32(); },
         "KRValue::toInt32: 2147483648 does not fit in 32 bits"},
        {[] { KRValue(-(std::int64_t{1} << 31) - 1).toInt32(); },
         "KRValue::toInt32: -2147483649 does not fit in 32 bits"},
        {[] { KRValue(1).toString(); }, "KRValue::toString: expected string, got int"},
        {[] { KRValue(kBytes).toArray(); }, "KRValue::toArray: expected array, got binary"},
        {[] { KRValue("b").toBinary(); }, "KRValue::toBinary: expected binary, got string"},
        {[] { KRValue(7)[0]; }, "KRValue::operator[]: expected array, got int"},
        {[] { KRValue(KRValue::Array{1})[1]; },
         "KRValue::operator[]: index 1 is past the end of 1 elements"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(errorOf<KRError>(row.call), row.text);
}

TEST(KRValue, ConversionWithExactMeaningIsMade)
{
    EXPECT_EQ(KRValue(true).toInt(), 1);
    EXPECT_EQ(KRValue(-kTwoTo63).toInt(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(KRValue(2147483647.0).toInt32(), 2147483647);
    EXPECT_EQ(KRValue(-2147483648.0).toInt32(), -2147483647 - 1);
    EXPECT_FALSE(KRValue(0).toBool());
    EXPECT_EQ(KRValue(KRValue::Array{1, 2})[1], KRValue(2));
    EXPECT_EQ(KRValue(4294967295u).toInt(), 4294967295);
    EXPECT_DOUBLE_EQ(KRValue(true).toFloat(), 1.0);
}

TEST(KRValue, EveryKindHasItsTruthEqualityAndDisplay)
{
    const double kNan = std::nan("");
    const struct {
        KRValue value;
        bool truth;
        std::string display;
    } kRows[] = {
        {KRValue(), false, "none"},
        {false, false, "false"},
        {0, false, "0"},
        {-1, true, "-1"},
        {0.0, false, "0.0"},
        {1e300, true, "1e+300"},
        {-std::numeric_limits<double>::infinity(), true, "-inf"},
        {"", false, "\"\""},
        {"a\"b", true, "\"a\\\"b\""},
        {"fourteen bytes", true, "\"fourteen bytes\""},  // the longest that is held in place
        {"fifteen bytes..", true, "\"fifteen bytes..\""},
        {"fifteen bytes.!", true, "\"fifteen bytes.!\""},
        {"\xff", true, "\"\xef\xbf\xbd\""},  // no UTF-8: shown as the replacement character
        {KRValue::Array{1, KRValue::Array{"x", KRValue()}}, true, "[1, [\"x\", none]]"},
        {kBytes, true, "<2 bytes>"},
    };
    for (const auto& a : kRows) {
        EXPECT_EQ(a.value.isTrue(), a.truth) << a.display;
        EXPECT_EQ(a.value.toDisplayString(), a.display);
        EXPECT_EQ(vo::fromValue<KRValue>(vo::toValue(a.value)), a.value) << a.display;
        for (const auto& b : kRows) {
            EXPECT_EQ(a.value == b.value, &a == &b) << a.display << " and " << b.display;
            KRValue assigned = a.value;
            assigned = b.value;
            KRValue moved = a.value;
            moved = std::move(assigned);
            EXPECT_EQ(moved, b.value) << a.display << " and " << b.display;
        }
    }
    EXPECT_FALSE(KRValue(kNan).isTrue());
    EXPECT_NE(KRValue(kNan), KRValue(kNan));
    const vo::Value::List noValue{vo::Value(vo::Value::Map{})};
    EXPECT_THROW(vo::fromValue<KRValue>(vo::Value(noValue)), vo::ConversionError);
}

}  // namespace
}  // namespace KR

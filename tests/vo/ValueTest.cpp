#include <cmath>
#include <limits>

#include "platform/vo/AnyObject.h"
#include "platform/vo/PackageInfo.h"
#include "tests/support/Testing.h"

using vo::fromValue;
using vo::toValue;
using vo::Value;

namespace {

enum class Color : std::uint8_t { red = 1, blue = 255 };

Value integer(std::int64_t v)
{
    return Value(v);
}

Value structure(std::vector<Value> fields)
{
    return Value(Value::Tuple{std::move(fields)});
}

template <class T>
void expectTravels(const T& value, const Value& expected)
{
    const Value travelling = toValue(value);
    EXPECT_EQ(Value::kindName(travelling.kind()), Value::kindName(expected.kind()));
    EXPECT_EQ(travelling, expected);
    EXPECT_EQ(fromValue<T>(travelling), value);
}

TEST(ConvertTest, everyProvidedTypeTravelsThereAndBack)
{
    expectTravels(std::numeric_limits<std::int8_t>::min(), integer(-128));
    expectTravels(std::numeric_limits<std::int8_t>::max(), integer(127));
    expectTravels(std::uint64_t{0x7fffffffffffffff}, integer(0x7fffffffffffffff));
    expectTravels(Color::blue, integer(255));
    expectTravels(0.5F, Value(0.5));
    expectTravels(std::string("a\0b", 3), Value(std::string("a\0b", 3)));
    expectTravels(Value::Bytes{0, 255}, Value(Value::Bytes{0, 255}));
    expectTravels(std::vector<bool>{true, false}, Value(Value::List{Value(true), Value(false)}));
    expectTravels(std::list<std::string>{"x"}, Value(Value::List{Value(std::string("x"))}));
    expectTravels(std::map<std::string, int>{{"k", 1}}, Value(Value::Map{{"k", integer(1)}}));
    expectTravels(std::tuple<>(), structure({}));
    expectTravels(std::tuple<int, std::pair<int, int>>{1, {2, 3}},
                  structure({integer(1), structure({integer(2), integer(3)})}));
    expectTravels(Value(), Value());
    EXPECT_EQ(toValue("text"), Value(std::string("text")));
    EXPECT_EQ(fromValue<float>(integer(-3)), -3.0F);
    const double most = std::numeric_limits<float>::max();
    EXPECT_EQ(fromValue<float>(Value(-most)), -most);
    EXPECT_TRUE(std::isnan(fromValue<float>(Value(std::nan("")))));
    EXPECT_TRUE(std::isinf(fromValue<float>(Value(HUGE_VAL))));
    const vo::AnyObject handle(std::make_shared<vo::ServiceObject>("Battery"));
    EXPECT_EQ(fromValue<vo::AnyObject>(toValue(handle)).object(), handle.object());
    EXPECT_FALSE(fromValue<vo::AnyObject>(toValue(vo::AnyObject())));
}

template <class T>
void as(const Value& value)
{
    fromValue<T>(value);
}

TEST(ConvertTest, aValueThatDoesNotFitIsRefusedWithItsPlace)
{
    using List = Value::List;
    const Value text(std::string("x"));
    const Value behavior = structure({integer(1), text, text, text, text, text});
    const Value package = structure({text, text, text, Value(List{}), Value(List{behavior})});
    const struct {
        void (*convert)(const Value&);
        Value value;
        const char* error;
    } cases[] = {
        {as<bool>, integer(1), "expected bool, got int"},
        {as<int>, Value(1.0), "expected int, got float"},
        {as<std::int8_t>, integer(128), "expected int from -128 to 127, got 128"},
        {as<std::int8_t>, integer(-129), "expected int from -128 to 127, got -129"},
        {as<Color>, integer(256), "expected int from 0 to 255, got 256"},
        {as<std::list<int>>, Value(List{integer(1), text}), "in element 1: expected int, got text"},
        {as<std::map<std::string, int>>, Value(Value::Map{{"k", text}}),
         "in entry 'k': expected int, got text"},
        {as<vo::PackageInfo>, text, "in PackageInfo: expected structure of 5 fields, got text"},
        {as<vo::PackageInfo>, package,
         "in field 'behaviors' of PackageInfo: in element 0: in field 'path' of BehaviorInfo: "
         "expected text, got int"},
        {as<vo::AnyObject>, text, "expected object, got text"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(errorOf<vo::ConversionError>([&] { c.convert(c.value); }), c.error);
    EXPECT_THROW(toValue(std::uint64_t{1} << 63), vo::ConversionError);
    EXPECT_THROW(fromValue<float>(Value(1e300)), vo::ConversionError);
}

TEST(PackageInfoTest, aPackageTravelsWithAllThatItDeclares)
{
    vo::BehaviorInfo behavior("nod/slow");
    behavior.setNature("solitary");
    for (const char* permission : {"other", vo::BehaviorInfo::k_permCanRunInSleep, "other"})
        behavior.addPermission(permission);
    behavior.addCondition("launchTrigger", "'A' == 1");
    behavior.addCondition("launchTrigger", "'B'");
    for (const char* tag : {"DialogReflex/x", "y", "DialogReflex/x"})
        behavior.addTag("en_US", tag);
    behavior.setUserRequestable(true);
    vo::PackageInfo package("demo", "/packages/demo");
    package.setVersion("1.2");
    for (const char* language : {"en_US", "fr_FR", "en_US"})
        package.addSupportedLanguage(language);
    package.addBehavior(behavior);
    package.addBehavior(vo::BehaviorInfo("wave"));

    using Texts = std::vector<std::string>;
    using TextsByName = std::map<std::string, Texts>;
    const Value travelling = structure(
        {Value("demo"), Value("/packages/demo"), Value("1.2"), toValue(Texts{"en_US", "fr_FR"}),
         Value(Value::List{
             structure({Value("nod/slow"), Value("solitary"),
                        toValue(Texts{"other", "canRunInSleep"}),
                        toValue(TextsByName{{"launchTrigger", {"'A' == 1", "'B'"}}}),
                        toValue(TextsByName{{"en_US", {"DialogReflex/x", "y"}}}), Value(true)}),
             toValue(vo::BehaviorInfo("wave"))})});
    EXPECT_EQ(toValue(package), travelling);
    const auto copy = fromValue<vo::PackageInfo>(travelling);
    EXPECT_EQ(toValue(copy), travelling);
    EXPECT_EQ(vo::behaviorKey(copy, copy.behaviors().front()), "demo/nod/slow");
}

}  // namespace

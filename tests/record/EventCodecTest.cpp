#include <cstring>
#include <fstream>
#include <limits>

#include "record/EventCodec.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

KeyWritten written(KRValue value)
{
    KeyWritten write;
    write.key = "K";
    write.value = std::move(value);
    return write;
}

KRValue throughJson(const KRValue& value)
{
    return std::get<KeyWritten>(decodeEvent(encodeEvent({1, {}, written(value)})).what).value;
}

/// events.jsonl has each record twice or more, written by hand.
TEST(EventCodecTest, EveryRecordIsReadAndWrittenAsItWas)
{
    std::ifstream lines(NIMBRA_TEST_RECORDS "/events.jsonl");
    std::vector<int> seen(std::variant_size_v<Happening>);
    std::uint64_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        const Event event = decodeEvent(line);
        EXPECT_EQ(encodeEvent(event), line);
        EXPECT_EQ(event.number, ++number);
        EXPECT_EQ(event.time, vo::TimePoint(vo::Duration(1795240800250000 + std::int64_t(number))));
        ++seen[event.what.index()];
    }
    EXPECT_THAT(seen, testing::Each(testing::Ge(2)));
}

TEST(EventCodecTest, FieldsAreThoseThatTheirNamesSay)
{
    const auto focus = std::get<FocusChanged>(
        decodeEvent(R"({"event":"focus","activity":"a","previous":"b","new":[{}],"lost":2})").what);
    EXPECT_EQ(focus.activity + focus.previous + std::to_string(focus.lost), "ab2");
    const auto hits = std::get<HitsFound>(
        decodeEvent(R"({"event":"hits","list":1,"after":2,"hits":[{"condition":3}]})").what);
    EXPECT_EQ(std::pair(hits.number, hits.after), std::pair(std::uint64_t{1}, std::uint64_t{2}));
    EXPECT_EQ(hits.hits.at(0).condition, 3U);
    EXPECT_FALSE(std::get<KeyWritten>(decodeEvent(R"({"event":"key","key":"K"})").what).isChange)
        << "what is left out is false, also where it begins as true";
    EXPECT_EQ(
        std::get<CheckerMoved>(decodeEvent(R"({"event":"checker","did":"settled"})").what).kind,
        CheckerMove::Kind::settled);
}

TEST(EventCodecTest, ValuesKeepTheirTypeAndEveryBit)
{
    using Limits = std::numeric_limits<double>;
    for (const double number :
         {0.0, -0.0, 1.0, 0.1, -1e300, Limits::denorm_min(), Limits::max(), Limits::infinity(),
          -Limits::infinity(), Limits::quiet_NaN(), -Limits::quiet_NaN(), std::nan("77")}) {
        const KRValue read = throughJson(number);
        ASSERT_TRUE(read.isFloat()) << number;
        const double got = read.toFloat();
        EXPECT_EQ(std::memcmp(&got, &number, sizeof got), 0) << number;
    }
    using Int = std::numeric_limits<std::int64_t>;
    const std::string any("\0\x01\"\\\n\x7f\xc3\xa4", 8);
    for (const KRValue& value : KRValue::Array{
             {},
             true,
             false,
             0,
             Int::min(),
             Int::max(),
             "",
             any,
             any + "\xff",
             "\xed\xa0\x80",
             KRValue::Binary{},
             KRValue::Binary{0, 255},
             KRValue::Array{},
             KRValue::Array{KRValue::Array{{}, any + "\xc3"}, KRValue::Binary{1}, -0.0, 0}}) {
        EXPECT_EQ(throughJson(value), value);
        EXPECT_EQ(throughJson(KRValue::Array{value})[0], value);
    }
    KRValue deep;
    for (std::size_t i = 0; i < kMaxRecordedDepth; ++i)
        deep = KRValue::Array{deep};
    EXPECT_EQ(throughJson(deep), deep);
    EXPECT_THROW(throughJson(KRValue::Array{deep}), std::length_error);
}

TEST(EventCodecTest, WhatIsNoEventIsRefusedWithItsPlace)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "no JSON"},
        {"[]", "no JSON object"},
        {"{}", "'event' is missing"},
        {R"({"event":"dance"})", "'dance'"},
        {R"({"event":"say","text":1})", "'text': expected a text"},
        {R"({"event":"say","text":{"text":"0"}})", "'text': expected pairs"},
        {R"({"event":"say","number":-1})", "'number': expected"},
        {R"({"event":"say","time":"x"})", "'time': expected microseconds"},
        {R"({"event":"hits","hits":[{"condition":4294967296}]})",
         "'hits': 'condition': expected a smaller"},
        {R"({"event":"call","outcome":"well"})", "'outcome': 'well' is not known"},
        {R"({"event":"key","value":9223372036854775808})", "64 bits"},
        {R"({"event":"key","value":{"float":"nan"}})", "'value': expected bits"},
        {R"({"event":"key","value":{"float":"big"}})", "nan, inf"},
        {R"({"event":"key","value":[{"x":1}]})", "expected a value"},
        {R"({"event":"package","package":{"behaviors":[{"conditions":[["a"]]}]}})",
         "'behaviors': 'conditions': expected a pair"},
    };
    for (const auto& [json, problem] : rows)
        EXPECT_THAT(errorOf([json = json] { decodeEvent(json); }), HasSubstr(problem)) << json;
}

}  // namespace
}  // namespace KR

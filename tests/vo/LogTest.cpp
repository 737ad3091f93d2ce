#include <optional>
#include <regex>
#include <stdexcept>

#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Testing.h"

using vo::LogLevel;
using vo::LogRecord;

namespace {

const vo::Logger logger("Tested");

std::string printed(const std::function<void()>& function)
{
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
}

void logEachLevel()
{
    logger.error("l", "E");
    logger.warning("l", "W");
    logger.info("l", "I");
    logger.verbose("l", "V");
}

struct LogTest : testing::Test {
    ~LogTest() override { vo::setLogLevel(LogLevel::warning); }
};

TEST_F(LogTest, linesAboveTheLevelOfAllOrOfTheirCategoryAreNotPrinted)
{
    const vo::Logger other("Other");
    vo::setLogLevel("Other", LogLevel::info);
    const std::pair<const char*, const char*> cases[] = {{"silent", "io"},
                                                         {"error", "Eio"},
                                                         {"warning", "EWio"},
                                                         {"info", "EWIio"},
                                                         {"verbose", "EWIVio"}};
    for (const auto& [level, expected] : cases) {
        vo::setLogLevel(vo::parseLogLevel(level));
        const std::string output = printed([&] {
            logEachLevel();
            other.info("l", "i");
            other.verbose("l", "v");
            other.error("l", "o");
        });
        const std::regex line("[^\n]*(.)\n");
        EXPECT_EQ(std::regex_replace(output, line, "$1"), expected) << level;
    }
    EXPECT_THROW(vo::parseLogLevel("Warning"), std::invalid_argument);
}

TEST_F(LogTest, aLineHasTheTimeTheBeginningOfLongTextsAndWhatIsNoTextEscaped)
{
    const auto clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    const vo::Application application(clock);
    clock->advance(std::chrono::microseconds(1500));
    const std::string most(vo::kMaxLogTextBytes, 'x');
    const std::string cut(vo::kMaxLogTextBytes - 2, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"{} %s", "{} %s"},
        {most, most},
        {most + "yz", most + "... (2 bytes left out)"},
        {cut + "\u20ac", cut + "... (3 bytes left out)"},
        {"a\nb\tc\r \x1b[2J\x1f \x7f", "a\\nb\\tc\\r \\x1b[2J\\x1f \\x7f"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\u0080\u009f\u00a0", "\\xc2\\x80\\xc2\\x9f\u00a0"},
        {"\u2019 \u309b \U0001f642 \u0600 \ufffd", "\u2019 \u309b \U0001f642 \u0600 \ufffd"},
        {"\u2027\u2028\u202e\u202f", "\u2027\\xe2\\x80\\xa8\\xe2\\x80\\xae\u202f"},
        {"\u200b\u200c\u200d\u200e", "\\xe2\\x80\\x8b\u200c\u200d\\xe2\\x80\\x8e"},
        {"\u061c\ufeff\u00ad\u2060", "\\xd8\\x9c\\xef\\xbb\\xbf\\xc2\\xad\\xe2\\x81\\xa0"},
        {"\U000e0041\xff\xc3", "\\xf3\\xa0\\x81\\x81\\xff\\xc3"},
        {"\xc2 \x80\xe2\x80", "\\xc2 \\x80\\xe2\\x80"},
        {"\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf", "\\xc1\\xbf\\xe0\\x9f\\xbf\\xf0\\x8f\\xbf\\xbf"},
        {"\xed\xa0\x80\xed\x9f\xbf", "\\xed\\xa0\\x80\xed\x9f\xbf"},
        {"\xf4\x90\x80\x80\xf4\x8f\xbf\xbd", "\\xf4\\x90\\x80\\x80\xf4\x8f\xbf\xbd"},
    };
    for (const auto& [text, shown] : cases) {
        const std::string line = printed([text = text] { logger.error(text, text); });
        EXPECT_EQ(line,
                  "2024-10-04T00:00:00.001500Z [error] [Tested] " + shown + ": " + shown + "\n");
    }
}

}  // namespace

#include <optional>
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

TEST_F(LogTest, aLineIsPrintedWithTheApplicationsTime)
{
    const auto clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    const vo::Application application(clock);
    clock->advance(std::chrono::microseconds(1500));
    EXPECT_EQ(printed([] { logger.warning("load", "{} %s found"); }),
              "2024-10-04T00:00:00.001500Z [warning] [Tested] load: {} %s found\n");
}

TEST_F(LogTest, linesAboveTheLevelAreNotPrinted)
{
    const std::pair<const char*, const char*> cases[] = {
        {"silent", ""}, {"error", "E"}, {"warning", "EW"}, {"info", "EWI"}, {"verbose", "EWIV"}};
    for (const auto& [level, expected] : cases) {
        vo::setLogLevel(vo::parseLogLevel(level));
        std::string texts;
        const std::string output = printed(logEachLevel);
        for (std::size_t end = output.find('\n'); end != std::string::npos;
             end = output.find('\n', end + 1))
            texts += output[end - 1];
        EXPECT_EQ(texts, expected) << level;
    }
    EXPECT_THROW(vo::parseLogLevel("Warning"), std::invalid_argument);
}

TEST_F(LogTest, controlCharactersArePrintedEscapedAndOtherTextAsItIs)
{
    const std::pair<std::string, const char*> cases[] = {
        {"a\nb\tc", "a\\nb\\tc"},
        {"\x1b[2J\r\x7f", "\\x1b[2J\\x0d\\x7f"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\xc2\x9b", "\xc2\\x9b"},
        {"caf\xc3\xa9 \xe2\x80\x99 \xe3\x82\x9b", "caf\xc3\xa9 \xe2\x80\x99 \xe3\x82\x9b"},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_THAT(printed([text = text] { logger.error("l", text); }),
                    testing::EndsWith(std::string("[Tested] l: ") + shown + "\n"));
}

TEST_F(LogTest, aCaptureSeesAllLevelsAndPrintsNothing)
{
    const vo::LogCapture capture;
    EXPECT_EQ(printed(logEachLevel), "");
    EXPECT_THAT(capture.lines(LogLevel::verbose), ElementsAre("Tested/l: V"));
    EXPECT_EQ(capture.records().size(), 4U);
    EXPECT_EQ(capture.records().front().time, vo::TimePoint()) << "no application, no time";
}

TEST_F(LogTest, whatAListenerLogsReachesTheOthersOnly)
{
    const vo::LogCapture capture;
    const vo::LogListener speaking(
        [](const LogRecord& record) { logger.info("listener", "heard " + record.text); });
    logger.info("l", "x");
    EXPECT_THAT(capture.lines(LogLevel::info),
                testing::UnorderedElementsAre("Tested/l: x", "Tested/listener: heard x"));
}

TEST_F(LogTest, aListenerMayThrowOrEndItself)
{
    const vo::LogCapture capture;
    const vo::LogListener failing([](const LogRecord&) { throw std::runtime_error("broken"); });
    int heard = 0;
    std::optional<vo::LogListener> once;
    once.emplace([&](const LogRecord& record) {
        if (record.text != "x")
            return;
        ++heard;
        once.reset();
    });
    logger.info("l", "x");
    logger.info("l", "x");
    EXPECT_EQ(heard, 1);
    EXPECT_THAT(capture.lines(LogLevel::error),
                ElementsAre("Log/listener: broken", "Log/listener: broken"));
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>

#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"

using testing::ElementsAre;
using testing::IsEmpty;
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

class LogTest : public testing::Test {
protected:
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
    const struct {
        const char* level;
        std::string texts;
    } cases[] = {
        {"silent", ""}, {"error", "E"}, {"warning", "EW"}, {"info", "EWI"}, {"verbose", "EWIV"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        vo::setLogLevel(vo::parseLogLevel(c.level));
        std::string texts;
        const std::string output = printed(logEachLevel);
        for (std::size_t end = output.find('\n'); end != std::string::npos;
             end = output.find('\n', end + 1))
            texts += output[end - 1];
        EXPECT_EQ(texts, c.texts);
    }
    EXPECT_THROW(vo::parseLogLevel("Warning"), std::invalid_argument);
}

TEST_F(LogTest, controlCharactersArePrintedEscapedAndOtherTextAsItIs)
{
    const struct {
        std::string text;
        const char* shown;
    } cases[] = {
        {"a\nb\tc", "a\\nb\\tc"},
        {"\x1b[2J\r\x7f", "\\x1b[2J\\x0d\\x7f"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\xc2\x9b", "\xc2\\x9b"},
        {"caf\xc3\xa9 \xe2\x80\x99 \xe3\x82\x9b", "caf\xc3\xa9 \xe2\x80\x99 \xe3\x82\x9b"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(printed([&] { logger.error("l", c.text); }),
                    testing::EndsWith(std::string("[Tested] l: ") + c.shown + "\n"));
    }
}

TEST_F(LogTest, aCaptureSeesAllLevelsAndPrintsNothing)
{
    std::optional<vo::LogCapture> capture(std::in_place);
    EXPECT_EQ(printed([] {
                  const vo::LogCapture inner;
                  logEachLevel();
                  logger.error("l", "E\n");
              }),
              "");
    EXPECT_EQ(capture->records().size(), 5u);
    EXPECT_THAT(capture->lines(LogLevel::verbose), ElementsAre("Tested/l: V"));
    EXPECT_EQ(capture->count(LogLevel::error, "E"), 1u);
    EXPECT_EQ(capture->records().front().time, vo::TimePoint()) << "no application, no time";
    capture->clear();
    EXPECT_THAT(capture->records(), IsEmpty());
    capture.reset();
    EXPECT_NE(printed(logEachLevel), "");
}

TEST_F(LogTest, whatAListenerLogsReachesTheOthersOnly)
{
    const vo::LogCapture capture;
    std::vector<std::string> heard;
    const vo::LogListener speaking([&](const LogRecord& record) {
        heard.push_back(record.text);
        logger.info("listener", "heard " + record.text);
    });
    logger.info("l", "x");
    EXPECT_THAT(heard, ElementsAre("x"));
    EXPECT_EQ(capture.count(LogLevel::info, "heard x"), 1u);
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

#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"

namespace vo {

enum class LogLevel { silent, error, warning, info, verbose };

/// "error", "warning", "info", "verbose".
const char* logLevelName(LogLevel level);

/// What is logged of a longer label or text is its beginning, and how much was left out: they come
/// from files and from other services too.
constexpr std::size_t kMaxLogTextBytes = 4096;

/// One log line. It is printed as "label: text".
struct LogRecord {
    TimePoint time;  ///< of the current application's clock; the epoch when there is none
    LogLevel level;
    std::string category;
    std::string label;  ///< the function that speaks
    std::string text;
};

/// Writes log lines of one category. A cheap value; thread-safe.
///
///     static const vo::Logger logger("NimbraLaunchpad");
///     logger.warning("loadConfigFile", "No AutonomousActions found in config file, skipping.");
class Logger {
public:
    explicit Logger(std::string category) : category_(std::move(category)) {}

    void error(const std::string& label, const std::string& text) const;
    void warning(const std::string& label, const std::string& text) const;
    void info(const std::string& label, const std::string& text) const;
    void verbose(const std::string& label, const std::string& text) const;

private:
    std::string category_;
};

/// Lines above this level are not printed (default: warning). Captures and listeners see all
/// levels. Thread-safe.
void setLogLevel(LogLevel level);
/// The same for the lines of one category, whatever the level of the others.
void setLogLevel(const std::string& category, LogLevel level);
/// Takes "silent", "error", "warning", "info", "verbose"; std::invalid_argument for another text.
LogLevel parseLogLevel(const std::string& name);

/// Sees every log line while it lives, after the printing, on the logging thread and with no lock
/// of the logger's; who logs may hold locks of its own. Lines that the listener itself logs are not
/// passed to it again.
class LogListener {
public:
    explicit LogListener(std::function<void(const LogRecord&)> callback);
    ~LogListener();
    LogListener(const LogListener&) = delete;
    LogListener& operator=(const LogListener&) = delete;

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

/// Collects log lines, for tests, and keeps them off the terminal while it lives. Thread-safe.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    /// The lines of one level as "category/label: text", oldest first.
    std::vector<std::string> lines(LogLevel level) const;
    /// How many lines of that level have exactly this text.
    std::size_t count(LogLevel level, const std::string& text) const;
    void clear();

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace vo

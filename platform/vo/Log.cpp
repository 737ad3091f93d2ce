#include "platform/vo/Log.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <stdexcept>
#include <utility>

#include "platform/vo/Application.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/LogException.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Printable.h"

namespace vo {

namespace {

constexpr LogLevel kLevels[] = {LogLevel::silent, LogLevel::error, LogLevel::warning,
                                LogLevel::info, LogLevel::verbose};

struct Listener {
    explicit Listener(std::function<void(const LogRecord&)> function)
        : callback(std::move(function))
    {
    }

    // Constant after construction.
    const std::function<void(const LogRecord&)> callback;
    // Synchronised by itself.
    CallbackGate gate;
};

/// Where all lines pass through.
class Hub {
public:
    /// Never destroyed: whatever is destroyed at the end of the program may still log.
    static Hub& instance()
    {
        static Hub& hub = *new Hub();
        return hub;
    }

    void log(LogLevel level, const std::string& category, const std::string& label,
             const std::string& text);
    void add(std::shared_ptr<Listener> listener);
    /// When it returns, the listener is not running, unless this is called from it.
    void remove(Listener& listener);
    /// From here on the lines of a category go by this level, and no longer by that of the others.
    void setLevel(const std::string& category, LogLevel own);

    // Flags that every line reads without a lock.
    std::atomic<LogLevel> level{LogLevel::warning};
    std::atomic<int> captures{0};  ///< while there are any, nothing is printed

private:
    using Listeners = std::vector<std::shared_ptr<Listener>>;

    Hub();
    LogLevel levelOf(const std::string& category) const;
    void print(const LogRecord& record);
    static void tell(Listener& listener, const LogRecord& record);
    Listeners listeners() const;

    // Synchronised by itself.
    spdlog::logger printer_;
    std::atomic<std::size_t> listenerCount_{0};  ///< spares a line that nobody wants the lock
    std::atomic<bool> hasLevels_{false};         ///< the same where no category has its own
    mutable Mutex mutex_;
    Listeners listeners_ VO_GUARDED_BY(mutex_);
    std::map<std::string, LogLevel> levels_ VO_GUARDED_BY(mutex_);  ///< by category
};

Hub::Hub() : printer_("nimbra", std::make_shared<spdlog::sinks::stderr_sink_mt>())
{
    // Filtered before it comes here.
    printer_.set_level(spdlog::level::trace);
    printer_.set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%Y-%m-%dT%H:%M:%S.%fZ %v", spdlog::pattern_time_type::utc));
}

void Hub::log(LogLevel lineLevel, const std::string& category, const std::string& label,
              const std::string& text)
{
    const bool printed = captures == 0 && lineLevel <= levelOf(category);
    if (!printed && listenerCount_ == 0)
        return;
    const std::shared_ptr<Clock> clock = Application::currentClock();
    const LogRecord record{clock ? clock->now() : TimePoint(), lineLevel, category,
                           shortened(label, kMaxLogTextBytes), shortened(text, kMaxLogTextBytes)};
    if (printed)
        print(record);
    for (const std::shared_ptr<Listener>& listener : listeners())
        tell(*listener, record);
}

void Hub::setLevel(const std::string& category, LogLevel own)
{
    const Lock<Mutex> lock(mutex_);
    levels_[category] = own;
    hasLevels_ = true;
}

LogLevel Hub::levelOf(const std::string& category) const
{
    if (!hasLevels_)
        return level;
    const Lock<Mutex> lock(mutex_);
    const auto own = levels_.find(category);
    return own == levels_.end() ? level.load() : own->second;
}

/// Texts come from files and from other services; what they hold must neither steer a terminal nor
/// pretend to be a line of its own.
void Hub::print(const LogRecord& record)
{
    const std::string line = std::string("[") + logLevelName(record.level) + "] [" +
                             record.category + "] " + record.label + ": " + record.text;
    printer_.log(record.time, spdlog::source_loc(), spdlog::level::info, printable(line));
}

void Hub::tell(Listener& listener, const LogRecord& record)
{
    if (listener.gate.isInside())
        return;
    const CallbackGate::Pass pass(listener.gate);
    if (!pass)
        return;
    try {
        listener.callback(record);
    } catch (...) {
        logCurrentException("Log", "listener");
    }
}

Hub::Listeners Hub::listeners() const
{
    const Lock<Mutex> lock(mutex_);
    return listeners_;
}

void Hub::add(std::shared_ptr<Listener> listener)
{
    const Lock<Mutex> lock(mutex_);
    listeners_.push_back(std::move(listener));
    ++listenerCount_;
}

void Hub::remove(Listener& listener)
{
    {
        const Lock<Mutex> lock(mutex_);
        listeners_.erase(std::find_if(listeners_.begin(), listeners_.end(),
                                      [&](const auto& entry) { return entry.get() == &listener; }));
        --listenerCount_;
    }
    listener.gate.close();
}

}  // namespace

const char* logLevelName(LogLevel level)
{
    static constexpr const char* kNames[] = {"silent", "error", "warning", "info", "verbose"};
    return kNames[static_cast<std::size_t>(level)];
}

LogLevel parseLogLevel(const std::string& name)
{
    for (const LogLevel level : kLevels) {
        if (name == logLevelName(level))
            return level;
    }
    throw std::invalid_argument("expected silent, error, warning, info or verbose, got '" + name +
                                "'");
}

void setLogLevel(LogLevel level)
{
    Hub::instance().level = level;
}

void setLogLevel(const std::string& category, LogLevel level)
{
    Hub::instance().setLevel(category, level);
}

void Logger::error(const std::string& label, const std::string& text) const
{
    Hub::instance().log(LogLevel::error, category_, label, text);
}

void Logger::warning(const std::string& label, const std::string& text) const
{
    Hub::instance().log(LogLevel::warning, category_, label, text);
}

void Logger::info(const std::string& label, const std::string& text) const
{
    Hub::instance().log(LogLevel::info, category_, label, text);
}

void Logger::verbose(const std::string& label, const std::string& text) const
{
    Hub::instance().log(LogLevel::verbose, category_, label, text);
}

class LogListener::Impl : public Listener {
public:
    using Listener::Listener;
};

LogListener::LogListener(std::function<void(const LogRecord&)> callback)
    : impl_(std::make_shared<Impl>(std::move(callback)))
{
    Hub::instance().add(impl_);
}

LogListener::~LogListener()
{
    Hub::instance().remove(*impl_);
}

struct LogCapture::State {
    State()
        : listener([this](const LogRecord& record) {
              const Lock<Mutex> lock(mutex);
              records.push_back(record);
          })
    {
        ++Hub::instance().captures;
    }
    ~State() { --Hub::instance().captures; }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    Mutex mutex;
    std::vector<LogRecord> records VO_GUARDED_BY(mutex);
    // Last, as it writes to the others from its making to its end.
    LogListener listener;
};

LogCapture::LogCapture() : state_(std::make_shared<State>()) {}

LogCapture::~LogCapture() = default;

std::vector<LogRecord> LogCapture::records() const
{
    const Lock<Mutex> lock(state_->mutex);
    return state_->records;
}

std::vector<std::string> LogCapture::lines(LogLevel level) const
{
    std::vector<std::string> lines;
    for (const LogRecord& record : records()) {
        if (record.level == level)
            lines.push_back(record.category + "/" + record.label + ": " + record.text);
    }
    return lines;
}

std::size_t LogCapture::count(LogLevel level, const std::string& text) const
{
    const std::vector<LogRecord> all = records();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(),
        [&](const LogRecord& record) { return record.level == level && record.text == text; }));
}

void LogCapture::clear()
{
    const Lock<Mutex> lock(state_->mutex);
    state_->records.clear();
}

}  // namespace vo

#include "plugins/builtin/TimingPlugin.h"

#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cstdint>
#include <ctime>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger timingPluginLog("LaunchpadPluginTiming");

/// Weeks of the year from its first Monday on; see xTimePeriodToSpecifier.
constexpr const char* kWeekSpecifier = "%W";
/// Far beyond the longest name of a month or weekday.
constexpr std::size_t kTextSize = 80;

std::size_t indexOf(TimingPlugin::TimePeriod period)
{
    return static_cast<std::size_t>(period);
}

std::tm localTime(vo::TimePoint now)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now).time_since_epoch();
    const std::time_t time = seconds.count();
    std::tm local{};
    ::tzset();  // the machine may have been moved to another time zone
    ::localtime_r(&time, &local);
    return local;
}

std::vector<KeyDescription> keyDescriptions()
{
    using Key = KeyDescription;
    using std::chrono::hours;
    using std::chrono::minutes;
    constexpr hours kDay(24);
    constexpr hours kLongestMonth = 31 * kDay;
    // Days when the clocks change are none to reckon with.
    return {
        Key::integer("Year", "").atLeast(1970),
        Key::integer("Month", "").between(1, 12).stepping(kLongestMonth),
        Key::text("MonthName", "")
            .oneOf({"January", "February", "March", "April", "May", "June", "July", "August",
                    "September", "October", "November", "December"})
            .stepping(kLongestMonth),
        Key::integer("Day", "day of the year").between(1, 366),
        Key::text("DayName", "day of the week")
            .oneOf({"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"})
            .stepping(kDay),
        Key::integer("Date", "day of the month").between(1, 31),
        Key::integer("Hour", "").between(0, 23).stepping(hours(1)),
        Key::integer("Minute", "").between(0, 59).stepping(minutes(1)),
        Key::integer("Week", "of the year, from its first Monday on").between(0, 53),
        Key::integer("MinuteOfDay", "").between(0, 1439).stepping(minutes(1))};
}

}  // namespace

const std::array<TimingPlugin::TimePeriod, TimingPlugin::kTimePeriods>
    TimingPlugin::fAllTimePeriods = {
        TimePeriod::year,    TimePeriod::month,      TimePeriod::monthName, TimePeriod::day,
        TimePeriod::dayName, TimePeriod::date,       TimePeriod::hour,      TimePeriod::minute,
        TimePeriod::week,    TimePeriod::minuteOfDay};

const std::array<const char*, TimingPlugin::kTimePeriods> TimingPlugin::timePeriodNameXMacro = {
    "Year", "Month", "MonthName", "Day",  "DayName",
    "Date", "Hour",  "Minute",    "Week", "MinuteOfDay"};

const std::array<const char*, TimingPlugin::kTimePeriods> TimingPlugin::timePeriodSpecifierXMacro =
    {"%Y", "%m", "%B", "%j", "%A", "%d", "%H", "%M", "%V", ""};

const std::array<bool, TimingPlugin::kTimePeriods> TimingPlugin::timePeriodisIntXMacro = {
    true, true, false, true, false, true, true, true, true, true};

TimingPlugin::TimingPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginTiming")
{
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    for (KeyDescription& key : keyDescriptions())
        xDescribe(std::move(key));
    for (const auto period : fAllTimePeriods)
        current_[period] = KRValue();
    try {
        for (const auto period : fAllTimePeriods)
            xDeclareLaunchpadEvent(xTimePeriodToString(period));
    } catch (const KRError& e) {
        timingPluginLog.warning("TimingPlugin",
                                std::string("error at initialisation. Got: ") + e.what());
    }
    task_.setName("Timing Check");
    task_.setCallback([this] { xNotifyTimingData(); });
    task_.setUsPeriod(xGetDelayUSec(period_));
}

TimingPlugin::~TimingPlugin()
{
    task_.stop();
}

void TimingPlugin::exit()
{
    task_.stop();
    NimbraLaunchpadPluginModule::exit();
}

void TimingPlugin::_startPlugin()
{
    if (started_)
        return;
    started_ = true;
    task_.start(true);
}

void TimingPlugin::_stopPlugin()
{
    if (!started_)
        return;
    task_.stop();
    started_ = false;
}

std::string TimingPlugin::xTimePeriodToString(TimePeriod period) const
{
    return timePeriodNameXMacro[indexOf(period)];
}

std::string TimingPlugin::xTimePeriodToDataName(TimePeriod period) const
{
    return xAddLaunchpadPrefix(xTimePeriodToString(period));
}

std::string TimingPlugin::xTimePeriodToSpecifier(TimePeriod period) const
{
    return timePeriodSpecifierXMacro[indexOf(period)];
}

bool TimingPlugin::xTimePeriodToisInt(TimePeriod period) const
{
    return timePeriodisIntXMacro[indexOf(period)];
}

void TimingPlugin::xNotifyTimingData()
{
    previous_ = current_;
    xGetAllTimingData();
    xRaiseTimingDataEvents();
}

void TimingPlugin::xGetAllTimingData()
{
    const std::tm local = localTime(getParentBroker()->clock()->now());
    for (auto& [period, value] : current_) {
        if (period == TimePeriod::minuteOfDay) {
            value = local.tm_hour * 60 + local.tm_min;
            continue;
        }
        const auto specifier =
            period == TimePeriod::week ? kWeekSpecifier : xTimePeriodToSpecifier(period);
        std::array<char, kTextSize> text{};
        const auto size = std::strftime(text.data(), text.size(), specifier.c_str(), &local);
        value = xToValue(period, std::string(text.data(), size));
    }
}

KRValue TimingPlugin::xToValue(TimePeriod period, const std::string& text) const
{
    if (!xTimePeriodToisInt(period))
        return text;
    std::int32_t number = 0;
    if (boost::conversion::try_lexical_convert(text, number))
        return number;
    timingPluginLog.warning(
        "xGetAllTimingData",
        "Error when getting timing data " + xTimePeriodToString(period) + ", got: " + text);
    return {};
}

void TimingPlugin::xRaiseTimingDataEvents()
{
    for (const auto& [period, value] : current_) {
        if (value != previous_[period])
            xRaiseLaunchpadEvent(xTimePeriodToString(period), value);
    }
}

}  // namespace KR

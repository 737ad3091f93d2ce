#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <map>
#include <string>

#include "platform/vo/PeriodicTask.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes the robot's local calendar time, in the machine's time zone:
///
///     Launchpad/Year         int            Launchpad/Date         int 1..31, of the month
///     Launchpad/Month        int 1..12      Launchpad/Hour         int 0..23
///     Launchpad/MonthName    string         Launchpad/Minute       int 0..59
///     Launchpad/Day          int 1..366,    Launchpad/Week         int 0..53, weeks begin on
///                            of the year                           Monday, the year's first one
///     Launchpad/DayName      string                                begins week 1
///                                           Launchpad/MinuteOfDay  int 0..1439
///
/// The names are in the language of the process's locale. It reads the clock every 2 s, and at its
/// start, and raises what changed since the reading before; the first reading raises everything.
/// A stop blanks nothing: the last values stay, and are what the first reading after the next
/// start is compared with.
class TimingPlugin : public NimbraLaunchpadPluginModule {
public:
    enum class TimePeriod {
        year,
        month,
        monthName,
        day,
        dayName,
        date,
        hour,
        minute,
        week,
        minuteOfDay
    };
    static constexpr std::size_t kTimePeriods = 10;
    /// In ascending order.
    static const std::array<TimePeriod, kTimePeriods> fAllTimePeriods;

    explicit TimingPlugin(boost::shared_ptr<KRBroker> broker);
    ~TimingPlugin() override;

    void exit() override;

    /// The name of a period's datum, "Hour".
    std::string xTimePeriodToString(TimePeriod period) const;
    /// Its key, "Launchpad/Hour".
    std::string xTimePeriodToDataName(TimePeriod period) const;
    /// How strftime is to write it; empty for the minute of the day. For the week it names the ISO
    /// week, which is not the one that is published.
    std::string xTimePeriodToSpecifier(TimePeriod period) const;
    /// Whether its values are ints; they are strings otherwise.
    bool xTimePeriodToisInt(TimePeriod period) const;

    /// One reading: takes the time, and raises what changed. Not while the task runs.
    void xNotifyTimingData();

private:
    static const std::array<const char*, kTimePeriods> timePeriodNameXMacro;
    static const std::array<const char*, kTimePeriods> timePeriodSpecifierXMacro;
    static const std::array<bool, kTimePeriods> timePeriodisIntXMacro;

    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void xGetAllTimingData();
    void xRaiseTimingDataEvents();
    KRValue xToValue(TimePeriod period, const std::string& text) const;

    const float period_ = 2.0F;  ///< seconds
    bool started_ VO_GUARDED_BY(mutex_) = false;

    // Only the task uses them; its runs never overlap.
    std::map<TimePeriod, KRValue> current_;
    std::map<TimePeriod, KRValue> previous_;

    vo::PeriodicTask task_;
};

}  // namespace KR

#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"

namespace KR {

/// What was in a robot's life: its last states, which activities had the focus, how often and for
/// how long.
///
/// Not thread-safe: LifeStatus guards it.
class LifeHistory {
public:
    /// Entries that are kept of each kind; callers ask for the last few.
    static constexpr std::size_t kMaxEntries = 100;

    void addState(const std::string& state) { add(states_, state); }
    /// An activity has the focus from now on ("" for none). `now` is uptime.
    void addFocus(const std::string& activity, vo::Duration now);

    /// The last `depth` (1 or more, else KRError) states, the present one last.
    std::vector<std::string> states(int depth) const;
    /// The same of activities; "" stands for the times when none had the focus.
    std::vector<std::string> focuses(int depth) const;
    /// Per activity that ever had the focus: "focusCount", how often, and "focusTime", for how
    /// many whole seconds in all until now.
    std::map<std::string, std::map<std::string, std::int64_t>> statistics(vo::Duration now) const;

private:
    struct Statistics {
        std::int64_t count = 0;
        vo::Duration time{};
    };

    static void add(std::deque<std::string>& entries, const std::string& entry);

    std::deque<std::string> states_;
    std::deque<std::string> focuses_;
    std::map<std::string, Statistics> statistics_;
    vo::Duration since_{};  ///< the last of the focuses
};

}  // namespace KR

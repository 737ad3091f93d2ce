#include "life/LifeHistory.h"

#include <algorithm>

#include "platform/kr/KRError.h"

namespace KR {

namespace {

std::vector<std::string> lastOf(const std::deque<std::string>& entries, int depth,
                                const char* method)
{
    if (depth < 1)
        throw KRError("KRNimbra", method, "the depth must be 1 or more");
    const auto count = std::min(entries.size(), static_cast<std::size_t>(depth));
    return {entries.end() - static_cast<std::ptrdiff_t>(count), entries.end()};
}

}  // namespace

void LifeHistory::add(std::deque<std::string>& entries, const std::string& entry)
{
    entries.push_back(entry);
    if (entries.size() > kMaxEntries)
        entries.pop_front();
}

void LifeHistory::addFocus(const std::string& activity, vo::Duration now)
{
    if (!focuses_.empty() && !focuses_.back().empty())
        statistics_[focuses_.back()].time += now - since_;
    since_ = now;
    if (!activity.empty())
        ++statistics_[activity].count;
    add(focuses_, activity);
}

std::vector<std::string> LifeHistory::states(int depth) const
{
    return lastOf(states_, depth, "getStateHistory");
}

std::vector<std::string> LifeHistory::focuses(int depth) const
{
    return lastOf(focuses_, depth, "getFocusHistory");
}

std::map<std::string, std::map<std::string, std::int64_t>> LifeHistory::statistics(
    vo::Duration now) const
{
    std::map<std::string, std::map<std::string, std::int64_t>> result;
    for (const auto& [activity, statistics] : statistics_) {
        vo::Duration time = statistics.time;
        if (focuses_.back() == activity)
            time += now - since_;
        result[activity] = {
            {"focusCount", statistics.count},
            {"focusTime", std::chrono::duration_cast<std::chrono::seconds>(time).count()}};
    }
    return result;
}

}  // namespace KR

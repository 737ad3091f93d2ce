#include "life/HistoryKeeper.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "platform/packages/DurableFile.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

using Histories = ConditionChecker::Histories;
using Json = nlohmann::json;

const vo::Logger historyKeeperLog("Nimbra.History");

constexpr int kVersion = 1;
constexpr vo::Duration kPeriod = std::chrono::seconds(10);
/// Far more than rules remember; a file that is larger is none of ours.
constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

struct Saved {
    vo::TimePoint time;
    Histories histories;
};

std::string fileIn(const std::string& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw std::runtime_error("cannot make the state folder " + folder + ": " + error.message());
    return folder + "/histories.json";
}

/// Between the epoch and the year 3000.
vo::TimePoint timeOf(const Json& json)
{
    constexpr std::int64_t kMost = 32'503'680'000'000'000;
    if (!json.is_number_integer() || json < 0 || json > kMost)
        throw std::runtime_error(json.dump() + " is no time");
    return vo::TimePoint(vo::Duration(json.get<std::int64_t>()));
}

Saved parse(const std::string& text)
{
    const Json document = Json::parse(text);
    if (document.at("version") != kVersion)
        throw std::runtime_error("its version is " + document.at("version").dump());
    Saved saved{timeOf(document.at("saved")), {}};
    for (const auto& [part, json] : document.at("parts").items()) {
        ConditionChecker::History& history = saved.histories[part];
        history.isTrue = json.at("true").get<bool>();
        for (const Json& instant : json.at("instants"))
            history.instants.push_back(timeOf(instant));
        if (!std::is_sorted(history.instants.begin(), history.instants.end()) ||
            (!history.instants.empty() && history.instants.back() > saved.time))
            throw std::runtime_error("the times of '" + part + "' are in no order");
    }
    return saved;
}

std::string textOf(const Saved& saved)
{
    Json parts = Json::object();
    for (const auto& [part, history] : saved.histories) {
        Json instants = Json::array();
        for (const vo::TimePoint instant : history.instants)
            instants.push_back(instant.time_since_epoch().count());
        parts[part] = {{"true", history.isTrue}, {"instants", std::move(instants)}};
    }
    const Json document = {{"version", kVersion},
                           {"saved", saved.time.time_since_epoch().count()},
                           {"parts", std::move(parts)}};
    return document.dump(1) + "\n";
}

}  // namespace

HistoryKeeper::HistoryKeeper(const std::shared_ptr<vo::Clock>& clock, NimbraLaunchpad& launchpad,
                             EventStream& events, const std::string& folder,
                             const ResumeLimits& limits)
    : clock_(clock),
      launchpad_(launchpad),
      events_(events),
      path_(fileIn(folder)),
      limits_(limits),
      executor_(clock->makeExecutor("HistoryKeeper", vo::Clock::Threading::shared))
{
}

HistoryKeeper::~HistoryKeeper()
{
    executor_->close();
}

void HistoryKeeper::start()
{
    try {
        resume();
    } catch (const std::exception& e) {
        historyKeeperLog.error("start", std::string("Holds and counts are not kept: ") + e.what());
        return;
    }
    isStarted_ = true;
    if (clock_->hasThreads())
        executor_->post([this] { keepOn(); }, kPeriod);
}

void HistoryKeeper::resume()
{
    Saved saved;
    if (!readDurableFile(path_, kMaxBytes, historyKeeperLog,
                         [&saved](const std::string& text) { saved = parse(text); }))
        return;
    const vo::Duration gap = clock_->now() - saved.time;
    if (gap < vo::Duration::zero() || gap > limits_.gap) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(gap).count();
        historyKeeperLog.info("resume", "Holds and counts begin anew: they were kept " +
                                            std::to_string(seconds) + " s ago");
        return;
    }
    tell(saved.histories);
    launchpad_.resumeConditionHistories(saved.histories, limits_.within);
}

void HistoryKeeper::tell(const ConditionChecker::Histories& histories)
{
    HistoriesResumed resumed{{}, limits_.within};
    for (const auto& [part, history] : histories) {
        resumed.histories.push_back({part, history.isTrue, {}});
        for (const vo::TimePoint instant : history.instants)
            resumed.histories.back().instants.push_back(instant.time_since_epoch());
    }
    events_.publish(std::move(resumed));
}

void HistoryKeeper::keepOn()
{
    save();
    executor_->post([this] { keepOn(); }, kPeriod);
}

void HistoryKeeper::stop()
{
    executor_->close();
    if (isStarted_)
        save();
}

void HistoryKeeper::save()
{
    try {
        // The time first: what is remembered may be newer, and is then cut to it.
        Saved saved{clock_->now(), launchpad_.getConditionHistories()};
        for (auto& [part, history] : saved.histories)
            for (vo::TimePoint& instant : history.instants)
                instant = std::min(instant, saved.time);
        if (saved.histories.empty() && isEmpty_)
            return;
        writeDurableFile(path_, textOf(saved));
        isEmpty_ = saved.histories.empty();
        hasFailed_ = false;
    } catch (const std::exception& e) {
        if (!std::exchange(hasFailed_, true))
            historyKeeperLog.error("save",
                                   std::string("Holds and counts cannot be kept: ") + e.what());
    }
}

}  // namespace KR

#include "host/PluginsCommand.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "host/Host.h"
#include "host/RunCommand.h"
#include "host/Text.h"

namespace KR {

namespace {

using Row = std::array<std::string, 5>;

/// Nobody looks at the timeline of a robot that is brought up for its plugins only.
class NoTimeline : public TimelineRenderer {
public:
    void begin(const RunHeader&) override {}
    void event(const TimelineEvent&) override {}
    void end(const RunSummary&) override {}
};

template <class Texts>
std::string joined(const Texts& texts)
{
    std::string result;
    for (const std::string& text : texts)
        result += (result.empty() ? "" : ", ") + printable(text);
    return result.empty() ? "-" : result;
}

Row rowOf(const NimbraLaunchpad::PluginState& plugin)
{
    return {printable(plugin.name), joined(plugin.groups), plugin.enabled ? "yes" : "no",
            plugin.running ? "yes" : "no", joined(plugin.publishedKeys)};
}

void print(const std::vector<Row>& rows)
{
    std::array<std::size_t, 5> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i)
            std::cout << row[i] << std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
        std::cout << row.back() << "\n";
    }
}

}  // namespace

void listPlugins(const std::string& config, const std::string& packages)
{
    const std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    Timeline timeline(clock, std::make_unique<NoTimeline>());
    Host host(clock, timeline, {configPath(config), packages, vo::LogLevel::warning});
    host.start();
    std::vector<Row> rows{{"name", "groups", "enabled", "running", "keys"}};
    for (const NimbraLaunchpad::PluginState& plugin : host.launchpad().getPluginStates())
        rows.push_back(rowOf(plugin));
    host.stop();
    print(rows);
}

}  // namespace KR

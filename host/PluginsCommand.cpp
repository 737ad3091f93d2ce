#include "host/PluginsCommand.h"

#include "host/Host.h"
#include "host/Output.h"
#include "host/RunCommand.h"
#include "host/Table.h"

namespace KR {

namespace {

/// Nobody looks at the timeline of a robot that is brought up for its plugins only.
class NoTimeline : public TimelineRenderer {
public:
    void begin(const RunHeader&) override {}
    void event(const TimelineEvent&) override {}
    void end(const RunSummary&) override {}
};

TableRow rowOf(const NimbraLaunchpad::PluginState& plugin)
{
    return {printable(plugin.name), listText(plugin.groups), plugin.enabled ? "yes" : "no",
            plugin.running ? "yes" : "no", listText(plugin.publishedKeys)};
}

}  // namespace

void listPlugins(const std::string& config, const std::string& packages)
{
    const std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    Timeline timeline(clock, std::make_unique<NoTimeline>());
    Host host(clock, timeline, {configPath(config), packages, vo::LogLevel::warning});
    host.start();
    std::vector<TableRow> rows{{"name", "groups", "enabled", "running", "keys"}};
    for (const NimbraLaunchpad::PluginState& plugin : host.launchpad().getPluginStates())
        rows.push_back(rowOf(plugin));
    host.stop();
    printOutput(tableText(rows));
}

}  // namespace KR

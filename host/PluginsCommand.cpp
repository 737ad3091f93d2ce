#include "host/PluginsCommand.h"

#include "host/ConfigurationCheck.h"
#include "host/Host.h"
#include "host/Output.h"
#include "host/RunCommand.h"
#include "host/Table.h"

namespace KR {

namespace {

TableRow rowOf(const NimbraLaunchpad::PluginState& plugin)
{
    return {printable(plugin.name), listText(plugin.groups), plugin.enabled ? "yes" : "no",
            plugin.running ? "yes" : "no", listText(plugin.publishedKeys)};
}

void listPlugins(const std::string& config, const std::string& packages)
{
    const std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
    EventStream events(clock);
    Host::Options options;
    options.config = configPath(config);
    requirePackagesFolder(packages);
    options.packages = packages;
    options.plugins = inspectConfiguration(options.config).plugins;
    Host host(clock, events, options);
    host.ready().wait();
    host.start();
    std::vector<TableRow> rows{{"name", "groups", "enabled", "running", "keys"}};
    for (const NimbraLaunchpad::PluginState& plugin : host.launchpad().getPluginStates())
        rows.push_back(rowOf(plugin));
    host.stop();
    printOutput(tableText(rows));
}

struct PluginsOptions {
    std::string config;
    std::string packages;
};

}  // namespace

void addPluginsCommand(const Command& program)
{
    const Command plugins = program.add("plugins", "List the plugins of a robot");
    const auto options = std::make_shared<PluginsOptions>();
    addConfig(plugins, options->config);
    addPackages(plugins, options->packages);
    plugins.perform([options] {
        listPlugins(options->config, options->packages);
        return 0;
    });
}

}  // namespace KR

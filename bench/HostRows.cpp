// The whole host: how long it takes to come up, and to live a day.

#include <filesystem>
#include <fstream>

#include "bench/Rows.h"
#include "bench/TemporaryFolder.h"
#include "host/Host.h"
#include "host/Player.h"
#include "host/StopRequest.h"
#include "platform/packages/PackageManifest.h"
#include "platform/vo/VirtualClock.h"
#include "robot/Scenario.h"
#include "timeline/HumanTimeline.h"
#include "timeline/Timeline.h"

namespace bench {

namespace {

constexpr int kTurns = 5;

/// Renders for nobody.
std::unique_ptr<KR::TimelineRenderer> noReader(std::size_t& bytes)
{
    return std::make_unique<KR::HumanTimeline>(
        [&bytes](const std::string& text) { bytes += text.size(); }, false);
}

void writePackage(const std::filesystem::path& folder, int number)
{
    const std::string name = "package" + std::to_string(number);
    std::filesystem::create_directories(folder / name);
    std::ofstream manifest(folder / name / KR::kPackageManifestFile);
    manifest << "ConfigurationVersion: 1\nUuid: " << name << "\nVersion: 1\nBehaviors:\n";
    for (int i = 0; i < 3; ++i) {
        const std::string path = "behavior" + std::to_string(i);
        std::filesystem::create_directories(folder / name / path);
        const auto run = folder / name / path / "run";
        std::ofstream(run) << "#!/bin/sh\n";
        std::filesystem::permissions(run, std::filesystem::perms(0700));
        manifest << "  - Path: " << path << "\n    Nature: solitary\n"
                 << "    Conditions: {launchTrigger: \"'Sense/Zone" << number
                 << "' == \\\"Low\\\" && !'Nimbra/Asleep'\"}\n";
    }
}

void startUp(Table& table)
{
    const std::string row = "start-up, 1000 packages of 3 behaviours";
    if (!table.wants(row))
        return;
    const TemporaryFolder packages;
    for (int i = 0; i < 1000; ++i)
        writePackage(packages.path(), i);
    const auto measure = [&] {
        const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint());
        std::size_t rendered = 0;
        KR::EventStream events(clock);
        KR::Timeline timeline(noReader(rendered));
        timeline.follow(events);
        std::unique_ptr<KR::Host> host;
        const double seconds = secondsOf([&] {
            host = std::make_unique<KR::Host>(
                clock, events,
                KR::Host::Options{NIMBRA_DATA_FOLDER "/autonomy.cfg", packages.path()});
            clock->runPending();
            host->start();
            clock->runPending();
        });
        if (host->launchpad().getAutonomousActivityNames().size() != 3000)
            throw std::logic_error("not every behaviour became an activity");
        host->stop();
        return seconds;
    };
    measure();
    const Spread result = repeat(kTurns, measure);
    table.add(row, text(result.median, "s"), "", result, atMost(1, "s"));
}

void dayOfLife(Table& table)
{
    const std::string row = "a day of robot life";
    if (!table.wants(row))
        return;
    std::size_t plugins = 0;
    const auto measure = [&] {
        const auto scenario = KR::loadScenario(NIMBRA_DATA_FOLDER "/demo-day.scenario.yaml");
        return secondsOf([&] {
            const auto clock = std::make_shared<vo::VirtualClock>(scenario.start);
            std::size_t rendered = 0;
            KR::StopRequest stop;
            KR::EventStream events(clock);
            KR::Timeline timeline(noReader(rendered));
            timeline.follow(events);
            KR::Host::Options options{NIMBRA_DATA_FOLDER "/autonomy.cfg", {}};
            options.plugins = {"HumanTracked", "PerceptionHeavy"};
            KR::Host host(clock, events, options);
            events.publish(KR::RunBegan{scenario.title, {}, {}, {}, scenario.keys(), {}});
            clock->runPending();
            host.start();
            plugins = host.launchpad().getPluginStates().size();
            for (const KR::NimbraLaunchpad::PluginState& plugin :
                 host.launchpad().getPluginStates())
                host.launchpad().setPluginEnabled(plugin.name, true);
            KR::Player(host, *clock, events, stop, {})
                .play(scenario, scenario.start + std::chrono::hours(24));
            host.stop();
            events.publish(KR::RunEnded{});
            if (rendered == 0)
                throw std::logic_error("nothing happened all day");
        });
    };
    measure();
    const Spread result = repeat(kTurns, measure);
    if (plugins < 8)
        return table.addMissing(
            row, std::to_string(plugins) + " of 8 plugins are there; " + text(result.median, "s"));
    table.add(row, text(result.median, "s"), "", result, atMost(2, "s"));
}

}  // namespace

void measureHost(Table& table)
{
    pinToCore(1);
    startUp(table);
    dayOfLife(table);
}

}  // namespace bench

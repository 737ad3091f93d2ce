#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "host/ConfigurationCheck.h"
#include "host/Player.h"
#include "host/StopRequest.h"
#include "record/EventCodec.h"
#include "record/Replay.h"
#include "robot/RobotBody.h"
#include "robot/Scenario.h"
#include "tests/host/HostTest.h"

namespace KR {
namespace {

class ReplayTest : public HostTest {
protected:
    ReplayTest()
    {
        connection = stream.happened.connect([this](const Event& event) { kept.push_back(event); });
    }

    /// Lives what was kept again, alone.
    ReplayResult replay()
    {
        host.reset();
        std::size_t i = 0;
        std::size_t told = 0;
        const ReplayResult result =
            Replay(
                [&]() -> std::optional<Event> {
                    if (i == kept.size())
                        return {};
                    return kept[i++];
                },
                [&](const Event& event) { EXPECT_EQ(event.number, kept[told++].number); })
                .run();
        if (result.difference) {
            const ReplayDifference& difference = *result.difference;
            ADD_FAILURE() << difference.text << "\n"
                          << (difference.recorded ? encodeEvent(*difference.recorded) : "-") << "\n"
                          << (difference.replayed ? encodeEvent(*difference.replayed) : "-");
        }
        return result;
    }

    std::vector<Event> kept;
    vo::Connection connection;
};

TEST_F(ReplayTest, demoDayIsTheSame)
{
    const std::filesystem::path data = NIMBRA_TEST_DATA;
    packages = folder.path() + "/packages";
    std::filesystem::create_directory(packages);
    for (const char* package : {"companion", "daydream", "power", "run_dialog"})
        std::filesystem::copy(data / "packages" / package, packages + "/" + package,
                              std::filesystem::copy_options::recursive);
    const Scenario scenario = loadScenario(data / "demo-day.scenario.yaml");
    clock->advance(scenario.start - clock->now());
    const std::string config = data / "autonomy.cfg";
    std::ifstream file(config);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto& chains = robotChains();
    stream.publish(RunBegan{"", config, text, {}, {}, {chains.begin(), chains.end()}});
    host.emplace(clock, stream,
                 Host::Options{config, packages, inspectConfiguration(config).plugins});
    clock->runPending();
    host->start();
    StopRequest stop;
    ASSERT_TRUE(Player(*host, *clock, stream, stop, {}).play(scenario, Player::endOf(scenario)));
    host->stop();
    stream.publish(RunEnded{});
    const ReplayResult result = replay();
    std::cout << kept.size() << " events " << result.decisions << " decisions\n";
    EXPECT_GT(result.decisions, 500U);
}

}  // namespace
}  // namespace KR

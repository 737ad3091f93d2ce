// What the responder gets of a launchpad under pressure: keys that pulse, checks, packages that
// come and go, and monitoring that is switched, each from two threads. The values that come with an
// action must make its condition true, and must not go back in time.

#include <atomic>
#include <future>
#include <iostream>
#include <utility>

#include "platform/conditions/ConditionCompiler.h"
#include "platform/conditions/ConditionNetwork.h"
#include "platform/packages/PackageManager.h"
#include "tests/launchpad/LaunchpadTest.h"
#include "tests/packages/TestPackages.h"

namespace KR {
namespace {

constexpr int kPulsesAtOnce = 50;
constexpr int kChecksAtOnce = 10;
constexpr const char* kCounts[] = {"Count0", "Count1"};
constexpr const char* kKeys[] = {"K0", "K1"};

constexpr const char* kRules =
    R"({ConfigurationDescription: d, ConfigurationVersion: 2, AutonomousActions: [
{Description: a, Action: StopAll, ExecuteAnyTimeConditionEdgeTrue: true, Condition: "'K0' && 'Count0'"},
{Description: b, Action: StopAll, ExecuteAnyTimeConditionTrue: true, Condition: "!'K1' && 'Count1'"}]})";

/// Looks at the values that come with each action.
class Examiner : public NimbraLaunchpadResponder {
public:
    void processActions(const std::list<AutonomousAction>& actions,
                        const PersistentValues& values) override
    {
        std::string fault;
        const vo::Lock lock(mutex_);
        for (const AutonomousAction& action : actions) {
            ++hits[action.origin == "Package" ? 1 : 0];
            if (!isTrue(action.condition, values))
                fault = "they do not make true " + action.condition;
        }
        for (const int i : {0, 1}) {
            const KRValue value = values.at(kCounts[i]).second;
            const std::int64_t count = value.isValid() ? value.toInt() : 0;
            if (count < std::exchange(counts_[i], count))
                fault = "they are older than those before";
        }
        counted_.notifyAll();
        if (!fault.empty() && ++faults <= 5)
            std::cout << fault << std::endl;
    }
    void onPluginsChanged() override {}

    std::atomic<int> hits[2] = {};  ///< of rules, and of packages
    std::atomic<int> faults{0};

    /// Not for long: none comes while nothing is monitored.
    void awaitCount(int pulser, std::int64_t count)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        const vo::Lock lock(mutex_);
        while (counts_[pulser] < count && std::chrono::steady_clock::now() < end)
            counted_.waitUntil(mutex_, end);
    }

private:
    static bool isTrue(const std::string& condition, const PersistentValues& values)
    {
        ConditionNetwork network;
        ConditionCompiler compiler(network);
        for (const KRMemory::Watch& watch : compiler.add(1, condition))
            network.set(watch.tag, values.at(watch.key).second, {});
        return network.isTrue(compiler.rootOf(1));
    }

    vo::Mutex mutex_;
    vo::Condition counted_;
    std::int64_t counts_[2] VO_GUARDED_BY(mutex_) = {};
};

bool proveHits(std::chrono::seconds duration)
{
    const ConfigurationFolder folder;
    folder.write("tessel/autonomy.cfg", kRules);
    const vo::LogCapture log;
    const auto clock = vo::makeRealClock();
    vo::Application application(clock);
    const auto broker = KRBroker::create(application);
    PackageManager manager(application.session(), clock, folder.path() + "/installed");
    const std::string uuids[] = {"p", "q"};
    const std::string trigger = "    Conditions: {launchTrigger: \"'K0' && !'K1'\"}\n";
    for (const auto& uuid : uuids) {
        writeTestPackage(folder, uuid, uuid);
        folder.write(uuid + "/" + kPackageManifestFile, testManifest(uuid) + trigger);
    }
    Examiner examiner;
    NimbraLaunchpad launchpad(broker, nullptr, &examiner);
    launchpad.startMonitoringConditions();

    std::atomic<std::int64_t> counts[2] = {};
    const std::function<void(int)> jobs[] = {
        [&](int i) {
            for (int pulse = 0; pulse < kPulsesAtOnce; ++pulse) {
                broker->memory().raiseEvent(kCounts[i], std::int64_t{++counts[i]});
                broker->memory().raiseEvent(kKeys[i], 1);
                broker->memory().raiseEvent(kKeys[i], 0);
            }
            examiner.awaitCount(i, counts[i]);
        },
        [&](int) {
            for (int checks = 0; checks < kChecksAtOnce; ++checks)
                launchpad.checkConditions();
            vo::getEventLoop()->async([] {}).wait();  // no more hits than the responder takes
        },
        [&](int i) {
            manager.install(folder.path() + "/" + uuids[i]);
            examiner.awaitCount(i, counts[i] + kPulsesAtOnce);
            manager.removePkg(uuids[i]);
        },
        [&](int i) {
            examiner.awaitCount(i, counts[i] + kPulsesAtOnce);
            launchpad.stopMonitoringConditions();
            launchpad.startMonitoringConditions();
        }};
    std::atomic<int> rounds[std::size(jobs)] = {};
    std::vector<std::future<void>> done;
    for (std::size_t job = 0; job < std::size(jobs); ++job)
        for (const int i : {0, 1})
            done.push_back(std::async(std::launch::async, [&, job, i] {
                for (; clock->uptime() < duration; ++rounds[job])
                    jobs[job](i);
            }));
    done.clear();  // waits for them
    launchpad.exit();
    vo::getEventLoop()->async([] {}).wait();
    std::cout << rounds[0] * kPulsesAtOnce << " pulses, " << rounds[1] * kChecksAtOnce
              << " checks, " << rounds[2] << " installs, " << rounds[3] << " restarts; "
              << examiner.hits[0] << " hits of rules, " << examiner.hits[1] << " of packages; "
              << examiner.faults << " faults\n";
    return examiner.faults == 0 && examiner.hits[0] > 0 && examiner.hits[1] > 0;
}

}  // namespace
}  // namespace KR

int main(int argc, char** argv)
{
    return KR::proveHits(std::chrono::seconds(argc == 2 ? std::atoi(argv[1]) : 0)) ? 0 : 1;
}

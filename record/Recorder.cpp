#include "record/Recorder.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "launchpad/ConfigurationReader.h"
#include "record/RecordWriter.h"

namespace KR {

namespace {

RecordWriter::Options writerOptions(const Recorder::Options& options)
{
    static_assert(Recorder::kMinBytes == RecordRing::kMinBytes);
    if (options.bytes != 0 && options.bytes < Recorder::kMinBytes)
        throw std::invalid_argument("a recording takes " + std::to_string(Recorder::kMinBytes) +
                                    " bytes at least");
    if (options.age < vo::Duration::zero())
        throw std::invalid_argument("the age of what is recorded is negative");
    RecordWriter::Options result{options.path, options.program};
    result.limits = {options.bytes, options.age};
    return result;
}

/// As far as they can be read: what is wrong with them, the life tells that is to come.
std::vector<std::string> ruleNames(const std::string& config)
{
    std::vector<std::string> names;
    try {
        const ConfigurationReader reader([](const ConfigurationProblem&) {});
        for (const YAML::Node& node : loadConfigurationDocument(config)["AutonomousActions"])
            if (const auto rule = reader.readAction(node))
                names.push_back(rule->description);
    } catch (const std::exception&) {
        return names;
    }
    return names;
}

RunBegan runOf(const Recorder::Options& options)
{
    RunBegan run;
    std::ifstream file(options.config, std::ios::binary);
    run.config = options.config;
    run.configText = {std::istreambuf_iterator<char>(file), {}};
    run.rules = ruleNames(options.config);
    run.chains = options.chains;
    return run;
}

}  // namespace

Recorder::Recorder(EventStream& events, std::shared_ptr<vo::Clock> clock, const Options& options)
    : events_(events),
      tellsRun_(!options.config.empty()),
      writer_(std::make_unique<RecordWriter>(std::move(clock), writerOptions(options)))
{
    writer_->follow(events_);
    if (tellsRun_)
        events_.publish(runOf(options));
}

Recorder::~Recorder()
{
    close();
}

void Recorder::close()
{
    if (std::exchange(isClosed_, true))
        return;
    if (tellsRun_)
        events_.publish(RunEnded());
    events_.flush();
    writer_->close();
}

bool Recorder::isComplete() const
{
    return writer_->isComplete();
}

}  // namespace KR

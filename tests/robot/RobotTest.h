#pragma once

#include <boost/algorithm/string/trim.hpp>
#include <yaml-cpp/yaml.h>

#include "platform/kr/KeyCatalogue.h"
#include "platform/config/YamlValue.h"
#include "robot/Robot.h"
#include "robot/Space.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

/// A plugin on the simulated robot, on virtual time.
template <class Plugin>
struct RobotTest : SenseTest<Plugin> {
    template <class... Args>
    void call(const std::string& service, const std::string& method, const Args&... args)
    {
        this->platform.broker->getProxy(service)->call(method, args...);
    }
    template <class... Args>
    void world(const std::string& deed, const Args&... args)
    {
        call("KRWorld", deed, args...);
    }
    /// What "Service.method [arguments]" answers, for people; "refused" for a KRError.
    std::string ask(const std::string& call)
    {
        const auto dot = call.find('.');
        const auto blank = std::min(call.find(' '), call.size());
        std::vector<vo::Value> arguments;
        for (const auto& node : YAML::Load(call.substr(blank)))
            arguments.push_back(vo::toValue(yamlToKRValue(node)));
        try {
            const auto service = this->platform.broker->session().service(call.substr(0, dot));
            return vo::fromValue<KRValue>(
                       service.object()->call(call.substr(dot + 1, blank - dot - 1), arguments))
                .toDisplayString();
        } catch (const KRError&) {
            return "refused";
        }
    }
    /// Steps with a ";" between them: "wait SECONDS", or a call as above, and " -> " before its
    /// answer unless that is nothing.
    void play(const std::string& script)
    {
        std::vector<std::string> steps;
        boost::split(steps, script, boost::is_any_of(";"));
        for (auto& step : steps) {
            boost::trim(step);
            const auto arrow = std::min(step.find(" -> "), step.size());
            if (step.rfind("wait ", 0) == 0)
                this->platform.advance(vo::Duration(std::llround(1e6 * std::stod(&step[5]))));
            else
                EXPECT_EQ(ask(step.substr(0, arrow)),
                          arrow == step.size() ? "none" : step.substr(arrow + 4))
                    << step;
        }
    }
    /// What a key holds, for people.
    std::string data(const std::string& key)
    {
        return this->platform.memory().getData(key).toDisplayString();
    }
    /// That memory holds nothing but what its keys are described to hold.
    void expectDescribedValues()
    {
        for (const auto& key : this->platform.memory().getDataList("")) {
            const auto entry = this->platform.broker->keys().find(key);
            EXPECT_TRUE(entry && entry->description.canHold(this->platform.memory().getData(key)))
                << key << " " << data(key);
        }
    }

    Robot robot{this->platform.broker};
};

}  // namespace KR

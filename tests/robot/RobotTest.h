#pragma once

#include <boost/algorithm/string/trim.hpp>
#include <optional>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlValue.h"
#include "platform/kr/KeyCatalogue.h"
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
    void world(const std::string& method, const Args&... args)
    {
        call("KRWorld", method, args...);
    }
    /// What a step answers, for people; "refused" for a KRError. A step is "'Key'", "wait SECONDS",
    /// "Service.method [arguments]", or "method [arguments]" of the world.
    std::string ask(const std::string& step)
    {
        const auto blank = std::min(step.find(' '), step.size());
        const auto name = step.substr(0, blank);
        if (name.front() == '\'')
            return data(name.substr(1, name.size() - 2));
        const auto arguments = YAML::Load(step.substr(blank));
        if (name == "wait") {
            this->platform.advance(vo::Duration(std::llround(1e6 * arguments.as<double>())));
            return "none";
        }
        const auto dot = name.find('.');
        const auto service = dot == name.npos ? "KRWorld" : name.substr(0, dot);
        std::vector<vo::Value> values;
        for (const auto& node : arguments)
            values.push_back(vo::toValue(yamlToKRValue(node)));
        try {
            const auto object = this->platform.broker->session().service(service).object();
            return vo::fromValue<KRValue>(
                       object->call(name.substr(dot == name.npos ? 0 : dot + 1), values))
                .toDisplayString();
        } catch (const KRError&) {
            return "refused";
        }
    }
    static std::vector<std::string> steps(const std::string& script)
    {
        std::vector<std::string> all;
        boost::split(all, script, boost::is_any_of(";"));
        for (auto& step : all)
            boost::trim(step);
        return all;
    }
    /// Steps with a ";" between them, and " -> " before their answer unless that is nothing; before
    /// what was raised until then when the step is to wait.
    void play(const std::string& script)
    {
        for (const auto& step : steps(script)) {
            const auto arrow = std::min(step.find(" -> "), step.size());
            const bool asks = arrow != step.size();
            auto answer = ask(step.substr(0, arrow));
            if (asks && step.rfind("wait ", 0) == 0)
                answer = this->raised();
            EXPECT_EQ(answer.empty() ? "nothing" : answer, asks ? step.substr(arrow + 4) : "none")
                << step;
        }
    }
    void expectRefused(const std::string& calls)
    {
        for (const auto& call : steps(calls))
            EXPECT_EQ(ask(call), "refused") << call;
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

    std::optional<Robot> robot{std::in_place, this->platform.broker};
};

}  // namespace KR

#pragma once

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
    /// What a key holds, for people.
    std::string data(const std::string& key)
    {
        return this->platform.memory().getData(key).toDisplayString();
    }

    Robot robot{this->platform.broker};
};

}  // namespace KR

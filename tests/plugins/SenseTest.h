#pragma once

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <functional>
#include <map>

#include "platform/kr/KRError.h"
#include "platform/kr/KRModule.h"
#include "platform/kr/MemoryFeed.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {

inline std::vector<std::string> words(const std::string& text)
{
    std::vector<std::string> parts;
    return boost::split(parts, text, boost::is_space());
}

/// A service that answers what the test says, and notes what it is asked.
struct FakeService {
    using Answer = std::function<vo::Value()>;

    /// Methods by name, with "/1" for each parameter; they answer nothing until told otherwise,
    /// for one call ("b:1:2") or for all of a method ("b").
    FakeService(VirtualPlatform& platform, std::string serviceName, const std::string& methods)
        : session(platform.broker->session()), name(std::move(serviceName))
    {
        auto object = std::make_shared<vo::ServiceObject>(name);
        for (const auto& word : words(methods)) {
            const auto method = word.substr(0, word.find('/'));
            const auto parameters = word.size() - method.size();
            object->dynamicMethod({method, "", parameters / 2}, [=](const auto& arguments) {
                std::string call = method;
                for (const auto& argument : arguments)
                    call += ":" + vo::fromValue<KRValue>(argument).toDisplayString();
                calls += (calls.empty() ? "" : " ") + call;
                const auto& answer = answers[answers.count(call) ? call : method];
                return answer ? answer() : vo::Value();
            });
        }
        session.registerService(object);
    }
    ~FakeService() { die(); }

    void die() { session.unregisterService(name); }
    template <class T>
    void set(const std::string& method, T value)
    {
        answers[method] = [value] { return vo::toValue(value); };
    }
    void fail(const std::string& method)
    {
        answers[method] = []() -> vo::Value { throw std::runtime_error("broken"); };
    }

    vo::Session& session;
    std::string name;
    std::map<std::string, Answer> answers;
    std::string calls;  ///< with their arguments, "a b:1:2"
};

/// A test of a built-in plugin on virtual time.
template <class Plugin>
struct SenseTest : testing::Test {
    using seconds = std::chrono::seconds;
    using milliseconds = std::chrono::milliseconds;
    static constexpr vo::Duration kMoment{1};  ///< the shortest time there is

    /// Follows these data of the plugin.
    void follow(const std::string& data)
    {
        names = words(data);
        for (std::uint32_t i = 0; i < names.size(); ++i)
            platform.memory().watch(feed, {{"Launchpad/" + names[i], i}});
    }
    /// What was raised since the last call, in order: "Number=1 Text='x'".
    std::string raised()
    {
        std::vector<MemoryChange> changes;
        platform.memory().take(*feed, changes);
        std::string text;
        for (const MemoryChange& change : changes)
            text += (text.empty() ? "" : " ") + names[change.tag] + "=" +
                    (change.value.isString() ? "'" + change.value.toString() + "'"
                                             : change.value.toDisplayString());
        return text;
    }
    std::string after(vo::Duration time)
    {
        platform.advance(time);
        return raised();
    }
    /// What that time raises at its end, and nothing before.
    std::string justAfter(vo::Duration time)
    {
        EXPECT_EQ(after(time - kMoment), "");
        return after(kMoment);
    }
    /// Writes memory, has it delivered, and tells what that raised.
    std::string write(const std::string& key, const KRValue& value = 1)
    {
        platform.memory().raiseEvent(key, value);
        return after(seconds(0));
    }
    /// One after the other; operands of + come in any order.
    static std::string inTurn(std::initializer_list<std::string> steps)
    {
        std::string text;
        for (const auto& step : steps)
            text += (text.empty() || step.empty() ? "" : " ") + step;
        return text;
    }
    void make()
    {
        plugin.reset();
        plugin = KRModule::createModule<Plugin>(platform.broker);
    }
    std::string start()
    {
        write("TesselReady");
        plugin->startPlugin();
        return after(seconds(0));
    }
    std::string stop()
    {
        plugin->stopPlugin();
        return raised();
    }
    /// Of the first error, or else warning, since the last call: "warning category/label: text".
    void expectComplaint(const std::string& beginning)
    {
        std::string first = "none";
        for (const auto level : {vo::LogLevel::warning, vo::LogLevel::error}) {
            const auto lines = platform.log.lines(level);
            if (!lines.empty())
                first = vo::logLevelName(level) + (" " + lines.front());
        }
        platform.log.clear();
        EXPECT_THAT(first, testing::StartsWith(beginning));
    }

    VirtualPlatform platform;
    boost::shared_ptr<Plugin> plugin;
    std::vector<std::string> names;
    std::shared_ptr<MemoryFeed> feed = std::make_shared<MemoryFeed>([] {});
};

}  // namespace KR

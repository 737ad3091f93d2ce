#include <boost/make_shared.hpp>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <thread>

#include "platform/kr/KRError.h"
#include "platform/vo/ServiceObject.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Plugin = NimbraLaunchpadPluginBehavior;

constexpr const char* kDescriptor = "nimbraLaunchpadPlugin.xml";

/// A behaviour manager that remembers what it was asked, and fails where the test says.
struct FakeBehaviorManager {
    std::vector<std::string> calls;
    std::string failing;  ///< method that raises an error
    bool running = false;

    std::shared_ptr<vo::ServiceObject> object()
    {
        auto object = std::make_shared<vo::ServiceObject>("KRBehaviorManager");
        const auto method = [this, &object](const std::string& name, bool runningAfter) {
            object->method(name, [this, name, runningAfter](const std::string& key) {
                note(name, key);
                running = runningAfter;
            });
        };
        method("preloadBehavior", false);
        method("startBehavior", true);
        method("stopBehavior", false);
        object->method("isBehaviorRunning", [this](const std::string&) {
            if (failing == "isBehaviorRunning")
                throw std::runtime_error("broken");
            return running;
        });
        return object;
    }
    void note(const std::string& name, const std::string& key)
    {
        calls.push_back(name + " " + key);
        if (failing == name)
            throw std::runtime_error("broken");
    }
};

struct NimbraLaunchpadPluginBehaviorTest : testing::Test {
    VirtualPlatform platform;
    FakeBehaviorManager manager;
    TemporaryFolder folder;
    vo::PackageInfo package{"pkg", folder.path()};
    vo::BehaviorInfo behavior{"senses/door"};

    void SetUp() override { platform.broker->session().registerService(manager.object()); }

    void writeDescriptor(const std::string& content)
    {
        folder.write(behavior.path() + "/" + kDescriptor, content);
    }
    boost::shared_ptr<Plugin> make()
    {
        return boost::make_shared<Plugin>(package, behavior, platform.broker);
    }
    /// The descriptor's plugin, with "<nimbraLaunchpadPlugin>" around the content.
    boost::shared_ptr<Plugin> makeOf(const std::string& content)
    {
        writeDescriptor("<nimbraLaunchpadPlugin>" + content + "</nimbraLaunchpadPlugin>");
        return make();
    }
    std::string errorOf(const std::function<void()>& action)
    {
        try {
            action();
            return "none";
        } catch (const KRError& e) {
            return e.what();
        }
    }
};

TEST_F(NimbraLaunchpadPluginBehaviorTest, only_installed_behaviours_with_a_descriptor_are_plugins)
{
    const std::map<std::pair<std::string, std::string>, bool> rows = {
        {{".lastUploadedKinetorBehavior", "a"}, false},
        {{"user_session", "a"}, false},
        {{"default_launchpad_plugins", "Timing"}, false},
        {{"default_launchpad_plugins", "timing"}, true},
        {{"pkg", "Timing"}, true}};
    for (const auto& [key, expected] : rows) {
        folder.write(key.second + "/" + kDescriptor, "");
        EXPECT_EQ(Plugin::isPlugin({key.first, folder.path()}, vo::BehaviorInfo(key.second),
                                   nullptr, nullptr),
                  expected)
            << key.first << "/" << key.second;
    }
    std::string id;
    std::string path;
    EXPECT_FALSE(Plugin::isPlugin({"pkg", "/nowhere"}, vo::BehaviorInfo("a/b"), &id, &path));
    EXPECT_EQ(id, "pkg/a/b");
    EXPECT_EQ(path, "/nowhere/a/b/nimbraLaunchpadPlugin.xml");
    EXPECT_THAT(platform.log.records(), IsEmpty());
    EXPECT_EQ(errorOf([&] { make(); }),
              "NimbraLaunchpadPlugin::getPluginGroups: senses/door is not an NimbraLaunchpad "
              "Plugin");
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, groups_and_conditions_are_read_in_order_and_untrimmed)
{
    const auto plugin = makeOf(
        "<other><group>no</group></other><groups> <group> solitary </group><x/>"
        "<group>caf\xC3\xA9</group></groups><groups><group>more</group></groups>"
        "<conditions><condition purpose='p'>'A' &amp;&amp; 'B' &lt; 3 &amp; &amp; x</condition>"
        "<condition purpose='p'><![CDATA['C' && 'D']]></condition></conditions>");
    EXPECT_EQ(plugin->getPluginName(), "pkg/senses/door");
    EXPECT_THAT(plugin->getGroups(), ElementsAre(" solitary ", "caf\xC3\xA9", "more"));
    EXPECT_THAT(plugin->getConditions("p"), ElementsAre("'A' && 'B' < 3 & & x", "'C' && 'D'"));
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, triggers_of_either_kind_or_source_replace_the_groups)
{
    const std::string groups = "<groups><group>solitary</group></groups>";
    for (const std::string purpose : {"launchTrigger", "terminationTrigger"})
        EXPECT_THAT(makeOf(groups + "<conditions><condition purpose='" + purpose +
                           "'>'K'</condition></conditions>")
                        ->getGroups(),
                    ElementsAre("conditional"));
    behavior.addCondition("terminationTrigger", "'K'");
    EXPECT_THAT(makeOf(groups)->getGroups(), ElementsAre("conditional"));
}

/// A little text of entities that stand for ten of the one before.
std::string entityBomb()
{
    std::string text = "<!DOCTYPE d [<!ENTITY e0 'boom'>";
    for (int i = 1; i < 20; ++i) {
        text += "<!ENTITY e" + std::to_string(i) + " '";
        for (int k = 0; k < 10; ++k)
            text += "&e" + std::to_string(i - 1) + ";";
        text += "'>";
    }
    return text + "]><nimbraLaunchpadPlugin>&e19;</nimbraLaunchpadPlugin>";
}

std::string nested(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text = "<a>" + text + "</a>";
    return text;
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, bad_descriptors_are_refused_after_logging_the_place)
{
    struct Row {
        const char* what;
        std::string document;
        const char* place;
    };
    for (const auto& row : std::vector<Row>{
             {"empty", "", "1:0"},
             {"truncated", "<nimbraLaunchpadPlugin>\n <groups>", "2:9"},
             {"not UTF-8", "<nimbraLaunchpadPlugin>\xFF\xFE</nimbraLaunchpadPlugin>", "1:"},
             {"unknown encoding", "<?xml version='1.0' encoding='klingon'?><a/>", "1:"},
             {"entity bomb", entityBomb(), "1:"},
             {"too deep", nested(33), "1:"},
             {"far too deep", nested(9000), "1:"},
             {"50 MB", std::string(50 * 1024 * 1024, ' '), "0:0"}}) {
        SCOPED_TRACE(row.what);
        platform.log.clear();
        writeDescriptor(row.document);
        EXPECT_EQ(errorOf([&] { make(); }), "NimbraLaunchpadPlugin::_loadInfo: parse error");
        EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                    ElementsAre(testing::StartsWith(
                        std::string("NimbraLaunchpadPluginBehavior/_loadInfo: Syntax error ") +
                        row.place)));
    }
    writeDescriptor(nested(32));
    EXPECT_NO_THROW(make());
    writeDescriptor("<Other><groups><group>g</group></groups></Other>");
    EXPECT_THAT(make()->getGroups(), IsEmpty());
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, external_entities_are_never_read)
{
    folder.write("secret", "secret");
    writeDescriptor("<!DOCTYPE d [<!ENTITY x SYSTEM \"file://" + folder.path() +
                    "/secret\">]><nimbraLaunchpadPlugin><groups><group>a&x;b</group></groups>"
                    "</nimbraLaunchpadPlugin>");
    EXPECT_THAT(make()->getGroups(), ElementsAre("ab"));
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, starts_stops_and_follows_the_behaviour)
{
    const auto plugin = makeOf("");
    plugin->startPlugin();
    plugin->startPlugin();
    EXPECT_TRUE(plugin->isPluginRunning());
    manager.running = false;  // it ended by itself
    EXPECT_FALSE(plugin->isPluginRunning());
    plugin->startPlugin();
    plugin->stopPlugin();
    const std::string key = " pkg/senses/door";
    EXPECT_THAT(manager.calls,
                ElementsAre("preloadBehavior" + key, "startBehavior" + key, "preloadBehavior" + key,
                            "startBehavior" + key, "stopBehavior" + key));
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, manager_failures_are_reported_in_the_plugins_words)
{
    const auto plugin = makeOf("");
    for (const auto* method : {"preloadBehavior", "startBehavior"}) {
        manager.failing = method;
        manager.calls.clear();
        EXPECT_EQ(errorOf([&] { plugin->startPlugin(); }),
                  "NimbraLaunchpadPlugin::start: Could not start Launchpad Plugin: broken");
        EXPECT_NE(manager.calls.back(), "stopBehavior pkg/senses/door");
        platform.runPending();
        EXPECT_EQ(manager.calls.back(), "stopBehavior pkg/senses/door");
    }
    manager.failing = "stopBehavior";
    manager.running = true;
    EXPECT_EQ(errorOf([&] { plugin->stopPlugin(); }),
              "NimbraLaunchpadPlugin::stop: Could not stop Launchpad Plugin: broken");
    manager.failing = "isBehaviorRunning";
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_EQ(platform.log.lines(vo::LogLevel::error).back(),
              "NimbraLaunchpadPluginBehavior/_isPluginRunning: Could not check behavior status: "
              "broken");
}

/// Real threads: that the constructor waits shows only when another thread ends its wait.
TEST(NimbraLaunchpadPluginBehaviorSetup, waits_for_the_behaviour_manager)
{
    VirtualPlatform platform;
    TemporaryFolder folder;
    FakeBehaviorManager manager;
    folder.write(std::string("b/") + kDescriptor, "<nimbraLaunchpadPlugin/>");
    std::thread late([&] { platform.broker->session().registerService(manager.object()); });
    Plugin plugin({"pkg", folder.path()}, vo::BehaviorInfo("b"), platform.broker);
    late.join();
    EXPECT_EQ(plugin.getPluginName(), "pkg/b");
}

}  // namespace
}  // namespace KR

#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/make_shared.hpp>

#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "plugins/PluginDescriptor.h"
#include "tests/plugins/SenseTest.h"
#include "tests/support/TemporaryFolder.h"

namespace KR {
namespace {

using Plugin = NimbraLaunchpadPluginBehavior;

constexpr const char* kDescriptor = "nimbraLaunchpadPlugin.xml";
constexpr const char* kMethods =
    "preloadBehavior/1 startBehavior/1 stopBehavior/1 isBehaviorRunning/1";

struct NimbraLaunchpadPluginBehaviorTest : testing::Test {
    VirtualPlatform platform;
    FakeService manager{platform, "KRBehaviorManager", kMethods};
    TemporaryFolder folder;
    vo::PackageInfo package{"pkg", folder.path()};
    vo::BehaviorInfo behavior{"senses/door"};

    void SetUp() override { manager.set("isBehaviorRunning", false); }
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
    /// What the manager was told since the last call, of the one behaviour; its queries left out.
    std::string told()
    {
        std::string calls = std::exchange(manager.calls, "") + " ";
        boost::erase_all(calls, "isBehaviorRunning:\"pkg/senses/door\" ");
        boost::erase_all(calls, "Behavior:\"pkg/senses/door\"");
        return calls;
    }
};

TEST_F(NimbraLaunchpadPluginBehaviorTest, only_installed_behaviours_with_a_descriptor_are_plugins)
{
    std::vector<std::tuple<const char*, std::string, bool>> rows = {
        {".lastUploadedKinetorBehavior", "a", false},
        {"user_session", "a", false},
        {"default_launchpad_plugins", "timing", true},
        {"pkg", "Timing", true}};
    for (const char* builtIn : {"PerceptionHeavy", "Posture", "Battery", "HardwareInfo",
                                "Temperature", "Timing", "Activities"})
        rows.emplace_back("default_launchpad_plugins", builtIn, false);
    for (const auto& [uuid, path, expected] : rows) {
        folder.write(path + "/" + kDescriptor, "");
        const vo::BehaviorInfo info(path);
        EXPECT_EQ(Plugin::isPlugin({uuid, folder.path()}, info, nullptr, nullptr), expected)
            << uuid;
    }
    std::string id;
    std::string path;
    EXPECT_FALSE(Plugin::isPlugin({"pkg", "/nowhere"}, vo::BehaviorInfo("a/b"), &id, &path));
    EXPECT_EQ(id, "pkg/a/b");
    EXPECT_EQ(path, "/nowhere/a/b/nimbraLaunchpadPlugin.xml");
    EXPECT_FALSE(Plugin::isPlugin({"user_session", ""}, vo::BehaviorInfo("c"), &id, &path));
    EXPECT_EQ(id, "pkg/a/b") << "which is told of none of those";
    EXPECT_THAT(platform.log.records(), IsEmpty());
    EXPECT_EQ(errorOf<KRError>([&] { make(); }),
              "NimbraLaunchpadPlugin::getPluginGroups: senses/door is not an NimbraLaunchpad "
              "Plugin");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    EXPECT_FALSE(Plugin::isPlugin({"pkg", ""}, vo::BehaviorInfo("Timing"), nullptr, nullptr));
    std::filesystem::current_path(before);
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                ElementsAre("NimbraLaunchpadPluginBehavior/isPlugin: Found bad plugin path: "
                            "'pkg/Timing' In package UUID: pkg"));
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, groups_and_conditions_are_read_in_order_and_untrimmed)
{
    const auto plugin = makeOf(
        "<other><group>no</group></other><x:y/><x:groups><group>no</group></x:groups>"
        "<groups> <group x:y='z'> solitary </group><x/>"
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

std::string repeated(int times, const std::string& text)
{
    return boost::join(std::vector<std::string>(static_cast<std::size_t>(times), text), "");
}

/// A little text of entities that stand for ten of the one before.
std::string entityBomb()
{
    std::string text = "<!DOCTYPE d [<!ENTITY e0 'boom'>";
    for (int i = 1; i < 20; ++i)
        text += "<!ENTITY e" + std::to_string(i) + " '" +
                repeated(10, "&e" + std::to_string(i - 1) + ";") + "'>";
    return text + "]><nimbraLaunchpadPlugin>&e19;</nimbraLaunchpadPlugin>";
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, bad_descriptors_are_refused_after_logging_the_place)
{
    const auto nested = [](int depth) { return repeated(depth, "<a>") + repeated(depth, "</a>"); };
    std::string longest = nested(PluginDescriptor::kMaxDepth);
    longest.resize(PluginDescriptor::kMaxBytes, ' ');
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"empty", "", "1:0"},
        {"truncated", "<nimbraLaunchpadPlugin>\n <groups>", "2:9"},
        {"not UTF-8", "<nimbraLaunchpadPlugin>\xFF\xFE</nimbraLaunchpadPlugin>", "1:"},
        {"unknown encoding", "<?xml version='1.0' encoding='klingon'?><a/>", "1:"},
        {"entity bomb", entityBomb(), "1:"},
        {"too deep", nested(PluginDescriptor::kMaxDepth + 1), "1:"},
        {"far too deep", nested(9000), "1:"},
        {"too large", longest + " ", "0:0"}};
    for (const auto& [what, document, place] : rows) {
        SCOPED_TRACE(what);
        platform.log.clear();
        writeDescriptor(document);
        EXPECT_EQ(errorOf<KRError>([&] { make(); }),
                  "NimbraLaunchpadPlugin::_loadInfo: parse error");
        EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                    ElementsAre(testing::StartsWith(
                        "NimbraLaunchpadPluginBehavior/_loadInfo: Syntax error " + place)));
    }
    for (const auto& other :
         {longest, std::string("<Other><groups><group>g</group></groups></Other>")}) {
        writeDescriptor(other);
        EXPECT_THAT(make()->getGroups(), IsEmpty());
    }
    folder.write("secret", "secret");  // which no entity brings in
    writeDescriptor("<!DOCTYPE d [<!ENTITY x SYSTEM \"file://" + folder.path() +
                    "/secret\">]><nimbraLaunchpadPlugin><groups><group>a&x;b</group></groups>"
                    "</nimbraLaunchpadPlugin>");
    EXPECT_THAT(make()->getGroups(), ElementsAre("ab"));
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, starts_stops_and_follows_the_behaviour)
{
    const auto plugin = makeOf("");
    plugin->startPlugin();
    manager.set("isBehaviorRunning", true);
    plugin->startPlugin();
    EXPECT_TRUE(plugin->isPluginRunning());
    EXPECT_EQ(told(), "preload start ");
    manager.set("isBehaviorRunning", false);  // it ended by itself
    EXPECT_FALSE(plugin->isPluginRunning());
    plugin->startPlugin();
    manager.set("isBehaviorRunning", true);
    plugin->stopPlugin();
    EXPECT_EQ(told(), "preload start stop ");
}

TEST_F(NimbraLaunchpadPluginBehaviorTest, manager_failures_are_reported_in_the_plugins_words)
{
    const auto plugin = makeOf("");
    const std::pair<const char*, const char*> rows[] = {{"startBehavior", "preload start "},
                                                        {"preloadBehavior", "preload "}};
    for (const auto& [method, calls] : rows) {
        manager.fail(method);
        EXPECT_EQ(errorOf<KRError>([&] { plugin->startPlugin(); }),
                  "NimbraLaunchpadPlugin::start: Could not start Launchpad Plugin: broken");
        EXPECT_EQ(told(), calls);
        platform.runPending();
        EXPECT_EQ(told(), "stop ");
    }
    manager.fail("stopBehavior");
    manager.set("isBehaviorRunning", true);
    EXPECT_EQ(errorOf<KRError>([&] { plugin->stopPlugin(); }),
              "NimbraLaunchpadPlugin::stop: Could not stop Launchpad Plugin: broken");
    manager.fail("isBehaviorRunning");
    EXPECT_FALSE(plugin->isPluginRunning());
    EXPECT_EQ(platform.log.lines(vo::LogLevel::error).back(),
              "NimbraLaunchpadPluginBehavior/_isPluginRunning: Could not check behavior status: "
              "broken");
}

}  // namespace
}  // namespace KR

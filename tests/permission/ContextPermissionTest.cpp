#include <string>
#include <vector>

#include "permission/ContextPermission.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/ServiceObject.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using testing::UnorderedElementsAre;

using Names = std::vector<std::string>;

constexpr const char* kState = "Nimbra/State";
constexpr const char* kAsleep = "Nimbra/Asleep";
constexpr const char* kOnPod = "KRBattery/ConnectedToChargingStation";

/// Refreshes the cache, as hosts do: no lock may be held while it is called.
struct Host : ContextPermissionResponder {
    void onContextChanged() override
    {
        ++changes;
        permission->refreshBehaviorsPermissions();
    }
    ContextPermission* permission = nullptr;
    int changes = 0;
};

vo::BehaviorInfo behavior(const std::string& path, const std::string& nature = "",
                          const Names& permissions = {})
{
    vo::BehaviorInfo info(path);
    info.setNature(nature);
    for (const auto& name : permissions)
        info.addPermission(name);
    info.setUserRequestable(true);
    return info;
}

vo::PackageInfo package(const std::string& uuid, const Names& languages = {})
{
    vo::PackageInfo info(uuid, "/nowhere");
    for (const auto& language : languages)
        info.addSupportedLanguage(language);
    return info;
}

struct ContextPermissionTest : testing::Test {
    VirtualPlatform platform;
    vo::Session& session = platform.application.session();
    vo::Property<std::string> language{"English"};
    BehaviorsCache behaviors;
    Host host;
    ContextPermission permission{(addSpeech(), platform.broker), &behaviors, &host};

    ContextPermissionTest() { host.permission = &permission; }
    ~ContextPermissionTest() override { session.unregisterService("KRTextToSpeech"); }

    void addSpeech()
    {
        platform.addService("KRTextToSpeech", "locale", [this] { return language.get(); })
            ->property("languageTTS", language);
    }
    void set(const std::string& key, const KRValue& value)
    {
        platform.memory().raiseEvent(key, value);
        platform.runPending();
    }
    /// A context in which everything may run.
    void connect()
    {
        set(kState, "solitary");
        set(kAsleep, false);
        set(kOnPod, false);
        permission.connectSignals();
        platform.runPending();
    }
    std::vector<std::string> errors() { return platform.log.lines(vo::LogLevel::error); }
};

TEST_F(ContextPermissionTest, verdict_depends_on_context_nature_permissions_language_and_prefix)
{
    platform.addService("broken", "getPermissions",
                        []() -> Names { throw std::runtime_error("no idea"); });
    platform.addService("mover", "getPermissions", [] { return Names{"canRunInSleep", "other"}; });
    connect();
    const Names both{"canRunOnPod", "canRunInSleep"};
    permission.onBehaviorsInstalled(
        package("any"),
        {behavior("plain"), behavior("solitary", "solitary"), behavior("pod", "", {"canRunOnPod"}),
         behavior("sleep", "solitary", {"canRunInSleep"}), behavior("both", "solitary", both)});
    permission.onBehaviorsInstalled(package("polyglot", {"French", "English"}), {behavior("b")});
    permission.onBehaviorsInstalled(package("french", {"French"}), {behavior("b", "solitary")});
    permission.onBehaviorsInstalled(package("prefix", {"Eng"}), {behavior("b", "", both)});

    const Names all{"language", "nature", "canRunOnPod", "canRunInSleep"};
    const KRValue none;
    const struct {
        const char* what;
        KRValue state, onPod, asleep;
        const char* activity;
        Names expected;
    } rows[] = {
        {"solitary in solitary", "solitary", false, false, "any/solitary", {}},
        {"solitary when interactive", "interactive", false, false, "any/solitary", {"nature"}},
        {"disabled refuses all", "disabled", false, false, "any/plain", {"nature"}},
        {"safeguard refuses all", "safeguard", false, false, "any/both", {"nature"}},
        {"no state", none, false, false, "any/solitary", {}},
        {"on the pod", "solitary", true, 0, "polyglot/b", {"canRunOnPod"}},
        {"on the pod by int", "solitary", 1, 0, "any/sleep", {"canRunOnPod"}},
        {"floats and texts are no flags", "solitary", 1.0, "true", "any/plain", {}},
        {"nothing known of pod and sleep", "solitary", none, none, "any/plain", {}},
        {"asleep by negative int", "solitary", false, -1, "any/pod", {"canRunInSleep"}},
        {"another language", "solitary", false, false, "french/b", {"language"}},
        {"language is compared whole", "solitary", true, true, "prefix/b", {"language"}},
        {"every reason, in order", "interactive", true, true, "french/b", all},
        {"dialogs always", "disabled", true, true, "dialog:any/solitary", {}},
        {"actions have no nature", "disabled", false, true, "action:mover", {}},
        {"actions lack a permission", "safeguard", 1, true, "action:mover", {"canRunOnPod"}},
        {"broken action", "solitary", true, false, "action:broken", {"error"}},
        {"no such behaviour", "solitary", false, false, "any/other", {"error"}},
        {"prefixes are whole", "solitary", false, false, "dialog", {"error"}},
    };
    for (const auto& row : rows) {
        set(kState, row.state);
        set(kOnPod, row.onPod);
        set(kAsleep, row.asleep);
        EXPECT_EQ(permission.checkPermissionViolations(row.activity), row.expected) << row.what;
    }
    EXPECT_EQ(errors().at(0),
              "Nimbra.ContextPermission/checkPermissionViolations: Will assume permissions are not "
              "ok for: action:broken because of error: no idea");
}

TEST_F(ContextPermissionTest, context_is_read_when_connected_then_followed)
{
    set(kState, "disabled");
    set(kAsleep, false);
    set(kOnPod, false);
    permission.onBehaviorsInstalled(package("p", {"French"}), {behavior("b")});
    EXPECT_THAT(permission.checkPermissionViolations("p/b"), ElementsAre("language"));
    language.set("German");
    permission.connectSignals();
    EXPECT_THAT(permission.checkPermissionViolations("p/b"), ElementsAre("language", "nature"));
    EXPECT_EQ(host.changes, 0);

    set(kState, "solitary");
    set(kState, "solitary");  // no change
    language.set("French");
    platform.runPending();
    EXPECT_EQ(host.changes, 1);
    EXPECT_THAT(permission.checkPermissionViolations("p/b"), IsEmpty());

    permission.connectSignals();  // once is enough
    set(kState, "disabled");
    EXPECT_EQ(host.changes, 2);
    permission.disconnectSignals();
    set(kState, "solitary");
    language.set("English");
    platform.runPending();
    EXPECT_EQ(host.changes, 2);
    EXPECT_THAT(permission.checkPermissionViolations("p/b"), ElementsAre("nature"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ContextPermissionTest, what_cannot_be_connected_is_logged_and_the_rest_goes_on)
{
    set(kState, "disabled");  // the other keys are never written before
    session.unregisterService("KRTextToSpeech");
    ContextPermission other(platform.broker, &behaviors, nullptr);
    other.connectSignals();
    const std::string category = "Nimbra.ContextPermission/";
    const std::string missing = "no service named 'KRTextToSpeech'";
    EXPECT_THAT(
        errors(),
        UnorderedElementsAre(
            category +
                "readLocale: Exception caught when getting current locale at init: " + missing,
            category + "connectSignals: Cannot subscribe to: " + kAsleep,
            category + "connectSignals: Cannot subscribe to: " + kOnPod,
            category + "connectSignals: Cannot connect to KRTextToSpeech.languageTTS: " + missing));
    other.onBehaviorsInstalled(package("p"), {behavior("b")});
    set(kOnPod, true);
    EXPECT_THAT(other.checkPermissionViolations("p/b"), ElementsAre("nature", "canRunOnPod"));
}

TEST_F(ContextPermissionTest, cache_keeps_what_users_may_request_and_is_published)
{
    connect();
    set(kOnPod, true);
    std::vector<ContextPermission::Violations> published;
    permission.permissions().connect([&](const ContextPermission::Violations& all) {
        published.push_back(all);
        permission.getPermissionsCache("p/asked");  // followers may call back
    });
    auto launcher = behavior("tagged", "", {"canRunOnPod"});
    launcher.setUserRequestable(false);
    launcher.addTag("French", "launcher");
    auto hidden = behavior("hidden");
    hidden.setUserRequestable(false);
    hidden.addTag("English", "launchers");
    permission.onBehaviorsInstalled(package("p"), {behavior("asked"), launcher, hidden});
    ASSERT_EQ(published.size(), 1U);
    EXPECT_THAT(published[0],
                ElementsAre(Pair("p/asked", Names{"canRunOnPod"}), Pair("p/tagged", Names{})));
    EXPECT_EQ(permission.checkPermissionViolations("p/hidden"), Names{"canRunOnPod"});
    EXPECT_THAT([&] { permission.getPermissionsCache("p/hidden"); },
                testing::ThrowsMessage<std::runtime_error>(
                    "The focused application is not user requestable"));

    set(kAsleep, 1);  // the host refreshes
    ASSERT_EQ(published.size(), 2U);
    EXPECT_EQ(published[1].at("p/asked"), (Names{"canRunOnPod", "canRunInSleep"}));
    permission.refreshBehaviorsPermissions();  // nothing differs
    permission.onBehaviorsRemoved(package("q"), {hidden});
    EXPECT_EQ(published.size(), 2U);

    permission.onBehaviorsRemoved(package("p"), {launcher});
    EXPECT_THAT(published.back(), ElementsAre(Pair("p/asked", testing::_)));
    EXPECT_EQ(permission.checkPermissionViolations("p/tagged"), Names{"error"});
}

}  // namespace
}  // namespace KR

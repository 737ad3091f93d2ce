#include <functional>

#include "permission/ContextPermission.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/ServiceObject.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using Names = std::vector<std::string>;

constexpr const char* kState = "Nimbra/State";
constexpr const char* kAsleep = "Nimbra/Asleep";
constexpr const char* kOnPod = "KRBattery/ConnectedToChargingStation";

/// Refreshes the cache, as hosts do: no lock may be held while it is called.
struct Host : ContextPermissionResponder {
    void onContextChanged() override
    {
        ++changes;
        if (permission)
            permission->refreshBehaviorsPermissions();
    }
    ContextPermission* permission = nullptr;
    int changes = 0;
};

/// A speech service, there for as long as it lives.
struct Speech {
    Speech(vo::Session& registry, const std::string& first) : session(registry), language(first)
    {
        object
            ->method("locale",
                     [this] {
                         const std::string answer = language.get();
                         if (whileAnswering)
                             std::exchange(whileAnswering, {})();
                         return answer;
                     })
            .property("languageTTS", language);
        session.registerService(object);
    }
    ~Speech()
    {
        if (!object->isClosed())
            session.unregisterService("KRTextToSpeech");
    }
    vo::Session& session;
    vo::Property<std::string> language;
    std::function<void()> whileAnswering;
    std::shared_ptr<vo::ServiceObject> object =
        std::make_shared<vo::ServiceObject>("KRTextToSpeech");
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
    std::unique_ptr<Speech> speech = std::make_unique<Speech>(session, "English");
    BehaviorsCache behaviors;
    Host host;
    ContextPermission permission{platform.broker, &behaviors, &host};

    ContextPermissionTest() { host.permission = &permission; }

    /// The languages whose behaviours may run.
    std::string spoken()
    {
        std::string all;
        for (const char* language : {"English", "French", "German"}) {
            permission.onBehaviorsInstalled(package(language, {language}), {behavior("b")});
            if (permission.checkPermissionViolations(std::string(language) + "/b").empty())
                all += language;
        }
        return all;
    }
    void set(const std::string& key, const KRValue& value)
    {
        platform.memory().raiseEvent(key, value);
        platform.runPending();
    }
    void setContext(const KRValue& state, const KRValue& onPod, const KRValue& asleep)
    {
        set(kState, state);
        set(kOnPod, onPod);
        set(kAsleep, asleep);
    }
    /// After the speech service has said its language.
    std::string spokenAfter(const std::string& language)
    {
        speech->language.set(language);
        platform.runPending();
        return spoken();
    }
    void replaceSpeech(const std::string& language)
    {
        speech.reset();
        speech = std::make_unique<Speech>(session, language);
    }
    Names errors() { return platform.log.lines(vo::LogLevel::error); }
};

TEST_F(ContextPermissionTest, verdict_depends_on_context_nature_permissions_language_and_prefix)
{
    platform.addService("broken", "getPermissions",
                        []() -> Names { throw std::runtime_error("no idea"); });
    platform.addService("mover", "getPermissions", [] { return Names{"canRunInSleep", "other"}; });
    setContext("solitary", false, false);
    permission.connectSignals();
    const Names both{"canRunOnPod", "canRunInSleep"};
    permission.onBehaviorsInstalled(
        package("any"),
        {behavior("plain"), behavior("solitary", "solitary"), behavior("social", "interactive"),
         behavior("pod", "", {"canRunOnPod"}), behavior("both", "solitary", both)});
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
        {"solitary in any other state", "", false, false, "any/solitary", {"nature"}},
        {"others when interactive", "interactive", false, false, "any/plain", {}},
        {"others in solitary", "solitary", false, false, "any/social", {}},
        {"disabled refuses all", "disabled", false, false, "any/plain", {"nature"}},
        {"safeguard does, and both permissions", "safeguard", true, true, "any/both", {"nature"}},
        {"a state that is no text", 1, false, false, "any/solitary", {}},
        {"on the pod by int", "solitary", 1, 0, "polyglot/b", {"canRunOnPod"}},
        {"floats and texts are no flags", "solitary", 1.0, "true", "any/plain", {}},
        {"each its own permission", "solitary", true, true, "any/pod", {"canRunInSleep"}},
        {"nothing known", none, none, none, "any/solitary", {}},
        {"asleep by negative int", "solitary", false, -1, "any/pod", {"canRunInSleep"}},
        {"another language", "solitary", false, false, "french/b", {"language"}},
        {"language is compared whole", "solitary", true, true, "prefix/b", {"language"}},
        {"every reason, in order", "interactive", true, true, "french/b", all},
        {"dialogs always", "disabled", true, true, "dialog:any/solitary", {}},
        {"actions have no nature", "safeguard", 1, true, "action:mover", {"canRunOnPod"}},
        {"broken action", "solitary", true, false, "action:broken", {"error"}},
        {"no such behaviour", "solitary", false, false, "any/other", {"error"}},
        {"prefixes are whole", "solitary", false, false, "dialog", {"error"}},
    };
    for (const auto& row : rows) {
        setContext(row.state, row.onPod, row.asleep);
        EXPECT_EQ(permission.checkPermissionViolations(row.activity), row.expected) << row.what;
    }
    EXPECT_EQ(errors().at(0),
              "Nimbra.ContextPermission/checkPermissionViolations: Will assume permissions are not "
              "ok for: action:broken because of error: no idea");
}

TEST_F(ContextPermissionTest, context_is_read_when_connected_then_followed_until_disconnected)
{
    const auto violations = [this] { return permission.checkPermissionViolations("p/b"); };
    setContext("disabled", true, true);
    permission.onBehaviorsInstalled(package("p"), {behavior("b")});
    EXPECT_THAT(violations(), IsEmpty());
    permission.connectSignals();
    EXPECT_THAT(violations(), ElementsAre("nature", "canRunOnPod", "canRunInSleep"));
    EXPECT_EQ(host.changes, 0);
    for (const char* key : {kState, kAsleep, kOnPod})
        EXPECT_THAT(platform.broker->keys().find(key)->readers, Contains("ContextPermission"));

    set(kState, "solitary");  // which is no change afterwards
    setContext("solitary", 0, false);
    EXPECT_EQ(host.changes, 3);
    EXPECT_THAT(violations(), IsEmpty());

    permission.connectSignals();  // once is enough
    set(kState, "disabled");
    EXPECT_EQ(host.changes, 4);
    Host other;
    ContextPermission(platform.broker, &behaviors, &other).connectSignals();  // and it is gone
    replaceSpeech("English");
    permission.disconnectSignals();
    setContext(1, 1, 1);
    EXPECT_EQ(host.changes + other.changes, 4);
    EXPECT_THAT(violations(), ElementsAre("nature"));
    permission.connectSignals();  // again
    EXPECT_THAT(violations(), ElementsAre("canRunOnPod", "canRunInSleep"));
    set(kAsleep, false);
    EXPECT_THAT(violations(), ElementsAre("canRunOnPod"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THROW(ContextPermission({}, &behaviors, nullptr), std::invalid_argument);
}

TEST_F(ContextPermissionTest, language_is_the_latest_of_the_speech_service_that_is_there)
{
    EXPECT_EQ(spokenAfter("German"), "English");
    permission.connectSignals();
    EXPECT_EQ(spoken(), "German");
    // What it answers is the one before.
    speech->whileAnswering = [this] { EXPECT_EQ(spokenAfter("French"), "French"); };
    permission.connectSignals();
    EXPECT_EQ(spoken(), "French");

    replaceSpeech("English");
    EXPECT_EQ(spoken(), "English");
    EXPECT_EQ(spokenAfter("French"), "French");
    const auto old = std::move(speech);
    old->whileAnswering = [this] {
        session.unregisterService("KRTextToSpeech");
        replaceSpeech("German");
    };
    permission.connectSignals();
    EXPECT_EQ(spoken(), "German");
    ASSERT_TRUE(speech);

    permission.disconnectSignals();
    EXPECT_EQ(spokenAfter("English"), "German");
    replaceSpeech("English");
    EXPECT_EQ(spoken(), "German");
    EXPECT_THAT(errors(), testing::Each(HasSubstr("Cannot subscribe to: ")));
}

TEST_F(ContextPermissionTest, what_cannot_be_connected_is_logged_and_the_rest_goes_on)
{
    set(kState, "disabled");  // the other keys are never written before
    speech.reset();
    ContextPermission other(platform.broker, &behaviors, nullptr);
    other.connectSignals();
    const std::string connect = "Nimbra.ContextPermission/connectSignals: Cannot ";
    const std::string missing = "no service named 'KRTextToSpeech'";
    EXPECT_THAT(
        errors(),
        ElementsAre("Nimbra.ContextPermission/readLocale: Exception caught when getting "
                    "current locale at init: " +
                        missing,
                    connect + "subscribe to: " + kAsleep, connect + "subscribe to: " + kOnPod,
                    connect + "connect to KRTextToSpeech.languageTTS: " + missing));
    other.onBehaviorsInstalled(package("p", {"German"}), {behavior("b")});
    set(kOnPod, true);
    EXPECT_THAT(other.checkPermissionViolations("p/b"),
                ElementsAre("language", "nature", "canRunOnPod"));
    speech = std::make_unique<Speech>(session, "German");  // it comes after all
    EXPECT_THAT(other.checkPermissionViolations("p/b"), ElementsAre("nature", "canRunOnPod"));

    platform.log.clear();
    speech.reset();
    const auto mute = platform.addService("KRTextToSpeech", "say", [] {});
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("has no property 'languageTTS'")));
    EXPECT_EQ(ContextPermission(platform.broker, nullptr, nullptr).checkPermissionViolations("p/b"),
              Names{"error"});
    EXPECT_THAT(errors(), Contains(HasSubstr("because of error: This object is null")));
}

TEST_F(ContextPermissionTest, cache_keeps_what_users_may_request_and_is_published)
{
    setContext("solitary", true, false);
    permission.connectSignals();
    std::vector<ContextPermission::Violations> published;
    const vo::Connection follower =
        permission.permissions().connect([&](const ContextPermission::Violations& all) {
            published.push_back(all);
            permission.getPermissionsCache("p/asked");  // followers may call back
        });
    auto launcher = behavior("tagged", "", {"canRunOnPod", "canRunInSleep"});
    launcher.setUserRequestable(false);
    for (const char* language : {"English", "French", "German"})
        launcher.addTag(language, "games");
    launcher.addTag("French", "launcher");
    auto hidden = behavior("hidden");
    hidden.setUserRequestable(false);
    hidden.addTag("English", "launchers");
    permission.onBehaviorsInstalled(package("p"), {behavior("asked"), hidden, launcher});
    ASSERT_EQ(published.size(), 1U);
    EXPECT_THAT(published[0],
                ElementsAre(Pair("p/asked", Names{"canRunOnPod"}), Pair("p/tagged", Names{})));
    EXPECT_EQ(permission.checkPermissionViolations("p/hidden"), Names{"canRunOnPod"});
    EXPECT_THAT([&] { permission.getPermissionsCache("p/hidden"); },
                testing::ThrowsMessage<std::runtime_error>(
                    "The focused application is not user requestable"));

    host.permission = nullptr;  // who refreshes at each change
    setContext("solitary", false, 1);
    permission.refreshBehaviorsPermissions();
    ASSERT_EQ(published.size(), 2U);
    EXPECT_EQ(published[1].at("p/asked"), Names{"canRunInSleep"});
    EXPECT_EQ(permission.getPermissionsCache("p/asked"), published[1].at("p/asked"));
    permission.refreshBehaviorsPermissions();  // nothing differs
    permission.onBehaviorsRemoved(package("q"), {hidden});
    EXPECT_EQ(published.size(), 2U);

    permission.onBehaviorsRemoved(package("p"), {launcher, hidden});
    EXPECT_THAT(published.back(), ElementsAre(Pair("p/asked", testing::_)));
    for (const char* activity : {"p/tagged", "p/hidden"})
        EXPECT_EQ(permission.checkPermissionViolations(activity), Names{"error"});

    // A change that a follower makes is published after the one that it is told of.
    const vo::Connection nesting = permission.permissions().connect(
        [&](const auto&) { permission.onBehaviorsInstalled(package("r"), {behavior("nested")}); });
    permission.onBehaviorsRemoved(package("p"), {behavior("asked")});
    EXPECT_THAT(permission.permissions().get(), ElementsAre(Pair("r/nested", testing::_)));
}

}  // namespace
}  // namespace KR

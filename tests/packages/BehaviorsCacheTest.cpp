#include "platform/packages/BehaviorsCache.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

TEST(BehaviorsCacheTest, knows_what_it_was_told_last_of_each_behaviour)
{
    BehaviorsCache cache;
    vo::PackageInfo package("p", "/p");
    vo::PackageInfo other("q", "/q");
    other.addSupportedLanguage("French");
    other.addSupportedLanguage("English");
    for (const char* key : {"p/a", "p/b"})
        cache.onBehaviorInstalled(key, package, vo::BehaviorInfo(key));
    cache.onBehaviorInstalled("p/b", other, vo::BehaviorInfo("new"));
    cache.onBehaviorRemoved("p/c");
    EXPECT_EQ(cache.getBehaviorInfo("p/a").path(), "p/a");
    EXPECT_THAT(cache.packageSupportedLanguages("p/a"), IsEmpty());
    EXPECT_EQ(cache.getBehaviorInfo("p/b").path(), "new");
    EXPECT_THAT(cache.packageSupportedLanguages("p/b"), ElementsAre("French", "English"));
    cache.onBehaviorRemoved("p/a");
    EXPECT_EQ(errorOf([&] { cache.getBehaviorInfo("p/a"); }), "no behaviour 'p/a' is installed");
    EXPECT_THROW(cache.packageSupportedLanguages("p/a"), std::exception);
    EXPECT_EQ(cache.getBehaviorInfo("p/b").path(), "new");
}

TEST(BehaviorsCacheTest, prefixes_are_those_at_the_beginning)
{
    for (const char* activity : {"dialog:", "dialog:x", "action:x"})
        EXPECT_TRUE(BehaviorsCache::hasActivityPrefixes({"dialog:", "action:"}, activity));
    for (const char* activity : {"dialog", "x/dialog:", "p/a", ""})
        EXPECT_FALSE(BehaviorsCache::hasActivityPrefixes({"dialog:", "action:"}, activity));
    EXPECT_EQ(BehaviorsCache::stripActivityPrefix("action:", "action:action:x"), "action:x");
    EXPECT_EQ(BehaviorsCache::stripActivityPrefix("action:", "dialog:x"), "dialog:x");
}

}  // namespace
}  // namespace KR

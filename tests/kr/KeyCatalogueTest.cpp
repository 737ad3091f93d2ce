#include "platform/kr/KeyCatalogue.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using Key = KeyDescription;

TEST(KeyCatalogue, KnowsWhatKeysHoldAndWhoPublishesAndReadsThem)
{
    KeyCatalogue keys;
    keys.addRead("B", "reader");
    for (const char* publisher : {"p", "q"})
        keys.addPublished(Key::text("B", publisher).oneOf({"a", "b", "c"}), publisher);
    keys.addPublished(Key::integer("A/*/z", "pattern").between(1, 5), "p");
    keys.addRead("B", "another");
    const auto meaningOf = [&](const std::string& key) {
        const auto entry = keys.find(key);
        return entry ? entry->description.meaning : "none";
    };
    EXPECT_EQ(meaningOf("B"), "p") << "as the first one says";
    EXPECT_EQ(keys.find("B")->description.describeValues(), "text, \"a\", \"b\" or \"c\"");
    EXPECT_THAT(keys.find("B")->publishers, ElementsAre("p", "q"));
    EXPECT_THAT(keys.find("B")->readers, ElementsAre("another", "reader"));
    EXPECT_EQ(keys.entries().at(0).description.key, "A/*/z");
    for (const char* key : {"A//z", "A/x/y/z"})
        EXPECT_EQ(meaningOf(key), "pattern") << key;
    for (const char* key : {"A/z", "A/x/zz", "BA/x/z", "C", ""})
        EXPECT_EQ(meaningOf(key), "none") << key;
    const std::pair<KRValue, bool> values[] = {{0, false}, {1, true}, {5.0, true}, {6, false}};
    for (const auto& [value, held] : values)
        EXPECT_EQ(keys.find("A//z")->description.canHold(value), held) << value;
}

}  // namespace
}  // namespace KR

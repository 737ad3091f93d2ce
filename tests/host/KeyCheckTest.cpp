#include <gmock/gmock.h>

#include "host/KeyCheck.h"

namespace KR {
namespace {

using testing::MatchesRegex;

TEST(KeyCheckTest, doubtsWhatNobodyPublishesAndWhatAKeyNeverHolds)
{
    KeyCatalogue keys;
    keys.addPublished(KeyDescription::integer("Level", "").between(1, 5).emptyAs(-1), "p");
    keys.addPublished(KeyDescription::text("Status", "").oneOf({"Low", "Full"}).emptyAs("None"),
                      "p");
    keys.addPublished(KeyDescription::boolean("Asleep", ""), "p");
    keys.addPublished(KeyDescription::number("Distance", "").atLeast(-1), "p");
    keys.addPublished(KeyDescription::text("Count/*/x", ""), "p");
    keys.addRead("Read", "p");
    struct Row {
        const char* condition;
        std::vector<std::string> doubts;
    };
    const Row rows[] = {
        {"'Level' == 5 || 'Level' == -1 || 'Level' > 4 || 'Level' < 0", {}},
        {"'Status' == \"None\" && 'Status' != \"Low\" || 'Count/a/x' == \"b\"", {}},
        {"'Asleep' == 1 && !'Asleep' && 'Distance' < 0.5 && 'Distance' == 2", {}},
        {"'Status' == \"low\"", {"'Status' is never \"low\": it is text, \"Low\" or \"Full\""}},
        {"'Level' == 6 && 3 == 'Level' && 6 == 'Level'", {"'Level' is never 6: .*1 to 5"}},
        {"'Level' == 2.5 && 'Level' == \"2\"",
         {"'Level' is never 2.5.*", "'Level' is never \"2.*"}},
        {"'Level' > 5 || 6 <= 'Level'",
         {"'Level' is never more than 5.*", "'Level' is never as much as 6.*"}},
        {"'Distance' < -1 && 'Asleep' == 2",
         {"'Distance' is never less than -1.*", "'Asleep' is never 2: it is boolean"}},
        {"!('Levl' == 9) && 'Read'",
         {"nobody publishes 'Levl'; did you mean 'Level'\\?", "nobody publishes 'Read'"}},
    };
    for (const Row& row : rows) {
        std::vector<std::string> texts;
        for (const KeyDoubt& doubt : keyDoubts(parseCondition(row.condition), keys))
            texts.push_back(doubt.text);
        ASSERT_EQ(texts.size(), row.doubts.size()) << row.condition;
        for (std::size_t i = 0; i < texts.size(); ++i)
            EXPECT_THAT(texts[i], MatchesRegex(row.doubts[i])) << row.condition;
    }
}

}  // namespace
}  // namespace KR

#include <gmock/gmock.h>

#include "host/KeyCheck.h"
#include "host/KnownRobot.h"
#include "host/Nearest.h"

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
    keys.addPublished({"Any"}, "p");
    keys.addPublished(KeyDescription::boolean("Flag", "").emptyAs(-1), "p");
    keys.addRead("Read", "p");
    struct Row {
        const char* condition;
        std::vector<std::string> doubts;
    };
    const Row rows[] = {
        {"'Level' == 5 || 'Level' == -1 || 'Level' > 4 || 'Level' < 0", {}},
        {"5 <= 'Level' && -1 >= 'Level' && 4 < 'Level' && 0 > 'Level'", {}},
        {"'Status' == \"None\" && 'Status' != \"Low\" || 'Count/a/x' == \"b\"", {}},
        {"'Asleep' == 1 && !'Asleep' && 'Distance' < 0.5 && 'Distance' == 2", {}},
        {"'Asleep' > false && true > 'Asleep' && 'Distance' <= -1 && 'Distance' > 1e9", {}},
        {"'Status' < \"M\" && 'Any' < 3 && 'Any' == \"x\" && 'Flag' > -2 && 'Level' == 'Status'",
         {}},
        {"'Status' < 3 || 'Level' > \"a\"",
         {"'Status' is never less than 3: .*", "'Level' is never more than \"a\".*"}},
        {"'Asleep' < 0 || 'Asleep' > true || 'Flag' < -1",
         {"'Asleep' is never less than 0.*", "'Asleep' is never more than true.*",
          "'Flag' is never less than -1.*"}},
        {"6 < 'Level' || -2 >= 'Level'",
         {"'Level' is never more than 6.*", "'Level' is never as little as -2.*"}},
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

TEST(NearestTest, NearIsWhatAFewSlipsMakeOfAText)
{
    struct Row {
        const char* text;
        std::vector<std::string> candidates;
        const char* nearest;
    };
    const Row rows[] = {
        {"Reason", {"Raeson", "Reasons", "Season"}, "Reasons"},  // the first of the nearest
        {"Resaon", {"Activity", "Reason"}, "Reason"},
        {"Reason", {"son", "Read", "Reaction"}, ""},
        {"Reason", {"Reas", "Riason"}, "Riason"},
        {"elevenbytes1234", {"elevenbytes1999"}, "elevenbytes1999"},
        {"elevenbytes123", {"elevenbytes999"}, ""},
        {"a rule of twenty-five byte",
         {"b sule of twenty-five cyre"},
         "b sule of twenty-five cyre"},
        {"a rule of twenty-five byt", {"b sule og twenty-four cyt"}, ""},
        {"ab", {"b", "xy"}, "b"},
        {"a", {"b", ""}, ""},
        {"", {"a"}, ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(nearestText(row.text, row.candidates), row.nearest) << row.text;
    EXPECT_EQ(didYouMean("Flag", {"Force", "Flags"}), "; did you mean 'Flags'?");
    EXPECT_EQ(didYouMean("Flag", {}), "");
    const std::string longest(200, 'x');
    EXPECT_EQ(nearestText(longest, {longest + "y"}), longest + "y");
    EXPECT_EQ(nearestText(longest + "y", {longest}), "");
}

TEST(KnownRobotTest, KnowsWhatAddedPluginsPublishAndWhoReads)
{
    KnownRobot robot;
    robot.addReader("Launchpad/NumPeopleZone1", "rules");
    robot.addReader("Nobody/Has", "rules");
    EXPECT_TRUE(robot.keys().find("Launchpad/DistanceOfTrackedHuman"));
    EXPECT_TRUE(robot.keys().find("Launchpad/NumPeopleZone1")->readers.count("rules"));
    EXPECT_TRUE(robot.keys().find("Nobody/Has")->publishers.empty());
}

}  // namespace
}  // namespace KR

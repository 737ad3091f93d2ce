#include "host/Table.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

TEST(TableTest, CellsGoOnBelowWhereTheTableWouldBeTooWide)
{
    const std::vector<TableRow> rows{{"name", "ok", "texts"},
                                     {"a/bc", "yes", "Grüße an alle, die da sind"},
                                     {"", "-", "first/second/third"}};
    const std::pair<std::size_t, const char*> cases[] = {
        {37,
         "name  ok   texts\na/bc  yes  Grüße an alle, die da sind\n      -    "
         "first/second/third\n"},
        {1,
         "name  ok   text\n           s\na/bc  yes  Grüß\n           e an\n           alle\n       "
         "    ,\n"
         "           die\n           da\n           sind\n"
         "      -    firs\n           t/\n           seco\n           nd/\n           thir\n       "
         "    d\n"},
    };
    for (const auto& [width, text] : cases)
        EXPECT_EQ(tableText(rows, width), text) << width;
    EXPECT_EQ(tableText({}, 10), "");
}

}  // namespace
}  // namespace KR

#include <deque>
#include <string>

#include "platform/vo/TextIndex.h"
#include "tests/support/Testing.h"

namespace {

struct TextOf {
    const std::string& operator()(const std::string& item) const { return item; }
};

TEST(TextIndexTest, finds_what_is_there_among_thousands_and_what_comes_again)
{
    std::deque<std::string> items;
    vo::TextIndex<std::string, TextOf> index;
    EXPECT_EQ(index.find(""), nullptr);
    for (int i = 0; i < 3000; ++i)
        index.insert(items.emplace_back(i == 0 ? "" : std::to_string(i)));
    const auto checkAll = [&](bool isThirdThere) {
        for (std::size_t i = 0; i < items.size(); ++i)
            EXPECT_EQ(index.find(std::string(items[i])),
                      isThirdThere || i % 3 ? &items[i] : nullptr);
    };
    for (std::size_t i = 0; i < items.size(); i += 3)
        index.erase(items[i]);
    checkAll(false);
    for (std::size_t i = 0; i < items.size(); i += 3)
        index.insert(items[i]);
    checkAll(true);
}

}  // namespace

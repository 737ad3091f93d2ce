#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/vo/Path.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

using vo::path::confFolders;
using vo::path::findConf;

namespace {

struct PathTest : testing::Test {
    PathTest()
    {
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "HOME"})
            unsetenv(name);  // NOLINT(concurrency-mt-unsafe): no thread yet
        set("NIMBRA_PREFIX", at("prefix"));
    }

    static void set(const std::string& name, const std::string& value)
    {
        setenv(name.c_str(), value.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): as above
    }
    std::string at(const std::string& path) const { return folder.path() + "/" + path; }
    std::string write(const std::string& path) const { return folder.write(path, "x"); }

    TemporaryFolder folder;
};

TEST_F(PathTest, foldersComeFromTheEnvironmentOrByDefaultAndRelativeOnesAreIgnored)
{
    EXPECT_THAT(confFolders("app", false), ElementsAre("/etc/xdg/app", at("prefix/share/app")));
    set("HOME", at("home"));
    set("XDG_CONFIG_HOME", "");
    set("XDG_CONFIG_DIRS", "");
    EXPECT_THAT(confFolders("app", false),
                ElementsAre(at("home/.config/app"), "/etc/xdg/app", at("prefix/share/app")));
    set("XDG_CONFIG_HOME", "user");
    set("XDG_CONFIG_DIRS", "one::" + at("two") + ":./three:" + at("four"));
    EXPECT_THAT(confFolders("app", false), ElementsAre(at("home/.config/app"), at("two/app"),
                                                       at("four/app"), at("prefix/share/app")));
}

TEST_F(PathTest, theFirstFileIsFound)
{
    set("XDG_CONFIG_HOME", at("user"));
    set("XDG_CONFIG_DIRS", at("one") + ":" + at("two"));
    std::filesystem::create_directories(at("one/app/a.cfg"));
    EXPECT_EQ(findConf("app", "a.cfg"), "") << "a folder is no file";
    std::string system;
    for (const char* before : {"prefix/share/app/a.cfg", "two/app/a.cfg", "user/app/a.cfg"}) {
        system = findConf("app", "a.cfg");
        const std::string file = write(before);
        EXPECT_EQ(findConf("app", "a.cfg"), file);
    }
    EXPECT_EQ(findConf("app", "a.cfg", true), system);
}

TEST_F(PathTest, namesThatLeaveTheFolderAreRefused)
{
    for (const char* name : {"", ".", "..", "../a", "a/../../b", "/etc/passwd"}) {
        SCOPED_TRACE(name);
        EXPECT_THROW(findConf("app", name), std::invalid_argument);
        EXPECT_THROW(findConf(name, "a.cfg"), std::invalid_argument);
    }
    EXPECT_EQ(findConf("app", "a/../b"), "");
}

}  // namespace

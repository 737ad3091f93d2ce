#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/packages/PackageStore.h"
#include "platform/vo/Log.h"
#include "tests/packages/TestPackages.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

namespace fs = std::filesystem;

using testing::Key;

constexpr auto kRefuse = PackageStore::IfInstalled::refuse;
constexpr auto kReplace = PackageStore::IfInstalled::replace;

struct PackageStoreTest : testing::Test {
    vo::LogCapture log;
    TemporaryFolder folder;
    const std::string packages = folder.path() + "/packages";
    const std::string old = writeTestPackage(folder, "old", "p", "1");
    const std::string fresh = writeTestPackage(folder, "fresh", "p", "2");
    /// More than one write, so that a stop can come between them.
    const std::string big = folder.write("fresh/go/data", std::string(100'000, 'x'));
    PackageStore store{packages};

    PackageStoreTest() { fs::create_directory(packages); }

    /// Why a source is refused; "" when it is installed. Nothing may be left of it.
    std::string refusal(const std::string& source, const PackageLimits& limits = {})
    {
        PackageStore::Options options;
        options.limits = limits;
        try {
            PackageStore(packages, options).install(source, kRefuse);
        } catch (const std::exception& e) {
            EXPECT_TRUE(fs::is_empty(packages)) << source;
            return e.what();
        }
        store.remove("p");
        return {};
    }
    std::string refusal(std::vector<TestEntry> entries, bool zip = false,
                        const PackageLimits& limits = {})
    {
        entries.insert(entries.begin(),
                       {{kPackageManifestFile, testManifest("p")}, {"go/run", "#!/bin/sh\n"}});
        return refusal(writeTestArchive(folder.path() + "/archive", entries, zip), limits);
    }
    std::ptrdiff_t entries() const
    {
        return std::distance(fs::directory_iterator(packages), fs::directory_iterator());
    }
    /// Whether the installed package is that of a folder; none, for the folder "".
    bool holds(const std::string& source) const
    {
        const bool installed = fs::exists(packages + "/p");
        return source.empty() ? !installed
                              : installed && filesBelow(packages + "/p") == filesBelow(source);
    }
};

/// Runs an operation in a process of its own that is killed before step `last`, counted from 0.
/// False when the operation has fewer steps.
bool runUntil(int last, const std::string& packages,
              const std::function<void(const PackageStore&)>& operation)
{
    const pid_t child = ::fork();
    if (child == 0) {
        int steps = 0;
        PackageStore::Options options;
        options.beforeStep = [&](const std::string&) {
            if (steps++ == last)
                ::kill(::getpid(), SIGKILL);
        };
        operation(PackageStore(packages, options));
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status);
}

TEST_F(PackageStoreTest, operation_killed_at_any_step_leaves_the_old_package_or_the_new_one)
{
    const struct {
        const char* what;
        std::string before, after;
        std::function<void(const PackageStore&)> operation;
    } rows[] = {
        {"install", "", fresh, [&](auto& s) { s.install(fresh, kRefuse); }},
        {"upgrade", old, fresh, [&](auto& s) { s.install(fresh, kReplace); }},
        {"remove", old, "", [](auto& s) { s.remove("p"); }},
    };
    for (const auto& row : rows) {
        int befores = 0;
        int afters = 0;
        for (int step = 0;; ++step) {
            SCOPED_TRACE(row.what + std::to_string(step));
            fs::remove_all(packages);
            fs::create_directory(packages);
            if (!row.before.empty())
                store.install(row.before, kRefuse);
            if (!runUntil(step, packages, row.operation))
                break;
            const bool isBefore = holds(row.before);
            EXPECT_NE(isBefore, holds(row.after));
            // Once the change is made it is not undone.
            EXPECT_TRUE(!isBefore || afters == 0);
            ++(isBefore ? befores : afters);
            store.clearLeftovers();
            EXPECT_TRUE(holds(isBefore ? row.before : row.after));
            EXPECT_EQ(entries(), holds("") ? 0 : 1);
        }
        EXPECT_GE(befores, 2) << row.what;
        EXPECT_EQ(afters, 2) << row.what;
    }
}

TEST_F(PackageStoreTest, failing_disk_at_any_step_fails_cleanly_or_is_too_late_to_matter)
{
    store.install(old, kRefuse);
    bool failed = true;
    for (int failing = 0; failed; ++failing) {
        int steps = 0;
        PackageStore::Options options;
        options.beforeStep = [&](const std::string&) {
            if (steps++ == failing)
                throw std::system_error(ENOSPC, std::generic_category(), "disk");
        };
        try {
            PackageStore(packages, options).install(fresh, kReplace);
            failed = false;
        } catch (const std::system_error&) {
        }
        EXPECT_TRUE(holds(failed ? old : fresh)) << failing;
        EXPECT_EQ(entries(), 1);
    }
    // It was the first failure after the package had come to its place.
    EXPECT_THAT(log.lines(vo::LogLevel::warning), ElementsAre(HasSubstr("No space left")));
}

TEST_F(PackageStoreTest, folders_and_archives_are_installed_alike)
{
    const std::vector<TestEntry> entries = {
        {".", "", AE_IFDIR},         {std::string("./") + kPackageManifestFile, testManifest("p")},
        {"./go/", "", AE_IFDIR},     {"go", "", AE_IFDIR},  // twice does no harm
        {"./go/run", "#!/bin/sh\n"}, {"go/dir/grüße", "x"}};
    for (const bool zip : {false, true}) {
        const auto source = writeTestArchive(folder.path() + "/archive", entries, zip);
        EXPECT_EQ(store.install(source, kReplace), "p");
        EXPECT_THAT(filesBelow(packages + "/p"), Contains(Key("go/dir/grüße")));
        struct stat status = {};
        ASSERT_EQ(::stat((packages + "/p/go/run").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0755U);  // nothing more than executable
    }
    store.install(old, kReplace);
    EXPECT_TRUE(holds(old));
}

TEST_F(PackageStoreTest, archive_that_would_leave_its_package_or_exceed_limits_is_refused)
{
    const std::string zeros(1'000'000, '\0');
    const std::string outside = folder.path() + "/outside";
    std::vector<TestEntry> many;
    many.reserve(100);
    for (int i = 0; i < 100; ++i)
        many.push_back({"d" + std::to_string(i), "", AE_IFDIR});
    std::string deep;
    for (int i = 0; i < 40; ++i)
        deep += "d/";
    const struct {
        std::vector<TestEntry> entries;
        const char* reason;
    } rows[] = {
        {{{outside, "x"}}, "is absolute"},
        {{{"../outside", "x"}}, "holds the name '..'"},
        {{{"go/../../outside", "x"}}, "holds the name '..'"},
        {{{"link", "", AE_IFLNK, ".."}, {"link/outside", "x"}}, "'link' is a symbolic link"},
        {{{"hard", "", AE_IFREG, "/etc/passwd"}}, "is a hard link"},
        {{{"null", "", AE_IFCHR}}, "is a device"},
        {{{"pipe", "", AE_IFIFO}}, "is a pipe"},
        {{{"go/run", "other"}}, "'go/run' is there twice"},
        {{{"go", "x"}}, "'go' is both a file and a folder"},
        {{{"go/run/x", "x"}}, "'go/run' is both a file and a folder"},
        {{{"bad\xff", "x"}}, "'bad\\xff' is not readable text in UTF-8"},
        {{{deep + "x", "x"}}, "is nested deeper than 32 folders"},
        {{{"zeros", zeros}}, "more than 500000 bytes"},
        {many, "more than 50 files and folders"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(refusal(row.entries, false, {50, 500'000}), HasSubstr(row.reason));
    // A zip says the size of an entry after its content only, if it says the truth at all.
    EXPECT_THAT(refusal({{"zeros", zeros}}, true, {50, 500'000}), HasSubstr("500000 bytes"));
    EXPECT_EQ(refusal(std::vector<TestEntry>{{"zeros", zeros}}), "");
    EXPECT_FALSE(fs::exists(outside));
}

TEST_F(PackageStoreTest, source_that_is_no_package_is_refused)
{
    const auto archive =
        writeTestArchive(folder.path() + "/whole", {{"x", std::string(9999, 'x')}});
    fs::resize_file(archive, fs::file_size(archive) - 20);
    EXPECT_THAT(refusal(archive), HasSubstr("cannot be read"));
    EXPECT_THAT(refusal(folder.write("text", "no archive")), HasSubstr("cannot be read"));
    EXPECT_THAT(refusal(folder.path() + "/missing"), HasSubstr("No such file"));
    EXPECT_THAT(refusal(folder.path()), HasSubstr("holds the packages folder"));
    EXPECT_THROW(store.remove("../old"), std::runtime_error);
    EXPECT_THAT(refusal(old, {2, 500}), HasSubstr("more than 2 files and folders"));
    fs::create_symlink("/etc/passwd", old + "/link");
    EXPECT_THAT(refusal(old), HasSubstr("'link' is a link"));
    fs::remove(old + "/link");
    fs::remove_all(old + "/go");
    EXPECT_THAT(refusal(old), HasSubstr("the behaviour 'go' has no folder"));
}

}  // namespace
}  // namespace KR

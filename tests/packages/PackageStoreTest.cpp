#include <fcntl.h>
#include <string>
#include <sys/file.h>
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

using testing::AnyOf;
using testing::Not;
using testing::StartsWith;
using testing::Value;

constexpr auto kRefuse = PackageStore::IfInstalled::refuse;
constexpr const char* kNone = "none";
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
    std::vector<std::string> steps;  ///< of the last refusal()

    PackageStoreTest() { fs::create_directory(packages); }

    /// Why a source is refused; kNone when it is installed. Nothing may be left of it.
    std::string refusal(const std::string& source, const PackageStore::Options& given = {})
    {
        steps.clear();
        PackageStore::Options options = given;
        options.beforeStep = [this](const std::string& step) { steps.push_back(step); };
        try {
            PackageStore(packages, options).install(source, kRefuse);
        } catch (const std::exception& e) {
            EXPECT_TRUE(fs::is_empty(packages)) << source;
            return e.what();
        }
        store.remove("p");
        return kNone;
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
        int step = 0;
        PackageStore::Options options;
        options.beforeStep = [&](const std::string&) {
            const FileDescriptor folderNow(::open(packages.c_str(), O_RDONLY), packages);
            EXPECT_NE(::flock(folderNow.get(), LOCK_EX | LOCK_NB), 0);
            if (step++ == failing)
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
    const auto inFolder = [](const std::string& outer) -> std::vector<TestEntry> {
        return {{outer, "", AE_IFDIR},
                {outer + kPackageManifestFile, testManifest("p")},
                {outer + "go/", "", AE_IFDIR},
                {outer + "go", "", AE_IFDIR},  // twice does no harm
                {outer + "go/run", "#!/bin/sh\n"},
                {outer + "go/dir/grüße", "x"},
                {outer + "go2", "y", AE_IFREG, "", 0655}};
    };
    const struct {
        const char* format;
        int compression;
        const char* outer;
    } rows[] = {
        {"gnutar", ARCHIVE_FILTER_NONE, "./"},    {"ustar", ARCHIVE_FILTER_BZIP2, "./"},
        {"pax", ARCHIVE_FILTER_XZ, "./"},         {"gnutar", ARCHIVE_FILTER_ZSTD, "p-1/"},
        {"zip", ARCHIVE_FILTER_NONE, "./"},       {"zip", ARCHIVE_FILTER_NONE, "any/"},
        {"gnutar", ARCHIVE_FILTER_GZIP, "./go/"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format + std::to_string(row.compression) + row.outer);
        const auto source = writeTestArchive(folder.path() + "/archive", inFolder(row.outer),
                                             row.format, row.compression);
        EXPECT_EQ(store.install(source, kReplace), "p");
        EXPECT_THAT(filesBelow(packages + "/p"),
                    ElementsAre(Pair("go/dir/grüße", "x"), Pair("go/run", "#!/bin/sh\n"),
                                Pair("go2", "y"), Pair("package.yaml", testManifest("p"))));
        for (const auto& [file, mode] :
             {std::pair("/p/go/run", 0755U), {"/p/go2", 0644U}, {"/p", 0755U}}) {
            struct stat status = {};
            ASSERT_EQ(::stat((packages + file).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777, mode);  // nothing more than executable
        }
    }
}

TEST_F(PackageStoreTest, archive_that_would_leave_its_package_or_exceed_limits_is_refused)
{
    const std::string zeros(1'000'000, '\0');
    const std::string archive = folder.path() + "/archive";
    const std::string outside = folder.path() + "/outside";
    const std::vector<TestEntry> package = {{kPackageManifestFile, testManifest("p")},
                                            {"go/run", "#!/bin/sh\n"}};
    const std::string room(500'000 - testManifest("p").size() - 10, 'x');
    const auto folders = [](int count) {
        std::vector<TestEntry> many;
        for (int i = 0; i < count; ++i)
            many.push_back({"d" + std::to_string(i / 2) + (i % 2 == 0 ? "" : "/e"), "", AE_IFDIR});
        return many;
    };
    std::string deep;
    for (int i = 0; i < 31; ++i)
        deep += "d/";
    const std::string name(255, 'n');
    const std::string path = name + "/" + name + "/" + name + "/" + std::string(254, 'n') + "/";
    const struct {
        std::vector<TestEntry> entries;
        std::string reason;
    } rows[] = {
        {{{outside, "x"}}, "is absolute"},
        {{{"../outside", "x"}}, "holds the name '..'"},
        {{{"go//x", "x"}}, "holds an empty name"},
        {{{"link", "", AE_IFLNK, ".."}, {"link/outside", "x"}}, "'link' is a symbolic link"},
        {{{"hard", "", AE_IFREG, "/etc/passwd"}}, "is a hard link"},
        {{{"null", "", AE_IFCHR}}, "is a device"},
        {{{"go/run", "other"}}, "'go/run' is there twice"},
        {{{"go", "x"}}, "'go' is both a file and a folder"},
        {{{"go/run/x", "x"}}, "'go/run' is both a file and a folder"},
        {{{"\x7f \xc2\x85", "x"}}, "'\\x7f \\xc2\\x85' is not readable text in UTF-8"},
        {{{deep + "x", "x"}}, kNone},
        {{{deep + "d/x", "x"}}, "is nested deeper than 32 folders"},
        {{{name, "x"}}, kNone},
        {{{"n" + name, "x"}}, "nn...' holds a name of more than 255 bytes"},
        {{{path + "xx", "x"}}, "is longer than 1024 bytes"},
        {{{path + "x", "x"}}, kNone},
        {{{"room", room}}, kNone},
        {{{"room", room}, {"more", "x"}}, "more than 500000 bytes"},
        {folders(47), kNone},
        {folders(48), "more than 50 files and folders"},
    };
    PackageStore::Options options;
    options.limits.entries = 50;
    options.limits.bytes = 500'000;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.entries.back().path.substr(0, 50) + " " + row.reason);
        std::vector<TestEntry> all = package;
        all.insert(all.end(), row.entries.begin(), row.entries.end());
        EXPECT_THAT(refusal(writeTestArchive(archive, all), options), HasSubstr(row.reason));
        // It was looked at before anything was written.
        EXPECT_EQ(row.reason == kNone, Value(steps, Contains(StartsWith("make fi"))));
    }
    // A zip that is read from its beginning, as it is unpacked, says the size of a file after it.
    EXPECT_THAT(refusal(writeTestArchive(archive, {{"zeros", zeros}}, "zip"), options),
                HasSubstr("more than 500000 bytes"));
    EXPECT_THAT(steps, Not(Contains(StartsWith("make fi"))));
    EXPECT_FALSE(fs::exists(outside));
}

TEST_F(PackageStoreTest, compression_is_undone_once_and_within_limits)
{
    const std::string target = folder.path() + "/archive";
    std::string layers = readFile(writeTestArchive(target, {{kPackageManifestFile, "x"}}));
    for (int layer = 2; layer <= 30; ++layer) {
        layers = readFile(writeTestArchive(target, {{"x", layers}}, "raw"));
        EXPECT_THAT(refusal(target), HasSubstr("Unrecognized archive format")) << layer;
    }
    // The beginnings of empty files in a zip, after which the next one is looked for.
    const std::string zip = "PK\3\4\x14" + std::string(21, '\0') + "\1" + std::string(3, '\0');
    PackageStore::Options options;
    options.limits = {50, 500'000};
    for (const int compression : {ARCHIVE_FILTER_NONE, ARCHIVE_FILTER_GZIP}) {
        const std::string zeros =
            zip + "a" + zip + "b" + zip + "c" + zip + "d" + std::string(3'000'000, '\0');
        writeTestArchive(target, {{"x", zeros}}, "raw", compression);
        EXPECT_THAT(refusal(target, options), HasSubstr("more than"));
    }
}

TEST_F(PackageStoreTest, source_that_is_no_package_is_refused)
{
    const auto archive =
        writeTestArchive(folder.path() + "/whole", {{"x", std::string(9999, 'x')}});
    fs::resize_file(archive, fs::file_size(archive) - 20);
    EXPECT_THAT(refusal(archive), HasSubstr("cannot be read"));
    EXPECT_THAT(refusal(folder.write("text", "no archive")), HasSubstr("cannot be read"));
    for (const char* other : {"other", "p/../../other"})
        EXPECT_THAT(refusal(writeTestArchive(folder.path() + "/two",
                                             {{"p/package.yaml", testManifest("p")}, {other, ""}})),
                    AnyOf(HasSubstr("two/package.yaml: there is no manifest"), HasSubstr("'..'")));
    EXPECT_THAT(refusal(folder.path() + "/missing"), HasSubstr("No such file"));
    EXPECT_THAT(refusal(folder.path()), HasSubstr("holds the packages folder"));
    for (const char* uuid : {"../old", "p", ".", ""})
        EXPECT_THROW(store.remove(uuid), std::runtime_error) << uuid;
    PackageStore::Options options;
    options.limits.entries = 3;
    EXPECT_EQ(refusal(old, options), kNone);
    options.limits.entries = 2;
    EXPECT_THAT(refusal(old, options), HasSubstr("more than 2 files and folders"));
    EXPECT_THAT(steps, Not(Contains(StartsWith("make fi"))));
    fs::create_symlink("/etc/passwd", old + "/link");
    EXPECT_THAT(refusal(old), HasSubstr("'link' is a link"));
    fs::remove(old + "/link");
    fs::remove_all(old + "/go");
    EXPECT_THAT(refusal(old), HasSubstr("the behaviour 'go' has no folder"));
}

TEST_F(PackageStoreTest, install_leaves_a_reserve_that_fits_the_disk_and_is_synced_once)
{
    constexpr std::uintmax_t kMiB = 1024 * 1024;
    std::uintmax_t size = 0;
    for (const auto& [path, content] : filesBelow(old))
        size += content.size();
    const struct {
        std::uintmax_t capacity;
        std::uintmax_t reserve;
    } rows[] = {{16 * kMiB, kMiB}, {1024 * kMiB, 64 * kMiB}, {kMiB * kMiB, 64 * kMiB}};
    for (const auto& row : rows) {
        PackageStore::Options options;
        std::uintmax_t available = row.reserve + size;
        options.diskOf = [&](const std::string& where) {
            EXPECT_EQ(fs::path(where).parent_path(), packages);
            return fs::space_info{row.capacity, row.capacity, available};
        };
        EXPECT_EQ(refusal(old, options), kNone);
        EXPECT_EQ(std::count(steps.begin(), steps.end(), "sync the files"), 1);
        for (available -= 1; available != 0; available = available > 7 ? 7 : 0)
            EXPECT_THAT(refusal(old, options),
                        HasSubstr(std::to_string(available) + " bytes are free, and " +
                                  std::to_string(row.reserve) + " have to stay free"));
    }
    PackageStore::Options passing;
    passing.lasts = false;
    EXPECT_EQ(refusal(old, passing), kNone);
    EXPECT_THAT(steps, Not(Contains(HasSubstr("sync"))));
}

/// Makes root, if it is who runs the tests, somebody who may not write what is read-only.
struct OrdinaryUser {
    const bool wasRoot = ::geteuid() == 0;
    OrdinaryUser() { EXPECT_EQ(wasRoot ? ::seteuid(65534) : 0, 0); }
    ~OrdinaryUser() { EXPECT_EQ(wasRoot ? ::seteuid(0) : 0, 0); }
};

TEST_F(PackageStoreTest, read_only_folder_keeps_its_packages_but_read_only_packages_go)
{
    ::chmod(folder.path().c_str(), 0755);
    ::chmod((old + "/go/run").c_str(), 0755);
    store.install(old, kRefuse);
    ::chmod(packages.c_str(), 0555);
    {
        const OrdinaryUser user;
        EXPECT_THROW(store.remove("p"), std::system_error);
        EXPECT_THROW(store.install(fresh, kReplace), std::system_error);
        EXPECT_TRUE(holds(old) && entries() == 1);
    }
    ::chmod(packages.c_str(), 0777);
    store.remove("p");
    const OrdinaryUser user;
    store.install(old, kRefuse);
    fs::copy(packages + "/p", packages + "/~new-x", fs::copy_options::recursive);
    for (const char* part : {"/p/go", "/p", "/~new-x/go"})
        ::chmod((packages + part).c_str(), 0555);
    store.remove("p");
    store.clearLeftovers();
    EXPECT_EQ(entries(), 0);
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

}  // namespace
}  // namespace KR

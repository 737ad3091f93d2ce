// Lives under pressure that are recorded and killed at any moment. What is left must be whole but
// for its end, hold all that had happened a second before, and replay without a difference. And a
// large recording must be read in bounded memory.

#include <array>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <random>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/vo/Log.h"
#include "record/RecordReader.h"
#include "record/RecordWriter.h"
#include "record/Recorder.h"
#include "tests/prove/PressedLife.h"
#include "tests/support/TemporaryFolder.h"

namespace KR {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Of the program that reads, whatever the size of the file.
constexpr long kMaxReadKib = 32L * 1024;

/// When the last events were taken, told by a child process that may be killed to the one that
/// kills it, in memory that they share.
class Marks {
public:
    Marks()
        : marks_(static_cast<Mark*>(::mmap(nullptr, kMarks * sizeof(Mark), PROT_READ | PROT_WRITE,
                                           MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        if (marks_ == MAP_FAILED)
            throw std::runtime_error("no shared memory");
    }
    ~Marks() { ::munmap(marks_, kMarks * sizeof(Mark)); }
    Marks(const Marks&) = delete;
    Marks& operator=(const Marks&) = delete;

    void add(std::uint64_t event) const
    {
        Mark& mark = marks_[event % kMarks];
        mark.time = steady_clock::now().time_since_epoch().count();
        mark.event = event;
    }
    /// The last event that was taken by then; 0 for none.
    std::uint64_t lastAt(steady_clock::time_point time) const
    {
        std::uint64_t last = 0;
        for (const Mark* mark = marks_; mark != marks_ + kMarks; ++mark)
            if (mark->event > last && mark->time <= time.time_since_epoch().count())
                last = mark->event;
        return last;
    }
    /// When an event was taken that is among the last ones; `otherwise` for one that was not.
    steady_clock::time_point timeOf(std::uint64_t event, steady_clock::time_point otherwise) const
    {
        const Mark& mark = marks_[event % kMarks];
        return mark.event == event ? steady_clock::time_point(steady_clock::duration(mark.time))
                                   : otherwise;
    }

private:
    struct Mark {
        std::atomic<std::uint64_t> event;
        std::atomic<std::int64_t> time;
    };
    static constexpr std::size_t kMarks = 65536;

    Mark* const marks_;  ///< all zero at first
};

/// What is left of a killed life.
struct Remains {
    std::uint64_t last = 0;  ///< the number of the last event; 0 where nothing can be read
    std::string fault;       ///< empty for none
};

Remains remainsOf(const std::string& path)
{
    Remains remains;
    const auto tell = [&](const RecordProblem& problem) {
        if (problem.text.find("was not closed") == std::string::npos &&
            problem.text.find("is cut off") == std::string::npos)
            remains.fault = problem.text;
    };
    try {
        RecordReader reader(path, tell);
        while (const auto entry = reader.next()) {
            const auto* const recorded = std::get_if<RecordedEvent>(&*entry);
            if (!recorded || recorded->event.number != remains.last + 1)
                remains.fault = "something is missing after event " + std::to_string(remains.last);
            else
                ++remains.last;
        }
    } catch (const std::exception&) {
        return remains;  // killed before anything was written
    }
    return remains;
}

/// What a program prints.
std::string outputOf(const std::string& command)
{
    std::string output;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> block{};
    for (std::size_t size = 0; (size = std::fread(block.data(), 1, block.size(), pipe)) > 0;)
        output.append(block.data(), size);
    ::pclose(pipe);
    return output;
}

/// Waits for the end of a process, no longer than that.
void awaitEnd(pid_t process, milliseconds longest)
{
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    pollfd end{descriptor, POLLIN, 0};
    ::poll(&end, 1, static_cast<int>(longest.count()));
    ::close(descriptor);
}

class Killing {
public:
    Killing(unsigned seed, milliseconds longestLife, milliseconds longestLoss)
        : random_(seed), longestLife_(longestLife), longestLoss_(longestLoss)
    {
        // Folders of lives that are killed lie in this one's. There is no other thread.
        // NOLINTNEXTLINE(concurrency-mt-unsafe)
        ::setenv("TEST_TMPDIR", (folder_.path() + "/").c_str(), 1);
    }

    /// Kills one life. What is at fault is told, and its file kept.
    void kill()
    {
        const std::string path = folder_.path() + (random_() % 2 == 0 ? "/life" : "/life.zst");
        std::filesystem::remove(path);
        const Marks marks;
        const auto seed = static_cast<unsigned>(random_());
        const pid_t child = ::fork();
        if (child == 0)
            live(path, seed, 2 * longestLife_, marks);
        awaitEnd(child, milliseconds(random_() % longestLife_.count()));
        const steady_clock::time_point killed = steady_clock::now();
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ++kills_;
        const std::string fault = examine(path, marks, killed);
        if (fault.empty())
            return;
        ++faults_;
        const std::string kept = home_ + "nimbra-fault-" + std::to_string(::getpid()) + "-" +
                                 std::to_string(kills_) +
                                 std::filesystem::path(path).extension().string();
        std::filesystem::copy_file(path, kept, std::filesystem::copy_options::overwrite_existing);
        std::cout << kept << ": " << fault << std::endl;
    }

    bool tell() const
    {
        std::cout << kills_ << " kills, " << kills_ - read_ << " of them before anything was "
                  << "written; " << events_ << " events read, " << replayed_
                  << " recordings identical when replayed; " << longest_.count()
                  << " ms lost at most; " << faults_ << " faults\n";
        return faults_ == 0;
    }

private:
    [[noreturn]] static void live(const std::string& path, unsigned seed, milliseconds duration,
                                  const Marks& marks)
    {
        std::optional<Recorder> recorder;
        vo::Connection connection;
        liveUnderPressure(duration, seed, [&](EventStream& events) {
            recorder.emplace(events, vo::makeRealClock(), Recorder::Options{path});
            connection =
                events.happened.connect([&](const Event& event) { marks.add(event.number); });
        });
        ::_exit(0);
    }

    std::string examine(const std::string& path, const Marks& marks,
                        steady_clock::time_point killed)
    {
        const Remains remains = remainsOf(path);
        if (!remains.fault.empty())
            return remains.fault;
        const steady_clock::time_point lost = marks.timeOf(remains.last + 1, killed);
        longest_ = std::max(longest_, std::chrono::duration_cast<milliseconds>(killed - lost));
        if (remains.last < marks.lastAt(killed - longestLoss_))
            return "event " + std::to_string(remains.last + 1) + " is lost, of " +
                   std::to_string((killed - lost) / milliseconds(1)) + " ms before";
        if (remains.last == 0)
            return {};
        ++read_;
        events_ += remains.last;
        const std::string replay =
            outputOf(std::string(NIMBRA_TEST_PROGRAM) + " replay " + path + " 2>/dev/null");
        const std::size_t result = replay.rfind("\nidentical: ");
        if (result == std::string::npos)
            return "it replays otherwise: " +
                   replay.substr(std::min(replay.rfind("\ndifferent"), replay.size()));
        ++replayed_;
        return {};
    }

    const std::string home_ = testing::TempDir();
    const TemporaryFolder folder_;
    std::mt19937 random_;
    const milliseconds longestLife_;
    const milliseconds longestLoss_;
    int kills_ = 0;
    int read_ = 0;
    int replayed_ = 0;
    int faults_ = 0;
    std::uint64_t events_ = 0;
    milliseconds longest_{};
};

/// Writes a recording of that size, if it is not compressed. It does so in a process of its own: a
/// child counts the memory of its parent as having been its own. Whether all of it is there.
bool writeLarge(const std::string& path, std::uint64_t bytes)
{
    const pid_t child = ::fork();
    if (child != 0) {
        int status = 1;
        ::waitpid(child, &status, 0);
        return status == 0;
    }
    RecordWriter::Options options{path, ""};
    options.waits = true;
    RecordWriter writer(vo::makeRealClock(), options);
    std::mt19937_64 random(1);
    std::uint64_t number = 0;
    writer.take({++number, {}, RunBegan{}});
    for (std::uint64_t written = 0; written < bytes;) {
        std::string text;
        while (text.size() < 1000)
            text += std::to_string(random());
        written += text.size() + 150;  // about what a line has beside it
        writer.take({++number, vo::TimePoint(vo::Duration(number)), KeyWritten{"K", text}});
    }
    writer.close();
    ::_exit(writer.isComplete() ? 0 : 1);
}

/// What it takes the program to show a recording, in KiB; -1 when it fails.
long memoryToShow(const std::string& path)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
        ::execl(NIMBRA_TEST_PROGRAM, NIMBRA_TEST_PROGRAM, "timeline", path.c_str(), nullptr);
        ::_exit(1);
    }
    int status = 0;
    rusage usage{};
    ::wait4(child, &status, 0, &usage);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? usage.ru_maxrss : -1;
}

bool proveLarge(std::uint64_t bytes)
{
    const TemporaryFolder folder;
    bool isBounded = true;
    for (const char* name : {"/large", "/large.zst"}) {
        const std::string path = folder.path() + name;
        const bool isWritten = writeLarge(path, bytes);
        const long memory = memoryToShow(path);
        isBounded = isBounded && isWritten && memory > 0 && memory <= kMaxReadKib;
        std::cout << std::filesystem::file_size(path) << " bytes of " << name + 1 << " are read in "
                  << memory << " KiB of memory\n";
        std::filesystem::remove(path);
    }
    return isBounded;
}

bool proveKills(int kills, unsigned seed, milliseconds longestLife, milliseconds longestLoss)
{
    vo::setLogLevel(vo::LogLevel::silent);
    Killing killing(seed, longestLife, longestLoss);
    for (int i = 0; i < kills; ++i)
        killing.kill();
    return killing.tell();
}

}  // namespace
}  // namespace KR

/// "large MEBIBYTES", or "kills COUNT SEED LONGEST-LIFE LONGEST-LOSS" in milliseconds.
int main(int argc, char** argv)
{
    const auto number = [&](int i) { return argc > i ? std::atoi(argv[i]) : 0; };
    if (argc == 3 && argv[1] == std::string("large"))
        return KR::proveLarge(std::uint64_t(number(2)) << 20) ? 0 : 1;
    return argc == 6 && KR::proveKills(number(2), unsigned(number(3)),
                                       std::chrono::milliseconds(number(4)),
                                       std::chrono::milliseconds(number(5)))
               ? 0
               : 1;
}

#include "platform/packages/BehaviorProcess.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace KR {

namespace {

/// Output that is read after the program has ended: a pipe's capacity, many times over.
constexpr std::size_t kMaxDrainBytes = 1024 * 1024;

void check(int error, const std::string& what)
{
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

/// A file descriptor for a scope.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

/// How a child starts: what its descriptors are, and with untouched signals in a group of its own,
/// where a terminal's interrupt does not reach it.
class SpawnSetup {
public:
    SpawnSetup()
    {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        ::posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSetup()
    {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    void connect(int output, int socket)
    {
        check(::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO), "dup2");
        check(::posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO), "dup2");
        check(::posix_spawn_file_actions_adddup2(&actions_, socket, guard::kSocket), "dup2");
        check(::posix_spawn_file_actions_addclosefrom_np(&actions_, guard::kSocket + 1), "close");
        check(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
              "/dev/null");
    }

    pid_t spawn(const std::vector<std::string>& command) const
    {
        std::vector<char*> arguments;
        for (const auto& word : command)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        pid_t child = -1;
        check(
            ::posix_spawn(&child, arguments[0], &actions_, &attributes_, arguments.data(), environ),
            command[0]);
        return child;
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

}  // namespace

std::shared_ptr<BehaviorProcess> BehaviorProcess::start(boost::asio::io_context& io,
                                                        const Program& program)
{
    std::shared_ptr<BehaviorProcess> process(new BehaviorProcess(io));
    process->launch(program);
    process->awaitStart();
    return process;
}

BehaviorProcess::~BehaviorProcess()
{
    boost::system::error_code ignored;
    guard_.close(ignored);
    if (guardId_ >= 0)
        reapGuard();
}

void BehaviorProcess::launch(const Program& program)
{
    // Nothing of these may leak into another guard: it would hold the connection open after our
    // end.
    int sockets[2];
    check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0 ? 0 : errno,
          "socketpair");
    Descriptor ours(sockets[0]);
    Descriptor theirs(sockets[1]);
    int pipe[2];
    check(::pipe2(pipe, O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    Descriptor output(pipe[0]);
    Descriptor input(pipe[1]);

    SpawnSetup setup;
    setup.connect(input.get(), theirs.get());
    guardId_ = setup.spawn({program.guard, program.folder, program.run});
    guard_.assign(boost::asio::local::stream_protocol(), ours.release());
    output_.assign(output.release());
}

void BehaviorProcess::awaitStart()
{
    boost::system::error_code error;
    boost::asio::read(guard_, boost::asio::buffer(&report_, sizeof report_), error);
    if (error)
        throw std::runtime_error("the behaviour's guard ended: " + error.message());
    if (report_.kind != guard::Report::started)
        check(report_.value, "cannot run the behaviour's program");
    programId_ = report_.value;
}

void BehaviorProcess::watch(Callbacks callbacks)
{
    callbacks_ = std::move(callbacks);
    boost::asio::post(io_, [self = shared_from_this()] {
        self->output_.non_blocking(true);
        self->readOutput();
        self->readReport();
    });
}

void BehaviorProcess::order(guard::Order order)
{
    boost::asio::post(io_, [self = shared_from_this(), order] {
        // A guard that has gone needs no orders. One byte always fits.
        boost::system::error_code ignored;
        boost::asio::write(self->guard_, boost::asio::buffer(&order, sizeof order), ignored);
    });
}

void BehaviorProcess::readReport()
{
    boost::asio::async_read(guard_, boost::asio::buffer(&report_, sizeof report_),
                            [self = shared_from_this()](auto error, std::size_t) {
                                if (!error && self->report_.kind == guard::Report::ended)
                                    self->waitStatus_ = self->report_.value;
                                self->finish();
                            });
}

void BehaviorProcess::readOutput()
{
    output_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                       [self = shared_from_this()](auto error) {
                           if (!error && self->takeOutput())
                               self->readOutput();
                       });
}

/// Takes what is there, up to a buffer. False at the end of the output, and when finish() has
/// closed it.
bool BehaviorProcess::takeOutput()
{
    boost::system::error_code error;
    const auto size = output_.read_some(boost::asio::buffer(buffer_), error);
    splitLines(size);
    return !error || error == boost::asio::error::would_block;
}

void BehaviorProcess::splitLines(std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        const bool ends = buffer_[i] == '\n';
        if (!ends)
            line_ += buffer_[i];
        if (ends || line_.size() == kMaxLineBytes) {
            callbacks_.line(line_);
            line_.clear();
        }
    }
}

/// Takes what the program had printed before it ended.
void BehaviorProcess::drainOutput()
{
    boost::system::error_code error;
    for (std::size_t total = 0; !error && total < kMaxDrainBytes;) {
        const auto size = output_.read_some(boost::asio::buffer(buffer_), error);
        splitLines(size);
        total += size;
    }
    if (!line_.empty())
        callbacks_.line(line_);
    line_.clear();
}

void BehaviorProcess::finish()
{
    drainOutput();
    boost::system::error_code ignored;
    output_.close(ignored);
    guard_.close(ignored);
    // A guard that was itself killed has told nothing, and left the program's group behind.
    const bool told = waitStatus_ >= 0;
    if (!told)
        ::kill(-programId_, SIGKILL);
    const int guardStatus = reapGuard();
    const int status = told ? waitStatus_ : guardStatus;
    callbacks_.ended(WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status));
}

int BehaviorProcess::reapGuard()
{
    int status = 0;
    while (::waitpid(guardId_, &status, 0) < 0 && errno == EINTR) {
    }
    guardId_ = -1;
    return status;
}

}  // namespace KR

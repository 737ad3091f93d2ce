#include "platform/packages/BehaviorProcess.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/process/args.hpp>
#include <boost/process/async_pipe.hpp>
#include <boost/process/exe.hpp>
#include <boost/process/extend.hpp>
#include <boost/process/io.hpp>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/close_range.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/packages/FileDescriptor.h"

namespace KR {

namespace bp = boost::process;

namespace {

/// Output that is read after the program has ended: a pipe's capacity, many times over.
constexpr std::size_t kMaxDrainBytes = std::size_t{1024} * 1024;

/// The last of what a child sets up before it becomes a guard: the socket's place, and untouched
/// signals in a group of its own, where a terminal's interrupt does not reach it.
class GuardSetup : public bp::extend::handler {
public:
    explicit GuardSetup(int socket) : socket_(socket) {}

    template <class Executor>
    void on_exec_setup(Executor& executor) const
    {
        ::setpgid(0, 0);
        for (int signal = 1; signal < NSIG; ++signal)
            ::signal(signal, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        // NOLINTNEXTLINE(concurrency-mt-unsafe): of a forked process, which has one thread
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        if (::dup2(socket_, guard::kSocket) < 0 || ::fcntl(guard::kSocket, F_SETFD, 0) != 0)
            executor.set_error({errno, std::system_category()}, "the guard's socket");
        // Of the rest, the connection to another guard would be held open after our end.
        ::close_range(guard::kSocket + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    }

private:
    int socket_;
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
    if (guardProcess_.valid())
        reapGuard();
}

void BehaviorProcess::launch(const Program& program)
{
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        failWithErrno("socketpair");
    const FileDescriptor theirs(sockets[1], "socketpair");
    guard_.assign(boost::asio::local::stream_protocol(), sockets[0]);
    bp::async_pipe output(io_);
    guardProcess_ = bp::child(bp::exe = program.guard, bp::args = {program.folder, program.run},
                              bp::std_in<bp::null, (bp::std_out & bp::std_err)> output,
                              GuardSetup(theirs.get()));
    output_ = std::move(output).source();
}

void BehaviorProcess::awaitStart()
{
    boost::system::error_code error;
    boost::asio::read(guard_, boost::asio::buffer(&report_, sizeof report_), error);
    if (error)
        throw std::runtime_error("the behaviour's guard ended: " + error.message());
    if (report_.kind != guard::Report::started)
        throw std::system_error(report_.value, std::generic_category(),
                                "cannot run the behaviour's program");
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

/// Its wait status.
int BehaviorProcess::reapGuard()
{
    std::error_code ignored;
    guardProcess_.wait(ignored);
    return guardProcess_.native_exit_code();
}

}  // namespace KR

#include "host/SignalWatch.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/read.hpp>
#include <csignal>
#include <sys/signalfd.h>
#include <thread>

#include "host/StopRequest.h"
#include "platform/packages/FileDescriptor.h"

namespace KR {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// Whether the program was started to outlive its terminal, as by nohup.
bool ignoresHangUp()
{
    struct sigaction action = {};
    ::sigaction(SIGHUP, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

sigset_t signalSet()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kSignals) {
        if (signal != SIGHUP || !ignoresHangUp())
            sigaddset(&signals, signal);
    }
    return signals;
}

/// Keeps the signals from this thread, and from those that it starts meanwhile.
class BlockedSignals {
public:
    BlockedSignals()
    {
        const sigset_t signals = signalSet();
        ::pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_ = {};
};

int openSignals()
{
    const sigset_t signals = signalSet();
    const int fd = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (fd < 0)
        failWithErrno("signalfd");
    return fd;
}

}  // namespace

// The signals are read, as they would come from a file, rather than caught: a handler runs on
// whatever thread the system chooses, and interrupts what that one is doing.
class SignalWatch::Impl {
public:
    explicit Impl(StopRequest& stop) : signals_(context_, openSignals())
    {
        boost::asio::async_read(signals_, boost::asio::buffer(&first_, sizeof first_),
                                [this, &stop](const boost::system::error_code& error, std::size_t) {
                                    if (error)
                                        return;
                                    letThrough();
                                    stop.request(static_cast<int>(first_.ssi_signo));
                                });
        thread_ = std::thread([this] { context_.run(); });
    }

    ~Impl()
    {
        context_.stop();
        thread_.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

private:
    /// From here on a signal does what it does to any program, on the thread that this is called
    /// on: what a shell had ignored for its background jobs, too. Not so the one of a terminal that
    /// closes, which comes from the shell and then from the system: it is no second wish.
    static void letThrough()
    {
        const sigset_t signals = signalSet();
        for (const int signal : kSignals)
            std::signal(signal, signal == SIGHUP ? SIG_IGN : SIG_DFL);
        ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }

    const BlockedSignals blocked_;
    boost::asio::io_context context_;
    // The thread stays after the first signal, as it is the one to get the second.
    const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_ =
        boost::asio::make_work_guard(context_);
    boost::asio::posix::stream_descriptor signals_;
    signalfd_siginfo first_ = {};
    std::thread thread_;
};

SignalWatch::SignalWatch(StopRequest& stop) : impl_(std::make_unique<Impl>(stop)) {}

SignalWatch::~SignalWatch() = default;

}  // namespace KR

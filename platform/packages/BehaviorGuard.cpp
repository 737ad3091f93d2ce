// nimbra-behavior-guard FOLDER PROGRAM
//
// Stands between the behaviour manager and one behaviour: runs PROGRAM in FOLDER, in a process
// group of its own, and sees to it that nothing of it outlives the program itself or the manager.
// It is a process apart because only that can notice the manager's death by SIGKILL, and because
// as a subreaper it becomes the parent of whatever the behaviour leaves behind, in any process
// group.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/packages/BehaviorGuardProtocol.h"

using namespace KR::guard;

namespace {

void report(Report::Kind kind, int value)
{
    const Report message = {kind, value};
    // A manager that is gone wants no reports; the next read tells.
    (void)!::send(kSocket, &message, sizeof message, MSG_NOSIGNAL);
}

/// In the child: becomes the program, or returns errno.
int becomeProgram(const char* folder, char* program, pid_t guard)
{
    ::setpgid(0, 0);
    // Should the guard itself be killed, at least the program goes with it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != guard)
        ::_exit(1);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);  // NOLINT(concurrency-mt-unsafe): one thread
    if (::chdir(folder) != 0)
        return errno;
    char* const arguments[] = {program, nullptr};
    ::execv(program, arguments);
    return errno;
}

/// Starts the program; its process id, or minus errno.
pid_t startProgram(const char* folder, char* program)
{
    int failure[2];
    if (::pipe2(failure, O_CLOEXEC) != 0)
        return -errno;
    const pid_t guard = ::getpid();
    const pid_t child = ::fork();
    if (child < 0)
        return -errno;
    if (child == 0) {
        const int error = becomeProgram(folder, program, guard);
        (void)!::write(failure[1], &error, sizeof error);
        ::_exit(127);
    }
    ::close(failure[1]);
    int error = 0;
    // Nothing to read means that the program runs: its start closed the pipe.
    const bool failed = ::read(failure[0], &error, sizeof error) == sizeof error;
    ::close(failure[0]);
    if (!failed)
        return child;
    ::waitpid(child, nullptr, 0);
    return -error;
}

/// True when the program has ended. It stays to be reaped by killAll: until then its id, which is
/// its group's too, cannot be given to anybody else. Orphans that have ended are reaped.
bool hasEnded(pid_t program)
{
    siginfo_t child = {};
    while (::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0 && child.si_pid != 0) {
        if (child.si_pid == program)
            return true;
        ::waitpid(child.si_pid, nullptr, 0);
    }
    return false;
}

/// Kills all that descends from this process, and waits until it is gone. The wait status of the
/// program.
int killAll(pid_t program)
{
    const std::string children = "/proc/self/task/" + std::to_string(::getpid()) + "/children";
    int ended = 0;
    ::kill(-program, SIGKILL);
    while (true) {
        // Those outside of the group: children of the dead become children of this process.
        std::ifstream list(children);
        for (pid_t child = 0; list >> child;)
            ::kill(child, SIGKILL);
        int status = 0;
        const pid_t dead = ::waitpid(-1, &status, 0);
        if (dead < 0 && errno != EINTR)
            return ended;
        if (dead == program)
            ended = status;
    }
}

/// Obeys orders until the program ends, and leaves nothing behind. Its wait status.
int watch(pid_t program, int childSignals)
{
    pollfd inputs[] = {{kSocket, POLLIN, 0}, {childSignals, POLLIN, 0}};
    while (true) {
        if (::poll(inputs, 2, -1) < 0)
            continue;
        if (inputs[1].revents != 0) {
            signalfd_siginfo signal;
            (void)!::read(childSignals, &signal, sizeof signal);
            if (hasEnded(program))
                return killAll(program);
        }
        if (inputs[0].revents != 0) {
            char order = 0;
            const auto count = ::read(kSocket, &order, 1);
            if (count != 1 || order != static_cast<char>(Order::terminate))
                return killAll(program);
            ::kill(-program, SIGTERM);
        }
    }
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 3) {
        std::fputs(
            "usage: nimbra-behavior-guard FOLDER PROGRAM\n"
            "For the behaviour manager, with its socket as descriptor 3.\n",
            stderr);
        return 2;
    }
    ::fcntl(kSocket, F_SETFD, FD_CLOEXEC);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &child, nullptr);  // NOLINT(concurrency-mt-unsafe): one thread
    const int childSignals = ::signalfd(-1, &child, SFD_CLOEXEC);

    const pid_t program = startProgram(arguments[1], arguments[2]);
    if (program < 0) {
        report(Report::failed, -program);
        return 1;
    }
    report(Report::started, program);
    report(Report::ended, watch(program, childSignals));
    return 0;
}

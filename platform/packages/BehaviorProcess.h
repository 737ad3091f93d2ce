#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/process/child.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "platform/packages/BehaviorGuardProtocol.h"

namespace KR {

/// One behaviour's program, running under its guard (see BehaviorGuard.cpp).
///
///     running --the program ends, or is ended--> ended
///
/// The program has its own process group; nothing that it starts outlives it, nor this process,
/// however that may end. Its input is empty; its output and errors arrive line by line.
///
/// Thread-safe. The callbacks come on the thread that runs the io_context. Destruction closes the
/// connection to the guard, upon which the guard kills the program.
class BehaviorProcess : public std::enable_shared_from_this<BehaviorProcess> {
public:
    /// A program that prints longer lines, or none at all, costs no more memory than this.
    static constexpr std::size_t kMaxLineBytes = 4096;

    struct Program {
        std::string guard;   ///< the guard's executable file
        std::string folder;  ///< working directory of the program
        std::string run;     ///< its executable file
    };
    struct Callbacks {
        std::function<void(const std::string&)> line;
        /// After the last line. Exit code of the program, or minus the number of the signal that
        /// ended it.
        std::function<void(int)> ended;
    };

    /// Starts a program and returns when it runs; std::system_error when it cannot be run. Nothing
    /// is called back before watch().
    static std::shared_ptr<BehaviorProcess> start(boost::asio::io_context& io,
                                                  const Program& program);
    ~BehaviorProcess();
    BehaviorProcess(const BehaviorProcess&) = delete;
    BehaviorProcess& operator=(const BehaviorProcess&) = delete;

    /// Once. The process stays alive until it has ended and that was reported.
    void watch(Callbacks callbacks);

    /// Asks the program and its group to end, or ends them. Does not wait; nothing happens once
    /// the program has ended.
    void terminate() { order(guard::Order::terminate); }
    void kill() { order(guard::Order::kill); }

private:
    explicit BehaviorProcess(boost::asio::io_context& io) : io_(io), guard_(io), output_(io) {}

    void launch(const Program& program);
    void awaitStart();
    void order(guard::Order order);
    void readReport();
    void readOutput();
    bool takeOutput();
    void drainOutput();
    void splitLines(std::size_t size);
    void finish();
    int reapGuard();

    // Constant after start().
    boost::asio::io_context& io_;
    boost::process::child guardProcess_;
    int programId_ = -1;
    // Constant after watch().
    Callbacks callbacks_;
    // Used on the io_context's thread only, once the process is watched.
    boost::asio::local::stream_protocol::socket guard_;
    boost::asio::posix::stream_descriptor output_;
    guard::Report report_ = {};
    std::array<char, kMaxLineBytes> buffer_ = {};
    std::string line_;
    int waitStatus_ = -1;  ///< -1 until the guard has told it
};

}  // namespace KR

#pragma once

#include <memory>
#include <utility>

namespace vo {

namespace detail {

/// One connected receiver, as its signal sees it.
class Link {
public:
    Link() = default;
    virtual ~Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// See Connection::disconnect.
    virtual bool disconnect() = 0;
    virtual bool isConnected() const = 0;
};

}  // namespace detail

/// Keeps a receiver connected to a signal or a property, and disconnects it when it is destroyed
/// or replaced.
///
/// It does not keep alive what it is connected to, and is safe to use after that has gone. Keep it
/// behind what the receiver uses, so that it is destroyed first; and do not disconnect with a lock
/// held that the receiver takes.
///
/// Several threads may disconnect and ask at once; moving is for one thread at a time.
class [[nodiscard]] Connection {
public:
    /// One that is not connected.
    Connection() = default;
    explicit Connection(std::weak_ptr<detail::Link> link) : link_(std::move(link)) {}
    ~Connection() { disconnect(); }
    Connection(Connection&& other) noexcept = default;
    Connection& operator=(Connection&& other) noexcept;

    /// When it returns, the receiver is not running and never will again; called from that very
    /// receiver, it does not wait, and the run is the last. Idempotent; each caller waits. True for
    /// the call that ended the connection.
    bool disconnect();
    /// False when it was disconnected, or the signal has gone.
    bool isConnected() const;

private:
    std::weak_ptr<detail::Link> link_;
};

}  // namespace vo

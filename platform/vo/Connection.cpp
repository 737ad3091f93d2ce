#include "platform/vo/Connection.h"

namespace vo {

/// Replaced first: the earlier receiver may be waited for.
Connection& Connection::operator=(Connection&& other) noexcept
{
    const Connection earlier(std::exchange(link_, std::move(other.link_)));
    return *this;
}

/// A link that cannot be had any more is in no signal's list and in no run.
bool Connection::disconnect()
{
    const auto link = link_.lock();
    return link && link->disconnect();
}

bool Connection::isConnected() const
{
    const auto link = link_.lock();
    return link && link->isConnected();
}

}  // namespace vo

#pragma once

#include <memory>

namespace KR {

class StopRequest;

/// Turns Ctrl-C (SIGINT), SIGTERM and, unless the program was started to ignore it, the end of the
/// terminal (SIGHUP) into a stop request, while it lives. A second one of the former two ends the
/// program at once, in case that the orderly end hangs.
///
/// Made and destroyed by the same thread, before there are others: those that come while it lives
/// do not receive these signals.
class SignalWatch {
public:
    explicit SignalWatch(StopRequest& stop);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace KR

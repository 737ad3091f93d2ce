#include "host/SignalWatch.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <thread>

#include "host/StopRequest.h"

namespace KR {

class SignalWatch::Impl {
public:
    explicit Impl(StopRequest& stop) : signals_(context_, SIGINT, SIGTERM)
    {
        signals_.async_wait([this, &stop](const boost::system::error_code& error, int signal) {
            if (error)
                return;
            boost::system::error_code ignored;
            signals_.clear(ignored);
            stop.request(signal);
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
    boost::asio::io_context context_;
    boost::asio::signal_set signals_;
    std::thread thread_;
};

SignalWatch::SignalWatch(StopRequest& stop) : impl_(std::make_unique<Impl>(stop)) {}

SignalWatch::~SignalWatch() = default;

}  // namespace KR

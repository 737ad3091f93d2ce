#pragma once

#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace KR {

/// The conversation of the simulated robot, the service "dialog": it talks about whatever topic it
/// is given, and goes on until it is stopped or the other person has had enough.
///
/// The memory key "KRDialog/Topic" tells the topic in progress, "" for none. The signal "onEnded"
/// (topic) tells of a conversation that was not stopped by stop().
///
/// Thread-safe. Errors are KRError.
class KRDialog : public KRModule {
public:
    static constexpr const char* kName = "dialog";
    static constexpr const char* kTopicKey = "KRDialog/Topic";

    explicit KRDialog(const boost::shared_ptr<KRBroker>& broker);

    void init() override;

    /// Begins to talk about a topic, whose name is not empty, in place of the one in progress.
    void start(const std::string& topic);
    /// Does nothing for a topic that is not in progress.
    void stop(const std::string& topic);
    /// The other person ends the conversation, if there is one.
    void end();

private:
    void setTopic(const std::string& topic) VO_REQUIRES(mutex_);

    // Synchronised by itself.
    vo::Signal<std::string> ended_;

    /// Held while memory is written, so that it sees the topics in their order.
    vo::Mutex mutex_;
    std::string topic_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR

#include "robot/KRDialog.h"

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

KRDialog::KRDialog(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("The conversation");
    broker->memory().declareEvent(kTopicKey, kName);
    broker->keys().addPublished(
        KeyDescription::text(kTopicKey, "topic of the conversation; \"\" for none"), kName);
    bindMethod("start", &KRDialog::start, this, "Talks about a topic", {{"topic", "its name"}});
    bindMethod("stop", &KRDialog::stop, this, "Stops talking about a topic",
               {{"topic", "its name"}});
    bindMethod("end", &KRDialog::end, this, "The other person ends the conversation");
    bindSignal("onEnded", ended_);
}

void KRDialog::init()
{
    const vo::Lock lock(mutex_);
    setTopic("");
}

void KRDialog::start(const std::string& topic)
{
    if (topic.empty())
        throw KRError(kName, "start", "the topic has no name");
    const vo::Lock lock(mutex_);
    setTopic(topic);
}

void KRDialog::stop(const std::string& topic)
{
    const vo::Lock lock(mutex_);
    if (!topic.empty() && topic == topic_)
        setTopic("");
}

void KRDialog::end()
{
    std::string topic;
    {
        const vo::Lock lock(mutex_);
        topic = topic_;
        if (!topic.empty())
            setTopic("");
    }
    if (!topic.empty())
        ended_(topic);
}

void KRDialog::setTopic(const std::string& topic)
{
    topic_ = topic;
    getParentBroker()->memory().raiseEvent(kTopicKey, topic);
}

}  // namespace KR

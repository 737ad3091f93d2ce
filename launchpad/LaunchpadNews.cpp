#include "launchpad/LaunchpadNews.h"

#include "launchpad/LaunchpadLog.h"
#include "platform/vo/Application.h"
#include "platform/vo/EventLoop.h"

namespace KR {
LaunchpadNews::Round::~Round()
{
    pass_.reset();
    if (!news_->rounds_.isInside())
        news_->deliver();
}

void LaunchpadNews::error(const std::string& label, const std::string& text)
{
    launchpadLog.error(label, text);
    if (const vo::CallbackGate::Pass pass(observing_); pass && observer_.error)
        observer_.error(label, text);
    notifications_.add([this, label, text] { errorReported(label, text); });
    if (rounds_.isInside())
        return;
    if (vo::Application* const application = vo::Application::currentOrNull())
        application->eventLoop().async([self = shared_from_this()] { self->deliver(); });
}

void LaunchpadNews::switched(const std::string& name, bool running)
{
    if (const vo::CallbackGate::Pass pass(observing_); pass && observer_.switched)
        observer_.switched(name, running);
    notifications_.add([this, name, running] { pluginSwitched(name, running); });
    if (!rounds_.isInside())
        deliver();
}

void LaunchpadNews::deliver()
{
    const vo::CallbackGate::Pass pass(gate_);
    if (!pass)
        return;
    notifications_.deliver([this](const std::function<void()>& news) {
        if (!gate_.isClosed())
            news();
    });
}

}  // namespace KR

#include "platform/vo/EventLoop.h"

#include "platform/vo/Application.h"

namespace vo {

EventLoop* getEventLoop()
{
    return &Application::current().eventLoop();
}

}  // namespace vo

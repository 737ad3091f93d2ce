#include <future>
#include <iostream>

#include "life/EventStream.h"
#include "life/Life.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Session.h"
#include "record/Recorder.h"

int main()
{
    vo::Application application(vo::makeRealClock());
    const auto broker = KR::KRBroker::create(application);

    // What this robot can do: it speaks, in writing.
    std::promise<void> said;
    const auto speech = std::make_shared<vo::ServiceObject>("KRTextToSpeech");
    speech->method("say", [&said](const std::string& text) {
        std::cout << text << std::endl;
        said.set_value();
    });
    application.session().registerService(speech);

    KR::EventStream events(application.clock());
    const KR::Recorder recorder(events, application.clock(), {"life.jsonl", "my.cfg"});
    KR::Life life(broker, events, {"my.cfg"});
    life.start();

    broker->memory().raiseEvent("Door/Bell", 1);
    said.get_future().wait();
    life.stop();
}

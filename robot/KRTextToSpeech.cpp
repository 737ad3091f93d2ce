#include "robot/KRTextToSpeech.h"

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

namespace {

const std::set<std::string> kLanguages{"English", "French",   "German",
                                       "Italian", "Japanese", "Spanish"};

}  // namespace

KRTextToSpeech::KRTextToSpeech(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("The voice");
    broker->memory().declareEvent(kSentenceKey, kName);
    broker->keys().addPublished(KeyDescription::text(kSentenceKey, "what is being said"), kName);
    bindMethod("say", &KRTextToSpeech::say, this, "Says a text", {{"text", "what to say"}});
    bindMethod("setLanguage", &KRTextToSpeech::setLanguage, this, "Chooses the language",
               {{"language", "its English name"}});
    for (const char* name : {"getLanguage", "locale"})
        bindMethod(name, &KRTextToSpeech::getLanguage, this, "The language in use");
    bindProperty("languageTTS", language_);
}

const std::set<std::string>& KRTextToSpeech::languages()
{
    return kLanguages;
}

void KRTextToSpeech::say(const std::string& text)
{
    getParentBroker()->memory().raiseEvent(kSentenceKey, text);
}

void KRTextToSpeech::setLanguage(const std::string& language)
{
    if (!kLanguages.count(language))
        throw KRError(kName, "setLanguage", "the language '" + language + "' is not installed");
    language_.set(language);
}

std::string KRTextToSpeech::getLanguage() const
{
    return language_.get();
}

}  // namespace KR

#pragma once

#include <set>
#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Property.h"

namespace KR {

/// The voice of the simulated robot: what it says is written to the memory key
/// "KRTextToSpeech/CurrentSentence", and the language in use is its property "languageTTS", which
/// can be followed. Thread-safe. Errors are KRError.
class KRTextToSpeech : public KRModule {
public:
    static constexpr const char* kName = "KRTextToSpeech";
    static constexpr const char* kSentenceKey = "KRTextToSpeech/CurrentSentence";

    explicit KRTextToSpeech(const boost::shared_ptr<KRBroker>& broker);

    void say(const std::string& text);

    /// One of "English" (the first), "French", "German", "Italian", "Japanese", "Spanish".
    void setLanguage(const std::string& language);
    static const std::set<std::string>& languages();
    std::string getLanguage() const;

private:
    // Synchronised by itself.
    vo::Property<std::string> language_{"English"};
};

}  // namespace KR

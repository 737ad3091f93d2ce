#pragma once

#include <string>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The voice of the simulated robot: what it says is written to the memory key
/// "KRTextToSpeech/CurrentSentence". Thread-safe. Errors are KRError.
class KRTextToSpeech : public KRModule {
public:
    static constexpr const char* kName = "KRTextToSpeech";
    static constexpr const char* kSentenceKey = "KRTextToSpeech/CurrentSentence";

    explicit KRTextToSpeech(const boost::shared_ptr<KRBroker>& broker);

    void say(const std::string& text);

    /// One of "English" (the first), "French", "German", "Italian", "Japanese", "Spanish".
    void setLanguage(const std::string& language);
    std::string getLanguage() const;

private:
    mutable vo::Mutex mutex_;
    std::string language_ VO_GUARDED_BY(mutex_) = "English";
};

}  // namespace KR

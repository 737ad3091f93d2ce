#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "life/Event.h"
#include "platform/vo/Future.h"
#include "platform/vo/Value.h"

namespace KR {

/// Answers the requests of a life by those that another life was given: a request by the one of the
/// same text that was made there at about the same time, however it was answered. Where there is
/// none, the last answer to that text counts, and before the first one that all went well.
///
/// Used by one thread; on the event loop of the current application.
class RecordedAnswers {
public:
    /// How far apart the two requests may be made.
    static constexpr vo::Duration kPatience = std::chrono::milliseconds(100);

    /// What was recorded, in its order, when it is time for it.
    void take(const RequestMade& request);
    void take(const RequestAnswered& answered);

    vo::Future<vo::Value> ask(const std::string& text);

    /// Requests that had no counterpart.
    std::size_t assumed() const { return assumed_; }

private:
    struct Asked {
        vo::Promise<vo::Value> promise;
        vo::Future<void> patience;
    };
    struct Recorded {
        std::string text;
        bool isUsed = false;  ///< by a request
        std::optional<Answer> answer = {};
        std::optional<vo::Promise<vo::Value>> waiting = {};  ///< the request that uses it
    };
    using RecordedPtr = std::shared_ptr<Recorded>;

    void assume(const std::string& text, const vo::Promise<vo::Value>& promise);
    static void use(const RecordedPtr& recorded, const vo::Promise<vo::Value>& promise);

    std::map<std::string, std::list<Asked>> asked_;          ///< that wait for a counterpart
    std::map<std::string, std::deque<RecordedPtr>> unused_;  ///< by text, that are still fresh
    std::map<std::uint64_t, RecordedPtr> pending_;           ///< that wait for their answer
    std::map<std::string, Answer> latest_;                   ///< by text
    std::size_t assumed_ = 0;
};

}  // namespace KR

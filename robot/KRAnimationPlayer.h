#pragma once

#include <string>
#include <vector>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// What plays the animations of the simulated robot. Packages tell it where animations with tags
/// are looked for; "[robot]" and "[posture]" in such a path stand for the robot's kind and posture.
///
/// Thread-safe. Errors are KRError.
class KRAnimationPlayer : public KRModule {
public:
    static constexpr const char* kName = "KRAnimationPlayer";

    explicit KRAnimationPlayer(const boost::shared_ptr<KRBroker>& broker);

    /// Adds a path for good, unless it is there already. An empty one is refused.
    void _declarePathForTagsPermanently(const std::string& path);
    /// In the order in which they were declared first.
    std::vector<std::string> getDeclaredPathsForTags() const;

private:
    mutable vo::Mutex mutex_;
    std::vector<std::string> paths_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR

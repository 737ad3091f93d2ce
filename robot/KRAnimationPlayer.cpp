#include "robot/KRAnimationPlayer.h"

#include <algorithm>

#include "platform/kr/KRError.h"

namespace KR {

KRAnimationPlayer::KRAnimationPlayer(const boost::shared_ptr<KRBroker>& broker)
    : KRModule(broker, kName)
{
    setModuleDescription("Plays animations");
    bindMethod("_declarePathForTagsPermanently", &KRAnimationPlayer::_declarePathForTagsPermanently,
               this, "Looks for animations with tags in one more place",
               {{"path", "where, from the packages folder"}});
    bindMethod("getDeclaredPathsForTags", &KRAnimationPlayer::getDeclaredPathsForTags, this,
               "Where animations with tags are looked for, in order");
}

void KRAnimationPlayer::_declarePathForTagsPermanently(const std::string& path)
{
    if (path.empty())
        throw KRError(kName, "_declarePathForTagsPermanently", "the path is empty");
    const vo::Lock lock(mutex_);
    if (std::find(paths_.begin(), paths_.end(), path) == paths_.end())
        paths_.push_back(path);
}

std::vector<std::string> KRAnimationPlayer::getDeclaredPathsForTags() const
{
    const vo::Lock lock(mutex_);
    return paths_;
}

}  // namespace KR

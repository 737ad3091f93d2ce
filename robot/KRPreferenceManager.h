#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/kr/KRModule.h"
#include "platform/vo/Mutex.h"
#include "robot/PreferenceFile.h"

namespace KR {

/// Settings that outlive the robot's runs, by domain and key. A new robot comes with those of its
/// perception; a value that is set goes before the one it came with.
///
/// With a file, a value that was set is on the disk when the call returns. Thread-safe. Errors are
/// KRError, after which nothing has changed.
class KRPreferenceManager : public KRModule {
public:
    static constexpr const char* kName = "KRPreferenceManager";

    /// `path` is that of the file; empty for preferences that last as long as the robot. With a
    /// file that cannot be read an error is logged and the robot comes up without it; what is set
    /// then is not kept.
    explicit KRPreferenceManager(const boost::shared_ptr<KRBroker>& broker,
                                 const std::string& path = {});

    KRValue getValue(const std::string& domain, const std::string& key) const;
    /// A bool, int, finite float, text in UTF-8, or array of such; neither name is empty.
    void setValue(const std::string& domain, const std::string& key, const KRValue& value);
    /// Does nothing for a value that was not set. One that the robot came with is back then.
    void removeValue(const std::string& domain, const std::string& key);
    /// Pairs of key and value, in ascending order of key.
    std::vector<KRValue> getValueList(const std::string& domain) const;
    /// In ascending order.
    std::vector<std::string> getDomainList() const;

private:
    Preferences all() const VO_REQUIRES(mutex_);
    void keep(Preferences preferences, const char* method) VO_REQUIRES(mutex_);

    /// Held while the file is written, so that what is last set is last written.
    mutable vo::Mutex mutex_;
    std::optional<PreferenceFile> file_ VO_GUARDED_BY(mutex_);
    Preferences values_ VO_GUARDED_BY(mutex_);  ///< what was set
};

}  // namespace KR

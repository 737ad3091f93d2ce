#include "robot/KRPreferenceManager.h"

#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger preferenceManagerLog(KRPreferenceManager::kName);

/// What a new robot comes with: how far it sees people, in metres, where the first two engagement
/// zones end, in metres, and how wide they are, in degrees.
const Preferences kNew{
    {"com.halvex.nimbra.PerceptionHeavyPlugin",
     {{"PPMaxDist", "3.5"}, {"EZDist1", "1.5"}, {"EZDist2", "2.5"}, {"EZAngle", "90.0"}}}};

}  // namespace

KRPreferenceManager::KRPreferenceManager(const boost::shared_ptr<KRBroker>& broker,
                                         const std::string& path)
    : KRModule(broker, kName)
{
    setModuleDescription("Settings that outlive the robot's runs");
    const ParameterInfo domain{"domain", "whose setting"};
    const ParameterInfo key{"key", "which setting"};
    bindMethod("getValue", &KRPreferenceManager::getValue, this, "The value", {domain, key});
    bindMethod("setValue", &KRPreferenceManager::setValue, this, "Sets and keeps a value",
               {domain, key, {"value", "bool, number, text or array"}});
    bindMethod("removeValue", &KRPreferenceManager::removeValue, this, "Forgets a value",
               {domain, key});
    bindMethod("getValueList", &KRPreferenceManager::getValueList, this, "Pairs of key and value",
               {domain});
    bindMethod("getDomainList", &KRPreferenceManager::getDomainList, this, "The domains");
    if (path.empty())
        return;
    const vo::Lock lock(mutex_);
    try {
        values_ = PreferenceFile(path).read();
        file_.emplace(path);
    } catch (const std::exception& e) {
        preferenceManagerLog.error(
            "KRPreferenceManager",
            std::string("preferences are neither read nor kept: ") + e.what());
    }
}

Preferences KRPreferenceManager::all() const
{
    Preferences all = values_;
    for (const auto& [domain, values] : kNew)
        all[domain].insert(values.begin(), values.end());
    return all;
}

KRValue KRPreferenceManager::getValue(const std::string& domain, const std::string& key) const
{
    const vo::Lock lock(mutex_);
    for (const Preferences* preferences : {&values_, &kNew}) {
        const auto values = preferences->find(domain);
        if (values == preferences->end())
            continue;
        const auto value = values->second.find(key);
        if (value != values->second.end())
            return value->second;
    }
    throw KRError(kName, "getValue", "there is no '" + key + "' in '" + domain + "'");
}

void KRPreferenceManager::setValue(const std::string& domain, const std::string& key,
                                   const KRValue& value)
{
    if (domain.empty() || key.empty())
        throw KRError(kName, "setValue", "a domain and a key have names");
    const vo::Lock lock(mutex_);
    Preferences values = values_;
    values[domain][key] = value;
    keep(std::move(values), "setValue");
}

void KRPreferenceManager::removeValue(const std::string& domain, const std::string& key)
{
    const vo::Lock lock(mutex_);
    Preferences values = values_;
    const auto found = values.find(domain);
    if (found == values.end() || found->second.erase(key) == 0)
        return;
    if (found->second.empty())
        values.erase(found);
    keep(std::move(values), "removeValue");
}

void KRPreferenceManager::keep(Preferences preferences, const char* method)
{
    try {
        if (file_)
            file_->write(preferences);
        else
            PreferenceFile::text(preferences);  // what a file would refuse is refused without one
    } catch (const std::exception& e) {
        throw KRError(kName, method, e.what());
    }
    values_ = std::move(preferences);
}

std::vector<KRValue> KRPreferenceManager::getValueList(const std::string& domain) const
{
    const vo::Lock lock(mutex_);
    std::vector<KRValue> list;
    const Preferences preferences = all();
    const auto values = preferences.find(domain);
    if (values == preferences.end())
        return list;
    for (const auto& [key, value] : values->second)
        list.push_back(KRValue::Array{key, value});
    return list;
}

std::vector<std::string> KRPreferenceManager::getDomainList() const
{
    const vo::Lock lock(mutex_);
    std::vector<std::string> list;
    for (const auto& domain : all())
        list.push_back(domain.first);
    return list;
}

}  // namespace KR

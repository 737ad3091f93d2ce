#pragma once

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "platform/kr/KRMemory.h"

namespace KR {

class KRBroker;

/// The typed proxy of shared memory; see KRMemory for each operation. Cheap to copy, thread-safe;
/// keeps its broker alive.
class KRMemoryProxy {
public:
    explicit KRMemoryProxy(boost::shared_ptr<KRBroker> broker);
    /// What is written through it is written by `writer`.
    KRMemoryProxy(boost::shared_ptr<KRBroker> broker, const std::string& writer);

    KRValue getData(const std::string& key) const;
    KRValue getListData(const std::vector<std::string>& keys) const;
    std::vector<std::string> getDataList(const std::string& prefix) const;
    KRValue getEventHistory(const std::string& key) const;
    void declareEvent(const std::string& key, const std::string& declarer) const;
    void raiseEvent(const std::string& key, const KRValue& value) const;
    void subscribeToMicroEvent(const std::string& key, const std::string& module,
                               const std::string& message, const std::string& method) const;
    void unsubscribeToMicroEvent(const std::string& key, const std::string& module) const;

private:
    boost::shared_ptr<KRBroker> broker_;
    MemoryWriter writer_;
};

}  // namespace KR

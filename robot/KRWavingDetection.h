#pragma once

#include "robot/KRExtractor.h"

namespace KR {

/// People who wave.
class KRWavingDetection : public KRExtractor {
public:
    static constexpr const char* kName = "KRWavingDetection";

    KRWavingDetection(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses);
};

}  // namespace KR

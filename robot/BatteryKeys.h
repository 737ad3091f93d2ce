#pragma once

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/kr/SharedKeys.h"

namespace KR::BatteryKeys {

constexpr const char* kService = "KRBattery";
constexpr int kCharging = 128;  ///< bit of the status word

inline void describe(KeyCatalogue& keys)
{
    keys.addPublished(
        KeyDescription::integer(keys::kBatteryStatus, "status word; 128 while charging")
            .oneOf({0, kCharging}),
        kService);
    keys.addPublished(KeyDescription::boolean(keys::kOnPod, "the robot is on its charging station"),
                      kService);
}

/// Writes both keys.
inline void publish(KRMemory& memory, bool connected)
{
    memory.raiseEvent(keys::kBatteryStatus, connected ? kCharging : 0);
    memory.raiseEvent(keys::kOnPod, connected);
}

}  // namespace KR::BatteryKeys

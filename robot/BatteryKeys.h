#pragma once

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR::BatteryKeys {

constexpr const char* kService = "KRBattery";
constexpr const char* kStatusKey = "Device/SubDeviceList/Battery/Charge/Sensor/Status";
constexpr const char* kConnectedKey = "KRBattery/ConnectedToChargingStation";
constexpr int kCharging = 128;  ///< bit of the status word

inline void describe(KeyCatalogue& keys)
{
    keys.addPublished(KeyDescription::integer(kStatusKey, "status word; 128 while charging")
                          .oneOf({0, kCharging}),
                      kService);
    keys.addPublished(
        KeyDescription::boolean(kConnectedKey, "the robot is on its charging station"), kService);
}

/// Writes both keys.
inline void publish(KRMemory& memory, bool connected)
{
    memory.raiseEvent(kStatusKey, connected ? kCharging : 0);
    memory.raiseEvent(kConnectedKey, connected);
}

}  // namespace KR::BatteryKeys

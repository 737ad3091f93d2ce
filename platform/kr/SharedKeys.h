#pragma once

/// Memory keys that modules in several folders write or read.
namespace KR::keys {

// Of the robot's life.
constexpr const char* kState = "Nimbra/State";
constexpr const char* kAsleep = "Nimbra/Asleep";
constexpr const char* kFocusedActivity = "Nimbra/FocusedActivity";
/// Written once the robot may begin to live.
constexpr const char* kReady = "TesselReady";

// Of the robot's battery.
constexpr const char* kBatteryStatus = "Device/SubDeviceList/Battery/Charge/Sensor/Status";
constexpr const char* kOnPod = "KRBattery/ConnectedToChargingStation";

}  // namespace KR::keys

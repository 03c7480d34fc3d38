#pragma once

// Keys of the settings store, in one place.
namespace duskwell::SettingsKey {
inline constexpr const char* mode = "mode";
inline constexpr const char* selectedMinutes = "selectedMinutes";
inline constexpr const char* autoCapHours = "autoCapHours";
inline constexpr const char* maxPerformance = "maxPerformance";
inline constexpr const char* batteryFloor = "batteryFloor";
inline constexpr const char* stopOnHeat = "stopOnHeat";
inline constexpr const char* lockOnLidClose = "lockOnLidClose";
inline constexpr const char* restoreLid = "restore.lid";
inline constexpr const char* restoreLowPower = "restore.lowpower";
inline constexpr const char* restorePowerMode = "restore.powermode";
inline constexpr const char* phoneEnabled = "phone.enabled";
inline constexpr const char* phoneTopic = "phone.topic";
inline constexpr const char* phoneControl = "phone.control";
inline constexpr const char* phoneSecret = "phone.secret";
inline constexpr const char* phoneServer = "phone.server";  // absent: the public ntfy server
inline constexpr const char* phoneToken = "phone.token";    // ntfy access token; absent: none
inline constexpr const char* didOnboard = "didOnboard";
}  // namespace duskwell::SettingsKey

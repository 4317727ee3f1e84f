#pragma once

// Every host that a build talks to. The exchanges' are those of their public REST documentation;
// the platform's are build settings (CMake cache variables of the same names).
namespace morvane::connector::hosts {

inline constexpr const char* bybit = "https://api.bybit.com";
inline constexpr const char* okx = "https://www.okx.com";
inline constexpr const char* okx_eea = "https://eea.okx.com";
inline constexpr const char* okx_us = "https://us.okx.com";
inline constexpr const char* gate = "https://api.gateio.ws";
inline constexpr const char* bingx = "https://open-api.bingx.com";
inline constexpr const char* kucoin_futures = "https://api-futures.kucoin.com";
inline constexpr const char* bitget = "https://api.bitget.com";

inline constexpr const char* default_relay = MORVANE_RELAY_URL;
inline constexpr const char* update_manifest = MORVANE_DOWNLOAD_URL "/current/manifest.json";

}  // namespace morvane::connector::hosts

#pragma once

// What lies where. These names are a contract with every other release.
namespace morvane::connector::state_files {

// Below the application root.
inline constexpr const char* identity = "/device_identity.env";
inline constexpr const char* pairing = "/pairing.env";
inline constexpr const char* vault = "/vault";
inline constexpr const char* updates = "/updates";

// In any of these folders, before a process's number: a file that the process has not finished.
inline constexpr const char* unfinished = "/.unfinished-";

// Below the vault.
inline constexpr const char* vault_index = "/vault_index.txt";
inline constexpr const char* fallback_extension = ".vault";

}  // namespace morvane::connector::state_files

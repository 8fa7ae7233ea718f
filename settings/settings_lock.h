// The files of the settings, which several processes change.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <functional>

#include "settings/outcome.h"
#include "util/file_lock.h"

namespace settings {

// The mode of a file of settings without secrets.
inline constexpr mode_t kPublicMode = 0644;

// The folder of all settings, below the system root.
inline constexpr char kFolder[] = "/var/packages/Mirevo/etc";

// Waits for the lock that every change of a setting holds. Makes the folder if it is missing.
orvo::FileLock HoldSettings();

// The object in a file of settings; empty if the file is missing or holds anything else. For
// readers only: what is made from it must not replace the file.
Json::Value ReadSettings(const char* path);

// Holds the lock, applies `change` to the object in the file, which is empty without a file, and
// writes it with this mode if that has changed it. Logs a damaged file.
Outcome ChangeSettings(const char* path, const std::function<void(Json::Value& settings)>& change,
                       mode_t mode = kPublicMode);

// Replaces the file. Returns false, with errno set, on failure. The caller holds the lock.
bool WriteSettings(const char* path, const Json::Value& settings, mode_t mode = kPublicMode);

}  // namespace settings

// The files of the settings, which several processes change.
#pragma once

#include <json/value.h>

#include <string>

#include "util/file_lock.h"

namespace settings {

// The folder of all settings, below the system root.
inline constexpr char kFolder[] = "/var/packages/Mirevo/etc";

// Waits for the lock that every change of a setting holds. Makes the folder if it is missing.
orvo::FileLock HoldSettings();

// The object in a file of settings; empty if the file is missing or holds anything else.
Json::Value ReadSettings(const char* path);

// Replaces the file. Returns false, with errno set, on failure.
bool WriteSettings(const char* path, const Json::Value& settings);

}  // namespace settings

// Keeps the register of running transcoders true after processes that could not remove their entry.
#pragma once

#include <json/value.h>

#include "platform/export.h"

namespace LibMirevo {

// The entries of running processes, in their order. All other elements are left out. Returns an
// empty array for anything but an array.
Json::Value LivingEntries(const Json::Value& stored);

// Removes the entries of ended processes; a process that nobody has reaped yet counts as ended.
// Writes only if there are any. Does not wait: returns false if another process holds the register,
// and the caller should try again.
ORVO_API bool StrikeDeadTranscoders();

}  // namespace LibMirevo

// Waits for room in the register of running transcoders.
#pragma once

#include <functional>

#include "platform/export.h"
#include "policy/trans_loading.h"

namespace LibMirevo {

// Reads the register and asks `question`, again and again, until it returns true or `seconds` have
// passed. Returns the last answer. Asks again when a registered process ends, when the register
// changes, and after one second at the latest. Releases the lock between the questions.
ORVO_API bool AskRegistryUntil(const std::function<bool(TransLoading&)>& question, int seconds);

}  // namespace LibMirevo

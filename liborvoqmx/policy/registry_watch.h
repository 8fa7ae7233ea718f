// Waiting for room in the register of running transcoders.
#pragma once

#include <functional>

#include "policy/trans_loading.h"

namespace LibMirevo {

// Asks fresh registries, one after the other, until `question` is answered with true or `seconds`
// have passed; the answer. Asks again when a registered process ends, when the register changes,
// and after a second in any case. Between the questions the lock is free.
bool AskRegistryUntil(const std::function<bool(TransLoading&)>& question, int seconds);

}  // namespace LibMirevo

// A function that runs confined and whose result is bytes.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/confinement.h"
#include "platform/export.h"

namespace orvo {

// Runs `function` in a forked, confined process that has no descriptor of this one, and returns
// what it returned there. A process that died has returned the beginning of that or nothing, so the
// caller checks for completeness. Nothing, with errno set, where the process cannot be made
// (EOPNOTSUPP: not confined), takes longer than its job may (ETIMEDOUT) or returns more than
// `longest` bytes (EFBIG). The process is gone afterwards.
ORVO_API std::optional<std::string> CallConfined(Job job, const Reach& reach, size_t longest,
                                                 const std::function<std::string()>& function);

}  // namespace orvo

// Functions of this program that run confined and tell their results as bytes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/confinement.h"
#include "platform/export.h"

namespace orvo {

// Runs `body` in a forked, confined process that has no descriptor of this one but `output` and the
// files in `reach`, and passes what it writes there to `take` as it comes. Returns its exit status
// or 128 + the signal that ended it, and -1, with errno set, where the process cannot be made
// (EOPNOTSUPP: not confined), takes longer than its job may (ETIMEDOUT) or `take` refuses (EFBIG).
// It is gone afterwards.
ORVO_API int RunConfined(Job job, const Reach& reach, const std::function<int(int output)>& body,
                         const std::function<bool(std::string_view)>& take);

// The bytes that `function` returns in such a process. One that died has returned the beginning of
// that or nothing, so the caller checks for completeness. Nothing, with errno set, as above, and
// where there are more than `longest` bytes.
ORVO_API std::optional<std::string> CallConfined(Job job, const Reach& reach, size_t longest,
                                                 const std::function<std::string()>& function);

}  // namespace orvo

// The login that a request brings along in its header "Authorization" (RFC 7617), as media centers
// and simple programs send it.
#pragma once

#include <optional>

#include "webapi/http/answer.h"
#include "webapi/http/caller.h"
#include "webapi/http/request.h"

namespace webapi {

// The caller with this login; anybody, where no login is required. Otherwise nothing, and sets
// `refusal`, which asks for a login. A wrong password counts as a wrong try to log in.
std::optional<Caller> FindCallerByHeader(const Request& request, Answer& refusal);

}  // namespace webapi

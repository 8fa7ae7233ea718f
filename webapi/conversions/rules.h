// The owner's rules for conversions (convert/queue.h): which films are converted without being
// named.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Adds a rule for the films below the folder "path", with the "profile", which may be missing.
// Answers with its "id"; a rule that is there already keeps its id.
Answer AddConversionRule(const Request& request);

// All rules, and whether this machine knows its speed; without that, rules add no film.
Answer ListConversionRules(const Request& request);

// Forgets the rule "id". The films that it has added and that still wait are removed; conversions
// in work and results stay. Succeeds also if there is none.
Answer RemoveConversionRule(const Request& request);

}  // namespace webapi

// The number that a request names a conversion or a rule by.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The parameter "id". Nothing, with the refusal, if it is no number.
inline std::optional<int64_t> EntryId(const Request& request, Answer& refusal) {
  const auto id = request.Number("id", std::numeric_limits<int64_t>::max());
  if (!id) {
    refusal = Answer::Failure(kBadRequest, "The id must be a number.");
  }
  return id;
}

}  // namespace webapi

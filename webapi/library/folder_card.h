// The facts of a folder for its tile in a list.
#pragma once

#include <string>

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// "films": the number of films in the folder and the folders below it; "is_all": false if there was
// no time to count all of them; "watched": how many of them the caller has watched to their end.
Answer DescribeFolderCard(const Request& request, const std::string& folder);

}  // namespace webapi

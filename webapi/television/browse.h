// Folders and films as televisions see them.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"
#include "webapi/television/admission.h"

namespace webapi {

// The most objects in one answer. A television asks for the rest by itself.
inline constexpr int64_t kMostObjects = 500;

// Describes the object "id": itself, or with "children" the objects in it, after the first "start"
// and at most "count" (0 for as many as possible). The answer has "objects", "total" (their number
// without these limits) and "update", a number that changes with the folder. An object has "id",
// "parent", "title" and "kind" ("folder", "film", "music"); a film or a piece of music also "forms"
// (resources.h), "date", "artist", "album", and "poster" and "subtitle" if there is one (paths of
// addresses).
// Fails with NotFound if there is no such object, or televisions do not see it.
Answer BrowseForTelevision(const Request& request, const Admission& admission);

}  // namespace webapi

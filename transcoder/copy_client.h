// A copy that the service's parent of copies makes (copy_parent.h).
#pragma once

#include <memory>

#include "transcoder/film_copy.h"
#include "transcoder/worker.h"

namespace orvo::transcoder {

// Asks for a copy from the film into `output`. Null if this service has no such parent, or none
// that answers at once; what came into `output` by then is worth nothing.
std::unique_ptr<Worker> AskForCopy(const FilmCopy& copy, int film, int output, int progress);

}  // namespace orvo::transcoder

// A copy that the service's parent of copies makes (copy_parent.h).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "transcoder/worker.h"

namespace orvo::transcoder {

// Asks for this work (copy_text.h). `files`: the film, the output, and for a FilmCopy the file for
// the progress. Null if this service has no such parent, or none that answers at once; what came
// into the output by then is worth nothing.
std::unique_ptr<Worker> AskForCopy(const std::string& work, const std::vector<int>& files);

}  // namespace orvo::transcoder

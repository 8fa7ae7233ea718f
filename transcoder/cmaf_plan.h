// Plans the segments of a film.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/cmaf.h"
#include "transcoder/cmaf_request.h"

namespace orvo::transcoder {

// What is known of a film before it is cut. Times are ticks of kPlanClock from the film's start.
struct FilmOutline {
  int64_t end = 0;
  int64_t rate = 25;  // of the pictures: rate / scale a second
  int64_t scale = 1;
  int64_t delay = 0;          // of reordered pictures
  std::vector<int64_t> keys;  // the key frames in the index, ascending; empty without an index
  std::optional<int64_t> clockStart;  // CmafKnowledge has it
  bool isOpen = false;                // not each key frame begins a closed group of pictures
  bool changes = false;  // the pictures have another size or coding from some key frame on
  bool hasPicture = false;
};

// Can the pictures be cut at the key frames of the index?
bool HasUsableKeys(const FilmOutline& film);

// Segments of about one, one and two seconds, then of four or more: at key frames if they are
// usable, else at pictures.
CmafPlan PlanCmaf(const FilmOutline& film);

// Writes the plan of the request's film into its folder, and beside it whether the pictures can be
// copied (contract/cmaf.h). Uses the file kCmafKeysFile there if the container tells no key frames.
// A confined process reads the film. Returns the exit code.
int WriteCmafPlan(const CmafRequest& request);

}  // namespace orvo::transcoder

// A film's key frames and the end of its video.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace orvo::analyze {

struct FilmKeyframes {
  // Presentation times in seconds from the file, in decoding order.
  std::vector<double> times;
  // The end of the last picture, in seconds from the first key frame. Plans use the same origin.
  double endTime = 0;
};

// Called from time to time with the part of the film that has been read, from 0 to 1.
using Progress = std::function<void(double)>;

// Finds the key frames of a film's first moving video. Uses the container's index if it is
// complete, and otherwise reads the whole film without decoding it. Returns false and the reason in
// `error` if there are none.
bool FindKeyframes(const std::string& path, const Progress& progress, FilmKeyframes& found,
                   std::string& error);

}  // namespace orvo::analyze

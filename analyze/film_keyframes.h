// Where a film's pictures can be entered, and where they end.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace orvo::analyze {

struct FilmKeyframes {
  // Presentation times in seconds, as the file has them, in decoding order.
  std::vector<double> times;
  // The end of the last picture, in seconds from the first key frame. Plans count from there too.
  double endTime = 0;
};

// How much of the film has been read, from 0 to 1. Called now and then.
using Progress = std::function<void(double)>;

// Finds the key frames of a film's first moving video from the container's own index where it has a
// complete one, and otherwise by reading the film through, without decoding. False, with the reason
// in `error`, where there are none.
bool FindKeyframes(const std::string& path, const Progress& progress, FilmKeyframes& found,
                   std::string& error);

}  // namespace orvo::analyze

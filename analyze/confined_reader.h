// Reading a film in a process that the film cannot leave.
#pragma once

#include <string>

#include "film_keyframes.h"

namespace orvo::analyze {

// As FindKeyframes, in a forked and confined process with the limits of an analysis.
//
// Where the process was ended by a signal, `signal` is its number and `error` says so; else 0.
bool FindKeyframesConfined(const std::string& path, const Progress& progress, FilmKeyframes& found,
                           std::string& error, int& signal);

}  // namespace orvo::analyze

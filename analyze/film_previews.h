// Makes and stores the previews of one film.
#pragma once

#include <string>

namespace orvo::analyze {

// Has this film no previews yet, and is there room for them?
bool LacksPreviews(const std::string& film);

// Reads the film in a confined process with the limits of an analysis and stores its previews. A
// film that gives none gets an empty file, so it is not tried again.
void MakePreviews(const std::string& film);

}  // namespace orvo::analyze

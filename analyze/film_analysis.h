// Analyzing one film: finding its key frames and storing them.
#pragma once

#include <csignal>
#include <string>

#include "film_keyframes.h"

namespace orvo::analyze {

// For its life, an interruption waits: it would leave a file behind that has no name yet.
class Uninterrupted {
 public:
  Uninterrupted();
  ~Uninterrupted();
  Uninterrupted(const Uninterrupted&) = delete;
  Uninterrupted& operator=(const Uninterrupted&) = delete;

 private:
  sigset_t previous_;
};

// Stores the key frames beside the film, or in the service's own folder where nothing can be put
// beside it. `state`: FilmState() of the film before it was read. False, and the reason, when it
// has changed since or nothing can be written. Then an older result stays.
bool StoreKeyframes(const FilmKeyframes& found, const std::string& film, const std::string& state,
                    std::string& error);

// Finds and stores them. False, and the reason, where that cannot be.
bool AnalyzeFilm(const std::string& film, const Progress& progress, size_t& keyframes,
                 std::string& error);

}  // namespace orvo::analyze

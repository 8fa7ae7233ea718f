// Analyzes one film: finds its key frames and stores them.
#pragma once

#include <csignal>
#include <string>

#include "film_keyframes.h"

namespace orvo::analyze {

// Delays interrupting signals while it exists, because an interrupted write would leave a temporary
// file.
class Uninterrupted {
 public:
  Uninterrupted();
  ~Uninterrupted();
  Uninterrupted(const Uninterrupted&) = delete;
  Uninterrupted& operator=(const Uninterrupted&) = delete;

 private:
  sigset_t previous_;
};

// Stores the key frames beside the film, or in the service's own folder if the film's folder cannot
// be written. `state` is FilmState() of the film before it was read. Returns false and the reason
// if the film has changed since or nothing can be written. An older result then stays.
bool StoreKeyframes(const FilmKeyframes& found, const std::string& film, const std::string& state,
                    std::string& error);

// Finds and stores the key frames. Returns false and the reason on failure.
bool AnalyzeFilm(const std::string& film, const Progress& progress, size_t& keyframes,
                 std::string& error);

}  // namespace orvo::analyze

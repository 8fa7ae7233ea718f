// The film that the starter of this program has opened for it (contract/passed_film.h).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/unique_fd.h"
#include "transcoder/translation.h"

namespace orvo::transcoder {

struct GivenFilm {
  std::string address;  // of the open film
  std::string demuxer;  // FFmpeg's name; "" if it is not known

  // From the environment; nothing if there is none. `error` says what is wrong with it.
  static std::optional<GivenFilm> Find(std::string& error);

  // The arguments with this film as the value of "-i".
  std::vector<std::string> InPlaceOf(std::vector<std::string> arguments) const;

  // Names the demuxer in all commands of a translation. FFmpeg knows some formats by the end of a
  // name only, and an address has none.
  void NameDemuxer(Translation& translation) const;
};

// Opens a film for this program's own reading, by name or address. Never waits for a pipe.
UniqueFd OpenFilm(const std::string& film);

}  // namespace orvo::transcoder

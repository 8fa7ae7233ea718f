// The memory of all processes that work on one film beside its transcoder: at most 1 GiB at a time.
//
// The limits of the jobs add up to this (platform/confinement.cpp): one probe or picture with 512
// MiB, one extraction of subtitles with 256 MiB, and one analysis with 256 MiB. Each needs the
// place of its kind, whoever starts it.
#pragma once

#include <optional>

#include "platform/confinement.h"
#include "platform/export.h"
#include "platform/media_file.h"
#include "util/place.h"

namespace orvo {

class ORVO_API FilmMemory {
 public:
  // Waits so long for the place of this kind of job. A process that may not use the folder of the
  // places, such as a program of another user that links this library, goes without.
  static std::optional<FilmMemory> Take(const MediaFile& film, Job job, int milliseconds);

 private:
  explicit FilmMemory(std::optional<Place> place) : place_(std::move(place)) {}

  std::optional<Place> place_;
};

}  // namespace orvo

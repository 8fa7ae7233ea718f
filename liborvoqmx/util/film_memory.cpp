#include "util/film_memory.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "platform/plat.h"
#include "util/private_folder.h"

namespace orvo {
namespace {

constexpr char kFolder[] = "/tmp/Mirevo/work";
constexpr int kWaiting = 64;  // more requests of one film than queues let through

// Each film has bytes of its own in the file, and each kind of job has some of them. Two films with
// the same bytes wait for each other, which does no harm.
constexpr int64_t kFilms = INT64_C(1) << 40;
constexpr int64_t kEach = 256;

int64_t FirstByte(const MediaFile& film, Job job) {
  const int64_t kind = job == Job::kSubtitles ? 1 : job == Job::kAnalysis ? 2 : 0;
  const auto number = static_cast<int64_t>(std::hash<std::string>()(film.Identity()) % kFilms);
  return (number * 4 + kind) * kEach;
}

}  // namespace

std::optional<FilmMemory> FilmMemory::Take(const MediaFile& film, Job job, int milliseconds) {
  const std::string folder = SystemPath(kFolder);
  if (!MakePrivateFolder(folder)) {
    return FilmMemory(std::nullopt);
  }
  auto place = Place::Take(folder + "/memory", {1, kWaiting, milliseconds}, FirstByte(film, job));
  return place ? std::optional(FilmMemory(std::move(place))) : std::nullopt;
}

}  // namespace orvo

#include "film_queue.h"

#include <algorithm>

namespace orvo::analyze {
namespace {

constexpr auto kByTime = [](const auto& one, const auto& other) {
  return one.second < other.second;
};

}  // namespace

std::optional<std::string> FilmQueue::TakeDue() {
  const auto now = Clock::now();
  auto latest = films_.end();
  for (auto film = films_.begin(); film != films_.end(); ++film) {
    if (film->second <= now && (latest == films_.end() || kByTime(*latest, *film))) {
      latest = film;
    }
  }
  if (latest == films_.end()) {
    return std::nullopt;
  }
  std::string path = latest->first;
  films_.erase(latest);
  return path;
}

std::optional<FilmQueue::Clock::time_point> FilmQueue::NextDue() const {
  const auto next = std::min_element(films_.begin(), films_.end(), kByTime);
  return next != films_.end() ? std::optional(next->second) : std::nullopt;
}

}  // namespace orvo::analyze

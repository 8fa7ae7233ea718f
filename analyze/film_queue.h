// The films that wait to be analyzed, each until its time.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace orvo::analyze {

class FilmQueue {
 public:
  using Clock = std::chrono::steady_clock;

  // Puts the film in line, or gives it a new time.
  void Put(const std::string& film, Clock::time_point due) { films_[film] = due; }
  void Remove(const std::string& film) { films_.erase(film); }

  // Takes the film out whose time came last: what was added most recently is watched first.
  std::optional<std::string> TakeDue();

  // When the next film's time comes; nothing without films.
  std::optional<Clock::time_point> NextDue() const;
  size_t Size() const { return films_.size(); }

 private:
  std::map<std::string, Clock::time_point> films_;
};

}  // namespace orvo::analyze

// The films that wait for analysis, each with the time at which it is due.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace orvo::analyze {

class FilmQueue {
 public:
  using Clock = std::chrono::steady_clock;

  // Adds the film, or changes its time.
  void Put(const std::string& film, Clock::time_point due) { films_[film] = due; }
  void Remove(const std::string& film) { films_.erase(film); }

  // Removes and returns the due film with the latest time, because viewers watch the newest films
  // first. Returns nothing if no film is due.
  std::optional<std::string> TakeDue();

  // The time at which the next film is due; nothing if there are no films.
  std::optional<Clock::time_point> NextDue() const;
  size_t Size() const { return films_.size(); }

 private:
  std::map<std::string, Clock::time_point> films_;
};

}  // namespace orvo::analyze

// Paths that wait for work, each with the time at which it is due.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

namespace catalog {

class DueQueue {
 public:
  using Clock = std::chrono::steady_clock;

  // Adds the path, or changes its time.
  void Put(const std::string& path, Clock::time_point due);
  void Remove(const std::string& path);

  // Removes and returns the due path with the latest time, because viewers watch the newest films
  // first. Returns nothing if no path is due.
  std::optional<std::string> TakeDue();

  // The time at which the next path is due; nothing if there are none.
  std::optional<Clock::time_point> NextDue() const;
  size_t Size() const { return times_.size(); }

 private:
  std::unordered_map<std::string, Clock::time_point> times_;
  std::set<std::pair<Clock::time_point, std::string>> byTime_;
};

}  // namespace catalog

#include "catalog/due_queue.h"

#include <iterator>

namespace catalog {

void DueQueue::Put(const std::string& path, Clock::time_point due) {
  Remove(path);
  times_[path] = due;
  byTime_.emplace(due, path);
}

void DueQueue::Remove(const std::string& path) {
  if (const auto found = times_.find(path); found != times_.end()) {
    byTime_.erase({found->second, path});
    times_.erase(found);
  }
}

std::optional<std::string> DueQueue::TakeDue() {
  // No path is empty, so the first entry from here on is due later.
  const auto later = byTime_.lower_bound({Clock::now(), ""});
  if (later == byTime_.begin()) {
    return std::nullopt;
  }
  std::string path = std::prev(later)->second;
  Remove(path);
  return path;
}

std::optional<DueQueue::Clock::time_point> DueQueue::NextDue() const {
  return byTime_.empty() ? std::nullopt : std::optional(byTime_.begin()->first);
}

}  // namespace catalog

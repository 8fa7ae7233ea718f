#include "transcoder/film_times.h"

#include <algorithm>

namespace orvo::transcoder {
namespace {

// The shortest time between two pictures; 1 when nothing tells.
int64_t StepOf(std::vector<int64_t> shown) {
  std::sort(shown.begin(), shown.end());
  int64_t step = 0;
  for (size_t i = 1; i < shown.size(); ++i) {
    const int64_t gap = shown[i] - shown[i - 1];
    step = gap > 0 && (step == 0 || gap < step) ? gap : step;
  }
  return std::max<int64_t>(step, 1);
}

}  // namespace

size_t DecodingTimes::ReorderedIn(const std::vector<int64_t>& shown) {
  size_t most = 0;
  for (auto picture = shown.begin(); picture != shown.end(); ++picture) {
    const auto later =
        std::count_if(shown.begin(), picture, [&](int64_t earlier) { return earlier > *picture; });
    most = std::max(most, static_cast<size_t>(later));
  }
  return most;
}

std::vector<int64_t> DecodingTimes::Begin(const std::vector<int64_t>& shown) {
  const int64_t step = StepOf(shown);
  const size_t early = std::min(reordered_, shown.empty() ? 0 : shown.size() - 1);
  for (size_t i = 0; i < early; ++i) {
    Remember(shown[i]);
  }
  std::vector<int64_t> times(early);
  for (size_t i = early; i < shown.size(); ++i) {
    times.push_back(Next(shown[i]));
  }
  for (size_t i = early; i > 0; --i) {
    times[i - 1] = times[i] - step;
  }
  return times;
}

int64_t DecodingTimes::Next(int64_t shown) {
  Remember(shown);
  return Grown(latest_.front());
}

void DecodingTimes::Remember(int64_t shown) {
  latest_.insert(std::upper_bound(latest_.begin(), latest_.end(), shown), shown);
  if (latest_.size() > reordered_ + 1) {
    latest_.erase(latest_.begin());
  }
}

int64_t DecodingTimes::Grown(int64_t time) {
  last_ = last_ == INT64_MIN ? time : std::max(time, last_ + 1);
  return last_;
}

}  // namespace orvo::transcoder

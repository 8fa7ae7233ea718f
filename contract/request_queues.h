// How many requests of each kind of work are done at a time, and how many may wait. The request
// program keeps these queues, and the web server starts no program for a request beyond their end.
#pragma once

namespace orvo {

struct RequestQueue {
  int places;
  int line;

  constexpr int Most() const { return places + line; }
};

inline constexpr RequestQueue kTileQueue{2, 32};
inline constexpr RequestQueue kFilmQueue{4, 28};
inline constexpr RequestQueue kSubtitleQueue{2, 16};
inline constexpr RequestQueue kLoginQueue{4, 12};
inline constexpr RequestQueue kIndexQueue{4, 28};

}  // namespace orvo

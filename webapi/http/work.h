// The kinds of work that need much memory or processor time, and how much of each is done at a
// time. What exceeds it waits in a queue, and what exceeds the queue is refused at once.
#pragma once

#include <optional>

#include "util/place.h"

namespace webapi {

struct Work {
  const char* name;  // of the queue's file in "/tmp/Mirevo/work"
  orvo::Queue queue;
};

// Pictures and cards for tiles: a page shows many, and two decoders leave a processor to players.
inline constexpr Work kTileWork{"tiles", {2, 32, 15000}};
// Openings and descriptions of films: each may need a probe of 512 MB and 10 s. A viewer who has
// waited longer than this tries again anyway.
inline constexpr Work kFilmWork{"films", {4, 28, 5000}};
// Extractions and conversions of subtitles: each may read a whole film.
inline constexpr Work kSubtitleWork{"subtitles", {2, 16, 60000}};
// Checks of passwords: each needs 64 MB for a tenth of a second or more.
inline constexpr Work kLoginWork{"logins", {4, 12, 5000}};

// Takes a place for a piece of work, or waits for one. Returns nothing if the queue is full or the
// wait was too long; the answer is kBusy then.
std::optional<orvo::Place> TakePlace(const Work& work);

}  // namespace webapi

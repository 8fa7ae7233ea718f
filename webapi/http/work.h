// The kinds of work that need much memory or processor time, and how much of each is done at a
// time. What exceeds it waits in a queue, and what exceeds the queue is refused at once.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "contract/request_queues.h"
#include "util/place.h"

namespace webapi {

struct Work {
  const char* name;  // of the queue's file in "/tmp/Mirevo/work"
  orvo::Queue queue;
};

// `milliseconds`: how long a request may wait.
constexpr orvo::Queue QueueOf(const orvo::RequestQueue& queue, int milliseconds) {
  return {queue.places, queue.line, milliseconds};
}

// Pictures and cards for tiles: a page shows many, and two decoders leave a processor to players.
inline constexpr Work kTileWork{"tiles", QueueOf(orvo::kTileQueue, 15000)};
// Openings and descriptions of films: each may need a probe of 512 MB and 10 s. A viewer who has
// waited longer than this tries again anyway.
inline constexpr Work kFilmWork{"films", QueueOf(orvo::kFilmQueue, 5000)};
// Extractions and conversions of subtitles: each may read a whole film.
inline constexpr Work kSubtitleWork{"subtitles", QueueOf(orvo::kSubtitleQueue, 60000)};
// Checks of passwords: each needs 64 MB for a tenth of a second or more.
inline constexpr Work kLoginWork{"logins", QueueOf(orvo::kLoginQueue, 5000)};

// Pages that list a media folder as files: each looks at every file of a folder.
inline constexpr Work kIndexWork{"index", QueueOf(orvo::kIndexQueue, 5000)};

// Takes a place for a piece of work, or waits for one. Returns nothing if the queue is full or the
// wait was too long; the answer is kBusy then.
std::optional<orvo::Place> TakePlace(const Work& work);

// Files from the media folders that one client gets at a time, and that all clients get. Each has a
// process for as long as the client reads, and a paused player reads nothing for hours.
inline constexpr int kTransfersOfClient = 64;
inline constexpr int kTransfers = 2048;

// Takes a place for sending such a file to a client (Caller::client). Nobody waits: a place may be
// taken for hours. Returns nothing if there is none; the answer is kBusy then.
class Transfer {
 public:
  static std::optional<Transfer> Begin(const std::string& client);

 private:
  Transfer(orvo::Place own, orvo::Place any) : own_(std::move(own)), any_(std::move(any)) {}

  orvo::Place own_;  // of those that the client has
  orvo::Place any_;
};

}  // namespace webapi
